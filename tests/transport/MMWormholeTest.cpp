#include "transport/MMWormhole.h"

#include <fstream>
#include <iterator>
#include <vector>

#include <gtest/gtest.h>

#include "platform/plist/KeyedUnarchiver.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/runtime/NotificationCenter.h"
#include "support/ScopedContainerRoot.h"
#include "support/TemporaryDirectory.h"

using namespace vexo;
using plist::Dictionary;
using plist::Value;
using transport::MMWormhole;

namespace {

constexpr const char* kGroup = "group.test.wormhole";

class MMWormholeTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_containerRoot.set(m_root.path().string());
        m_previousLoop = runtime::RunLoop::setCurrent(&m_loop);
    }
    void TearDown() override { runtime::RunLoop::setCurrent(m_previousLoop); }

    std::unique_ptr<MMWormhole> makeWormhole(std::optional<std::string> directory = "messages") {
        return std::make_unique<MMWormhole>(kGroup, std::move(directory));
    }

    std::filesystem::path container() const { return m_root.path() / kGroup; }
    std::filesystem::path messages() const { return container() / "messages"; }

    std::vector<std::string> entries(const std::filesystem::path& directory) const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    vexo::testing::TemporaryDirectory m_root;
    vexo::testing::ScopedContainerRoot m_containerRoot;
    runtime::DeterministicRunLoop m_loop;
    runtime::RunLoop* m_previousLoop = nullptr;
};

// Records what a listener received.
struct Received {
    std::vector<Value> messages;
    MMWormhole::Listener listener() {
        return [this](const Value& message) { messages.push_back(message); };
    }
};

const Value kMixerStatus(Dictionary{{"volume", Value(0.5f)}, {"syncActive", Value(true)}});

} // namespace

TEST_F(MMWormholeTest, StoresOneArchiveFilePerIdentifierAndKeepsIt) {
    auto wormhole = makeWormhole();
    wormhole->passMessageObject(kMixerStatus, "mixerStatus");

    const auto file = messages() / "mixerStatus.archive";
    ASSERT_TRUE(std::filesystem::exists(file));
    std::ifstream stream(file, std::ios::binary);
    const plist::Data bytes{std::istreambuf_iterator<char>(stream), {}};
    EXPECT_EQ(plist::KeyedUnarchiver::unarchiveObject(bytes), kMixerStatus);

    // Reading never deletes; the last value wins.
    EXPECT_EQ(wormhole->messageWithIdentifier("mixerStatus"), kMixerStatus);
    EXPECT_EQ(wormhole->messageWithIdentifier("mixerStatus"), kMixerStatus);
    wormhole->passMessageObject(Value("newer"), "mixerStatus");
    EXPECT_EQ(makeWormhole()->messageWithIdentifier("mixerStatus"), Value("newer"));
    EXPECT_EQ(entries(messages()), std::vector<std::string>{"mixerStatus.archive"});

    // The directories come back on the next access after someone deleted them.
    std::filesystem::remove_all(messages());
    wormhole->passMessageObject(kMixerStatus, "mixerStatus");
    EXPECT_EQ(wormhole->messageWithIdentifier("mixerStatus"), kMixerStatus);
    std::filesystem::remove_all(container());
    wormhole->passMessageObject(kMixerStatus, "mixerStatus");
    EXPECT_EQ(wormhole->messageWithIdentifier("mixerStatus"), kMixerStatus);
    EXPECT_EQ(std::filesystem::status(container()).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_all);
    // Deleted, then made again by another writer: this one reads what that one wrote.
    std::filesystem::remove_all(messages());
    makeWormhole()->passMessageObject(Value("from another writer"), "mixerStatus");
    EXPECT_EQ(wormhole->messageWithIdentifier("mixerStatus"), Value("from another writer"));

    wormhole->clearMessageContentsForIdentifier("mixerStatus");
    EXPECT_TRUE(wormhole->messageWithIdentifier("mixerStatus").isNull());
    wormhole->clearMessageContentsForIdentifier("mixerStatus");
}

