#pragma once

#include <string_view>

#include <nlohmann/json.hpp>

// Lookups in the JSON snapshots of watchkit::ExtensionHost, for tests of screens.
namespace vexo::testing {

// The first object under `node` (a screen, an object, or a whole snapshot) whose `key` is
// `value`, searching children and table rows in order; null when there is none.
inline nlohmann::json findObject(const nlohmann::json& node, std::string_view key, std::string_view value) {
    if (node.is_object()) {
        if (auto found = node.find(key);
            found != node.end() && found->is_string() && *found == value && node.contains("kind"))
            return node;
        for (const char* container : {"objects", "children", "rows", "pages", "modals"}) {
            if (auto list = node.find(container); list != node.end() && list->is_array()) {
                for (const auto& element : *list) {
                    if (auto found = findObject(element, key, value); !found.is_null())
                        return found;
                }
            }
        }
        for (const char* single : {"group", "screen", "glance"}) {
            if (auto inner = node.find(single); inner != node.end() && inner->is_object()) {
                if (auto found = findObject(*inner, key, value); !found.is_null())
                    return found;
            }
        }
    }
    return nullptr;
}

// The first object under `node` with outlet name `outlet`.
inline nlohmann::json findByOutlet(const nlohmann::json& node, std::string_view outlet) {
    return findObject(node, "outlet", outlet);
}

// The object under `node` with identifier `id`.
inline nlohmann::json findById(const nlohmann::json& node, std::string_view id) {
    return findObject(node, "id", id);
}

} // namespace vexo::testing
