#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/watchkit/Color.h"
#include "platform/watchkit/InterfaceObject.h"

// A button: a title or content objects over a background image or colour; a tap sends its
// action (or performs its segue) unless it is disabled or hidden. See InterfaceObject for
// ownership and threads.
namespace vexo::watchkit {

class Button final : public InterfaceObject {
public:
    static constexpr ObjectKind kKind = ObjectKind::Button;

    explicit Button(ObjectInit init);
    [[nodiscard]] static Button& nil();

    // Nothing removes the title.
    void setTitle(std::optional<std::string> title);
    // Shows the asset `name`; nothing removes the background image.
    void setBackgroundImageNamed(std::optional<std::string> name);
    // Shows encoded image `data`; nothing removes the background image.
    void setBackgroundImageData(std::optional<std::vector<std::uint8_t>> data);
    // Nothing removes the colour.
    void setBackgroundColor(std::optional<Color> color);
    void setEnabled(bool enabled);

    [[nodiscard]] const std::optional<std::string>& title() const { return m_title; }
    [[nodiscard]] const ImageContent& backgroundImage() const { return m_backgroundImage; }
    [[nodiscard]] const std::optional<Color>& backgroundColor() const { return m_backgroundColor; }
    [[nodiscard]] bool isEnabled() const { return m_enabled; }

private:
    void writeState(nlohmann::json& out, const FrameMap& frames) const override;

    std::optional<std::string> m_title;
    ImageContent m_backgroundImage;
    std::optional<Color> m_backgroundColor;
    bool m_enabled;
};

} // namespace vexo::watchkit
