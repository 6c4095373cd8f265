#include "audio/MixerBus.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "audio/CrossfaderCurve.h"

namespace vexo::sound {
namespace {

// Echo Out: the outgoing deck's echo, its delay and feedback, and how long it rings on.
constexpr double kEchoOutBeats = 0.75;
constexpr double kEchoOutFeedback = 0.55;
constexpr float kEchoOutWet = 0.7f;
constexpr double kEchoTailSeconds = 4;

double clamp01(double value) {
    return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0.0;
}

double curve(TransitionKind kind, double progress) {
    switch (kind) {
    case TransitionKind::Smooth:
        return (1 - std::cos(progress * std::numbers::pi)) / 2;
    case TransitionKind::EchoOut:
        return 1 - (1 - progress) * (1 - progress);
    case TransitionKind::Crossfade:
    case TransitionKind::Cut:
        break;
    }
    return progress;
}

} // namespace

MixerBus::MixerBus(int sampleRate, std::size_t maximumBlockFrames)
    : m_sampleRate(sampleRate),
      m_gain1(crossfaderGains(0.5).deck1),
      m_gain2(crossfaderGains(0.5).deck2),
      m_echoes{Echo(sampleRate, kEchoOutBeats, kEchoOutFeedback), Echo(sampleRate, kEchoOutBeats, kEchoOutFeedback)},
      m_limiter(sampleRate) {
    for (auto& scratch : m_scratch)
        scratch = std::make_unique<float[]>(maximumBlockFrames * 2);
}

void MixerBus::setVolume(double volume) noexcept {
    m_volume = clamp01(volume);
}

void MixerBus::setCrossfader(double position) noexcept {
    m_transition.reset();
    m_position = clamp01(position);
}

void MixerBus::startTransition(double target, double seconds, TransitionKind kind,
                               std::optional<BeatTimes> outgoingBeats) noexcept {
    Transition transition{m_position, clamp01(target), std::max(1.0, seconds * m_sampleRate), 0, kind, 0, {}};
    if (transition.to != transition.from)
        transition.outgoing = transition.to > transition.from ? 0 : 1;
    if (kind == TransitionKind::Cut) {
        // The last beat that leaves room for the switch before the duration is up.
        const double latest = transition.frames - kRampFrames;
        transition.cutAt = std::max(0.0, latest);
        if (outgoingBeats && outgoingBeats->length > 0 && static_cast<double>(outgoingBeats->next) <= latest) {
            const double next = static_cast<double>(outgoingBeats->next);
            transition.cutAt = next + std::floor((latest - next) / outgoingBeats->length) * outgoingBeats->length;
        }
    }
    m_transition = transition;
}

double MixerBus::positionAt(const Transition& transition, double elapsed) noexcept {
    double progress;
    if (transition.kind == TransitionKind::Cut)
        progress = std::clamp((elapsed - transition.cutAt) / kRampFrames, 0.0, 1.0);
    else
        progress = std::clamp(elapsed / transition.frames, 0.0, 1.0);
    return transition.from + (transition.to - transition.from) * curve(transition.kind, progress);
}

void MixerBus::mix(const float* deck1, const float* deck2, float* out, std::size_t frames,
                   const std::array<BeatClock, 2>& beats) noexcept {
    // Where the crossfader stands at the end of this block, and the echo each deck feeds.
    std::array<float, 2> send{0, 0};
    if (m_transition) {
        Transition& transition = *m_transition;
        transition.elapsed += static_cast<double>(frames);
        m_position = positionAt(transition, transition.elapsed);
        if (transition.kind == TransitionKind::EchoOut && transition.outgoing) {
            const std::size_t outgoing = *transition.outgoing;
            const DeckGains gains = crossfaderGains(m_position);
            // The deck feeds its echo until it is all but gone; the echo rings on after.
            send[outgoing] = (outgoing == 0 ? gains.deck1 : gains.deck2) > 0.05f ? 1.0f : 0.0f;
            m_echoTail[outgoing] = static_cast<std::int64_t>(kEchoTailSeconds * m_sampleRate);
        }
        if (transition.elapsed >= transition.frames) {
            m_position = transition.to;
            m_transition.reset();
        }
    }

    const DeckGains target = crossfaderGains(m_position);
    const auto master = static_cast<float>(m_volume);
    const float step = 1.0f / static_cast<float>(std::max<std::size_t>(frames, 1));
    const float from1 = m_gain1;
    const float from2 = m_gain2;
    const float fromMaster = m_master;
    for (std::size_t i = 0; i < frames; ++i) {
        // Ramps over the block, or over kRampFrames when the block is longer.
        const float t = std::min(1.0f, static_cast<float>(i + 1) * std::max(step, 1.0f / kRampFrames));
        const float g1 = (from1 + (target.deck1 - from1) * t) * (fromMaster + (master - fromMaster) * t);
        const float g2 = (from2 + (target.deck2 - from2) * t) * (fromMaster + (master - fromMaster) * t);
        out[2 * i] = deck1[2 * i] * g1 + deck2[2 * i] * g2;
        out[2 * i + 1] = deck1[2 * i + 1] * g1 + deck2[2 * i + 1] * g2;
    }
    m_gain1 = target.deck1;
    m_gain2 = target.deck2;
    m_master = master;

    const std::array<const float*, 2> decks{deck1, deck2};
    for (std::size_t deck = 0; deck < 2; ++deck) {
        if (m_echoTail[deck] <= 0)
            continue;
        addEcho(deck, decks[deck], out, frames, beats[deck], send[deck]);
        m_echoTail[deck] -= static_cast<std::int64_t>(frames);
        if (m_echoTail[deck] <= 0)
            m_echoes[deck].reset();
    }

    m_limiter.process(out, frames);
}

void MixerBus::addEcho(std::size_t deck, const float* dry, float* out, std::size_t frames, const BeatClock& beat,
                       float send) noexcept {
    // The echo adds its delayed sound to a copy of the deck's own; only the delayed part joins
    // the mix, so that the deck's dry sound follows the crossfader alone.
    float* wet = m_scratch[deck].get();
    std::copy(dry, dry + frames * 2, wet);
    m_echoes[deck].process(wet, frames, beat, send, kEchoOutWet);
    for (std::size_t i = 0; i < frames * 2; ++i)
        out[i] += (wet[i] - dry[i]) * m_master;
}

} // namespace vexo::sound
