#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

// The bookkeeping of the host's change records: who listens, and what changed since the
// last batch (objects, screens that came and went, navigation). The host turns a taken
// Pending into one JSON batch per main-loop turn and hands it to deliver(). Main loop's
// thread only.
namespace vexo::watchkit {

class InterfaceObject;

class ChangeStream {
public:
    using Listener = std::function<void(const nlohmann::json& batch)>;

    struct Pending {
        // Objects that changed, in order of their first change this turn, with their screens.
        std::vector<std::pair<std::string, std::weak_ptr<InterfaceObject>>> objects;
        std::vector<std::string> addedScreens;
        std::vector<std::string> removedScreens;
        bool navigation = false;

        [[nodiscard]] bool empty() const {
            return objects.empty() && addedScreens.empty() && removedScreens.empty() && !navigation;
        }
    };

    ChangeStream() = default;
    ChangeStream(const ChangeStream&) = delete;
    ChangeStream& operator=(const ChangeStream&) = delete;

    // Adds a listener and gives its number for unsubscribe().
    std::uint64_t subscribe(Listener listener);
    // Removes listener `id`; unknown numbers are ignored. Safe from inside a delivery.
    void unsubscribe(std::uint64_t id);
    [[nodiscard]] bool hasListeners() const { return !m_listeners.empty(); }

    // Records a change; each returns true when it is the first of a new batch. Nothing is
    // recorded while nobody listens.
    bool objectChanged(const std::string& screenId, InterfaceObject& object);
    bool screenAdded(const std::string& screenId);
    bool screenRemoved(const std::string& screenId);
    bool navigationChanged();

    // What changed since the last take(), leaving nothing pending.
    [[nodiscard]] Pending take();

    // Hands `batch` to every listener, in order of subscription.
    void deliver(const nlohmann::json& batch);

private:
    bool wasEmpty() const { return m_pending.empty(); }

    std::map<std::uint64_t, std::shared_ptr<Listener>> m_listeners;
    std::uint64_t m_nextListener = 1;
    Pending m_pending;
    std::set<const InterfaceObject*> m_marked;
};

} // namespace vexo::watchkit
