#include "platform/media/PlaylistFile.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <span>

#include "platform/base/SystemError.h"
#include "platform/media/FileURL.h"
#include "platform/plist/Utf.h"

namespace vexo::media {
namespace {

namespace fs = std::filesystem;

std::string lowerExtension(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

std::string_view trimmed(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\f' || c == '\v'; };
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), text.begin(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
           });
}

bool isValidUtf8(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        const auto byte = static_cast<unsigned char>(text[i]);
        std::size_t length;
        std::uint32_t codePoint;
        if (byte < 0x80) {
            ++i;
            continue;
        } else if ((byte & 0xE0) == 0xC0) {
            length = 2;
            codePoint = byte & 0x1F;
        } else if ((byte & 0xF0) == 0xE0) {
            length = 3;
            codePoint = byte & 0x0F;
        } else if ((byte & 0xF8) == 0xF0) {
            length = 4;
            codePoint = byte & 0x07;
        } else {
            return false;
        }
        if (i + length > text.size())
            return false;
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80)
                return false;
            codePoint = (codePoint << 6) | (next & 0x3F);
        }
        static constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (codePoint < kSmallest[length] || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
            return false;
        i += length;
    }
    return true;
}

// An entry that looks like a URL scheme ("http://", "smb://"), other than a drive letter.
bool hasScheme(std::string_view entry) {
    const std::size_t colon = entry.find("://");
    if (colon == std::string_view::npos || colon < 2)
        return false;
    return std::all_of(entry.begin(), entry.begin() + static_cast<std::ptrdiff_t>(colon), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '+' || c == '-' || c == '.';
    });
}

} // namespace

bool PlaylistFile::isPlaylistFile(const fs::path& path) {
    const std::string extension = lowerExtension(path);
    return extension == ".m3u" || extension == ".m3u8";
}

PlaylistFile::Contents PlaylistFile::parse(std::string_view text, const fs::path& path) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(kByteOrderMark))
        text.remove_prefix(kByteOrderMark.size());
    std::string converted;
    if (lowerExtension(path) == ".m3u" && !isValidUtf8(text)) {
        converted =
            plist::utf::utf8FromLatin1(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
        text = converted;
    }

    Contents contents;
    contents.name = path.stem().string();
    const fs::path directory = path.parent_path();
    while (!text.empty()) {
        const std::size_t end = text.find_first_of("\r\n");
        std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty())
            continue;
        if (line.front() == '#') {
            constexpr std::string_view kPlaylistDirective = "#PLAYLIST:";
            if (startsWithIgnoringCase(line, kPlaylistDirective)) {
                const std::string_view name = trimmed(line.substr(kPlaylistDirective.size()));
                if (!name.empty())
                    contents.name = name;
            }
            continue;
        }
        // A NUL cannot be part of a path.
        if (line.find('\0') != std::string_view::npos) {
            ++contents.skippedLines;
            continue;
        }
        fs::path entry;
        if (startsWithIgnoringCase(line, "file:")) {
            const auto decoded = FileURL::toPath(line);
            if (!decoded) {
                ++contents.skippedLines;
                continue;
            }
            entry = *decoded;
        } else if (hasScheme(line)) {
            ++contents.skippedLines;
            continue;
        } else {
            std::string plain(line);
            // Playlists written on Windows separate folders with backslashes.
            if (plain.find('/') == std::string::npos)
                std::replace(plain.begin(), plain.end(), '\\', '/');
            entry = plain;
        }
        if (entry.is_relative())
            entry = directory / entry;
        contents.entries.push_back(entry.lexically_normal());
    }
    return contents;
}

Expected<PlaylistFile::Contents> PlaylistFile::read(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        return systemError(errno);
    std::string text;
    std::error_code code;
    const auto size = fs::file_size(path, code);
    if (!code && size > kMaximumBytes)
        return Error(ErrorKind::TooLarge, "larger than " + std::to_string(kMaximumBytes >> 20) + " MiB");
    text.assign(std::istreambuf_iterator<char>(stream), {});
    if (stream.bad())
        return Error(ErrorKind::SystemFailure, "read error");
    Contents contents = parse(text, path);
    for (auto& entry : contents.entries) {
        if (fs::exists(entry, code)) {
            auto canonical = fs::canonical(entry, code);
            if (!code)
                entry = std::move(canonical);
        }
    }
    return contents;
}

} // namespace vexo::media
