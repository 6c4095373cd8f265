#include "ui/PlaybackProgress.h"

#include <cmath>
#include <limits>

#include "model/VXAWTurntable.h"

namespace vexo::ui {

std::int64_t playbackProgressIndex(std::int64_t currentTime, std::int64_t duration) {
    const float fraction = static_cast<float>(currentTime) / static_cast<float>(duration);
    const double scaled = static_cast<double>(fraction) * 49.0;
    if (std::isnan(scaled))
        return 0;
    constexpr double kLimit = 9223372036854775808.0; // 2^63
    if (scaled >= kLimit)
        return std::numeric_limits<std::int64_t>::max();
    if (scaled < -kLimit)
        return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(scaled);
}

std::string playbackProgressImageName(bool playing, std::int64_t index) {
    return std::string(playing ? "tracking-active-" : "tracking-") + std::to_string(index) + "-f.png";
}

std::string playbackProgressImageName(const model::VXAWTurntable& deck) {
    const auto& song = deck.song();
    const std::int64_t index = song ? playbackProgressIndex(deck.currentTime(), song->duration()) : 0;
    return playbackProgressImageName(deck.isPlaying(), index);
}

} // namespace vexo::ui
