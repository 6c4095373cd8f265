#pragma once

#include "platform/watchkit/FrameMap.h"

// Places the objects of a screen: each group stacks its visible objects horizontally or
// vertically with its spacing and insets, sizing each by its layout's width and height
// (fixed pixels, a share of the container, the content, or the room left), and placing it
// across by its alignment. Along the stack, objects aligned to the start are packed there,
// those aligned to the end are packed at the end, and centred ones sit in the middle of
// what is left. Hidden objects take no room. A table stacks its rows vertically.
//
// The screen's objects stack vertically in a column as wide as the face; content taller
// than the face scrolls. Objects that fit their content without any (leaves) take the
// width offered and a height by kind.
namespace vexo::watchkit {

class Screen;

class StackLayout {
public:
    struct Result {
        FrameMap frames;
        // The height of the screen's content: at least the face's height.
        double contentHeight = 0;
    };

    // Frames of every visible object of `screen`, table rows included, on a face of
    // `width` x `height` pixels.
    [[nodiscard]] static Result layoutScreen(const Screen& screen, double width, double height);
};

} // namespace vexo::watchkit
