#pragma once

#include <string_view>

#include "platform/plist/Value.h"

// Where the engine's status messages go: in the program, the message transport (each message
// stored under its identifier and announced by its notification); in tests, a recorder.
namespace vexo::phone {

class StatusSink {
public:
    virtual ~StatusSink() = default;

    // Publishes `message` under `identifier`, replacing what was there. Loop thread only.
    virtual void passMessageObject(const plist::Value& message, std::string_view identifier) = 0;
};

} // namespace vexo::phone
