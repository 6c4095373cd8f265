// The real watch model (decks and mixer) against a real vexo-phone process.
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "model/Environment.h"
#include "model/KMExtensions.h"
#include "model/VXAWMixer.h"
#include "model/VXAWModel.h"
#include "model/VXAWProtocol.h"
#include "model/VXAWSong.h"
#include "model/VXAWTurntable.h"
#include "platform/ipc/Container.h"
#include "platform/ipc/LocalNotificationReceiver.h"
#include "platform/ipc/SocketParentApplication.h"
#include "platform/media/AudioFixture.h"
#include "platform/media/LibraryScanner.h"
#include "platform/media/MediaLibrary.h"
#include "platform/runtime/AsioRunLoop.h"
#include "platform/runtime/UserDefaults.h"
#include "support/ScopedContainerRoot.h"
#include "support/ScopedEnvironment.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"

using namespace vexo;
using plist::Dictionary;
using plist::Value;
using vexo::testing::AudioFixture;

namespace {

constexpr double kTimeout = 20;

class PhoneCrossProcessTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_variables.set("VEXO_CONTAINER_ROOT", (m_root.path() / "containers").string());
        m_containerRoot.set((m_root.path() / "containers").string());
        m_variables.set("VEXO_MEDIA_LIBRARY", index().string());
        m_variables.set("VEXO_PHONE_LAUNCH_COMMAND", std::nullopt);
        const std::filesystem::path music = m_root.path() / "music";
        std::filesystem::create_directories(music);
        AudioFixture::Tags withArtwork{"Peak Time", "Vexo", "Live", "", AudioFixture::pictureBytes(7)};
        withArtwork.bpm = "126";
        withArtwork.initialKey = "8A";
        ASSERT_TRUE(AudioFixture::write(music / "peak.wav", AudioFixture::Format::Wav, 3.0, withArtwork));
        ASSERT_TRUE(AudioFixture::write(music / "cool.wav", AudioFixture::Format::Wav, 2.0, {"Cool Down", "Vexo"}));
        ASSERT_TRUE(media::LibraryScanner(index()).scan(music));
        m_library = media::MediaLibrary::open(index()).valueOr(nullptr);
        ASSERT_TRUE(m_library);

        m_phone = std::make_unique<vexo::testing::Subprocess>(std::vector<std::string>{VEXO_PHONE_PATH});
        const auto line = m_phone->readLine(kTimeout);
        ASSERT_TRUE(line && line->starts_with("listening in ")) << m_phone->errors();

        m_previousLoop = runtime::RunLoop::setCurrent(&m_loop);
        m_container = *ipc::Container::pathForGroup(model::VXAWWormholeApplicationGroupIdentifier);
        model::installEnvironment(
            {&m_loop, std::make_shared<ipc::SocketParentApplication>(m_container, m_loop, std::nullopt), m_library,
             std::make_shared<runtime::UserDefaults>(m_root.path() / "defaults.plist")});
    }

    void TearDown() override {
        model::installEnvironment({});
        m_loop.runFor(0.01);
        runtime::RunLoop::setCurrent(m_previousLoop);
        if (m_phone) {
            EXPECT_EQ(m_phone->stop(SIGTERM), 0) << m_phone->errors();
            EXPECT_FALSE(std::filesystem::exists(m_container / ".phone" / "parent-application.sock"));
            EXPECT_TRUE(std::filesystem::exists(m_container / "messages" / "mixerStatus.archive"))
                << "stored messages stay";
        }
    }

    std::filesystem::path index() const { return m_root.path() / "library.sqlite"; }

    media::MediaItem item(const std::string& title) const {
        for (const media::MediaItem& item : m_library->items())
            if (item.title() == title)
                return item;
        ADD_FAILURE() << "no item " << title;
        return {};
    }

    vexo::testing::TemporaryDirectory m_root;
    vexo::testing::ScopedEnvironment m_variables;
    vexo::testing::ScopedContainerRoot m_containerRoot;
    // Before the library: the library's change notifications live on this loop.
    runtime::AsioRunLoop m_loop;
    std::shared_ptr<media::MediaLibrary> m_library;
    std::unique_ptr<vexo::testing::Subprocess> m_phone;
    runtime::RunLoop* m_previousLoop = nullptr;
    std::filesystem::path m_container;
};

} // namespace

