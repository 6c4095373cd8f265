// The model over a real media library: an index scanned from a generated music folder.
#include <fstream>

#include "model/KMExtensions.h"
#include "model/VXAWLibrary.h"
#include "platform/media/AudioFixture.h"
#include "support/WatchFixture.h"

using namespace vexo;
using namespace vexo::model;
using plist::Value;
using vexo::testing::AudioFixture;

namespace {

class MediaBackedModelTest : public vexo::testing::WatchFixture {
protected:
    void SetUp() override {
        WatchFixture::SetUp();
        std::filesystem::create_directories(music());
        for (const char* title : {"Warm Up", "Peak Time", "Cool Down"})
            ASSERT_TRUE(AudioFixture::write(music() / (std::string(title) + ".wav"), AudioFixture::Format::Wav, 1.0,
                                            {title, "Vexo", "", "", {}, {}}));
        std::ofstream(music() / "Set.m3u") << "#EXTM3U\nWarm Up.wav\nPeak Time.wav\n";
        useMusicLibrary();
    }
};

} // namespace

TEST_F(MediaBackedModelTest, FindsLocalItemsByTheirTextOrNumber) {
    const auto items = m_mediaLibrary->items();
    ASSERT_EQ(items.size(), 3u);
    const media::MediaItem& item = items.front();
    const std::string text = KMExtensions::persistentIDString(item);

    for (const Value& key : {Value(text), Value(item.persistentID()), Value("0x" + text)}) {
        const auto found = KMExtensions::mediaItemForPersistentID(key);
        ASSERT_TRUE(found) << text;
        EXPECT_EQ(found->title(), item.title());
    }
    EXPECT_FALSE(KMExtensions::mediaItemForPersistentID(Value("zz")));
    EXPECT_FALSE(KMExtensions::mediaItemForPersistentID(Value()));
    EXPECT_FALSE(KMExtensions::mediaItemForPersistentID(Value(item.persistentID() ^ 1)));
}

TEST_F(MediaBackedModelTest, PlaylistsLoadOnFirstReadAndReloadWhenTheLibraryChanges) {
    const auto library = std::make_shared<VXAWLibrary>();
    EXPECT_EQ(library->playlists(), std::nullopt);
    finishLoads(*library);
    ASSERT_TRUE(library->playlists());
    ASSERT_EQ(library->playlists()->size(), 1u);
    EXPECT_EQ(library->playlists()->front().name(), "Set");
    EXPECT_EQ(library->playlists()->front().count(), 2u);

    // Another process rescans after the playlist grew: its notification reloads the list.
    std::ofstream(music() / "Set.m3u", std::ios::app) << "Cool Down.wav\n";
    indexMusic();
    m_loop.runUntilIdle();
    finishLoads(*library);
    ASSERT_TRUE(library->playlists());
    EXPECT_EQ(library->playlists()->front().count(), 3u);

    // The last playlist goes: loaded and empty, which the library screen tells from loading.
    std::filesystem::remove(music() / "Set.m3u");
    indexMusic();
    m_loop.runUntilIdle();
    finishLoads(*library);
    EXPECT_EQ(library->playlists(), std::optional<VXAWLibrary::Playlists>(VXAWLibrary::Playlists{}));
}
