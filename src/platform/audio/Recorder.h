#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/base/Expected.h"

// Records the master output to a WAVE or FLAC file (by extension) while it plays. The audio
// thread only copies frames into a lock-free ring; a thread of the recorder's own encodes
// and writes them. A write that fails (a full disk, a file system gone) stops the recording
// and keeps the message; the music never waits for the disk.
namespace vexo::audio {

class Recorder {
public:
    // The ring holds this many seconds, so that a slow disk can fall that far behind.
    static constexpr double kRingSeconds = 4;

    // Creates `path` and starts the writing thread. Fails for an extension other than .wav
    // and .flac (Unsupported) or a path that cannot be created (as AudioFileWriter::create).
    [[nodiscard]] static Expected<std::unique_ptr<Recorder>> start(const std::filesystem::path& path, int sampleRate);
    // Stops (see stop()).
    ~Recorder();

    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Audio thread: queues `frames` interleaved stereo frames without blocking. Frames that do
    // not fit, and everything after a failure or stop(), are dropped and counted.
    void push(const float* interleaved, std::size_t frames) noexcept;

    // Any thread other than the audio thread: writes what is queued, finishes the file and
    // joins the writing thread. Idempotent.
    void stop();

    [[nodiscard]] const std::filesystem::path& path() const;
    // False once stopped or failed.
    [[nodiscard]] bool isRecording() const;
    // Why writing stopped, once it failed; any thread.
    [[nodiscard]] std::optional<Error> failure() const;
    [[nodiscard]] std::uint64_t framesWritten() const;
    [[nodiscard]] std::uint64_t framesDropped() const;

private:
    struct State;
    explicit Recorder(std::unique_ptr<State> state);
    std::unique_ptr<State> m_state;
};

} // namespace vexo::audio
