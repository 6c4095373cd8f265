#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "platform/runtime/FdWatch.h"

// The main run loop: posted work, timers and file-descriptor readiness, all delivered on
// the thread that runs the loop.
//
// Code above this layer sees only this interface. The program runs an AsioRunLoop; unit
// tests run a DeterministicRunLoop with virtual time. Timers are kept here, in the base,
// so that both loops share one set of timer rules (see Timer.h).
namespace vexo::runtime {

class Timer;

class RunLoop {
public:
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;
    RunLoop(RunLoop&&) = delete;
    RunLoop& operator=(RunLoop&&) = delete;

    // Invalidates every timer still scheduled here; stops being the thread's current loop.
    // REQUIRES: every FdWatch made by this loop is destroyed already.
    virtual ~RunLoop();

    // The loop of the calling thread: the one whose run*() is in progress on it, else the
    // one installed with setCurrent(); nullptr when there is none.
    [[nodiscard]] static RunLoop* current();

    // Installs `loop` (may be nullptr) as the calling thread's current loop and returns the
    // previous one. A program installs its main loop before it creates objects that need it.
    static RunLoop* setCurrent(RunLoop* loop);

    // Installs `loop` as the calling thread's current loop for the lifetime of the scope.
    class CurrentScope {
    public:
        explicit CurrentScope(RunLoop* loop)
            : m_previous(setCurrent(loop)) {}
        ~CurrentScope() { setCurrent(m_previous); }
        CurrentScope(const CurrentScope&) = delete;
        CurrentScope& operator=(const CurrentScope&) = delete;

    private:
        RunLoop* m_previous;
    };

    // Queues `work` to run on the loop's thread, after the work queued before it.
    // Thread-safe: may be called from any thread, also while the loop is not running.
    virtual void post(std::function<void()> work) = 0;

    // Seconds on the loop's monotonic clock (real or virtual); timers fire by this clock.
    // Only differences between readings mean anything.
    [[nodiscard]] virtual double now() const = 0;

    // Calls `callback` on the loop's thread while `fd` is readable (level-triggered: a
    // callback that does not drain the descriptor is called again). Watching stops when the
    // returned handle is destroyed, also from inside the callback. Gives nullptr when the
    // descriptor cannot be watched. REQUIRES: `fd` stays open while the handle lives, and no
    // other handle of this loop watches it. Loop thread only.
    [[nodiscard]] virtual std::unique_ptr<FdWatch> watchReadable(int fd, std::function<void()> callback) = 0;

    // Runs the loop on the calling thread until stop() is called.
    virtual void run() = 0;

    // Makes the run*() call in progress return once the callback that is running returns (the
    // deterministic loop: once it is idle). Has no effect when the loop is not running.
    // Thread-safe.
    virtual void stop() = 0;

    // Runs the loop until `predicate` holds (checked before the first and after every
    // callback), until `timeout` seconds of the loop's clock have passed, or until stop().
    // Returns the predicate's last value.
    virtual bool runUntil(const std::function<bool()>& predicate, double timeout) = 0;

    // Runs the loop for `seconds` of its clock, or until stop().
    void runFor(double seconds);

    // The fire date of the earliest scheduled timer, or nothing when no timer is scheduled.
    [[nodiscard]] std::optional<double> nextTimerDate() const;

protected:
    RunLoop() = default;

    // Fires, in order of fire date, every timer due at or before now(); a repeating timer
    // fires once however many of its intervals have passed. Returns the number fired. Loop
    // thread only.
    std::size_t fireDueTimers();

    // Called after the earliest fire date may have changed, so that a loop that sleeps can
    // set its wake-up. Never called from ~RunLoop.
    virtual void timersChanged() {}

private:
    friend class Timer;

    // Timers ordered by fire date, then by the order in which they were scheduled.
    using TimerKey = std::pair<double, std::uint64_t>;

    [[nodiscard]] TimerKey addTimer(std::shared_ptr<Timer> timer, double fireDate);
    void removeTimer(const TimerKey& key);

    std::map<TimerKey, std::shared_ptr<Timer>> m_timers;
    std::uint64_t m_nextTimerSequence = 0;
    bool m_destroying = false;
};

} // namespace vexo::runtime
