#include "phone/Mixer.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>

#include "model/VXAWProtocol.h"

namespace vexo::phone {
namespace {

using namespace vexo::model;

constexpr std::size_t kDurationCount = std::size(Mixer::kTransitionDurations);
static_assert(Mixer::kTransitionDurations[3] == Mixer::kDefaultTransitionDuration);

// The share of the way covered at `progress` (0...1) for each transition type.
double curve(std::size_t type, double progress) {
    switch (type) {
    case 1:
        return (1 - std::cos(progress * std::numbers::pi)) / 2;
    case 2:
        return 1 - (1 - progress) * (1 - progress);
    case 3:
        return progress < 0.9 ? 0 : (progress - 0.9) / 0.1;
    default:
        return progress;
    }
}

std::string key(std::string_view constant) {
    return std::string(constant);
}

} // namespace

bool Mixer::setVolume(double volume) {
    if (!std::isfinite(volume))
        return false;
    m_volume = std::clamp(volume, 0.0, 1.0);
    return true;
}

bool Mixer::setCrossfaderPosition(double position) {
    if (!std::isfinite(position))
        return false;
    m_transition.reset();
    m_crossfader = std::clamp(position, 0.0, 1.0);
    return true;
}

double Mixer::crossfaderPosition(double now) const {
    if (!m_transition)
        return m_crossfader;
    const Transition& t = *m_transition;
    const double progress = t.duration > 0 ? std::clamp((now - t.start) / t.duration, 0.0, 1.0) : 1.0;
    return t.from + (t.to - t.from) * curve(t.type, progress);
}

void Mixer::selectNextTransitionDuration() {
    m_duration = std::min(m_duration + 1, kDurationCount - 1);
}

void Mixer::selectPreviousTransitionDuration() {
    if (m_duration > 0)
        --m_duration;
}

double Mixer::transitionDuration() const {
    return kTransitionDurations[m_duration];
}

bool Mixer::setTransitionType(std::string_view type) {
    const auto* found = std::find(std::begin(kTransitionTypes), std::end(kTransitionTypes), type);
    if (found == std::end(kTransitionTypes))
        return false;
    m_transitionType = static_cast<std::size_t>(found - std::begin(kTransitionTypes));
    return true;
}

void Mixer::startTransition(double target, double now) {
    const double from = crossfaderPosition(now);
    m_crossfader = from;
    m_transition = Transition{from, std::clamp(target, 0.0, 1.0), now, transitionDuration(), m_transitionType};
}

std::optional<double> Mixer::transitionTarget() const {
    if (!m_transition)
        return std::nullopt;
    return m_transition->to;
}

std::optional<double> Mixer::transitionEnd() const {
    if (!m_transition)
        return std::nullopt;
    return m_transition->start + m_transition->duration;
}

bool Mixer::update(double now) {
    // Within a microsecond counts as the end (see Deck::update).
    if (!m_transition || now < *transitionEnd() - 1e-6)
        return false;
    m_crossfader = m_transition->to;
    m_transition.reset();
    return true;
}

plist::Value Mixer::status(double now) const {
    plist::Array types;
    for (const std::string_view type : kTransitionTypes)
        types.emplace_back(type);
    return plist::Value(plist::Dictionary{
        {key(VXAWMixerVolumeKey), plist::Value(m_volume)},
        {key(VXAWMixerCrossfaderPositionKey), plist::Value(crossfaderPosition(now))},
        {key(VXAWMixerSyncActiveKey), plist::Value(m_syncActive)},
        {key(VXAWMixerAutomixActiveKey), plist::Value(m_automixActive)},
        {key(VXAWMixerTransitionTypeKey), plist::Value(transitionType())},
        {key(VXAWMixerTransitionDurationKey), plist::Value(transitionDuration())},
        {key(VXAWMixerAvailableTransitionTypesKey), plist::Value(std::move(types))},
    });
}

} // namespace vexo::phone
