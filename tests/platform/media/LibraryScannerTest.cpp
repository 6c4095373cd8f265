#include "platform/media/LibraryScanner.h"

#include <fstream>
#include <map>
#include <set>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/media/AudioFixture.h"
#include "platform/media/FileURL.h"
#include "platform/media/IndexSql.h"
#include "platform/media/MediaLibrary.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/runtime/NotificationCenter.h"
#include "support/ScopedContainerRoot.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::media;
using vexo::testing::AudioFixture;
namespace fs = std::filesystem;

namespace {

using Format = AudioFixture::Format;

class LibraryScannerTest : public ::testing::Test {
protected:
    LibraryScannerTest() {
        m_containerRoot.set((m_temporary.path() / "containers").string());
        m_music = fs::canonical(m_temporary.path()) / "Music";
        fs::create_directories(m_music);
        m_index = m_temporary.path() / "index" / "library.sqlite";
    }

    fs::path song(const std::string& relative, const std::string& title, Format format = Format::Wav,
                  const std::string& genre = "") {
        const fs::path path = m_music / relative;
        fs::create_directories(path.parent_path());
        EXPECT_TRUE(AudioFixture::write(path, format, 2.0, {title, "Artist " + title, "Album", genre, {}, {}}));
        return path;
    }

    void playlist(const std::string& relative, const std::string& text) {
        const fs::path path = m_music / relative;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << text;
    }

    LibraryScanner::Summary scan(const fs::path& folder) {
        const auto summary = LibraryScanner(m_index).scan(folder);
        EXPECT_TRUE(summary) << summary.error().message();
        return summary.valueOr(LibraryScanner::Summary{});
    }
    LibraryScanner::Summary scan() { return scan(m_music); }

    std::shared_ptr<MediaLibrary> library() {
        auto library = MediaLibrary::open(m_index);
        EXPECT_TRUE(library) << library.error().message();
        return library.valueOr(nullptr);
    }

    // Title to identifier, for every item of the library.
    std::map<std::string, PersistentID> identifiers() {
        std::map<std::string, PersistentID> ids;
        for (const auto& item : library()->items())
            ids[item.title()] = item.persistentID();
        return ids;
    }

    vexo::testing::TemporaryDirectory m_temporary;
    vexo::testing::ScopedContainerRoot m_containerRoot;
    fs::path m_music;
    fs::path m_index;
};

std::vector<std::string> titles(const MediaPlaylist& playlist) {
    std::vector<std::string> out;
    for (const auto& item : playlist.items())
        out.push_back(item.title() + (item.assetURL() ? "" : " (missing)"));
    return out;
}

std::vector<std::string> names(const std::vector<MediaPlaylist>& playlists) {
    std::vector<std::string> out;
    for (const auto& playlist : playlists)
        out.push_back(playlist.name() + ":" + std::to_string(playlist.count()));
    return out;
}

const MediaPlaylist* named(const std::vector<MediaPlaylist>& playlists, std::string_view name) {
    for (const auto& playlist : playlists) {
        if (playlist.name() == name)
            return &playlist;
    }
    return nullptr;
}

} // namespace

