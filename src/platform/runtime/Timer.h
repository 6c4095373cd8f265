#pragma once

#include <functional>
#include <memory>

#include "platform/runtime/RunLoop.h"

// A one-shot or repeating timer on a run loop, with the host platform's timer rules:
//
// - A timer is scheduled when it is made and stays scheduled until it is invalidated; the
//   loop keeps it alive meanwhile, so holding the returned pointer is optional.
// - A repeating timer keeps to its schedule: its next fire date is its previous fire date
//   plus the interval. When it fires late, past one or more fire dates, it fires once and is
//   rescheduled for the next fire date after now: no burst to catch up.
// - A one-shot timer is still valid inside its callback and invalid after it.
// - An interval of zero or less is taken as 0.1 ms.
//
// Every member is for the loop's thread only.
namespace vexo::runtime {

class Timer : public std::enable_shared_from_this<Timer> {
public:
    // Receives the timer that fired, so that a callback can invalidate its own timer.
    using Callback = std::function<void(Timer&)>;

    enum class Repeats { No, Yes };

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    Timer(Timer&&) = delete;
    Timer& operator=(Timer&&) = delete;
    ~Timer() = default;

    // Schedules a timer on the calling thread's current loop that first fires `interval`
    // seconds from now. Throws std::logic_error when the thread has no current loop.
    static std::shared_ptr<Timer> scheduledTimer(double interval, Repeats repeats, Callback callback);

    // Schedules a timer on `loop`. REQUIRES: called on `loop`'s thread.
    static std::shared_ptr<Timer> scheduledTimer(RunLoop& loop, double interval, Repeats repeats, Callback callback);

    // Unschedules the timer and releases its callback (after the callback returns, when
    // called from inside it). Idempotent.
    void invalidate();

    // True from scheduling until invalidation (or until a one-shot timer has fired).
    [[nodiscard]] bool isValid() const { return m_valid; }

    // The repeat interval in seconds; 0 for a one-shot timer, as on the host platform.
    [[nodiscard]] double timeInterval() const { return m_repeats ? m_interval : 0; }

    [[nodiscard]] bool repeats() const { return m_repeats; }

    // The next fire date on the loop's clock (RunLoop::now()); meaningless once invalid.
    [[nodiscard]] double fireDate() const { return m_key.first; }

    // Calls the callback now without changing the repeating schedule; a one-shot timer is
    // invalidated afterwards. Does nothing when the timer is invalid.
    void fire();

private:
    friend class RunLoop;

    Timer(RunLoop& loop, double interval, Repeats repeats, Callback callback);

    // Called by the loop when the fire date has come; `now` is the loop's time.
    void fireScheduled(double now);
    // Called by a loop being destroyed: forget the loop without calling into it.
    void detachFromLoop();

    RunLoop* m_loop;
    double m_interval;
    bool m_repeats;
    bool m_valid = true;
    // Shared so that a callback that invalidates its own timer is not destroyed while running.
    std::shared_ptr<Callback> m_callback;
    RunLoop::TimerKey m_key{};
};

} // namespace vexo::runtime
