#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "model/VXAWSong.h"
#include "platform/media/MediaPlaylist.h"
#include "platform/plist/Value.h"
#include "platform/runtime/Observable.h"

namespace vexo::runtime {
class Timer;
}
namespace vexo::transport {
class MMWormhole;
}

// The watch-side mirror of one deck of the phone application (deck 1 or 2).
//
// It listens on its two status identifiers, "turntableStatus<n>" and "turntableSongInfo<n>",
// turns the phone's dictionaries into observable properties, asks the phone for fresh status
// once a second while the deck plays, and sends the deck's actions. Every property setter
// notifies its observers, also when the value is unchanged.
//
// Main thread only. The transport's listeners and the poll timer refer to the deck without
// owning it; both end with the deck.
namespace vexo::model {

class VXAWTurntable : public runtime::Observable {
public:
    // The key paths of the observable properties, as observers spell them.
    static constexpr std::string_view kTurntableNumberKeyPath = "turntableNumber";
    static constexpr std::string_view kSongKeyPath = "song";
    static constexpr std::string_view kPlayingKeyPath = "playing";
    static constexpr std::string_view kCurrentTimeKeyPath = "currentTime";
    static constexpr std::string_view kCurrentDisplayTimeKeyPath = "currentDisplayTime";
    static constexpr std::string_view kAutoLoopBeatIntervalKeyPath = "autoLoopBeatInterval";
    static constexpr std::string_view kLoopingKeyPath = "looping";
    static constexpr std::string_view kFxNameKeyPath = "fxName";
    static constexpr std::string_view kFxEnabledKeyPath = "fxEnabled";
    static constexpr std::string_view kFxLowPassEnabledKeyPath = "fxLowPassEnabled";
    static constexpr std::string_view kFxHighPassEnabledKeyPath = "fxHighPassEnabled";
    static constexpr std::string_view kBpmKeyPath = "bpm";
    static constexpr std::string_view kKeyKeyPath = "key";
    static constexpr std::string_view kWormholeKeyPath = "wormhole";
    static constexpr std::string_view kCurrentTimeUpdateTimerKeyPath = "currentTimeUpdateTimer";

    // initWithTurntableNumber: stores the number and starts the transport: clears the stored
    // status, listens, applies the stored messages and sends a status request (action 16).
    explicit VXAWTurntable(std::int64_t turntableNumber);
    // Stops listening; the stored files stay.
    ~VXAWTurntable() override;

    void setupWormhole();
    void teardownWormhole();

    // Applies one status or song-information message of this deck; nothing for a message that
    // is nothing or addressed to any other identifier.
    void processMessageWithIdentifier(std::string_view identifier, const plist::Value& contents);

    // Sends action `action` of this deck to the phone: {"identifier": "turntableAction",
    // "contents": {"turntable": n, "action": code[, "params": params]}}, "params" only when
    // `params` is not nothing. No answer is awaited.
    void sendActionMessage(std::int64_t action, const plist::Value& params = plist::Value());

    // The status poll: at most one repeating one-second timer, sending action 16 each tick.
    void startUpdatingCurrentTime();
    void stopUpdatingCurrentTime();
    void updateCurrentTime(runtime::Timer& timer);

    // The identifiers of this deck's messages, formed from the current number.
    std::string statusMessageIdentifier() const;
    std::string songInfoMessageIdentifier() const;

