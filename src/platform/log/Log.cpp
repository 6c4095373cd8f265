#include "platform/log/Log.h"

#include <atomic>
#include <string>

#include <unistd.h>

namespace vexo::log {
namespace {

std::atomic<Level>& currentLevel() {
    static std::atomic<Level> level{Level::Warning};
    return level;
}

std::string_view nameOf(Level level) {
    switch (level) {
    case Level::Debug:
        return "debug";
    case Level::Info:
        return "info";
    case Level::Warning:
        return "warning";
    case Level::Error:
        return "error";
    case Level::Off:
        break;
    }
    return "";
}

} // namespace

bool enabled(Level level) {
    return level != Level::Off && level >= currentLevel().load(std::memory_order_relaxed);
}

Level levelNamed(std::string_view name) {
    if (name == "debug")
        return Level::Debug;
    if (name == "info")
        return Level::Info;
    if (name == "error")
        return Level::Error;
    if (name == "off")
        return Level::Off;
    return Level::Warning;
}

void setLevel(Level level) {
    currentLevel().store(level, std::memory_order_relaxed);
}

void write(Level level, std::string_view component, std::string_view message) {
    if (!enabled(level))
        return;
    std::string line;
    line.reserve(component.size() + message.size() + 24);
    line.append("vexo[").append(component).append("] ").append(nameOf(level)).append(": ");
    line.append(message).push_back('\n');
    // One write() per line keeps lines from different threads or processes whole.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

} // namespace vexo::log
