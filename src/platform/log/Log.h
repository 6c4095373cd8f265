#pragma once

#include <string_view>

// Diagnostics of the platform layer and the programs, written to standard error.
//
// The level comes from the environment variable VEXO_LOG ("debug", "info", "warning",
// "error" or "off"; "warning" when unset) and is read once. Logging is safe from any
// thread: each line is written with one call.
namespace vexo::log {

enum class Level { Debug, Info, Warning, Error, Off };

// True when a line of `level` would be written; lets callers skip building a message.
[[nodiscard]] bool enabled(Level level);

// Overrides the level from the environment (for programs with a --verbose flag and for tests).
void setLevel(Level level);

// Writes "vexo[<component>] <level>: <message>" when `level` is enabled.
void write(Level level, std::string_view component, std::string_view message);

inline void debug(std::string_view component, std::string_view message) {
    if (enabled(Level::Debug))
        write(Level::Debug, component, message);
}
inline void info(std::string_view component, std::string_view message) {
    write(Level::Info, component, message);
}
inline void warning(std::string_view component, std::string_view message) {
    write(Level::Warning, component, message);
}
inline void error(std::string_view component, std::string_view message) {
    write(Level::Error, component, message);
}

} // namespace vexo::log
