#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/watchkit/Color.h"
#include "platform/watchkit/InterfaceObject.h"

// A container that stacks its objects, with a background image (by asset name or as data),
// a background colour, and the image animation its layout gives it. See InterfaceObject
// for ownership and threads.
namespace vexo::watchkit {

class Group final : public InterfaceObject {
public:
    static constexpr ObjectKind kKind = ObjectKind::Group;

    // Made by a Screen (or, with an empty init, the nil stand-in).
    explicit Group(ObjectInit init);

    // The stand-in that an empty Outlet<Group> hands out.
    [[nodiscard]] static Group& nil();

    // Shows the asset `name` behind the group's objects; nothing removes the image.
    void setBackgroundImageNamed(std::optional<std::string> name);
    // Shows encoded image `data` behind the group's objects; nothing removes the image.
    void setBackgroundImageData(std::optional<std::vector<std::uint8_t>> data);
    // Nothing removes the colour.
    void setBackgroundColor(std::optional<Color> color);

    // Plays the layout's animation from its first frame (again, when it is running);
    // does nothing when the layout gives the group no animation.
    void startAnimating();
    // Stops the animation where it is.
    void stopAnimating();

    [[nodiscard]] const ImageContent& backgroundImage() const { return m_backgroundImage; }
    [[nodiscard]] const std::optional<Color>& backgroundColor() const { return m_backgroundColor; }
    [[nodiscard]] bool isAnimating() const { return m_animating; }
    // How many times the animation has been started; tells a restart from a running one.
    [[nodiscard]] int animationStartCount() const { return m_animationStarts; }

private:
    void writeState(nlohmann::json& out, const FrameMap& frames) const override;

    ImageContent m_backgroundImage;
    std::optional<Color> m_backgroundColor;
    bool m_animating = false;
    int m_animationStarts = 0;
};

} // namespace vexo::watchkit
