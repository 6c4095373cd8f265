#include "platform/audio/PortAudioOutput.h"

#include <portaudio.h>

#include "platform/audio/AudioFormat.h"

namespace vexo::audio {
namespace {

PaStreamParameters parametersFor(int device) {
    PaStreamParameters parameters{};
    parameters.device = device;
    parameters.channelCount = kChannels;
    parameters.sampleFormat = paFloat32;
    parameters.suggestedLatency = Pa_GetDeviceInfo(device)->defaultLowOutputLatency;
    return parameters;
}

} // namespace

PortAudioOutput::PortAudioOutput(std::unique_ptr<PortAudioSession> session, int device, int sampleRate,
                                 std::size_t bufferFrames, std::string description)
    : m_session(std::move(session)),
      m_device(device),
      m_sampleRate(sampleRate),
      m_bufferFrames(bufferFrames),
      m_description(std::move(description)) {}

Expected<std::unique_ptr<PortAudioOutput>> PortAudioOutput::open(std::unique_ptr<PortAudioSession> session, int device,
                                                                 int sampleRate, std::size_t bufferFrames) {
    const PaDeviceInfo* info = Pa_GetDeviceInfo(device);
    if (info == nullptr)
        return Error(ErrorKind::NotFound, "no such sound device");
    const PaStreamParameters parameters = parametersFor(device);
    int rate = sampleRate;
    if (rate == 0)
        rate = Pa_IsFormatSupported(nullptr, &parameters, kDefaultSampleRate) == paFormatIsSupported
                   ? kDefaultSampleRate
                   : static_cast<int>(info->defaultSampleRate);
    if (const PaError supported = Pa_IsFormatSupported(nullptr, &parameters, rate); supported != paFormatIsSupported)
        return Error(ErrorKind::Unsupported, std::string(info->name) + " cannot play stereo at " +
                                                 std::to_string(rate) + " Hz: " + Pa_GetErrorText(supported));
    const PaHostApiInfo* host = Pa_GetHostApiInfo(info->hostApi);
    std::string description = std::string(info->name) + " (" + (host != nullptr ? host->name : "?") + ", " +
                              std::to_string(rate) + " Hz, " + std::to_string(bufferFrames) + " frames a buffer)";
    return std::unique_ptr<PortAudioOutput>(
        new PortAudioOutput(std::move(session), device, rate, bufferFrames, std::move(description)));
}

PortAudioOutput::~PortAudioOutput() {
    stop();
}

Expected<void> PortAudioOutput::start(RenderCallback render) {
    if (m_stream != nullptr)
        return {};
    m_render = std::move(render);
    const PaStreamParameters parameters = parametersFor(m_device);
    PaError result = Pa_OpenStream(&m_stream, nullptr, &parameters, m_sampleRate, m_bufferFrames,
                                   paPrimeOutputBuffersUsingStreamCallback,
                                   reinterpret_cast<PaStreamCallback*>(&PortAudioOutput::callback), this);
    if (result == paNoError)
        result = Pa_StartStream(m_stream);
    if (result != paNoError) {
        if (m_stream != nullptr)
            Pa_CloseStream(m_stream);
        m_stream = nullptr;
        // Another program holding the device is the usual cause, and it may let go later.
        return Error(result == paDeviceUnavailable ? ErrorKind::Busy : ErrorKind::SystemFailure,
                     std::string("the sound device does not start: ") + Pa_GetErrorText(result));
    }
    return {};
}

void PortAudioOutput::stop() {
    if (m_stream == nullptr)
        return;
    Pa_StopStream(m_stream);
    Pa_CloseStream(m_stream);
    m_stream = nullptr;
}

int PortAudioOutput::callback(const void*, void* output, unsigned long frames, const void*, unsigned long flags,
                              void* self) {
    auto& out = *static_cast<PortAudioOutput*>(self);
    if ((flags & (paOutputUnderflow | paOutputOverflow)) != 0)
        out.m_xruns.fetch_add(1, std::memory_order_relaxed);
    out.m_render(static_cast<float*>(output), frames);
    return paContinue;
}

} // namespace vexo::audio
