#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/plist/Value.h"

// The file operations the transport needs, with the host platform's file-manager contracts:
// each reports success or yields nothing and never throws; failures are logged at debug level.
// Stateless, so every user may keep an instance of its own. Thread-safe.
namespace vexo::ipc {

class FileManager {
public:
    // Files larger than this are not read: a message is a few kilobytes, artwork a few hundred.
    static constexpr std::uintmax_t kMaximumReadSize = std::uintmax_t{64} << 20;

    // The shared container of `group` (see Container), or nothing when it cannot be had.
    [[nodiscard]] std::optional<std::filesystem::path>
    containerURLForSecurityApplicationGroupIdentifier(std::string_view group) const;

    // Creates `path` and any missing parents (mode 0700). True when it was made or something
    // of that name exists already (one system call in that usual case).
    bool createDirectoryAtPath(const std::filesystem::path& path) const;

    // Writes `bytes` to a temporary file beside `path` and renames it over `path`, so that a
    // reader in any process sees the old or the new whole file, never a part. True on success;
    // on failure nothing is left behind.
    bool writeToFileAtomically(const std::filesystem::path& path, std::span<const std::uint8_t> bytes) const;

    // The whole contents of the regular file at `path`; nothing when it is missing,
    // unreadable, not a regular file or larger than kMaximumReadSize.
    [[nodiscard]] std::optional<plist::Data> contentsAtPath(const std::filesystem::path& path) const;

    // Removes the file, link or directory tree at `path` (a link itself, never its target).
    // True when something was removed.
    bool removeItemAtPath(const std::filesystem::path& path) const;

    // Names of the entries of the directory at `path`; empty when it cannot be listed.
    [[nodiscard]] std::vector<std::string> contentsOfDirectoryAtPath(const std::filesystem::path& path) const;
};

} // namespace vexo::ipc
