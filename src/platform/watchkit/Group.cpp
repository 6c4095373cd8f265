#include "platform/watchkit/Group.h"

#include "platform/log/Log.h"
#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit {

Group::Group(ObjectInit init)
    : InterfaceObject(kKind, std::move(init)) {
    if (layout().image)
        m_backgroundImage = ImageContent::named(*layout().image);
    m_backgroundColor = layout().backgroundColor;
}

Group& Group::nil() {
    static Group standIn{ObjectInit{}};
    return standIn;
}

void Group::setBackgroundImageNamed(std::optional<std::string> name) {
    if (acceptChange("setBackgroundImageNamed") && assignImageNamed(m_backgroundImage, std::move(name)))
        didChange();
}

void Group::setBackgroundImageData(std::optional<std::vector<std::uint8_t>> data) {
    if (acceptChange("setBackgroundImageData") && assignImageData(m_backgroundImage, std::move(data)))
        didChange();
}

void Group::setBackgroundColor(std::optional<Color> color) {
    if (!acceptChange("setBackgroundColor") || m_backgroundColor == color)
        return;
    m_backgroundColor = color;
    didChange();
}

void Group::startAnimating() {
    if (!acceptChange("startAnimating"))
        return;
    if (!layout().animation) {
        log::debug("watchkit", "group " + identifier() + " has no animation to start");
        return;
    }
    m_animating = true;
    ++m_animationStarts;
    didChange();
}

void Group::stopAnimating() {
    if (!acceptChange("stopAnimating") || !m_animating)
        return;
    m_animating = false;
    didChange();
}

void Group::writeState(nlohmann::json& out, const FrameMap&) const {
    out["backgroundImage"] = m_backgroundImage.toJson();
    out["backgroundColor"] = snapshot::color(m_backgroundColor);
    if (const auto& animation = layout().animation) {
        out["animation"] = {{"frames", animation->frames},
                            {"duration", animation->duration},
                            {"repeatCount", animation->repeatCount},
                            {"running", m_animating},
                            {"startCount", m_animationStarts}};
    }
}

} // namespace vexo::watchkit
