#include "platform/ipc/LocalNotificationSender.h"

#include <optional>
#include <string>
#include <utility>

#include "platform/ipc/LocalNotificationSocket.h"
#include "platform/log/Log.h"
#include "platform/plist/KeyedArchiver.h"

namespace vexo::ipc {
namespace {

constexpr std::string_view kLogComponent = LocalNotificationSocket::kEndpoint.logComponent;

LocalNotificationSender::Result dropped(std::string_view why) {
    log::debug(kLogComponent, "dropped a local notification for the watch: " + std::string(why));
    return LocalNotificationSender::Result::Dropped;
}

} // namespace

LocalNotificationSender::LocalNotificationSender(std::filesystem::path container)
    : m_sender(LocalNotificationSocket::kEndpoint, std::move(container)) {}

LocalNotificationSender::Result LocalNotificationSender::send(const LocalNotification& notification) const {
    const std::optional<plist::Data> archive = plist::KeyedArchiver::archivedData(notification.dictionary());
    if (!archive)
        return dropped("it cannot be archived");
    if (archive->size() > LocalNotificationSocket::kMaximumMessageSize)
        return dropped("its archive of " + std::to_string(archive->size()) + " bytes is too large");

    const DatagramSender::Result sent = m_sender.send(*archive);
    switch (sent.status) {
    case DatagramSender::Status::Sent:
        return Result::Sent;
    case DatagramSender::Status::NobodyListens:
        return Result::NobodyListens;
    case DatagramSender::Status::Busy:
        return dropped("the watch is not keeping up");
    case DatagramSender::Status::Failed:
        break;
    }
    return dropped(sent.reason);
}

} // namespace vexo::ipc
