#include "platform/watchkit/EventDecoder.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "platform/plist/Json.h"

namespace vexo::watchkit {

namespace {

using FieldNames = std::vector<std::string_view>;

// The fields an event of `type` may have besides "type"; nothing for an unknown type.
std::optional<FieldNames> fieldsOf(std::string_view type) {
    if (type == "tap")
        return FieldNames{"object"};
    if (type == "selectRow")
        return FieldNames{"object", "row"};
    if (type == "slide")
        return FieldNames{"object", "value", "step"};
    if (type == "flip")
        return FieldNames{"object", "on"};
    if (type == "swipe")
        return FieldNames{"page", "direction"};
    if (type == "pickMenuItem")
        return FieldNames{"index"};
    if (type == "notificationAction")
        return FieldNames{"identifier", "userInfo"};
    if (type == "openMenu" || type == "closeMenu" || type == "closeModal" || type == "showGlance" ||
        type == "hideGlance")
        return FieldNames{};
    return std::nullopt;
}

// The first field of `event` besides "type" that is not in `allowed`.
std::optional<std::string> unknownField(const nlohmann::json& event, const FieldNames& allowed) {
    for (const auto& [key, value] : event.items()) {
        if (key != "type" && std::find(allowed.begin(), allowed.end(), key) == allowed.end())
            return "unknown field '" + key + "'";
    }
    return std::nullopt;
}

Error malformed(std::string reason) {
    return Error(ErrorKind::InvalidData, std::move(reason));
}

Expected<std::string> stringField(const nlohmann::json& event, const char* key) {
    auto found = event.find(key);
    if (found == event.end() || !found->is_string())
        return malformed(std::string("needs \"") + key + "\" as a string");
    return found->get<std::string>();
}

Expected<std::size_t> indexField(const nlohmann::json& event, const char* key) {
    auto found = event.find(key);
    if (found == event.end() || !found->is_number_integer() || found->get<std::int64_t>() < 0)
        return malformed(std::string("needs \"") + key + "\" as a whole number of at least 0");
    return static_cast<std::size_t>(found->get<std::uint64_t>());
}

Expected<input::Event> decodeSlide(const nlohmann::json& event, std::string object) {
    auto value = event.find("value");
    auto step = event.find("step");
    if ((value == event.end()) == (step == event.end()))
        return malformed("needs either \"value\" or \"step\"");
    if (value != event.end()) {
        if (!value->is_number())
            return malformed("needs \"value\" as a number");
        return input::Slide{std::move(object), value->get<float>(), std::nullopt};
    }
    if (!step->is_number_integer() || std::abs(step->get<std::int64_t>()) > EventDecoder::kMaximumSteps)
        return malformed("needs \"step\" as a whole number of steps");
    return input::Slide{std::move(object), std::nullopt, static_cast<int>(step->get<std::int64_t>())};
}

Expected<input::Event> decodeSwipe(const nlohmann::json& event) {
    if (event.contains("page")) {
        auto page = indexField(event, "page");
        if (!page)
            return std::move(page).error();
        return input::Swipe{*page, input::Swipe::Direction::Left};
    }
    if (event.value("direction", "") == "left")
        return input::Swipe{std::nullopt, input::Swipe::Direction::Left};
    if (event.value("direction", "") == "right")
        return input::Swipe{std::nullopt, input::Swipe::Direction::Right};
    return malformed("needs \"page\", or \"direction\" as \"left\" or \"right\"");
}

Expected<input::Event> decodeNotificationAction(const nlohmann::json& event, std::string identifier) {
    auto info = event.find("userInfo");
    if (info == event.end() || info->is_null())
        return input::NotificationAction{std::move(identifier), plist::Value()};
    Expected<plist::Value> converted = plist::json::fromJson(*info);
    if (!converted)
        return malformed("needs \"userInfo\" as an object: " + converted.error().message());
    if (!info->is_object())
        return malformed("needs \"userInfo\" as an object");
    return input::NotificationAction{std::move(identifier), std::move(converted).value()};
}

// The event of `type` in `event`, whose fields may be `allowed`, or why it is none (without
// the type in front).
Expected<input::Event> decodeFields(const std::string& type, const FieldNames& allowed, const nlohmann::json& event) {
    if (auto unknown = unknownField(event, allowed))
        return malformed(*unknown);

    if (type == "swipe")
        return decodeSwipe(event);
    if (type == "pickMenuItem") {
        auto index = indexField(event, "index");
        if (!index)
            return std::move(index).error();
        return input::PickMenuItem{*index};
    }
    if (allowed.empty()) {
        if (type == "openMenu")
            return input::OpenMenu{};
        if (type == "closeMenu")
            return input::CloseMenu{};
        if (type == "closeModal")
            return input::CloseModal{};
        if (type == "showGlance")
            return input::ShowGlance{};
        return input::HideGlance{};
    }

    // The rest name what they act on first.
    auto name = stringField(event, type == "notificationAction" ? "identifier" : "object");
    if (!name)
        return std::move(name).error();
    std::string& id = *name;
    if (type == "tap")
        return input::Tap{std::move(id)};
    if (type == "selectRow") {
        auto row = indexField(event, "row");
        if (!row)
            return std::move(row).error();
        return input::SelectRow{std::move(id), *row};
    }
    if (type == "slide")
        return decodeSlide(event, std::move(id));
    if (type == "flip") {
        auto on = event.find("on");
        if (on == event.end())
            return input::Flip{std::move(id), std::nullopt};
        if (!on->is_boolean())
            return malformed("needs \"on\" as true or false");
        return input::Flip{std::move(id), on->get<bool>()};
    }
    return decodeNotificationAction(event, std::move(id));
}

} // namespace

Expected<input::Event> EventDecoder::decode(const nlohmann::json& json) {
    if (!json.is_object() || !json.contains("type") || !json["type"].is_string())
        return malformed("event: an event is a JSON object with a \"type\"");
    const std::string type = json["type"].get<std::string>();
    const std::optional<FieldNames> allowed = fieldsOf(type);
    // An unknown type is no name to show the reason under.
    if (!allowed)
        return malformed("event: unknown type '" + type + "'");
    Expected<input::Event> event = decodeFields(type, *allowed, json);
    if (!event)
        return std::move(event).error().withContext(type);
    return event;
}

} // namespace vexo::watchkit
