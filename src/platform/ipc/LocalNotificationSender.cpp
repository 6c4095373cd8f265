#include "platform/ipc/LocalNotificationSender.h"

#include <optional>
#include <string>
#include <utility>

#include "platform/ipc/DatagramEndpoint.h"
#include "platform/log/Log.h"
#include "platform/plist/KeyedArchiver.h"

namespace vexo::ipc {
namespace {

constexpr std::string_view kLogComponent = kLocalNotificationEndpoint.logComponent;

Error dropped(Error why) {
    log::debug(kLogComponent, "dropped a local notification for the watch: " + why.message());
    return why;
}

} // namespace

LocalNotificationSender::LocalNotificationSender(std::filesystem::path container)
    : m_sender(kLocalNotificationEndpoint, std::move(container)) {}

Expected<void> LocalNotificationSender::send(const LocalNotification& notification) const {
    const std::optional<plist::Data> archive = plist::KeyedArchiver::archivedData(notification.dictionary());
    if (!archive)
        return dropped(Error(ErrorKind::InvalidData, "it cannot be archived"));
    if (archive->size() > kLocalNotificationEndpoint.maximumMessageSize)
        return dropped(
            Error(ErrorKind::TooLarge, "its archive of " + std::to_string(archive->size()) + " bytes is too large"));
    Expected<void> sent = m_sender.send(*archive);
    if (!sent && sent.error().kind() != ErrorKind::Unavailable)
        return dropped(std::move(sent).error());
    return sent;
}

} // namespace vexo::ipc
