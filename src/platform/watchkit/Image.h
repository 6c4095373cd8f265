#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/watchkit/InterfaceObject.h"

// A picture, by asset name or as encoded data. See InterfaceObject for ownership and threads.
namespace vexo::watchkit {

class Image final : public InterfaceObject {
public:
    static constexpr ObjectKind kKind = ObjectKind::Image;

    explicit Image(ObjectInit init);
    [[nodiscard]] static Image& nil();

    // Nothing clears the image.
    void setImageNamed(std::optional<std::string> name);
    // Nothing clears the image.
    void setImageData(std::optional<std::vector<std::uint8_t>> data);

    [[nodiscard]] const ImageContent& image() const { return m_image; }

private:
    void writeState(nlohmann::json& out, const FrameMap& frames) const override;

    ImageContent m_image;
};

} // namespace vexo::watchkit
