#include "platform/watchkit/Label.h"

#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit {

Label::Label(ObjectInit init)
    : InterfaceObject(kKind, std::move(init)) {
    m_text = layoutText();
    m_textColor = layout().textColor;
}

Label& Label::nil() {
    static Label standIn{ObjectInit{}};
    return standIn;
}

void Label::setText(std::optional<std::string> text) {
    if (!acceptChange("setText") || m_text == text)
        return;
    m_text = std::move(text);
    didChange();
}

void Label::setTextColor(std::optional<Color> color) {
    if (!acceptChange("setTextColor"))
        return;
    if (!color)
        color = layout().textColor;
    if (m_textColor == color)
        return;
    m_textColor = color;
    didChange();
}

void Label::writeState(nlohmann::json& out, const FrameMap&) const {
    out["text"] = snapshot::text(m_text);
    out["textColor"] = snapshot::color(m_textColor);
}

} // namespace vexo::watchkit
