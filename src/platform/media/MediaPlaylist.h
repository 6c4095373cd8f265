#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/media/MediaItem.h"
#include "platform/media/MediaType.h"
#include "platform/plist/Value.h"

// One playlist of the local media library as a plain value: its name and the items a query
// found in it, in the playlist's own order (an item may appear more than once).
namespace vexo::media {

class MediaPlaylist {
public:
    // Names accepted by valueForProperty(), those of the host platform.
    static constexpr std::string_view kPropertyPersistentID = "persistentID";
    static constexpr std::string_view kPropertyName = "name";

    // An empty playlist: identifier 0, no name, no items.
    MediaPlaylist() = default;
    MediaPlaylist(PersistentID persistentID, std::string name, std::vector<MediaItem> items);

    [[nodiscard]] PersistentID persistentID() const { return m_persistentID; }
    [[nodiscard]] const std::string& name() const { return m_name; }
    // In playlist order.
    [[nodiscard]] const std::vector<MediaItem>& items() const { return m_items; }
    [[nodiscard]] std::size_t count() const { return m_items.size(); }

    // The identifier (an integer) or the name (a string); nothing for any other name.
    [[nodiscard]] plist::Value valueForProperty(std::string_view property) const;

    friend bool operator==(const MediaPlaylist&, const MediaPlaylist&) = default;

private:
    PersistentID m_persistentID = 0;
    std::string m_name;
    std::vector<MediaItem> m_items;
};

} // namespace vexo::media
