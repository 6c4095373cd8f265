#include "audio/AudioEngine.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include <boost/lockfree/spsc_queue.hpp>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

#include "audio/DeckPlayer.h"
#include "audio/MixerBus.h"
#include "audio/Track.h"
#include "platform/audio/AudioFormat.h"
#include "platform/audio/Recorder.h"

namespace vexo::sound {
namespace {

// Commands waiting for the audio thread at most; far more than a person can send in a buffer.
constexpr std::size_t kQueueCapacity = 1024;

// What an offline render makes sure is decoded around each deck's play head, in frames,
// beyond the frames the block itself plays (the stretcher reads ahead, loops jump back).
constexpr std::int64_t kOfflineMargin = 16384;

// Denormal numbers make filter and reverb tails hundreds of times slower on x86; the audio
// thread flushes them to zero instead.
void flushDenormals() noexcept {
#if defined(__SSE__)
    _mm_setcsr(_mm_getcsr() | 0x8040);
#endif
}

} // namespace

struct AudioEngine::CommandQueue {
    boost::lockfree::spsc_queue<Command, boost::lockfree::capacity<kQueueCapacity>> queue;
};

struct AudioEngine::Deck {
    Deck(int sampleRate, std::size_t maximumBlockFrames)
        : player(sampleRate, maximumBlockFrames) {}

    DeckPlayer player;
    BeatGrid grid;
    float gain = 1;
    // A deck waiting to start on the reference deck's next beat (playOnBeatOf), 0 for none.
    int startOnBeatOf = 0;

