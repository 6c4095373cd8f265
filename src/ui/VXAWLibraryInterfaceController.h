#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/media/MediaPlaylist.h"
#include "platform/runtime/KeyValueObserver.h"
#include "platform/watchkit/Button.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/Table.h"
#include "ui/ObservationList.h"

namespace vexo::model {
class VXAWLibrary;
class VXAWTurntable;
} // namespace vexo::model

// The library screen ("library"), presented with {"turntable": the deck a chosen song is for}:
// the local playlists in pages of ten with a load-more button, the placeholder when there are
// none, and back / previous-tab / next-tab buttons that send library actions to the phone.
// Choosing a playlist presents "itunesPlaylist" over it.
//
// The rows shown survive deactivation: coming back (say from the playlist screen) shows the
// same rows and paging. The table is rebuilt from the first page on the first activation and
// whenever the playlists are replaced while the screen is active. Main loop's thread only.
namespace vexo::ui {

class VXAWLibraryInterfaceController : public watchkit::InterfaceController, public runtime::KeyValueObserver {
public:
    // Takes the shared model's library.
    VXAWLibraryInterfaceController();
    ~VXAWLibraryInterfaceController() override;

    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        using T = VXAWLibraryInterfaceController;
        c.outlet("backButton", &T::m_backButton);
        c.outlet("sectionNameLabel", &T::m_sectionNameLabel);
        c.outlet("table", &T::m_table);
        c.outlet("placeholderGroup", &T::m_placeholderGroup);
        c.outlet("placeholderLabel", &T::m_placeholderLabel);
        c.outlet("loadMoreButton", &T::m_loadMoreButton);
        c.action("back", &T::back);
        c.action("previousTab", &T::previousTab);
        c.action("nextTab", &T::nextTab);
        c.action("loadMore", &T::loadMore);
    }

    // Takes the deck under "turntable" (nothing when absent) and empties the section title.
    void awakeWithContext(const watchkit::Context& context) override;
    // Observes the library's playlists, with old values and an immediate first notice.
    void willActivate() override;
    void didDeactivate() override;

    // A first notice while rows are shown leaves them; any other notice rebuilds the table
    // from the first page.
    void observeValueForKeyPath(std::string_view keyPath, runtime::Observable& object,
                                const runtime::KeyValueChange& change) override;

    // Appends the next page of at most ten playlists (reading the playlists starts their first
    // load), shows the placeholder when the loaded list is empty, and hides the load-more
    // button once every playlist is shown. Throws std::out_of_range when more rows are shown
    // than the library now has, which happens only after the playlists shrank while the
    // screen was inactive; the platform raises there too.
    void insertPage();
    void loadMore() { insertPage(); }

    // Presents "itunesPlaylist" with {"playlist", "turntable", "library": this screen}.
    // Throws std::out_of_range for a row that is not shown, and std::logic_error when the
    // screen was presented without a deck (a fault of the presenter).
    void tableDidSelectRowAtIndex(watchkit::Table& table, std::size_t rowIndex) override;

    // Library actions 3, 4 and 5, each with an empty dictionary.
    void back();
    void previousTab();
    void nextTab();

    [[nodiscard]] const std::shared_ptr<model::VXAWLibrary>& library() const { return m_library; }
    [[nodiscard]] const std::shared_ptr<model::VXAWTurntable>& turntable() const { return m_turntable; }
    [[nodiscard]] const std::optional<std::vector<media::MediaPlaylist>>& displayedPlaylists() const {
        return m_displayedPlaylists;
    }

private:
    watchkit::Outlet<watchkit::Button> m_backButton;
    watchkit::Outlet<watchkit::Label> m_sectionNameLabel;
    watchkit::Outlet<watchkit::Table> m_table;
    watchkit::Outlet<watchkit::Group> m_placeholderGroup;
    watchkit::Outlet<watchkit::Label> m_placeholderLabel;
    watchkit::Outlet<watchkit::Button> m_loadMoreButton;
    std::shared_ptr<model::VXAWLibrary> m_library;
    std::shared_ptr<model::VXAWTurntable> m_turntable;
    std::optional<std::vector<media::MediaPlaylist>> m_displayedPlaylists;
    // Declared after the library, so that it is destroyed before it.
    ObservationList m_observations{*this};
};

} // namespace vexo::ui
