#pragma once

#include <unordered_map>

#include "platform/graphics/Rect.h"

namespace vexo::watchkit {

class InterfaceObject;

// The frame of every laid-out object of a screen, in pixels from the top left of the
// screen's content (which may be taller than the face and then scrolls).
using FrameMap = std::unordered_map<const InterfaceObject*, graphics::Rect>;

} // namespace vexo::watchkit
