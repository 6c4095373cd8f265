#include "platform/ipc/LocalNotificationSender.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <utility>

#include "platform/ipc/LocalNotificationSocket.h"
#include "platform/log/Log.h"
#include "platform/plist/KeyedArchiver.h"

namespace vexo::ipc {
namespace {

constexpr std::string_view kLogComponent = "notification";

LocalNotificationSender::Result dropped(std::string_view why) {
    log::debug(kLogComponent, "dropped a local notification for the watch: " + std::string(why));
    return LocalNotificationSender::Result::Dropped;
}

} // namespace

LocalNotificationSender::LocalNotificationSender(std::filesystem::path container)
    : m_container(std::move(container)), m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    if (!m_socket.isValid())
        log::warning(kLogComponent, std::string("cannot make a socket for the watch: ") + std::strerror(errno));
}

LocalNotificationSender::Result LocalNotificationSender::send(const LocalNotification& notification) const {
    if (!m_socket.isValid())
        return dropped("there is no socket to send it with");
    const std::optional<plist::Data> archive = plist::KeyedArchiver::archivedData(notification.dictionary());
    if (!archive)
        return dropped("it cannot be archived");
    if (archive->size() > LocalNotificationSocket::kMaximumMessageSize)
        return dropped("its archive of " + std::to_string(archive->size()) + " bytes is too large");

    SocketDirectory directory;
    if (LocalNotificationSocket::openDirectory(m_container, SocketDirectory::Create::No, directory) !=
        SocketDirectory::Lookup::Opened)
        return Result::NobodyListens;
    const auto address = directory.address(LocalNotificationSocket::kSocketName);
    if (!address)
        return dropped("no socket address fits " + directory.path().string());
    for (;;) {
        if (::sendto(m_socket.get(), archive->data(), archive->size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                     reinterpret_cast<const sockaddr*>(&*address), sizeof *address) >= 0)
            return Result::Sent;
        switch (errno) {
        case EINTR:
            continue;
        case ENOENT:
        case ECONNREFUSED:
            // No socket, or one whose process has died.
            return Result::NobodyListens;
        case EAGAIN:
        case ENOBUFS:
            return dropped("the watch is not keeping up");
        default:
            return dropped(std::strerror(errno));
        }
    }
}

} // namespace vexo::ipc
