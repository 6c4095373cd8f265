#include "platform/analysis/HalfBandDecimator.h"

namespace vexo::analysis {

void HalfBandDecimator::process(const float* in, std::size_t count, std::vector<float>& out) {
    auto& h = m_history;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t k = 0; k + 1 < h.size(); ++k)
            h[k] = h[k + 1];
        h[6] = in[i];
        m_odd = !m_odd;
        if (m_odd)
            continue;
        out.push_back((16.0f * h[3] + 9.0f * (h[2] + h[4]) - (h[0] + h[6])) * (1.0f / 32.0f));
    }
}

} // namespace vexo::analysis
