#pragma once

#include <optional>
#include <string>

#include "platform/watchkit/Color.h"
#include "platform/watchkit/InterfaceObject.h"

// A text with a colour. See InterfaceObject for ownership and threads.
namespace vexo::watchkit {

class Label final : public InterfaceObject {
public:
    static constexpr ObjectKind kKind = ObjectKind::Label;

    explicit Label(ObjectInit init);
    [[nodiscard]] static Label& nil();

    // Nothing clears the label; an empty text is a text.
    void setText(std::optional<std::string> text);
    // Nothing returns to the layout's colour.
    void setTextColor(std::optional<Color> color);

    [[nodiscard]] const std::optional<std::string>& text() const { return m_text; }
    [[nodiscard]] const std::optional<Color>& textColor() const { return m_textColor; }

private:
    void writeState(nlohmann::json& out, const FrameMap& frames) const override;

    std::optional<std::string> m_text;
    std::optional<Color> m_textColor;
};

} // namespace vexo::watchkit
