#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "platform/runtime/RunLoop.h"

namespace asio {
class io_context;
}

// The program's main loop on an Asio io_context with the real monotonic clock.
//
// It runs on the one thread that calls run() (or runUntil()/runFor()); post() and stop()
// may come from any thread. Exceptions thrown by callbacks leave run*() unhandled, as an
// uncaught exception would end a host-platform program.
namespace vexo::runtime {

class AsioRunLoop final : public RunLoop {
public:
    AsioRunLoop();
    // REQUIRES: not running, and every FdWatch it made is destroyed.
    ~AsioRunLoop() override;

    void post(std::function<void()> work) override;
    [[nodiscard]] double now() const override;
    [[nodiscard]] std::unique_ptr<FdWatch> watchReadable(int fd, std::function<void()> callback) override;
    void run() override;
    void stop() override;
    bool runUntil(const std::function<bool()>& predicate, double timeout) override;

private:
    class Watch;
    struct WakeUp;

    void timersChanged() override;

    std::chrono::steady_clock::time_point m_epoch;
    std::unique_ptr<asio::io_context> m_context;
    // The one Asio timer that wakes the loop for the earliest of our timers.
    std::unique_ptr<WakeUp> m_wakeUp;
};

} // namespace vexo::runtime
