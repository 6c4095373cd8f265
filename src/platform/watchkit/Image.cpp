#include "platform/watchkit/Image.h"

namespace vexo::watchkit {

Image::Image(ObjectInit init)
    : InterfaceObject(kKind, std::move(init)) {
    if (layout().image)
        m_image = ImageContent::named(*layout().image);
}

Image& Image::nil() {
    static Image standIn{ObjectInit{}};
    return standIn;
}

void Image::setImageNamed(std::optional<std::string> name) {
    if (acceptChange("setImageNamed") && assignImageNamed(m_image, std::move(name)))
        didChange();
}

void Image::setImageData(std::optional<std::vector<std::uint8_t>> data) {
    if (acceptChange("setImageData") && assignImageData(m_image, std::move(data)))
        didChange();
}

void Image::writeState(nlohmann::json& out, const FrameMap&) const {
    out["image"] = m_image.toJson();
}

} // namespace vexo::watchkit
