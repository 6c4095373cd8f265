#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "audio/BeatGrid.h"
#include "audio/TransitionKind.h"
#include "audio/effects/EffectKind.h"

namespace vexo::audio {
class Recorder;
}

// The mixing engine as sound: two deck players, the mixer (volume, constant-power crossfader,
// automatic transitions) and the master limiter, rendered buffer by buffer on the audio thread.
//
// Two sides, two threads. The control side (the phone's run loop, one thread) calls the
// commands below; each goes through a lock-free queue and takes effect at the start of the
// next buffer rendered, in the order sent. The audio side is render(), called by the output's
// thread (or by a test, offline). What the audio did comes back as a status read from atomics
// on any thread: the frames actually played per deck, whether each deck plays, loops or has
// reached its end, where the crossfader stands.
//
// Every command returns its sequence number; a status whose appliedSequence() is at least that
// number reflects it. Decks are numbered 1 and 2.
//
// render() never locks, allocates, logs or does I/O: tracks are opened and freed on the
// control side (collect() frees those the audio thread no longer reads), and everything the
// decks and the mixer need is allocated at construction.
namespace vexo::sound {

class DeckPlayer;
class MixerBus;
class Track;

class AudioEngine {
public:
    using Sequence = std::uint64_t;

    struct DeckStatus {
        // The frame of the song being heard (output rate).
        std::int64_t position = 0;
        bool playing = false;
        bool looping = false;
        // Stopped by reaching the end of its song.
        bool ended = false;
    };

    // REQUIRES: sampleRate > 0. render() takes buffers of any size; it works in blocks of at
    // most maximumBlockFrames.
    explicit AudioEngine(int sampleRate, std::size_t maximumBlockFrames = 512);
    ~AudioEngine();

    AudioEngine(const AudioEngine&) = delete;
    AudioEngine& operator=(const AudioEngine&) = delete;

    [[nodiscard]] int sampleRate() const { return m_sampleRate; }

    // Control side. Loads `track` (opened by the caller; may be null to empty the deck),
    // stopped at its start without a loop at rate 1; the engine keeps it until it is replaced.
    // `gain` scales the deck's sound (linear amplitude; the auto-gain that brings songs to a
    // common loudness).
    Sequence load(int deck, std::shared_ptr<Track> track, BeatGrid grid, double gain = 1);
    // The track loaded on `deck` by the control side (what load() last gave).
    [[nodiscard]] const std::shared_ptr<Track>& track(int deck) const;
    Sequence play(int deck);
    // Starts `deck` at the next beat of `reference` (at once if `reference` does not play or
    // either song has no grid), so that the two play in time (automix).
    Sequence playOnBeatOf(int deck, int reference);
    Sequence pause(int deck);
    Sequence seek(int deck, std::int64_t frame);
    Sequence setLoop(int deck, std::int64_t start, std::int64_t length);
    Sequence clearLoop(int deck);
    // Song frames per output frame; the pitch stays (keylock).
    Sequence setRate(int deck, double rate);
    // Moves `deck`'s play head by less than half a beat so that its beats fall where
    // `reference`'s do (tempo sync); nothing when either has no grid.
    Sequence alignBeats(int deck, int reference);
    Sequence selectEffect(int deck, EffectKind kind);
    Sequence setEffectEnabled(int deck, bool enabled);
    Sequence setLowPassEnabled(int deck, bool enabled);
    Sequence setHighPassEnabled(int deck, bool enabled);
    // 0...1, linear amplitude of the master (after the crossfader, before the limiter).
    Sequence setVolume(double volume);
    // 0...1; ends a transition in progress.
    Sequence setCrossfader(double position);
    // Moves the crossfader from where it stands to `target` over `seconds`.
    Sequence startTransition(double target, double seconds, TransitionKind kind);
    // Records the master output into `recorder` from the next buffer on (null stops handing
    // it frames). REQUIRES: `recorder` outlives the engine or a later setRecorder() whose
    // sequence has been applied.
    Sequence setRecorder(audio::Recorder* recorder);

