#include "platform/ipc/DatagramSender.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/socket.h>

#include "platform/ipc/SocketDirectory.h"
#include "platform/log/Log.h"

namespace vexo::ipc {
namespace {

Error nobodyListens(const DatagramEndpoint& endpoint) {
    return Error(ErrorKind::Unavailable, "the " + std::string(endpoint.listenerName) + " is not listening");
}

} // namespace

DatagramSender::DatagramSender(const DatagramEndpoint& endpoint, std::filesystem::path container)
    : m_endpoint(endpoint),
      m_container(std::move(container)),
      m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    if (!m_socket.isValid())
        log::warning(m_endpoint.logComponent, "cannot make a socket for the " + std::string(m_endpoint.listenerName) +
                                                  ": " + std::strerror(errno));
}

Expected<void> DatagramSender::send(std::span<const std::uint8_t> message) const {
    if (!m_socket.isValid())
        return Error(ErrorKind::SystemFailure, "there is no socket to send it with");
    SocketDirectory directory;
    switch (m_endpoint.openDirectory(m_container, SocketDirectory::Create::No, directory)) {
    case SocketDirectory::Lookup::Opened:
        break;
    case SocketDirectory::Lookup::Absent:
    case SocketDirectory::Lookup::Failed:
        // A listener that starts makes what is missing (or says why it cannot).
        return nobodyListens(m_endpoint);
    }
    const auto address = directory.address(m_endpoint.socketName);
    if (!address)
        return Error(ErrorKind::SystemFailure, "no socket address fits " + directory.path().string());
    for (;;) {
        if (::sendto(m_socket.get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                     reinterpret_cast<const sockaddr*>(&*address), sizeof *address) >= 0)
            return {};
        switch (errno) {
        case EINTR:
            continue;
        case ENOENT:
        case ECONNREFUSED:
            // No socket, or one whose process has died.
            return nobodyListens(m_endpoint);
        case EAGAIN:
        case ENOBUFS:
            return Error(ErrorKind::Busy, "the " + std::string(m_endpoint.listenerName) + " is not keeping up");
        default:
            return Error(ErrorKind::SystemFailure, std::strerror(errno));
        }
    }
}

} // namespace vexo::ipc
