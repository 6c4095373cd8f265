#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/base/Expected.h"

// One song being played: a worker thread of its own decodes it ahead of (and a little behind)
// the play head into a fixed set of chunks, so that memory stays bounded however long the
// song is (an hour-long mix keeps well under 20 MB), and the audio thread reads frames
// without ever waiting: seeking, loops and skips read what is cached and hear silence only
// for frames the worker has not reached yet. A song short enough to fit is kept whole.
//
// Threads: open(), frameCount(), isExact(), error() and waitUntilReadable() on any thread but
// the audio thread; read() and setPlayhead() on the audio thread only (one reader). The
// destructor joins the worker, so the last reference must not be dropped on the audio thread.
namespace vexo::sound {

class Track {
public:
    // Seconds of audio the cache holds at most, around the play head.
    static constexpr double kCacheSeconds = 48;
    // Seconds behind the play head kept while reading ahead (for loops and skips back).
    static constexpr double kKeepBehindSeconds = 12;

    // Opens `path` (checking that it decodes) and starts reading from its start at
    // `sampleRate`. Fails as audio::Decoder::open when it cannot play.
    [[nodiscard]] static Expected<std::shared_ptr<Track>> open(const std::filesystem::path& path, int sampleRate);
    ~Track();

    Track(const Track&) = delete;
    Track& operator=(const Track&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const;
    [[nodiscard]] int sampleRate() const;
    // The song's length in frames: the headers' estimate until the worker has decoded to the
    // end, then the frames actually decoded (isExact()).
    [[nodiscard]] std::int64_t frameCount() const;
    [[nodiscard]] bool isExact() const;
    // Why decoding stopped before the end, if it did (a truncated file): the song then ends
    // where decoding stopped.
    [[nodiscard]] std::optional<Error> error() const;

    // Audio thread: copies frames [start, start + frames) into `out` (interleaved stereo).
    // Frames before 0, past the end, or not decoded yet are silence. True when every frame
    // came from the song or lies outside it; false when some were not decoded yet.
    bool read(std::int64_t start, float* out, std::size_t frames) noexcept;

    // Audio thread: where the play head is, and a second place to keep cached (a loop's
    // start; -1 for none). The worker reads from there on and evicts what is farthest.
    void setPlayhead(std::int64_t frame, std::int64_t keep = -1) noexcept;

    // Not the audio thread: waits until [start, start + frames) is cached (or lies past the
    // end), at most `timeout`. Offline rendering uses it to render deterministically.
    bool waitUntilReadable(std::int64_t start, std::size_t frames, std::chrono::milliseconds timeout);

private:
    struct State;
    explicit Track(std::unique_ptr<State> state);
    std::unique_ptr<State> m_state;
};

} // namespace vexo::sound
