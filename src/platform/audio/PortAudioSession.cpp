#include "platform/audio/PortAudioSession.h"

#include <fcntl.h>
#include <portaudio.h>
#include <unistd.h>

namespace vexo::audio {

PortAudioSession::PortAudioSession() {
    const int saved = ::dup(STDERR_FILENO);
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved >= 0 && null >= 0)
        ::dup2(null, STDERR_FILENO);
    const PaError started = Pa_Initialize();
    if (saved >= 0 && null >= 0)
        ::dup2(saved, STDERR_FILENO);
    if (saved >= 0)
        ::close(saved);
    if (null >= 0)
        ::close(null);
    m_started = started == paNoError;
    if (!m_started)
        m_error = Pa_GetErrorText(started);
}

PortAudioSession::~PortAudioSession() {
    if (m_started)
        Pa_Terminate();
}

} // namespace vexo::audio
