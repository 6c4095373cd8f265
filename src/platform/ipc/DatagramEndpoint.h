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
// A plain value, so that each road is a constexpr (see ParentApplicationSocket and
// LocalNotificationSocket) shared by its DatagramSender and its DatagramReceiver.
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

} // namespace vexo::ipc
