#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <variant>

#include <nlohmann/json.hpp>

#include "platform/base/Expected.h"
#include "platform/plist/Value.h"

// The JSON form of the user's input (ExtensionHost::handleEvent) read into typed events,
// without looking at what is on screen: whether an event fits the screen is the host's
// question, whether it is an event at all is this one's.
//
//   {"type": "tap", "object": id}            {"type": "selectRow", "object": id, "row": n}
//   {"type": "slide", "object": id, "value": x}   or "step": n instead of "value"
//   {"type": "flip", "object": id}           (optional "on": state to set)
//   {"type": "swipe", "page": n}             or "direction": "left" / "right"
//   {"type": "openMenu"} {"type": "pickMenuItem", "index": n} {"type": "closeMenu"}
//   {"type": "closeModal"} {"type": "showGlance"} {"type": "hideGlance"}
//   {"type": "notificationAction", "identifier": s, "userInfo": {...}}
//
// Unknown fields, missing or mistyped ones, row and item numbers below 0 and more than
// kMaximumSteps slider steps make an event malformed. Thread-safe.
namespace vexo::watchkit {

namespace input {

struct Tap {
    std::string object;
};
struct SelectRow {
    std::string object;
    std::size_t row = 0;
};
// Exactly one of `value` and `step` is set.
struct Slide {
    std::string object;
    std::optional<float> value;
    std::optional<int> step;
};
struct Flip {
    std::string object;
    std::optional<bool> on;
};
// A page by number, or the next page to one side: a swipe to the left shows the page on the
// right.
struct Swipe {
    enum class Direction { Left, Right };
    std::optional<std::size_t> page;
    Direction direction = Direction::Left;
};
struct OpenMenu {};
struct PickMenuItem {
    std::size_t index = 0;
};
struct CloseMenu {};
struct CloseModal {};
struct ShowGlance {};
struct HideGlance {};
struct NotificationAction {
    std::string identifier;
    // A dictionary, or nothing.
    plist::Value userInfo;
};

using Event = std::variant<Tap, SelectRow, Slide, Flip, Swipe, OpenMenu, PickMenuItem, CloseMenu, CloseModal,
                           ShowGlance, HideGlance, NotificationAction>;

} // namespace input

class EventDecoder {
public:
    static constexpr int kMaximumSteps = 1000;

    // The event `json` stands for, or an InvalidData error "<type>: why" (with "event" for
    // the type when it has none or an unknown one).
    static Expected<input::Event> decode(const nlohmann::json& json);
};

} // namespace vexo::watchkit
