#include "audio/OfflineRenderer.h"

#include <algorithm>
#include <cmath>

#include "platform/audio/AudioFormat.h"

namespace vexo::sound {

OfflineRenderer::OfflineRenderer(AudioEngine& engine, std::size_t bufferFrames)
    : m_engine(engine),
      m_bufferFrames(std::max<std::size_t>(bufferFrames, 1)) {}

std::vector<float> OfflineRenderer::render(std::size_t frames) {
    std::vector<float> out(frames * audio::kChannels);
    for (std::size_t done = 0; done < frames;) {
        const std::size_t buffer = std::min(m_bufferFrames, frames - done);
        m_engine.renderWaitingForTracks(out.data() + done * audio::kChannels, buffer);
        m_engine.collect();
        done += buffer;
    }
    m_rendered += frames;
    return out;
}

std::vector<float> OfflineRenderer::renderSeconds(double seconds) {
    return render(static_cast<std::size_t>(std::llround(std::max(0.0, seconds) * m_engine.sampleRate())));
}

} // namespace vexo::sound
