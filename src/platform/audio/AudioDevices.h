#pragma once

#include <optional>
#include <string>
#include <vector>

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

// Every device with at least two output channels. Nothing, with `*error` set, when PortAudio
// cannot start; an empty list on a machine without sound.
[[nodiscard]] std::optional<std::vector<AudioDevice>> listOutputDevices(std::string* error = nullptr);

} // namespace vexo::audio
