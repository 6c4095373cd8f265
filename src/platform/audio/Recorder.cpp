#include "platform/audio/Recorder.h"

#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include <boost/lockfree/spsc_queue.hpp>

#include "platform/audio/AudioFileWriter.h"
#include "platform/audio/AudioFormat.h"

namespace vexo::audio {
namespace {

// How often the writing thread empties the ring: a few buffers' worth at a time.
constexpr auto kWritePeriod = std::chrono::milliseconds(20);
constexpr std::size_t kWriteChunkFrames = 4096;

} // namespace

struct Recorder::State {
    State(std::filesystem::path path, std::unique_ptr<AudioFileWriter> writer, std::size_t ringSamples)
        : path(std::move(path)),
          writer(std::move(writer)),
          ring(ringSamples) {}

    std::filesystem::path path;
    std::unique_ptr<AudioFileWriter> writer;
    boost::lockfree::spsc_queue<float> ring;
    std::atomic<bool> recording{true};
    std::atomic<bool> stopping{false};
    std::atomic<std::uint64_t> written{0};
    std::atomic<std::uint64_t> dropped{0};
    mutable std::mutex failureMutex;
    std::optional<Error> failure;
    std::thread thread;
    std::once_flag stopped;

    void run() {
        std::vector<float> chunk(kWriteChunkFrames * kChannels);
        for (;;) {
            const bool last = stopping.load();
            // Whole frames only: the audio thread pushes whole frames, so the ring holds them.
            std::size_t samples;
            while ((samples = ring.pop(chunk.data(), chunk.size())) > 0) {
                if (recording.load())
                    if (auto wrote = writer->write(chunk.data(), samples / kChannels); !wrote)
                        fail(std::move(wrote).error());
                if (recording.load())
                    written.fetch_add(samples / kChannels);
            }
            if (last)
                break;
            std::this_thread::sleep_for(kWritePeriod);
        }
        if (recording.load())
            if (auto finished = writer->finish(); !finished)
                fail(std::move(finished).error());
        recording.store(false);
    }

    void fail(Error why) {
        recording.store(false);
        std::lock_guard lock(failureMutex);
        if (!failure)
            failure = std::move(why);
    }
};

Recorder::Recorder(std::unique_ptr<State> state)
    : m_state(std::move(state)) {}

Recorder::~Recorder() {
    stop();
}

Expected<std::unique_ptr<Recorder>> Recorder::start(const std::filesystem::path& path, int sampleRate) {
    const std::string extension = path.extension().string();
    if (extension != ".wav" && extension != ".flac")
        return Error(ErrorKind::Unsupported, "a recording is a .wav or .flac file, not " + path.string());
    auto created = AudioFileWriter::create(path, sampleRate);
    if (!created)
        return std::move(created).error();
    std::unique_ptr<AudioFileWriter> writer = std::move(created).value();
    const auto ringSamples = static_cast<std::size_t>(kRingSeconds * sampleRate) * kChannels;
    auto state = std::make_unique<State>(path, std::move(writer), ringSamples);
    State* raw = state.get();
    state->thread = std::thread([raw] { raw->run(); });
    return std::unique_ptr<Recorder>(new Recorder(std::move(state)));
}

void Recorder::push(const float* interleaved, std::size_t frames) noexcept {
    State& state = *m_state;
    const std::size_t samples = frames * kChannels;
    if (!state.recording.load(std::memory_order_relaxed) || state.stopping.load(std::memory_order_relaxed) ||
        state.ring.write_available() < samples) {
        state.dropped.fetch_add(frames, std::memory_order_relaxed);
        return;
    }
    state.ring.push(interleaved, samples);
}

void Recorder::stop() {
    std::call_once(m_state->stopped, [this] {
        m_state->stopping.store(true);
        if (m_state->thread.joinable())
            m_state->thread.join();
    });
}

const std::filesystem::path& Recorder::path() const {
    return m_state->path;
}

bool Recorder::isRecording() const {
    return m_state->recording.load() && !m_state->stopping.load();
}

std::optional<Error> Recorder::failure() const {
    std::lock_guard lock(m_state->failureMutex);
    return m_state->failure;
}

std::uint64_t Recorder::framesWritten() const {
    return m_state->written.load();
}

std::uint64_t Recorder::framesDropped() const {
    return m_state->dropped.load();
}

} // namespace vexo::audio
