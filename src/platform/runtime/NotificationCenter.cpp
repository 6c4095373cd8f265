#include "platform/runtime/NotificationCenter.h"

#include <algorithm>

namespace vexo::runtime {

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

void NotificationCenter::addObserver(const void* observer, Handler handler, std::string_view name, const void* sender) {
    if (observer == nullptr || !handler)
        return;
    m_registrations.push_back(
        std::make_shared<Registration>(Registration{observer, std::string(name), sender, std::move(handler)}));
}

template <class Predicate> void NotificationCenter::removeIf(Predicate predicate) {
    // A delivery in progress holds its own references; the flag tells it to skip these.
    std::erase_if(m_registrations, [&](const std::shared_ptr<Registration>& registration) {
        if (!predicate(*registration))
            return false;
        registration->removed = true;
        return true;
    });
}

void NotificationCenter::removeObserver(const void* observer, std::string_view name) {
    removeIf([&](const Registration& registration) {
        return registration.observer == observer && registration.name == name;
    });
}

void NotificationCenter::removeObserver(const void* observer) {
    removeIf([&](const Registration& registration) { return registration.observer == observer; });
}

void NotificationCenter::post(std::string_view name, const void* sender, plist::Value userInfo) {
    std::vector<std::shared_ptr<Registration>> recipients;
    for (const auto& registration : m_registrations) {
        if (registration->name == name && (registration->sender == nullptr || registration->sender == sender))
            recipients.push_back(registration);
    }
    if (recipients.empty())
        return;
    const Notification notification{std::string(name), sender, std::move(userInfo)};
    for (const auto& registration : recipients) {
        if (!registration->removed)
            registration->handler(notification);
    }
}

} // namespace vexo::runtime
