#include "platform/ipc/FileManager.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ipc/Container.h"
#include "platform/log/Log.h"

namespace vexo::ipc {
namespace {

void logFailure(std::string_view what, const std::filesystem::path& path, int error) {
    if (log::enabled(log::Level::Debug))
        log::debug("file", std::string(what) + " " + path.string() + ": " + std::strerror(error));
}

bool writeAll(int fd, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace

std::optional<std::filesystem::path>
FileManager::containerURLForSecurityApplicationGroupIdentifier(std::string_view group) const {
    return Container::pathForGroup(group);
}

bool FileManager::createDirectoryAtPath(const std::filesystem::path& path) const {
    // This runs before every message file access: one mkdir settles the usual case (the
    // directory is there) without walking the parents.
    if (::mkdir(path.c_str(), 0700) == 0)
        return true;
    if (errno == EEXIST)
        return true;
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        logFailure("cannot create directory", path, error.value());
        return false;
    }
    return std::filesystem::is_directory(path, error);
}

bool FileManager::writeToFileAtomically(const std::filesystem::path& path, std::span<const std::uint8_t> bytes) const {
    // The temporary file is hidden and unique, so concurrent writers never share one.
    std::string temporary = (path.parent_path() / ("." + path.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        logFailure("cannot create a temporary file for", path, errno);
        return false;
    }
    const bool written = writeAll(fd, bytes);
    const int writeError = errno;
    const bool closed = ::close(fd) == 0;
    if (!written || !closed || ::rename(temporary.c_str(), path.c_str()) != 0) {
        logFailure("cannot write", path, written && closed ? errno : writeError);
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

std::optional<plist::Data> FileManager::contentsAtPath(const std::filesystem::path& path) const {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) {
        if (errno != ENOENT)
            logFailure("cannot open", path, errno);
        return std::nullopt;
    }
    struct stat status {};
    std::optional<plist::Data> contents;
    if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
        static_cast<std::uintmax_t>(status.st_size) <= kMaximumReadSize) {
        plist::Data bytes(static_cast<std::size_t>(status.st_size));
        std::size_t filled = 0;
        while (filled < bytes.size()) {
            const ssize_t got = ::read(fd, bytes.data() + filled, bytes.size() - filled);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                break;
            filled += static_cast<std::size_t>(got);
        }
        // A file replaced by rename keeps its old inode open here, so its size cannot change
        // under us; a short read means an I/O error.
        if (filled == bytes.size())
            contents = std::move(bytes);
    } else {
        log::debug("file", "not reading " + path.string() + ": not a regular file of at most " +
                               std::to_string(kMaximumReadSize >> 20) + " MiB");
    }
    ::close(fd);
    return contents;
}

bool FileManager::removeItemAtPath(const std::filesystem::path& path) const {
    std::error_code error;
    const auto removed = std::filesystem::remove_all(path, error);
    if (error)
        logFailure("cannot remove", path, error.value());
    return !error && removed > 0;
}

std::vector<std::string> FileManager::contentsOfDirectoryAtPath(const std::filesystem::path& path) const {
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
        names.push_back(it->path().filename().string());
    if (error)
        logFailure("cannot list", path, error.value());
    return names;
}

} // namespace vexo::ipc
