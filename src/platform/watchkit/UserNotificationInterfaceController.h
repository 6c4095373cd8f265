#pragma once

#include <functional>

#include "platform/plist/Value.h"
#include "platform/watchkit/InterfaceController.h"

// The base of the controller that shows a notification's long look (the host platform's
// user-notification interface controller).
namespace vexo::watchkit {

enum class NotificationInterfaceType { Default, Custom };

class UserNotificationInterfaceController : public InterfaceController {
public:
    // A local notification with `userInfo` is to be shown; the controller fills its
    // interface and calls `completion` with the look to use. The base asks for the default look.
    virtual void didReceiveLocalNotification(const plist::Value& userInfo,
                                             const std::function<void(NotificationInterfaceType)>& completion);

protected:
    UserNotificationInterfaceController() = default;
};

} // namespace vexo::watchkit
