#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

#include "platform/ipc/DatagramEndpoint.h"
#include "platform/ipc/SocketDirectory.h"

// Where the phone application meets the watch with local notifications: the on-disk format
// shared by LocalNotificationSender (the phone's side) and LocalNotificationReceiver (the
// watch's), the mirror of ParentApplicationSocket.
//
// The watch binds a UNIX datagram socket at `<container>/.watch/local-notification.sock`,
// holding an exclusive lock on `<container>/.watch/local-notification.lock` while it
// listens; the phone sends one datagram per notification, holding the keyed archive of the
// notification's dictionary (LocalNotification::dictionary) and nothing else.
namespace vexo::ipc {

class LocalNotificationSocket {
public:
    LocalNotificationSocket() = delete;

    // A notification is a few hundred bytes; the 64 KiB bound keeps every datagram within a
    // socket's default send buffer.
    static constexpr DatagramEndpoint kEndpoint{
        .directoryName = ".watch",
        .socketName = "local-notification.sock",
        .lockName = "local-notification.lock",
        .maximumMessageSize = std::size_t{64} << 10,
        .logComponent = "notification",
        .listenerName = "watch",
    };

    static constexpr std::string_view kDirectoryName = kEndpoint.directoryName;
    static constexpr std::string_view kSocketName = kEndpoint.socketName;
    static constexpr std::string_view kLockName = kEndpoint.lockName;
    // The largest archive sent or accepted.
    static constexpr std::size_t kMaximumMessageSize = kEndpoint.maximumMessageSize;

    // See DatagramEndpoint::socketPath.
    [[nodiscard]] static std::filesystem::path socketPath(const std::filesystem::path& container) {
        return kEndpoint.socketPath(container);
    }

    // See DatagramEndpoint::openDirectory.
    [[nodiscard]] static SocketDirectory::Lookup
    openDirectory(const std::filesystem::path& container, SocketDirectory::Create create, SocketDirectory& directory) {
        return kEndpoint.openDirectory(container, create, directory);
    }
};

} // namespace vexo::ipc
