#pragma once

#include <optional>
#include <vector>

#include "platform/media/MediaItem.h"
#include "platform/media/MediaPlaylist.h"

// The songs the phone application can play: a read-only view of a media library, behind an
// interface so that the engine's tests use songs made in memory.
namespace vexo::phone {

class Catalog {
public:
    virtual ~Catalog() = default;

    // The item named by `persistentID`, or nothing. Items whose file has gone are found too
    // (without an asset URL); the engine refuses to load them.
    [[nodiscard]] virtual std::optional<media::MediaItem> item(media::PersistentID persistentID) const = 0;

    // Every item, in the library's own order (by title).
    [[nodiscard]] virtual std::vector<media::MediaItem> items() const = 0;

    // Every playlist, empty ones included, each with its items in playlist order.
    [[nodiscard]] virtual std::vector<media::MediaPlaylist> playlists() const = 0;
};

} // namespace vexo::phone
