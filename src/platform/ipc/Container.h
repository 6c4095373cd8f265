#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// The application-group container: one private directory per group that every process of
// the user reaches by the group's name (the host platform's shared container).
//
// Its location is `<root>/<group>` when a root is set (VEXO_CONTAINER_ROOT), else
// `<runtime directory>/vexo/<group>` (XDG_RUNTIME_DIR), else `/tmp/vexo-<uid>/<group>`, as the
// process's Location says (set once at start-up by the program). Directories are created
// with mode 0700, and a directory owned by another user is never used: in the shared /tmp,
// someone else could have made `/tmp/vexo-<uid>` first.
namespace vexo::ipc {

class Container {
public:
    Container() = delete;

    // What locates the containers, as the program was told it: each nothing when unset or
    // empty.
    struct Location {
        // VEXO_CONTAINER_ROOT: must be absolute; made with its parents when missing.
        std::optional<std::string> root{};
        // XDG_RUNTIME_DIR: ignored when relative.
        std::optional<std::string> runtimeDirectory{};

        friend bool operator==(const Location&, const Location&) = default;
    };

    // Sets the process's Location (nothing set until then: containers live under /tmp).
    // Containers found before may be elsewhere now; ContainerDirectory sees the change on
    // its next call. Thread-safe.
    static void setLocation(Location location);
    [[nodiscard]] static Location location();

    // The container of `group`, created if missing. Nothing (with a log line) when the group
    // is not one plain path component (empty, ".", "..", or holding "/" or NUL), when the
    // root is set to a relative path, when a directory cannot be made, or when one is not a
    // directory of the calling user. Thread-safe.
    [[nodiscard]] static std::optional<std::filesystem::path> pathForGroup(std::string_view group);

    // A number that changes whenever setLocation() does: when it differs from one read
    // before, containers found before may be elsewhere now. Makes no system call.
    [[nodiscard]] static std::uint64_t locationGeneration();
};

} // namespace vexo::ipc
