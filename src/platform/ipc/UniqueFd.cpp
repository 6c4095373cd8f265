#include "platform/ipc/UniqueFd.h"

#include <unistd.h>

namespace vexo::ipc {

void UniqueFd::reset(int fd) {
    const int previous = std::exchange(m_fd, fd);
    // Not retried on EINTR: on Linux the descriptor is released even then.
    if (previous >= 0)
        ::close(previous);
}

} // namespace vexo::ipc
