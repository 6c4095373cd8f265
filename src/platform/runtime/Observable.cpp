#include "platform/runtime/Observable.h"

#include <algorithm>

#include "platform/log/Log.h"

namespace vexo::runtime {

void Observable::addObserver(KeyValueObserver& observer, std::string_view keyPath, ObservingOptions options) {
    auto registration = std::make_shared<Registration>(Registration{&observer, std::string(keyPath), options});
    m_registrations.push_back(registration);
    if (!contains(options, ObservingOptions::Initial))
        return;
    KeyValueChange change;
    change.isInitial = true;
    if (contains(options, ObservingOptions::New))
        change.newValue = valueForKey(keyPath);
    observer.observeValueForKeyPath(registration->keyPath, *this, change);
}

void Observable::removeObserver(KeyValueObserver& observer, std::string_view keyPath) {
    const auto found = std::find_if(m_registrations.rbegin(), m_registrations.rend(),
                                    [&](const std::shared_ptr<Registration>& registration) {
                                        return registration->observer == &observer && registration->keyPath == keyPath;
                                    });
    if (found == m_registrations.rend()) {
        log::debug("observable", "removeObserver for a key path it does not observe: " + std::string(keyPath));
        return;
    }
    (*found)->removed = true;
    m_registrations.erase(std::next(found).base());
}

void Observable::willChangeValueForKey(std::string_view key) {
    beginChange(key, isObservedWith(key, ObservingOptions::Old) ? valueForKey(key) : std::any());
}

void Observable::didChangeValueForKey(std::string_view key) {
    endChange(key, isObservedWith(key, ObservingOptions::New) ? valueForKey(key) : std::any());
}

std::any Observable::valueForKey(std::string_view) const {
    return {};
}

bool Observable::isObservedWith(std::string_view key, ObservingOptions option) const {
    return std::any_of(m_registrations.begin(), m_registrations.end(),
                       [&](const std::shared_ptr<Registration>& registration) {
                           return registration->keyPath == key && contains(registration->options, option);
                       });
}

void Observable::beginChange(std::string_view key, std::any oldValue) {
    m_pendingChanges.push_back(PendingChange{std::string(key), std::move(oldValue)});
}

void Observable::endChange(std::string_view key, std::any newValue) {
    std::any oldValue;
    const auto pending = std::find_if(m_pendingChanges.rbegin(), m_pendingChanges.rend(),
                                      [&](const PendingChange& change) { return change.key == key; });
    if (pending != m_pendingChanges.rend()) {
        oldValue = std::move(pending->oldValue);
        m_pendingChanges.erase(std::next(pending).base());
    }

    std::vector<std::shared_ptr<Registration>> recipients;
    for (const auto& registration : m_registrations) {
        if (registration->keyPath == key)
            recipients.push_back(registration);
    }
    for (const auto& registration : recipients) {
        if (registration->removed)
            continue;
        KeyValueChange change;
        if (contains(registration->options, ObservingOptions::Old))
            change.oldValue = oldValue;
        if (contains(registration->options, ObservingOptions::New))
            change.newValue = newValue;
        registration->observer->observeValueForKeyPath(registration->keyPath, *this, change);
    }
}

} // namespace vexo::runtime
