#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/runtime/KeyValueObserver.h"
#include "platform/watchkit/Button.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/Image.h"
#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/Timer.h"
#include "ui/ObservationList.h"

namespace vexo::model {
class VXAWTurntable;
}
namespace vexo::runtime {
class Timer;
struct Notification;
} // namespace vexo::runtime

// The page of one deck: artwork, title, tempo, key, the progress ring around the play button,
// loop and effect states, and the deck's commands. Used through its two subclasses, which
// fix the deck number (VXAWTurntable1InterfaceController, VXAWTurntable2InterfaceController).
//
// Everything shown comes from the deck model, observed from willActivate() to
// didDeactivate(); every command goes out through the deck's sendActionMessage() and the
// page changes only when the phone's status comes back. Main loop's thread only.
namespace vexo::ui {

class VXAWTurntableInterfaceController : public watchkit::InterfaceController, public runtime::KeyValueObserver {
public:
    // initWithTurntableNumber: takes deck `turntableNumber` of the shared model (nothing for
    // a number that names no deck) and joins the in-process notification that fans
    // local-notification actions out to the pages.
    explicit VXAWTurntableInterfaceController(std::int64_t turntableNumber);
    // Leaves the notification centre; stops the sync timer and any observation still held.
    ~VXAWTurntableInterfaceController() override;

    // Outlets and actions under the layout's names. Subclasses are described by this same
    // declaration, so their pages connect to the base's members.
    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        using T = VXAWTurntableInterfaceController;
        c.outlet("placeholderGroup", &T::m_placeholderGroup);
        c.outlet("mainGroup", &T::m_mainGroup);
        c.outlet("artworkGroup", &T::m_artworkGroup);
        c.outlet("artworkButton", &T::m_artworkButton);
        c.outlet("bpmLabel", &T::m_bpmLabel);
        c.outlet("keyLabel", &T::m_keyLabel);
        c.outlet("playGroup", &T::m_playGroup);
        c.outlet("playButton", &T::m_playButton);
        c.outlet("previousButton", &T::m_previousButton);
        c.outlet("nextButton", &T::m_nextButton);
        c.outlet("durationTimer", &T::m_durationTimer);
        c.outlet("durationImage", &T::m_durationImage);
        c.outlet("currentTimeLabel", &T::m_currentTimeLabel);
        c.outlet("nameLabel", &T::m_nameLabel);
        c.outlet("artistLabel", &T::m_artistLabel);
        c.outlet("autoLoopButtonGroup", &T::m_autoLoopButtonGroup);
        c.outlet("autoLoopButton", &T::m_autoLoopButton);
        c.outlet("fxButton", &T::m_fxButton);
        c.outlet("fxButtonGroup", &T::m_fxButtonGroup);
        c.outlet("fxButtonLabel", &T::m_fxButtonLabel);
        c.outlet("fxButtonTitleLabel", &T::m_fxButtonTitleLabel);
        c.outlet("fxLowPassButton", &T::m_fxLowPassButton);
        c.outlet("fxHighPassButton", &T::m_fxHighPassButton);
        c.action("showLibrary", &T::showLibrary);
        c.action("showQueue", &T::showQueue);
        c.action("togglePlayback", &T::togglePlayback);
        c.action("skipForward", &T::skipForward);
        c.action("skipBackward", &T::skipBackward);
        c.action("autoLoopDurationHalf", &T::autoLoopDurationHalf);
        c.action("autoLoopDurationDouble", &T::autoLoopDurationDouble);
        c.action("toggleLooping", &T::toggleLooping);
        c.action("fxSelectNext", &T::fxSelectNext);
        c.action("fxSelectPrevious", &T::fxSelectPrevious);
        c.action("toggleFx", &T::toggleFx);
        c.action("toggleFxLowPass", &T::toggleFxLowPass);
        c.action("toggleFxHighPass", &T::toggleFxHighPass);
        c.action("next", &T::next);
        c.action("previous", &T::previous);
    }

    // Lifecycle. The context is ignored. willActivate() observes twelve properties of the
    // deck, each with an immediate first notice, so every activation repaints the whole page;
    // didDeactivate() stops the sync timer and the observations (not the running clock nor
    // the artwork animation).
    void awakeWithContext(const watchkit::Context& context) override;
    void willActivate() override;
    void didDeactivate() override;

