#pragma once

#include <filesystem>
#include <span>
#include <string>

#include "platform/base/Expected.h"
#include "platform/ipc/DatagramEndpoint.h"
#include "platform/ipc/UniqueFd.h"

// The sending end of a DatagramEndpoint: one unbound, non-blocking socket that sends whole
// messages to the endpoint's socket in the shared container. It never waits and never
// retries; SocketParentApplication and LocalNotificationSender decide what a failed send
// means, and log it in their own words.
namespace vexo::ipc {

class DatagramSender {
public:
    // Sends to `endpoint` in `container`. A socket that cannot be made is logged as a warning
    // under the endpoint's log component, and every send then fails. REQUIRES: the text
    // `endpoint` points at outlives the sender.
    DatagramSender(const DatagramEndpoint& endpoint, std::filesystem::path container);

    DatagramSender(const DatagramSender&) = delete;
    DatagramSender& operator=(const DatagramSender&) = delete;
    DatagramSender(DatagramSender&&) = delete;
    DatagramSender& operator=(DatagramSender&&) = delete;

    // Sends `message` as one datagram at once. The error's kind says what a caller may do:
    // Unavailable when nobody listens (no socket, one whose process has died, or no socket
    // directory in the container), Busy when the listener's queue is full (the same message
    // may go later), SystemFailure when sending it again will not help. REQUIRES: it is no
    // larger than the endpoint's maximumMessageSize (the receiver drops larger ones). One
    // thread at a time.
    [[nodiscard]] Expected<void> send(std::span<const std::uint8_t> message) const;

private:
    const DatagramEndpoint m_endpoint;
    const std::filesystem::path m_container;
    // One unbound socket serves every send.
    UniqueFd m_socket;
};

} // namespace vexo::ipc