TEST_F(MMWormholeTest, IdentifiersThatAreNoPlainFileNameMapToNoFile) {
    const MMWormhole::Identifier identifiers[] = {
        std::nullopt, "", ".", "..", "a/b", "../escape", std::string_view("nul\0byte", 8),
    };
    for (const auto& identifier : identifiers) {
        auto wormhole = makeWormhole();
        Received received;
        wormhole->listenForMessageWithIdentifier(identifier, received.listener());
        wormhole->passMessageObject(kMixerStatus, identifier);
        m_loop.runUntilIdle();
        EXPECT_TRUE(received.messages.empty());
        EXPECT_TRUE(wormhole->messageWithIdentifier(identifier).isNull());
        wormhole->clearMessageContentsForIdentifier(identifier);
    }
    EXPECT_TRUE(!std::filesystem::exists(messages()) || entries(messages()).empty());
    EXPECT_FALSE(std::filesystem::exists(m_root.path() / "escape.archive"));
}

TEST_F(MMWormholeTest, ListenerRunsOnTheNextNotificationNotOnListening) {
    auto writer = makeWormhole();
    writer->passMessageObject(Value("before"), "turntableStatus1");

    auto reader = makeWormhole();
    Received received;
    reader->listenForMessageWithIdentifier("turntableStatus1", received.listener());
    m_loop.runUntilIdle();
    EXPECT_TRUE(received.messages.empty());

    writer->passMessageObject(kMixerStatus, "turntableStatus1");
    EXPECT_TRUE(received.messages.empty()) << "delivery happens on the loop, not inside the write";
    m_loop.runUntilIdle();
    EXPECT_EQ(received.messages, std::vector<Value>{kMixerStatus});

    // A notification for a file deleted in between hands the listener nothing.
    writer->passMessageObject(kMixerStatus, "turntableStatus1");
    writer->clearMessageContentsForIdentifier("turntableStatus1");
    m_loop.runUntilIdle();
    ASSERT_EQ(received.messages.size(), 2u);
    EXPECT_TRUE(received.messages[1].isNull());
}

TEST_F(MMWormholeTest, AFailedWritePostsNothing) {
    auto wormhole = makeWormhole();
    Received received;
    wormhole->listenForMessageWithIdentifier("blocked", received.listener());
    std::filesystem::create_directories(messages() / "blocked.archive" / "inside");
    wormhole->passMessageObject(kMixerStatus, "blocked");
    m_loop.runUntilIdle();
    EXPECT_TRUE(received.messages.empty());
    // No temporary file is left behind either.
    EXPECT_EQ(entries(messages()), std::vector<std::string>{"blocked.archive"});
}

TEST_F(MMWormholeTest, EveryInstanceSeesTheNotificationOnlyListenersRead) {
    int localNotifications = 0;
    runtime::NotificationCenter::defaultCenter().addObserver(
        &localNotifications,
        [&](const runtime::Notification& notification) {
            ++localNotifications;
            EXPECT_EQ(notification.userInfo, Value(Dictionary{{"identifier", Value("mixerStatus")}}));
        },
        MMWormhole::kNotificationName);

    auto listening = makeWormhole();
    auto other = makeWormhole();
    Received received;
    listening->listenForMessageWithIdentifier("mixerStatus", received.listener());
    other->passMessageObject(kMixerStatus, "mixerStatus");
    m_loop.runUntilIdle();
    EXPECT_EQ(localNotifications, 1);
    EXPECT_EQ(received.messages.size(), 1u);
    runtime::NotificationCenter::defaultCenter().removeObserver(&localNotifications);
}

TEST_F(MMWormholeTest, TwoListeningInstancesEachRunOncePerRegistration) {
    auto first = makeWormhole();
    auto second = makeWormhole();
    Received firstReceived, secondReceived;
    first->listenForMessageWithIdentifier("libraryItems", firstReceived.listener());
    second->listenForMessageWithIdentifier("libraryItems", secondReceived.listener());

    first->passMessageObject(Value("page"), "libraryItems");
    m_loop.runUntilIdle();
    // Two registrations give two callbacks, and each reaches both instances.
    EXPECT_EQ(firstReceived.messages.size(), 2u);
    EXPECT_EQ(secondReceived.messages.size(), 2u);

    second.reset();
    first->passMessageObject(Value("page"), "libraryItems");
    m_loop.runUntilIdle();
    EXPECT_EQ(firstReceived.messages.size(), 3u);
}

