#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "platform/audio/AudioOutput.h"

// An output without a device: a thread of its own calls the render callback once per buffer
// period, on absolute deadlines of the monotonic clock so that the pace does not drift, and
// discards the sound. A buffer rendered after its deadline counts as an xrun.
namespace vexo::audio {

class NullOutput final : public AudioOutput {
public:
    NullOutput(int sampleRate, std::size_t bufferFrames);
    ~NullOutput() override;

    Expected<void> start(RenderCallback render) override;
    void stop() override;
    int sampleRate() const override { return m_sampleRate; }
    std::size_t bufferFrames() const override { return m_bufferFrames; }
    std::string description() const override;
    std::uint64_t xruns() const override { return m_xruns.load(std::memory_order_relaxed); }

private:
    void run(RenderCallback render);

    int m_sampleRate;
    std::size_t m_bufferFrames;
    std::atomic<bool> m_running{false};
    std::atomic<std::uint64_t> m_xruns{0};
    std::thread m_thread;
};

} // namespace vexo::audio
