#include "ui/GlanceController.h"

namespace vexo::ui {

void GlanceController::awakeWithContext(const watchkit::Context& context) {
    InterfaceController::awakeWithContext(context);
}

void GlanceController::willActivate() {
    InterfaceController::willActivate();
}

void GlanceController::didDeactivate() {
    InterfaceController::didDeactivate();
}

} // namespace vexo::ui
