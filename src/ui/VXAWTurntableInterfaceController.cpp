#include "ui/VXAWTurntableInterfaceController.h"

#include <chrono>
#include <cstdio>

#include "model/Environment.h"
#include "model/VXAWModel.h"
#include "model/VXAWProtocol.h"
#include "model/VXAWTurntable.h"
#include "platform/log/Log.h"
#include "platform/runtime/NotificationCenter.h"
#include "platform/runtime/RunLoop.h"
#include "platform/runtime/Timer.h"
#include "platform/watchkit/Color.h"
#include "platform/watchkit/Screen.h"
#include "ui/ArtworkPicture.h"
#include "ui/PlaybackProgress.h"

namespace vexo::ui {
namespace {

using model::VXAWTurntable;

constexpr double kSyncInterval = 1.0;
constexpr std::string_view kEmptyText = "--";

// The observed properties, in the order a repaint runs through them.
constexpr std::string_view kObservedKeyPaths[] = {
    VXAWTurntable::kSongKeyPath,
    VXAWTurntable::kPlayingKeyPath,
    VXAWTurntable::kCurrentTimeKeyPath,
    VXAWTurntable::kCurrentDisplayTimeKeyPath,
    VXAWTurntable::kAutoLoopBeatIntervalKeyPath,
    VXAWTurntable::kLoopingKeyPath,
    VXAWTurntable::kFxNameKeyPath,
    VXAWTurntable::kFxEnabledKeyPath,
    VXAWTurntable::kFxLowPassEnabledKeyPath,
    VXAWTurntable::kFxHighPassEnabledKeyPath,
    VXAWTurntable::kBpmKeyPath,
    VXAWTurntable::kKeyKeyPath,
};

std::string textOrEmptyMark(const std::optional<std::string>& text) {
    return text && !text->empty() ? *text : std::string(kEmptyText);
}

} // namespace

VXAWTurntableInterfaceController::VXAWTurntableInterfaceController(std::int64_t turntableNumber)
    : m_turntableNumber(turntableNumber),
      m_turntable(model::VXAWModel::sharedModel()->turntable(turntableNumber)) {
    runtime::NotificationCenter::defaultCenter().addObserver(
        this, [this](const runtime::Notification& notification) { didReceiveUserNotification(notification); },
        model::VXAWDidReceiveUserNotificationNotification);
}

VXAWTurntableInterfaceController::~VXAWTurntableInterfaceController() {
    runtime::NotificationCenter::defaultCenter().removeObserver(this);
    // The platform's timer would have kept the page alive; ours must not call a page that
    // is gone.
    stopSyncTimer();
}

void VXAWTurntableInterfaceController::awakeWithContext(const watchkit::Context& context) {
    InterfaceController::awakeWithContext(context);
}

void VXAWTurntableInterfaceController::willActivate() {
    InterfaceController::willActivate();
    for (std::string_view keyPath : kObservedKeyPaths)
        m_observations.add(m_turntable, keyPath, runtime::ObservingOptions::Initial);
}

void VXAWTurntableInterfaceController::didDeactivate() {
    InterfaceController::didDeactivate();
    stopSyncTimer();
    m_observations.removeAll();
}

void VXAWTurntableInterfaceController::handleActionWithIdentifier(const std::string& identifier,
                                                                  const plist::Value& localNotificationUserInfo) {
    // A notification without user info loses the identifier too, and every page then
    // ignores the post.
    plist::Value userInfo;
    if (localNotificationUserInfo.asDictionary()) {
        userInfo = localNotificationUserInfo;
        userInfo.set(std::string(model::VXAWMessageIdentifierKey), plist::Value(identifier));
    }
    runtime::NotificationCenter::defaultCenter().post(model::VXAWDidReceiveUserNotificationNotification, this,
                                                      std::move(userInfo));
}

void VXAWTurntableInterfaceController::didReceiveUserNotification(const runtime::Notification& notification) {
    const plist::Value& userInfo = notification.userInfo;
    const auto identifier = userInfo[model::VXAWMessageIdentifierKey].asString();
    if (identifier && *identifier == model::VXTUserNotificationActionLoad &&
        userInfo[model::kActionTurntableKey].integerValue() == m_turntableNumber)
        becomeCurrentPage();
}

void VXAWTurntableInterfaceController::sendSyncTimerAction(runtime::Timer&) {
    sendAction(model::VXAWTurntableActionRequestStatus);
}

void VXAWTurntableInterfaceController::observeValueForKeyPath(std::string_view keyPath, runtime::Observable&,
                                                              const runtime::KeyValueChange&) {
    if (!m_turntable)
        return;
    const VXAWTurntable& deck = *m_turntable;
    if (keyPath == VXAWTurntable::kSongKeyPath) {
        songDidChange();
    } else if (keyPath == VXAWTurntable::kPlayingKeyPath) {
        playingDidChange();
    } else if (keyPath == VXAWTurntable::kCurrentTimeKeyPath) {
        m_playGroup->setBackgroundImageNamed(playbackProgressImageName(deck));
        alignDurationTimer();
    } else if (keyPath == VXAWTurntable::kAutoLoopBeatIntervalKeyPath) {
        m_autoLoopButton->setTitle(autoLoopTitle(deck.autoLoopBeatInterval()));
    } else if (keyPath == VXAWTurntable::kLoopingKeyPath) {
        m_autoLoopButtonGroup->setBackgroundImageNamed(deck.isLooping() ? "turntable-button-center-active"
                                                                        : "turntable-button-center");
    } else if (keyPath == VXAWTurntable::kFxNameKeyPath) {
        m_fxButtonLabel->setText(deck.fxName());
    } else if (keyPath == VXAWTurntable::kFxEnabledKeyPath) {
        const bool enabled = deck.isFxEnabled();
        m_fxButtonGroup->setBackgroundImageNamed(enabled ? "turntable-button-center-active"
                                                         : "turntable-button-center");
        m_fxButtonTitleLabel->setTextColor(enabled ? watchkit::colors::white() : watchkit::colors::lightGray());
    } else if (keyPath == VXAWTurntable::kFxLowPassEnabledKeyPath) {
        m_fxLowPassButton->setBackgroundImageNamed(deck.isFxLowPassEnabled() ? "turntable-button-seg2-left-active"
                                                                             : "turntable-button-seg2-left");
    } else if (keyPath == VXAWTurntable::kFxHighPassEnabledKeyPath) {
        m_fxHighPassButton->setBackgroundImageNamed(deck.isFxHighPassEnabled() ? "turntable-button-seg2-right-active"
                                                                               : "turntable-button-seg2-right");
    } else if (keyPath == VXAWTurntable::kBpmKeyPath) {
        m_bpmLabel->setText(deck.bpm() < 1 ? std::string(kEmptyText) : std::to_string(deck.bpm()) + " BPM");
    } else if (keyPath == VXAWTurntable::kKeyKeyPath) {
        m_keyLabel->setText(textOrEmptyMark(deck.key()));
    } else if (keyPath == VXAWTurntable::kCurrentDisplayTimeKeyPath) {
        m_currentTimeLabel->setText(textOrEmptyMark(deck.currentDisplayTime()));
    }
}

void VXAWTurntableInterfaceController::songDidChange() {
    const auto& song = m_turntable->song();
    if (song) {
        m_artworkGroup->stopAnimating();
        m_animatingArtwork = false;
        m_nameLabel->setText(song->name());
        m_artistLabel->setText(song->artist());
        m_previousButton->setBackgroundImageNamed("turntable-prev-active");
        m_nextButton->setBackgroundImageNamed("turntable-next-active");
        // The play button is left to the "playing" notice.
        const auto& artwork = song->artworkImageData();
        m_artworkButton->setBackgroundImageData(
            displayImageDataForArtworkImageData(artwork ? artwork : defaultArtworkPNG()));
        return;
    }
    for (auto* label : {&m_nameLabel, &m_artistLabel, &m_keyLabel, &m_bpmLabel})
        (*label)->setText(std::string(kEmptyText));
    // The flag keeps a repeated empty-deck notice from restarting the animation.
    if (!m_animatingArtwork) {
        m_artworkGroup->startAnimating();
        m_animatingArtwork = true;
    }
    m_playButton->setBackgroundImageNamed("turntable-play");
    m_previousButton->setBackgroundImageNamed("turntable-prev");
    m_nextButton->setBackgroundImageNamed("turntable-next");
    m_artworkButton->setBackgroundImageNamed("turntable-artwork-vexo");
}

void VXAWTurntableInterfaceController::playingDidChange() {
    // An empty deck keeps the idle play button the "song" notice painted, and its timer.
    if (!m_turntable->song())
        return;
    if (!m_turntable->isPlaying()) {
        m_durationTimer->stop();
        alignDurationTimer();
        stopSyncTimer();
        m_playButton->setBackgroundImageNamed("turntable-play-active");
        return;
    }
    m_durationTimer->start();
    alignDurationTimer();
    if (!m_durationSyncTimer) {
        runtime::RunLoop* loop =
            model::environment().mainLoop ? model::environment().mainLoop : runtime::RunLoop::current();
        if (loop != nullptr) {
            std::weak_ptr<InterfaceController> weakSelf = weak_from_this();
            m_durationSyncTimer = runtime::Timer::scheduledTimer(
                *loop, kSyncInterval, runtime::Timer::Repeats::Yes, [weakSelf](runtime::Timer& timer) {
                    if (auto self = std::static_pointer_cast<VXAWTurntableInterfaceController>(weakSelf.lock()))
                        self->sendSyncTimerAction(timer);
                });
        } else {
            log::warning("ui", "no main loop; the deck page does not ask for status while playing");
        }
    }
    m_playButton->setBackgroundImageNamed("turntable-pause-active");
}

void VXAWTurntableInterfaceController::alignDurationTimer() {
    // The clock counts from its date, so dating it to the moment the song was at 0:00 makes it
    // read the phone's last position and run on from there. A stopped clock holds what it
    // showed when it stopped, so its date moves with the stop instead.
    using Clock = watchkit::Timer::Clock;
    const watchkit::Screen* page = screen();
    const Clock::time_point now = page ? page->now() : Clock::now();
    const std::optional<Clock::time_point>& stoppedAt = m_durationTimer->stoppedAt();
    const Clock::time_point reference = !m_durationTimer->isRunning() && stoppedAt ? *stoppedAt : now;
    m_durationTimer->setDate(reference - std::chrono::seconds(m_turntable->currentTime()));
}

void VXAWTurntableInterfaceController::stopSyncTimer() {
    if (m_durationSyncTimer)
        m_durationSyncTimer->invalidate();
    m_durationSyncTimer = nullptr;
}

std::optional<std::vector<std::uint8_t>> VXAWTurntableInterfaceController::displayImageDataForArtworkImageData(
    const std::optional<std::vector<std::uint8_t>>& imageData) const {
    return roundArtwork(imageData, graphics::RoundArtworkStyle::deckPage());
}

std::string VXAWTurntableInterfaceController::autoLoopTitle(double beats) {
    if (beats == 0.125)
        return "1/16";
    if (beats == 0.25)
        return "1/4";
    if (beats == 0.5)
        return "1/2";
    if (beats >= 1.0) {
        char text[400];
        std::snprintf(text, sizeof text, "%.f", beats);
        return text;
    }
    return "";
}

void VXAWTurntableInterfaceController::showLibrary() {
    presentControllerWithName("library", watchkit::Context{{"turntable", std::any(m_turntable)}});
}

void VXAWTurntableInterfaceController::showQueue() {
    presentControllerWithName("queue", watchkit::Context{{"turntableNumber", std::any(m_turntableNumber)}});
}

void VXAWTurntableInterfaceController::sendAction(std::int64_t action) {
    if (m_turntable)
        m_turntable->sendActionMessage(action);
}

void VXAWTurntableInterfaceController::togglePlayback() {
    // The code is the playing flag itself: 1 pauses a playing deck, 0 plays a stopped one.
    sendAction(m_turntable && m_turntable->isPlaying() ? model::VXAWTurntableActionPause
                                                       : model::VXAWTurntableActionPlay);
}

void VXAWTurntableInterfaceController::skipForward() {
    sendAction(model::VXAWTurntableActionSkipForward);
}
void VXAWTurntableInterfaceController::skipBackward() {
    sendAction(model::VXAWTurntableActionSkipBackward);
}
void VXAWTurntableInterfaceController::next() {
    sendAction(model::VXAWTurntableActionNext);
}
void VXAWTurntableInterfaceController::previous() {
    sendAction(model::VXAWTurntableActionPrevious);
}
void VXAWTurntableInterfaceController::autoLoopDurationHalf() {
    sendAction(model::VXAWTurntableActionAutoLoopHalf);
}
void VXAWTurntableInterfaceController::autoLoopDurationDouble() {
    sendAction(model::VXAWTurntableActionAutoLoopDouble);
}
void VXAWTurntableInterfaceController::toggleLooping() {
    sendAction(model::VXAWTurntableActionToggleLooping);
}
void VXAWTurntableInterfaceController::fxSelectNext() {
    sendAction(model::VXAWTurntableActionFxSelectNext);
}
void VXAWTurntableInterfaceController::fxSelectPrevious() {
    sendAction(model::VXAWTurntableActionFxSelectPrevious);
}
void VXAWTurntableInterfaceController::toggleFx() {
    sendAction(model::VXAWTurntableActionToggleFx);
}
void VXAWTurntableInterfaceController::toggleFxLowPass() {
    sendAction(model::VXAWTurntableActionToggleFxLowPass);
}
void VXAWTurntableInterfaceController::toggleFxHighPass() {
    sendAction(model::VXAWTurntableActionToggleFxHighPass);
}

} // namespace vexo::ui
