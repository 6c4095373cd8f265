#include "platform/ipc/SocketDirectory.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/log/Log.h"

namespace vexo::ipc {
namespace {

namespace fs = std::filesystem;

// True when `fd` is a directory owned by the calling user.
bool isOwnDirectory(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
}

} // namespace

SocketDirectory::Lookup SocketDirectory::open(const fs::path& container, const fs::path& relative, Create create,
                                              std::string_view logComponent, SocketDirectory& directory) {
    directory.m_path = container / relative;
    UniqueFd current(::open(container.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!current.isValid()) {
        log::debug(logComponent, "cannot open the container " + container.string() + ": " + std::strerror(errno));
        return Lookup::Failed;
    }
    if (!isOwnDirectory(current.get())) {
        log::warning(logComponent, container.string() + " is not a directory of this user; not used");
        return Lookup::Failed;
    }
    for (const fs::path& component : relative) {
        const std::string name = component.string();
        if (name.empty() || name == "." || name == ".." || name == "/")
            continue;
        if (create == Create::Yes && ::mkdirat(current.get(), name.c_str(), 0700) != 0 && errno != EEXIST) {
            log::debug(logComponent, "cannot make " + directory.m_path.string() + ": " + std::strerror(errno));
            return Lookup::Failed;
        }
        UniqueFd next(::openat(current.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!next.isValid()) {
            const int error = errno;
            if (error == ENOENT && create == Create::No)
                return Lookup::Absent;
            if (error == ELOOP || error == ENOTDIR)
                log::warning(logComponent, "\"" + name + "\" in " + container.string() +
                                               " is a symbolic link or no directory; not used");
            else
                log::debug(logComponent, "cannot open " + directory.m_path.string() + ": " + std::strerror(error));
            return Lookup::Failed;
        }
        if (!isOwnDirectory(next.get())) {
            log::warning(logComponent, "\"" + name + "\" is not a directory of this user; not used");
            return Lookup::Failed;
        }
        current = std::move(next);
    }
    directory.m_fd = std::move(current);
    return Lookup::Opened;
}

std::optional<sockaddr_un> SocketDirectory::address(std::string_view fileName) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = (m_path / fileName).string();
    if (path.size() >= sizeof(address.sun_path))
        path = "/proc/self/fd/" + std::to_string(m_fd.get()) + "/" + std::string(fileName);
    if (path.size() >= sizeof(address.sun_path))
        return std::nullopt;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

bool SocketDirectory::isSentBySameUser(const msghdr& message) {
    for (const cmsghdr* control = CMSG_FIRSTHDR(&message); control != nullptr;
         control = CMSG_NXTHDR(const_cast<msghdr*>(&message), const_cast<cmsghdr*>(control))) {
        if (control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_CREDENTIALS)
            continue;
        ucred credentials{};
        std::memcpy(&credentials, CMSG_DATA(control), sizeof credentials);
        return credentials.uid == ::geteuid() || credentials.uid == 0;
    }
    return false;
}

} // namespace vexo::ipc