TEST_F(LibraryScannerTest, IndexesSongsAndPlaylistsOfEveryKindOfEntry) {
    const fs::path one = song("A/one.wav", "One");
    song("A/two.mp3", "Two", Format::Mp3);
    const fs::path three = song("B/three.flac", "Three", Format::Flac);
    const fs::path four = song("B/four.ogg", "Four", Format::OggVorbis);
    song("five.opus", "Five", Format::Opus);
    song("six.m4a", "Six", Format::M4a);
    playlist("lists/Road.m3u8", "#EXTM3U\r\n#EXTINF:2,Artist One - One\r\n../A/one.wav\r\n" + three.string() +
                                    "\r\n../A/never-there.mp3\r\n../B/three.flac\r\n");
    playlist("Mix.m3u", "# favourites\n" + FileURL::fromPath(four) + "\nhttp://stream.example/live\nA/two.mp3\n");
    playlist("empty.m3u", "#EXTM3U\n");

    std::vector<LibraryScanner::Progress> reports;
    const auto summary = LibraryScanner(m_index).scan(
        m_music, [&](const LibraryScanner::Progress& progress) { reports.push_back(progress); });
    ASSERT_TRUE(summary) << summary.error().message();
    EXPECT_EQ(summary->itemsAdded, 6u);
    EXPECT_EQ(summary->playlistsAdded, 3u);
    EXPECT_TRUE(summary->problems.empty());
    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.back().phase, LibraryScanner::Progress::Phase::Reading);
    EXPECT_EQ(reports.back().filesDone, 9u);
    EXPECT_EQ(reports.back().filesTotal, 9u);

    const auto media = library();
    const auto items = media->items();
    ASSERT_EQ(items.size(), 6u);
    std::set<PersistentID> unique;
    for (const auto& item : items) {
        EXPECT_NE(item.persistentID(), 0u);
        unique.insert(item.persistentID());
        ASSERT_TRUE(item.assetURL()) << item.title();
        EXPECT_TRUE(fs::exists(*FileURL::toPath(*item.assetURL()))) << *item.assetURL();
        EXPECT_NEAR(item.playbackDuration(), 2.0, 0.1) << item.title();
    }
    EXPECT_EQ(unique.size(), 6u);
    EXPECT_EQ(items.front().title(), "Five");

    const auto playlists = media->playlists(MediaType::Any);
    EXPECT_EQ(names(playlists), (std::vector<std::string>{"Mix:2", "Road:3"}));
    EXPECT_EQ(titles(playlists[0]), (std::vector<std::string>{"Four", "Two"}));
    EXPECT_EQ(titles(playlists[1]), (std::vector<std::string>{"One", "Three", "Three"}));
    EXPECT_EQ(playlists[1].items()[0].assetURL(), FileURL::fromPath(one));
    EXPECT_EQ(names(media->playlists(MediaType::Any, MediaLibrary::EmptyPlaylists::Include)),
              (std::vector<std::string>{"empty:0", "Mix:2", "Road:3"}));
}

TEST_F(LibraryScannerTest, RescansKeepIdentifiersThroughChangesRemovalsAndReturns) {
    song("one.wav", "One");
    song("two.mp3", "Two", Format::Mp3);
    const fs::path three = song("sub/three.flac", "Three", Format::Flac);
    playlist("List.m3u", "one.wav\nsub/three.flac\nlater.wav\n");
    scan();
    const auto before = identifiers();
    const PersistentID listID = library()->playlists(MediaType::Any)[0].persistentID();

    // Nothing changed: no file is read again.
    auto summary = scan();
    EXPECT_EQ(summary.itemsUnchanged, 3u);
    EXPECT_EQ(summary.itemsAdded + summary.itemsUpdated + summary.itemsGone + summary.playlistsUpdated, 0u);
    EXPECT_FALSE(summary.changedIndex());

    // A retagged file keeps its identifier; a file named by the playlist appears in it without
    // the playlist changing.
    song("two.mp3", "Two (remix)", Format::Mp3);
    song("later.wav", "Later");
    summary = scan();
    EXPECT_EQ(summary.itemsUpdated, 1u);
    EXPECT_EQ(summary.itemsAdded, 1u);
    EXPECT_EQ(identifiers().at("Two (remix)"), before.at("Two"));
    EXPECT_EQ(titles(library()->playlists(MediaType::Any)[0]), (std::vector<std::string>{"One", "Three", "Later"}));

    // A file that goes keeps its item without an asset URL, in the playlist too.
    fs::remove(three);
    summary = scan();
    EXPECT_EQ(summary.itemsGone, 1u);
    auto found = library()->itemsWithPersistentID(before.at("Three"));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].title(), "Three");
    EXPECT_FALSE(found[0].assetURL());
    EXPECT_EQ(titles(library()->playlists(MediaType::Any)[0]),
              (std::vector<std::string>{"One", "Three (missing)", "Later"}));

    // It comes back under the same identifier, as does a playlist file that went and came back.
    song("sub/three.flac", "Three", Format::Flac);
    fs::rename(m_music / "List.m3u", m_temporary.path() / "List.m3u");
    summary = scan();
    EXPECT_EQ(summary.itemsUpdated, 1u);
    EXPECT_EQ(summary.playlistsGone, 1u);
    found = library()->itemsWithPersistentID(before.at("Three"));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].assetURL(), FileURL::fromPath(three));
    EXPECT_TRUE(library()->playlists(MediaType::Any).empty());

    fs::rename(m_temporary.path() / "List.m3u", m_music / "List.m3u");
    scan();
    const auto playlists = library()->playlists(MediaType::Any);
    ASSERT_EQ(playlists.size(), 1u);
    EXPECT_EQ(playlists[0].persistentID(), listID);
    EXPECT_EQ(identifiers().at("One"), before.at("One"));
}

