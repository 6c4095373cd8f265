#include "ui/VXAWMixerInterfaceController.h"

#include "model/VXAWMixer.h"
#include "model/VXAWModel.h"
#include "model/VXAWProtocol.h"
#include "model/VXAWTurntable.h"
#include "platform/runtime/NotificationCenter.h"
#include "platform/watchkit/Color.h"
#include "ui/ArtworkPicture.h"
#include "ui/Localized.h"
#include "ui/PlaybackProgress.h"
#include "ui/VXAWTurntable1InterfaceController.h"
#include "ui/VXAWTurntable2InterfaceController.h"

namespace vexo::ui {
namespace {

using model::VXAWMixer;
using model::VXAWTurntable;

constexpr watchkit::Color kOrange{0.918, 0.545, 0.145, 1.0};
constexpr watchkit::Color kDarkGrey{0.133, 0.133, 0.137, 1.0};
constexpr double kCrossfadeStep = 0.25;
constexpr std::int64_t kManualMode = 0;
constexpr std::int64_t kAutomaticMode = 1;

constexpr std::string_view kObservedMixerKeyPaths[] = {
    VXAWMixer::kVolumeKeyPath,
    VXAWMixer::kCrossfaderPositionKeyPath,
    VXAWMixer::kSyncActiveKeyPath,
    VXAWMixer::kAutomixActiveKeyPath,
    VXAWMixer::kTransitionModeKeyPath,
    VXAWMixer::kTransitionTypeKeyPath,
    VXAWMixer::kTransitionDurationKeyPath,
};
constexpr std::string_view kObservedDeckKeyPaths[] = {
    VXAWTurntable::kSongKeyPath,
    VXAWTurntable::kPlayingKeyPath,
    VXAWTurntable::kCurrentTimeKeyPath,
};

std::shared_ptr<VXAWTurntable> sharedTurntable(int number) {
    const auto model = model::VXAWModel::sharedModel();
    return number == 1 ? model->turntable1() : model->turntable2();
}

} // namespace

VXAWMixerInterfaceController::VXAWMixerInterfaceController()
    : m_mixer(model::VXAWModel::sharedModel()->mixer()),
      m_transitionDurationFormatter(text::NumberFormatter::decimal()) {
    runtime::NotificationCenter::defaultCenter().addObserver(
        this, [this](const runtime::Notification& notification) { didReceiveUserNotification(notification); },
        model::VXAWDidReceiveUserNotificationNotification);
}

VXAWMixerInterfaceController::~VXAWMixerInterfaceController() {
    runtime::NotificationCenter::defaultCenter().removeObserver(this);
}

void VXAWMixerInterfaceController::awakeWithContext(const watchkit::Context& context) {
    InterfaceController::awakeWithContext(context);
    m_volumeSlider->setColor(kOrange);
}

void VXAWMixerInterfaceController::willActivate() {
    InterfaceController::willActivate();
    for (std::string_view keyPath : kObservedMixerKeyPaths)
        m_observations.add(m_mixer, keyPath, runtime::ObservingOptions::Initial);
    const auto deck1 = sharedTurntable(1);
    const auto deck2 = sharedTurntable(2);
    for (std::string_view keyPath : kObservedDeckKeyPaths) {
        m_observations.add(deck1, keyPath, runtime::ObservingOptions::Initial);
        m_observations.add(deck2, keyPath, runtime::ObservingOptions::Initial);
    }
}

void VXAWMixerInterfaceController::didDeactivate() {
    InterfaceController::didDeactivate();
    m_observations.removeAll();
}

void VXAWMixerInterfaceController::didReceiveUserNotification(const runtime::Notification& notification) {
    const auto identifier = notification.userInfo[model::VXAWMessageIdentifierKey].asString();
    if (!identifier || *identifier != model::VXTUserNotificationActionAutomix)
        return;
    becomeCurrentPage();
    if (m_mixer)
        m_mixer->sendActionMessage(model::VXAWMixerActionAutomixOn);
}

void VXAWMixerInterfaceController::observeValueForKeyPath(std::string_view keyPath, runtime::Observable& object,
                                                          const runtime::KeyValueChange&) {
    if (!m_mixer)
        return;
    const VXAWMixer& mixer = *m_mixer;
    if (keyPath == VXAWMixer::kVolumeKeyPath) {
        m_volumeSlider->setValue(static_cast<float>(mixer.volume()));
    } else if (keyPath == VXAWMixer::kCrossfaderPositionKeyPath) {
        updateCrossfader();
    } else if (keyPath == VXAWMixer::kSyncActiveKeyPath) {
        m_syncButtonGroup->setBackgroundColor(mixer.isSyncActive() ? kOrange : kDarkGrey);
    } else if (keyPath == VXAWMixer::kAutomixActiveKeyPath) {
        // The title states the current state, not what choosing the item does.
        clearAllMenuItems();
        addMenuItemWithImageNamed("automix", localizedString(mixer.isAutomixActive() ? "Automix On" : "Automix Off"),
                                  "toggleAutomix");
    } else if (keyPath == VXAWTurntable::kSongKeyPath) {
        if (const auto* deck = dynamic_cast<const VXAWTurntable*>(&object))
            songDidChange(*deck, deck == sharedTurntable(1).get());
    } else if (keyPath == VXAWTurntable::kPlayingKeyPath) {
        const auto* deck = dynamic_cast<const VXAWTurntable*>(&object);
        if (deck == nullptr || !deck->song())
            return;
        auto& button = deck == sharedTurntable(1).get() ? m_turntable1TransportButton : m_turntable2TransportButton;
        button->setBackgroundImageNamed(deck->isPlaying() ? "turntable-pause-active" : "turntable-play-active");
    } else if (keyPath == VXAWTurntable::kCurrentTimeKeyPath) {
        const auto* deck = dynamic_cast<const VXAWTurntable*>(&object);
        if (deck == nullptr)
            return;
        // This one goes by the deck's number, the others by identity.
        auto& group = deck->turntableNumber() == 1 ? m_turntable1TransportGroup : m_turntable2TransportGroup;
        group->setBackgroundImageNamed(playbackProgressImageName(*deck));
    } else if (keyPath == VXAWMixer::kTransitionModeKeyPath || keyPath == VXAWMixer::kTransitionDurationKeyPath ||
               keyPath == VXAWMixer::kTransitionTypeKeyPath) {
        updateTransitionLabel();
        updateCrossfader();
    }
}

std::optional<std::vector<std::uint8_t>> VXAWMixerInterfaceController::artworkPicture(const VXAWTurntable& deck) const {
    const auto& song = deck.song();
    if (song && song->artworkImageData())
        return displayImageDataForArtworkImageData(song->artworkImageData());
    return displayImageDataForArtworkImageData(defaultArtworkPNG());
}

void VXAWMixerInterfaceController::songDidChange(const VXAWTurntable& deck, bool isDeck1) {
    // Deck 2's artwork is set before anything else, song or not, and so twice with a song;
    // the pages have always done this and the renderer's cache makes it cheap.
    if (!isDeck1)
        m_turntable2Button->setBackgroundImageData(artworkPicture(deck));
    auto& group = isDeck1 ? m_turntable1Group : m_turntable2Group;
    auto& button = isDeck1 ? m_turntable1Button : m_turntable2Button;
    auto& transportButton = isDeck1 ? m_turntable1TransportButton : m_turntable2TransportButton;
    bool& animating = isDeck1 ? m_animatingTurntable1 : m_animatingTurntable2;
    if (deck.song()) {
        transportButton->setBackgroundImageNamed("turntable-play-active");
        group->stopAnimating();
        animating = false;
        button->setBackgroundImageData(artworkPicture(deck));
        return;
    }
    transportButton->setBackgroundImageNamed("turntable-play");
    button->setBackgroundImageNamed("mixer-turntable-artwork-vexo");
    if (!animating) {
        group->startAnimating();
        animating = true;
    }
}

void VXAWMixerInterfaceController::updateTransitionLabel() {
    const VXAWMixer& mixer = *m_mixer;
    std::string text;
    if (mixer.transitionMode() == kManualMode)
        text = localizedString("Manual");
    else if (const auto& type = mixer.transitionType())
        text = localizedString(*type) + " (" + m_transitionDurationFormatter.format(mixer.transitionDuration()) + "s)";
    else
        text = localizedString("--");
    m_transitionTypeLabel->setText(std::move(text));
}

std::string VXAWMixerInterfaceController::crossfaderImageName(std::int64_t mode, double position) {
    std::int64_t frame = 4;
    for (std::int64_t i = 0; i < 5; ++i) {
        if (position >= static_cast<double>(i) * 0.2 && position <= static_cast<double>(i + 1) * 0.2) {
            frame = i;
            break;
        }
    }
    return std::string(mode != kManualMode ? "mixer-crossfader-auto" : "mixer-crossfader-manual") +
           std::to_string(frame) + "-f";
}

void VXAWMixerInterfaceController::updateCrossfader() {
    if (m_mixer)
        m_crossfaderImage->setImageNamed(crossfaderImageName(m_mixer->transitionMode(), m_mixer->crossfaderPosition()));
}

std::optional<std::vector<std::uint8_t>> VXAWMixerInterfaceController::displayImageDataForArtworkImageData(
    const std::optional<std::vector<std::uint8_t>>& imageData) const {
    return roundArtwork(imageData, graphics::RoundArtworkStyle::mixerPage());
}

void VXAWMixerInterfaceController::togglePlayback(const std::shared_ptr<VXAWTurntable>& turntable) {
    if (turntable)
        turntable->sendActionMessage(turntable->isPlaying() ? model::VXAWTurntableActionPause
                                                            : model::VXAWTurntableActionPlay);
}

void VXAWMixerInterfaceController::changeVolume(float value) {
    m_mixer->sendActionMessage(
        model::VXAWMixerActionSetVolume,
        plist::Value(plist::Dictionary{{std::string(model::VXAWMixerVolumeKey), plist::Value(value)}}));
}

namespace {

plist::Value crossfaderParams(plist::Value position) {
    return plist::Value(plist::Dictionary{{std::string(model::VXAWMixerCrossfaderPositionKey), std::move(position)}});
}

// The position the steps start from: the model's, as the 32-bit float the phone sent.
double stepOrigin(const VXAWMixer& mixer) {
    return static_cast<double>(static_cast<float>(mixer.crossfaderPosition()));
}

} // namespace

void VXAWMixerInterfaceController::crossfadeLeft() {
    const std::int64_t mode = m_mixer->transitionMode();
    if (mode == kManualMode) {
        double position = stepOrigin(*m_mixer) - kCrossfadeStep;
        if (position <= 0)
            position = 0.0;
        m_mixer->sendActionMessage(model::VXAWMixerActionSetCrossfaderPosition,
                                   crossfaderParams(plist::Value(static_cast<float>(position))));
    } else if (mode == kAutomaticMode) {
        m_mixer->sendActionMessage(model::VXAWMixerActionTransitionLeft);
    }
}

void VXAWMixerInterfaceController::crossfadeMiddle() {
    const std::int64_t mode = m_mixer->transitionMode();
    if (mode == kManualMode)
        m_mixer->sendActionMessage(model::VXAWMixerActionSetCrossfaderPosition, crossfaderParams(plist::Value(0.5)));
    else if (mode == kAutomaticMode)
        m_mixer->sendActionMessage(model::VXAWMixerActionTransitionMiddle);
}

void VXAWMixerInterfaceController::crossfadeRight() {
    const std::int64_t mode = m_mixer->transitionMode();
    if (mode == kManualMode) {
        // Written so that a position that is not a number goes to 1, as the platform's MIN does.
        const double stepped = stepOrigin(*m_mixer) + kCrossfadeStep;
        const double position = stepped < 1.0 ? stepped : 1.0;
        m_mixer->sendActionMessage(model::VXAWMixerActionSetCrossfaderPosition,
                                   crossfaderParams(plist::Value(static_cast<float>(position))));
    } else if (mode == kAutomaticMode) {
        m_mixer->sendActionMessage(model::VXAWMixerActionTransitionRight);
    }
}

void VXAWMixerInterfaceController::sync() {
    m_mixer->sendActionMessage(model::VXAWMixerActionSync);
}

void VXAWMixerInterfaceController::toggleAutomix() {
    m_mixer->sendActionMessage(m_mixer->isAutomixActive() ? model::VXAWMixerActionAutomixOff
                                                          : model::VXAWMixerActionAutomixOn);
}

void VXAWMixerInterfaceController::showTurntable1() {
    if (auto page = VXAWTurntable1InterfaceController::sharedController())
        page->becomeCurrentPage();
}

void VXAWMixerInterfaceController::showTurntable2() {
    if (auto page = VXAWTurntable2InterfaceController::sharedController())
        page->becomeCurrentPage();
}

void VXAWMixerInterfaceController::togglePlaybackTurntable1() {
    togglePlayback(sharedTurntable(1));
}

void VXAWMixerInterfaceController::togglePlaybackTurntable2() {
    togglePlayback(sharedTurntable(2));
}

void VXAWMixerInterfaceController::showLibraryTurntable1() {
    presentControllerWithName("library", watchkit::Context{{"turntable", std::any(sharedTurntable(1))}});
}

void VXAWMixerInterfaceController::showLibraryTurntable2() {
    presentControllerWithName("library", watchkit::Context{{"turntable", std::any(sharedTurntable(2))}});
}

} // namespace vexo::ui
