#include "audio/DeckPlayer.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <rubberband/RubberBandStretcher.h>

#include "audio/Track.h"
#include "platform/audio/AudioFormat.h"

namespace vexo::sound {
namespace {

using RubberBand::RubberBandStretcher;

constexpr std::size_t kChannels = audio::kChannels;
constexpr double kMinimumRate = 0.5;
constexpr double kMaximumRate = 2.0;

// Rubber Band's real-time mode with its R2 engine ("Faster"): a fraction of the R3 engine's
// CPU, which matters with a 10.7 ms buffer on a two-core machine, and for the few percent a
// DJ changes the tempo by it sounds as good. Crisp transients keep drums sharp; high pitch
// consistency keeps the sound steady while sync moves the rate.
constexpr RubberBandStretcher::Options kStretcherOptions =
    RubberBandStretcher::OptionProcessRealTime | RubberBandStretcher::OptionEngineFaster |
    RubberBandStretcher::OptionTransientsCrisp | RubberBandStretcher::OptionPitchHighConsistency |
    RubberBandStretcher::OptionThreadingNever;

} // namespace

struct DeckPlayer::State {
    State(int sampleRate, std::size_t maximumBlockFrames)
        : effects(sampleRate),
          stretcher(static_cast<std::size_t>(sampleRate), kChannels, kStretcherOptions),
          block(maximumBlockFrames * kChannels),
          tail(maximumBlockFrames * kChannels) {
        stretcher.setMaxProcessSize(kFeedFrames);
        for (auto& channel : planes)
            channel.resize(kFeedFrames);
        for (auto& channel : outPlanes)
            channel.resize(maximumBlockFrames);
        feed.resize(kFeedFrames * kChannels);
    }

    static constexpr std::size_t kFeedFrames = 4096;

    EffectRack effects;
    RubberBandStretcher stretcher;
    std::vector<float> block;
    std::vector<float> tail;
    std::vector<float> feed;
    std::array<std::vector<float>, kChannels> planes;
    std::array<std::vector<float>, kChannels> outPlanes;

    Track* track = nullptr;
    bool playing = false;
    bool ended = false;
    // The next song frame to play in the direct path; in the stretched path, the next frame
    // to feed the stretcher.
    double position = 0;
    // The frame heard: position() reports it.
    double heard = 0;
    bool looping = false;
    std::int64_t loopStart = 0;
    std::int64_t loopLength = 0;
    double rate = 1;
    bool stretching = false;
    // Where the stretcher's output started (or its ratio last changed), and how much it gave since.
    double stretchOrigin = 0;
    double stretchedFrames = 0;
    double framesPerBeat = 24000;
    double firstBeat = 0;

    // The sound left behind by a jump (a loop's join, a seek), faded out over kJoinFrames
    // while the new place fades in.
    bool fadingTail = false;
    double tailPosition = 0;
    std::size_t tailDone = 0;
    // Gain ramps for play, pause and the switch into or out of the stretcher.
    float gain = 0;
    float targetGain = 0;

    [[nodiscard]] std::int64_t end() const { return track != nullptr ? track->frameCount() : 0; }

    // Brings `frame` into the loop when it ran past the loop's end.
    [[nodiscard]] double wrapped(double frame) const {
        if (!looping || loopLength <= 0 || frame < static_cast<double>(loopStart + loopLength))
            return frame;
        return static_cast<double>(loopStart) +
               std::fmod(frame - static_cast<double>(loopStart), static_cast<double>(loopLength));
    }

    // Reads `frames` song frames from `from` into `out`, wrapping at the loop's end; returns
    // where reading stopped and, in `jumpedAt`, the frame of `out` where it wrapped (or -1).
    double readSong(double from, float* out, std::size_t frames, std::int64_t& jumpedAt) {
        jumpedAt = -1;
        auto at = static_cast<std::int64_t>(std::llround(from));
        std::size_t done = 0;
        while (done < frames) {
            std::size_t count = frames - done;
            if (looping && loopLength > 0) {
                if (at >= loopStart + loopLength) {
                    at = loopStart + (at - loopStart) % loopLength;
                    if (jumpedAt < 0)
                        jumpedAt = static_cast<std::int64_t>(done);
                }
                count = std::min<std::size_t>(count, static_cast<std::size_t>(loopStart + loopLength - at));
            }
            track->read(at, out + done * kChannels, count);
            at += static_cast<std::int64_t>(count);
            done += count;
        }
        return static_cast<double>(at);
    }

    void startTail(double from) {
        fadingTail = true;
        tailPosition = from;
        tailDone = 0;
    }