TEST_F(LibraryScannerTest, ScanningAnotherFolderKeepsTheFirstFoldersItems) {
    song("one.wav", "One");
    const fs::path other = m_temporary.path() / "Other";
    fs::create_directories(other);
    ASSERT_TRUE(AudioFixture::write(other / "x.wav", Format::Wav, 1, {"X", "", "", "", {}, {}}));
    scan();
    const auto summary = scan(other);
    EXPECT_EQ(summary.itemsAdded, 1u);
    EXPECT_EQ(summary.itemsGone, 0u);
    for (const auto& item : library()->items())
        EXPECT_TRUE(item.assetURL()) << item.title();

    // A file of the first folder that has gone loses its URL whichever folder is scanned.
    fs::remove(m_music / "one.wav");
    EXPECT_EQ(scan(other).itemsGone, 1u);
}

TEST_F(LibraryScannerTest, MediaTypeFilterKeepsMatchingItemsAndPlaylists) {
    song("song.wav", "Song");
    song("talk.mp3", "Talk", Format::Mp3, "Podcast");
    song("book.m4b", "Book", Format::M4a);
    playlist("Both.m3u", "song.wav\ntalk.mp3\nbook.m4b\n");
    playlist("Talks.m3u", "talk.mp3\n");
    scan();

    struct Row {
        MediaType filter;
        std::vector<std::string> playlists;
    };
    const std::vector<Row> rows = {
        {MediaType::Any, {"Both:3", "Talks:1"}},
        {MediaType::AnyAudio, {"Both:3", "Talks:1"}},
        {MediaType::Music, {"Both:1"}},
        {MediaType::Podcast, {"Both:1", "Talks:1"}},
        {MediaType::Music | MediaType::AudioBook, {"Both:2"}},
        {MediaType::AnyVideo, {}},
    };
    const auto media = library();
    for (const auto& row : rows)
        EXPECT_EQ(names(media->playlists(row.filter)), row.playlists) << static_cast<int>(row.filter);
    EXPECT_EQ(titles(*named(media->playlists(MediaType::Music | MediaType::AudioBook), "Both")),
              (std::vector<std::string>{"Song", "Book"}));
}

TEST_F(LibraryScannerTest, AScanThatChangesTheIndexReachesInProcessObservers) {
    vexo::runtime::DeterministicRunLoop loop;
    vexo::runtime::RunLoop::CurrentScope current(&loop);
    const auto media = library();
    media->beginGeneratingLibraryChangeNotifications();

    std::vector<const void*> senders;
    auto& centre = vexo::runtime::NotificationCenter::defaultCenter();
    centre.addObserver(
        &senders, [&](const vexo::runtime::Notification& note) { senders.push_back(note.sender); },
        MediaLibrary::kDidChangeNotification);

    song("one.wav", "One");
    scan();
    loop.runUntilIdle();
    EXPECT_EQ(senders, (std::vector<const void*>{media.get()}));

    // An unchanged rescan announces nothing.
    scan();
    loop.runUntilIdle();
    EXPECT_EQ(senders.size(), 1u);

    // Calls nest; after the last end, changes go unheard.
    media->beginGeneratingLibraryChangeNotifications();
    media->endGeneratingLibraryChangeNotifications();
    song("two.wav", "Two");
    scan();
    loop.runUntilIdle();
    EXPECT_EQ(senders.size(), 2u);
    media->endGeneratingLibraryChangeNotifications();
    song("three.wav", "Three");
    scan();
    loop.runUntilIdle();
    EXPECT_EQ(senders.size(), 2u);
    centre.removeObserver(&senders);
}

