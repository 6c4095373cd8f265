#include "platform/media/MediaLibrary.h"

#include <atomic>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "platform/media/IndexSql.h"
#include "platform/media/LibraryIndex.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/runtime/NotificationCenter.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::media;
using vexo::testing::executeSql;
namespace fs = std::filesystem;

namespace {

std::string item(std::int64_t id, const std::string& path, int present, const std::string& title, int type = 1,
                 int artwork = 0) {
    return "INSERT INTO items (persistent_id, path, present, modified_ns, size, title, artist, album, duration,"
           " media_type, has_artwork) VALUES (" +
           std::to_string(id) + ", '" + path + "', " + std::to_string(present) + ", 0, 0, '" + title +
           "', 'Artist', 'Album', 61.5, " + std::to_string(type) + ", " + std::to_string(artwork) + ");";
}

std::string playlist(std::int64_t id, const std::string& name, const std::vector<std::string>& paths) {
    std::string sql = "INSERT INTO playlists VALUES (" + std::to_string(id) + ", '/m/" + name + std::to_string(id) +
                      ".m3u', 1, 0, 0, '" + name + "');";
    for (std::size_t i = 0; i < paths.size(); ++i)
        sql += "INSERT INTO playlist_entries VALUES (" + std::to_string(id) + ", " + std::to_string(i) + ", '" +
               paths[i] + "');";
    return sql;
}

class MediaLibraryTest : public ::testing::Test {
protected:
    MediaLibraryTest()
        : m_index(m_temporary.path() / "library.sqlite") {
        // Made once by open, then filled from outside.
        EXPECT_TRUE(MediaLibrary::open(m_index));
    }

    vexo::testing::TemporaryDirectory m_temporary;
    fs::path m_index;
};

constexpr std::int64_t kHighID = std::numeric_limits<std::int64_t>::min() + 5; // 2^63 + 5 unsigned

} // namespace

TEST_F(MediaLibraryTest, PlaylistsComeByNameThenUnsignedIdentifierWithItemsInOrder) {
    executeSql(m_index, item(7, "/m/a.mp3", 1, "Alpha") + item(kHighID, "/m/b.mp3", 0, "beta", 1, 1) +
                            item(9, "/m/c.mp3", 1, "Gamma", 2) + "INSERT INTO artwork VALUES (" +
                            std::to_string(kHighID) + ", x'FFD8FFD9');" +
                            playlist(kHighID, "Mix", {"/m/a.mp3", "/m/b.mp3"}) +
                            playlist(3, "Mix", {"/m/c.mp3", "/m/a.mp3", "/m/nothing.mp3"}) +
                            playlist(4, "ambient", {"/m/b.mp3"}) + playlist(5, "Zed", {}));
    auto library = MediaLibrary::open(m_index).valueOr(nullptr);
    ASSERT_TRUE(library);

    const auto playlists = library->playlists(MediaType::Any);
    ASSERT_EQ(playlists.size(), 3u);
    EXPECT_EQ(playlists[0].name(), "ambient");
    EXPECT_EQ(playlists[1].persistentID(), 3u);
    EXPECT_EQ(playlists[2].persistentID(), static_cast<PersistentID>(kHighID));
    ASSERT_EQ(playlists[1].count(), 2u);
    EXPECT_EQ(playlists[1].items()[0].title(), "Gamma");
    EXPECT_EQ(playlists[1].items()[1].title(), "Alpha");

    const auto found = library->itemsWithPersistentID(static_cast<PersistentID>(kHighID));
    ASSERT_EQ(found.size(), 1u);
    const MediaItem& beta = found[0];
    EXPECT_EQ(beta, playlists[2].items()[1]);
    EXPECT_FALSE(beta.assetURL());
    EXPECT_EQ(beta.artworkData(), (std::vector<std::uint8_t>{0xFF, 0xD8, 0xFF, 0xD9}));
    EXPECT_FALSE(playlists[1].items()[1].artworkData());
    EXPECT_TRUE(library->itemsWithPersistentID(8).empty());
    EXPECT_TRUE(library->itemsWithPersistentID(0).empty());

    const std::vector<std::pair<std::string_view, vexo::plist::Value>> properties = {
        {MediaItem::kPropertyPersistentID, vexo::plist::Value(static_cast<PersistentID>(kHighID))},
        {MediaItem::kPropertyTitle, vexo::plist::Value("beta")},
        {MediaItem::kPropertyArtist, vexo::plist::Value("Artist")},
        {MediaItem::kPropertyAlbumTitle, vexo::plist::Value("Album")},
        {MediaItem::kPropertyPlaybackDuration, vexo::plist::Value(61.5)},
        {MediaItem::kPropertyMediaType, vexo::plist::Value(1)},
        {MediaItem::kPropertyAssetURL, vexo::plist::Value()},
        {"genre", vexo::plist::Value()},
    };
    for (const auto& [name, value] : properties)
        EXPECT_EQ(beta.valueForProperty(name), value) << name;
    EXPECT_EQ(playlists[1].items()[0].valueForProperty(MediaItem::kPropertyAssetURL),
              vexo::plist::Value("file:///m/c.mp3"));

    // An item outlives its library, but its picture is no longer reachable.
    const MediaItem kept = beta;
    const auto items = library->items();
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].title(), "Alpha");
    EXPECT_EQ(items[1].title(), "beta");
    library.reset();
    EXPECT_FALSE(kept.artworkData());
}

