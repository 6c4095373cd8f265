#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/media/MediaItem.h"
#include "platform/media/MediaPlaylist.h"
#include "platform/watchkit/Button.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/Table.h"

namespace vexo::model {
class VXAWTurntable;
}

// The playlist screen ("itunesPlaylist"), presented by the library screen with {"playlist",
// "turntable", "library"}: the playlist's songs in pages of ten, songs whose file is gone in
// grey. Choosing a playable song loads it onto the deck (turntable action 6 with its
// identifier) and closes this screen and the library screen beneath it.
//
// Every activation appends a page while songs remain, so coming back to the screen shows
// more of the list; that is how the screen has always behaved. Main loop's thread only.
namespace vexo::ui {

class VXAWLibraryInterfaceController;

class VXAWiTunesPlaylistInterfaceController : public watchkit::InterfaceController {
public:
    VXAWiTunesPlaylistInterfaceController() = default;

    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        using T = VXAWiTunesPlaylistInterfaceController;
        c.outlet("nameLabel", &T::m_nameLabel);
        c.outlet("table", &T::m_table);
        c.outlet("loadMoreButton", &T::m_loadMoreButton);
        c.outlet("placeholderGroup", &T::m_placeholderGroup);
        c.outlet("placeholderLabel", &T::m_placeholderLabel);
        c.action("loadMore", &T::loadMore);
    }

    // Takes the playlist, the deck and the library screen from the context and shows the
    // playlist's name.
    void awakeWithContext(const watchkit::Context& context) override;
    // Appends a page.
    void willActivate() override;

    // Appends the next page of at most ten songs; shows the placeholder for an empty playlist
    // and hides the load-more button once every song is shown.
    void insertPage();
    void loadMore() { insertPage(); }

    // Loads the song onto the deck and closes both screens; a grey song, or one whose
    // identifier has no text form, does nothing. Throws std::out_of_range for an index past
    // the playlist, as the platform raises.
    void tableDidSelectRowAtIndex(watchkit::Table& table, std::size_t rowIndex) override;

    [[nodiscard]] const std::optional<media::MediaPlaylist>& playlist() const { return m_playlist; }
    [[nodiscard]] const std::shared_ptr<model::VXAWTurntable>& turntable() const { return m_turntable; }
    [[nodiscard]] const std::optional<std::vector<media::MediaItem>>& displayedItems() const {
        return m_displayedItems;
    }

private:
    [[nodiscard]] std::size_t itemCount() const { return m_playlist ? m_playlist->count() : 0; }

    watchkit::Outlet<watchkit::Label> m_nameLabel;
    watchkit::Outlet<watchkit::Table> m_table;
    watchkit::Outlet<watchkit::Button> m_loadMoreButton;
    watchkit::Outlet<watchkit::Group> m_placeholderGroup;
    watchkit::Outlet<watchkit::Label> m_placeholderLabel;
    std::optional<media::MediaPlaylist> m_playlist;
    std::shared_ptr<model::VXAWTurntable> m_turntable;
    std::shared_ptr<VXAWLibraryInterfaceController> m_libraryInterfaceController;
    std::optional<std::vector<media::MediaItem>> m_displayedItems;
};

} // namespace vexo::ui