TEST_F(LibraryScannerTest, DamagedFilesPipesAndLinkCyclesDoNotStopAScan) {
    const fs::path good = song("good.wav", "Good");
    const std::vector<std::pair<std::string, std::string>> damaged = {
        {"bad.mp3", ""},
        {"bad.flac", "not flac"},
        {"bad.m4a", std::string("\0\0\0\0", 4)},
        {"bad.ogg", "OggS"},
    };
    for (const auto& [name, bytes] : damaged)
        std::ofstream(m_music / name, std::ios::binary) << bytes;
    ASSERT_EQ(::mkfifo((m_music / "pipe.mp3").c_str(), 0600), 0);
    fs::create_directories(m_music / "folder.flac");
    fs::create_directory_symlink(m_music, m_music / "folder.flac" / "loop");
    fs::create_symlink(good, m_music / "alias.wav");
    fs::create_symlink(m_music / "nowhere.wav", m_music / "dangling.wav");
    song(".hidden/secret.wav", "Secret");
    song("locked/inside.wav", "Inside");
    scan();
    // A folder that cannot be read is no sign that its files have gone. (Root reads it anyway.)
    fs::permissions(m_music / "locked", fs::perms::none);
    const bool locksApply = ::access((m_music / "locked").c_str(), R_OK) != 0;

    const auto summary = scan();
    fs::permissions(m_music / "locked", fs::perms::owner_all);
    EXPECT_EQ(summary.itemsGone, 0u);

    std::set<std::string> problems;
    for (const auto& problem : summary.problems) {
        problems.insert(problem.path.filename().string());
        EXPECT_FALSE(problem.reason.empty());
    }
    std::set<std::string> expected{"bad.mp3", "bad.flac", "bad.m4a", "bad.ogg"};
    if (locksApply)
        expected.insert("locked");
    EXPECT_EQ(problems, expected);
    std::set<std::string> playable;
    for (const auto& item : library()->items()) {
        if (item.assetURL())
            playable.insert(item.title());
    }
    EXPECT_EQ(playable, (std::set<std::string>{"Good", "Inside"}));
}

TEST_F(LibraryScannerTest, ACancelledScanKeepsWhatItReadAndMarksNothingGone) {
    for (const char* name : {"a", "b", "c", "d", "e"})
        song(std::string(name) + ".wav", name);
    LibraryScanner::Options options;
    int asked = 0;
    options.isCancelled = [&] { return ++asked > 2; };
    const auto interrupted = LibraryScanner(m_index, options).scan(m_music);
    ASSERT_FALSE(interrupted);
    EXPECT_EQ(interrupted.error().kind(), vexo::ErrorKind::Cancelled);
    EXPECT_NE(interrupted.error().message().find("interrupted"), std::string::npos) << interrupted.error().message();
    EXPECT_EQ(library()->items().size(), 2u);

    scan();
    fs::remove(m_music / "e.wav");
    asked = 0;
    options.isCancelled = [&] { return true; };
    EXPECT_FALSE(LibraryScanner(m_index, options).scan(m_music));
    for (const auto& item : library()->items())
        EXPECT_TRUE(item.assetURL()) << item.title();
}

TEST_F(LibraryScannerTest, MissingOrUnusableFolderOrIndexIsAClearError) {
    std::ofstream(m_temporary.path() / "file.txt") << "x";
    struct Row {
        fs::path folder;
        fs::path index;
        vexo::ErrorKind kind;
        std::string message;
    };
    const std::vector<Row> rows = {
        {m_temporary.path() / "absent", m_index, vexo::ErrorKind::NotFound, "No such file"},
        {m_temporary.path() / "file.txt", m_index, vexo::ErrorKind::InvalidData, "not a folder"},
        {m_music, m_temporary.path(), vexo::ErrorKind::InvalidData, "is a folder"},
    };
    for (const auto& row : rows) {
        const auto summary = LibraryScanner(row.index).scan(row.folder);
        ASSERT_FALSE(summary) << row.folder;
        EXPECT_EQ(summary.error().kind(), row.kind) << row.folder;
        EXPECT_NE(summary.error().message().find(row.message), std::string::npos) << summary.error().message();
    }
}

TEST_F(LibraryScannerTest, TempoAndKeyReachTheLibraryAndFollowRetaggedFiles) {
    struct Row {
        std::string file;
        Format format;
        std::string bpm;
        std::string key;
        std::int64_t expectedBpm;
        std::string expectedKey;
    };
    const std::vector<Row> rows = {
        {"a.wav", Format::Wav, "124", "Gm", 124, "Gm"},
        {"b.mp3", Format::Mp3, "", "", 0, ""},
        {"c.m4a", Format::M4a, "90", "", 90, ""},
        {"d.opus", Format::Opus, "", "11B", 0, "11B"},
    };
    for (const auto& row : rows) {
        AudioFixture::Tags tags(row.file, "Artist");
        tags.bpm = row.bpm;
        tags.initialKey = row.key;
        ASSERT_TRUE(AudioFixture::write(m_music / row.file, row.format, 2.0, tags));
    }
    scan();
    const auto media = library();
    std::map<std::string, MediaItem> byTitle;
    for (const auto& item : media->items())
        byTitle[item.title()] = item;
    for (const auto& row : rows) {
        ASSERT_TRUE(byTitle.contains(row.file)) << row.file;
        EXPECT_EQ(byTitle[row.file].beatsPerMinute(), row.expectedBpm) << row.file;
        EXPECT_EQ(byTitle[row.file].initialKey(), row.expectedKey) << row.file;
    }

    // Retagging drops a tag as well as changing one; the size changes, so the rescan reads it.
    AudioFixture::Tags retagged("a.wav", "Artist");
    retagged.bpm = "174.2";
    ASSERT_TRUE(AudioFixture::write(m_music / "a.wav", Format::Wav, 2.5, retagged));
    scan();
    const auto item = media->itemsWithPersistentID(byTitle["a.wav"].persistentID());
    ASSERT_EQ(item.size(), 1u);
    EXPECT_EQ(item[0].beatsPerMinute(), 174);
    EXPECT_EQ(item[0].initialKey(), "");
}

