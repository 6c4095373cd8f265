#include "platform/install/InstalledData.h"

#include <system_error>

namespace vexo::install {

std::optional<std::filesystem::path> InstalledData::directory(std::string_view part) {
    const std::filesystem::path program = runningProgram();
    if (program.empty())
        return std::nullopt;
    return directoryFor(program, part);
}

std::optional<std::filesystem::path> InstalledData::directoryFor(const std::filesystem::path& executable,
                                                                 std::string_view part) {
    if (!executable.is_absolute() || part.empty())
        return std::nullopt;
    // Lexically, so that the answer names the folder as a user sees it (`/usr/share/vexo`),
    // not through `bin/..`.
    const std::filesystem::path candidate =
        (executable.parent_path() / ".." / "share" / "vexo" / std::filesystem::path(part)).lexically_normal();
    std::error_code error;
    if (!std::filesystem::is_directory(candidate, error))
        return std::nullopt;
    return candidate;
}

std::filesystem::path InstalledData::runningProgram() {
    std::error_code error;
    std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : program;
}

} // namespace vexo::install
