#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/runtime/KeyValueObserver.h"
#include "platform/text/NumberFormatter.h"
#include "platform/watchkit/Button.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/Image.h"
#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/Slider.h"
#include "ui/ObservationList.h"

namespace vexo::model {
class VXAWMixer;
class VXAWTurntable;
} // namespace vexo::model
namespace vexo::runtime {
struct Notification;
}

// The mixer page: both decks' artwork and transport, the crossfader, the master volume, sync,
// the transition in use, and the force-touch menu's automix item. It observes the mixer and
// both decks from willActivate() to didDeactivate(), sends the mixer's commands and the
// decks' play/pause, brings a deck page to the front, presents the library for a deck, and
// answers the phone's automix notification action. Main loop's thread only.
namespace vexo::ui {

class VXAWMixerInterfaceController : public watchkit::InterfaceController, public runtime::KeyValueObserver {
public:
    // Takes the shared model's mixer, makes the duration formatter (decimal, one fraction
    // digit at most, the user's locale) and joins the in-process notification that fans
    // local-notification actions out to the pages.
    VXAWMixerInterfaceController();
    ~VXAWMixerInterfaceController() override;

    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        using T = VXAWMixerInterfaceController;
        c.outlet("turntable1Group", &T::m_turntable1Group);
        c.outlet("turntable2Group", &T::m_turntable2Group);
        c.outlet("turntable1Button", &T::m_turntable1Button);
        c.outlet("turntable2Button", &T::m_turntable2Button);
        c.outlet("turntable1TransportGroup", &T::m_turntable1TransportGroup);
        c.outlet("turntable2TransportGroup", &T::m_turntable2TransportGroup);
        c.outlet("turntable1TransportButton", &T::m_turntable1TransportButton);
        c.outlet("turntable2TransportButton", &T::m_turntable2TransportButton);
        c.outlet("volumeDownButton", &T::m_volumeDownButton);
        c.outlet("volumeUpButton", &T::m_volumeUpButton);
        c.outlet("volumeImage", &T::m_volumeImage);
        c.outlet("volumeSlider", &T::m_volumeSlider);
        c.outlet("syncButton", &T::m_syncButton);
        c.outlet("syncButtonGroup", &T::m_syncButtonGroup);
        c.outlet("syncButtonLabel", &T::m_syncButtonLabel);
        c.outlet("crossfaderLeftButton", &T::m_crossfaderLeftButton);
        c.outlet("crossfaderRightButton", &T::m_crossfaderRightButton);
        c.outlet("crossfaderImage", &T::m_crossfaderImage);
        c.outlet("transitionTypeLabel", &T::m_transitionTypeLabel);
        c.action("changeVolume", &T::changeVolume);
        c.action("crossfadeLeft", &T::crossfadeLeft);
        c.action("crossfadeMiddle", &T::crossfadeMiddle);
        c.action("crossfadeRight", &T::crossfadeRight);
        c.action("sync", &T::sync);
        c.action("toggleAutomix", &T::toggleAutomix, watchkit::ActionUse::Code);
        c.action("showTurntable1", &T::showTurntable1);
        c.action("showTurntable2", &T::showTurntable2);
        c.action("togglePlaybackTurntable1", &T::togglePlaybackTurntable1);
        c.action("togglePlaybackTurntable2", &T::togglePlaybackTurntable2);
        c.action("showLibraryTurntable1", &T::showLibraryTurntable1);
        c.action("showLibraryTurntable2", &T::showLibraryTurntable2);
    }

    // Colours the volume slider; the context is ignored.
    void awakeWithContext(const watchkit::Context& context) override;
    // Observes, each with an immediate first notice: the mixer's volume, crossfaderPosition,
    // syncActive, automixActive, transitionMode, transitionType and transitionDuration; then
    // "song", "playing" and "currentTime" of deck 1 and deck 2 in turn.
    void willActivate() override;
    // Removes the same thirteen observations in the same order.
    void didDeactivate() override;

    // The automix notification action: this page comes to the front and automix is switched
    // on (6), whatever its state. Anything else is not for the mixer page.
    void didReceiveUserNotification(const runtime::Notification& notification);

    void observeValueForKeyPath(std::string_view keyPath, runtime::Observable& object,
                                const runtime::KeyValueChange& change) override;

