#pragma once

#include <string>

// PortAudio, started for as long as an object of this lives. Its start walks every ALSA and
// JACK device and prints the sound libraries' complaints about those it cannot open to
// standard error, which on a machine without sound is a screenful of noise; standard error is
// closed for that moment.
namespace vexo::audio {

class PortAudioSession {
public:
    PortAudioSession();
    ~PortAudioSession();

    PortAudioSession(const PortAudioSession&) = delete;
    PortAudioSession& operator=(const PortAudioSession&) = delete;

    [[nodiscard]] bool isStarted() const { return m_started; }
    // Why PortAudio did not start.
    [[nodiscard]] const std::string& error() const { return m_error; }

private:
    bool m_started = false;
    std::string m_error;
};

} // namespace vexo::audio