TEST_F(PhoneCrossProcessTest, TheWatchModelDrivesARealPhone) {
    const auto model = model::VXAWModel::sharedModel();
    const auto deck = model->turntable1();
    const auto mixer = model->mixer();
    std::vector<ipc::LocalNotification> notifications;
    ipc::LocalNotificationReceiver receiver(m_container, m_loop,
                                            [&](const ipc::LocalNotification& n) { notifications.push_back(n); });
    ASSERT_TRUE(receiver.isListening());

    // Loading by identifier brings the name and the artwork to the deck.
    const media::MediaItem peak = item("Peak Time");
    deck->sendActionMessage(model::VXAWTurntableActionLoadItem,
                            Value(Dictionary{{"itemID", Value(model::KMExtensions::persistentIDString(peak))}}));
    ASSERT_TRUE(m_loop.runUntil([&] { return deck->song() && deck->song()->name() == "Peak Time"; }, kTimeout));
    ASSERT_TRUE(deck->song()->artworkImageData().has_value());
    EXPECT_EQ(*deck->song()->artworkImageData(), AudioFixture::pictureBytes(7));
    EXPECT_TRUE(m_loop.runUntil([&] { return deck->bpm() == 126 && deck->key() == "8A"; }, kTimeout));

    deck->sendActionMessage(model::VXAWTurntableActionPlay);
    EXPECT_TRUE(m_loop.runUntil([&] { return deck->isPlaying(); }, kTimeout));

    mixer->sendActionMessage(model::VXAWMixerActionSetVolume, Value(Dictionary{{"volume", Value(0.25f)}}));
    EXPECT_TRUE(m_loop.runUntil([&] { return mixer->volume() == 0.25; }, kTimeout));
    // The phone keeps the crossfader within 0...1; the watch shows what the phone says.
    mixer->sendActionMessage(model::VXAWMixerActionSetCrossfaderPosition,
                             Value(Dictionary{{"crossfaderPosition", Value(1.5)}}));
    EXPECT_TRUE(m_loop.runUntil([&] { return mixer->crossfaderPosition() == 1.0; }, kTimeout));

    // The three-second song is shorter than a transition: automix is offered at once. When it
    // ends, with nothing on deck 2, the watch is asked to load a song.
    EXPECT_TRUE(m_loop.runUntil([&] { return !deck->isPlaying(); }, kTimeout));
    EXPECT_TRUE(m_loop.runUntil([&] { return notifications.size() >= 2; }, kTimeout));
    ASSERT_EQ(notifications.size(), 2u);
    EXPECT_EQ(notifications[0].actions.at(0).identifier, "VXTUserNotificationActionAutomix");
    EXPECT_EQ(notifications[1].actions.at(0).identifier, "VXTUserNotificationActionLoad");
    EXPECT_EQ(notifications[1].userInfo["turntable"].integerValue(), 1);
}

TEST_F(PhoneCrossProcessTest, ASecondPhoneOnTheSameContainerRefusesToStart) {
    const auto second = vexo::testing::Subprocess::run({VEXO_PHONE_PATH});
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_NE(second.errors.find("another vexo-phone"), std::string::npos) << second.errors;
    const auto usage = vexo::testing::Subprocess::run({VEXO_PHONE_PATH, "notify", "load", "3"});
    EXPECT_EQ(usage.exitCode, 2);
    const auto nobody = vexo::testing::Subprocess::run({VEXO_PHONE_PATH, "notify", "automix"});
    EXPECT_EQ(nobody.exitCode, 0) << "nobody listening is no error";
}