    // Control side: frees the tracks the audio thread no longer reads. Call now and then.
    void collect();

    // Any thread.
    [[nodiscard]] DeckStatus deckStatus(int deck) const;
    [[nodiscard]] double crossfader() const;
    [[nodiscard]] bool isTransitioning() const;
    [[nodiscard]] Sequence appliedSequence() const;
    // Frames rendered since construction.
    [[nodiscard]] std::uint64_t renderedFrames() const;
    // Commands refused because the queue was full (the audio thread stalled for long).
    [[nodiscard]] std::uint64_t droppedCommands() const;

    // Audio side: fills `out` with `frames` interleaved stereo frames.
    void render(float* out, std::size_t frames) noexcept;

    // Offline rendering (tests, no audio thread): like render(), but first waits until every
    // playing deck's track has decoded the frames this buffer reads, so that the result is
    // the same on every run. Not for the real-time path.
    void renderWaitingForTracks(float* out, std::size_t frames);

private:
    enum class CommandType {
        Load,
        Play,
        PlayOnBeat,
        Pause,
        Seek,
        SetLoop,
        ClearLoop,
        SetRate,
        AlignBeats,
        SelectEffect,
        SetEffectEnabled,
        SetLowPass,
        SetHighPass,
        SetVolume,
        SetCrossfader,
        StartTransition,
        SetRecorder,
    };
    struct Command {
        Command() = default;
        explicit Command(CommandType type, int deck = 1)
            : type(type),
              deck(deck) {}

        CommandType type = CommandType::Play;
        int deck = 1;
        std::int64_t frame = 0;
        std::int64_t length = 0;
        double value = 0;
        int other = 0;
        std::size_t kind = 0;
        Track* track = nullptr;
        BeatGrid grid;
        audio::Recorder* recorder = nullptr;
        Sequence sequence = 0;
    };
    struct Deck;
    struct CommandQueue;
    struct Retired {
        std::shared_ptr<Track> track;
        Sequence sequence;
    };

    Sequence send(Command command);
    void applyCommands() noexcept;
    void apply(const Command& command) noexcept;
    // The frames of the next block: at most the block size, ending where a deck that waits
    // for a beat must start.
    [[nodiscard]] std::size_t nextBlockFrames(std::size_t remaining) noexcept;
    void renderBlock(float* out, std::size_t frames) noexcept;
    // Output frames until `deck`'s next beat (0 on a beat), or -1 when it plays no grid.
    [[nodiscard]] std::int64_t framesToNextBeat(const Deck& deck) const noexcept;
    // Output frames per beat of `deck` at its rate. REQUIRES: its grid is known.
    [[nodiscard]] double beatLength(const Deck& deck) const noexcept;
    void alignBeats(Deck& deck, const Deck& reference) noexcept;
    void publish(std::size_t frames) noexcept;
    [[nodiscard]] Deck& deckAt(int number) noexcept;

    int m_sampleRate;
    std::size_t m_maximumBlockFrames;
    std::unique_ptr<CommandQueue> m_commands;
    Sequence m_nextSequence = 1;
    std::array<std::unique_ptr<Deck>, 2> m_decks;
    std::unique_ptr<MixerBus> m_mixer;
    std::vector<float> m_deckBuffers;
    audio::Recorder* m_recorder = nullptr;
    Sequence m_lastApplied = 0;

    // Control side only.
    std::array<std::shared_ptr<Track>, 2> m_loaded;
    std::vector<Retired> m_retired;

    // Written by the audio side after each buffer.
    std::atomic<Sequence> m_applied{0};
    std::atomic<double> m_crossfader{0.5};
    std::atomic<bool> m_transitioning{false};
    std::atomic<std::uint64_t> m_rendered{0};
    std::atomic<std::uint64_t> m_dropped{0};
};

} // namespace vexo::sound
