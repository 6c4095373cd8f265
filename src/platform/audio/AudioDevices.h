#pragma once

#include <string>
#include <vector>

#include "platform/base/Expected.h"

// The sound devices that can play, as PortAudio sees them (ALSA and JACK; PipeWire and
// PulseAudio through their ALSA or JACK plugins).
namespace vexo::audio {

struct AudioDevice {
    std::string name;
    // "ALSA", "JACK", ...
    std::string hostApi;
    int outputChannels = 0;
    double defaultSampleRate = 0;
    bool isDefault = false;
};

// Every device with at least two output channels; an empty list on a machine without sound.
// Fails (Unavailable) when PortAudio cannot start.
[[nodiscard]] Expected<std::vector<AudioDevice>> listOutputDevices();

} // namespace vexo::audio
