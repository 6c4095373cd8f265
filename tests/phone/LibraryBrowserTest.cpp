#include "EngineTestFixture.h"

using namespace vexo;
using namespace vexo::phone;
using namespace vexo::phone::testing;
using plist::Dictionary;
using plist::Value;

namespace {

class LibraryBrowserTest : public EngineTest {
protected:
    void SetUp() override {
        for (media::PersistentID id = 1; id <= 23; ++id)
            m_catalog.songs.push_back(makeSong(id, "Song " + std::to_string(id), 100));
        m_catalog.lists = {media::MediaPlaylist(100, "All", m_catalog.songs), media::MediaPlaylist(101, "Empty", {})};
    }

    void libraryAction(std::int64_t code) {
        engine().handleLibraryAction(Value(Dictionary{{"action", Value(code)}, {"params", Value(Dictionary{})}}));
    }

    // The ranges and section names of the pages published from now on, once all are out.
    std::vector<std::string> pagesAfter(const std::function<void()>& act) {
        m_sink.writes.clear();
        act();
        m_loop.advance(Engine::kPageInterval * 10);
        std::vector<std::string> pages;
        for (const auto& write : m_sink.of("libraryItems"))
            pages.push_back(*write.message["sectionName"].stringValue() + " " +
                            *write.message["rangeOfItems"].stringValue() + " of " +
                            *write.message["numberOfItems"].stringValue() + " level " +
                            *write.message["navigationLevel"].stringValue() + " items " +
                            std::to_string(write.message["items"].count()));
        return pages;
    }
};

} // namespace

TEST_F(LibraryBrowserTest, ListsGoOutAsPagesOfTenInOrder) {
    using Pages = std::vector<std::string>;
    EXPECT_EQ(pagesAfter([&] { engine(); }), Pages{"Playlists {0, 2} of 2 level 0 items 2"});
    const struct {
        const char* name;
        std::function<void()> act;
        Pages expected;
    } rows[] = {
        {"open a playlist",
         [&] { ASSERT_TRUE(engine().openLibraryEntry(0)); },
         {"All {0, 10} of 23 level 1 items 10", "All {10, 10} of 23 level 1 items 10",
          "All {20, 3} of 23 level 1 items 3"}},
        {"back", [&] { libraryAction(3); }, {"Playlists {0, 2} of 2 level 0 items 2"}},
        {"back at the top", [&] { libraryAction(3); }, {"Playlists {0, 2} of 2 level 0 items 2"}},
        {"an empty playlist",
         [&] { ASSERT_TRUE(engine().openLibraryEntry(1)); },
         {"Empty {0, 0} of 0 level 1 items 0"}},
        {"next tab", [&] { libraryAction(5); }, {"Artists {0, 3} of 3 level 0 items 3"}},
        {"next tab", [&] { libraryAction(5); }, {"Albums {0, 2} of 2 level 0 items 2"}},
        {"next tab",
         [&] { libraryAction(5); },
         {"Songs {0, 10} of 23 level 0 items 10", "Songs {10, 10} of 23 level 0 items 10",
          "Songs {20, 3} of 23 level 0 items 3"}},
        {"next tab wraps", [&] { libraryAction(5); }, {"Playlists {0, 2} of 2 level 0 items 2"}},
        {"previous tab wraps",
         [&] { libraryAction(4); },
         {"Songs {0, 10} of 23 level 0 items 10", "Songs {10, 10} of 23 level 0 items 10",
          "Songs {20, 3} of 23 level 0 items 3"}},
        {"reset sends the list again",
         [&] {
             libraryAction(4);
             libraryAction(0);
         },
         {"Albums {0, 2} of 2 level 0 items 2", "Albums {0, 2} of 2 level 0 items 2"}},
        {"unknown codes change nothing",
         [&] {
             libraryAction(1);
             engine().handleLibraryAction(Value("back"));
             engine().handleLibraryAction(Value(Dictionary{{"action", Value("3")}}));
         },
         {}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(pagesAfter(row.act), row.expected) << row.name;
}

TEST_F(LibraryBrowserTest, ANewListStopsTheOneGoingOutAndSongsCarryTheirIdentifiers) {
    engine();
    ASSERT_TRUE(engine().openLibraryEntry(0));
    m_loop.advance(Engine::kPageInterval);
    const auto first = m_sink.of("libraryItems");
    EXPECT_EQ(first.back().message["rangeOfItems"], Value("{10, 10}"));
    const Value song = first.back().message["items"][std::size_t{0}];
    EXPECT_EQ(song["songID"], Value("B"));
    EXPECT_EQ(song["name"], Value("Song 11"));

    m_sink.writes.clear();
    libraryAction(3);
    m_loop.advance(Engine::kPageInterval * 10);
    ASSERT_EQ(m_sink.of("libraryItems").size(), 1u) << "the rest of the playlist never goes out";
    EXPECT_EQ(m_sink.last("libraryItems")["items"][std::size_t{1}]["numberOfItems"].integerValue(), 0);
}
