#include "phone/SoundLink.h"

#include <algorithm>
#include <cmath>

#include "audio/Track.h"
#include "platform/media/FileURL.h"

namespace vexo::phone {

SoundLink::SoundLink(sound::AudioEngine& engine)
    : m_engine(engine) {}

std::int64_t SoundLink::frames(double seconds) const {
    return static_cast<std::int64_t>(std::llround(seconds * m_engine.sampleRate()));
}

Expected<std::shared_ptr<sound::Track>> SoundLink::open(const Deck::Song& song) const {
    const std::optional<std::string>& url = song.item.assetURL();
    const std::optional<std::filesystem::path> path = url ? media::FileURL::toPath(*url) : std::nullopt;
    if (!path)
        return Error(ErrorKind::NotFound, "the song has no local file");
    return sound::Track::open(*path, m_engine.sampleRate());
}

double SoundLink::autoGainOf(const Deck::Song& song) const {
    if (!m_autoGainTarget || !song.loudnessLUFS)
        return 1;
    double decibels = std::clamp(*m_autoGainTarget - *song.loudnessLUFS, kLeastAutoGainDB, kMostAutoGainDB);
    // A boost stops where the song's true peak would pass full scale; cuts are always whole.
    if (decibels > 0 && song.truePeakDBTP)
        decibels = std::max(0.0, std::min(decibels, -*song.truePeakDBTP));
    return std::pow(10.0, decibels / 20);
}

double SoundLink::durationOf(const sound::Track& track) const {
    return static_cast<double>(track.frameCount()) / m_engine.sampleRate();
}

void SoundLink::load(const Deck& deck, std::shared_ptr<sound::Track> track) {
    Sent& sent = sentFor(deck);
    const double tempo = deck.song() ? deck.song()->beatsPerMinute : 0;
    const double firstBeat = deck.song() ? deck.song()->firstBeat : 0;
    const double gain = deck.song() ? autoGainOf(*deck.song()) : 1;
    sent.last =
        m_engine.load(static_cast<int>(deck.number()), std::move(track), sound::BeatGrid{tempo, firstBeat}, gain);
    // The player starts a song stopped at its start, without a loop, at rate 1; the effects
    // stay as they were.
    sent.loads = deck.loadCount();
    sent.jumps = deck.jumpCount();
    sent.playing = false;
    sent.looping = false;
    sent.rate = 1;
}

void SoundLink::playOnBeatOf(const Deck& deck, std::int64_t reference) {
    Sent& sent = sentFor(deck);
    sent.last = m_engine.playOnBeatOf(static_cast<int>(deck.number()), static_cast<int>(reference));
    sent.playing = true;
}

void SoundLink::alignBeats(const Deck& deck, std::int64_t reference) {
    sentFor(deck).last = m_engine.alignBeats(static_cast<int>(deck.number()), static_cast<int>(reference));
}

void SoundLink::sync(const Deck& deck, double now) {
    Sent& sent = sentFor(deck);
    if (deck.loadCount() != sent.loads)
        return; // The engine loads through load(), which needs the opened track.
    const int number = static_cast<int>(deck.number());
    if (deck.isLooping() != sent.looping ||
        (deck.isLooping() && (deck.loopStart() != sent.loopStart || deck.loopLength() != sent.loopLength))) {
        sent.looping = deck.isLooping();
        sent.loopStart = deck.loopStart();
        sent.loopLength = deck.loopLength();
        sent.last = sent.looping ? m_engine.setLoop(number, frames(sent.loopStart),
                                                    std::max<std::int64_t>(1, frames(sent.loopLength)))
                                 : m_engine.clearLoop(number);
    }
    if (deck.jumpCount() != sent.jumps) {
        sent.jumps = deck.jumpCount();
        sent.last = m_engine.seek(number, frames(deck.position(now)));
    }
    if (deck.rate() != sent.rate) {
        sent.rate = deck.rate();
        sent.last = m_engine.setRate(number, sent.rate);
    }
    if (deck.effectIndex() != sent.effect) {
        sent.effect = deck.effectIndex();
        sent.last = m_engine.selectEffect(number, static_cast<sound::EffectKind>(sent.effect));
    }
    if (deck.isEffectEnabled() != sent.effectEnabled) {
        sent.effectEnabled = deck.isEffectEnabled();
        sent.last = m_engine.setEffectEnabled(number, sent.effectEnabled);
    }
    if (deck.isLowPassEnabled() != sent.lowPass) {
        sent.lowPass = deck.isLowPassEnabled();
        sent.last = m_engine.setLowPassEnabled(number, sent.lowPass);
    }
    if (deck.isHighPassEnabled() != sent.highPass) {
        sent.highPass = deck.isHighPassEnabled();
        sent.last = m_engine.setHighPassEnabled(number, sent.highPass);
    }
    if (deck.isPlaying() != sent.playing) {
        sent.playing = deck.isPlaying();
        sent.last = sent.playing ? m_engine.play(number) : m_engine.pause(number);
    }
}

void SoundLink::syncMixer(const Mixer& mixer, double now) {
    if (mixer.volume() != m_volume) {
        m_volume = mixer.volume();
        m_engine.setVolume(m_volume);
    }
    if (!mixer.isTransitioning() && mixer.crossfaderPosition(now) != m_crossfader) {
        m_crossfader = mixer.crossfaderPosition(now);
        m_engine.setCrossfader(m_crossfader);
    }
}

void SoundLink::startTransition(double target, double seconds, std::string_view type) {
    m_crossfader = target;
    m_engine.startTransition(target, seconds,
                             sound::transitionKindNamed(type).value_or(sound::TransitionKind::Crossfade));
}

bool SoundLink::observe(Deck& deck, double now) {
    if (!deck.song() || m_engine.appliedSequence() < sentFor(deck).last)
        return false;
    const double before = deck.song()->duration;
    const sound::AudioEngine::DeckStatus status = m_engine.deckStatus(static_cast<int>(deck.number()));
    const std::shared_ptr<sound::Track>& track = m_engine.track(static_cast<int>(deck.number()));
    if (track && track->isExact())
        deck.setDuration(durationOf(*track));
    deck.follow(static_cast<double>(status.position) / m_engine.sampleRate(), status.ended, now);
    return std::fabs(deck.song()->duration - before) >= 1e-3;
}

} // namespace vexo::phone
