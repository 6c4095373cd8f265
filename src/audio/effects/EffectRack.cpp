#include "audio/effects/EffectRack.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "audio/effects/Bitcrusher.h"
#include "audio/effects/Echo.h"
#include "audio/effects/Flanger.h"
#include "audio/effects/Gate.h"
#include "audio/effects/Phaser.h"
#include "audio/effects/Reverb.h"
#include "audio/effects/SmoothedGain.h"
#include "audio/effects/SwitchedFilter.h"

namespace vexo::sound {

namespace {

constexpr double kEchoBeats = 0.75;
constexpr double kEchoFeedback = 0.45;
constexpr float kEchoWet = 0.5f;
constexpr float kReverbWet = 0.35f;
constexpr double kLowPassHertz = 500;
constexpr double kHighPassHertz = 1500;
// process() works through its buffer in pieces of this many frames, so that the scratch
// buffers can be allocated once.
constexpr std::size_t kChunkFrames = 256;

constexpr std::size_t indexOf(EffectKind kind) {
    return static_cast<std::size_t>(kind);
}

template <std::size_t... Index>
std::array<SmoothedGain, sizeof...(Index)> makeGains(int sampleRate, std::index_sequence<Index...>) {
    return {((void)Index, SmoothedGain(sampleRate, SmoothedGain::kSwitchSeconds))...};
}

} // namespace

// Echo and Reverb add their tails to the sound and are always running, so that a tail dies
// away by itself once the send closes. The other four replace the sound; each has its own
// dry/wet mix, and runs only while that mix is above 0, from a reset state each time it
// starts again. Selecting another effect while on fades one mix down while the other comes
// up: a crossfade from the old effect to the new one.
struct EffectRack::State {
    explicit State(int sampleRate)
        : echo(sampleRate, kEchoBeats, kEchoFeedback),
          reverb(sampleRate),
          flanger(sampleRate),
          phaser(sampleRate),
          gate(sampleRate),
          lowPass(Biquad::Shape::LowPass, kLowPassHertz, sampleRate),
          highPass(Biquad::Shape::HighPass, kHighPassHertz, sampleRate),
          mix(makeGains(sampleRate, std::make_index_sequence<kEffectKindCount>{})),
          dry(kChunkFrames * 2),
          wet(kChunkFrames * 2) {}

    [[nodiscard]] bool isOn(EffectKind kind) const noexcept { return enabled && selected == kind; }

    void addTail(float* block, std::size_t frames, const BeatClock& beat, EffectKind kind) noexcept;
    void mixInsert(float* block, std::size_t frames, const BeatClock& beat, EffectKind kind) noexcept;
    void processChunk(float* block, std::size_t frames, const BeatClock& beat) noexcept;

