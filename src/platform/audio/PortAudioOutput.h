#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/audio/AudioOutput.h"
#include "platform/audio/PortAudioSession.h"

typedef void PaStream;

// A sound device through PortAudio: a stereo float stream whose callback renders straight into
// the device's buffer.
namespace vexo::audio {

class PortAudioOutput final : public AudioOutput {
public:
    // Opens device `device` (a PortAudio device index) at `sampleRate` (0: 48000 if the device
    // takes it, else its own). Fails when there is no such device (NotFound) or it refuses
    // the rate (Unsupported).
    [[nodiscard]] static Expected<std::unique_ptr<PortAudioOutput>>
    open(std::unique_ptr<PortAudioSession> session, int device, int sampleRate, std::size_t bufferFrames);
    ~PortAudioOutput() override;

    Expected<void> start(RenderCallback render) override;
    void stop() override;
    int sampleRate() const override { return m_sampleRate; }
    std::size_t bufferFrames() const override { return m_bufferFrames; }
    std::string description() const override { return m_description; }
    std::uint64_t xruns() const override { return m_xruns.load(std::memory_order_relaxed); }

private:
    PortAudioOutput(std::unique_ptr<PortAudioSession> session, int device, int sampleRate, std::size_t bufferFrames,
                    std::string description);
    static int callback(const void* input, void* output, unsigned long frames, const void* timing, unsigned long flags,
                        void* self);

    std::unique_ptr<PortAudioSession> m_session;
    int m_device;
    int m_sampleRate;
    std::size_t m_bufferFrames;
    std::string m_description;
    PaStream* m_stream = nullptr;
    RenderCallback m_render;
    std::atomic<std::uint64_t> m_xruns{0};
};

} // namespace vexo::audio
