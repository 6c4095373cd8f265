#include "model/VXAWTurntable.h"

#include "model/Environment.h"
#include "model/VXAWProtocol.h"
#include "platform/log/Log.h"
#include "platform/runtime/RunLoop.h"
#include "platform/runtime/Timer.h"
#include "transport/MMWormhole.h"

namespace vexo::model {
namespace {

constexpr double kStatusPollInterval = 1.0;

std::string withDeckNumber(std::string_view base, std::int64_t number) {
    return std::string(base) + std::to_string(number);
}

} // namespace

VXAWTurntable::VXAWTurntable(std::int64_t turntableNumber)
    : m_turntableNumber(turntableNumber) {
    setupWormhole();
}

VXAWTurntable::~VXAWTurntable() {
    teardownWormhole();
    // The platform's timer would keep the deck alive; ours must not outlive it.
    if (m_currentTimeUpdateTimer)
        m_currentTimeUpdateTimer->invalidate();
}

std::string VXAWTurntable::statusMessageIdentifier() const {
    return withDeckNumber(VXAWTurntableStatusMessageIdentifier, m_turntableNumber);
}

std::string VXAWTurntable::songInfoMessageIdentifier() const {
    return withDeckNumber(VXAWTurntableSongInfoMessageIdentifier, m_turntableNumber);
}

void VXAWTurntable::setupWormhole() {
    setWormhole(std::make_shared<transport::MMWormhole>(
        environment().applicationGroupIdentifier, std::string(kWormholeMessageDirectory), environment().mainLoop));
    // A play state left from an earlier run must never show; the last song may.
    m_wormhole->clearMessageContentsForIdentifier(statusMessageIdentifier());

    const std::string status = statusMessageIdentifier();
    const std::string songInfo = songInfoMessageIdentifier();
    m_wormhole->listenForMessageWithIdentifier(
        status, [this, status](const plist::Value& message) { processMessageWithIdentifier(status, message); });
    m_wormhole->listenForMessageWithIdentifier(
        songInfo, [this, songInfo](const plist::Value& message) { processMessageWithIdentifier(songInfo, message); });
    processMessageWithIdentifier(status, m_wormhole->messageWithIdentifier(status));
    processMessageWithIdentifier(songInfo, m_wormhole->messageWithIdentifier(songInfo));
    sendActionMessage(VXAWTurntableActionRequestStatus);
}

void VXAWTurntable::teardownWormhole() {
    if (!m_wormhole)
        return;
    m_wormhole->stopListeningForMessageWithIdentifier(statusMessageIdentifier());
    m_wormhole->stopListeningForMessageWithIdentifier(songInfoMessageIdentifier());
    setWormhole(nullptr);
}

void VXAWTurntable::processMessageWithIdentifier(std::string_view identifier, const plist::Value& contents) {
    if (contents.isNull())
        return;
    if (identifier == statusMessageIdentifier())
        applyStatus(contents);
    else if (identifier == songInfoMessageIdentifier())
        applySongInfo(contents);
}

void VXAWTurntable::applyStatus(const plist::Value& status) {
    // Only a change of "playing" touches the poll, so a repeated status never restarts it.
    const bool playing = status[VXAWTurntablePlayingKey].boolValue();
    if (playing != m_playing) {
        setPlaying(playing);
        if (playing)
            startUpdatingCurrentTime();
        else
            stopUpdatingCurrentTime();
    }
    setCurrentTime(status[VXAWTurntableCurrentTimeKey].integerValue());
    setCurrentDisplayTime(status[VXAWTurntableCurrentDisplayTimeKey].stringValue());
    // Read in single precision, as the phone's fractional values always are.
    setAutoLoopBeatInterval(static_cast<double>(status[VXAWTurntableAutoLoopBeatIntervalKey].floatValue()));
    setLooping(status[VXAWTurntableLoopingKey].boolValue());
    setFxName(status[VXAWTurntableFxNameKey].stringValue());
    setFxEnabled(status[VXAWTurntableFxEnabledKey].boolValue());
    setFxLowPassEnabled(status[VXAWTurntableFxLowPassEnabledKey].boolValue());
    setFxHighPassEnabled(status[VXAWTurntableFxHighPassEnabledKey].boolValue());
    setBpm(status[VXAWTurntableBpmKey].integerValue());
    setKey(status[VXAWTurntableKeyKey].stringValue());
}

void VXAWTurntable::applySongInfo(const plist::Value& songInfo) {
    const plist::Value& songDictionary = songInfo[VXAWTurntableCurrentSongKey];
    if (!songDictionary.asDictionary()) {
        setSong(nullptr);
        return;
    }
    const auto songID = songDictionary[VXAWSongIdentifierKey].stringValue();
    const bool sameSong = songID && m_song && m_song->identifier() == songID;
    if (!sameSong) {
        setSong(std::make_shared<VXAWSong>(songDictionary));
        return;
    }
    // The same object stays; observers hear of it only when something visible changed.
    if (m_song->updateMetadata(songDictionary)) {
        willChangeValueForKey(kSongKeyPath);
        didChangeValueForKey(kSongKeyPath);
    }
}

void VXAWTurntable::sendActionMessage(std::int64_t action, const plist::Value& params) {
    plist::Dictionary contents{
        {std::string(kActionTurntableKey), plist::Value(m_turntableNumber)},
        {std::string(kActionCodeKey), plist::Value(action)},
    };
    if (!params.isNull())
        contents.emplace(kActionParamsKey, params);
    openParentApplication(plist::Value(plist::Dictionary{
        {std::string(VXAWMessageIdentifierKey), plist::Value(VXAWTurntableActionMessageIdentifier)},
        {std::string(VXAWMessageContentsKey), plist::Value(std::move(contents))},
    }));
}

void VXAWTurntable::startUpdatingCurrentTime() {
    if (m_currentTimeUpdateTimer && m_currentTimeUpdateTimer->isValid())
        return;
    // The poll belongs on the main loop whichever thread applied the status; without any
    // loop there is nothing to schedule on, and a status must never throw.
    runtime::RunLoop* loop = environment().mainLoop ? environment().mainLoop : runtime::RunLoop::current();
    if (loop == nullptr) {
        log::warning("model", "no main loop; deck " + std::to_string(m_turntableNumber) + " does not poll");
        return;
    }
    setCurrentTimeUpdateTimer(
        runtime::Timer::scheduledTimer(*loop, kStatusPollInterval, runtime::Timer::Repeats::Yes,
                                       [this](runtime::Timer& timer) { updateCurrentTime(timer); }));
}

void VXAWTurntable::stopUpdatingCurrentTime() {
    if (m_currentTimeUpdateTimer)
        m_currentTimeUpdateTimer->invalidate();
    setCurrentTimeUpdateTimer(nullptr);
}

void VXAWTurntable::updateCurrentTime(runtime::Timer&) {
    sendActionMessage(VXAWTurntableActionRequestStatus);
}

std::any VXAWTurntable::valueForKey(std::string_view key) const {
    if (key == kTurntableNumberKeyPath)
        return m_turntableNumber;
    if (key == kSongKeyPath)
        return m_song;
    if (key == kPlayingKeyPath)
        return m_playing;
    if (key == kCurrentTimeKeyPath)
        return m_currentTime;
    if (key == kCurrentDisplayTimeKeyPath)
        return m_currentDisplayTime;
    if (key == kAutoLoopBeatIntervalKeyPath)
        return m_autoLoopBeatInterval;
    if (key == kLoopingKeyPath)
        return m_looping;
    if (key == kFxNameKeyPath)
        return m_fxName;
    if (key == kFxEnabledKeyPath)
        return m_fxEnabled;
    if (key == kFxLowPassEnabledKeyPath)
        return m_fxLowPassEnabled;
    if (key == kFxHighPassEnabledKeyPath)
        return m_fxHighPassEnabled;
    if (key == kBpmKeyPath)
        return m_bpm;
    if (key == kKeyKeyPath)
        return m_key;
    if (key == kWormholeKeyPath)
        return m_wormhole;
    if (key == kCurrentTimeUpdateTimerKeyPath)
        return m_currentTimeUpdateTimer;
    return Observable::valueForKey(key);
}

} // namespace vexo::model
