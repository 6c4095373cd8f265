#include "platform/watchkit/EventDecoder.h"

#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <string_view>

#include "platform/plist/Json.h"

namespace vexo::watchkit {

namespace {

// The first field of `event` besides "type" that is not in `allowed`.
std::optional<std::string> unknownField(const nlohmann::json& event, std::initializer_list<std::string_view> allowed) {
    for (const auto& [key, value] : event.items()) {
        if (key == "type")
            continue;
        bool known = false;
        for (std::string_view name : allowed)
            known = known || key == name;
        if (!known)
            return "unknown field '" + key + "'";
    }
    return std::nullopt;
}

std::optional<std::string> stringField(const nlohmann::json& event, const char* key, std::string& error) {
    auto found = event.find(key);
    if (found == event.end() || !found->is_string()) {
        error = std::string("needs \"") + key + "\" as a string";
        return std::nullopt;
    }
    return found->get<std::string>();
}

std::optional<std::size_t> indexField(const nlohmann::json& event, const char* key, std::string& error) {
    auto found = event.find(key);
    if (found == event.end() || !found->is_number_integer() || found->get<std::int64_t>() < 0) {
        error = std::string("needs \"") + key + "\" as a whole number of at least 0";
        return std::nullopt;
    }
    return static_cast<std::size_t>(found->get<std::uint64_t>());
}

std::optional<input::Event> decodeFields(const std::string& type, const nlohmann::json& event, std::string& error) {
    auto fieldsAre = [&](std::initializer_list<std::string_view> allowed) {
        if (auto unknown = unknownField(event, allowed)) {
            error = *unknown;
            return false;
        }
        return true;
    };

    if (type == "tap") {
        if (fieldsAre({"object"}))
            if (auto id = stringField(event, "object", error))
                return input::Tap{*id};
    } else if (type == "selectRow") {
        if (fieldsAre({"object", "row"}))
            if (auto id = stringField(event, "object", error))
                if (auto row = indexField(event, "row", error))
                    return input::SelectRow{*id, *row};
    } else if (type == "slide") {
        if (fieldsAre({"object", "value", "step"}))
            if (auto id = stringField(event, "object", error)) {
                auto value = event.find("value");
                auto step = event.find("step");
                if ((value == event.end()) == (step == event.end()))
                    error = "needs either \"value\" or \"step\"";
                else if (value != event.end() && !value->is_number())
                    error = "needs \"value\" as a number";
                else if (step != event.end() && (!step->is_number_integer() ||
                                                 std::abs(step->get<std::int64_t>()) > EventDecoder::kMaximumSteps))
                    error = "needs \"step\" as a whole number of steps";
                else if (value != event.end())
                    return input::Slide{*id, value->get<float>(), std::nullopt};
                else
                    return input::Slide{*id, std::nullopt, static_cast<int>(step->get<std::int64_t>())};
            }
    } else if (type == "flip") {
        if (fieldsAre({"object", "on"}))
            if (auto id = stringField(event, "object", error)) {
                auto on = event.find("on");
                if (on == event.end())
                    return input::Flip{*id, std::nullopt};
                if (on->is_boolean())
                    return input::Flip{*id, on->get<bool>()};
                error = "needs \"on\" as true or false";
            }
    } else if (type == "swipe") {
        if (fieldsAre({"page", "direction"})) {
            if (event.contains("page")) {
                if (auto page = indexField(event, "page", error))
                    return input::Swipe{*page, input::Swipe::Direction::Left};
            } else if (event.value("direction", "") == "left") {
                return input::Swipe{std::nullopt, input::Swipe::Direction::Left};
            } else if (event.value("direction", "") == "right") {
                return input::Swipe{std::nullopt, input::Swipe::Direction::Right};
            } else {
                error = "needs \"page\", or \"direction\" as \"left\" or \"right\"";
            }
        }
    } else if (type == "openMenu" || type == "closeMenu" || type == "closeModal" || type == "showGlance" ||
               type == "hideGlance") {
        if (fieldsAre({})) {
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
    } else if (type == "pickMenuItem") {
        if (fieldsAre({"index"}))
            if (auto index = indexField(event, "index", error))
                return input::PickMenuItem{*index};
    } else if (type == "notificationAction") {
        if (fieldsAre({"identifier", "userInfo"}))
            if (auto identifier = stringField(event, "identifier", error)) {
                auto info = event.find("userInfo");
                if (info == event.end() || info->is_null())
                    return input::NotificationAction{*identifier, plist::Value()};
                std::string conversionError;
                std::optional<plist::Value> converted = plist::json::fromJson(*info, conversionError);
                if (converted && info->is_object())
                    return input::NotificationAction{*identifier, std::move(*converted)};
                error = "needs \"userInfo\" as an object" +
                        (conversionError.empty() ? std::string() : ": " + conversionError);
            }
    } else {
        error = "unknown type '" + type + "'";
    }
    return std::nullopt;
}

} // namespace

EventDecoder::Result EventDecoder::decode(const nlohmann::json& json) {
    if (!json.is_object() || !json.contains("type") || !json["type"].is_string())
        return {std::nullopt, "event", "an event is a JSON object with a \"type\""};
    Result result;
    result.type = json["type"].get<std::string>();
    result.event = decodeFields(result.type, json, result.error);
    if (!result.event && result.error.rfind("unknown type", 0) == 0)
        result.type = "event";
    return result;
}

} // namespace vexo::watchkit
