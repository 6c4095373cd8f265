#pragma once

#include <string_view>

// Diagnostics of the platform layer and the programs, written to standard error.
//
// The level is "warning" until the program sets another (from VEXO_LOG or a --verbose
// flag). Logging is safe from any thread: each line is written with one call.
namespace vexo::log {

enum class Level { Debug, Info, Warning, Error, Off };

// True when a line of `level` would be written; lets callers skip building a message.
[[nodiscard]] bool enabled(Level level);

// Sets the level for the whole process (programs at start-up, and tests).
void setLevel(Level level);

// The level named "debug", "info", "warning", "error" or "off"; any other name is Warning.
[[nodiscard]] Level levelNamed(std::string_view name);

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
