#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/watchkit/ObjectLayout.h"

// The interface layout of the watch application (the host platform's storyboard), as the
// LayoutLoader reads it from resources/Interface.json: the pages side by side, the glance,
// and every controller by name with its tree of objects. Plain data; read-only once loaded.
namespace vexo::watchkit {

// One controller of the layout: its name (what presentControllerWithName() takes), its
// class (what the registry makes), the title shown at its top, what a screen reader calls
// its screen, and its objects, held by a vertical root group whose spacing and insets the
// screen uses.
struct ControllerLayout {
    std::string identifier;
    std::string className;
    std::optional<std::string> title;
    std::optional<std::string> accessibilityLabel;
    ObjectLayout root;
};

struct InterfaceLayout {
    // The file it was read from (or the name given to the loader), for messages.
    std::string source;
    // The watch face in pixels.
    double screenWidth = 312;
    double screenHeight = 390;
    // Controller names of the pages, left to right; the first is the application's main
    // controller and the page shown at start.
    std::vector<std::string> pages;
    std::optional<std::string> glance;
    std::optional<std::string> notification;
    std::map<std::string, ControllerLayout, std::less<>> controllers;
    // Controller and row classes the layout names that the loader's registry does not know
    // (when it was told to allow them), sorted: their outlets and actions were not checked.
    std::vector<std::string> uncheckedClasses;

    // The controller named `identifier`, or nullptr.
    [[nodiscard]] const ControllerLayout* controller(std::string_view identifier) const;

    // Interface.json in the resource directory (VEXO_RESOURCE_DIR when set, else the
    // installed resources, else the source tree's; see text::Localization).
    [[nodiscard]] static std::filesystem::path defaultPath();
};

} // namespace vexo::watchkit
