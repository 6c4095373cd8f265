#include "platform/ipc/LocalNotification.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/ipc/DatagramEndpoint.h"
#include "platform/ipc/LocalNotificationReceiver.h"
#include "platform/ipc/LocalNotificationSender.h"
#include "platform/ipc/UniqueFd.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::ipc;
using vexo::ErrorKind;
using vexo::Expected;
using vexo::plist::Array;
using vexo::plist::Data;
using vexo::plist::Dictionary;
using vexo::plist::Value;
using vexo::runtime::DeterministicRunLoop;
using vexo::testing::TemporaryDirectory;
namespace fs = std::filesystem;

namespace {

LocalNotification loadNotification(int turntable) {
    LocalNotification notification;
    notification.alertTitle = "Deck " + std::to_string(turntable) + " stopped";
    notification.alertBody = "Nothing follows « Ünïcode »";
    notification.category = "VXTUserNotificationCategoryLoad";
    notification.userInfo = Value(Dictionary{{"turntable", Value(turntable)}});
    notification.actions = {{"VXTUserNotificationActionLoad", "Load a song"}, {"dismiss", ""}};
    return notification;
}

// Why a send failed, or nothing when it went.
std::optional<ErrorKind> failureOf(const Expected<void>& sent) {
    return sent ? std::nullopt : std::optional(sent.error().kind());
}

void sendRaw(const fs::path& path, const Data& bytes) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::sendto(socket.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                       sizeof address),
              static_cast<ssize_t>(bytes.size()));
}

class LocalNotificationTest : public ::testing::Test {
protected:
    LocalNotificationTest()
        : m_container(m_temporary.path() / "group") {
        fs::create_directory(m_container);
        fs::permissions(m_container, fs::perms::owner_all);
    }

    std::unique_ptr<LocalNotificationReceiver> makeReceiver() {
        return std::make_unique<LocalNotificationReceiver>(
            m_container, m_loop, [this](const LocalNotification& notification) { m_received.push_back(notification); });
    }

    TemporaryDirectory m_temporary;
    fs::path m_container;
    DeterministicRunLoop m_loop;
    std::vector<LocalNotification> m_received;
};

} // namespace

