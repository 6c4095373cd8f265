#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/media/MediaItem.h"
#include "platform/runtime/KeyValueObserver.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/Table.h"
#include "ui/ObservationList.h"

namespace vexo::model {
class VXAWTurntable;
class VXAWSong;
} // namespace vexo::model

// The queue screen ("queue"), presented by a deck page with {"turntableNumber": n}.
//
// The phone does not tell the watch what a deck will play next, so the screen shows what the
// watch knows: the deck's song and, when the watch loaded it from a playlist, the playable
// songs that follow it there (what the deck's next button loads). Without a song, or with
// nothing known to follow, it says how to choose one, and its library button opens the
// library for this deck. It follows the deck's song while it is shown. Main loop's thread only.
namespace vexo::ui {

class VXAWQueueInterfaceController : public watchkit::InterfaceController, public runtime::KeyValueObserver {
public:
    VXAWQueueInterfaceController() = default;
    ~VXAWQueueInterfaceController() override;

    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        using T = VXAWQueueInterfaceController;
        c.outlet("nameLabel", &T::m_nameLabel);
        c.outlet("nowPlayingGroup", &T::m_nowPlayingGroup);
        c.outlet("songNameLabel", &T::m_songNameLabel);
        c.outlet("songArtistLabel", &T::m_songArtistLabel);
        c.outlet("upNextLabel", &T::m_upNextLabel);
        c.outlet("table", &T::m_table);
        c.outlet("messageGroup", &T::m_messageGroup);
        c.outlet("messageLabel", &T::m_messageLabel);
        c.outlet("hintLabel", &T::m_hintLabel);
        c.action("showLibrary", &T::showLibrary);
        c.action("close", &T::close);
    }

    // Takes the context's deck (none for a number that names no deck) and shows "Deck <n>"
    // ("--" without one).
    void awakeWithContext(const watchkit::Context& context) override;
    // Observe the deck's song, with an immediate first notice, while the screen is shown.
    void willActivate() override;
    void didDeactivate() override;
    void observeValueForKeyPath(std::string_view keyPath, runtime::Observable& object,
                                const runtime::KeyValueChange& change) override;

    // Presents "library" for this deck, as the deck page does.
    void showLibrary();
    // Takes the screen off.
    void close();

    // The deck number of the context; 0 when it had none.
    [[nodiscard]] std::int64_t turntableNumber() const { return m_turntableNumber; }

    // The playable songs after `song` in the deck's source playlist, at most a page of them;
    // none when the song is not found there (or there is no song or no source).
    [[nodiscard]] static std::vector<media::MediaItem> songsFollowing(const model::VXAWSong* song,
                                                                      const model::VXAWTurntable& deck);

private:
    void showDeck();

    watchkit::Outlet<watchkit::Label> m_nameLabel;
    watchkit::Outlet<watchkit::Group> m_nowPlayingGroup;
    watchkit::Outlet<watchkit::Label> m_songNameLabel;
    watchkit::Outlet<watchkit::Label> m_songArtistLabel;
    watchkit::Outlet<watchkit::Label> m_upNextLabel;
    watchkit::Outlet<watchkit::Table> m_table;
    watchkit::Outlet<watchkit::Group> m_messageGroup;
    watchkit::Outlet<watchkit::Label> m_messageLabel;
    watchkit::Outlet<watchkit::Label> m_hintLabel;
    std::int64_t m_turntableNumber = 0;
    std::shared_ptr<model::VXAWTurntable> m_turntable;
    // Declared after the deck, so that it is destroyed before it.
    ObservationList m_observations{*this};
};

} // namespace vexo::ui
