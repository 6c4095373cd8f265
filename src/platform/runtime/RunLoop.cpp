#include "platform/runtime/RunLoop.h"

#include "platform/runtime/Timer.h"

namespace vexo::runtime {
namespace {

thread_local RunLoop* t_currentLoop = nullptr;

} // namespace

RunLoop::~RunLoop() {
    m_destroying = true;
    // Detach every timer before any callback is released: releasing one may run destructors
    // that invalidate other timers, and those must no longer reach this loop.
    auto timers = std::move(m_timers);
    m_timers.clear();
    for (auto& [key, timer] : timers)
        timer->detachFromLoop();
    timers.clear();
    if (t_currentLoop == this)
        t_currentLoop = nullptr;
}

RunLoop* RunLoop::current() {
    return t_currentLoop;
}

RunLoop* RunLoop::setCurrent(RunLoop* loop) {
    return std::exchange(t_currentLoop, loop);
}

void RunLoop::runFor(double seconds) {
    (void)runUntil([] { return false; }, seconds);
}

std::optional<double> RunLoop::nextTimerDate() const {
    if (m_timers.empty())
        return std::nullopt;
    return m_timers.begin()->first.first;
}

std::size_t RunLoop::fireDueTimers() {
    const double time = now();
    std::size_t fired = 0;
    while (!m_timers.empty()) {
        auto first = m_timers.begin();
        if (first->first.first > time)
            break;
        // The local reference keeps a one-shot timer alive through its callback.
        std::shared_ptr<Timer> timer = std::move(first->second);
        m_timers.erase(first);
        timer->fireScheduled(time);
        ++fired;
    }
    timersChanged();
    return fired;
}

RunLoop::TimerKey RunLoop::addTimer(std::shared_ptr<Timer> timer, double fireDate) {
    const TimerKey key{fireDate, m_nextTimerSequence++};
    m_timers.emplace(key, std::move(timer));
    timersChanged();
    return key;
}

void RunLoop::removeTimer(const TimerKey& key) {
    m_timers.erase(key);
    if (!m_destroying)
        timersChanged();
}

} // namespace vexo::runtime
