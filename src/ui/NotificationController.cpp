#include "ui/NotificationController.h"

namespace vexo::ui {

void NotificationController::willActivate() {
    UserNotificationInterfaceController::willActivate();
}

void NotificationController::didDeactivate() {
    UserNotificationInterfaceController::didDeactivate();
}

} // namespace vexo::ui
