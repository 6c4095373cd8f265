#pragma once

#include <memory>
#include <string_view>

#include "platform/runtime/RunLoop.h"

namespace vexo::runtime {
class Timer;
}

// Tells the service manager that started the program (a systemd unit of Type=notify) when
// the program serves, and keeps the unit's watchdog fed from the main loop, so that a loop
// that hangs is noticed and the unit restarted. A program started any other way has no
// NOTIFY_SOCKET, and then every member does nothing.
//
// Loop thread only.
namespace vexo::apps {

class ServiceNotifier {
public:
    // Sends a watchdog keep-alive from `loop` at half the interval the manager asked for
    // (WATCHDOG_USEC, when WATCHDOG_PID is unset or ours). REQUIRES: `loop` outlives this
    // object and runs on the calling thread.
    explicit ServiceNotifier(runtime::RunLoop& loop);

    // Stops the keep-alives and says that the program is stopping.
    ~ServiceNotifier();

    ServiceNotifier(const ServiceNotifier&) = delete;
    ServiceNotifier& operator=(const ServiceNotifier&) = delete;

    // Says the program is ready; `status` is the one line `systemctl status` shows.
    void ready(std::string_view status);

    // The keep-alive interval in seconds, or 0 when no watchdog was asked for.
    [[nodiscard]] double keepAliveInterval() const { return m_interval; }

private:
    double m_interval = 0;
    std::shared_ptr<runtime::Timer> m_keepAlive;
};

} // namespace vexo::apps
