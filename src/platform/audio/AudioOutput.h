#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/base/Expected.h"

// Where the mix goes: a sound device through PortAudio, or a null output that calls the
// render callback at the pace of a real device and throws the sound away (a server or a CI
// machine without a sound card plays the same way, only silently).
namespace vexo::audio {

struct OutputOptions {
    // A device name as --list-audio-devices prints it (a unique part of it is enough); empty
    // for the default device; "none" for the null output.
    std::string device;
    // 0: 48000 when the device takes it, else the device's own rate.
    int sampleRate = 0;
    std::size_t bufferFrames = 512;
};

class AudioOutput {
public:
    // Fills `out` with `frames` interleaved stereo frames. Called on the audio thread: it must
    // not lock, allocate, log or do I/O, and must return well within the buffer period.
    using RenderCallback = std::function<void(float* out, std::size_t frames)>;

    virtual ~AudioOutput() = default;

    // Starts calling `render` (never before start(), never after stop() returned). Fails when
    // the device cannot start (Busy when another program holds it).
    [[nodiscard]] virtual Expected<void> start(RenderCallback render) = 0;
    // Returns once `render` will not be called again. Idempotent.
    virtual void stop() = 0;

    [[nodiscard]] virtual int sampleRate() const = 0;
    [[nodiscard]] virtual std::size_t bufferFrames() const = 0;
    // One line for the user: the device and its host API, or that it is the null output.
    [[nodiscard]] virtual std::string description() const = 0;
    // Buffers that reached the device late or not at all since start(); any thread.
    [[nodiscard]] virtual std::uint64_t xruns() const = 0;
};

// Opens the output that `options` name. With the default device asked for and no device on
// the machine, returns the null output and sets `*notice` (when given) to the one line that
// says so. Fails for a named device that does not exist (NotFound) or is ambiguous
// (InvalidData), sound devices that cannot be reached (Unavailable), or a rate or buffer
// size the device refuses.
[[nodiscard]] Expected<std::unique_ptr<AudioOutput>> openOutput(const OutputOptions& options, std::string* notice);

} // namespace vexo::audio
