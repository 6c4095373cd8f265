#pragma once

#include <memory>

#include "ui/VXAWTurntableInterfaceController.h"

// The page of deck 1. Each instance made publishes itself as the class's shared
// controller, through which the mixer page brings deck 1's page to the front.
namespace vexo::ui {

class VXAWTurntable1InterfaceController final : public VXAWTurntableInterfaceController {
public:
    // The page of deck 1; make() is what the host calls.
    VXAWTurntable1InterfaceController();

    // Makes a page of deck 1 and stores it as the shared controller, replacing the one
    // before it. This is the class's factory in the registry.
    [[nodiscard]] static std::shared_ptr<VXAWTurntable1InterfaceController> make();

    // The most recently made page of deck 1, or nothing before the first. The slot holds
    // it strongly and is never cleared by the program (tests empty it with nullptr); it is not
    // destroyed at process exit.
    [[nodiscard]] static std::shared_ptr<VXAWTurntable1InterfaceController> sharedController();
    static void setSharedController(std::shared_ptr<VXAWTurntable1InterfaceController> controller);
};

} // namespace vexo::ui
