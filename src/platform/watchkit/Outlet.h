#pragma once

#include <memory>
#include <string>

#include "platform/log/Log.h"

// A controller's weak handle on an interface object (the host platform's weak IBOutlet).
//
// The host connects outlets by name when it builds a screen and owns the objects; an outlet
// never keeps one alive. Calling through an empty outlet (never connected, or its screen
// gone) reaches T::nil(), which does nothing and logs at debug level, as a message to nil
// does on the host platform. Main loop's thread only.
namespace vexo::watchkit {

template <class T> class Outlet {
public:
    Outlet() = default;

    explicit operator bool() const { return !m_object.expired(); }

    // The object, or T's nil stand-in when the outlet is empty. The pointer is valid for
    // the expression it is used in.
    T* operator->() const {
        if (std::shared_ptr<T> object = m_object.lock())
            return object.get();
        log::debug("watchkit", "message to nil through an empty outlet");
        return &T::nil();
    }

    // The object, or nullptr when the outlet is empty; for identity comparisons.
    [[nodiscard]] std::shared_ptr<T> get() const { return m_object.lock(); }

    // Host side: connects the outlet to `object` (nullptr empties it).
    void connect(const std::shared_ptr<T>& object) { m_object = object; }

private:
    std::weak_ptr<T> m_object;
};

} // namespace vexo::watchkit
