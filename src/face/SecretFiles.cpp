#include "face/SecretFiles.h"

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/base/WriteAll.h"

namespace vexo::face {

namespace {

constexpr std::size_t kMaximumFileSize = std::size_t{1} << 20;

} // namespace

std::optional<std::filesystem::path> networkDataFolder(const UserDirectories& directories) {
    if (const auto& data = directories.dataHome; data && data->starts_with('/'))
        return std::filesystem::path(*data) / "vexo";
    if (const auto& home = directories.home; home && home->starts_with('/'))
        return std::filesystem::path(*home) / ".local" / "share" / "vexo";
    return std::nullopt;
}

bool makePrivateFolder(const std::filesystem::path& folder) {
    std::error_code error;
    if (std::filesystem::is_directory(folder, error))
        return true;
    if (!folder.parent_path().empty() && folder.parent_path() != folder && !makePrivateFolder(folder.parent_path()))
        return false;
    return ::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST;
}

std::optional<std::string> readSmallFile(const std::filesystem::path& file) {
    int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0)
        return std::nullopt;
    std::string contents;
    char buffer[8192];
    for (;;) {
        ssize_t got = ::read(descriptor, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0 || contents.size() + static_cast<std::size_t>(got) > kMaximumFileSize) {
            ::close(descriptor);
            return got == 0 ? std::optional<std::string>(std::move(contents)) : std::nullopt;
        }
        contents.append(buffer, static_cast<std::size_t>(got));
    }
}

bool writeFileAtomically(const std::filesystem::path& file, std::string_view contents) {
    std::filesystem::path temporary = file;
    temporary += ".XXXXXX";
    std::string name = temporary.string();
    // mkstemp makes the file with mode 0600.
    int descriptor = ::mkstemp(name.data());
    if (descriptor < 0)
        return false;
    bool written = writeAll(descriptor, contents) && ::fsync(descriptor) == 0;
    written = ::close(descriptor) == 0 && written;
    if (!written || ::rename(name.c_str(), file.c_str()) != 0) {
        ::unlink(name.c_str());
        return false;
    }
    return true;
}

FolderLock::FolderLock(const std::filesystem::path& folder) {
    m_descriptor = ::open((folder / ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_descriptor < 0)
        return;
    while (::flock(m_descriptor, LOCK_EX) != 0) {
        if (errno != EINTR) {
            ::close(m_descriptor);
            m_descriptor = -1;
            return;
        }
    }
}

FolderLock::~FolderLock() {
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

} // namespace vexo::face
