#include "platform/watchkit/Button.h"

#include "platform/watchkit/Screen.h"
#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit {

Button::Button(ObjectInit init)
    : InterfaceObject(kKind, std::move(init)),
      m_enabled(layout().enabled) {
    m_title = layoutText();
    if (layout().image)
        m_backgroundImage = ImageContent::named(*layout().image);
    m_backgroundColor = layout().backgroundColor;
}

Button& Button::nil() {
    static Button standIn{ObjectInit{}};
    return standIn;
}

void Button::setTitle(std::optional<std::string> title) {
    if (!acceptChange("setTitle") || m_title == title)
        return;
    m_title = std::move(title);
    didChange();
}

void Button::setBackgroundImageNamed(std::optional<std::string> name) {
    if (acceptChange("setBackgroundImageNamed") && assignImageNamed(m_backgroundImage, std::move(name)))
        didChange();
}

void Button::setBackgroundImageData(std::optional<std::vector<std::uint8_t>> data) {
    if (acceptChange("setBackgroundImageData") && assignImageData(m_backgroundImage, std::move(data)))
        didChange();
}

void Button::setBackgroundColor(std::optional<Color> color) {
    if (!acceptChange("setBackgroundColor") || m_backgroundColor == color)
        return;
    m_backgroundColor = color;
    didChange();
}

void Button::setEnabled(bool enabled) {
    if (!acceptChange("setEnabled") || m_enabled == enabled)
        return;
    m_enabled = enabled;
    didChange();
}

void Button::writeState(nlohmann::json& out, const FrameMap&) const {
    out["title"] = snapshot::text(m_title);
    out["backgroundImage"] = m_backgroundImage.toJson();
    out["backgroundColor"] = snapshot::color(m_backgroundColor);
    out["enabled"] = m_enabled;
    if (const std::string* name = m_backgroundImage.name()) {
        const auto& byImage = layout().accessibilityLabelByImage;
        if (auto label = byImage.find(*name); label != byImage.end())
            out["accessibilityLabel"] = snapshot::text(localized(label->second));
    }
    if (layout().adjusts) {
        // Named by identifier, as input events name it; nothing while the screen is gone.
        std::shared_ptr<InterfaceObject> slider =
            screen() ? screen()->objectForOutlet(layout().adjusts->slider) : nullptr;
        if (slider)
            out["adjusts"] = {{"slider", slider->identifier()}, {"by", layout().adjusts->by}};
    }
}

} // namespace vexo::watchkit
