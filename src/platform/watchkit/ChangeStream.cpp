#include "platform/watchkit/ChangeStream.h"

#include <algorithm>
#include <exception>

#include "platform/log/Log.h"
#include "platform/watchkit/InterfaceObject.h"

namespace vexo::watchkit {

std::uint64_t ChangeStream::subscribe(Listener listener) {
    std::uint64_t id = m_nextListener++;
    if (listener)
        m_listeners.emplace(id, std::make_shared<Listener>(std::move(listener)));
    return id;
}

void ChangeStream::unsubscribe(std::uint64_t id) {
    m_listeners.erase(id);
}

bool ChangeStream::objectChanged(const std::string& screenId, InterfaceObject& object) {
    if (!hasListeners())
        return false;
    bool first = wasEmpty();
    if (m_marked.insert(&object).second)
        m_pending.objects.emplace_back(screenId, object.weak_from_this());
    return first;
}

bool ChangeStream::screenAdded(const std::string& screenId) {
    if (!hasListeners())
        return false;
    bool first = wasEmpty();
    m_pending.addedScreens.push_back(screenId);
    return first;
}

bool ChangeStream::screenRemoved(const std::string& screenId) {
    if (!hasListeners())
        return false;
    bool first = wasEmpty();
    // A screen that came and went within one batch is news to nobody.
    auto added = std::find(m_pending.addedScreens.begin(), m_pending.addedScreens.end(), screenId);
    if (added != m_pending.addedScreens.end())
        m_pending.addedScreens.erase(added);
    else
        m_pending.removedScreens.push_back(screenId);
    return first;
}

bool ChangeStream::navigationChanged() {
    if (!hasListeners())
        return false;
    bool first = wasEmpty();
    m_pending.navigation = true;
    return first;
}

ChangeStream::Pending ChangeStream::take() {
    Pending taken = std::move(m_pending);
    m_pending = Pending{};
    m_marked.clear();
    return taken;
}

void ChangeStream::deliver(const nlohmann::json& batch) {
    // Copied so that a listener may unsubscribe anyone, itself included, while we deliver.
    std::vector<std::pair<std::uint64_t, std::shared_ptr<Listener>>> listeners(m_listeners.begin(), m_listeners.end());
    for (const auto& [id, listener] : listeners) {
        if (!m_listeners.contains(id))
            continue;
        // Delivery runs on the loop, which nothing may throw across.
        try {
            (*listener)(batch);
        } catch (const std::exception& exception) {
            log::error("watchkit", std::string("a change listener threw: ") + exception.what());
        }
    }
}

} // namespace vexo::watchkit