    // The 144-point round picture (8-point transparent margin) of any picture, as PNG;
    // nothing when the data is nothing or does not decode.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>>
    displayImageDataForArtworkImageData(const std::optional<std::vector<std::uint8_t>>& imageData) const;

    // Pause (1) when `turntable` plays, else play (0), on that deck.
    void togglePlayback(const std::shared_ptr<model::VXAWTurntable>& turntable);
    // Shows the crossfader frame for the mixer's mode and position.
    void updateCrossfader();
    // Mixer action 1 with {"volume": value} as a 32-bit float number.
    void changeVolume(float value);

    // The crossfade buttons, by the transition mode read at the tap: in mode 0 they move the
    // crossfader (action 2: a quarter left or right from the position as a 32-bit float, kept
    // within 0 and 1 and sent as a float; the middle sends a double 0.5); in mode 1 they start
    // an automatic transition (3, 4, 5); in any other mode they send nothing.
    void crossfadeLeft();
    void crossfadeMiddle();
    void crossfadeRight();
    // Mixer action 0.
    void sync();
    // Automix off (7) while it is on, else on (6).
    void toggleAutomix();
    // Bring the deck's page to the front, while one has been made.
    void showTurntable1();
    void showTurntable2();
    void togglePlaybackTurntable1();
    void togglePlaybackTurntable2();
    // Present "library" with {"turntable": the deck}.
    void showLibraryTurntable1();
    void showLibraryTurntable2();

    // The crossfader image for `mode` and `position`: "mixer-crossfader-manual<i>-f" (mode 0)
    // or "mixer-crossfader-auto<i>-f", where frame i covers [i x 0.2, (i + 1) x 0.2], a
    // boundary belonging to the lower frame; anything outside 0 to 1, NaN included, is frame 4.
    [[nodiscard]] static std::string crossfaderImageName(std::int64_t mode, double position);

    [[nodiscard]] const std::shared_ptr<model::VXAWMixer>& mixer() const { return m_mixer; }
    [[nodiscard]] bool isAnimatingTurntable1() const { return m_animatingTurntable1; }
    [[nodiscard]] bool isAnimatingTurntable2() const { return m_animatingTurntable2; }

private:
    void songDidChange(const model::VXAWTurntable& deck, bool isDeck1);
    void updateTransitionLabel();
    std::optional<std::vector<std::uint8_t>> artworkPicture(const model::VXAWTurntable& deck) const;

    watchkit::Outlet<watchkit::Group> m_turntable1Group;
    watchkit::Outlet<watchkit::Group> m_turntable2Group;
    watchkit::Outlet<watchkit::Button> m_turntable1Button;
    watchkit::Outlet<watchkit::Button> m_turntable2Button;
    watchkit::Outlet<watchkit::Group> m_turntable1TransportGroup;
    watchkit::Outlet<watchkit::Group> m_turntable2TransportGroup;
    watchkit::Outlet<watchkit::Button> m_turntable1TransportButton;
    watchkit::Outlet<watchkit::Button> m_turntable2TransportButton;
    watchkit::Outlet<watchkit::Button> m_volumeDownButton;
    watchkit::Outlet<watchkit::Button> m_volumeUpButton;
    watchkit::Outlet<watchkit::Image> m_volumeImage;
    watchkit::Outlet<watchkit::Slider> m_volumeSlider;
    watchkit::Outlet<watchkit::Button> m_syncButton;
    watchkit::Outlet<watchkit::Group> m_syncButtonGroup;
    watchkit::Outlet<watchkit::Label> m_syncButtonLabel;
    watchkit::Outlet<watchkit::Button> m_crossfaderLeftButton;
    watchkit::Outlet<watchkit::Button> m_crossfaderRightButton;
    watchkit::Outlet<watchkit::Image> m_crossfaderImage;
    watchkit::Outlet<watchkit::Label> m_transitionTypeLabel;
    bool m_animatingTurntable1 = false;
    bool m_animatingTurntable2 = false;
    std::shared_ptr<model::VXAWMixer> m_mixer;
    text::NumberFormatter m_transitionDurationFormatter;
    // Declared after the mixer, so that it is destroyed before it.
    ObservationList m_observations{*this};
};

} // namespace vexo::ui
