#include "platform/media/AnalysisStore.h"

#include <gtest/gtest.h>

#include "platform/media/IndexSql.h"
#include "platform/media/LibraryIndex.h"
#include "platform/media/MediaLibrary.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::media;
using vexo::testing::executeSql;
namespace fs = std::filesystem;

namespace {

// An index as version 2 wrote it: two songs (one gone) and a playlist of both.
void writeVersion2(const fs::path& index) {
    executeSql(
        index,
        "CREATE TABLE items (persistent_id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE, present INTEGER NOT "
        "NULL, modified_ns INTEGER NOT NULL, size INTEGER NOT NULL, title TEXT NOT NULL, artist TEXT NOT NULL, "
        "album TEXT NOT NULL, duration REAL NOT NULL, media_type INTEGER NOT NULL, has_artwork INTEGER NOT NULL, "
        "bpm INTEGER NOT NULL DEFAULT 0, initial_key TEXT NOT NULL DEFAULT '');"
        "CREATE TABLE artwork (item_id INTEGER PRIMARY KEY, data BLOB NOT NULL);"
        "CREATE TABLE playlists (persistent_id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE, present INTEGER "
        "NOT NULL, modified_ns INTEGER NOT NULL, size INTEGER NOT NULL, name TEXT NOT NULL);"
        "CREATE TABLE playlist_entries (playlist_id INTEGER NOT NULL, position INTEGER NOT NULL, path TEXT NOT "
        "NULL, PRIMARY KEY (playlist_id, position)) WITHOUT ROWID;"
        "INSERT INTO items VALUES (-7, '/music/a/one.flac', 1, 100, 1000, 'One', 'Ann', '', 60, 1, 0, 124, 'Am');"
        "INSERT INTO items VALUES (9, '/music/b/two.mp3', 1, 200, 2000, 'Two', 'Bob', '', 60, 1, 0, 0, '');"
        "INSERT INTO items VALUES (11, '/music/b/gone.mp3', 0, 300, 3000, 'Gone', 'Bob', '', 60, 1, 0, 0, '');"
        "INSERT INTO playlists VALUES (77, '/music/Set.m3u8', 1, 0, 0, 'Set');"
        "INSERT INTO playlist_entries VALUES (77, 0, '/music/a/one.flac');"
        "INSERT INTO playlist_entries VALUES (77, 1, '/music/b/two.mp3');"
        "PRAGMA application_id = 1448627532; PRAGMA user_version = 2;");
}

std::vector<PersistentID> identifiers(const std::vector<AnalysisStore::Pending>& pending) {
    std::vector<PersistentID> ids;
    for (const auto& item : pending)
        ids.push_back(item.persistentID);
    return ids;
}

ItemAnalysis analysed(int version) {
    ItemAnalysis analysis;
    analysis.version = version;
    analysis.beatsPerMinute = 123.5;
    analysis.firstBeatSeconds = 0.25;
    analysis.key = "8A";
    analysis.loudnessLUFS = -9.5;
    analysis.truePeakDBTP = -0.4;
    return analysis;
}

// A store opened on an index of version 2.
class AnalysisStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        writeVersion2(index);
        auto opened = AnalysisStore::open(index);
        ASSERT_TRUE(opened) << opened.error().message();
        store = std::move(*opened);
    }

    vexo::testing::TemporaryDirectory folder;
    const fs::path index = folder.path() / "library.sqlite";
    std::unique_ptr<AnalysisStore> store;
    const PersistentID one = static_cast<PersistentID>(-7);
};

} // namespace

