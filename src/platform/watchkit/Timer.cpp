#include "platform/watchkit/Timer.h"

#include "platform/watchkit/Screen.h"
#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit {

Timer::Timer(ObjectInit init)
    : InterfaceObject(kKind, std::move(init)),
      m_running(layout().running) {
    m_date = now();
}

Timer& Timer::nil() {
    static Timer standIn{ObjectInit{}};
    return standIn;
}

void Timer::setDate(Clock::time_point date) {
    if (!acceptChange("setDate") || m_date == date)
        return;
    m_date = date;
    didChange();
}

void Timer::start() {
    if (!acceptChange("start") || m_running)
        return;
    m_running = true;
    m_stoppedAt.reset();
    didChange();
}

void Timer::stop() {
    if (!acceptChange("stop") || !m_running)
        return;
    m_running = false;
    m_stoppedAt = now();
    didChange();
}

Timer::Clock::time_point Timer::now() const {
    return screen() ? screen()->now() : Clock::now();
}

void Timer::writeState(nlohmann::json& out, const FrameMap&) const {
    out["date"] = snapshot::secondsSince1970(m_date);
    out["running"] = m_running;
    out["stoppedAt"] = m_stoppedAt ? nlohmann::json(snapshot::secondsSince1970(*m_stoppedAt)) : nlohmann::json(nullptr);
}

} // namespace vexo::watchkit
