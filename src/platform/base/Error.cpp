#include "platform/base/Error.h"

namespace vexo {

std::string_view describe(ErrorKind kind) {
    switch (kind) {
    case ErrorKind::InvalidData:
        return "invalid data";
    case ErrorKind::NotFound:
        return "not found";
    case ErrorKind::Unavailable:
        return "unavailable";
    case ErrorKind::Busy:
        return "busy";
    case ErrorKind::TooLarge:
        return "too large";
    case ErrorKind::Unsupported:
        return "unsupported";
    case ErrorKind::SystemFailure:
        return "system failure";
    case ErrorKind::Cancelled:
        return "cancelled";
    }
    return "unknown";
}

} // namespace vexo
