#pragma once

#include "platform/watchkit/UserNotificationInterfaceController.h"

// The notification's long look: the default one, with nothing of its own. The notification's
// actions are handled by the deck pages and the mixer page.
namespace vexo::ui {

class NotificationController : public watchkit::UserNotificationInterfaceController {
public:
    NotificationController() = default;
    void willActivate() override;
    void didDeactivate() override;
};

} // namespace vexo::ui
