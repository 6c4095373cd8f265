#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/runtime/RunLoop.h"

// A run loop with virtual time, for unit tests: nothing happens until the test drives it, and
// time moves only when the test says so, so that no test sleeps.
//
// Virtual time starts at 0. Watched file descriptors are polled without blocking, so a test
// with real sockets stays deterministic: a datagram that was sent before runUntilIdle() is
// delivered by it. The loop is current on its thread while one of its run*() or advance()
// calls is in progress; tests that create timers before that call setCurrent().
namespace vexo::runtime {

class DeterministicRunLoop final : public RunLoop {
public:
    DeterministicRunLoop() = default;
    ~DeterministicRunLoop() override;

    void post(std::function<void()> work) override;
    [[nodiscard]] double now() const override { return m_now; }
    [[nodiscard]] std::unique_ptr<FdWatch> watchReadable(int fd, std::function<void()> callback) override;

    // Runs until stop(), moving virtual time to each next timer; returns early when nothing
    // is left that could ever run (no work, no timer, no readable descriptor).
    void run() override;
    void stop() override;

    // Like advance(), in steps to each next timer, checking `predicate` after every step;
    // stops at `timeout` seconds of virtual time. Other processes are not waited for.
    bool runUntil(const std::function<bool()>& predicate, double timeout) override;

    // Runs posted work, due timers and readable descriptors until none is left, without
    // moving time. Returns the number of callbacks run. A loop that never becomes idle (work
    // that always posts more) is cut off after a large number of rounds, with a warning.
    std::size_t runUntilIdle();

    // Moves virtual time forward by `seconds`, firing each timer at its own fire date (now()
    // reads that date inside the callback), and ends idle at the new time.
    void advance(double seconds);

    // Moves virtual time forward by `seconds` without running anything, as if the loop's
    // thread had been busy; the next runUntilIdle() sees timers that came due meanwhile as late.
    void stall(double seconds);

    // The number of descriptors being watched.
    [[nodiscard]] std::size_t watchCount() const { return m_watches.size(); }

private:
    class Watch;
    struct WatchState {
        int fd;
        std::function<void()> callback;
        bool cancelled = false;
    };

    // One pass over queued work, due timers and readable descriptors; returns callbacks run.
    std::size_t runOnce();
    void forgetWatch(const WatchState* state);

    double m_now = 0;
    std::atomic<bool> m_stopRequested = false;
    std::mutex m_queueMutex;
    std::deque<std::function<void()>> m_queue;
    std::vector<std::shared_ptr<WatchState>> m_watches;
};

} // namespace vexo::runtime
