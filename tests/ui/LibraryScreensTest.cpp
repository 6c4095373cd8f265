#include <cstdio>
#include <filesystem>
#include <fstream>

#include "ScreenTestFixture.h"
#include "model/VXAWLibrary.h"
#include "model/VXAWTurntable.h"
#include "platform/media/AudioFixture.h"
#include "ui/VXAWLibraryInterfaceController.h"
#include "ui/VXAWiTunesPlaylistInterfaceController.h"

using namespace vexo;
using namespace vexo::ui;
using namespace vexo::ui::testing;
using nlohmann::json;
using plist::Dictionary;
using plist::Value;

namespace {

media::MediaItem song(std::uint64_t id, bool playable) {
    media::MediaItem::Properties properties;
    properties.persistentID = id;
    properties.title = "Song " + std::to_string(id);
    properties.artist = "Artist";
    if (playable)
        properties.assetURL = "file:///music/" + std::to_string(id) + ".mp3";
    return media::MediaItem(properties);
}

media::MediaPlaylist playlist(std::string name, std::size_t songs) {
    std::vector<media::MediaItem> items;
    for (std::size_t i = 0; i < songs; ++i)
        items.push_back(song(0xAB00 + i, i % 2 == 0));
    return media::MediaPlaylist(0x500 + songs, std::move(name), std::move(items));
}

std::vector<media::MediaPlaylist> playlists(std::size_t count, const std::string& prefix = "List ") {
    std::vector<media::MediaPlaylist> lists;
    for (std::size_t i = 0; i < count; ++i)
        lists.push_back(playlist(prefix + std::to_string(i), i == 0 ? 23 : i));
    return lists;
}

class LibraryScreensTest : public ScreenTest {
protected:
    // Gives the model a real media library, indexed from a folder of one song and `count`
    // playlists of it ("Set 01", ...). Before start().
    void useMediaLibrary(std::size_t count) {
        std::filesystem::create_directories(music());
        ASSERT_TRUE(vexo::testing::AudioFixture::write(music() / "Song.wav", vexo::testing::AudioFixture::Format::Wav,
                                                       1.0, {"Song", "Vexo"}));
        for (std::size_t i = 1; i <= count; ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "Set %02zu.m3u", i);
            std::ofstream(music() / name) << "#EXTM3U\nSong.wav\n";
        }
        useMusicLibrary();
    }

    // Starts, then presents the library from deck 1's page over `lists`.
    void openLibrary(std::optional<std::vector<media::MediaPlaylist>> lists) {
        start();
        presentLibrary(std::move(lists));
    }
    // Presents the library from the visible deck page over `lists`, as a finished load left them.
    void presentLibrary(std::optional<std::vector<media::MediaPlaylist>> lists) {
        library()->setPlaylists(std::move(lists));
        tapAction("showLibrary");
        ASSERT_EQ(visibleScreen()["controller"], "library");
        takeSent();
    }
    std::vector<std::string> rowNames() const {
        std::vector<std::string> names;
        const nlohmann::json table = visible("table");
        for (const auto& row : table["rows"])
            names.push_back(vexo::testing::findByOutlet(row, "nameLabel")["text"].get<std::string>());
        return names;
    }
    std::size_t rowCount() const { return visible("table")["rows"].size(); }
    bool loadMoreHidden() const { return visible("loadMoreButton")["hidden"].get<bool>(); }
};

} // namespace

TEST_F(LibraryScreensTest, PlaylistsComeInPagesOfTen) {
    struct Row {
        std::size_t playlists;
        std::vector<std::size_t> rowsAfterEachPage;
    };
    start();
    for (const Row& row : {Row{25, {10, 20, 25}}, Row{10, {10}}, Row{3, {3}}}) {
        SCOPED_TRACE(row.playlists);
        presentLibrary(playlists(row.playlists));
        for (std::size_t page = 0; page < row.rowsAfterEachPage.size(); ++page) {
            if (page > 0)
                tapAction("loadMore");
            EXPECT_EQ(rowCount(), row.rowsAfterEachPage[page]);
            EXPECT_EQ(loadMoreHidden(), page + 1 == row.rowsAfterEachPage.size());
        }
        EXPECT_EQ(visible("placeholderGroup")["hidden"], true);
        const json firstRow = visible("table")["rows"][0];
        EXPECT_EQ(vexo::testing::findByOutlet(firstRow, "nameLabel")["text"], "List 0");
        EXPECT_EQ(vexo::testing::findByOutlet(firstRow, "image")["image"]["name"], "library-playlist.png");
        expectOk(m_host->closeModal());
    }
}

