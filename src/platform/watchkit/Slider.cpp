#include "platform/watchkit/Slider.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit {

Slider::Slider(ObjectInit init)
    : InterfaceObject(kKind, std::move(init)),
      m_value(static_cast<float>(layout().value)),
      m_steps(std::max(1, layout().steps)),
      m_color(layout().color),
      m_enabled(layout().enabled) {}

Slider& Slider::nil() {
    static Slider standIn{ObjectInit{}};
    return standIn;
}

void Slider::setValue(float value) {
    // Compared bitwise so that setting NaN again is no change, and NaN over a number is one.
    if (!acceptChange("setValue") || std::memcmp(&m_value, &value, sizeof value) == 0)
        return;
    m_value = value;
    didChange();
}

void Slider::setColor(std::optional<Color> color) {
    if (!acceptChange("setColor"))
        return;
    if (!color)
        color = layout().color;
    if (m_color == color)
        return;
    m_color = color;
    didChange();
}

void Slider::setNumberOfSteps(int steps) {
    steps = std::max(1, steps);
    if (!acceptChange("setNumberOfSteps") || m_steps == steps)
        return;
    m_steps = steps;
    didChange();
}

void Slider::setEnabled(bool enabled) {
    if (!acceptChange("setEnabled") || m_enabled == enabled)
        return;
    m_enabled = enabled;
    didChange();
}

float Slider::clamped(float value) const {
    float low = std::min(minimum(), maximum());
    float high = std::max(minimum(), maximum());
    if (std::isnan(value))
        return low;
    return std::clamp(value, low, high);
}

float Slider::stepped(int steps) const {
    float start = clamped(m_value);
    float stepSize = (maximum() - minimum()) / static_cast<float>(m_steps);
    return clamped(start + stepSize * static_cast<float>(steps));
}

void Slider::writeState(nlohmann::json& out, const FrameMap&) const {
    out["value"] = std::isfinite(m_value) ? nlohmann::json(m_value) : nlohmann::json(nullptr);
    out["minimum"] = minimum();
    out["maximum"] = maximum();
    out["steps"] = m_steps;
    out["color"] = snapshot::color(m_color);
    out["enabled"] = m_enabled;
}

} // namespace vexo::watchkit
