#pragma once

#include <cstddef>
#include <list>
#include <unordered_map>
#include <utility>

// A map that keeps at most `capacity` entries and forgets the least recently used one
// first. Not thread-safe; the owner locks.
namespace vexo::graphics {

template <typename Key, typename Value, typename Hash = std::hash<Key>> class LruCache {
public:
    // A cache that holds up to `capacity` entries (at least one).
    explicit LruCache(std::size_t capacity)
        : m_capacity(capacity > 0 ? capacity : 1) {}

    // The entry for `key`, now the most recently used, or nullptr. The pointer stays
    // valid until the next put().
    [[nodiscard]] const Value* find(const Key& key) {
        auto found = m_index.find(key);
        if (found == m_index.end())
            return nullptr;
        m_entries.splice(m_entries.begin(), m_entries, found->second);
        return &found->second->second;
    }

    // Stores `value` under `key` as the most recently used entry, replacing an entry with
    // the same key and evicting the oldest when full.
    void put(const Key& key, Value value) {
        auto found = m_index.find(key);
        if (found != m_index.end()) {
            found->second->second = std::move(value);
            m_entries.splice(m_entries.begin(), m_entries, found->second);
            return;
        }
        if (m_entries.size() == m_capacity) {
            m_index.erase(m_entries.back().first);
            m_entries.pop_back();
        }
        m_entries.emplace_front(key, std::move(value));
        m_index.emplace(key, m_entries.begin());
    }

    [[nodiscard]] std::size_t size() const { return m_entries.size(); }
    [[nodiscard]] std::size_t capacity() const { return m_capacity; }

    void clear() {
        m_index.clear();
        m_entries.clear();
    }

private:
    using Entries = std::list<std::pair<Key, Value>>;
    std::size_t m_capacity;
    Entries m_entries;
    std::unordered_map<Key, typename Entries::iterator, Hash> m_index;
};

} // namespace vexo::graphics
