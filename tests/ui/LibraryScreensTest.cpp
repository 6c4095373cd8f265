#include "ScreenTestFixture.h"

#include "model/VXAWLibrary.h"
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
    std::shared_ptr<model::VXAWLibrary> library() const { return model::VXAWModel::sharedModel()->library(); }

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
    void leaveAndComeBack() {
        expectOk(m_host->showGlance());
        expectOk(m_host->hideGlance());
    }
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
    leaveAndComeBack();
    EXPECT_EQ(rowCount(), 20u) << "a page per activation, no tap needed";
    tapAction("loadMore");
    EXPECT_EQ(rowCount(), 23u);
    EXPECT_TRUE(loadMoreHidden());
    leaveAndComeBack();
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
    EXPECT_EQ(takeSent(), std::vector<Value>{envelope(
                              "turntableAction", {{"turntable", Value(1)}, {"action", Value(6)},
                                                  {"params", Value(Dictionary{{"itemID", Value("AB02")}})}})});
    EXPECT_TRUE(m_host->modalControllers().empty());
    EXPECT_EQ(visibleScreen()["controller"], "turntable1");
}
