#include "model/VXAWLibrary.h"

#include "platform/media/MediaLibrary.h"
#include "platform/runtime/NotificationCenter.h"
#include "platform/runtime/OperationQueue.h"
#include "support/KeyPathRecorder.h"
#include "support/WatchFixture.h"

using namespace vexo;
using namespace vexo::model;
using plist::Array;
using plist::Dictionary;
using plist::Value;
using vexo::testing::KeyPathRecorder;

namespace {

class VXAWLibraryTest : public vexo::testing::WatchFixture {
protected:
    std::shared_ptr<VXAWLibrary> makeLibrary() { return std::make_shared<VXAWLibrary>(); }
};

Array page(int first, int count) {
    Array items;
    for (int i = first; i < first + count; ++i)
        items.push_back(Value("item " + std::to_string(i)));
    return items;
}

Value libraryItems(std::optional<std::string> range, std::optional<Array> items) {
    Dictionary message{{"sectionName", Value("Playlists")}, {"numberOfItems", Value(40)}};
    if (range)
        message.emplace("rangeOfItems", Value(*range));
    if (items)
        message.emplace("items", Value(*items));
    return Value(std::move(message));
}

} // namespace

TEST_F(VXAWLibraryTest, PagesJoinOnlyWhenTheyContinueTheList) {
    const auto library = makeLibrary();
    struct Row {
        const char* name;
        std::optional<std::string> range;
        std::optional<Array> items;
        std::optional<std::size_t> expectedCount;
        const char* expectedFirst;
    };
    const Row rows[] = {
        {"first page", "{0, 10}", page(0, 10), 10, "item 0"},
        {"next page", "{10, 10}", page(10, 10), 20, "item 0"},
        {"the same page again", "{10, 10}", page(10, 10), 20, "item 0"},
        {"a page out of order", "{30, 10}", page(30, 10), 20, "item 0"},
        {"a continuing page without items", "{20, 10}", std::nullopt, 20, "item 0"},
        {"location 0 replaces", "{0, 5}", page(5, 5), 5, "item 5"},
        {"no range replaces", std::nullopt, page(7, 2), 2, "item 7"},
        {"unreadable range and no items clear", "garbage", std::nullopt, std::nullopt, ""},
    };
    for (const auto& row : rows) {
        phoneWrites("libraryItems", libraryItems(row.range, row.items));
        const auto& items = library->items();
        ASSERT_EQ(items ? std::optional(items->size()) : std::nullopt, row.expectedCount) << row.name;
        if (items) {
            EXPECT_EQ((*items)[0], Value(row.expectedFirst)) << row.name;
        }
    }
    EXPECT_EQ(library->numberOfItems(), 40);
    EXPECT_EQ(library->rangeOfItems(), (Range{0, 0}));
}

TEST_F(VXAWLibraryTest, OtherIdentifiersChangeNothingAndTheSectionStartsAvailable) {
    phoneWrites("libraryItems",
                Value(Dictionary{
                    {"sectionIsAvailable", Value(false)}, {"visible", Value(true)}, {"navigationLevel", Value(2)}}));
    const auto library = makeLibrary();
    EXPECT_TRUE(library->isSectionAvailable());
    EXPECT_TRUE(library->isVisible());
    EXPECT_EQ(library->navigationLevel(), 2);

    library->processMessageWithIdentifier("mixerStatus", libraryItems("{0, 1}", page(0, 1)));
    EXPECT_EQ(library->items(), std::nullopt);
    EXPECT_TRUE(library->isSectionAvailable());
}

TEST_F(VXAWLibraryTest, ActionsTravelThroughTheSharedFile) {
    m_phone->passMessageObject(Value(Dictionary{{"action", Value(3)}}), "libraryAction");
    const auto library = makeLibrary();
    EXPECT_TRUE(m_phone->messageWithIdentifier("libraryAction").isNull()) << "stale action removed";
    EXPECT_TRUE(takeSent().empty()) << "the library asks for nothing at start";

    phoneWrites("libraryItems", libraryItems("{0, 3}", page(0, 3)));
    library->sendActionMessage(VXAWLibraryActionPreviousTab, Value(Dictionary{}));
    EXPECT_EQ(m_phone->messageWithIdentifier("libraryAction"),
              Value(Dictionary{{"action", Value(4)}, {"params", Value(Dictionary{})}}));
    EXPECT_EQ(takeSent(), std::vector{Value(Dictionary{})});
    EXPECT_EQ(library->items()->size(), 3u) << "only action 0 resets the list";

    KeyPathRecorder recorder;
    recorder.observe(*library, {"numberOfItems", "rangeOfItems", "items"});
    library->sendActionMessage(VXAWLibraryActionResetItems);
    EXPECT_EQ(m_phone->messageWithIdentifier("libraryAction"), Value(Dictionary{{"action", Value(0)}}));
    EXPECT_EQ(library->numberOfItems(), 0);
    EXPECT_EQ(library->items(), std::nullopt);
    EXPECT_EQ(recorder.take(), (std::vector<std::string>{"numberOfItems", "rangeOfItems", "items"}));
}

TEST_F(VXAWLibraryTest, ReadingPlaylistsStartsOneLoadAndChangesRestartIt) {
    const auto library = makeLibrary();
    library->queue()->setSuspended(true);
    EXPECT_EQ(library->playlists(), std::nullopt);
    const auto firstLoad = library->playlistsLoadOperation();
    EXPECT_EQ(library->playlists(), std::nullopt);
    EXPECT_EQ(library->playlistsLoadOperation(), firstLoad) << "a second read starts no load";

    // Two changes in quick succession: only the last load hands back.
    runtime::NotificationCenter::defaultCenter().post(media::MediaLibrary::kDidChangeNotification);
    runtime::NotificationCenter::defaultCenter().post(media::MediaLibrary::kDidChangeNotification);
    const auto lastLoad = library->playlistsLoadOperation();
    EXPECT_TRUE(firstLoad->isCancelled());
    EXPECT_NE(lastLoad, firstLoad);
    EXPECT_FALSE(lastLoad->isCancelled());

    KeyPathRecorder recorder;
    recorder.observe(*library, {"playlists"});
    library->queue()->setSuspended(false);
    library->queue()->waitUntilAllOperationsAreFinished();
    m_loop.runUntilIdle();
    EXPECT_EQ(recorder.take().size(), 1u);
    EXPECT_EQ(library->playlists(), std::nullopt) << "no collections: playlists stay nothing";
    EXPECT_EQ(library->playlistsLoadOperation(), lastLoad) << "the finished load stays recorded";
}
