#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/runtime/Notification.h"

// In-process broadcast of named notifications, with the host platform's notification-centre
// rules: delivery is synchronous, on the posting thread, in the order of registration; an
// observer removed during a delivery is not called for the rest of it; one added during a
// delivery is first called for the next post. Handlers may add, remove and post freely.
//
// Observers and senders are identities (usually `this`); the centre never dereferences them
// and owns only the handlers. Not thread-safe: use it on the main loop's thread.
namespace vexo::runtime {

class NotificationCenter {
public:
    using Handler = std::function<void(const Notification&)>;

    NotificationCenter() = default;
    ~NotificationCenter() = default;
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;
    NotificationCenter(NotificationCenter&&) = delete;
    NotificationCenter& operator=(NotificationCenter&&) = delete;

    // The process-wide centre; it lives until the process ends.
    [[nodiscard]] static NotificationCenter& defaultCenter();

    // Calls `handler` for every post of `name`, or only for those by `sender` when it is not
    // nullptr. Registering twice gives two calls per post, as on the host platform. A null
    // observer or an empty handler registers nothing.
    void addObserver(const void* observer, Handler handler, std::string_view name, const void* sender = nullptr);

    // Removes every registration of `observer` for `name`, whatever their senders.
    void removeObserver(const void* observer, std::string_view name);

    // Removes every registration of `observer`.
    void removeObserver(const void* observer);

    // Delivers a notification to the matching observers before returning.
    void post(std::string_view name, const void* sender = nullptr, plist::Value userInfo = {});

private:
    struct Registration {
        const void* observer;
        std::string name;
        const void* sender;
        Handler handler;
        bool removed = false;
    };

    template <class Predicate> void removeIf(Predicate predicate);

    std::vector<std::shared_ptr<Registration>> m_registrations;
};

} // namespace vexo::runtime
