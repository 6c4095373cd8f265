// The model over a real media library: an index scanned from a generated music folder.
#include <fstream>

#include "ModelTestFixture.h"
#include "model/KMExtensions.h"
#include "model/VXAWLibrary.h"
#include "platform/media/AudioFixture.h"
#include "platform/media/LibraryScanner.h"
#include "platform/media/MediaLibrary.h"
#include "platform/runtime/OperationQueue.h"

using namespace vexo;
using namespace vexo::model;
using plist::Value;
using vexo::testing::AudioFixture;

namespace {

class MediaBackedModelTest : public model::testing::ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        std::filesystem::create_directories(music());
        for (const char* title : {"Warm Up", "Peak Time", "Cool Down"})
            ASSERT_TRUE(AudioFixture::write(music() / (std::string(title) + ".wav"), AudioFixture::Format::Wav, 1.0,
                                            {title, "Vexo", "", "", {}, {}}));
        std::ofstream(music() / "Set.m3u") << "#EXTM3U\nWarm Up.wav\nPeak Time.wav\n";
        scan();
        m_library = media::MediaLibrary::open(index()).valueOr(nullptr);
        ASSERT_TRUE(m_library);
        installEnvironment({&m_loop, m_parent, m_library, makeDefaults()});
    }

    void TearDown() override {
        installEnvironment({});
        m_library.reset();
        ModelTest::TearDown();
    }

    std::filesystem::path music() const { return m_root.path() / "music"; }
    std::filesystem::path index() const { return m_root.path() / "library.sqlite"; }
    void scan() { ASSERT_TRUE(media::LibraryScanner(index()).scan(music())); }

    // Lets a playlist load run on its queue and hand back to the main loop.
    static void finishLoads(VXAWLibrary& library, runtime::DeterministicRunLoop& loop) {
        library.queue()->waitUntilAllOperationsAreFinished();
        loop.runUntilIdle();
    }

    std::shared_ptr<media::MediaLibrary> m_library;
};

} // namespace

TEST_F(MediaBackedModelTest, FindsLocalItemsByTheirTextOrNumber) {
    const auto items = m_library->items();
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
    finishLoads(*library, m_loop);
    ASSERT_TRUE(library->playlists());
    ASSERT_EQ(library->playlists()->size(), 1u);
    EXPECT_EQ(library->playlists()->front().name(), "Set");
    EXPECT_EQ(library->playlists()->front().count(), 2u);

    // Another process rescans after the playlist grew: its notification reloads the list.
    std::ofstream(music() / "Set.m3u", std::ios::app) << "Cool Down.wav\n";
    scan();
    m_loop.runUntilIdle();
    finishLoads(*library, m_loop);
    ASSERT_TRUE(library->playlists());
    EXPECT_EQ(library->playlists()->front().count(), 3u);

    // The last playlist goes: loaded and empty, which the library screen tells from loading.
    std::filesystem::remove(music() / "Set.m3u");
    scan();
    m_loop.runUntilIdle();
    finishLoads(*library, m_loop);
    EXPECT_EQ(library->playlists(), std::optional<VXAWLibrary::Playlists>(VXAWLibrary::Playlists{}));
}
