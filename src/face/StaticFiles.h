#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// The face's static files: a request path mapped to a file under one web root, and never to
// anything outside it. The path is percent-decoded; a segment "..", a NUL, a backslash, or a
// file whose real path (symbolic links resolved) leaves the root is refused; names that
// start with "." are hidden (not found); a directory stands for its index.html.
// Thread-safe: it holds only the root.
namespace vexo::face {

class StaticFiles {
public:
    // Files above this size are not served (the face's files are a few kilobytes).
    static constexpr std::size_t kMaximumFileSize = std::size_t{8} << 20;

    enum class Status { Found, NotFound, Forbidden, TooLarge };

    struct Result {
        Status status = Status::NotFound;
        std::string body;
        std::string contentType;
    };

    // Serves files under `root`, which must be a directory when files are looked up.
    explicit StaticFiles(std::filesystem::path root);

    [[nodiscard]] const std::filesystem::path& root() const { return m_root; }

    // The file for request path `target` ("/", "/app.js", "/css/face.css"); any query or
    // fragment must be cut off already.
    [[nodiscard]] Result find(std::string_view target) const;

    // The media type of a file by its extension; "application/octet-stream" when unknown.
    [[nodiscard]] static std::string contentType(const std::filesystem::path& file);

    // `text` with %XX escapes decoded; nothing for a malformed escape.
    [[nodiscard]] static std::optional<std::string> percentDecode(std::string_view text);

private:
    std::filesystem::path m_root;
};

} // namespace vexo::face