TEST(LocalNotificationDictionaryTest, ReadsWhatIsWellFormedAndRefusesTheRest) {
    const Value actions(Array{Value(Dictionary{{"identifier", Value("a")}, {"title", Value("A")}})});
    const struct {
        const char* name;
        Value dictionary;
        bool accepted;
    } rows[] = {
        {"empty dictionary: all defaults", Value(Dictionary{}), true},
        {"complete", loadNotification(2).dictionary(), true},
        {"action without title",
         Value(Dictionary{{"actions", Value(Array{Value(Dictionary{{"identifier", Value("a")}})})}}), true},
        {"not a dictionary", Value(Array{}), false},
        {"nothing", Value(), false},
        {"title is a number", Value(Dictionary{{"alertTitle", Value(3)}}), false},
        {"body is data", Value(Dictionary{{"alertBody", Value(Data{1})}}), false},
        {"user info is an array", Value(Dictionary{{"userInfo", Value(Array{})}}), false},
        {"actions is a dictionary", Value(Dictionary{{"actions", Value(Dictionary{})}}), false},
        {"action is a string", Value(Dictionary{{"actions", Value(Array{Value("a")})}}), false},
        {"action without identifier",
         Value(Dictionary{{"actions", Value(Array{Value(Dictionary{{"title", Value("A")}})})}}), false},
        {"action with empty identifier",
         Value(Dictionary{{"actions", Value(Array{Value(Dictionary{{"identifier", Value("")}})})}}), false},
        {"action title is a number",
         Value(
             Dictionary{{"actions", Value(Array{Value(Dictionary{{"identifier", Value("a")}, {"title", Value(1)}})})}}),
         false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(LocalNotification::fromDictionary(row.dictionary).has_value(), row.accepted) << row.name;

    EXPECT_EQ(LocalNotification::fromDictionary(loadNotification(2).dictionary()), loadNotification(2));
    const auto defaults = LocalNotification::fromDictionary(Value(Dictionary{}));
    ASSERT_TRUE(defaults);
    EXPECT_EQ(*defaults, LocalNotification{});
    EXPECT_NE(defaults->userInfo.asDictionary(), nullptr) << "user info is always a dictionary";
}

TEST_F(LocalNotificationTest, EachNotificationArrivesWholeAndInOrder) {
    auto receiver = makeReceiver();
    ASSERT_TRUE(receiver->isListening());
    LocalNotificationSender sender(m_container);
    LocalNotification automix;
    automix.alertTitle = "Song ending";
    automix.actions = {{"VXTUserNotificationActionAutomix", "Automix"}};
    const std::vector<LocalNotification> sent = {loadNotification(1), automix, loadNotification(2)};
    for (const LocalNotification& notification : sent)
        EXPECT_TRUE(sender.send(notification));
    m_loop.runUntilIdle();
    EXPECT_EQ(m_received, sent);

    receiver.reset();
    EXPECT_EQ(failureOf(sender.send(automix)), ErrorKind::Unavailable);
}

TEST_F(LocalNotificationTest, NobodyListeningIsNoError) {
    LocalNotificationSender sender(m_container);
    EXPECT_EQ(failureOf(sender.send(loadNotification(1))), ErrorKind::Unavailable) << "no directory";

    // A socket file left behind by a watch that died.
    fs::create_directory(m_container / ".watch");
    {
        const UniqueFd dead(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        kLocalNotificationEndpoint.socketPath(m_container).string().copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(::bind(dead.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    EXPECT_EQ(failureOf(sender.send(loadNotification(1))), ErrorKind::Unavailable) << "stale socket";

    LocalNotificationSender nowhere(m_temporary.path() / "missing");
    EXPECT_EQ(failureOf(nowhere.send(loadNotification(1))), ErrorKind::Unavailable) << "no container";

    // The stale socket is replaced by the next watch.
    auto receiver = makeReceiver();
    ASSERT_TRUE(receiver->isListening());
    EXPECT_TRUE(sender.send(loadNotification(1)));
    m_loop.runUntilIdle();
    EXPECT_EQ(m_received.size(), 1u);
}

// A watch whose queue is full and a notification beyond the bound are told apart from a
// watch that is not there, so that the phone can say which.
TEST_F(LocalNotificationTest, ADroppedNotificationSaysWhy) {
    auto receiver = makeReceiver();
    ASSERT_TRUE(receiver->isListening());
    LocalNotificationSender sender(m_container);
    LocalNotification tooLarge = loadNotification(1);
    tooLarge.alertBody.assign(kLocalNotificationEndpoint.maximumMessageSize, 'x');
    EXPECT_EQ(failureOf(sender.send(tooLarge)), ErrorKind::TooLarge);

    // Nothing is read while the loop does not run, so the queue fills.
    std::optional<ErrorKind> failure;
    for (int sent = 0; sent < 100000 && !failure; ++sent)
        failure = failureOf(sender.send(loadNotification(1)));
    EXPECT_EQ(failure, ErrorKind::Busy);
}

TEST_F(LocalNotificationTest, WhatIsNoNotificationIsDroppedAndTheNextOneStillArrives) {
    auto receiver = makeReceiver();
    ASSERT_TRUE(receiver->isListening());
    const fs::path socket = kLocalNotificationEndpoint.socketPath(m_container);
    const Data tooLarge(kLocalNotificationEndpoint.maximumMessageSize + 10, 'x');
    for (const Data& bytes :
         {Data{}, Data{'b', 'p', 'l', 'i', 's', 't'}, *vexo::plist::KeyedArchiver::archivedData(Value("text")),
          *vexo::plist::KeyedArchiver::archivedData(Value(Dictionary{{"actions", Value(7)}})), tooLarge})
        sendRaw(socket, bytes);
    EXPECT_TRUE(LocalNotificationSender(m_container).send(loadNotification(2)));
    m_loop.runUntilIdle();
    ASSERT_EQ(m_received.size(), 1u);
    EXPECT_EQ(m_received.front(), loadNotification(2));
}

TEST_F(LocalNotificationTest, AReceiverDestroyedInsideItsCallbackStopsCleanly) {
    std::unique_ptr<LocalNotificationReceiver> receiver;
    int calls = 0;
    receiver = std::make_unique<LocalNotificationReceiver>(m_container, m_loop, [&](const LocalNotification&) {
        ++calls;
        receiver.reset();
    });
    LocalNotificationSender sender(m_container);
    EXPECT_TRUE(sender.send(loadNotification(1)));
    EXPECT_TRUE(sender.send(loadNotification(2)));
    m_loop.runUntilIdle();
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(fs::exists(kLocalNotificationEndpoint.socketPath(m_container)));
}
