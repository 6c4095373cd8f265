#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>

#include "platform/ipc/UniqueFd.h"

// A private directory of UNIX sockets inside the shared container, held open by descriptor.
//
// Holding the descriptor does two things: no symbolic link planted inside the container is
// ever followed, and a socket whose path is too long for an address (sun_path holds 108
// bytes, and containers live where the user says) is still reached, as
// "/proc/self/fd/<descriptor>/<file name>". Every socket of ours lives in one of these.
namespace vexo::ipc {

class SocketDirectory {
public:
    enum class Create { No, Yes };
    enum class Lookup { Opened, Absent, Failed };

    SocketDirectory() = default;
    SocketDirectory(SocketDirectory&&) noexcept = default;
    SocketDirectory& operator=(SocketDirectory&&) noexcept = default;
    SocketDirectory(const SocketDirectory&) = delete;
    SocketDirectory& operator=(const SocketDirectory&) = delete;

    // Opens `container`/`relative`. The container may be reached through links (the user's
    // choice of root); each component of `relative` must be a directory of the calling user,
    // reached without following a link, and is made with mode 0700 when `create` says so.
    // Absent: a component is missing and `create` is Create::No. Failures are logged under
    // `logComponent` (debug level; a directory of another user is a warning). Thread-safe.
    [[nodiscard]] static Lookup open(const std::filesystem::path& container, const std::filesystem::path& relative,
                                     Create create, std::string_view logComponent, SocketDirectory& directory);

    // The address of socket `fileName` in this directory; nothing when even the descriptor
    // form is too long. REQUIRES: the directory is open, and stays open while the address is
    // used (the address may name its descriptor).
    [[nodiscard]] std::optional<sockaddr_un> address(std::string_view fileName) const;

    [[nodiscard]] bool isOpen() const { return m_fd.isValid(); }
    [[nodiscard]] int descriptor() const { return m_fd.get(); }
    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

    // Hands the descriptor over to the caller, who closes it.
    [[nodiscard]] UniqueFd releaseDescriptor() { return std::move(m_fd); }

    // True when the credentials that came with a datagram (SCM_CREDENTIALS, on a socket with
    // SO_PASSCRED) are the calling user's or root's; false when none came.
    [[nodiscard]] static bool isSentBySameUser(const msghdr& message);

private:
    UniqueFd m_fd;
    std::filesystem::path m_path;
};

} // namespace vexo::ipc
