#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace vexo::sound {

// How an automatic transition moves from one deck to the other:
//   Crossfade  the crossfader travels at an even pace;
//   Smooth     it eases in and out (a raised cosine), the change hard to hear;
//   Echo Out   it leaves fast (a quadratic ease-out) while the outgoing deck's echoes ring on
//              after it is gone;
//   Cut        it holds, then switches within 5 ms on the last beat of the outgoing deck
//              that falls within the transition's duration.
enum class TransitionKind : std::size_t { Crossfade, Smooth, EchoOut, Cut };

inline constexpr std::array<std::string_view, 4> kTransitionNames{"Crossfade", "Smooth", "Echo Out", "Cut"};

[[nodiscard]] inline std::optional<TransitionKind> transitionKindNamed(std::string_view name) {
    for (std::size_t i = 0; i < kTransitionNames.size(); ++i)
        if (kTransitionNames[i] == name)
            return static_cast<TransitionKind>(i);
    return std::nullopt;
}

} // namespace vexo::sound
