#pragma once

#include <filesystem>

#include "platform/ipc/DatagramSender.h"
#include "platform/ipc/LocalNotification.h"

// The phone application's road to the watch for local notifications: each one goes as one
// datagram to the watch's socket in the shared container (see LocalNotificationSocket).
//
// Fire-and-forget: a watch that is not running misses the notification, which is not an
// error; nothing is queued or retried, and a send never waits.
namespace vexo::ipc {

class LocalNotificationSender {
public:
    enum class Result {
        Sent,
        // No watch listens in the container (or the container's socket directory is missing).
        NobodyListens,
        // Not sent: the watch's queue is full, the archive is too large, or the socket failed.
        // Logged at debug level.
        Dropped,
    };

    // Sends to the watch listening in `container`.
    explicit LocalNotificationSender(std::filesystem::path container);

    LocalNotificationSender(const LocalNotificationSender&) = delete;
    LocalNotificationSender& operator=(const LocalNotificationSender&) = delete;

    // Sends `notification` at once. One thread at a time.
    Result send(const LocalNotification& notification) const;

private:
    DatagramSender m_sender;
};

} // namespace vexo::ipc
