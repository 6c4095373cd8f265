#include "platform/audio/AudioOutput.h"

#include <cstring>

#include <portaudio.h>

#include "platform/audio/AudioFormat.h"
#include "platform/audio/NullOutput.h"
#include "platform/audio/PortAudioOutput.h"
#include "platform/audio/PortAudioSession.h"

namespace vexo::audio {
namespace {

std::unique_ptr<AudioOutput> nullOutput(const OutputOptions& options) {
    return std::make_unique<NullOutput>(options.sampleRate > 0 ? options.sampleRate : kDefaultSampleRate,
                                        options.bufferFrames);
}

// The device whose name is `name`, else the one whose name holds it; -1 for none, -2 when
// several hold it.
int deviceNamed(const std::string& name) {
    int found = -1;
    for (PaDeviceIndex index = 0; index < Pa_GetDeviceCount(); ++index) {
        const PaDeviceInfo* info = Pa_GetDeviceInfo(index);
        if (info == nullptr || info->maxOutputChannels < kChannels || info->name == nullptr)
            continue;
        if (name == info->name)
            return index;
        if (std::strstr(info->name, name.c_str()) != nullptr)
            found = found == -1 ? index : -2;
    }
    return found;
}

} // namespace

Expected<std::unique_ptr<AudioOutput>> openOutput(const OutputOptions& options, std::string* notice) {
    if (options.device == "none")
        return nullOutput(options);

    auto session = std::make_unique<PortAudioSession>();
    int device = -1;
    if (session->isStarted())
        device = options.device.empty() ? Pa_GetDefaultOutputDevice() : deviceNamed(options.device);
    if (!options.device.empty()) {
        if (!session->isStarted())
            return Error(ErrorKind::Unavailable, "cannot reach the sound devices: " + session->error());
        if (device == -2)
            return Error(ErrorKind::InvalidData, "more than one sound device is named like \"" + options.device +
                                                     "\": give more of the name (see --list-audio-devices)");
        if (device < 0)
            return Error(ErrorKind::NotFound,
                         "no sound device named \"" + options.device + "\" (see --list-audio-devices)");
    }
    if (device < 0) {
        std::unique_ptr<AudioOutput> output = nullOutput(options);
        if (notice != nullptr)
            *notice = "no sound device found: playing silently to " + output->description();
        return output;
    }
    auto output = PortAudioOutput::open(std::move(session), device, options.sampleRate, options.bufferFrames);
    if (!output)
        return std::move(output).error();
    return std::unique_ptr<AudioOutput>(std::move(output).value());
}

} // namespace vexo::audio
