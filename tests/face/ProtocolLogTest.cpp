#include "face/ProtocolLog.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "face/RecordingParentApplication.h"
#include "support/RecordingParentApplication.h"

using namespace vexo;
using namespace vexo::face;

namespace {

plist::Value nested(int depth) {
    plist::Value value = "bottom";
    for (int i = 0; i < depth; ++i)
        value = plist::Array{value};
    return value;
}

} // namespace

TEST(ProtocolLogTest, ContentsShowDataByItsLength) {
    const struct {
        plist::Value value;
        nlohmann::json expected;
    } cases[] = {
        {plist::Data(30000, 7), {{"$dataLength", 30000}}},
        {plist::Dictionary{{"song", plist::Dictionary{{"artworkImage", plist::Data(3)}, {"name", "A"}}}},
         {{"song", {{"artworkImage", {{"$dataLength", 3}}}, {"name", "A"}}}}},
        {plist::Value(), nullptr},
        {plist::Value(plist::Date{10.5}), {{"$date", 10.5}}},
        {plist::Value(std::numeric_limits<std::uint64_t>::max()), std::numeric_limits<std::uint64_t>::max()},
        {plist::Value(-3), -3},
        {plist::Value(0.25f), 0.25},
        {plist::Value(std::numeric_limits<double>::infinity()), "inf"},
        {plist::Array{true, "x"}, {true, "x"}},
    };
    for (const auto& row : cases)
        EXPECT_EQ(ProtocolLog::contentsJson(row.value), row.expected) << row.expected;

    // Nesting is cut, not followed without bound.
    std::string deep = ProtocolLog::contentsJson(nested(1000)).dump();
    EXPECT_NE(deep.find("..."), std::string::npos);
    EXPECT_EQ(deep.find("bottom"), std::string::npos);
}

TEST(ProtocolLogTest, KeepsTheNewestRecordsInOrderAndTellsListeners) {
    auto clock = [] { return std::chrono::system_clock::time_point(std::chrono::milliseconds(1234)); };
    ProtocolLog log(clock);
    std::vector<nlohmann::json> heard;
    std::uint64_t subscription = log.subscribe([&](const nlohmann::json& record) { heard.push_back(record); });
    for (int i = 0; i < 505; ++i)
        log.record("turntableStatus1", Direction::FromPhone, plist::Dictionary{{"i", i}});
    log.unsubscribe(subscription);
    log.record("mixerAction", Direction::ToPhone, plist::Value());

    nlohmann::json records = log.records();
    ASSERT_EQ(records.size(), ProtocolLog::kCapacity);
    EXPECT_EQ(records.front()["sequence"], 7);
    EXPECT_EQ(records.front()["contents"]["i"], 6);
    EXPECT_EQ(records.back(), nlohmann::json({{"sequence", 506},
                                              {"identifier", "mixerAction"},
                                              {"direction", "toPhone"},
                                              {"time", 1234},
                                              {"contents", nullptr}}));
    EXPECT_EQ(heard.size(), 505u);
}

TEST(ProtocolLogTest, TheRecordingLinkLogsEachDictionaryAndPassesItOn) {
    ProtocolLog log;
    auto next = std::make_shared<vexo::testing::RecordingParentApplication>();
    plist::Value libraryAction = plist::Dictionary{{"action", 3}};
    RecordingParentApplication link(next, log, "libraryAction", [&] { return libraryAction; });
    RecordingParentApplication plain(next, log);

    const struct {
        RecordingParentApplication* link;
        plist::Value userInfo;
        std::string identifier;
        nlohmann::json contents;
    } cases[] = {
        {&link,
         plist::Dictionary{{"identifier", "turntableAction"}, {"contents", plist::Dictionary{{"action", 0}}}},
         "turntableAction",
         {{"action", 0}}},
        {&link, plist::Dictionary{}, "libraryAction", {{"action", 3}}},
        {&plain, plist::Dictionary{}, "wake-up", nullptr},
        {&link, plist::Dictionary{{"other", 1}}, "openParentApplication", {{"other", 1}}},
        {&link, plist::Value("not a dictionary"), "openParentApplication", "not a dictionary"},
    };
    for (const auto& row : cases) {
        row.link->openParentApplication(row.userInfo);
        const nlohmann::json record = log.records().back();
        EXPECT_EQ(record["identifier"], row.identifier);
        EXPECT_EQ(record["direction"], "toPhone");
        EXPECT_EQ(record["contents"], row.contents) << row.identifier;
        ASSERT_FALSE(next->dictionaries().empty());
        EXPECT_EQ(next->dictionaries().back(), row.userInfo);
    }
    EXPECT_EQ(next->dictionaries().size(), std::size(cases));
}
