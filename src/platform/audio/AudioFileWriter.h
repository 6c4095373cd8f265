#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/base/Expected.h"

// Encodes audio in the program's sample format (AudioFormat.h) into a file, the format
// chosen by the file's extension: ".wav" (16-bit PCM WAVE), ".flac" (24-bit FLAC), ".aif" and
// ".aiff" (16-bit AIFF), ".mp3", ".m4a" (AAC), ".ogg" (Vorbis) and ".opus", each through
// FFmpeg's own encoder (the same library the decoder uses).
//
// Not thread-safe; writes block on the disk, so never on the audio thread (see Recorder).
namespace vexo::audio {

class AudioFileWriter {
public:
    // Creates `path` (replacing a file there) ready to take frames at `sampleRate`. Fails
    // for an extension it does not know or a format this machine's FFmpeg cannot encode
    // (Unsupported), or a path it cannot create (NotFound for a missing folder).
    [[nodiscard]] static Expected<std::unique_ptr<AudioFileWriter>> create(const std::filesystem::path& path,
                                                                           int sampleRate);
    // Finishes the file if finish() was not called (errors then go unreported).
    ~AudioFileWriter();

    AudioFileWriter(const AudioFileWriter&) = delete;
    AudioFileWriter& operator=(const AudioFileWriter&) = delete;

    // True when create() knows the extension of `path`.
    [[nodiscard]] static bool supportsExtension(const std::filesystem::path& path);

    // Appends `frames` interleaved stereo frames. Fails when writing failed (a full disk among
    // others); the writer is then finished and takes nothing more.
    [[nodiscard]] Expected<void> write(const float* interleaved, std::size_t frames);

    // Flushes the encoder and writes the file's trailer; the file is complete and closed.
    // Calling it again does nothing and succeeds.
    [[nodiscard]] Expected<void> finish();

private:
    struct State;
    explicit AudioFileWriter(std::unique_ptr<State> state);
    std::unique_ptr<State> m_state;
};

} // namespace vexo::audio
