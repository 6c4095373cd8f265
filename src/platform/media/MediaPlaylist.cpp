#include "platform/media/MediaPlaylist.h"

namespace vexo::media {

MediaPlaylist::MediaPlaylist(PersistentID persistentID, std::string name, std::vector<MediaItem> items)
    : m_persistentID(persistentID),
      m_name(std::move(name)),
      m_items(std::move(items)) {}

plist::Value MediaPlaylist::valueForProperty(std::string_view property) const {
    if (property == kPropertyPersistentID)
        return plist::Value(m_persistentID);
    if (property == kPropertyName)
        return plist::Value(m_name);
    return {};
}

} // namespace vexo::media
