#include "platform/runtime/Timer.h"

#include <cmath>
#include <stdexcept>
#include <utility>

namespace vexo::runtime {
namespace {

// The host platform's floor for a timer interval.
constexpr double kMinimumInterval = 0.0001;
// About 30 years: keeps every fire date representable on a nanosecond clock.
constexpr double kMaximumInterval = 1e9;

double clampedInterval(double interval) {
    if (!(interval > kMinimumInterval)) // also catches NaN
        return kMinimumInterval;
    return interval < kMaximumInterval ? interval : kMaximumInterval;
}

} // namespace

Timer::Timer(RunLoop& loop, double interval, Repeats repeats, Callback callback)
    : m_loop(&loop),
      m_interval(clampedInterval(interval)),
      m_repeats(repeats == Repeats::Yes),
      m_callback(std::make_shared<Callback>(std::move(callback))) {}

std::shared_ptr<Timer> Timer::scheduledTimer(double interval, Repeats repeats, Callback callback) {
    RunLoop* loop = RunLoop::current();
    if (loop == nullptr)
        throw std::logic_error("Timer::scheduledTimer: the calling thread has no current run loop");
    return scheduledTimer(*loop, interval, repeats, std::move(callback));
}

std::shared_ptr<Timer> Timer::scheduledTimer(RunLoop& loop, double interval, Repeats repeats, Callback callback) {
    std::shared_ptr<Timer> timer(new Timer(loop, interval, repeats, std::move(callback)));
    timer->m_key = loop.addTimer(timer, loop.now() + timer->m_interval);
    return timer;
}

void Timer::invalidate() {
    if (!m_valid)
        return;
    // The loop may hold the last reference; keep this timer alive until we return.
    const std::shared_ptr<Timer> self = shared_from_this();
    m_valid = false;
    const std::shared_ptr<Callback> callback = std::exchange(m_callback, nullptr);
    if (RunLoop* loop = std::exchange(m_loop, nullptr))
        loop->removeTimer(m_key);
}

void Timer::fire() {
    if (!m_valid)
        return;
    const std::shared_ptr<Timer> self = shared_from_this();
    const std::shared_ptr<Callback> callback = m_callback;
    if (*callback)
        (*callback)(*this);
    if (!m_repeats)
        invalidate();
}

void Timer::fireScheduled(double now) {
    if (!m_valid || m_loop == nullptr)
        return;
    if (m_repeats) {
        // Keep to the schedule, skipping every fire date that has already passed.
        const double skipped = std::floor((now - m_key.first) / m_interval);
        double next = m_key.first + m_interval * (skipped + 1);
        if (!(next > now))
            next = now + m_interval;
        m_key = m_loop->addTimer(shared_from_this(), next);
    }
    fire();
}

void Timer::detachFromLoop() {
    m_loop = nullptr;
    m_valid = false;
    m_callback.reset();
}

} // namespace vexo::runtime
