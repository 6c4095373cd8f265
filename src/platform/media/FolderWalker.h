#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

// Lists the regular files of a folder tree, with what a rescan compares: modification time
// and size.
//
// Paths come out canonical: the walk starts from the canonical root, and a symbolic link is
// replaced by its target's canonical path. A folder is entered once however many links lead
// to it, so link cycles end. Names starting with "." are skipped, as are sockets, pipes and
// devices (opening a pipe would block), and dangling links.
namespace vexo::media {

class FolderWalker {
public:
    FolderWalker() = delete;

    struct File {
        std::filesystem::path path;
        std::int64_t modifiedNanoseconds = 0;
        std::uint64_t size = 0;
    };

    struct Unreadable {
        std::filesystem::path path;
        std::string reason;
    };

    struct Listing {
        // Sorted by path, each path once.
        std::vector<File> files;
        // Folders (and entries) that could not be read; the walk went on without them.
        std::vector<Unreadable> unreadable;
    };

    // Walks `root` (REQUIRES: a canonical path of a folder), keeping the files for which
    // `accept` holds. `found`, when set, is called with the number kept so far every few
    // hundred files.
    [[nodiscard]] static Listing list(const std::filesystem::path& root,
                                      const std::function<bool(const std::filesystem::path&)>& accept,
                                      const std::function<void(std::size_t)>& found = {});
};

} // namespace vexo::media
