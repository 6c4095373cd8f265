#include "platform/watchkit/Switch.h"

#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit {

Switch::Switch(ObjectInit init)
    : InterfaceObject(kKind, std::move(init)),
      m_on(layout().on),
      m_color(layout().color),
      m_enabled(layout().enabled) {
    m_title = layoutText();
}

Switch& Switch::nil() {
    static Switch standIn{ObjectInit{}};
    return standIn;
}

void Switch::setOn(bool on) {
    if (!acceptChange("setOn") || m_on == on)
        return;
    m_on = on;
    didChange();
}

void Switch::setColor(std::optional<Color> color) {
    if (!acceptChange("setColor"))
        return;
    if (!color)
        color = layout().color;
    if (m_color == color)
        return;
    m_color = color;
    didChange();
}

void Switch::setTitle(std::optional<std::string> title) {
    if (!acceptChange("setTitle") || m_title == title)
        return;
    m_title = std::move(title);
    didChange();
}

void Switch::setEnabled(bool enabled) {
    if (!acceptChange("setEnabled") || m_enabled == enabled)
        return;
    m_enabled = enabled;
    didChange();
}

void Switch::writeState(nlohmann::json& out, const FrameMap&) const {
    out["on"] = m_on;
    out["color"] = snapshot::color(m_color);
    out["title"] = snapshot::text(m_title);
    out["enabled"] = m_enabled;
}

} // namespace vexo::watchkit
