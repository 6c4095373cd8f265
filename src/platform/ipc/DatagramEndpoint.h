#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

#include "platform/ipc/SocketDirectory.h"

// One road of datagrams between our processes, named: a UNIX datagram socket at
// `<container>/<directoryName>/<socketName>`, bound by the one listener that holds an
// exclusive lock on `<container>/<directoryName>/<lockName>`; each datagram is one whole
// message of at most maximumMessageSize bytes.
//
// A plain value, so that each road is a constant below, shared by its DatagramSender and
// its DatagramReceiver.
namespace vexo::ipc {

struct DatagramEndpoint {
    std::string_view directoryName;
    std::string_view socketName;
    std::string_view lockName;
    // The largest message sent or accepted.
    std::size_t maximumMessageSize;
    // The component under which both ends log.
    std::string_view logComponent;
    // Who listens, as log lines name it ("phone application", "watch").
    std::string_view listenerName;

    // The path of the socket in `container` (it may be too long for a socket address; see
    // SocketDirectory).
    [[nodiscard]] std::filesystem::path socketPath(const std::filesystem::path& container) const {
        return container / directoryName / socketName;
    }

    // Opens the socket's directory in `container`; see SocketDirectory::open.
    [[nodiscard]] SocketDirectory::Lookup openDirectory(const std::filesystem::path& container,
                                                        SocketDirectory::Create create,
                                                        SocketDirectory& directory) const {
        return SocketDirectory::open(container, directoryName, create, logComponent, directory);
    }
};

// Where the watch meets the phone application: the phone application binds
// `<container>/.phone/parent-application.sock`; the watch sends it one datagram per
// dictionary, holding the dictionary's keyed archive and nothing else. Used by
// SocketParentApplication (the watch's side) and ParentApplicationReceiver (the phone's).
// Actions are a few hundred bytes; the 64 KiB bound keeps every datagram within a socket's
// default send buffer.
inline constexpr DatagramEndpoint kParentApplicationEndpoint{
    .directoryName = ".phone",
    .socketName = "parent-application.sock",
    .lockName = "parent-application.lock",
    .maximumMessageSize = std::size_t{64} << 10,
    .logComponent = "phone",
    .listenerName = "phone application",
};

// Where the phone application meets the watch with local notifications, the mirror of the
// road above: the watch binds `<container>/.watch/local-notification.sock`; the phone sends
// one datagram per notification, holding the keyed archive of the notification's dictionary
// (LocalNotification::dictionary) and nothing else. Used by LocalNotificationSender and
// LocalNotificationReceiver. A notification is a few hundred bytes.
inline constexpr DatagramEndpoint kLocalNotificationEndpoint{
    .directoryName = ".watch",
    .socketName = "local-notification.sock",
    .lockName = "local-notification.lock",
    .maximumMessageSize = std::size_t{64} << 10,
    .logComponent = "notification",
    .listenerName = "watch",
};

} // namespace vexo::ipc
