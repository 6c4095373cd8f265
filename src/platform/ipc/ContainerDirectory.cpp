#include "platform/ipc/ContainerDirectory.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/base/WriteAll.h"
#include "platform/ipc/Container.h"
#include "platform/log/Log.h"

namespace vexo::ipc {
namespace {

constexpr std::string_view kLogComponent = "file";
constexpr std::string_view kTemporarySuffix = ".tmp";

std::string errorText(int error) {
    return std::strerror(error);
}

// True when `fd` is a directory of the calling user.
bool isOwnDirectory(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
}

// Removes the entry `name` of `directory`, and when it is a directory, everything in it
// first; never follows a link. `depth` bounds the recursion on a hostile tree.
void removeEntry(int directory, const char* name, int depth) {
    if (::unlinkat(directory, name, 0) == 0 || (errno != EISDIR && errno != EPERM))
        return;
    if (depth > 64)
        return;
    const int inner = ::openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (inner >= 0) {
        // fdopendir takes the descriptor over.
        if (DIR* listing = ::fdopendir(inner)) {
            std::vector<std::string> names;
            while (const dirent* entry = ::readdir(listing)) {
                if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                    names.emplace_back(entry->d_name);
            }
            for (const std::string& inside : names)
                removeEntry(::dirfd(listing), inside.c_str(), depth + 1);
            ::closedir(listing);
        } else {
            ::close(inner);
        }
    }
    if (::unlinkat(directory, name, AT_REMOVEDIR) != 0 && errno != ENOENT)
        log::debug(kLogComponent, std::string("cannot remove ") + name + ": " + errorText(errno));
}

std::vector<std::string> entryNames(int directory) {
    std::vector<std::string> names;
    const int duplicate = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (duplicate < 0)
        return names;
    DIR* listing = ::fdopendir(duplicate);
    if (listing == nullptr) {
        ::close(duplicate);
        return names;
    }
    while (const dirent* entry = ::readdir(listing)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
    ::closedir(listing);
    return names;
}

} // namespace

ContainerDirectory::ContainerDirectory(std::string group, std::optional<std::string> subdirectory)
    : m_group(std::move(group)),
      m_subdirectory(std::move(subdirectory)) {}

bool ContainerDirectory::isPlainFileName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

bool ContainerDirectory::isDeleted() const {
    struct stat status {};
    return ::fstat(m_directory.get(), &status) != 0 || status.st_nlink == 0;
}

bool ContainerDirectory::open(Reopen reopen) {
    const std::uint64_t generation = Container::locationGeneration();
    if (reopen == Reopen::IfLocationChanged && m_directory.isValid() && generation == m_locationGeneration)
        return true;
    m_directory.reset();
    m_locationGeneration = generation;

    const auto container = Container::pathForGroup(m_group);
    if (!container)
        return false;
    m_containerPath = *container;
    UniqueFd current(::open(container->c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!current.isValid() || !isOwnDirectory(current.get())) {
        log::debug(kLogComponent, "cannot open the container " + container->string());
        return false;
    }
    if (m_subdirectory) {
        for (const auto& component : std::filesystem::path(*m_subdirectory)) {
            const std::string name = component.string();
            if (name.empty() || name == "." || name == "/")
                continue;
            if (name == "..") {
                log::warning(kLogComponent,
                             "the message directory \"" + *m_subdirectory + "\" would leave the container; not used");
                return false;
            }
            if (::mkdirat(current.get(), name.c_str(), 0700) != 0 && errno != EEXIST) {
                log::debug(kLogComponent,
                           "cannot create " + (*container / *m_subdirectory).string() + ": " + errorText(errno));
                return false;
            }
            UniqueFd next(::openat(current.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (!next.isValid()) {
                const int error = errno;
                if (error == ELOOP || error == ENOTDIR)
                    log::warning(kLogComponent, (*container / *m_subdirectory).string() +
                                                    " is a symbolic link or no directory; not used");
                else
                    log::debug(kLogComponent,
                               "cannot open " + (*container / *m_subdirectory).string() + ": " + errorText(error));
                return false;
            }
            if (!isOwnDirectory(next.get())) {
                log::warning(kLogComponent,
                             (*container / *m_subdirectory).string() + " belongs to another user; not used");
                return false;
            }
            current = std::move(next);
        }
    }
    m_directory = std::move(current);
    return true;
}

std::optional<std::filesystem::path> ContainerDirectory::containerPath() {
    if (!open(Reopen::IfLocationChanged))
        return std::nullopt;
    return m_containerPath;
}

bool ContainerDirectory::writeAtomically(std::string_view fileName, std::span<const std::uint8_t> bytes) {
    if (!isPlainFileName(fileName) || !open(Reopen::IfLocationChanged))
        return false;
    if (std::find(m_written.begin(), m_written.end(), fileName) == m_written.end()) {
        removeLeftoverTemporaries(fileName);
        m_written.emplace_back(fileName);
    }

    // Two attempts: the second after the directory was found deleted and made again.
    for (int attempt = 0; attempt < 2; ++attempt) {
        char temporary[320];
        int fd = -1;
        // A clash means a leftover of a dead process that had our pid; take the next name.
        for (int clash = 0; clash < 8 && fd < 0; ++clash) {
            std::snprintf(temporary, sizeof temporary, ".%.*s.%ld.%llu%s", static_cast<int>(fileName.size()),
                          fileName.data(), static_cast<long>(::getpid()), static_cast<unsigned long long>(m_sequence++),
                          kTemporarySuffix.data());
            fd = ::openat(m_directory.get(), temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
            if (fd < 0 && errno != EEXIST)
                break;
        }
        if (fd < 0) {
            const int error = errno;
            if (error == ENOENT && attempt == 0 && open(Reopen::Always))
                continue;
            reportWriteFailure("cannot create a temporary file for " + std::string(fileName) + ": " + errorText(error));
            return false;
        }
        const bool written = writeAll(fd, bytes).hasValue();
        const int writeError = errno;
        const bool closed = ::close(fd) == 0;
        if (written && closed &&
            ::renameat(m_directory.get(), temporary, m_directory.get(), std::string(fileName).c_str()) == 0) {
            if (m_writesFailing) {
                m_writesFailing = false;
                log::info(kLogComponent, "messages are written again in " + m_containerPath.string());
            }
            return true;
        }
        const int error = written && closed ? errno : writeError;
        ::unlinkat(m_directory.get(), temporary, 0);
        if (error == ENOENT && attempt == 0 && open(Reopen::Always))
            continue;
        reportWriteFailure("cannot write " + std::string(fileName) + ": " + errorText(error));
        return false;
    }
    return false;
}

void ContainerDirectory::reportWriteFailure(const std::string& what) {
    if (m_writesFailing) {
        log::debug(kLogComponent, what);
        return;
    }
    m_writesFailing = true;
    log::warning(kLogComponent,
                 what + " (in " + m_containerPath.string() + "); messages are not stored until writing works again");
}

std::optional<std::span<const std::uint8_t>> ContainerDirectory::read(std::string_view fileName) {
    if (!isPlainFileName(fileName) || !open(Reopen::IfLocationChanged))
        return std::nullopt;
    const std::string name(fileName);
    int fd = ::openat(m_directory.get(), name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0 && errno == ENOENT && isDeleted()) {
        // Looked up again, as every access does: another process may have made the
        // directory anew and written the file there already.
        if (!open(Reopen::Always))
            return std::nullopt;
        fd = ::openat(m_directory.get(), name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    }
    if (fd < 0) {
        if (errno != ENOENT)
            log::debug(kLogComponent, "cannot open " + name + ": " + errorText(errno));
        return std::nullopt;
    }
    const UniqueFd file(fd);
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        log::debug(kLogComponent, "cannot examine " + name + ": " + errorText(errno));
        return std::nullopt;
    }
    if (status.st_uid != ::geteuid()) {
        log::warning(kLogComponent, name + " belongs to another user; not read");
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode) || static_cast<std::uintmax_t>(status.st_size) > kMaximumReadSize) {
        log::debug(kLogComponent, "not reading " + name + ": not a regular file of at most " +
                                      std::to_string(kMaximumReadSize >> 20) + " MiB");
        return std::nullopt;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    if (m_readBuffer.size() < size)
        m_readBuffer.resize(size);
    std::size_t filled = 0;
    while (filled < size) {
        const ssize_t got = ::read(fd, m_readBuffer.data() + filled, size - filled);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    // A file replaced by rename keeps its old inode open here, so its size cannot change
    // under us; a short read means an I/O error.
    if (filled != size) {
        log::debug(kLogComponent, "short read of " + name);
        return std::nullopt;
    }
    // A large buffer is not kept for ever: artwork comes now and then, deck status often.
    if (m_readBuffer.capacity() > (std::size_t{1} << 20) && size < (std::size_t{1} << 16)) {
        std::vector<std::uint8_t> smaller(m_readBuffer.begin(),
                                          m_readBuffer.begin() + static_cast<std::ptrdiff_t>(size));
        m_readBuffer.swap(smaller);
    }
    return std::span<const std::uint8_t>(m_readBuffer.data(), size);
}

bool ContainerDirectory::remove(std::string_view fileName) {
    if (!isPlainFileName(fileName) || !open(Reopen::IfLocationChanged))
        return false;
    const std::string name(fileName);
    if (::unlinkat(m_directory.get(), name.c_str(), 0) == 0)
        return true;
    const int error = errno;
    if (error == ENOENT && isDeleted())
        open(Reopen::Always);
    else if (error == EISDIR || error == EPERM)
        removeEntry(m_directory.get(), name.c_str(), 0);
    else if (error != ENOENT)
        log::debug(kLogComponent, "cannot remove " + name + ": " + errorText(error));
    return false;
}

void ContainerDirectory::removeAllEntries() {
    if (!open(Reopen::IfLocationChanged))
        return;
    if (isDeleted() && !open(Reopen::Always))
        return;
    for (const std::string& name : entryNames(m_directory.get()))
        removeEntry(m_directory.get(), name.c_str(), 0);
}

void ContainerDirectory::removeLeftoverTemporaries(std::string_view fileName) {
    const std::string prefix = "." + std::string(fileName) + ".";
    for (const std::string& name : entryNames(m_directory.get())) {
        if (name.size() <= prefix.size() + kTemporarySuffix.size() || name.compare(0, prefix.size(), prefix) != 0 ||
            name.compare(name.size() - kTemporarySuffix.size(), kTemporarySuffix.size(), kTemporarySuffix) != 0)
            continue;
        // ".<file name>.<pid>.<sequence>.tmp": the pid is the first number after the prefix.
        char* end = nullptr;
        const long pid = std::strtol(name.c_str() + prefix.size(), &end, 10);
        if (pid <= 0 || end == nullptr || *end != '.' || pid == ::getpid())
            continue;
        if (::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM)
            continue;
        if (::unlinkat(m_directory.get(), name.c_str(), 0) == 0)
            log::debug(kLogComponent, "removed " + name + ", left by a writer that died");
    }
}

} // namespace vexo::ipc
