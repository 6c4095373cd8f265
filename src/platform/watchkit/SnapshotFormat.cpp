#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit::snapshot {

nlohmann::json color(const std::optional<Color>& color) {
    if (!color)
        return nullptr;
    return {{"red", color->red}, {"green", color->green}, {"blue", color->blue}, {"alpha", color->alpha}};
}

nlohmann::json rect(const graphics::Rect& rect) {
    return {{"x", rect.x}, {"y", rect.y}, {"width", rect.width}, {"height", rect.height}};
}

double secondsSince1970(std::chrono::system_clock::time_point time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

} // namespace vexo::watchkit::snapshot
