#include "platform/analysis/LoudnessMeter.h"

#include <cmath>

#include <ebur128.h>

namespace vexo::analysis {

struct LoudnessMeter::State {
    ebur128_state* meter = nullptr;
    ~State() {
        if (meter != nullptr)
            ebur128_destroy(&meter);
    }
};

LoudnessMeter::LoudnessMeter(int sampleRate)
    : m_state(std::make_unique<State>()) {
    // Histogram mode keeps the gating memory constant whatever the song's length.
    m_state->meter = ebur128_init(2, static_cast<unsigned long>(sampleRate),
                                  EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK | EBUR128_MODE_HISTOGRAM);
}

LoudnessMeter::~LoudnessMeter() = default;

void LoudnessMeter::add(const float* stereoFrames, std::size_t frames) {
    if (m_state->meter != nullptr && frames > 0)
        ebur128_add_frames_float(m_state->meter, stereoFrames, frames);
}

LoudnessMeter::Result LoudnessMeter::result() const {
    Result result;
    ebur128_state* meter = m_state->meter;
    if (meter == nullptr)
        return result;
    double loudness = 0;
    if (ebur128_loudness_global(meter, &loudness) == EBUR128_SUCCESS && std::isfinite(loudness))
        result.integratedLUFS = loudness;
    double peak = 0;
    for (unsigned channel = 0; channel < 2; ++channel) {
        double channelPeak = 0;
        if (ebur128_true_peak(meter, channel, &channelPeak) == EBUR128_SUCCESS)
            peak = std::fmax(peak, channelPeak);
    }
    if (peak > 0)
        result.truePeakDBTP = 20 * std::log10(peak);
    return result;
}

} // namespace vexo::analysis
