#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/watchkit/Color.h"
#include "platform/watchkit/ObjectKind.h"

// One interface object as the layout file describes it: what it is, how it is placed,
// what the loader wires to it, and the state it starts with. Plain data, made by the
// LayoutLoader; objects on screen keep a pointer to theirs, so a layout never changes once
// loaded.
//
// Sizes are in pixels of the watch face. Objects stack inside their group, horizontally or
// vertically; hidden objects take no room (see StackLayout).
namespace vexo::watchkit {

struct Dimension {
    enum class Mode {
        Fill,     // the room left in the stacking direction, shared; the whole room across it
        Fit,      // the size of the content
        Fixed,    // `value` pixels
        Relative, // `value` times the size of the container
    };
    Mode mode = Mode::Fill;
    double value = 0;
};

enum class Orientation { Horizontal, Vertical };
enum class HorizontalAlignment { Left, Center, Right };
enum class VerticalAlignment { Top, Center, Bottom };

struct Insets {
    double top = 0;
    double left = 0;
    double bottom = 0;
    double right = 0;
};

// A group's image animation: the frames by asset name, played over `duration` seconds,
// `repeatCount` times (0 repeats for ever).
struct AnimationLayout {
    std::vector<std::string> frames;
    double duration = 1.0;
    int repeatCount = 0;
};

// A modal presentation that a button makes without code; the presenting controller gives
// the context (InterfaceController::contextForSegueWithIdentifier).
struct SegueLayout {
    std::string identifier;
    std::string destination;
};

// A button with no action of its own that moves a slider of its controller when tapped:
// `by` of the slider's steps (negative toward the minimum), as the slider's own action would.
struct SliderStepLayout {
    std::string slider; // the slider's outlet
    int by = 1;
};

struct RowTypeLayout;

struct ObjectLayout {
    ObjectKind kind = ObjectKind::Group;
    // Where the object sits in the file, for messages: "mainGroup/playGroup/playButton".
    std::string path;

    std::optional<std::string> outlet;
    std::optional<std::string> action;
    std::optional<SegueLayout> segue;
    std::optional<SliderStepLayout> adjusts; // buttons

    // What a screen reader calls the object (a text of the string tables). A button whose
    // meaning follows its background image names it per image asset: the entry of the image
    // shown wins over `accessibilityLabel`.
    std::optional<std::string> accessibilityLabel;
    std::map<std::string, std::string, std::less<>> accessibilityLabelByImage;

    Dimension width;
    Dimension height;
    HorizontalAlignment horizontalAlignment = HorizontalAlignment::Left;
    VerticalAlignment verticalAlignment = VerticalAlignment::Top;

    // Groups, buttons with content, and row groups.
    Orientation orientation = Orientation::Horizontal;
    double spacing = 4;
    Insets insets;

    // Initial state; each kind reads the fields it has.
    std::optional<std::string> text;      // label text, button and switch title
    std::optional<std::string> image;     // image, or background image of a group or button
    std::optional<Color> textColor;       // label
    std::optional<Color> backgroundColor; // group, button
    std::optional<Color> color;           // slider, switch
    bool hidden = false;
    bool enabled = true;                      // button, slider, switch
    bool on = false;                          // switch
    bool running = false;                     // timer: counting from the start
    double value = 0;                         // slider
    double minimum = 0;                       // slider
    double maximum = 1;                       // slider
    int steps = 10;                           // slider
    std::optional<AnimationLayout> animation; // group

    // Presentation hints (font, alignment, corner radius, ...) handed to the snapshot as
    // they are written; the runtime does not read them.
    nlohmann::json style = nlohmann::json::object();

    std::vector<ObjectLayout> children;  // groups and buttons
    std::vector<RowTypeLayout> rowTypes; // tables

    // The row type named `identifier`, or nullptr. Tables only.
    [[nodiscard]] const RowTypeLayout* rowType(std::string_view identifier) const;
};

// One row type of a table: its identifier, its row controller class (none gives a plain
// RowController), whether a tap selects it, and the group that holds the row's objects.
struct RowTypeLayout {
    std::string identifier;
    std::optional<std::string> className;
    bool selectable = true;
    ObjectLayout group;
};

inline const RowTypeLayout* ObjectLayout::rowType(std::string_view identifier) const {
    for (const RowTypeLayout& candidate : rowTypes) {
        if (candidate.identifier == identifier)
            return &candidate;
    }
    return nullptr;
}

} // namespace vexo::watchkit
