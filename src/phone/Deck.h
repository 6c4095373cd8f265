#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/media/MediaItem.h"
#include "platform/plist/Value.h"

// One deck of the phone application: the song loaded on it, its playing clock, the
// auto-loop, the effect and the two filters. On its own the clock runs on the caller's time;
// when the deck is played as sound, follow() sets it to the frames actually heard, so that
// what the watch sees is what plays (SoundLink).
//
// Time is given by the caller (seconds on the run loop's clock), so a deck is a plain value
// that tests drive with any times they like. Positions and durations are seconds of the
// song; "currentTime" and "duration" on the wire are the same seconds, truncated to whole
// ones, and the position text is "m:ss" (or "h:mm:ss" from an hour on).
//
// While it plays, the clock runs at `rate()` seconds of song per second (1 unless the mixer
// syncs this deck to the other one). Without a loop the deck stops at the end of its song;
// with a loop the position wraps inside the loop. Nothing happens by itself: the owner calls
// update() when one of the times nextEventTime() names has come.
namespace vexo::phone {

class Deck {
public:
    // The auto-loop lengths in beats: powers of two from 1/32 to 32.
    static constexpr double kMinimumLoopBeats = 1.0 / 32;
    static constexpr double kMaximumLoopBeats = 32;
    static constexpr double kDefaultLoopBeats = 4;
    // Skip forward and backward move the position by this many seconds.
    static constexpr double kSkipSeconds = 10;
    // The tempo a loop is measured with when the song has none in its tags.
    static constexpr double kFallbackBeatsPerMinute = 120;
    // The effects, in the order next and previous step through them (wrapping around).
    static constexpr std::string_view kEffects[] = {"Echo", "Flanger", "Phaser", "Reverb", "Gate", "Bitcrusher"};

    struct Song {
        media::MediaItem item;
        // Seconds; never negative.
        double duration = 0;
        // Chosen from the tags and the analysis (media::MediaItem::chosenBeatsPerMinute and
        // chosenKey); 0 and "" when neither gives one. The key is in Camelot notation when it
        // names one.
        double beatsPerMinute = 0;
        std::string key;
        // Where the beat grid starts, in song seconds (the grid: a beat every 60 /
        // beatsPerMinute seconds from here, also before it).
        double firstBeat = 0;
        // Integrated loudness of the song; nothing when it was not measured.
        std::optional<double> loudnessLUFS = std::nullopt;
        std::optional<double> truePeakDBTP = std::nullopt;
    };

    explicit Deck(std::int64_t number)
        : m_number(number) {}

    [[nodiscard]] std::int64_t number() const { return m_number; }

    // Loading stops the deck at the start of `song` and ends any loop.
    void load(Song song, double now);
    [[nodiscard]] const std::optional<Song>& song() const { return m_song; }
    // Counts loads, so that "once per song" decisions tell two loads of one song apart.
    [[nodiscard]] std::uint64_t loadCount() const { return m_loadCount; }

    // Play needs a song and a position before its end; false when nothing changed.
    bool play(double now);
    bool pause(double now);
    [[nodiscard]] bool isPlaying() const { return m_playing; }
    // The loop time at which the deck last started playing; nothing if it never did.
    [[nodiscard]] std::optional<double> lastStarted() const { return m_lastStarted; }

    // Moves by `seconds` (negative backward), within the song; a loop moves along with the
    // position. Reaching the end while playing stops the deck at the next update().
    void skip(double seconds, double now);
    // Counts loads and skips: the position jumped rather than played on.
    [[nodiscard]] std::uint64_t jumpCount() const { return m_jumpCount; }

    // Sets the clock to what the sound played: the song is at `position` seconds at `now`.
    // A deck whose sound `ended` stops there, and its song ends there: the decoded song may be
    // shorter than its tags said.
    void follow(double position, bool ended, double now);
    // The song's length, once decoding has told it exactly. Needs a song.
    void setDuration(double seconds);

    // Song seconds at `now`.
    [[nodiscard]] double position(double now) const;
    // Song seconds left to play before the end at `now`; 0 without a song.
    [[nodiscard]] double remaining(double now) const;
    // Loop seconds until the song ends when playing on without a loop; nothing when the deck
    // will not reach its end by itself (paused, looping or empty).
    [[nodiscard]] std::optional<double> secondsToEnd(double now) const;

    // Song seconds per second of the clock; changing it keeps the position.
    void setRate(double rate, double now);
    [[nodiscard]] double rate() const { return m_rate; }
    // The tempo heard: the song's, times the rate, rounded; 0 when the song has none.
    [[nodiscard]] std::int64_t effectiveBeatsPerMinute() const;

    // Halving and doubling stay within the range; a running loop keeps its start.
    void halveLoop(double now);
    void doubleLoop(double now);
    [[nodiscard]] double loopBeats() const { return m_loopBeats; }
    // Starts a loop of loopBeats() at the beat (or, for loops shorter than a beat, the loop
    // length) at or before the position, the first beat at 0 (moved back to fit in the song),
    // or ends the loop, playing on from where the position is. Needs a song.
    bool toggleLooping(double now);
    [[nodiscard]] bool isLooping() const { return m_looping; }
    // The running loop's start and length in song seconds.
    [[nodiscard]] double loopStart() const { return m_loopStart; }
    [[nodiscard]] double loopLength() const { return loopLengthSeconds(); }

    void selectNextEffect();
    void selectPreviousEffect();
    [[nodiscard]] std::string_view effectName() const { return kEffects[m_effect]; }
    // The selected effect's place in kEffects.
    [[nodiscard]] std::size_t effectIndex() const { return m_effect; }
    void toggleEffect() { m_effectEnabled = !m_effectEnabled; }
    [[nodiscard]] bool isEffectEnabled() const { return m_effectEnabled; }
    void toggleLowPass() { m_lowPass = !m_lowPass; }
    [[nodiscard]] bool isLowPassEnabled() const { return m_lowPass; }
    void toggleHighPass() { m_highPass = !m_highPass; }
    [[nodiscard]] bool isHighPassEnabled() const { return m_highPass; }

    // Brings the deck to `now`: a playing deck that has reached its end stops there. True
    // when it stopped.
    bool update(double now);

    // The deck status message and the song information message.
    [[nodiscard]] plist::Value status(double now) const;
    [[nodiscard]] plist::Value songInfo() const;

    // "m:ss", or "h:mm:ss" from an hour on, of whole seconds (negative reads as 0).
    [[nodiscard]] static std::string displayTime(double seconds);

private:
    // Moves the anchor to `now`, so that a change of rate or loop starts from there.
    void settle(double now);
    [[nodiscard]] double loopLengthSeconds() const;
    // The tempo loops are measured with: the tag's, else kFallbackBeatsPerMinute.
    [[nodiscard]] static double tempoOf(const Song& song);
    void setLoopBeats(double beats, double now);

    std::int64_t m_number;
    std::optional<Song> m_song;
    std::uint64_t m_loadCount = 0;
    std::uint64_t m_jumpCount = 0;
    bool m_playing = false;
    std::optional<double> m_lastStarted;
    // The position was m_anchorPosition at loop time m_anchorTime.
    double m_anchorPosition = 0;
    double m_anchorTime = 0;
    double m_rate = 1;
    double m_loopBeats = kDefaultLoopBeats;
    bool m_looping = false;
    double m_loopStart = 0;
    std::size_t m_effect = 0;
    bool m_effectEnabled = false;
    bool m_lowPass = false;
    bool m_highPass = false;
};

} // namespace vexo::phone