TEST_F(LibraryScannerTest, IndexOfTheFirstVersionIsUpgradedAndTheRescanFillsTempoAndKey) {
    AudioFixture::Tags tags("Old Song", "Artist");
    tags.bpm = "126";
    tags.initialKey = "Em";
    ASSERT_TRUE(AudioFixture::write(m_music / "old.flac", Format::Flac, 2.0, tags));
    playlist("Set.m3u8", "old.flac\n");
    struct stat status {};
    ASSERT_EQ(::stat((m_music / "old.flac").c_str(), &status), 0);
    const std::int64_t modified =
        static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec;
    ASSERT_EQ(::stat((m_music / "Set.m3u8").c_str(), &status), 0);
    const std::int64_t playlistModified =
        static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec;

    // The first version's tables, holding the file as unchanged since it was read.
    const std::string path = (m_music / "old.flac").string();
    const std::string sql =
        "CREATE TABLE items (persistent_id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE, present INTEGER NOT "
        "NULL, modified_ns INTEGER NOT NULL, size INTEGER NOT NULL, title TEXT NOT NULL, artist TEXT NOT NULL, "
        "album TEXT NOT NULL, duration REAL NOT NULL, media_type INTEGER NOT NULL, has_artwork INTEGER NOT NULL);"
        "CREATE TABLE artwork (item_id INTEGER PRIMARY KEY, data BLOB NOT NULL);"
        "CREATE TABLE playlists (persistent_id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE, present INTEGER "
        "NOT NULL, modified_ns INTEGER NOT NULL, size INTEGER NOT NULL, name TEXT NOT NULL);"
        "CREATE TABLE playlist_entries (playlist_id INTEGER NOT NULL, position INTEGER NOT NULL, path TEXT NOT "
        "NULL, PRIMARY KEY (playlist_id, position)) WITHOUT ROWID;"
        "INSERT INTO items VALUES (-7, '" +
        path + "', 1, " + std::to_string(modified) + ", " + std::to_string(fs::file_size(m_music / "old.flac")) +
        ", 'Old Song', 'Artist', '', 2.0, 1, 0);"
        "INSERT INTO playlists VALUES (77, '" +
        (m_music / "Set.m3u8").string() + "', 1, " + std::to_string(playlistModified) + ", " +
        std::to_string(fs::file_size(m_music / "Set.m3u8")) +
        ", 'Set');"
        "INSERT INTO playlist_entries VALUES (77, 0, '" +
        path +
        "');"
        "PRAGMA application_id = 1448627532; PRAGMA user_version = 1;";
    fs::create_directories(m_index.parent_path());
    vexo::testing::executeSql(m_index, sql);

    // Opened before any rescan: everything is there, tempo and key not yet.
    const auto before = library()->itemsWithPersistentID(static_cast<PersistentID>(-7));
    ASSERT_EQ(before.size(), 1u);
    EXPECT_EQ(before[0].beatsPerMinute(), 0);

    const auto summary = scan();
    EXPECT_EQ(summary.itemsUpdated, 1u);
    EXPECT_EQ(summary.itemsAdded, 0u);
    const auto media = library();
    const auto after = media->itemsWithPersistentID(static_cast<PersistentID>(-7));
    ASSERT_EQ(after.size(), 1u);
    EXPECT_EQ(after[0].beatsPerMinute(), 126);
    EXPECT_EQ(after[0].initialKey(), "Em");
    const auto playlists = media->playlists(MediaType::Any);
    ASSERT_EQ(playlists.size(), 1u);
    EXPECT_EQ(playlists[0].persistentID(), 77u);
    EXPECT_EQ(titles(playlists[0]), (std::vector<std::string>{"Old Song"}));
    // Once filled, the next rescan reads nothing again.
    EXPECT_EQ(scan().itemsUnchanged, 1u);
}
