#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace vexo::sound {

// The deck effects, in the order next and previous step through them.
enum class EffectKind : std::size_t { Echo, Flanger, Phaser, Reverb, Gate, Bitcrusher };

inline constexpr std::size_t kEffectKindCount = 6;
// Their names as the watch shows them.
inline constexpr std::array<std::string_view, kEffectKindCount> kEffectNames{"Echo",   "Flanger", "Phaser",
                                                                             "Reverb", "Gate",    "Bitcrusher"};

} // namespace vexo::sound
