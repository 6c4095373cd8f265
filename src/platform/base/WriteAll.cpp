#include "platform/base/WriteAll.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <unistd.h>

namespace vexo {

Expected<void> writeAll(int fd, const void* data, std::size_t size) {
    const auto* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::write(fd, next, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            if (written == 0)
                errno = ENOSPC;
            const int error = errno;
            Error failure(ErrorKind::SystemFailure, std::strerror(error));
            errno = error;
            return failure;
        }
        next += written;
        size -= static_cast<std::size_t>(written);
    }
    return {};
}

} // namespace vexo
