#include "platform/ipc/DatagramSender.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/socket.h>

#include "platform/ipc/SocketDirectory.h"
#include "platform/log/Log.h"

namespace vexo::ipc {

DatagramSender::DatagramSender(const DatagramEndpoint& endpoint, std::filesystem::path container)
    : m_endpoint(endpoint),
      m_container(std::move(container)),
      m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    if (!m_socket.isValid())
        log::warning(m_endpoint.logComponent, "cannot make a socket for the " + std::string(m_endpoint.listenerName) +
                                                  ": " + std::strerror(errno));
}

DatagramSender::Result DatagramSender::send(std::span<const std::uint8_t> message) const {
    if (!m_socket.isValid())
        return {Status::Failed, "there is no socket to send it with"};
    SocketDirectory directory;
    switch (m_endpoint.openDirectory(m_container, SocketDirectory::Create::No, directory)) {
    case SocketDirectory::Lookup::Opened:
        break;
    case SocketDirectory::Lookup::Absent:
    case SocketDirectory::Lookup::Failed:
        // A listener that starts makes what is missing (or says why it cannot).
        return {Status::NobodyListens, {}};
    }
    const auto address = directory.address(m_endpoint.socketName);
    if (!address)
        return {Status::Failed, "no socket address fits " + directory.path().string()};
    for (;;) {
        if (::sendto(m_socket.get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                     reinterpret_cast<const sockaddr*>(&*address), sizeof *address) >= 0)
            return {Status::Sent, {}};
        switch (errno) {
        case EINTR:
            continue;
        case ENOENT:
        case ECONNREFUSED:
            // No socket, or one whose process has died.
            return {Status::NobodyListens, {}};
        case EAGAIN:
        case ENOBUFS:
            return {Status::Busy, {}};
        default:
            return {Status::Failed, std::strerror(errno)};
        }
    }
}

} // namespace vexo::ipc
