#pragma once

#include <optional>

#include "platform/watchkit/Color.h"
#include "platform/watchkit/InterfaceObject.h"

// A value between the layout's minimum and maximum that the user moves in steps. See
// InterfaceObject for ownership and threads.
namespace vexo::watchkit {

class Slider final : public InterfaceObject {
public:
    static constexpr ObjectKind kKind = ObjectKind::Slider;

    explicit Slider(ObjectInit init);
    [[nodiscard]] static Slider& nil();

    // Kept as given, also outside the range; the face draws it clamped.
    void setValue(float value);
    // Nothing returns to the layout's colour.
    void setColor(std::optional<Color> color);
    // The number of steps from minimum to maximum; at least 1.
    void setNumberOfSteps(int steps);
    void setEnabled(bool enabled);

    [[nodiscard]] float value() const { return m_value; }
    [[nodiscard]] float minimum() const { return static_cast<float>(layout().minimum); }
    [[nodiscard]] float maximum() const { return static_cast<float>(layout().maximum); }
    [[nodiscard]] int numberOfSteps() const { return m_steps; }
    [[nodiscard]] const std::optional<Color>& color() const { return m_color; }
    [[nodiscard]] bool isEnabled() const { return m_enabled; }

    // Where the user's move leaves the value: `value` clamped to the range.
    [[nodiscard]] float clamped(float value) const;
    // Where `steps` steps (negative: down) from the current value leave it, clamped.
    [[nodiscard]] float stepped(int steps) const;

private:
    void writeState(nlohmann::json& out, const FrameMap& frames) const override;

    float m_value;
    int m_steps;
    std::optional<Color> m_color;
    bool m_enabled;
};

} // namespace vexo::watchkit
