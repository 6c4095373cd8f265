#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// file:// URLs of local files, as the host platform writes them for asset addresses: the
// absolute path with every byte other than an unreserved character or "/" percent-encoded.
namespace vexo::media {

class FileURL {
public:
    FileURL() = delete;

    // "file://" followed by the encoded path. REQUIRES: `path` is absolute.
    [[nodiscard]] static std::string fromPath(const std::filesystem::path& path) {
        return fromNativePath(path.native());
    }
    // The same for a path's bytes, without making a path of them first.
    [[nodiscard]] static std::string fromNativePath(std::string_view path);

    // The path a file URL names ("file:///a%20b", "file://localhost/a b"); nothing for another
    // scheme, another host, a relative path, a bad escape or an encoded NUL.
    [[nodiscard]] static std::optional<std::filesystem::path> toPath(std::string_view url);
};

} // namespace vexo::media