    // Re-posts a local-notification action in-process as
    // VXAWDidReceiveUserNotificationNotification: the notification's user info with
    // "identifier" set to `identifier` (no user info at all when it had none).
    void handleActionWithIdentifier(const std::string& identifier,
                                    const plist::Value& localNotificationUserInfo) override;
    // A load action for this page's deck makes it the current page; anything else is not
    // for the deck pages.
    void didReceiveUserNotification(const runtime::Notification& notification);

    // Sends the deck status request (16); the sync timer's tick.
    void sendSyncTimerAction(runtime::Timer& timer);

    void observeValueForKeyPath(std::string_view keyPath, runtime::Observable& object,
                                const runtime::KeyValueChange& change) override;

    // The 92-point round badge (6-point grey ring) of any picture, as PNG; nothing when the
    // data is nothing or does not decode.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>>
    displayImageDataForArtworkImageData(const std::optional<std::vector<std::uint8_t>>& imageData) const;

    // Presents "library" with {"turntable": the deck} and "queue" with {"turntableNumber": n}.
    void showLibrary();
    void showQueue();

    // Each sends one deck action without parameters: play (0) or pause (1) by the deck's
    // playing flag, skip forward 2, skip backward 3, next 4, previous 5, auto-loop half 8 and
    // double 9, looping 10, effect next 11 and previous 12, effect 13, low-pass 14, high-pass 15.
    void togglePlayback();
    void skipForward();
    void skipBackward();
    void autoLoopDurationHalf();
    void autoLoopDurationDouble();
    void toggleLooping();
    void fxSelectNext();
    void fxSelectPrevious();
    void toggleFx();
    void toggleFxLowPass();
    void toggleFxHighPass();
    void next();
    void previous();

    // The auto-loop button's title for an interval in beats: "1/16" for an eighth (the label
    // the product has always shown), "1/4", "1/2", the whole number of beats from 1 up, and
    // nothing ("") for any other value below 1.
    [[nodiscard]] static std::string autoLoopTitle(double beats);

    [[nodiscard]] std::int64_t turntableNumber() const { return m_turntableNumber; }
    [[nodiscard]] const std::shared_ptr<model::VXAWTurntable>& turntable() const { return m_turntable; }
    [[nodiscard]] const std::shared_ptr<runtime::Timer>& durationSyncTimer() const { return m_durationSyncTimer; }
    [[nodiscard]] bool isAnimatingArtwork() const { return m_animatingArtwork; }

private:
    void songDidChange();
    void playingDidChange();
    void sendAction(std::int64_t action);
    void stopSyncTimer();
    // Dates the running clock so that it shows the deck's current time.
    void alignDurationTimer();

    std::int64_t m_turntableNumber = 0;
    watchkit::Outlet<watchkit::Group> m_placeholderGroup;
    watchkit::Outlet<watchkit::Group> m_mainGroup;
    watchkit::Outlet<watchkit::Group> m_artworkGroup;
    watchkit::Outlet<watchkit::Button> m_artworkButton;
    watchkit::Outlet<watchkit::Label> m_bpmLabel;
    watchkit::Outlet<watchkit::Label> m_keyLabel;
    watchkit::Outlet<watchkit::Group> m_playGroup;
    watchkit::Outlet<watchkit::Button> m_playButton;
    watchkit::Outlet<watchkit::Button> m_previousButton;
    watchkit::Outlet<watchkit::Button> m_nextButton;
    watchkit::Outlet<watchkit::Timer> m_durationTimer;
    watchkit::Outlet<watchkit::Image> m_durationImage;
    watchkit::Outlet<watchkit::Label> m_currentTimeLabel;
    watchkit::Outlet<watchkit::Label> m_nameLabel;
    watchkit::Outlet<watchkit::Label> m_artistLabel;
    watchkit::Outlet<watchkit::Group> m_autoLoopButtonGroup;
    watchkit::Outlet<watchkit::Button> m_autoLoopButton;
    watchkit::Outlet<watchkit::Button> m_fxButton;
    watchkit::Outlet<watchkit::Group> m_fxButtonGroup;
    watchkit::Outlet<watchkit::Label> m_fxButtonLabel;
    watchkit::Outlet<watchkit::Label> m_fxButtonTitleLabel;
    watchkit::Outlet<watchkit::Button> m_fxLowPassButton;
    watchkit::Outlet<watchkit::Button> m_fxHighPassButton;
    std::shared_ptr<runtime::Timer> m_durationSyncTimer;
    std::shared_ptr<model::VXAWTurntable> m_turntable;
    bool m_animatingArtwork = false;
    // Declared after the deck, so that it is destroyed before it.
    ObservationList m_observations{*this};
};

} // namespace vexo::ui
