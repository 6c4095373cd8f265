#include "platform/media/FileURL.h"

#include <array>
#include <cctype>

#include "platform/plist/NumericText.h"

namespace vexo::media {
namespace {

// Bytes written as they are; every other byte is percent-encoded. A table, since a playlist
// query encodes every item's path.
constexpr auto kUnreserved = [] {
    std::array<bool, 256> table{};
    for (int c = 0; c < 256; ++c) {
        table[c] = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
                   c == '_' || c == '~' || c == '/';
    }
    return table;
}();

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size())
        return false;
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(text[i])) != prefix[i])
            return false;
    }
    return true;
}

} // namespace

std::string FileURL::fromNativePath(std::string_view path) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    constexpr std::string_view kScheme = "file://";
    std::string url;
    url.reserve(kScheme.size() + path.size() + 16);
    url.append(kScheme);
    std::size_t run = 0;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const auto byte = static_cast<unsigned char>(path[i]);
        if (kUnreserved[byte])
            continue;
        url.append(path.substr(run, i - run));
        const char escape[3] = {'%', kHex[byte >> 4], kHex[byte & 0xF]};
        url.append(escape, 3);
        run = i + 1;
    }
    url.append(path.substr(run));
    return url;
}

std::optional<std::filesystem::path> FileURL::toPath(std::string_view url) {
    constexpr std::string_view kScheme = "file://";
    if (!startsWithIgnoringCase(url, kScheme))
        return std::nullopt;
    std::string_view rest = url.substr(kScheme.size());
    const std::size_t slash = rest.find('/');
    if (slash == std::string_view::npos)
        return std::nullopt;
    const std::string_view host = rest.substr(0, slash);
    if (!host.empty() && host != "localhost")
        return std::nullopt;
    rest = rest.substr(slash);
    // A query or fragment is not part of the path.
    rest = rest.substr(0, rest.find_first_of("?#"));

    std::string path;
    path.reserve(rest.size());
    for (std::size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] != '%') {
            path += rest[i];
            continue;
        }
        if (i + 2 >= rest.size())
            return std::nullopt;
        const int high = plist::text::hexDigitValue(rest[i + 1]);
        const int low = plist::text::hexDigitValue(rest[i + 2]);
        if (high < 0 || low < 0 || (high == 0 && low == 0))
            return std::nullopt;
        path += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return std::filesystem::path(path);
}

} // namespace vexo::media
