#pragma once

#include <memory>

#include "ui/VXAWTurntableInterfaceController.h"

// The page of deck 2. Each instance made publishes itself as the class's shared
// controller, through which the mixer page brings deck 2's page to the front.
namespace vexo::ui {

class VXAWTurntable2InterfaceController final : public VXAWTurntableInterfaceController {
public:
    // The page of deck 2; make() is what the host calls.
    VXAWTurntable2InterfaceController();

    // Makes a page of deck 2 and stores it as the shared controller, replacing the one
    // before it. This is the class's factory in the registry.
    [[nodiscard]] static std::shared_ptr<VXAWTurntable2InterfaceController> make();

    // The most recently made page of deck 2, or nothing before the first. The slot holds
    // it strongly and is never cleared by the program (tests empty it with nullptr); it is not
    // destroyed at process exit.
    [[nodiscard]] static std::shared_ptr<VXAWTurntable2InterfaceController> sharedController();
    static void setSharedController(std::shared_ptr<VXAWTurntable2InterfaceController> controller);
};

} // namespace vexo::ui
