#pragma once

#include <chrono>
#include <optional>

#include "platform/watchkit/InterfaceObject.h"

// A running clock that shows the time from or to its date; the face does the counting.
// The date starts as the moment the timer was made. See InterfaceObject for ownership and
// threads.
namespace vexo::watchkit {

class Timer final : public InterfaceObject {
public:
    static constexpr ObjectKind kKind = ObjectKind::Timer;
    using Clock = std::chrono::system_clock;

    explicit Timer(ObjectInit init);
    [[nodiscard]] static Timer& nil();

    void setDate(Clock::time_point date);
    // Starts counting (again); does nothing while counting.
    void start();
    // Stops counting; the shown value stays as it was at this moment.
    void stop();

    [[nodiscard]] Clock::time_point date() const { return m_date; }
    [[nodiscard]] bool isRunning() const { return m_running; }
    // When it was stopped; nothing while running or before it first ran.
    [[nodiscard]] const std::optional<Clock::time_point>& stoppedAt() const { return m_stoppedAt; }

private:
    void writeState(nlohmann::json& out, const FrameMap& frames) const override;
    [[nodiscard]] Clock::time_point now() const;

    Clock::time_point m_date;
    bool m_running;
    std::optional<Clock::time_point> m_stoppedAt;
};

} // namespace vexo::watchkit
