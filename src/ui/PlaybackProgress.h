#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace vexo::model {
class VXAWTurntable;
}

// The playback-progress ring of the deck page and of the mixer page: one of the frames
// "tracking-<i>-f.png" (paused) or "tracking-active-<i>-f.png" (playing).
namespace vexo::ui {

// The frame index of `currentTime` into a song of `duration`: both taken as 32-bit floats,
// divided, times 49, truncated toward zero. Deliberately not clamped: a position past the
// end gives more than 49 and a negative one less than 0. A zero duration is not guarded
// either; its quotient converts as the watch's processor converts it (NaN gives 0, an
// infinity the nearest 64-bit limit), so nothing here is undefined.
[[nodiscard]] std::int64_t playbackProgressIndex(std::int64_t currentTime, std::int64_t duration);

// The image name for frame `index`, playing or not.
[[nodiscard]] std::string playbackProgressImageName(bool playing, std::int64_t index);

// The frame for `deck`'s current state: index 0 while it has no song.
[[nodiscard]] std::string playbackProgressImageName(const model::VXAWTurntable& deck);

} // namespace vexo::ui
