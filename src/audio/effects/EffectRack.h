#pragma once

#include <cstddef>
#include <memory>

#include "audio/effects/BeatClock.h"
#include "audio/effects/EffectKind.h"

// One deck's effect section: the six effects (one selected, on or off) followed by the
// low-pass and the high-pass filter, each on or off on its own. Switching anything on or off,
// or selecting another effect while it is on, fades over a few milliseconds so that nothing
// clicks; a switched-off effect's tail (Echo, Reverb) dies away instead of stopping dead.
//
// Settings:
//   Echo        a dotted-eighth (3/4 beat) delay, feedback 0.45, wet 0.5
//   Flanger     1-6 ms delay swept at 0.25 Hz, feedback 0.6
//   Phaser      six all-pass stages swept from 300 Hz to 3 kHz at 0.4 Hz, feedback 0.5
//   Reverb      a Freeverb-style room (8 combs and 4 all-passes per channel), wet 0.35 on
//               Freeverb's scale (where 1/3 is about as loud as the dry sound)
//   Gate        sixteenth notes on the beat grid, open for the first half of each, 2 ms edges
//   Bitcrusher  6 bits at a quarter of the sample rate
//   low-pass    24 dB/octave at 500 Hz
//   high-pass   24 dB/octave at 1500 Hz
//
// Everything is allocated at construction; process() and the setters are for the audio
// thread and never lock or allocate. Output stays finite: no NaN, infinity or denormal (a
// non-finite input sample is taken as silence).
namespace vexo::sound {

class EffectRack {
public:
    // REQUIRES: sampleRate > 0. process() then takes any number of frames.
    explicit EffectRack(int sampleRate);
    ~EffectRack();

    EffectRack(const EffectRack&) = delete;
    EffectRack& operator=(const EffectRack&) = delete;

    void select(EffectKind kind) noexcept;
    [[nodiscard]] EffectKind selected() const noexcept;
    void setEffectEnabled(bool enabled) noexcept;
    void setLowPassEnabled(bool enabled) noexcept;
    void setHighPassEnabled(bool enabled) noexcept;

    // Runs `frames` interleaved stereo frames through the section in place. `beat` is where
    // the deck's beat stands at the first frame.
    void process(float* interleaved, std::size_t frames, const BeatClock& beat) noexcept;

    // Silences every delay line and filter state (a new song is loaded); keeps the settings.
    void reset() noexcept;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace vexo::sound
