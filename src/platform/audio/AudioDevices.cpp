#include "platform/audio/AudioDevices.h"

#include <portaudio.h>

#include "platform/audio/AudioFormat.h"
#include "platform/audio/PortAudioSession.h"

namespace vexo::audio {

Expected<std::vector<AudioDevice>> listOutputDevices() {
    PortAudioSession session;
    if (!session.isStarted())
        return Error(ErrorKind::Unavailable, "PortAudio cannot start: " + session.error());
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
