#pragma once

#include <any>

namespace vexo::runtime {

// What an observer hears of one change of an observed key (KeyValueObserver).
//
// A value is present only when the observer asked for it (ObservingOptions Old / New) and
// the observed object can tell it (see Observable::valueForKey); its type is the property's
// C++ type, so an observer reads it with `newValueAs<bool>()` and the like.
struct KeyValueChange {
    std::any oldValue;
    std::any newValue;
    // True for the notice sent at registration (ObservingOptions::Initial); it has no old value.
    bool isInitial = false;

    // The old or new value as a `T`, or nullptr when absent or of another type.
    template <class T> [[nodiscard]] const T* oldValueAs() const { return std::any_cast<T>(&oldValue); }
    template <class T> [[nodiscard]] const T* newValueAs() const { return std::any_cast<T>(&newValue); }
};

} // namespace vexo::runtime
