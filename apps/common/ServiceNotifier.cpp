#include "ServiceNotifier.h"

#include <cstdint>
#include <string>

#include <systemd/sd-daemon.h>

#include "platform/log/Log.h"
#include "platform/runtime/Timer.h"

namespace vexo::apps {

namespace {

constexpr std::string_view kComponent = "service";

// Each message names its fields on lines of its own; a status with a newline would start
// a field of its own.
std::string oneLine(std::string_view text) {
    std::string line(text);
    for (char& character : line)
        if (character == '\n' || character == '\r')
            character = ' ';
    return line;
}

void send(const std::string& message) {
    // No socket, no manager: 0. A failure only costs the manager's view of us, never the
    // program its work.
    if (const int result = sd_notify(0, message.c_str()); result < 0)
        log::debug(kComponent, "the service manager was not told '" + oneLine(message) + "'");
}

} // namespace

ServiceNotifier::ServiceNotifier(runtime::RunLoop& loop) {
    std::uint64_t microseconds = 0;
    if (sd_watchdog_enabled(0, &microseconds) <= 0 || microseconds == 0)
        return;
    m_interval = static_cast<double>(microseconds) / 2e6;
    m_keepAlive = runtime::Timer::scheduledTimer(loop, m_interval, runtime::Timer::Repeats::Yes,
                                                 [](runtime::Timer&) { send("WATCHDOG=1"); });
    log::debug(kComponent, "watchdog keep-alive every " + std::to_string(m_interval) + " s");
}

ServiceNotifier::~ServiceNotifier() {
    if (m_keepAlive)
        m_keepAlive->invalidate();
    send("STOPPING=1");
}

void ServiceNotifier::ready(std::string_view status) {
    send("READY=1\nSTATUS=" + oneLine(status));
}

} // namespace vexo::apps
