#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/watchkit/InterfaceLayout.h"

// Reads an interface layout (JSON, comments allowed) and checks it against the registered
// controller classes, as the host platform checks a storyboard against its classes:
//
// - every outlet the layout names is one the class declares, of the same kind, and every
//   outlet the class declares is in the layout (row types against their row classes alike);
// - every action the layout names is one the class declares, taking what the object sends
//   (nothing for buttons, a float for sliders, a bool for switches), and every action the
//   class declares for the layout (ActionUse::Layout) is connected to some object;
// - pages, the glance, the notification and segues name controllers of the layout;
// - no unknown property, kind or value anywhere.
//
// A controller may be written as {"like": "<other controller>", "class": ...}: the other
// controller's properties with its own over them.
//
// Every problem is reported, each naming the file, the controller (name and class) and the
// outlet, action or object concerned. Classes that are not registered are an error unless
// the caller allows them (MissingClasses::Allow, for checking a layout whose controllers are
// built elsewhere); their outlets are then not checked and they are listed instead.
namespace vexo::watchkit {

class ControllerRegistry;

enum class MissingClasses { Refuse, Allow };

struct LayoutLoadResult {
    // The layout, when there was no error.
    std::optional<InterfaceLayout> layout;
    // One line per problem: "<file>: controller 'deck' (DeckController): outlet 'bpmLabel': ...".
    std::vector<std::string> errors;
    // Controller and row classes the layout names that the registry does not know, sorted.
    std::vector<std::string> missingClasses;

    [[nodiscard]] bool ok() const { return layout.has_value(); }
    // The errors, one per line.
    [[nodiscard]] std::string errorText() const;
};

class LayoutLoader {
public:
    // Reads and checks the layout file at `path`.
    [[nodiscard]] static LayoutLoadResult loadFile(const std::filesystem::path& path,
                                                   const ControllerRegistry& registry,
                                                   MissingClasses missing = MissingClasses::Refuse);

    // Reads and checks layout `text`; `sourceName` stands for the file in messages.
    [[nodiscard]] static LayoutLoadResult parse(std::string_view text, std::string sourceName,
                                                const ControllerRegistry& registry,
                                                MissingClasses missing = MissingClasses::Refuse);
};

} // namespace vexo::watchkit
