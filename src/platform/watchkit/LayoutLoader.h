#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "platform/base/Expected.h"
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
// - a button that adjusts a slider names a slider outlet of its controller, and has no
//   action or segue besides;
// - no unknown property, kind or value anywhere.
//
// A controller may be written as {"like": "<other controller>", "class": ...}: the other
// controller's properties with its own over them.
//
// A refused layout is an Error (ErrorKind::InvalidData; NotFound, TooLarge or SystemFailure
// for a file that cannot be read) whose message has one line per problem, each naming the
// file, the controller (name and class) and the outlet, action or object concerned:
// "<file>: controller 'deck' (DeckController): outlet 'bpmLabel': ...". Classes that are not
// registered are a problem unless the caller allows them (MissingClasses::Allow, for checking
// a layout whose controllers are built elsewhere); their outlets are then not checked and
// they are listed in InterfaceLayout::uncheckedClasses instead.
namespace vexo::watchkit {

class ControllerRegistry;

enum class MissingClasses { Refuse, Allow };

class LayoutLoader {
public:
    // Reads and checks the layout file at `path`.
    [[nodiscard]] static Expected<InterfaceLayout> loadFile(const std::filesystem::path& path,
                                                            const ControllerRegistry& registry,
                                                            MissingClasses missing = MissingClasses::Refuse);

    // Reads and checks layout `text`; `sourceName` stands for the file in messages.
    [[nodiscard]] static Expected<InterfaceLayout> parse(std::string_view text, std::string sourceName,
                                                         const ControllerRegistry& registry,
                                                         MissingClasses missing = MissingClasses::Refuse);
};

} // namespace vexo::watchkit
