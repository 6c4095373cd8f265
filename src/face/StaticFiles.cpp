#include "face/StaticFiles.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <system_error>

namespace vexo::face {

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// True when `path` is `root` or lies below it; both are canonical.
bool isWithin(const std::filesystem::path& path, const std::filesystem::path& root) {
    auto [rootEnd, pathAt] = std::mismatch(root.begin(), root.end(), path.begin(), path.end());
    return rootEnd == root.end();
}

} // namespace

StaticFiles::StaticFiles(std::filesystem::path root)
    : m_root(std::move(root)) {}

std::optional<std::string> StaticFiles::percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out.push_back(text[i]);
            continue;
        }
        if (i + 2 >= text.size())
            return std::nullopt;
        int high = hexDigit(text[i + 1]);
        int low = hexDigit(text[i + 2]);
        if (high < 0 || low < 0)
            return std::nullopt;
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return out;
}

std::string StaticFiles::contentType(const std::filesystem::path& file) {
    static const std::map<std::string, std::string, std::less<>> types = {
        {".html", "text/html; charset=utf-8"},
        {".htm", "text/html; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".mjs", "text/javascript; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".json", "application/json"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".jpg", "image/jpeg"},
        {".jpeg", "image/jpeg"},
        {".ico", "image/x-icon"},
        {".txt", "text/plain; charset=utf-8"},
        {".woff2", "font/woff2"},
        {".webmanifest", "application/manifest+json"},
    };
    auto found = types.find(file.extension().string());
    return found == types.end() ? "application/octet-stream" : found->second;
}

StaticFiles::Result StaticFiles::find(std::string_view target) const {
    if (target.empty() || target.front() != '/')
        return {Status::NotFound, {}, {}};
    std::optional<std::string> decoded = percentDecode(target);
    if (!decoded || decoded->find('\0') != std::string::npos || decoded->find('\\') != std::string::npos)
        return {Status::Forbidden, {}, {}};

    std::filesystem::path relative;
    std::size_t start = 1;
    while (start <= decoded->size()) {
        std::size_t end = decoded->find('/', start);
        if (end == std::string::npos)
            end = decoded->size();
        std::string_view segment = std::string_view(*decoded).substr(start, end - start);
        if (segment == "..")
            return {Status::Forbidden, {}, {}};
        if (!segment.empty() && segment != ".") {
            if (segment.front() == '.')
                return {Status::NotFound, {}, {}};
            relative /= std::string(segment);
        }
        start = end + 1;
    }

    std::error_code error;
    std::filesystem::path root = std::filesystem::canonical(m_root, error);
    if (error)
        return {Status::NotFound, {}, {}};
    std::filesystem::path file = std::filesystem::canonical(root / relative, error);
    if (error)
        return {Status::NotFound, {}, {}};
    if (!isWithin(file, root))
        return {Status::Forbidden, {}, {}};
    if (std::filesystem::is_directory(file, error)) {
        file = std::filesystem::canonical(file / "index.html", error);
        if (error)
            return {Status::NotFound, {}, {}};
        if (!isWithin(file, root))
            return {Status::Forbidden, {}, {}};
    }
    if (!std::filesystem::is_regular_file(file, error))
        return {Status::NotFound, {}, {}};
    std::uintmax_t size = std::filesystem::file_size(file, error);
    if (error)
        return {Status::NotFound, {}, {}};
    if (size > kMaximumFileSize)
        return {Status::TooLarge, {}, {}};

    std::ifstream in(file, std::ios::binary);
    std::string body((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof())
        return {Status::NotFound, {}, {}};
    if (body.size() > kMaximumFileSize)
        return {Status::TooLarge, {}, {}};
    return {Status::Found, std::move(body), contentType(file)};
}

} // namespace vexo::face
