#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/watchkit/ObjectKind.h"

// What the layout loader and the host know of an interface controller class or a row
// controller class: its outlets (name, object kind, how to connect one) and its actions
// (name, what value they take, how to call one). Made by InterfaceClass<C> when the class
// is registered; read-only afterwards.
namespace vexo::watchkit {

class InterfaceObject;

// The value an action receives: none (buttons, menu items), the slider's value, or the
// switch's new state.
enum class ActionKind { Plain, Float, Bool };
using ActionValue = std::variant<std::monostate, float, bool>;

// Whether the layout must connect an action to an object (Layout), or the action is only
// named by code, such as a menu item's (Code). A Layout action that no object of the layout
// names is a load error.
enum class ActionUse { Layout, Code };

// True when an object of `kind` can send an action of `action`: buttons and menu items
// plain actions; sliders plain or float; switches plain or bool.
[[nodiscard]] inline bool actionFits(ObjectKind kind, ActionKind action) {
    switch (kind) {
    case ObjectKind::Button:
    case ObjectKind::Menu:
        return action == ActionKind::Plain;
    case ObjectKind::Slider:
        return action != ActionKind::Bool;
    case ObjectKind::Switch:
        return action != ActionKind::Float;
    default:
        return false;
    }
}

[[nodiscard]] inline std::string_view actionKindName(ActionKind kind) {
    switch (kind) {
    case ActionKind::Plain:
        return "no value";
    case ActionKind::Float:
        return "a float";
    case ActionKind::Bool:
        return "a bool";
    }
    return "?";
}

template <class Base> class ClassDescription {
public:
    struct OutletEntry {
        std::string name;
        ObjectKind kind;
        // Connects `object` (of `kind`; nullptr disconnects) to the outlet of `instance`.
        std::function<void(Base& instance, const std::shared_ptr<InterfaceObject>& object)> connect;
    };
    struct ActionEntry {
        std::string name;
        ActionKind kind;
        ActionUse use;
        std::function<void(Base& instance, const ActionValue& value)> invoke;
    };

    // The outlet or action named `name`, or nullptr.
    [[nodiscard]] const OutletEntry* outlet(std::string_view name) const { return findIn(m_outlets, name); }
    [[nodiscard]] const ActionEntry* action(std::string_view name) const { return findIn(m_actions, name); }

    [[nodiscard]] const std::vector<OutletEntry>& outlets() const { return m_outlets; }
    [[nodiscard]] const std::vector<ActionEntry>& actions() const { return m_actions; }

    // Adds an entry; one of the same name is replaced, so that a subclass may declare again
    // what its base declared.
    void addOutlet(OutletEntry entry) { addTo(m_outlets, std::move(entry)); }
    void addAction(ActionEntry entry) { addTo(m_actions, std::move(entry)); }

private:
    template <class Entry> static const Entry* findIn(const std::vector<Entry>& entries, std::string_view name) {
        for (const Entry& entry : entries) {
            if (entry.name == name)
                return &entry;
        }
        return nullptr;
    }
    template <class Entry> static void addTo(std::vector<Entry>& entries, Entry entry) {
        for (Entry& existing : entries) {
            if (existing.name == entry.name) {
                existing = std::move(entry);
                return;
            }
        }
        entries.push_back(std::move(entry));
    }

    std::vector<OutletEntry> m_outlets;
    std::vector<ActionEntry> m_actions;
};

} // namespace vexo::watchkit