TEST_F(AnalysisStoreTest, UpgradeFromVersion2KeepsItemsAndPlaylistsAndStoresAnalysisBesideTags) {
    const auto pending = store->pending(1, false, {});
    EXPECT_EQ(identifiers(pending), (std::vector<PersistentID>{one, 9})) << "present songs, in title order";
    auto stored = store->store(pending[0], analysed(1));
    ASSERT_TRUE(stored) << stored.error().message();
    ItemAnalysis failed;
    failed.version = 1;
    failed.failure = "silent";
    ASSERT_TRUE(store->store(pending[1], failed));

    const auto library = MediaLibrary::open(index).valueOr(nullptr);
    ASSERT_TRUE(library);
    const auto playlists = library->playlists(MediaType::Any);
    ASSERT_EQ(playlists.size(), 1u);
    EXPECT_EQ(playlists[0].persistentID(), 77u);
    ASSERT_EQ(playlists[0].items().size(), 2u);
    const MediaItem& tagged = playlists[0].items()[0];
    EXPECT_EQ(tagged.persistentID(), one);
    EXPECT_EQ(tagged.beatsPerMinute(), 124);
    EXPECT_EQ(tagged.initialKey(), "Am");
    EXPECT_EQ(tagged.analysis(), analysed(1));
    const MediaItem& untagged = playlists[0].items()[1];
    ASSERT_TRUE(untagged.analysis());
    EXPECT_EQ(untagged.analysis()->failure, "silent");
    EXPECT_FALSE(untagged.analysis()->beatsPerMinute);
}

TEST_F(AnalysisStoreTest, PendingAreTheNewTheChangedAndThoseOfAnOlderAnalyser) {
    for (const auto& item : store->pending(1, false, {}))
        ASSERT_TRUE(store->store(item, analysed(1)));

    struct Row {
        const char* what;
        int version;
        bool force;
        std::vector<fs::path> only;
        std::vector<PersistentID> expected;
    };
    const std::vector<Row> rows = {
        {"nothing changed", 1, false, {}, {}},
        {"a newer analyser", 2, false, {}, {one, 9}},
        {"forced", 1, true, {}, {one, 9}},
        {"forced, one folder", 1, true, {"/music/b"}, {9}},
        {"forced, one file", 1, true, {"/music/a/one.flac"}, {one}},
        {"forced, a folder whose name only starts the same", 1, true, {"/music/b/tw"}, {}},
    };
    for (const Row& row : rows)
        EXPECT_EQ(identifiers(store->pending(row.version, row.force, row.only)), row.expected) << row.what;

    // A rescan that finds the file changed records its new state: analysed again.
    executeSql(index, "UPDATE items SET modified_ns = 101 WHERE persistent_id = 9");
    EXPECT_EQ(identifiers(store->pending(1, false, {})), (std::vector<PersistentID>{9}));
}

TEST(ChosenValuesTest, TagsWinUnlessTheAnalysisIsPreferred) {
    struct Row {
        std::int64_t tagBpm;
        const char* tagKey;
        bool analysedValues;
        ValuePreference preference;
        double bpm;
        const char* key;
        double firstBeat;
    };
    using enum ValuePreference;
    const Row rows[] = {
        {124, "Am", true, Tags, 124, "8A", 0.25}, // the tag rounds the analysed tempo: grid kept
        {124, "Am", true, Analysis, 123.5, "8A", 0.25},
        {0, "", true, Tags, 123.5, "8A", 0.25},
        {90, "F#", true, Tags, 90, "2B", 0}, // a tempo the analysis disagrees with: no grid
        {0, "", false, Tags, 0, "", 0},
        {120, "weird", false, Analysis, 120, "weird", 0}, // a tag naming no key is shown as written
        {0, "1m", false, Tags, 0, "8A", 0},
    };
    for (const Row& row : rows) {
        MediaItem::Properties properties;
        properties.beatsPerMinute = row.tagBpm;
        properties.initialKey = row.tagKey;
        if (row.analysedValues)
            properties.analysis = analysed(1);
        const MediaItem item(properties);
        EXPECT_DOUBLE_EQ(item.chosenBeatsPerMinute(row.preference), row.bpm) << row.tagBpm;
        EXPECT_EQ(item.chosenKey(row.preference), row.key) << row.tagKey;
        EXPECT_DOUBLE_EQ(item.chosenFirstBeatSeconds(row.preference), row.firstBeat) << row.tagBpm;
    }
}
