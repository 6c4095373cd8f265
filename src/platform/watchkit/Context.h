#pragma once

#include <any>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

// What a presenting controller hands to the controller it presents (awakeWithContext):
// a dictionary whose values are anything, property-list values or C++ objects alike (the
// deck page hands the library {"turntable": its deck model}). An empty context stands for
// the host platform's nil. A copyable value; copies share the objects they hold.
namespace vexo::watchkit {

class Context {
public:
    Context() = default;
    // Context{{"turntable", std::any(deck)}, {"turntableNumber", std::any(std::int64_t{1})}}.
    Context(std::initializer_list<std::pair<const std::string, std::any>> entries)
        : m_entries(entries) {}

    [[nodiscard]] bool empty() const { return m_entries.empty(); }
    [[nodiscard]] bool contains(std::string_view key) const { return m_entries.find(key) != m_entries.end(); }

    // Adds or replaces the value under `key`.
    void set(std::string key, std::any value) { m_entries.insert_or_assign(std::move(key), std::move(value)); }

    // The value under `key`, or nullptr when there is none.
    [[nodiscard]] const std::any* find(std::string_view key) const {
        auto found = m_entries.find(key);
        return found == m_entries.end() ? nullptr : &found->second;
    }

    // The value under `key` as a `T`, or nullptr when it is missing or holds another type.
    template <class T> [[nodiscard]] const T* get(std::string_view key) const {
        const std::any* value = find(key);
        return value ? std::any_cast<T>(value) : nullptr;
    }

    // The value under `key` as a `T`, or `fallback` when it is missing or of another type:
    // context.value<std::shared_ptr<Deck>>("turntable") is an empty pointer when absent.
    template <class T> [[nodiscard]] T value(std::string_view key, T fallback = T()) const {
        const T* found = get<T>(key);
        return found ? *found : fallback;
    }

    [[nodiscard]] const std::map<std::string, std::any, std::less<>>& entries() const { return m_entries; }

    // For snapshots: strings, numbers, booleans and property-list values as JSON; any other
    // value as {"$type": "<C++ type>"}.
    [[nodiscard]] nlohmann::json describe() const;

private:
    std::map<std::string, std::any, std::less<>> m_entries;
};

} // namespace vexo::watchkit
