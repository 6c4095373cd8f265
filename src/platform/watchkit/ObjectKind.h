#pragma once

#include <optional>
#include <string_view>

// The kinds of interface object, named in layout files and snapshots by kindName().
namespace vexo::watchkit {

enum class ObjectKind { Group, Button, Label, Image, Slider, Switch, Table, Timer, Menu };

// "group", "button", "label", "image", "slider", "switch", "table", "timer" or "menu".
[[nodiscard]] std::string_view kindName(ObjectKind kind);

// The kind named `name` (as kindName() spells it), or nothing.
[[nodiscard]] std::optional<ObjectKind> kindNamed(std::string_view name);

} // namespace vexo::watchkit