TEST_F(MMWormholeTest, StopListeningCallsNothingAndKeepsTheFile) {
    auto wormhole = makeWormhole();
    Received received;
    wormhole->listenForMessageWithIdentifier("mixerStatus", received.listener());
    wormhole->stopListeningForMessageWithIdentifier("mixerStatus");
    wormhole->stopListeningForMessageWithIdentifier(std::nullopt);
    wormhole->passMessageObject(kMixerStatus, "mixerStatus");
    m_loop.runUntilIdle();
    EXPECT_TRUE(received.messages.empty());
    EXPECT_EQ(wormhole->messageWithIdentifier("mixerStatus"), kMixerStatus);

    // Listening again with an empty listener keeps the registration but calls nothing; a new
    // listener replaces the old one.
    Received replaced;
    wormhole->listenForMessageWithIdentifier("mixerStatus", received.listener());
    wormhole->listenForMessageWithIdentifier("mixerStatus", replaced.listener());
    wormhole->passMessageObject(kMixerStatus, "mixerStatus");
    m_loop.runUntilIdle();
    EXPECT_TRUE(received.messages.empty());
    EXPECT_EQ(replaced.messages.size(), 1u);
    wormhole->listenForMessageWithIdentifier("mixerStatus", nullptr);
    wormhole->passMessageObject(kMixerStatus, "mixerStatus");
    m_loop.runUntilIdle();
    EXPECT_EQ(replaced.messages.size(), 1u);
}

TEST_F(MMWormholeTest, ClearingAllEmptiesOnlyAMessageDirectory) {
    auto rootWormhole = makeWormhole(std::nullopt);
    rootWormhole->passMessageObject(kMixerStatus, "atRoot");
    auto wormhole = makeWormhole();
    wormhole->passMessageObject(kMixerStatus, "mixerStatus");
    std::ofstream(messages() / "notes.txt") << "any name";
    std::filesystem::create_directories(messages() / "nested" / "deeper");

    rootWormhole->clearAllMessageContents();
    EXPECT_TRUE(std::filesystem::exists(container() / "atRoot.archive"));
    EXPECT_EQ(entries(messages()).size(), 3u);

    wormhole->clearAllMessageContents();
    EXPECT_TRUE(entries(messages()).empty());
    EXPECT_TRUE(std::filesystem::exists(container() / "atRoot.archive"));
}

TEST_F(MMWormholeTest, ListenerMayDestroyItsOwnInstance) {
    auto wormhole = makeWormhole();
    int calls = 0;
    wormhole->listenForMessageWithIdentifier("glance", [&](const Value&) {
        ++calls;
        wormhole.reset();
    });
    auto writer = makeWormhole();
    writer->passMessageObject(kMixerStatus, "glance");
    writer->passMessageObject(kMixerStatus, "glance");
    m_loop.runUntilIdle();
    EXPECT_EQ(calls, 1);
}

TEST_F(MMWormholeTest, WithoutAContainerNothingIsWrittenOrRead) {
    m_containerRoot.set("relative/not/allowed");
    auto wormhole = makeWormhole();
    Received received;
    wormhole->listenForMessageWithIdentifier("mixerStatus", received.listener());
    wormhole->passMessageObject(kMixerStatus, "mixerStatus");
    m_loop.runUntilIdle();
    EXPECT_TRUE(wormhole->messageWithIdentifier("mixerStatus").isNull());
    EXPECT_TRUE(received.messages.empty());
    wormhole->clearAllMessageContents();
}

TEST_F(MMWormholeTest, TheDeliveryObserverSeesWhatEachListenerGetsAndNothingElse) {
    std::vector<std::pair<std::string, Value>> observed;
    MMWormhole::setDeliveryObserver([&](std::string_view identifier, const Value& message) {
        observed.emplace_back(std::string(identifier), message);
    });
    auto listening = makeWormhole();
    auto writer = makeWormhole();
    Received received;
    listening->listenForMessageWithIdentifier("mixerStatus", received.listener());

    writer->passMessageObject(kMixerStatus, "mixerStatus");
    writer->passMessageObject(Value("nobody listens"), "turntableStatus1");
    m_loop.runUntilIdle();
    // A file that turns to garbage between the write and its delivery is read once, as
    // nothing, by the listener and the observer alike.
    writer->passMessageObject(kMixerStatus, "mixerStatus");
    std::ofstream(messages() / "mixerStatus.archive", std::ios::trunc) << "garbage";
    m_loop.runUntilIdle();
    MMWormhole::setDeliveryObserver({});

    const std::vector<std::pair<std::string, Value>> expected = {{"mixerStatus", kMixerStatus},
                                                                 {"mixerStatus", Value()}};
    EXPECT_EQ(observed, expected);
    EXPECT_EQ(received.messages, (std::vector<Value>{kMixerStatus, Value()}));
}
