#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// The application-group container: one private directory per group that every process of
// the user reaches by the group's name (the host platform's shared container).
//
// Its location is `$VEXO_CONTAINER_ROOT/<group>` when that variable is set, else
// `$XDG_RUNTIME_DIR/vexo/<group>`, else `/tmp/vexo-<uid>/<group>`. Directories are created
// with mode 0700, and a directory owned by another user is never used: in the shared /tmp,
// someone else could have made `/tmp/vexo-<uid>` first.
namespace vexo::ipc {

class Container {
public:
    Container() = delete;

    // The container of `group`, created if missing. Nothing (with a log line) when the group
    // is not one plain path component (empty, ".", "..", or holding "/" or NUL), when a root
    // variable is set to a relative path, when a directory cannot be made, or when one is not
    // a directory of the calling user. Thread-safe; reads the environment on every call.
    [[nodiscard]] static std::optional<std::filesystem::path> pathForGroup(std::string_view group);

    // The variables that locate containers, as one string: when it changes, containers
    // found before may be elsewhere now. Reads the environment; makes no system call.
    [[nodiscard]] static std::string environmentKey();
};

} // namespace vexo::ipc