TEST_F(LibraryScreensTest, NoPlaylistsShowThePlaceholderAndLeaveTheButtonAsItWas) {
    openLibrary(playlists(25));
    EXPECT_FALSE(loadMoreHidden());
    library()->setPlaylists(std::vector<media::MediaPlaylist>{});
    EXPECT_EQ(rowCount(), 0u);
    EXPECT_EQ(visible("placeholderGroup")["hidden"], false);
    EXPECT_FALSE(loadMoreHidden());
}

TEST_F(LibraryScreensTest, AChangeWhileActiveRebuildsFromTheFirstPageButNotWhileCovered) {
    openLibrary(playlists(25));
    tapAction("loadMore");
    tapAction("loadMore");
    library()->setPlaylists(playlists(12, "New "));
    ASSERT_EQ(rowCount(), 10u);
    EXPECT_EQ(rowNames()[0], "New 0");
    EXPECT_FALSE(loadMoreHidden());

    // The playlist screen covers the library while the media library changes again.
    expectOk(m_host->selectRow(visibleId("table"), 3));
    ASSERT_EQ(visibleScreen()["controller"], "itunesPlaylist");
    library()->setPlaylists(playlists(4, "Newer "));
    expectOk(m_host->closeModal());
    ASSERT_EQ(visibleScreen()["controller"], "library");
    ASSERT_EQ(rowCount(), 10u) << "returning adds no page and keeps the rows";
    EXPECT_EQ(rowNames()[0], "New 0");
}

TEST_F(LibraryScreensTest, LibraryButtonsSendThroughTheSharedFile) {
    openLibrary(playlists(1));
    for (auto [action, code] : {std::pair{"back", 3}, std::pair{"previousTab", 4}, std::pair{"nextTab", 5}}) {
        tapAction(action);
        EXPECT_EQ(takeSent(), std::vector<Value>{Value(Dictionary{})}) << "the phone is only woken";
        EXPECT_EQ(m_phone->messageWithIdentifier("libraryAction"),
                  Value(Dictionary{{"action", Value(code)}, {"params", Value(Dictionary{})}}))
            << action;
    }
    EXPECT_EQ(visible("sectionNameLabel")["text"], "");
}

TEST_F(LibraryScreensTest, SongsComeInPagesAndEachActivationAddsOne) {
    openLibrary(playlists(2));
    expectOk(m_host->selectRow(visibleId("table"), 0));
    ASSERT_EQ(visibleScreen()["controller"], "itunesPlaylist");
    EXPECT_EQ(visible("nameLabel")["text"], "List 0");
    EXPECT_EQ(rowCount(), 10u);
    EXPECT_FALSE(loadMoreHidden());
    reactivate();
    EXPECT_EQ(rowCount(), 20u) << "a page per activation, no tap needed";
    tapAction("loadMore");
    EXPECT_EQ(rowCount(), 23u);
    EXPECT_TRUE(loadMoreHidden());
    reactivate();
    EXPECT_EQ(rowCount(), 23u);

    const json rows = visible("table")["rows"];
    EXPECT_EQ(vexo::testing::findByOutlet(rows[0], "nameLabel")["text"], "Song 43776");
    EXPECT_EQ(vexo::testing::findByOutlet(rows[0], "artistLabel")["text"], "Artist");
    EXPECT_TRUE(vexo::testing::findByOutlet(rows[0], "nameLabel")["textColor"].is_null()) << "the layout's colour";
    EXPECT_EQ(vexo::testing::findByOutlet(rows[1], "nameLabel")["textColor"]["red"], 2.0 / 3.0) << "file gone";
}

TEST_F(LibraryScreensTest, AnEmptyPlaylistShowsThePlaceholder) {
    std::vector<media::MediaPlaylist> lists{media::MediaPlaylist(7, "Empty", {})};
    openLibrary(lists);
    expectOk(m_host->selectRow(visibleId("table"), 0));
    EXPECT_EQ(visible("placeholderGroup")["hidden"], false);
    EXPECT_EQ(rowCount(), 0u);
}

TEST_F(LibraryScreensTest, APlayableSongLoadsOntoTheDeckAndClosesBothScreens) {
    openLibrary(playlists(2));
    expectOk(m_host->selectRow(visibleId("table"), 0));
    const std::string table = visibleId("table");

    expectOk(m_host->selectRow(table, 1));
    EXPECT_TRUE(takeSent().empty()) << "a grey row is inert";
    EXPECT_EQ(m_host->modalControllers().size(), 2u);

    expectOk(m_host->selectRow(table, 2));
    EXPECT_EQ(takeSent(), std::vector<Value>{deckAction(1, 6, Dictionary{{"itemID", Value("AB02")}})});
    EXPECT_TRUE(m_host->modalControllers().empty());
    EXPECT_EQ(visibleScreen()["controller"], "turntable1");
}

