#include "platform/audio/NullOutput.h"

#include <ctime>
#include <vector>

#include <pthread.h>
#include <sched.h>

#include "platform/audio/AudioFormat.h"

namespace vexo::audio {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
// Further behind than this many periods, the pace starts afresh instead of catching up with a
// burst of buffers.
constexpr std::int64_t kResynchroniseAfterPeriods = 4;

std::int64_t nowNanoseconds() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::int64_t>(time.tv_sec) * kNanosecondsPerSecond + time.tv_nsec;
}

void sleepUntil(std::int64_t deadline) {
    const timespec time{static_cast<time_t>(deadline / kNanosecondsPerSecond),
                        static_cast<long>(deadline % kNanosecondsPerSecond)};
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
    }
}

// Real-time scheduling when the system grants it, as a sound server's thread would have;
// without it the thread keeps its ordinary priority.
void askForRealTime() {
    sched_param parameters{};
    parameters.sched_priority = 10;
    (void)::pthread_setschedparam(::pthread_self(), SCHED_FIFO, &parameters);
}

} // namespace

NullOutput::NullOutput(int sampleRate, std::size_t bufferFrames)
    : m_sampleRate(sampleRate > 0 ? sampleRate : kDefaultSampleRate),
      m_bufferFrames(bufferFrames > 0 ? bufferFrames : kDefaultBufferFrames) {}

NullOutput::~NullOutput() {
    stop();
}

Expected<void> NullOutput::start(RenderCallback render) {
    if (m_running.exchange(true))
        return Error(ErrorKind::Busy, "the null output runs already");
    m_thread = std::thread([this, render = std::move(render)]() mutable { run(std::move(render)); });
    return {};
}

void NullOutput::stop() {
    m_running.store(false);
    if (m_thread.joinable())
        m_thread.join();
}

std::string NullOutput::description() const {
    return "a null output (no sound; " + std::to_string(m_sampleRate) + " Hz, " + std::to_string(m_bufferFrames) +
           " frames a buffer)";
}

void NullOutput::run(RenderCallback render) {
    askForRealTime();
    std::vector<float> buffer(m_bufferFrames * kChannels);
    const std::int64_t period = static_cast<std::int64_t>(m_bufferFrames) * kNanosecondsPerSecond / m_sampleRate;
    std::int64_t deadline = nowNanoseconds();
    while (m_running.load(std::memory_order_relaxed)) {
        render(buffer.data(), m_bufferFrames);
        const std::int64_t now = nowNanoseconds();
        // A device would have played this buffer by the deadline; rendering it later is an xrun.
        if (now > deadline + period)
            m_xruns.fetch_add(1, std::memory_order_relaxed);
        deadline += period;
        if (now - deadline > kResynchroniseAfterPeriods * period)
            deadline = now;
        sleepUntil(deadline);
    }
}

} // namespace vexo::audio
