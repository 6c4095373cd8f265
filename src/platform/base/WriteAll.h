#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/base/Expected.h"

namespace vexo {

// Writes all `size` bytes at `data` to the descriptor `fd`, retrying after a signal
// (EINTR) and after a short write. An error (SystemFailure, with the system's reason) means
// some of the bytes may have been written; errno is left as the failing write set it. A
// write that takes nothing from a non-empty buffer fails as a full device would (ENOSPC),
// so that a descriptor that never takes a byte cannot make this spin. Allocates only to
// describe a failure. Any thread.
Expected<void> writeAll(int fd, const void* data, std::size_t size);

inline Expected<void> writeAll(int fd, std::span<const std::uint8_t> bytes) {
    return writeAll(fd, bytes.data(), bytes.size());
}

inline Expected<void> writeAll(int fd, std::string_view text) {
    return writeAll(fd, text.data(), text.size());
}

} // namespace vexo
