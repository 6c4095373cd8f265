#include "platform/base/WriteAll.h"

#include <cerrno>

#include <unistd.h>

#include "platform/base/SystemError.h"

namespace vexo {

Expected<void> writeAll(int fd, const void* data, std::size_t size) {
    const auto* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::write(fd, next, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            // A write that takes nothing would take nothing again: as good as a full disk.
            const int error = written == 0 ? ENOSPC : errno;
            Error failure = systemError(error);
            errno = error;
            return failure;
        }
        next += written;
        size -= static_cast<std::size_t>(written);
    }
    return {};
}

} // namespace vexo