    std::atomic<std::int64_t> position{0};
    std::atomic<bool> playing{false};
    std::atomic<bool> looping{false};
    std::atomic<bool> ended{false};
};

AudioEngine::AudioEngine(int sampleRate, std::size_t maximumBlockFrames)
    : m_sampleRate(sampleRate),
      m_maximumBlockFrames(std::max<std::size_t>(maximumBlockFrames, 64)),
      m_commands(std::make_unique<CommandQueue>()),
      m_mixer(std::make_unique<MixerBus>(sampleRate, m_maximumBlockFrames)),
      m_deckBuffers(m_maximumBlockFrames * audio::kChannels * 2) {
    for (auto& deck : m_decks)
        deck = std::make_unique<Deck>(sampleRate, m_maximumBlockFrames);
}

AudioEngine::~AudioEngine() = default;

AudioEngine::Sequence AudioEngine::send(Command command) {
    command.deck = std::clamp(command.deck, 1, 2);
    command.sequence = m_nextSequence++;
    if (!m_commands->queue.push(command))
        m_dropped.fetch_add(1, std::memory_order_relaxed);
    return command.sequence;
}

AudioEngine::Sequence AudioEngine::load(int deck, std::shared_ptr<Track> track, BeatGrid grid, double gain) {
    std::shared_ptr<Track>& loaded = m_loaded.at(static_cast<std::size_t>(std::clamp(deck, 1, 2) - 1));
    Command command(CommandType::Load, deck);
    command.track = track.get();
    command.grid = grid;
    command.value = gain;
    const Sequence sequence = send(command);
    // The audio thread reads the old track until it has applied this load and rendered once.
    if (loaded)
        m_retired.push_back({std::move(loaded), sequence});
    loaded = std::move(track);
    return sequence;
}

const std::shared_ptr<Track>& AudioEngine::track(int deck) const {
    return m_loaded.at(static_cast<std::size_t>(std::clamp(deck, 1, 2) - 1));
}

AudioEngine::Sequence AudioEngine::play(int deck) {
    return send(Command(CommandType::Play, deck));
}

AudioEngine::Sequence AudioEngine::playOnBeatOf(int deck, int reference) {
    Command command(CommandType::PlayOnBeat, deck);
    command.other = reference;
    return send(command);
}

AudioEngine::Sequence AudioEngine::pause(int deck) {
    return send(Command(CommandType::Pause, deck));
}

AudioEngine::Sequence AudioEngine::seek(int deck, std::int64_t frame) {
    Command command(CommandType::Seek, deck);
    command.frame = frame;
    return send(command);
}

AudioEngine::Sequence AudioEngine::setLoop(int deck, std::int64_t start, std::int64_t length) {
    Command command(CommandType::SetLoop, deck);
    command.frame = start;
    command.length = length;
    return send(command);
}

AudioEngine::Sequence AudioEngine::clearLoop(int deck) {
    return send(Command(CommandType::ClearLoop, deck));
}

AudioEngine::Sequence AudioEngine::setRate(int deck, double rate) {
    Command command(CommandType::SetRate, deck);
    command.value = rate;
    return send(command);
}

AudioEngine::Sequence AudioEngine::alignBeats(int deck, int reference) {
    Command command(CommandType::AlignBeats, deck);
    command.other = reference;
    return send(command);
}

AudioEngine::Sequence AudioEngine::selectEffect(int deck, EffectKind kind) {
    Command command(CommandType::SelectEffect, deck);
    command.kind = static_cast<std::size_t>(kind);
    return send(command);
}

AudioEngine::Sequence AudioEngine::setEffectEnabled(int deck, bool enabled) {
    Command command(CommandType::SetEffectEnabled, deck);
    command.value = enabled ? 1 : 0;
    return send(command);
}

AudioEngine::Sequence AudioEngine::setLowPassEnabled(int deck, bool enabled) {
    Command command(CommandType::SetLowPass, deck);
    command.value = enabled ? 1 : 0;
    return send(command);
}

AudioEngine::Sequence AudioEngine::setHighPassEnabled(int deck, bool enabled) {
    Command command(CommandType::SetHighPass, deck);
    command.value = enabled ? 1 : 0;
    return send(command);
}

AudioEngine::Sequence AudioEngine::setVolume(double volume) {
    Command command(CommandType::SetVolume);
    command.value = volume;
    return send(command);
}

AudioEngine::Sequence AudioEngine::setCrossfader(double position) {
    Command command(CommandType::SetCrossfader);
    command.value = position;
    return send(command);
}

AudioEngine::Sequence AudioEngine::startTransition(double target, double seconds, TransitionKind kind) {
    Command command(CommandType::StartTransition);
    command.value = target;
    command.length = static_cast<std::int64_t>(std::llround(std::max(0.0, seconds) * m_sampleRate));
    command.kind = static_cast<std::size_t>(kind);
    return send(command);
}

AudioEngine::Sequence AudioEngine::setRecorder(audio::Recorder* recorder) {
    Command command(CommandType::SetRecorder);
    command.recorder = recorder;
    return send(command);
}

void AudioEngine::collect() {
    const Sequence applied = appliedSequence();
    std::erase_if(m_retired, [applied](const Retired& retired) { return retired.sequence <= applied; });
}

AudioEngine::DeckStatus AudioEngine::deckStatus(int deck) const {
    const Deck& state = *m_decks.at(static_cast<std::size_t>(std::clamp(deck, 1, 2) - 1));
    return {state.position.load(std::memory_order_relaxed), state.playing.load(std::memory_order_relaxed),
            state.looping.load(std::memory_order_relaxed), state.ended.load(std::memory_order_relaxed)};
}

double AudioEngine::crossfader() const {
    return m_crossfader.load(std::memory_order_relaxed);
}

bool AudioEngine::isTransitioning() const {
    return m_transitioning.load(std::memory_order_relaxed);
}

AudioEngine::Sequence AudioEngine::appliedSequence() const {
    return m_applied.load(std::memory_order_acquire);
}

std::uint64_t AudioEngine::renderedFrames() const {
    return m_rendered.load(std::memory_order_relaxed);
}

std::uint64_t AudioEngine::droppedCommands() const {
    return m_dropped.load(std::memory_order_relaxed);
}

AudioEngine::Deck& AudioEngine::deckAt(int number) noexcept {
    return *m_decks[static_cast<std::size_t>(std::clamp(number, 1, 2) - 1)];
}

void AudioEngine::applyCommands() noexcept {
    m_commands->queue.consume_all([this](const Command& command) {
        apply(command);
        m_lastApplied = command.sequence;
    });
}

void AudioEngine::apply(const Command& command) noexcept {
    Deck& deck = deckAt(command.deck);
    DeckPlayer& player = deck.player;
    switch (command.type) {
    case CommandType::Load:
        player.load(command.track);
        player.effects().reset();
        deck.grid = command.grid;
        deck.gain = static_cast<float>(command.value);
        deck.startOnBeatOf = 0;
        if (deck.grid.isKnown())
            player.setBeatGrid(60.0 * m_sampleRate / deck.grid.beatsPerMinute, deck.grid.firstBeat * m_sampleRate);
        else
            player.setBeatGrid(60.0 * m_sampleRate / 120, 0);
        break;
    case CommandType::Play:
        deck.startOnBeatOf = 0;
        player.play();
        break;
    case CommandType::PlayOnBeat:
        deck.startOnBeatOf = command.other == command.deck ? 0 : std::clamp(command.other, 1, 2);
        if (deck.startOnBeatOf == 0 || framesToNextBeat(deckAt(deck.startOnBeatOf)) < 0 || !deck.grid.isKnown()) {
            deck.startOnBeatOf = 0;
            player.play();
        }
        break;
    case CommandType::Pause:
        deck.startOnBeatOf = 0;
        player.pause();
        break;
    case CommandType::Seek:
        player.seek(command.frame);
        break;
    case CommandType::SetLoop:
        if (command.length > 0)
            player.setLoop(command.frame, command.length);
        break;
    case CommandType::ClearLoop:
        player.clearLoop();
        break;
    case CommandType::SetRate:
        if (std::isfinite(command.value) && command.value > 0)
            player.setRate(command.value);
        break;
    case CommandType::AlignBeats:
        alignBeats(deck, deckAt(command.other));
        break;
    case CommandType::SelectEffect:
        player.effects().select(static_cast<EffectKind>(std::min(command.kind, kEffectKindCount - 1)));
        break;
    case CommandType::SetEffectEnabled:
        player.effects().setEffectEnabled(command.value != 0);
        break;
    case CommandType::SetLowPass:
        player.effects().setLowPassEnabled(command.value != 0);
        break;
    case CommandType::SetHighPass:
        player.effects().setHighPassEnabled(command.value != 0);
        break;
    case CommandType::SetVolume:
        m_mixer->setVolume(command.value);
        break;
    case CommandType::SetCrossfader:
        m_mixer->setCrossfader(command.value);
        break;
    case CommandType::StartTransition: {
        const double target = std::isfinite(command.value) ? std::clamp(command.value, 0.0, 1.0) : 0.5;
        const Deck& outgoing = deckAt(target > m_mixer->crossfader() ? 1 : 2);
        std::optional<MixerBus::BeatTimes> beats;
        if (const std::int64_t next = framesToNextBeat(outgoing); next >= 0)
            beats = MixerBus::BeatTimes{next, beatLength(outgoing)};
        m_mixer->startTransition(target, static_cast<double>(command.length) / m_sampleRate,
                                 static_cast<TransitionKind>(std::min<std::size_t>(command.kind, 3)), beats);
        break;
    }
    case CommandType::SetRecorder:
        m_recorder = command.recorder;
        break;
    }
}

double AudioEngine::beatLength(const Deck& deck) const noexcept {
    const double songFramesPerBeat = 60.0 * m_sampleRate / deck.grid.beatsPerMinute;
    return songFramesPerBeat / deck.player.rate();
}

std::int64_t AudioEngine::framesToNextBeat(const Deck& deck) const noexcept {
    if (!deck.player.isPlaying() || !deck.grid.isKnown() || deck.player.track() == nullptr)
        return -1;
    const double songFramesPerBeat = 60.0 * m_sampleRate / deck.grid.beatsPerMinute;
    const double sinceBeat =
        std::fmod(static_cast<double>(deck.player.position()) - deck.grid.firstBeat * m_sampleRate, songFramesPerBeat);
    const double toBeat = sinceBeat < 0 ? -sinceBeat : (sinceBeat == 0 ? 0 : songFramesPerBeat - sinceBeat);
    return static_cast<std::int64_t>(std::ceil(toBeat / deck.player.rate() - 1e-9));
}

void AudioEngine::alignBeats(Deck& deck, const Deck& reference) noexcept {
    if (&deck == &reference || !deck.grid.isKnown() || !reference.grid.isKnown() || deck.player.track() == nullptr ||
        reference.player.track() == nullptr)
        return;
    const auto phaseOf = [this](const Deck& of) {
        const double framesPerBeat = 60.0 * m_sampleRate / of.grid.beatsPerMinute;
        const double since =
            std::fmod(static_cast<double>(of.player.position()) - of.grid.firstBeat * m_sampleRate, framesPerBeat);
        return (since < 0 ? since + framesPerBeat : since) / framesPerBeat;
    };
    double difference = phaseOf(reference) - phaseOf(deck);
    difference -= std::round(difference);
    const double framesPerBeat = 60.0 * m_sampleRate / deck.grid.beatsPerMinute;
    const auto target = static_cast<std::int64_t>(
        std::llround(static_cast<double>(deck.player.position()) + difference * framesPerBeat));
    if (target != deck.player.position())
        deck.player.seek(std::max<std::int64_t>(0, target));
}

void AudioEngine::render(float* out, std::size_t frames) noexcept {
    flushDenormals();
    applyCommands();
    std::size_t done = 0;
    while (done < frames) {
        const std::size_t block = nextBlockFrames(frames - done);
        renderBlock(out + done * audio::kChannels, block);
        done += block;
    }
    publish(frames);
}

void AudioEngine::renderWaitingForTracks(float* out, std::size_t frames) {
    flushDenormals();
    applyCommands();
    std::size_t done = 0;
    while (done < frames) {
        const std::size_t block = nextBlockFrames(frames - done);
        for (const auto& deck : m_decks) {
            Track* track = deck->player.track();
            if (track == nullptr)
                continue;
            const auto wanted = static_cast<std::int64_t>(std::ceil(static_cast<double>(block) * deck->player.rate()));
            const std::int64_t from = std::max<std::int64_t>(0, deck->player.position() - kOfflineMargin);
            track->waitUntilReadable(from, static_cast<std::size_t>(wanted + 2 * kOfflineMargin),
                                     std::chrono::seconds(10));
        }
        renderBlock(out + done * audio::kChannels, block);
        done += block;
    }
    publish(frames);
}

std::size_t AudioEngine::nextBlockFrames(std::size_t remaining) noexcept {
    std::size_t block = std::min(remaining, m_maximumBlockFrames);
    // A deck waiting for a beat starts exactly on it: the block ends there.
    for (const auto& deck : m_decks) {
        if (deck->startOnBeatOf == 0)
            continue;
        const std::int64_t toBeat = framesToNextBeat(deckAt(deck->startOnBeatOf));
        if (toBeat < 0 || toBeat == 0) {
            deck->startOnBeatOf = 0;
            deck->player.play();
        } else {
            block = std::min(block, static_cast<std::size_t>(toBeat));
        }
    }
    return std::max<std::size_t>(block, 1);
}

void AudioEngine::renderBlock(float* out, std::size_t frames) noexcept {
    float* first = m_deckBuffers.data();
    float* second = first + m_maximumBlockFrames * audio::kChannels;
    std::array<BeatClock, 2> beats;
    for (std::size_t index = 0; index < 2; ++index) {
        Deck& deck = *m_decks[index];
        const double length = deck.grid.isKnown() ? beatLength(deck) : 0.5 * m_sampleRate;
        const std::int64_t toBeat = framesToNextBeat(deck);
        const double phase = toBeat < 0 ? 0 : 1 - static_cast<double>(toBeat) / length;
        beats[index] = BeatClock{length, std::clamp(phase >= 1 ? 0.0 : phase, 0.0, 0.999999)};
    }
    m_decks[0]->player.render(first, frames);
    m_decks[1]->player.render(second, frames);
    // A song is loaded stopped, so its gain never changes under the sound.
    for (std::size_t index = 0; index < 2; ++index) {
        const float gain = m_decks[index]->gain;
        float* samples = index == 0 ? first : second;
        if (gain != 1)
            for (std::size_t i = 0; i < frames * audio::kChannels; ++i)
                samples[i] *= gain;
    }
    m_mixer->mix(first, second, out, frames, beats);
    if (m_recorder != nullptr)
        m_recorder->push(out, frames);
}

void AudioEngine::publish(std::size_t frames) noexcept {
    for (const auto& deck : m_decks) {
        deck->position.store(deck->player.position(), std::memory_order_relaxed);
        // A deck waiting for its beat counts as playing: it has been told to, and will.
        deck->playing.store(deck->player.isPlaying() || deck->startOnBeatOf != 0, std::memory_order_relaxed);
        deck->looping.store(deck->player.isLooping(), std::memory_order_relaxed);
        deck->ended.store(deck->player.hasEnded(), std::memory_order_relaxed);
    }
    m_crossfader.store(m_mixer->crossfader(), std::memory_order_relaxed);
    m_transitioning.store(m_mixer->isTransitioning(), std::memory_order_relaxed);
    m_rendered.fetch_add(frames, std::memory_order_relaxed);
    // Released last: a reader that sees the sequence sees the state that followed it.
    m_applied.store(m_lastApplied, std::memory_order_release);
}

} // namespace vexo::sound
