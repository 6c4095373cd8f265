#include "platform/watchkit/ObjectKind.h"

#include <array>
#include <utility>

namespace vexo::watchkit {

namespace {

constexpr std::array<std::pair<ObjectKind, std::string_view>, 9> kNames = {{
    {ObjectKind::Group, "group"},
    {ObjectKind::Button, "button"},
    {ObjectKind::Label, "label"},
    {ObjectKind::Image, "image"},
    {ObjectKind::Slider, "slider"},
    {ObjectKind::Switch, "switch"},
    {ObjectKind::Table, "table"},
    {ObjectKind::Timer, "timer"},
    {ObjectKind::Menu, "menu"},
}};

} // namespace

std::string_view kindName(ObjectKind kind) {
    for (const auto& [candidate, name] : kNames) {
        if (candidate == kind)
            return name;
    }
    return "object";
}

std::optional<ObjectKind> kindNamed(std::string_view name) {
    for (const auto& [kind, candidate] : kNames) {
        if (candidate == name)
            return kind;
    }
    return std::nullopt;
}

} // namespace vexo::watchkit