TEST_F(LibraryScreensTest, TheFirstActivationWaitsForTheLoadAndRebuildsWhenItLands) {
    useMediaLibrary(12);
    start();
    library()->queue()->setSuspended(true);
    tapAction("showLibrary");
    ASSERT_EQ(visibleScreen()["controller"], "library");
    EXPECT_EQ(rowCount(), 0u);
    EXPECT_EQ(visible("placeholderGroup")["hidden"], true) << "still loading is not 'no playlists'";
    EXPECT_TRUE(loadMoreHidden());

    library()->queue()->setSuspended(false);
    finishLoads(*library());
    ASSERT_EQ(rowCount(), 10u);
    EXPECT_EQ(rowNames().front(), "Set 01");
    EXPECT_EQ(visible("placeholderGroup")["hidden"], true);
    EXPECT_FALSE(loadMoreHidden());
    tapAction("loadMore");
    EXPECT_EQ(rowNames().back(), "Set 12");
}

TEST_F(LibraryScreensTest, ALibraryWithoutPlaylistsSaysSo) {
    useMediaLibrary(0);
    start();
    tapAction("showLibrary");
    finishLoads(*library());
    EXPECT_EQ(rowCount(), 0u);
    EXPECT_EQ(visible("placeholderGroup")["hidden"], false);
    EXPECT_EQ(visible("placeholderLabel")["text"], localized("No Playlists"));
    EXPECT_EQ(visibleScreen()["title"], localized("Cancel")) << "the close control speaks the language too";
}

// The queue follows the deck's song through the playlist the watch loaded it from; the phone
// names the song by its identifier's text form.
TEST_F(LibraryScreensTest, TheQueueShowsTheDecksSongAndThePlayableSongsAfterIt) {
    openLibrary(playlists(2));
    expectOk(m_host->closeModal());
    tapAction("showQueue");
    ASSERT_EQ(visibleScreen()["controller"], "queue");
    EXPECT_EQ(visible("nameLabel")["text"], "Deck 1");
    EXPECT_EQ(visible("nowPlayingGroup")["hidden"], true);
    EXPECT_EQ(rowCount(), 0u);
    EXPECT_EQ(visible("messageLabel")["text"], localized("No song loaded."));
    EXPECT_EQ(visible("hintLabel")["text"], localized("Choose one in the library."));

    // Its library button leads to a song of "List 0" (23 songs, every other one gone).
    tapAction("showLibrary");
    expectOk(m_host->selectRow(visibleId("table"), 0));
    expectOk(m_host->selectRow(visibleId("table"), 2));
    ASSERT_EQ(visibleScreen()["controller"], "queue");
    EXPECT_EQ(takeSent().size(), 1u);

    struct Row {
        const char* songID;
        std::vector<std::string> following; // the first and last rows
        std::size_t rows;
    };
    const Row rows[] = {
        {"AB02", {"Song 43780", "Song 43798"}, 10}, // at most a page; the gone songs left out
        {"AB04", {"Song 43782", "Song 43798"}, 9},  // the phone's next button moved on
        {"AB16", {}, 0},                            // the last song of the playlist
        {"FFFF", {}, 0},                            // not from that playlist
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.songID);
        phoneWrites("turntableSongInfo1",
                    songInfo({{"songID", Value(row.songID)}, {"name", Value("Now")}, {"artist", Value("Kasso")}}));
        EXPECT_EQ(visible("nowPlayingGroup")["hidden"], false);
        EXPECT_EQ(visible("songNameLabel")["text"], "Now");
        EXPECT_EQ(visible("songArtistLabel")["text"], "Kasso");
        ASSERT_EQ(rowCount(), row.rows);
        EXPECT_EQ(visible("upNextLabel")["hidden"], row.rows == 0);
        EXPECT_EQ(visible("messageGroup")["hidden"], row.rows != 0);
        if (row.rows == 0) {
            EXPECT_EQ(visible("messageLabel")["text"], localized("Nothing follows this song."));
            continue;
        }
        EXPECT_EQ(rowNames().front(), row.following.front());
        EXPECT_EQ(rowNames().back(), row.following.back());
    }
}
