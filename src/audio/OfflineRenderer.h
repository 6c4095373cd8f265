#pragma once

#include <cstddef>
#include <vector>

#include "audio/AudioEngine.h"

// Renders an engine without a device and without a clock: buffer after buffer, as an output
// would ask for them, each waiting until the tracks have decoded what it plays, so that the
// same commands give the same sound on every run. For tests, benchmarks and tools; never on
// the real-time path.
namespace vexo::sound {

class OfflineRenderer {
public:
    // REQUIRES: `engine` outlives the renderer; bufferFrames > 0.
    explicit OfflineRenderer(AudioEngine& engine, std::size_t bufferFrames = 512);

    // Renders `frames` more frames (a whole number of buffers; the last one may be shorter)
    // and returns them, interleaved stereo.
    [[nodiscard]] std::vector<float> render(std::size_t frames);
    // The same, for a duration.
    [[nodiscard]] std::vector<float> renderSeconds(double seconds);

    // Frames rendered since the renderer was made.
    [[nodiscard]] std::size_t framesRendered() const { return m_rendered; }

private:
    AudioEngine& m_engine;
    std::size_t m_bufferFrames;
    std::size_t m_rendered = 0;
};

} // namespace vexo::sound
