#pragma once

#include <optional>
#include <string>

#include "platform/watchkit/Color.h"
#include "platform/watchkit/InterfaceObject.h"

// An on/off switch with a title; a tap flips it and sends its action. See InterfaceObject
// for ownership and threads.
namespace vexo::watchkit {

class Switch final : public InterfaceObject {
public:
    static constexpr ObjectKind kKind = ObjectKind::Switch;

    explicit Switch(ObjectInit init);
    [[nodiscard]] static Switch& nil();

    void setOn(bool on);
    // The tint of the switch when on; nothing returns to the layout's colour.
    void setColor(std::optional<Color> color);
    // Nothing removes the title.
    void setTitle(std::optional<std::string> title);
    void setEnabled(bool enabled);

    [[nodiscard]] bool isOn() const { return m_on; }
    [[nodiscard]] const std::optional<Color>& color() const { return m_color; }
    [[nodiscard]] const std::optional<std::string>& title() const { return m_title; }
    [[nodiscard]] bool isEnabled() const { return m_enabled; }

private:
    void writeState(nlohmann::json& out, const FrameMap& frames) const override;

    bool m_on;
    std::optional<Color> m_color;
    std::optional<std::string> m_title;
    bool m_enabled;
};

} // namespace vexo::watchkit