    Echo echo;
    Reverb reverb;
    Flanger flanger;
    Phaser phaser;
    Gate gate;
    Bitcrusher bitcrusher;
    SwitchedFilter lowPass;
    SwitchedFilter highPass;
    // The dry/wet mix of each replacing effect (unused for Echo and Reverb).
    std::array<SmoothedGain, kEffectKindCount> mix;
    std::array<bool, kEffectKindCount> running{};
    EffectKind selected = EffectKind::Echo;
    bool enabled = false;
    // Scratch: one chunk of interleaved stereo each.
    std::vector<float> dry;
    std::vector<float> wet;
};

void EffectRack::State::addTail(float* block, std::size_t frames, const BeatClock& beat, EffectKind kind) noexcept {
    const std::size_t samples = frames * 2;
    std::copy_n(dry.begin(), samples, wet.begin());
    const float send = isOn(kind) ? 1.0f : 0.0f;
    if (kind == EffectKind::Echo)
        echo.process(wet.data(), frames, beat, send, kEchoWet);
    else
        reverb.process(wet.data(), frames, send, kReverbWet);
    for (std::size_t i = 0; i < samples; ++i)
        block[i] += wet[i] - dry[i];
}

void EffectRack::State::mixInsert(float* block, std::size_t frames, const BeatClock& beat, EffectKind kind) noexcept {
    SmoothedGain& gain = mix[indexOf(kind)];
    gain.setTarget(isOn(kind) ? 1.0f : 0.0f);
    bool& isRunning = running[indexOf(kind)];
    if (gain.settled() && gain.value() == 0) {
        isRunning = false;
        return;
    }
    if (!isRunning) {
        switch (kind) {
        case EffectKind::Flanger:
            flanger.reset();
            break;
        case EffectKind::Phaser:
            phaser.reset();
            break;
        case EffectKind::Bitcrusher:
            bitcrusher.reset();
            break;
        default:
            break;
        }
        isRunning = true;
    }
    std::copy_n(dry.begin(), frames * 2, wet.begin());
    switch (kind) {
    case EffectKind::Flanger:
        flanger.process(wet.data(), frames);
        break;
    case EffectKind::Phaser:
        phaser.process(wet.data(), frames);
        break;
    case EffectKind::Gate:
        gate.process(wet.data(), frames, beat);
        break;
    case EffectKind::Bitcrusher:
        bitcrusher.process(wet.data(), frames);
        break;
    default:
        break;
    }
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const float amount = gain.next();
        for (std::size_t i = frame * 2; i < frame * 2 + 2; ++i)
            block[i] += amount * (wet[i] - dry[i]);
    }
}

void EffectRack::State::processChunk(float* block, std::size_t frames, const BeatClock& beat) noexcept {
    // A fault upstream must not poison every delay line and filter state for good.
    for (std::size_t i = 0; i < frames * 2; ++i) {
        if (!std::isfinite(block[i]))
            block[i] = 0;
        dry[i] = block[i];
    }
    addTail(block, frames, beat, EffectKind::Echo);
    addTail(block, frames, beat, EffectKind::Reverb);
    for (const EffectKind kind : {EffectKind::Flanger, EffectKind::Phaser, EffectKind::Gate, EffectKind::Bitcrusher})
        mixInsert(block, frames, beat, kind);
    lowPass.process(block, frames);
    highPass.process(block, frames);
}

EffectRack::EffectRack(int sampleRate)
    : m_state(std::make_unique<State>(sampleRate)) {}

EffectRack::~EffectRack() = default;

void EffectRack::select(EffectKind kind) noexcept {
    if (indexOf(kind) < kEffectKindCount)
        m_state->selected = kind;
}

EffectKind EffectRack::selected() const noexcept {
    return m_state->selected;
}

void EffectRack::setEffectEnabled(bool enabled) noexcept {
    m_state->enabled = enabled;
}

void EffectRack::setLowPassEnabled(bool enabled) noexcept {
    m_state->lowPass.setEnabled(enabled);
}

void EffectRack::setHighPassEnabled(bool enabled) noexcept {
    m_state->highPass.setEnabled(enabled);
}

void EffectRack::process(float* interleaved, std::size_t frames, const BeatClock& beat) noexcept {
    BeatClock clock = beat;
    for (std::size_t done = 0; done < frames;) {
        const std::size_t count = std::min(kChunkFrames, frames - done);
        m_state->processChunk(interleaved + done * 2, count, clock);
        done += count;
        clock.phase += static_cast<double>(count) / clock.framesPerBeat;
        clock.phase -= std::floor(clock.phase);
    }
}

void EffectRack::reset() noexcept {
    State& state = *m_state;
    state.echo.reset();
    state.reverb.reset();
    state.flanger.reset();
    state.phaser.reset();
    state.bitcrusher.reset();
    state.lowPass.reset();
    state.highPass.reset();
    for (std::size_t i = 0; i < kEffectKindCount; ++i) {
        state.mix[i].setTarget(state.isOn(static_cast<EffectKind>(i)) ? 1.0f : 0.0f);
        state.mix[i].settle();
        state.running[i] = false;
    }
}

} // namespace vexo::sound