    // Mixes the fading tail into `out` from frame `offset` on.
    void mixTail(float* out, std::size_t frames, std::size_t offset) {
        if (!fadingTail || offset >= frames)
            return;
        const std::size_t count = std::min(frames - offset, kJoinFrames - tailDone);
        track->read(static_cast<std::int64_t>(tailPosition), tail.data(), count);
        for (std::size_t i = 0; i < count; ++i) {
            const float fade = static_cast<float>(tailDone + i + 1) / static_cast<float>(kJoinFrames);
            for (std::size_t c = 0; c < kChannels; ++c) {
                float& sample = out[(offset + i) * kChannels + c];
                sample = sample * fade + tail[i * kChannels + c] * (1 - fade);
            }
        }
        tailPosition += static_cast<double>(count);
        tailDone += count;
        if (tailDone >= kJoinFrames)
            fadingTail = false;
    }

    void renderDirect(float* out, std::size_t frames) {
        std::int64_t jumpedAt = -1;
        position = readSong(position, out, frames, jumpedAt);
        mixTail(out, frames, 0);
        if (jumpedAt >= 0) {
            // The join of the loop: the sound past the loop's end fades out as its start fades in.
            startTail(static_cast<double>(loopStart + loopLength));
            mixTail(out, frames, static_cast<std::size_t>(jumpedAt));
        }
        heard = position;
    }

    void renderStretched(float* out, std::size_t frames) {
        while (stretcher.available() < static_cast<int>(frames)) {
            const std::size_t wanted = std::clamp<std::size_t>(stretcher.getSamplesRequired(), 1, kFeedFrames);
            std::int64_t jumpedAt = -1;
            position = readSong(position, feed.data(), wanted, jumpedAt);
            deinterleave(wanted);
            const float* channels[kChannels] = {planes[0].data(), planes[1].data()};
            stretcher.process(channels, wanted, false);
        }
        float* channels[kChannels] = {outPlanes[0].data(), outPlanes[1].data()};
        const std::size_t got = stretcher.retrieve(channels, frames);
        for (std::size_t i = 0; i < frames; ++i)
            for (std::size_t c = 0; c < kChannels; ++c)
                out[i * kChannels + c] = i < got ? outPlanes[c][i] : 0.0f;
        // Rubber Band's real-time output, counted from a reset, lines up with its input at the
        // ratio: output frame n is input frame n * rate (it holds its delay back from
        // available() rather than putting it in front of the sound), within 2 ms.
        stretchedFrames += static_cast<double>(got);
        heard = wrapped(stretchOrigin + stretchedFrames * rate);
    }

    void deinterleave(std::size_t frames) {
        for (std::size_t i = 0; i < frames; ++i)
            for (std::size_t c = 0; c < kChannels; ++c)
                planes[c][i] = feed[i * kChannels + c];
    }

    // Starts the stretcher afresh at the frame heard.
    void enterStretcher() {
        stretcher.reset();
        stretcher.setTimeRatio(1.0 / rate);
        position = heard;
        stretchOrigin = heard;
        stretchedFrames = 0;
        stretching = true;
    }

    // A new ratio counts on from the frame heard.
    void changeRatio() {
        stretcher.setTimeRatio(1.0 / rate);
        stretchOrigin = heard;
        stretchedFrames = 0;
    }

    void leaveStretcher() {
        position = heard;
        stretching = false;
    }