    std::int64_t turntableNumber() const { return m_turntableNumber; }
    void setTurntableNumber(std::int64_t number) { setAndNotify(kTurntableNumberKeyPath, m_turntableNumber, number); }
    const std::shared_ptr<VXAWSong>& song() const { return m_song; }
    void setSong(std::shared_ptr<VXAWSong> song) { setAndNotify(kSongKeyPath, m_song, std::move(song)); }
    bool isPlaying() const { return m_playing; }
    void setPlaying(bool playing) { setAndNotify(kPlayingKeyPath, m_playing, playing); }
    std::int64_t currentTime() const { return m_currentTime; }
    void setCurrentTime(std::int64_t time) { setAndNotify(kCurrentTimeKeyPath, m_currentTime, time); }
    const std::optional<std::string>& currentDisplayTime() const { return m_currentDisplayTime; }
    void setCurrentDisplayTime(std::optional<std::string> text) {
        setAndNotify(kCurrentDisplayTimeKeyPath, m_currentDisplayTime, std::move(text));
    }
    double autoLoopBeatInterval() const { return m_autoLoopBeatInterval; }
    void setAutoLoopBeatInterval(double beats) {
        setAndNotify(kAutoLoopBeatIntervalKeyPath, m_autoLoopBeatInterval, beats);
    }
    bool isLooping() const { return m_looping; }
    void setLooping(bool looping) { setAndNotify(kLoopingKeyPath, m_looping, looping); }
    const std::optional<std::string>& fxName() const { return m_fxName; }
    void setFxName(std::optional<std::string> name) { setAndNotify(kFxNameKeyPath, m_fxName, std::move(name)); }
    bool isFxEnabled() const { return m_fxEnabled; }
    void setFxEnabled(bool enabled) { setAndNotify(kFxEnabledKeyPath, m_fxEnabled, enabled); }
    bool isFxLowPassEnabled() const { return m_fxLowPassEnabled; }
    void setFxLowPassEnabled(bool enabled) { setAndNotify(kFxLowPassEnabledKeyPath, m_fxLowPassEnabled, enabled); }
    bool isFxHighPassEnabled() const { return m_fxHighPassEnabled; }
    void setFxHighPassEnabled(bool enabled) { setAndNotify(kFxHighPassEnabledKeyPath, m_fxHighPassEnabled, enabled); }
    std::int64_t bpm() const { return m_bpm; }
    void setBpm(std::int64_t bpm) { setAndNotify(kBpmKeyPath, m_bpm, bpm); }
    const std::optional<std::string>& key() const { return m_key; }
    void setKey(std::optional<std::string> key) { setAndNotify(kKeyKeyPath, m_key, std::move(key)); }
    const std::shared_ptr<transport::MMWormhole>& wormhole() const { return m_wormhole; }
    void setWormhole(std::shared_ptr<transport::MMWormhole> wormhole) {
        setAndNotify(kWormholeKeyPath, m_wormhole, std::move(wormhole));
    }
    const std::shared_ptr<runtime::Timer>& currentTimeUpdateTimer() const { return m_currentTimeUpdateTimer; }
    void setCurrentTimeUpdateTimer(std::shared_ptr<runtime::Timer> timer) {
        setAndNotify(kCurrentTimeUpdateTimerKeyPath, m_currentTimeUpdateTimer, std::move(timer));
    }

    // The playlist this watch last chose a song for the deck from; nothing before that. The
    // phone is not told: it is the watch's own memory of where the deck's songs come from, so
    // that it can show which songs follow. Not observable.
    const std::optional<media::MediaPlaylist>& sourcePlaylist() const { return m_sourcePlaylist; }
    void setSourcePlaylist(std::optional<media::MediaPlaylist> playlist) { m_sourcePlaylist = std::move(playlist); }

    [[nodiscard]] std::any valueForKey(std::string_view key) const override;

private:
    void applyStatus(const plist::Value& status);
    void applySongInfo(const plist::Value& songInfo);

    std::int64_t m_turntableNumber = 0;
    std::shared_ptr<VXAWSong> m_song;
    bool m_playing = false;
    std::int64_t m_currentTime = 0;
    std::optional<std::string> m_currentDisplayTime;
    double m_autoLoopBeatInterval = 0;
    bool m_looping = false;
    std::optional<std::string> m_fxName;
    bool m_fxEnabled = false;
    bool m_fxLowPassEnabled = false;
    bool m_fxHighPassEnabled = false;
    std::int64_t m_bpm = 0;
    std::optional<std::string> m_key;
    std::shared_ptr<transport::MMWormhole> m_wormhole;
    std::shared_ptr<runtime::Timer> m_currentTimeUpdateTimer;
    std::optional<media::MediaPlaylist> m_sourcePlaylist;
};

} // namespace vexo::model
