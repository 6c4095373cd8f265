#pragma once

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/base/Error.h"

namespace vexo {

// The kind a failed system call's errno means to a caller: a missing file or folder is
// NotFound, a resource held elsewhere is Busy, anything else the system refused.
inline ErrorKind errorKindOfErrno(int errnoValue) {
    switch (errnoValue) {
    case ENOENT:
    case ENOTDIR:
        return ErrorKind::NotFound;
    case EBUSY:
    case EAGAIN:
        return ErrorKind::Busy;
    default:
        return ErrorKind::SystemFailure;
    }
}

// An Error for errno `errnoValue` whose message is the system's own sentence for it, after
// `context` and ": " when a context is given.
inline Error systemError(int errnoValue, std::string_view context = {}) {
    Error error(errorKindOfErrno(errnoValue), std::strerror(errnoValue));
    return context.empty() ? error : std::move(error).withContext(context);
}

// The same for a std::error_code of the system category (as std::filesystem reports).
inline Error systemError(const std::error_code& code, std::string_view context = {}) {
    const int value =
        code.category() == std::system_category() || code.category() == std::generic_category() ? code.value() : 0;
    Error error(errorKindOfErrno(value), code.message());
    return context.empty() ? error : std::move(error).withContext(context);
}

} // namespace vexo
