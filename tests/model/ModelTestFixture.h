#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/Environment.h"
#include "model/VXAWProtocol.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/runtime/KeyValueObserver.h"
#include "platform/runtime/Observable.h"
#include "platform/runtime/UserDefaults.h"
#include "support/RecordingParentApplication.h"
#include "support/ScopedContainerRoot.h"
#include "support/TemporaryDirectory.h"
#include "transport/MMWormhole.h"

namespace vexo::model::testing {

// A fresh model environment per test: a temporary container, a virtual-time main loop, a
// recording phone link, user defaults in a temporary file, and a "phone" transport that
// writes status messages the way the phone application does.
class ModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_containerRoot.set(m_root.path().string());
        m_previousLoop = runtime::RunLoop::setCurrent(&m_loop);
        installEnvironment({&m_loop, m_parent, nullptr, makeDefaults()});
        m_phone = std::make_unique<transport::MMWormhole>(std::string(VXAWWormholeApplicationGroupIdentifier),
                                                          std::string(kWormholeMessageDirectory));
    }

    void TearDown() override {
        m_phone.reset();
        installEnvironment({});
        m_loop.runUntilIdle();
        runtime::RunLoop::setCurrent(m_previousLoop);
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

    vexo::testing::TemporaryDirectory m_root;
    vexo::testing::ScopedContainerRoot m_containerRoot;
    runtime::DeterministicRunLoop m_loop;
    runtime::RunLoop* m_previousLoop = nullptr;
    std::shared_ptr<vexo::testing::RecordingParentApplication> m_parent =
        std::make_shared<vexo::testing::RecordingParentApplication>();
    std::unique_ptr<transport::MMWormhole> m_phone;
};

// Records the key paths it hears, in order.
class KeyPathRecorder : public runtime::KeyValueObserver {
public:
    void observe(runtime::Observable& object, const std::vector<std::string>& keyPaths) {
        m_object = &object;
        m_keyPaths = keyPaths;
        for (const auto& keyPath : keyPaths)
            object.addObserver(*this, keyPath, runtime::ObservingOptions::New);
    }
    ~KeyPathRecorder() override {
        if (m_object != nullptr) {
            for (const auto& keyPath : m_keyPaths)
                m_object->removeObserver(*this, keyPath);
        }
    }
    void observeValueForKeyPath(std::string_view keyPath, runtime::Observable&,
                                const runtime::KeyValueChange&) override {
        heard.emplace_back(keyPath);
    }
    std::vector<std::string> take() {
        auto result = std::move(heard);
        heard.clear();
        return result;
    }

    std::vector<std::string> heard;

private:
    runtime::Observable* m_object = nullptr;
    std::vector<std::string> m_keyPaths;
};

// {"identifier": identifier, "contents": contents}, as a deck or the mixer hands it over.
inline plist::Value envelope(std::string_view identifier, plist::Dictionary contents) {
    return plist::Value(
        plist::Dictionary{{"identifier", plist::Value(identifier)}, {"contents", plist::Value(std::move(contents))}});
}

} // namespace vexo::model::testing
