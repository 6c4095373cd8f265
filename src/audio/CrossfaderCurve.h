#pragma once

#include <cmath>
#include <numbers>

// The crossfader's constant-power law: at position x (0 deck 1 alone, 1 deck 2 alone) deck 1
// plays at cos(x * pi / 2) and deck 2 at sin(x * pi / 2), so that g1^2 + g2^2 = 1 all along the
// travel: two unrelated songs keep the same loudness through a fade, and in the middle each
// plays at -3 dB.
namespace vexo::sound {

struct DeckGains {
    float deck1;
    float deck2;
};

[[nodiscard]] inline DeckGains crossfaderGains(double position) {
    const double x = std::fmin(1.0, std::fmax(0.0, position)) * std::numbers::pi / 2;
    return {static_cast<float>(std::cos(x)), static_cast<float>(std::sin(x))};
}

} // namespace vexo::sound
