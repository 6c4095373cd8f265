#pragma once

#include <array>
#include <cstddef>
#include <vector>

// Halves the sample rate of a mono stream with a short half-band low-pass (7 taps,
// -1 0 9 16 9 0 -1 over 32): cheap, flat enough below a quarter of the input rate for onset
// and pitch-class analysis, which is all it feeds. Keeps its state between calls, so a stream
// may arrive in blocks of any length. One thread at a time.
namespace vexo::analysis {

class HalfBandDecimator {
public:
    // Appends to `out` one sample for every two taken in (an odd sample left over waits for
    // the next call).
    void process(const float* in, std::size_t count, std::vector<float>& out);

private:
    // The last input samples, newest last.
    std::array<float, 7> m_history{};
    // Whether the next input sample makes an output.
    bool m_odd = false;
};

} // namespace vexo::analysis
