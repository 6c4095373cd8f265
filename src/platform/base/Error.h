#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace vexo {

// What went wrong, in the few classes a caller acts on differently. The message carries
// the detail a person reads.
enum class ErrorKind {
    // The bytes, text or values given are malformed or out of range.
    InvalidData,
    // The file, item, device or name asked for does not exist.
    NotFound,
    // Nobody is there to take it (no listener, no device); it may be there later.
    Unavailable,
    // Someone else holds it or its queue is full; the same call may succeed later.
    Busy,
    // Beyond a limit this program keeps (size, count, depth, duration).
    TooLarge,
    // Well-formed but of a kind this program does not handle.
    Unsupported,
    // The operating system or a library refused or failed (permissions, disk full, I/O).
    SystemFailure,
    // Stopped on request before it finished.
    Cancelled,
};

// The name of `kind` as a person reads it ("invalid data", "not found", ...).
std::string_view describe(ErrorKind kind);

// Why a call failed: a kind to branch on and a message to show. A value type; cheap to move.
class Error {
public:
    Error(ErrorKind kind, std::string message)
        : m_kind(kind),
          m_message(std::move(message)) {}

    ErrorKind kind() const { return m_kind; }
    const std::string& message() const { return m_message; }

    // The same error with "context: " in front of the message, for a caller that adds
    // where it happened ("/music/a.flac: not an audio file").
    Error withContext(std::string_view context) const& {
        return Error(m_kind, std::string(context) + ": " + m_message);
    }
    Error withContext(std::string_view context) && {
        m_message.insert(0, std::string(context) + ": ");
        return std::move(*this);
    }

    friend bool operator==(const Error&, const Error&) = default;

private:
    ErrorKind m_kind;
    std::string m_message;
};

} // namespace vexo
