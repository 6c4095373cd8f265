#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

#include "platform/ipc/DatagramEndpoint.h"
#include "platform/ipc/SocketDirectory.h"

// Where the watch meets the phone application: the on-disk format shared by
// SocketParentApplication (the watch's side) and ParentApplicationReceiver (the phone's).
//
// The phone application binds a UNIX datagram socket at
// `<container>/.phone/parent-application.sock`, holding an exclusive lock on
// `<container>/.phone/parent-application.lock` while it listens; the watch sends it one
// datagram per dictionary, holding the dictionary's keyed archive and nothing else.
namespace vexo::ipc {

class ParentApplicationSocket {
public:
    ParentApplicationSocket() = delete;

    // Actions are a few hundred bytes; the 64 KiB bound keeps every datagram within a
    // socket's default send buffer.
    static constexpr DatagramEndpoint kEndpoint{
        .directoryName = ".phone",
        .socketName = "parent-application.sock",
        .lockName = "parent-application.lock",
        .maximumMessageSize = std::size_t{64} << 10,
        .logComponent = "phone",
        .listenerName = "phone application",
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
