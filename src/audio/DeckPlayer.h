#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "audio/effects/BeatClock.h"
#include "audio/effects/EffectRack.h"

// One deck as sound, on the audio thread: the play head over a Track, play and pause, seeks,
// a loop, the tempo rate with keylock, and the deck's effect section.
//
// Positions are frames of the song at the output rate. position() is the frame being heard:
// it counts frames actually played, so that the clock the watch sees is the audio's.
//
// Loops are sample-accurate: with a loop [start, start + length) the frame after
// start + length - 1 is `start`, and the join is smoothed by a crossfade of kJoinFrames so
// that it never clicks. A loop set while the play head is already past its end wraps the play
// head into the loop. Seeks crossfade the same way.
//
// Rate: frames of the song per frame of output. At exactly 1 the song plays as it is; any
// other rate goes through Rubber Band's real-time stretcher so that the pitch stays (keylock),
// its latency compensated so that position() stays the frame heard.
//
// A playing deck that reaches the end of its song (without a loop) stops there by itself and
// reports hasEnded() until it is played, sought or loaded again.
//
// Everything is allocated at construction (the stretcher, the effects, scratch buffers);
// every member function is for the audio thread and never locks, allocates, logs or does I/O.
namespace vexo::sound {

class Track;

class DeckPlayer {
public:
    // Frames over which loop joins, seeks and play/pause are smoothed.
    static constexpr std::size_t kJoinFrames = 128;

    // REQUIRES: sampleRate > 0, maximumBlockFrames > 0; render() is then called with at most
    // maximumBlockFrames frames.
    DeckPlayer(int sampleRate, std::size_t maximumBlockFrames);
    ~DeckPlayer();

    DeckPlayer(const DeckPlayer&) = delete;
    DeckPlayer& operator=(const DeckPlayer&) = delete;

    // Stops, at frame 0, without a loop, at rate 1. `track` may be null (the deck empties).
    // The caller keeps `track` alive until it loads another one and this player has rendered
    // at least once since (it is then no longer read).
    void load(Track* track) noexcept;
    [[nodiscard]] Track* track() const noexcept;

    void play() noexcept;
    void pause() noexcept;
    [[nodiscard]] bool isPlaying() const noexcept;
    [[nodiscard]] bool hasEnded() const noexcept;

    // Moves the play head to `frame`, clamped to the song.
    void seek(std::int64_t frame) noexcept;
    [[nodiscard]] std::int64_t position() const noexcept;

    // REQUIRES: length > 0.
    void setLoop(std::int64_t start, std::int64_t length) noexcept;
    void clearLoop() noexcept;
    [[nodiscard]] bool isLooping() const noexcept;

    // REQUIRES: rate > 0 (held within 0.5...2).
    void setRate(double rate) noexcept;
    [[nodiscard]] double rate() const noexcept;

    // The song's beat grid, for the tempo-synced effects: frames per beat of the song (at
    // rate 1) and the frame of its first beat.
    void setBeatGrid(double framesPerBeat, double firstBeatFrame) noexcept;

    [[nodiscard]] EffectRack& effects() noexcept;

    // Writes `frames` frames of the deck's sound (after its effects, before the mixer's gain)
    // into `out`, overwriting it; silence when stopped or empty (effect tails ring on).
    void render(float* out, std::size_t frames) noexcept;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace vexo::sound
