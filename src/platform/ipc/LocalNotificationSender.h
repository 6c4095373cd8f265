#pragma once

#include <filesystem>

#include "platform/base/Expected.h"
#include "platform/ipc/DatagramSender.h"
#include "platform/ipc/LocalNotification.h"

// The phone application's road to the watch for local notifications: each one goes as one
// datagram to the watch's socket in the shared container (see kLocalNotificationEndpoint).
//
// Fire-and-forget: a watch that is not running misses the notification, which is not an
// error; nothing is queued or retried, and a send never waits.
namespace vexo::ipc {

class LocalNotificationSender {
public:
    // Sends to the watch listening in `container`.
    explicit LocalNotificationSender(std::filesystem::path container);

    LocalNotificationSender(const LocalNotificationSender&) = delete;
    LocalNotificationSender& operator=(const LocalNotificationSender&) = delete;

    // Sends `notification` at once. An error is Unavailable when no watch listens in the
    // container (or the container's socket directory is missing), and otherwise says why
    // the notification was dropped (logged at debug level): Busy when the watch's queue is
    // full, TooLarge for an archive beyond the endpoint's bound, InvalidData when it cannot
    // be archived, SystemFailure when the socket failed. One thread at a time.
    Expected<void> send(const LocalNotification& notification) const;

private:
    DatagramSender m_sender;
};

} // namespace vexo::ipc
