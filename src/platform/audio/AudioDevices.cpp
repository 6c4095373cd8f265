#include "platform/audio/AudioDevices.h"

#include <portaudio.h>

#include "platform/audio/AudioFormat.h"
#include "platform/audio/PortAudioSession.h"

namespace vexo::audio {

std::optional<std::vector<AudioDevice>> listOutputDevices(std::string* error) {
    PortAudioSession session;
    if (!session.isStarted()) {
        if (error != nullptr)
            *error = "PortAudio cannot start: " + session.error();
        return std::nullopt;
    }
    std::vector<AudioDevice> devices;
    const PaDeviceIndex defaultDevice = Pa_GetDefaultOutputDevice();
    for (PaDeviceIndex index = 0; index < Pa_GetDeviceCount(); ++index) {
        const PaDeviceInfo* info = Pa_GetDeviceInfo(index);
        if (info == nullptr || info->maxOutputChannels < kChannels)
            continue;
        const PaHostApiInfo* host = Pa_GetHostApiInfo(info->hostApi);
        devices.push_back({info->name != nullptr ? info->name : "", host != nullptr ? host->name : "",
                           info->maxOutputChannels, info->defaultSampleRate, index == defaultDevice});
    }
    return devices;
}

} // namespace vexo::audio
