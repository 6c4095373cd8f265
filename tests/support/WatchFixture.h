#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "model/Environment.h"
#include "model/VXAWLibrary.h"
#include "model/VXAWModel.h"
#include "model/VXAWProtocol.h"
#include "platform/media/LibraryScanner.h"
#include "platform/media/MediaLibrary.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/runtime/OperationQueue.h"
#include "platform/runtime/UserDefaults.h"
#include "support/ActionEnvelopes.h"
#include "support/RecordingParentApplication.h"
#include "support/ScopedContainerRoot.h"
#include "support/TemporaryDirectory.h"
#include "transport/MMWormhole.h"

namespace vexo::testing {

// The watch's models in a fresh environment per test, for model and screen tests alike: a
// temporary container, a virtual-time main loop, a recording phone link, user defaults in a
// temporary file, and a "phone" transport that writes status messages the way the phone
// application does. Main thread only; the environment is the process's while a test runs.
class WatchFixture : public ::testing::Test {
protected:
    void SetUp() override {
        m_containerRoot.set(m_root.path().string());
        m_previousLoop = runtime::RunLoop::setCurrent(&m_loop);
        installFreshEnvironment();
        m_phone = std::make_unique<transport::MMWormhole>(std::string(model::VXAWWormholeApplicationGroupIdentifier),
                                                          std::string(model::kWormholeMessageDirectory), &m_loop);
    }

    void TearDown() override {
        m_phone.reset();
        model::installEnvironment({});
        m_mediaLibrary.reset();
        m_loop.runUntilIdle();
        runtime::RunLoop::setCurrent(m_previousLoop);
    }

    // Installs this test's environment (and so a fresh shared model), with `library` as the
    // local media library when given.
    void installFreshEnvironment(std::shared_ptr<media::MediaLibrary> library = nullptr) {
        model::installEnvironment({&m_loop, m_parent, std::move(library), makeDefaults()});
    }

    std::shared_ptr<runtime::UserDefaults> makeDefaults() const {
        return std::make_shared<runtime::UserDefaults>(m_root.path() / "defaults.plist");
    }

    // Writes `message` under `identifier` as the phone does, and delivers it.
    void phoneWrites(std::string_view identifier, const plist::Value& message) {
        m_phone->passMessageObject(message, identifier);
        m_loop.runUntilIdle();
    }

    // The dictionaries handed to the phone application since the last call.
    std::vector<plist::Value> takeSent() {
        std::vector<plist::Value> sent = m_parent->dictionaries();
        m_parent->clear();
        return sent;
    }

    // The folder of songs and playlists a test fills before indexMusic() or useMusicLibrary().
    std::filesystem::path music() const { return m_root.path() / "music"; }
    // Indexes music() as the library tool does; its change notification reaches the models.
    void indexMusic() { ASSERT_TRUE(media::LibraryScanner(m_root.path() / "library.sqlite").scan(music())); }
    // Indexes music() and installs the index as the local media library, with a fresh model.
    void useMusicLibrary() {
        indexMusic();
        m_mediaLibrary = media::MediaLibrary::open(m_root.path() / "library.sqlite").valueOr(nullptr);
        ASSERT_TRUE(m_mediaLibrary);
        installFreshEnvironment(m_mediaLibrary);
    }
    // Lets the library's playlist loads run on their queue and hand their results back.
    void finishLoads(model::VXAWLibrary& library) {
        library.queue()->waitUntilAllOperationsAreFinished();
        m_loop.runUntilIdle();
    }

    static std::shared_ptr<model::VXAWTurntable> deck(std::int64_t number) {
        return model::VXAWModel::sharedModel()->turntable(number);
    }
    static std::shared_ptr<model::VXAWMixer> mixer() { return model::VXAWModel::sharedModel()->mixer(); }
    static std::shared_ptr<model::VXAWLibrary> library() { return model::VXAWModel::sharedModel()->library(); }

    vexo::testing::TemporaryDirectory m_root;
    vexo::testing::ScopedContainerRoot m_containerRoot;
    runtime::DeterministicRunLoop m_loop;
    runtime::RunLoop* m_previousLoop = nullptr;
    std::shared_ptr<RecordingParentApplication> m_parent = std::make_shared<RecordingParentApplication>();
    std::unique_ptr<transport::MMWormhole> m_phone;
    std::shared_ptr<media::MediaLibrary> m_mediaLibrary;
};

} // namespace vexo::testing
