#include "phone/MediaLibraryCatalog.h"

namespace vexo::phone {

std::optional<media::MediaItem> MediaLibraryCatalog::item(media::PersistentID persistentID) const {
    std::vector<media::MediaItem> found = m_library->itemsWithPersistentID(persistentID);
    if (found.empty())
        return std::nullopt;
    return std::move(found.back());
}

std::vector<media::MediaItem> MediaLibraryCatalog::items() const {
    return m_library->items();
}

std::vector<media::MediaPlaylist> MediaLibraryCatalog::playlists() const {
    return m_library->playlists(media::MediaType::Any, media::MediaLibrary::EmptyPlaylists::Include);
}

} // namespace vexo::phone
