#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "platform/ipc/DatagramEndpoint.h"
#include "platform/ipc/DatagramReceiver.h"
#include "platform/ipc/DatagramSender.h"
#include "platform/ipc/LocalNotificationReceiver.h"
#include "platform/ipc/LocalNotificationSender.h"
#include "platform/ipc/ParentApplicationReceiver.h"
#include "platform/ipc/SocketParentApplication.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::ipc;
using vexo::plist::Data;
using vexo::plist::Dictionary;
using vexo::plist::Value;
using vexo::runtime::DeterministicRunLoop;
using vexo::testing::TemporaryDirectory;
namespace fs = std::filesystem;

namespace {

class DatagramTest : public ::testing::Test {
protected:
    DatagramTest()
        : m_container(m_temporary.path() / "group") {
        fs::create_directory(m_container);
        fs::permissions(m_container, fs::perms::owner_all);
    }

    TemporaryDirectory m_temporary;
    fs::path m_container;
    DeterministicRunLoop m_loop;
};

} // namespace

// The size cap is the endpoint's, not a fixed one: a message of exactly the cap arrives, one
// byte more is dropped even though it still decodes, and the road stays open after it.
TEST_F(DatagramTest, TheEndpointsSizeCapHoldsToTheByte) {
    const Value root(Dictionary{{"n", Value(1)}});
    const Data archive = *vexo::plist::KeyedArchiver::archivedData(root);
    const DatagramEndpoint endpoint{
        .directoryName = ".test",
        .socketName = "test.sock",
        .lockName = "test.lock",
        .maximumMessageSize = archive.size(),
        .logComponent = "test",
        .listenerName = "test receiver",
    };
    std::vector<Value> received;
    const DatagramReceiver receiver(endpoint, m_container, m_loop,
                                    [&](const Value& value) { received.push_back(value); });
    ASSERT_TRUE(receiver.isListening());
    EXPECT_TRUE(fs::exists(endpoint.socketPath(m_container)));

    Data longer = archive;
    longer.push_back(0);
    const DatagramSender sender(endpoint, m_container);
    for (const Data& message : {longer, archive})
        EXPECT_TRUE(sender.send(message));
    m_loop.runUntilIdle();
    EXPECT_EQ(received, std::vector<Value>{root});
}

// Both roads live in one container side by side (the phone and the watch each hold a
// receiver of one and a sender of the other): neither lock nor socket is shared, and each
// sender reaches only its own receiver.
TEST_F(DatagramTest, TheTwoRoadsInOneContainerKeepApart) {
    std::vector<Value> dictionaries;
    std::vector<LocalNotification> notifications;
    const ParentApplicationReceiver phone(m_container, m_loop,
                                          [&](const Value& dictionary) { dictionaries.push_back(dictionary); });
    const LocalNotificationReceiver watch(
        m_container, m_loop, [&](const LocalNotification& notification) { notifications.push_back(notification); });
    ASSERT_TRUE(phone.isListening());
    ASSERT_TRUE(watch.isListening());

    SocketParentApplication link(m_container, m_loop, std::nullopt);
    const LocalNotificationSender sender(m_container);
    const Value action(Dictionary{{"action", Value(3)}});
    LocalNotification notification;
    notification.alertTitle = "Deck 1 stopped";
    link.openParentApplication(action);
    EXPECT_TRUE(sender.send(notification));
    m_loop.runUntilIdle();
    EXPECT_EQ(dictionaries, std::vector<Value>{action});
    EXPECT_EQ(notifications, std::vector<LocalNotification>{notification});
}
