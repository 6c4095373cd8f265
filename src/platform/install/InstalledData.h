#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

// Where an installed program finds the files it ships: `<prefix>/share/vexo/<part>`, with the
// prefix taken from the program's own location (`<prefix>/bin/<program>`), so that a tree
// installed under any prefix, or unpacked anywhere, finds its own files with no variable.
// A program run from a build tree has no such folder beside it and falls back to the
// build's defaults; callers look at what they were configured with before asking here.
//
// Thread-safe: nothing is cached.
namespace vexo::install {

class InstalledData {
public:
    // `<directory of the running program>/../share/vexo/<part>` when that is a directory,
    // else nothing (also when the running program cannot be found).
    [[nodiscard]] static std::optional<std::filesystem::path> directory(std::string_view part);

    // The same for the program `executable` (an absolute path), without looking at the
    // running one.
    [[nodiscard]] static std::optional<std::filesystem::path> directoryFor(const std::filesystem::path& executable,
                                                                           std::string_view part);

    // The running program, its symbolic links resolved; empty when the system does not say.
    [[nodiscard]] static std::filesystem::path runningProgram();
};

} // namespace vexo::install
