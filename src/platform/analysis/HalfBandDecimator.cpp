#include "platform/analysis/HalfBandDecimator.h"

namespace vexo::analysis {

void HalfBandDecimator::process(const float* in, std::size_t count, std::vector<float>& out) {
    // The taps run over the history and the new samples as one sequence: [history | in].
    const auto at = [&](std::size_t index) {
        return index < m_history.size() ? m_history[index] : in[index - m_history.size()];
    };
    const std::size_t total = m_history.size() + count;
    // The output at sequence position p (its newest tap) exists for every other input sample.
    std::size_t position = m_history.size() + (m_odd ? 0 : 1);
    out.reserve(out.size() + count / 2 + 1);
    for (; position < total; position += 2) {
        const std::size_t oldest = position - 6;
        if (oldest < m_history.size()) {
            out.push_back(
                (16.0f * at(oldest + 3) + 9.0f * (at(oldest + 2) + at(oldest + 4)) - (at(oldest) + at(oldest + 6))) *
                (1.0f / 32.0f));
            continue;
        }
        const float* x = in + (oldest - m_history.size());
        out.push_back((16.0f * x[3] + 9.0f * (x[2] + x[4]) - (x[0] + x[6])) * (1.0f / 32.0f));
    }
    // Whether the next sample makes an output, and the last seven samples seen.
    m_odd = ((m_odd ? 1u : 0u) + count) % 2 == 1;
    std::array<float, 7> history{};
    for (std::size_t k = 0; k < history.size(); ++k)
        history[k] = at(total - history.size() + k);
    m_history = history;
}

} // namespace vexo::analysis
