#pragma once

#include <filesystem>
#include <functional>

#include "platform/ipc/DatagramReceiver.h"
#include "platform/ipc/LocalNotification.h"
#include "platform/runtime/RunLoop.h"

// The watch's end of the local-notification road: it listens on the socket in the shared
// container (see kLocalNotificationEndpoint) and hands each notification the phone application
// sends to a callback on the loop. The listening is DatagramReceiver's; this class adds
// that the archive must hold a well-formed notification (LocalNotification::fromDictionary).
//
// Only one receiver listens per container. A socket file left by a process that died is
// replaced; one whose owner still runs is never taken over. Datagrams that are not the
// archive of a well-formed notification, that were cut short, or that come from another
// user are dropped with a debug log line.
namespace vexo::ipc {

class LocalNotificationReceiver {
public:
    using Callback = std::function<void(const LocalNotification& notification)>;

    // Listens in `container` (a directory made by Container), calling `onNotification` on
    // `loop` for each notification, in the order they arrive. When it cannot listen (another
    // receiver runs, or the socket cannot be made) it says why in a log line and
    // isListening() is false. REQUIRES: `loop` outlives the receiver. Loop thread only.
    LocalNotificationReceiver(std::filesystem::path container, runtime::RunLoop& loop, Callback onNotification);

    // Stops listening and removes the socket. Loop thread only; safe inside the callback.
    ~LocalNotificationReceiver();

    LocalNotificationReceiver(const LocalNotificationReceiver&) = delete;
    LocalNotificationReceiver& operator=(const LocalNotificationReceiver&) = delete;
    LocalNotificationReceiver(LocalNotificationReceiver&&) = delete;
    LocalNotificationReceiver& operator=(LocalNotificationReceiver&&) = delete;

    [[nodiscard]] bool isListening() const;

private:
    DatagramReceiver m_receiver;
};

} // namespace vexo::ipc
