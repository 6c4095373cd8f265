#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "audio/TransitionKind.h"
#include "audio/effects/BeatClock.h"
#include "audio/effects/Echo.h"
#include "audio/effects/Limiter.h"

// The mixer as sound, on the audio thread: the two decks through the constant-power
// crossfader (CrossfaderCurve.h), the master volume and the limiter. Gains move from one block
// to the next along a per-sample ramp, so that no change clicks.
//
// An automatic transition moves the crossfader from where it stands to its target over its
// duration, along the curve of its kind (TransitionKind.h). "Echo Out" sends the outgoing deck
// into an echo that rings on for a few seconds after the deck is gone; "Cut" switches on a beat
// of the outgoing deck, which the caller gives as where its beats fall.
//
// Everything is allocated at construction; no member function locks, allocates, logs or does I/O.
namespace vexo::sound {

class MixerBus {
public:
    // Where a deck's beats fall, in output frames from the start of the next block.
    struct BeatTimes {
        // Frames until its next beat (0 when one starts the block).
        std::int64_t next = 0;
        // Frames between two beats; always positive.
        double length = 0;
    };

    // Gains and the crossfader settle on a change within this many frames.
    static constexpr std::size_t kRampFrames = 240;

    MixerBus(int sampleRate, std::size_t maximumBlockFrames);

    void setVolume(double volume) noexcept;
    // Ends a transition in progress.
    void setCrossfader(double position) noexcept;
    // `outgoingBeats`: the beats of the deck the transition leaves, when it plays with a
    // tempo; a "Cut" without them cuts at the end of the duration.
    void startTransition(double target, double seconds, TransitionKind kind,
                         std::optional<BeatTimes> outgoingBeats) noexcept;

    [[nodiscard]] double crossfader() const noexcept { return m_position; }
    [[nodiscard]] bool isTransitioning() const noexcept { return m_transition.has_value(); }

    // Mixes `frames` frames of the two decks (interleaved stereo, not changed) into `out`.
    // `beats` are the decks' beat clocks at the block's first frame (for the echo).
    // REQUIRES: frames <= maximumBlockFrames.
    void mix(const float* deck1, const float* deck2, float* out, std::size_t frames,
             const std::array<BeatClock, 2>& beats) noexcept;

private:
    struct Transition {
        double from;
        double to;
        double frames;
        double elapsed = 0;
        TransitionKind kind;
        // Cut: the frame (from the transition's start) at which it switches.
        double cutAt = 0;
        // Echo Out: the deck that leaves (0 or 1), if one does.
        std::optional<std::size_t> outgoing;
    };

    // Where the crossfader stands `elapsed` frames into `transition`.
    [[nodiscard]] static double positionAt(const Transition& transition, double elapsed) noexcept;
    void addEcho(std::size_t deck, const float* dry, float* out, std::size_t frames, const BeatClock& beat,
                 float send) noexcept;

    int m_sampleRate;
    double m_position = 0.5;
    double m_volume = 0.8;
    // The gains reached at the end of the last block, where the next one's ramp starts.
    float m_gain1;
    float m_gain2;
    float m_master = 0.8f;
    std::optional<Transition> m_transition;
    std::array<Echo, 2> m_echoes;
    // Frames for which each deck's echo still rings after its transition ended.
    std::array<std::int64_t, 2> m_echoTail{0, 0};
    // Where each deck's echo is worked out, a block long.
    std::array<std::unique_ptr<float[]>, 2> m_scratch;
    Limiter m_limiter;
};

} // namespace vexo::sound
