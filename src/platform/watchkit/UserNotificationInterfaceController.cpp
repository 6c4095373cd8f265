#include "platform/watchkit/UserNotificationInterfaceController.h"

namespace vexo::watchkit {

void UserNotificationInterfaceController::didReceiveLocalNotification(
    const plist::Value&, const std::function<void(NotificationInterfaceType)>& completion) {
    if (completion)
        completion(NotificationInterfaceType::Default);
}

} // namespace vexo::watchkit
