#include "platform/ipc/LocalNotificationReceiver.h"

#include <optional>
#include <utility>

#include "platform/ipc/DatagramEndpoint.h"

namespace vexo::ipc {

LocalNotificationReceiver::LocalNotificationReceiver(std::filesystem::path container, runtime::RunLoop& loop,
                                                     Callback onNotification)
    // The callback is captured by value, never `this`: the watch may destroy its receiver
    // inside it.
    : m_receiver(kLocalNotificationEndpoint, std::move(container), loop,
                 [onNotification = std::move(onNotification)](const plist::Value& root) {
                     // fromDictionary logs why it refuses.
                     const std::optional<LocalNotification> notification = LocalNotification::fromDictionary(root);
                     if (notification && onNotification)
                         onNotification(*notification);
                 }) {}

LocalNotificationReceiver::~LocalNotificationReceiver() = default;

bool LocalNotificationReceiver::isListening() const {
    return m_receiver.isListening();
}

} // namespace vexo::ipc
