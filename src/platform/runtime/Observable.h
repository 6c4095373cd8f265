#pragma once

#include <any>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/runtime/KeyValueChange.h"
#include "platform/runtime/KeyValueObserver.h"
#include "platform/runtime/ObservingOptions.h"

// Key-value observation, with the host platform's rules:
//
// - Every change of an observed key notifies each observer of that key, synchronously, in
//   the order of registration; also a change that leaves the value as it was.
// - Observers are not owned: an observer removes itself before it goes away.
// - An observer removed during a notification is not called for the rest of it; one added
//   during a notification hears the next change.
// - A key path is one key of the object itself; nested paths are not followed.
//
// Not thread-safe: models and controllers use it on the main loop's thread only.
namespace vexo::runtime {

class Observable {
public:
    virtual ~Observable() = default;
    Observable(const Observable&) = delete;
    Observable& operator=(const Observable&) = delete;
    Observable(Observable&&) = delete;
    Observable& operator=(Observable&&) = delete;

    // Registers `observer` for changes of `keyPath`; with Initial it is notified at once.
    // Registering twice gives two notices per change. The observer must outlive the
    // registration.
    void addObserver(KeyValueObserver& observer, std::string_view keyPath, ObservingOptions options);

    // Removes the most recent registration of `observer` for `keyPath`; does nothing (and
    // logs at debug level) when there is none.
    void removeObserver(KeyValueObserver& observer, std::string_view keyPath);

    // Bracket a change of `key` made outside setAndNotify(): the old value is taken from
    // valueForKey() in willChangeValueForKey(), the new one in didChangeValueForKey(), and
    // the observers are notified by the latter. Brackets of one key may nest.
    void willChangeValueForKey(std::string_view key);
    void didChangeValueForKey(std::string_view key);

    // The current value of `key` for Initial notices and will/didChange brackets; empty when
    // unknown. Subclasses return the property's own C++ type, the one setAndNotify() stores.
    [[nodiscard]] virtual std::any valueForKey(std::string_view key) const;

protected:
    Observable() = default;

    // Sets `member` to `value` and notifies the observers of `key`, passing the old and new
    // values of `member` itself, so a setter needs no valueForKey() case for this.
    template <class T> void setAndNotify(std::string_view key, T& member, std::type_identity_t<T> value) {
        beginChange(key, isObservedWith(key, ObservingOptions::Old) ? std::any(member) : std::any());
        member = std::move(value);
        endChange(key, isObservedWith(key, ObservingOptions::New) ? std::any(member) : std::any());
    }

private:
    struct Registration {
        KeyValueObserver* observer;
        std::string keyPath;
        ObservingOptions options;
        bool removed = false;
    };
    struct PendingChange {
        std::string key;
        std::any oldValue;
    };

    [[nodiscard]] bool isObservedWith(std::string_view key, ObservingOptions option) const;
    void beginChange(std::string_view key, std::any oldValue);
    void endChange(std::string_view key, std::any newValue);

    std::vector<std::shared_ptr<Registration>> m_registrations;
    // Changes between their will- and did- brackets, innermost last.
    std::vector<PendingChange> m_pendingChanges;
};

} // namespace vexo::runtime
