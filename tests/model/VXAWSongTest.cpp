#include "model/VXAWSong.h"

#include <gtest/gtest.h>

using namespace vexo;
using model::VXAWSong;
using plist::Dictionary;
using plist::Value;

namespace {

const Dictionary kComplete{{"songID", Value("A1")},
                           {"name", Value("Intro")},
                           {"artist", Value("Vexo")},
                           {"duration", Value(245)},
                           {"artworkImage", Value(plist::Data{1, 2, 3})}};

Dictionary with(Dictionary dictionary, const std::string& key, std::optional<Value> value) {
    if (value)
        dictionary.insert_or_assign(key, *value);
    else
        dictionary.erase(key);
    return dictionary;
}

} // namespace

TEST(VXAWSongTest, MergeReportsWhetherAnythingWasAssigned) {
    struct Row {
        const char* name;
        Dictionary merged;
        bool changed;
        std::optional<std::string> expectedName;
        std::int64_t expectedDuration;
    };
    const Row rows[] = {
        {"the same dictionary", kComplete, false, "Intro", 245},
        {"a new name", with(kComplete, "name", Value("Outro")), true, "Outro", 245},
        {"no name", with(kComplete, "name", std::nullopt), true, std::nullopt, 245},
        {"duration as text", with(kComplete, "duration", Value("245")), false, "Intro", 245},
        {"no duration", with(kComplete, "duration", std::nullopt), true, "Intro", 0},
        {"other artwork only", with(kComplete, "artworkImage", Value(plist::Data{9})), false, "Intro", 245},
        {"no artwork", with(kComplete, "artworkImage", std::nullopt), false, "Intro", 245},
        {"a number as name", with(kComplete, "name", Value(7)), true, "7", 245},
    };
    for (const auto& row : rows) {
        VXAWSong song{Value(kComplete)};
        EXPECT_EQ(song.updateMetadata(Value(row.merged)), row.changed) << row.name;
        EXPECT_EQ(song.name(), row.expectedName) << row.name;
        EXPECT_EQ(song.duration(), row.expectedDuration) << row.name;
        // Artwork, once there, is never replaced nor cleared.
        EXPECT_EQ(song.artworkImageData(), (plist::Data{1, 2, 3})) << row.name;
    }
}

TEST(VXAWSongTest, AMissingStringCountsAsAChangeOnEveryMerge) {
    const Value withoutName(with(kComplete, "name", std::nullopt));
    VXAWSong song{withoutName};
    EXPECT_EQ(song.name(), std::nullopt);
    EXPECT_TRUE(song.updateMetadata(withoutName));
    EXPECT_TRUE(song.updateMetadata(withoutName));

    VXAWSong complete{Value(kComplete)};
    EXPECT_FALSE(complete.updateMetadata(Value(kComplete)));
}

TEST(VXAWSongTest, ArtworkArrivesLaterOnlyIntoAnEmptySong) {
    VXAWSong song{Value(with(kComplete, "artworkImage", std::nullopt))};
    EXPECT_EQ(song.artworkImageData(), std::nullopt);
    EXPECT_TRUE(song.updateMetadata(Value(kComplete)));
    EXPECT_EQ(song.artworkImageData(), (plist::Data{1, 2, 3}));

    VXAWSong empty{Value()};
    EXPECT_EQ(empty.identifier(), std::nullopt);
    EXPECT_EQ(empty.duration(), 0);
}
