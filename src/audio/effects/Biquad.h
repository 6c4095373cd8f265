#pragma once

// One second-order section from the RBJ audio EQ cookbook, on one channel, transposed
// direct form II in double precision (low cut-offs at high sample rates stay accurate).
// A plain value owned by one audio-thread object.
namespace vexo::sound {

class Biquad {
public:
    enum class Shape { LowPass, HighPass };

    // REQUIRES: sampleRate > 0, 0 < frequency < sampleRate / 2, q > 0. Keeps the state, so
    // that a new setting while sound plays does not restart the filter.
    void configure(Shape shape, double frequency, double q, int sampleRate) noexcept;

    [[nodiscard]] double process(double input) noexcept;
    void reset() noexcept;

private:
    double m_b0 = 1;
    double m_b1 = 0;
    double m_b2 = 0;
    double m_a1 = 0;
    double m_a2 = 0;
    double m_z1 = 0;
    double m_z2 = 0;
};

} // namespace vexo::sound
