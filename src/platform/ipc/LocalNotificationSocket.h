#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

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

    static constexpr std::string_view kDirectoryName = ".watch";
    static constexpr std::string_view kSocketName = "local-notification.sock";
    static constexpr std::string_view kLockName = "local-notification.lock";

    // The largest archive sent or accepted. A notification is a few hundred bytes; the bound
    // keeps every datagram within a socket's default send buffer.
    static constexpr std::size_t kMaximumMessageSize = std::size_t{64} << 10;

    [[nodiscard]] static std::filesystem::path socketPath(const std::filesystem::path& container) {
        return container / kDirectoryName / kSocketName;
    }

    // Opens the socket's directory in `container`; see SocketDirectory::open.
    [[nodiscard]] static SocketDirectory::Lookup openDirectory(const std::filesystem::path& container,
                                                               SocketDirectory::Create create,
                                                               SocketDirectory& directory) {
        return SocketDirectory::open(container, kDirectoryName, create, "notification", directory);
    }
};

} // namespace vexo::ipc
