#include "platform/media/FolderWalker.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace vexo::media {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFoundReportInterval = 256;

std::int64_t nanoseconds(const struct timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

// Closes the directory stream when the scope ends.
struct DirectoryStream {
    DIR* stream;
    ~DirectoryStream() {
        if (stream != nullptr)
            ::closedir(stream);
    }
};

} // namespace

FolderWalker::Listing FolderWalker::list(const fs::path& root, const std::function<bool(const fs::path&)>& accept,
                                         const std::function<void(std::size_t)>& found) {
    Listing listing;
    std::set<std::pair<dev_t, ino_t>> visited;
    struct stat rootStatus {};
    if (::stat(root.c_str(), &rootStatus) == 0)
        visited.emplace(rootStatus.st_dev, rootStatus.st_ino);

    std::vector<fs::path> pending{root};
    while (!pending.empty()) {
        const fs::path directory = std::move(pending.back());
        pending.pop_back();
        DirectoryStream stream{::opendir(directory.c_str())};
        if (stream.stream == nullptr) {
            listing.unreadable.push_back({directory, std::strerror(errno)});
            continue;
        }
        const int directoryFd = ::dirfd(stream.stream);
        for (;;) {
            errno = 0;
            const dirent* entry = ::readdir(stream.stream);
            if (entry == nullptr) {
                if (errno != 0)
                    listing.unreadable.push_back({directory, std::strerror(errno)});
                break;
            }
            const char* name = entry->d_name;
            if (name[0] == '.')
                continue;
            bool isLink = entry->d_type == DT_LNK;
            struct stat status {};
            if (entry->d_type == DT_UNKNOWN) {
                if (::fstatat(directoryFd, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
                    continue;
                isLink = S_ISLNK(status.st_mode);
            }
            if (::fstatat(directoryFd, name, &status, 0) != 0) {
                // A dangling link names nothing to index.
                if (!isLink)
                    listing.unreadable.push_back({directory / name, std::strerror(errno)});
                continue;
            }
            if (!S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode))
                continue;
            fs::path path = directory / name;
            if (isLink) {
                std::error_code code;
                path = fs::canonical(path, code);
                if (code)
                    continue;
            }
            if (S_ISDIR(status.st_mode)) {
                if (visited.emplace(status.st_dev, status.st_ino).second)
                    pending.push_back(std::move(path));
                continue;
            }
            if (accept && !accept(path))
                continue;
            listing.files.push_back(
                {std::move(path), nanoseconds(status.st_mtim), static_cast<std::uint64_t>(status.st_size)});
            if (found && listing.files.size() % kFoundReportInterval == 0)
                found(listing.files.size());
        }
    }

    std::sort(listing.files.begin(), listing.files.end(),
              [](const File& a, const File& b) { return a.path.native() < b.path.native(); });
    listing.files.erase(std::unique(listing.files.begin(), listing.files.end(),
                                    [](const File& a, const File& b) { return a.path == b.path; }),
                        listing.files.end());
    if (found)
        found(listing.files.size());
    return listing;
}

} // namespace vexo::media
