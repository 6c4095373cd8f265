#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ipc/UniqueFd.h"
#include "platform/plist/Value.h"

// A directory of an application group's container (or the container itself), held open by
// descriptor, with the file operations of the message transport done relative to it.
//
// Every operation behaves as if the directory were looked up and created afresh on each
// call, as the host platform's file manager does, without walking the path: the descriptors
// stay open, a write into a directory deleted meanwhile fails with ENOENT, and only then (or
// when a read or a removal finds nothing, and fstat says the directory has no links left) is
// the container looked up again and the directory recreated (mode 0700). The Container
// location is compared on every call, so a container root set anew is seen at once.
//
// Each component of the subdirectory is made and opened without following a symbolic link
// and must belong to the calling user; otherwise the directory is refused with a log line
// (warning level) and every operation fails until it is fixed. A file name must be one plain
// component (not empty, ".", "..", and without "/" or NUL).
//
// Temporary files are named ".<file name>.<pid>.<sequence>.tmp". A writer killed between
// creating one and renaming it leaves it behind; the first write of a file name by each
// instance removes the leftovers of that name whose process no longer runs.
//
// Not thread-safe: one instance per thread (the transport keeps one per MMWormhole).
namespace vexo::ipc {

class ContainerDirectory {
public:
    // Files larger than this are not read: a message is a few kilobytes, artwork a few hundred.
    static constexpr std::uintmax_t kMaximumReadSize = std::uintmax_t{64} << 20;

    // Touches nothing until the first operation.
    ContainerDirectory(std::string group, std::optional<std::string> subdirectory);

    ContainerDirectory(const ContainerDirectory&) = delete;
    ContainerDirectory& operator=(const ContainerDirectory&) = delete;

    // The container's path, for the notify centre; nothing when there is no container.
    [[nodiscard]] std::optional<std::filesystem::path> containerPath();

    // Writes `bytes` to a temporary file in the directory and renames it over `fileName`, so
    // that a reader in any process sees the old or the new whole file. True on success; on
    // failure nothing is left behind, and the first failure of a run is logged as a warning
    // (the others at debug level, the write that works again at info level).
    bool writeAtomically(std::string_view fileName, std::span<const std::uint8_t> bytes);

    // The whole contents of the regular file `fileName`, in a buffer this instance keeps:
    // valid until its next call. Nothing when the file is missing, unreadable, not a regular
    // file (links are not followed) or larger than kMaximumReadSize.
    [[nodiscard]] std::optional<std::span<const std::uint8_t>> read(std::string_view fileName);

    // Removes the file `fileName` (a link itself, never its target). True when it was removed.
    bool remove(std::string_view fileName);

    // Removes every entry of the directory, whatever its kind (subdirectories with their
    // contents, without following links).
    void removeAllEntries();

    // True when `name` is one plain file-name component.
    [[nodiscard]] static bool isPlainFileName(std::string_view name);

private:
    enum class Reopen { IfLocationChanged, Always };
    void reportWriteFailure(const std::string& what);

    // Makes sure the descriptors are open, reopening them as `reopen` says. False when there
    // is no usable directory.
    bool open(Reopen reopen);
    // True when the directory held open has been deleted (no links left).
    [[nodiscard]] bool isDeleted() const;
    // Removes temporary files of `fileName` left by processes that no longer run.
    void removeLeftoverTemporaries(std::string_view fileName);

    const std::string m_group;
    const std::optional<std::string> m_subdirectory;
    std::uint64_t m_locationGeneration = 0;
    std::filesystem::path m_containerPath;
    UniqueFd m_directory;
    std::uint64_t m_sequence = 0;
    std::vector<std::uint8_t> m_readBuffer;
    // File names written once already by this instance (their leftovers are gone).
    std::vector<std::string> m_written;
    // Set by a failed write (a full disk, for one), so that a run of failures logs one
    // warning and the write that works again says so.
    bool m_writesFailing = false;
};

} // namespace vexo::ipc
