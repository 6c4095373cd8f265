#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/base/Expected.h"

// Decodes one audio file of any format the media library scans (MP3, AAC/M4A, FLAC, Ogg
// Vorbis, Opus, WAVE, AIFF) to the program's sample format (AudioFormat.h) at a chosen sample
// rate, resampled with FFmpeg's resampler. Mono files play on both channels; more than two
// channels are mixed down.
//
// A Decoder is used by one thread at a time (the track reader's worker); it never touches
// the audio thread.
namespace vexo::audio {

class Decoder {
public:
    // Passed as the sample rate to open(): decode at the file's own rate, not resampled.
    static constexpr int kSourceSampleRate = 0;

    // Opens `path` and decodes its first frames to make sure it plays. Fails with one sentence
    // a user understands: the file is missing (NotFound), is not an audio file, has no audio
    // stream or cannot be decoded (InvalidData), or needs a decoder this FFmpeg lacks
    // (Unsupported).
    [[nodiscard]] static Expected<std::unique_ptr<Decoder>> open(const std::filesystem::path& path, int sampleRate);
    ~Decoder();

    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    [[nodiscard]] int sampleRate() const;

    // The song's length in frames at sampleRate(), as the file's headers give it; 0 when they
    // do not. Only decoding to the end tells the exact length (see read()).
    [[nodiscard]] std::int64_t estimatedFrames() const;

    // Decodes the next frames into `out` (room for `capacity` frames, interleaved stereo) and
    // returns how many it wrote: fewer than `capacity` only at the end of the song, 0 once
    // there. Reading stops early, with error() set, where the file cannot be decoded further
    // (a truncated or corrupt file): what came before stays valid.
    [[nodiscard]] std::size_t read(float* out, std::size_t capacity);

    // Makes the next read() start exactly at `frame` (sample-accurate, also in compressed
    // formats). Fails, with error() set to the same sentence, when the file cannot seek there;
    // a frame past the end leaves the decoder at its end.
    [[nodiscard]] Expected<void> seek(std::int64_t frame);

    // Nothing unless decoding failed; then why, in one sentence (InvalidData for a damaged
    // file, the system's reason when reading it failed).
    [[nodiscard]] const std::optional<Error>& error() const;

private:
    struct State;
    explicit Decoder(std::unique_ptr<State> state);
    std::unique_ptr<State> m_state;
};

} // namespace vexo::audio
