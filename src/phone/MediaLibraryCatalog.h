#pragma once

#include <memory>

#include "phone/Catalog.h"
#include "platform/media/MediaLibrary.h"

// The catalog of the shared media library index, the one the watch queries too, so that an
// identifier the watch sends names the same song here.
namespace vexo::phone {

class MediaLibraryCatalog final : public Catalog {
public:
    // REQUIRES: `library` is not null.
    explicit MediaLibraryCatalog(std::shared_ptr<media::MediaLibrary> library)
        : m_library(std::move(library)) {}

    [[nodiscard]] std::optional<media::MediaItem> item(media::PersistentID persistentID) const override;
    [[nodiscard]] std::vector<media::MediaItem> items() const override;
    [[nodiscard]] std::vector<media::MediaPlaylist> playlists() const override;

private:
    std::shared_ptr<media::MediaLibrary> m_library;
};

} // namespace vexo::phone