    [[nodiscard]] BeatClock beatClock() const {
        const double perBeat = framesPerBeat / rate;
        double into = std::fmod(heard - firstBeat, framesPerBeat) / framesPerBeat;
        if (into < 0)
            into += 1;
        return BeatClock{std::max(1.0, perBeat), std::clamp(into, 0.0, 0.999999)};
    }
};

DeckPlayer::DeckPlayer(int sampleRate, std::size_t maximumBlockFrames)
    : m_state(std::make_unique<State>(sampleRate, maximumBlockFrames)) {}

DeckPlayer::~DeckPlayer() = default;

void DeckPlayer::load(Track* track) noexcept {
    State& state = *m_state;
    state.track = track;
    state.playing = false;
    state.ended = false;
    state.position = 0;
    state.heard = 0;
    state.looping = false;
    state.rate = 1;
    state.stretching = false;
    state.fadingTail = false;
    state.gain = 0;
    state.targetGain = 0;
    if (track != nullptr)
        track->setPlayhead(0);
}

Track* DeckPlayer::track() const noexcept {
    return m_state->track;
}

void DeckPlayer::play() noexcept {
    State& state = *m_state;
    if (state.track == nullptr)
        return;
    if (state.ended || static_cast<std::int64_t>(state.heard) >= state.end()) {
        if (state.track->isExact() && !state.looping)
            return;
    }
    state.playing = true;
    state.ended = false;
    state.targetGain = 1;
}

void DeckPlayer::pause() noexcept {
    // The gain ramps down over the next block; the play head stops once it is silent.
    m_state->targetGain = 0;
}

bool DeckPlayer::isPlaying() const noexcept {
    return m_state->playing && m_state->targetGain > 0;
}

bool DeckPlayer::hasEnded() const noexcept {
    return m_state->ended;
}

void DeckPlayer::seek(std::int64_t frame) noexcept {
    State& state = *m_state;
    if (state.track == nullptr)
        return;
    const auto target = static_cast<double>(std::clamp<std::int64_t>(frame, 0, std::max<std::int64_t>(0, state.end())));
    state.ended = false;
    if (state.stretching) {
        state.heard = target;
        state.enterStretcher();
        state.gain = 0; // the stretcher starts afresh: fade in
    } else {
        if (state.playing)
            state.startTail(state.position);
        state.position = target;
        state.heard = target;
    }
    state.track->setPlayhead(static_cast<std::int64_t>(target), state.looping ? state.loopStart : -1);
}

std::int64_t DeckPlayer::position() const noexcept {
    return static_cast<std::int64_t>(std::llround(m_state->heard));
}

void DeckPlayer::setLoop(std::int64_t start, std::int64_t length) noexcept {
    State& state = *m_state;
    state.looping = length > 0;
    state.loopStart = std::max<std::int64_t>(0, start);
    state.loopLength = std::max<std::int64_t>(1, length);
    // Already past the new loop's end: the play head wraps into it.
    const double wrappedHeard = state.wrapped(state.heard);
    if (wrappedHeard != state.heard)
        seek(static_cast<std::int64_t>(wrappedHeard));
}

void DeckPlayer::clearLoop() noexcept {
    m_state->looping = false;
}

bool DeckPlayer::isLooping() const noexcept {
    return m_state->looping;
}

void DeckPlayer::setRate(double rate) noexcept {
    State& state = *m_state;
    rate = std::clamp(std::isfinite(rate) ? rate : 1.0, kMinimumRate, kMaximumRate);
    if (rate == state.rate)
        return;
    state.rate = rate;
    if (state.stretching && rate != 1) {
        state.changeRatio();
        return;
    }
    if (rate == 1)
        state.leaveStretcher();
    else
        state.enterStretcher();
    state.gain = 0; // a new path: fade in rather than click
}

double DeckPlayer::rate() const noexcept {
    return m_state->rate;
}

void DeckPlayer::setBeatGrid(double framesPerBeat, double firstBeatFrame) noexcept {
    m_state->framesPerBeat = framesPerBeat > 0 ? framesPerBeat : 24000;
    m_state->firstBeat = firstBeatFrame;
}

EffectRack& DeckPlayer::effects() noexcept {
    return m_state->effects;
}

void DeckPlayer::render(float* out, std::size_t frames) noexcept {
    State& state = *m_state;
    const BeatClock beat = state.beatClock();
    const bool sounding = state.track != nullptr && state.playing;
    if (!sounding) {
        std::fill(out, out + frames * kChannels, 0.0f);
    } else {
        // A deck pausing plays only until its fade-out is silent, and stops its play head there.
        const float step = 1.0f / static_cast<float>(kJoinFrames);
        std::size_t active = frames;
        if (state.targetGain == 0)
            active = std::min(frames, static_cast<std::size_t>(std::ceil(state.gain / step)));
        if (active > 0) {
            if (state.stretching)
                state.renderStretched(out, active);
            else
                state.renderDirect(out, active);
        }
        std::fill(out + active * kChannels, out + frames * kChannels, 0.0f);
        // Play, pause and a change of path ramp over kJoinFrames.
        for (std::size_t i = 0; i < active; ++i) {
            if (state.gain < state.targetGain)
                state.gain = std::min(state.targetGain, state.gain + step);
            else if (state.gain > state.targetGain)
                state.gain = std::max(state.targetGain, state.gain - step);
            out[i * kChannels] *= state.gain;
            out[i * kChannels + 1] *= state.gain;
        }
        if (state.targetGain == 0 && state.gain == 0)
            state.playing = false;
        // The song's end stops the deck there (a loop never reaches it).
        if (!state.looping && state.track->isExact() && state.heard >= static_cast<double>(state.end())) {
            state.heard = static_cast<double>(state.end());
            state.position = state.heard;
            state.playing = false;
            state.ended = true;
            state.targetGain = 0;
            state.gain = 0;
        }
        state.track->setPlayhead(static_cast<std::int64_t>(state.position), state.looping ? state.loopStart : -1);
    }
    state.effects.process(out, frames, beat);
}

} // namespace vexo::sound
