#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "platform/base/Expected.h"

// The answer to an input event: done, or refused with the reason (for the log, a test, or
// the browser that sent it). A refusal is either about the event itself (InvalidData: not
// an event of the JSON format) or about what is on screen or what the application made of
// it (any other kind); a server answers the first with 400 and the second with 409.
namespace vexo::watchkit {

using EventResult = Expected<void>;

// A refusal of the event's form.
inline Error eventMalformed(std::string reason) {
    return Error(ErrorKind::InvalidData, std::move(reason));
}

// A refusal of a well-formed event that does not fit what is on screen now.
inline Error eventRefused(std::string reason) {
    return Error(ErrorKind::Unavailable, std::move(reason));
}

// {"ok": true} or {"ok": false, "error": "<reason>"}.
inline nlohmann::json toJson(const EventResult& result) {
    return result ? nlohmann::json{{"ok", true}} : nlohmann::json{{"ok", false}, {"error", result.error().message()}};
}

} // namespace vexo::watchkit
