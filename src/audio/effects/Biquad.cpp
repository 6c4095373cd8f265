#include "audio/effects/Biquad.h"

#include <cmath>
#include <numbers>

#include "audio/effects/Denormal.h"

namespace vexo::sound {

void Biquad::configure(Shape shape, double frequency, double q, int sampleRate) noexcept {
    const double omega = 2 * std::numbers::pi * frequency / sampleRate;
    const double cosine = std::cos(omega);
    const double alpha = std::sin(omega) / (2 * q);
    const double a0 = 1 + alpha;
    const double pass = shape == Shape::LowPass ? (1 - cosine) / 2 : (1 + cosine) / 2;
    m_b0 = pass / a0;
    m_b1 = (shape == Shape::LowPass ? 2 * pass : -2 * pass) / a0;
    m_b2 = pass / a0;
    m_a1 = -2 * cosine / a0;
    m_a2 = (1 - alpha) / a0;
}

double Biquad::process(double input) noexcept {
    const double output = m_b0 * input + m_z1;
    m_z1 = flushDenormal(m_b1 * input - m_a1 * output + m_z2);
    m_z2 = flushDenormal(m_b2 * input - m_a2 * output);
    return output;
}

void Biquad::reset() noexcept {
    m_z1 = 0;
    m_z2 = 0;
}

} // namespace vexo::sound
