#pragma once

#include <cstddef>

// The one sample format inside the program: interleaved stereo 32-bit float, left first, at
// the output's sample rate. Decoders convert to it, effects and mixers work in it, outputs
// and recordings take it.
namespace vexo::audio {

inline constexpr int kChannels = 2;
inline constexpr int kDefaultSampleRate = 48000;
// 10.7 ms at 48 kHz: half of what mixing applications usually default to.
inline constexpr std::size_t kDefaultBufferFrames = 512;

} // namespace vexo::audio
