#pragma once

namespace vexo::watchkit {
class ControllerRegistry;
}

// The watch application's screens, as the interface layout (resources/Interface.json) names
// them: every interface controller class and table row class of this layer.
namespace vexo::ui {

// Registers every controller and row class in `registry` under the layout's class names.
// Call it once, on the main loop's thread, before the layout is loaded against `registry`.
// A name registered already keeps its first registration (the registry logs it).
void registerInterfaceClasses(watchkit::ControllerRegistry& registry);

} // namespace vexo::ui
