#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/base/UserDirectories.h"

// The network mode's files in the user's data folder (certificate, key, paired devices,
// pairing codes): readable by the user alone, replaced atomically, and changed by one
// process at a time. The running watch and the `vexo-watch devices|revoke|pair` commands
// both change them, so every read-modify-write holds the folder's lock.
namespace vexo::face {

// `<data home>/vexo` when `directories.dataHome` is absolute, else
// `<home>/.local/share/vexo` when `directories.home` is; nothing when neither is.
[[nodiscard]] std::optional<std::filesystem::path> networkDataFolder(const UserDirectories& directories);

// Creates `folder` (and its parents) with mode 0700 where it is missing. False on failure.
[[nodiscard]] bool makePrivateFolder(const std::filesystem::path& folder);

// The whole of `file`, or nothing when it cannot be read (or is larger than 1 MiB).
[[nodiscard]] std::optional<std::string> readSmallFile(const std::filesystem::path& file);

// Writes `contents` to a temporary file beside `file` with mode 0600, syncs it and renames
// it over `file`: readers see the old contents or the new, never a part. False on failure.
[[nodiscard]] bool writeFileAtomically(const std::filesystem::path& file, std::string_view contents);

// An exclusive advisory lock on `<folder>/.lock`, held for the object's life. Blocks until
// the lock is free; locked() is false when the lock file cannot be opened.
class FolderLock {
public:
    explicit FolderLock(const std::filesystem::path& folder);
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    [[nodiscard]] bool locked() const { return m_descriptor >= 0; }

private:
    int m_descriptor = -1;
};

} // namespace vexo::face
