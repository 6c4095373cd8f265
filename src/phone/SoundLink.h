#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "audio/AudioEngine.h"
#include "phone/Deck.h"
#include "phone/Mixer.h"
#include "platform/base/Expected.h"

namespace vexo::sound {
class Track;
}

// The phone engine's decks and mixer played as sound. The engine changes its models as
// before; after each change it calls sync(), which hands the audio engine what changed since
// the last call (play, pause, a jump, the loop, the rate, the effects, volume and crossfader).
// Before it reads a deck's position, the engine calls observe(), which sets the deck's clock to
// the frames actually heard, once the audio thread has taken every change sent: the watch's
// "currentTime" and the end of a song come from the sound.
//
// Loop thread only (the audio engine's control side).
namespace vexo::phone {

class SoundLink {
public:
    // REQUIRES: `engine` outlives the link.
    explicit SoundLink(sound::AudioEngine& engine);

    [[nodiscard]] sound::AudioEngine& audioEngine() { return m_engine; }

    // Auto-gain: songs loaded from now on play scaled so that their measured loudness meets
    // `targetLUFS` (cut as far as needed, boosted by at most 6 dB and never past their true
    // peak; unmeasured songs as they are). Nothing switches it off. Off at first.
    // ReplayGain 2.0's reference loudness: most mastered music is louder, so most songs are cut
    // and the limiter rarely has to work.
    static constexpr double kDefaultAutoGainTargetLUFS = -18;
    static constexpr double kLeastAutoGainDB = -24;
    static constexpr double kMostAutoGainDB = 6;
    void setAutoGainTarget(std::optional<double> targetLUFS) { m_autoGainTarget = targetLUFS; }
    // The linear gain a song loaded now plays at.
    [[nodiscard]] double autoGainOf(const Deck::Song& song) const;

    // Opens the file of `song` to play, or says why it cannot play (the song has no file, the
    // file is gone, is no audio, cannot be decoded).
    [[nodiscard]] Expected<std::shared_ptr<sound::Track>> open(const Deck::Song& song) const;
    // The decoded length of `track` in seconds, as far as it is known yet.
    [[nodiscard]] double durationOf(const sound::Track& track) const;

    // After `deck` loaded the song `track` plays: the sound loads it, stopped at its start.
    void load(const Deck& deck, std::shared_ptr<sound::Track> track);
    // `deck`, just set playing, starts on the next beat of deck `reference` (automix).
    void playOnBeatOf(const Deck& deck, std::int64_t reference);
    // Moves `deck`'s beats onto `reference`'s (tempo sync).
    void alignBeats(const Deck& deck, std::int64_t reference);
    // Hands the sound whatever changed on `deck` since the last call.
    void sync(const Deck& deck, double now);

    void syncMixer(const Mixer& mixer, double now);
    void startTransition(double target, double seconds, std::string_view type);

    // Sets `deck`'s clock to the sound's at `now`, when the sound has taken every change sent
    // for it. True when the song's length changed (decoded to its end, or ended early).
    bool observe(Deck& deck, double now);

    // Frees what the audio thread no longer reads; call now and then.
    void collect() { m_engine.collect(); }

private:
    std::optional<double> m_autoGainTarget;
    struct Sent {
        std::uint64_t loads = 0;
        std::uint64_t jumps = 0;
        bool playing = false;
        bool looping = false;
        double loopStart = 0;
        double loopLength = 0;
        double rate = 1;
        std::size_t effect = 0;
        bool effectEnabled = false;
        bool lowPass = false;
        bool highPass = false;
        sound::AudioEngine::Sequence last = 0;
    };

    [[nodiscard]] Sent& sentFor(const Deck& deck) { return m_sent.at(static_cast<std::size_t>(deck.number() - 1)); }
    [[nodiscard]] std::int64_t frames(double seconds) const;

    sound::AudioEngine& m_engine;
    std::array<Sent, 2> m_sent;
    double m_volume = -1;
    double m_crossfader = -1;
};

} // namespace vexo::phone
