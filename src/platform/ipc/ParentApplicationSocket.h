#pragma once

#include <cstddef>
#include <filesystem>
#include <string_view>

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

    static constexpr std::string_view kDirectoryName = ".phone";
    static constexpr std::string_view kSocketName = "parent-application.sock";
    static constexpr std::string_view kLockName = "parent-application.lock";

    // The largest archive sent or accepted. Actions are a few hundred bytes; the bound keeps
    // every datagram within a socket's default send buffer.
    static constexpr std::size_t kMaximumMessageSize = std::size_t{64} << 10;

    // The path of the socket in `container` (it may be too long for a socket address; see
    // SocketDirectory).
    [[nodiscard]] static std::filesystem::path socketPath(const std::filesystem::path& container) {
        return container / kDirectoryName / kSocketName;
    }

    // Opens the socket's directory in `container`; see SocketDirectory::open.
    [[nodiscard]] static SocketDirectory::Lookup openDirectory(const std::filesystem::path& container,
                                                               SocketDirectory::Create create,
                                                               SocketDirectory& directory) {
        return SocketDirectory::open(container, kDirectoryName, create, "phone", directory);
    }
};

} // namespace vexo::ipc
