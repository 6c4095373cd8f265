#include "ui/VXAWTurntable1InterfaceController.h"

namespace vexo::ui {
namespace {

// Never destroyed: a page released during exit would leave a notification centre that is
// already gone.
std::shared_ptr<VXAWTurntable1InterfaceController>& sharedSlot() {
    static auto* slot = new std::shared_ptr<VXAWTurntable1InterfaceController>();
    return *slot;
}

} // namespace

VXAWTurntable1InterfaceController::VXAWTurntable1InterfaceController()
    : VXAWTurntableInterfaceController(1) {}

std::shared_ptr<VXAWTurntable1InterfaceController> VXAWTurntable1InterfaceController::make() {
    auto controller = std::make_shared<VXAWTurntable1InterfaceController>();
    setSharedController(controller);
    return controller;
}

std::shared_ptr<VXAWTurntable1InterfaceController> VXAWTurntable1InterfaceController::sharedController() {
    return sharedSlot();
}

void VXAWTurntable1InterfaceController::setSharedController(
    std::shared_ptr<VXAWTurntable1InterfaceController> controller) {
    // Swapped out first, so that a page released here finds the slot already holding its
    // successor.
    std::shared_ptr<VXAWTurntable1InterfaceController> previous = std::move(sharedSlot());
    sharedSlot() = std::move(controller);
}

} // namespace vexo::ui
