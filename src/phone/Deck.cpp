#include "phone/Deck.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <iterator>

#include "model/VXAWProtocol.h"
#include "phone/PersistentIDText.h"

namespace vexo::phone {
namespace {

using namespace vexo::model;

constexpr std::size_t kEffectCount = std::size(Deck::kEffects);

std::string key(std::string_view constant) {
    return std::string(constant);
}

} // namespace

void Deck::load(Song song, double now) {
    song.duration = std::max(0.0, std::isfinite(song.duration) ? song.duration : 0.0);
    m_song = std::move(song);
    ++m_loadCount;
    ++m_jumpCount;
    m_playing = false;
    m_looping = false;
    m_anchorPosition = 0;
    m_anchorTime = now;
}

bool Deck::play(double now) {
    if (m_playing || !m_song || position(now) >= m_song->duration)
        return false;
    settle(now);
    m_playing = true;
    m_lastStarted = now;
    return true;
}

bool Deck::pause(double now) {
    if (!m_playing)
        return false;
    settle(now);
    m_playing = false;
    return true;
}

void Deck::skip(double seconds, double now) {
    if (!m_song)
        return;
    settle(now);
    ++m_jumpCount;
    const double target = std::clamp(m_anchorPosition + seconds, 0.0, m_song->duration);
    if (m_looping) {
        const double length = loopLengthSeconds();
        m_loopStart =
            std::clamp(m_loopStart + (target - m_anchorPosition), 0.0, std::max(0.0, m_song->duration - length));
        m_anchorPosition = std::clamp(target, m_loopStart, m_loopStart + length);
    } else {
        m_anchorPosition = target;
    }
}

double Deck::position(double now) const {
    if (!m_song)
        return 0;
    double position = m_anchorPosition;
    if (m_playing)
        position += std::max(0.0, now - m_anchorTime) * m_rate;
    if (m_looping) {
        const double length = loopLengthSeconds();
        if (length > 0 && position >= m_loopStart + length)
            position = m_loopStart + std::fmod(position - m_loopStart, length);
    }
    return std::min(position, m_song->duration);
}

double Deck::remaining(double now) const {
    return m_song ? m_song->duration - position(now) : 0;
}

std::optional<double> Deck::secondsToEnd(double now) const {
    if (!m_playing || m_looping || !m_song || m_rate <= 0)
        return std::nullopt;
    return remaining(now) / m_rate;
}

void Deck::setRate(double rate, double now) {
    if (!std::isfinite(rate) || rate <= 0)
        rate = 1;
    settle(now);
    m_rate = rate;
}

std::int64_t Deck::effectiveBeatsPerMinute() const {
    if (!m_song || m_song->beatsPerMinute <= 0)
        return 0;
    return static_cast<std::int64_t>(std::llround(m_song->beatsPerMinute * m_rate));
}

void Deck::halveLoop(double now) {
    setLoopBeats(m_loopBeats / 2, now);
}

void Deck::doubleLoop(double now) {
    setLoopBeats(m_loopBeats * 2, now);
}

void Deck::setLoopBeats(double beats, double now) {
    settle(now);
    m_loopBeats = std::clamp(beats, kMinimumLoopBeats, kMaximumLoopBeats);
    if (m_looping && m_song) {
        const double length = loopLengthSeconds();
        m_loopStart = std::min(m_loopStart, std::max(0.0, m_song->duration - length));
        if (m_anchorPosition >= m_loopStart + length)
            m_anchorPosition = m_loopStart + std::fmod(m_anchorPosition - m_loopStart, length);
    }
}

bool Deck::toggleLooping(double now) {
    if (!m_song)
        return false;
    settle(now);
    if (m_looping) {
        m_looping = false;
        return true;
    }
    const double length = loopLengthSeconds();
    // Loops start on the grid, so that they hold whole beats of the music.
    const double step = std::min(length, 60 / tempoOf(*m_song));
    const double firstBeat = m_song->beatsPerMinute > 0 ? m_song->firstBeat : 0;
    const double onGrid =
        step > 0 ? firstBeat + std::floor((m_anchorPosition - firstBeat) / step + 1e-9) * step : m_anchorPosition;
    m_loopStart = std::clamp(onGrid, 0.0, std::max(0.0, m_song->duration - length));
    m_anchorPosition = std::max(m_anchorPosition, m_loopStart);
    m_looping = length > 0;
    return m_looping;
}

void Deck::selectNextEffect() {
    m_effect = (m_effect + 1) % kEffectCount;
}

void Deck::selectPreviousEffect() {
    m_effect = (m_effect + kEffectCount - 1) % kEffectCount;
}

bool Deck::update(double now) {
    // Within a microsecond counts as the end, so that rounding never leaves a deck a hair
    // short of its end with a timer due at once, again and again.
    if (!m_playing || !m_song || m_looping || position(now) < m_song->duration - 1e-6)
        return false;
    m_playing = false;
    m_anchorPosition = m_song->duration;
    m_anchorTime = now;
    return true;
}

void Deck::follow(double position, bool ended, double now) {
    if (!m_song || !std::isfinite(position))
        return;
    // The next update() stops a deck whose sound ended, as it would at the tagged end.
    if (ended)
        m_song->duration = std::max(0.0, position);
    m_anchorPosition = std::clamp(position, 0.0, m_song->duration);
    m_anchorTime = now;
}

void Deck::setDuration(double seconds) {
    if (m_song && std::isfinite(seconds) && seconds >= 0)
        m_song->duration = seconds;
}

void Deck::settle(double now) {
    m_anchorPosition = position(now);
    m_anchorTime = now;
}

double Deck::tempoOf(const Song& song) {
    return song.beatsPerMinute > 0 ? song.beatsPerMinute : kFallbackBeatsPerMinute;
}

double Deck::loopLengthSeconds() const {
    const double length = m_loopBeats * 60 / (m_song ? tempoOf(*m_song) : kFallbackBeatsPerMinute);
    // A loop longer than the song loops the whole song.
    return m_song ? std::min(length, m_song->duration) : length;
}

plist::Value Deck::status(double now) const {
    const double seconds = position(now);
    return plist::Value(plist::Dictionary{
        {key(VXAWTurntablePlayingKey), plist::Value(m_playing)},
        {key(VXAWTurntableCurrentTimeKey), plist::Value(static_cast<std::int64_t>(seconds))},
        {key(VXAWTurntableCurrentDisplayTimeKey), plist::Value(m_song ? displayTime(seconds) : std::string())},
        {key(VXAWTurntableAutoLoopBeatIntervalKey), plist::Value(m_loopBeats)},
        {key(VXAWTurntableLoopingKey), plist::Value(m_looping)},
        {key(VXAWTurntableFxNameKey), plist::Value(effectName())},
        {key(VXAWTurntableFxEnabledKey), plist::Value(m_effectEnabled)},
        {key(VXAWTurntableFxLowPassEnabledKey), plist::Value(m_lowPass)},
        {key(VXAWTurntableFxHighPassEnabledKey), plist::Value(m_highPass)},
        {key(VXAWTurntableBpmKey), plist::Value(effectiveBeatsPerMinute())},
        {key(VXAWTurntableKeyKey), plist::Value(m_song ? m_song->key : std::string())},
    });
}

plist::Value Deck::songInfo() const {
    plist::Dictionary info;
    if (m_song) {
        const media::MediaItem& item = m_song->item;
        plist::Dictionary song{
            {key(VXAWSongIdentifierKey), plist::Value(persistentIDText(item.persistentID()))},
            {key(VXAWSongNameKey), plist::Value(item.title())},
            {key(VXAWSongArtistKey), plist::Value(item.artist())},
            {key(VXAWSongDurationKey), plist::Value(static_cast<std::int64_t>(m_song->duration))},
        };
        if (std::optional<std::vector<std::uint8_t>> artwork = item.artworkData())
            song.emplace(key(VXAWSongArtworkImageKey), plist::Value(std::move(*artwork)));
        info.emplace(key(VXAWTurntableCurrentSongKey), plist::Value(std::move(song)));
    }
    return plist::Value(std::move(info));
}

std::string Deck::displayTime(double seconds) {
    const auto whole = static_cast<std::int64_t>(std::isfinite(seconds) && seconds > 0 ? seconds : 0);
    char text[32];
    if (whole >= 3600)
        std::snprintf(text, sizeof text, "%" PRId64 ":%02d:%02d", whole / 3600, static_cast<int>(whole / 60 % 60),
                      static_cast<int>(whole % 60));
    else
        std::snprintf(text, sizeof text, "%d:%02d", static_cast<int>(whole / 60), static_cast<int>(whole % 60));
    return text;
}

} // namespace vexo::phone
