#pragma once

#include <string_view>

#include "platform/runtime/KeyValueChange.h"

namespace vexo::runtime {

class Observable;

// Receives the changes of the keys it observes (Observable::addObserver).
class KeyValueObserver {
public:
    virtual ~KeyValueObserver() = default;

    // Called synchronously on the thread that changed `keyPath` of `object`. The observer may
    // add or remove observations, also its own, from inside the call.
    virtual void observeValueForKeyPath(std::string_view keyPath, Observable& object, const KeyValueChange& change) = 0;

protected:
    KeyValueObserver() = default;
    KeyValueObserver(const KeyValueObserver&) = default;
    KeyValueObserver& operator=(const KeyValueObserver&) = default;
};

} // namespace vexo::runtime