TEST_F(MediaLibraryTest, OpenRefusesFilesThatAreNotAnIndexOfThisVersion) {
    const fs::path text = m_temporary.path() / "notes.txt";
    std::ofstream(text) << std::string(4096, 'x');
    const fs::path foreign = m_temporary.path() / "foreign.sqlite";
    executeSql(foreign, "CREATE TABLE t (x);");
    const fs::path newer = m_temporary.path() / "newer.sqlite";
    ASSERT_TRUE(MediaLibrary::open(newer));
    executeSql(newer, "PRAGMA user_version = 99;");

    struct Row {
        fs::path path;
        vexo::ErrorKind kind;
        std::string message;
    };
    const std::vector<Row> rows = {
        {text, vexo::ErrorKind::InvalidData, "not a media library index"},
        {foreign, vexo::ErrorKind::InvalidData, "not a media library index"},
        {newer, vexo::ErrorKind::Unsupported, "newer version"},
        {m_temporary.path(), vexo::ErrorKind::InvalidData, "is a folder"},
        {fs::path(), vexo::ErrorKind::NotFound, "no path"},
    };
    for (const auto& [path, kind, message] : rows) {
        const auto library = MediaLibrary::open(path);
        ASSERT_FALSE(library) << path;
        EXPECT_EQ(library.error().kind(), kind) << path << ": " << library.error().message();
        EXPECT_NE(library.error().message().find(message), std::string::npos)
            << path << ": " << library.error().message();
    }
    // Nothing was written into files of others.
    std::ifstream stream(text);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), std::string(4096, 'x'));

    const fs::path fresh = m_temporary.path() / "new" / "folder" / "library.sqlite";
    const auto library = MediaLibrary::open(fresh).valueOr(nullptr);
    ASSERT_TRUE(library);
    EXPECT_TRUE(library->items().empty());
    EXPECT_TRUE(library->playlists(MediaType::Any).empty());
}

TEST(MediaLibraryPathTest, DefaultPathFollowsTheSettings) {
    struct Row {
        std::optional<std::string> library, dataHome, home;
        std::string expected;
    };
    const std::vector<Row> rows = {
        {"/x/lib.sqlite", "/data", "/home/u", "/x/lib.sqlite"},
        {"", "/data", "/home/u", "/data/vexo/media-library.sqlite"},
        {std::nullopt, "relative/data", "/home/u", "/home/u/.local/share/vexo/media-library.sqlite"},
        {std::nullopt, std::nullopt, "/home/u", "/home/u/.local/share/vexo/media-library.sqlite"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(MediaLibrary::defaultPath(row.library, {.home = row.home, .dataHome = row.dataHome}),
                  fs::path(row.expected));
}

TEST_F(MediaLibraryTest, QueriesFromAnotherThreadRunBesideTheMainThreads) {
    std::string sql;
    for (int i = 1; i <= 200; ++i)
        sql += item(i, "/m/" + std::to_string(i) + ".mp3", 1, "T" + std::to_string(i));
    for (int p = 1; p <= 20; ++p) {
        std::vector<std::string> paths;
        for (int i = 0; i < 10; ++i)
            paths.push_back("/m/" + std::to_string((p - 1) * 10 + i + 1) + ".mp3");
        sql += playlist(1000 + p, "P" + std::to_string(p), paths);
    }
    executeSql(m_index, sql);
    const auto library = MediaLibrary::open(m_index).valueOr(nullptr);
    ASSERT_TRUE(library);

    std::atomic<int> wrong = 0;
    std::thread background([&] {
        for (int round = 0; round < 50; ++round) {
            const auto playlists = library->playlists(MediaType::Music);
            if (playlists.size() != 20 || playlists[0].count() != 10)
                ++wrong;
        }
    });
    for (int round = 0; round < 200; ++round) {
        const auto items = library->itemsWithPersistentID(static_cast<PersistentID>(round % 200 + 1));
        if (items.size() != 1)
            ++wrong;
    }
    background.join();
    EXPECT_EQ(wrong, 0);
}

TEST(MediaItemTest, PictureTempoAndKeyAreAbsentPropertiesWhenMissing) {
    MediaItem::Properties tagged;
    tagged.persistentID = 43794;
    tagged.beatsPerMinute = 124;
    tagged.initialKey = "Gm";
    const MediaItem withTags(tagged, std::vector<std::uint8_t>{1, 2, 3});
    const MediaItem without{MediaItem::Properties{}};
    EXPECT_EQ(withTags.artworkData(), (std::vector<std::uint8_t>{1, 2, 3}));
    EXPECT_FALSE(without.artworkData());
    EXPECT_FALSE(withTags == MediaItem(tagged)) << "the picture is part of the item";
    EXPECT_EQ(withTags.valueForProperty(MediaItem::kPropertyBeatsPerMinute), vexo::plist::Value(124));
    EXPECT_EQ(withTags.valueForProperty(MediaItem::kPropertyInitialKey), vexo::plist::Value("Gm"));
    EXPECT_TRUE(without.valueForProperty(MediaItem::kPropertyBeatsPerMinute).isNull());
    EXPECT_TRUE(without.valueForProperty(MediaItem::kPropertyInitialKey).isNull());

    const MediaPlaylist playlist(5, "List", {withTags, without});
    EXPECT_EQ(playlist.valueForProperty(MediaPlaylist::kPropertyName), vexo::plist::Value("List"));
    EXPECT_EQ(playlist.valueForProperty(MediaPlaylist::kPropertyPersistentID), vexo::plist::Value(5));
}
