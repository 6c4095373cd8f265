#include "ui/VXAWTurntable2InterfaceController.h"

namespace vexo::ui {
namespace {

// Never destroyed: a page released during exit would leave a notification centre that is
// already gone.
std::shared_ptr<VXAWTurntable2InterfaceController>& sharedSlot() {
    static auto* slot = new std::shared_ptr<VXAWTurntable2InterfaceController>();
    return *slot;
}

} // namespace

VXAWTurntable2InterfaceController::VXAWTurntable2InterfaceController()
    : VXAWTurntableInterfaceController(2) {}

std::shared_ptr<VXAWTurntable2InterfaceController> VXAWTurntable2InterfaceController::make() {
    auto controller = std::make_shared<VXAWTurntable2InterfaceController>();
    setSharedController(controller);
    return controller;
}

std::shared_ptr<VXAWTurntable2InterfaceController> VXAWTurntable2InterfaceController::sharedController() {
    return sharedSlot();
}

void VXAWTurntable2InterfaceController::setSharedController(
    std::shared_ptr<VXAWTurntable2InterfaceController> controller) {
    // Swapped out first, so that a page released here finds the slot already holding its
    // successor.
    std::shared_ptr<VXAWTurntable2InterfaceController> previous = std::move(sharedSlot());
    sharedSlot() = std::move(controller);
}

} // namespace vexo::ui
