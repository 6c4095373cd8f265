#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/plist/Value.h"

// The phone application's mixer: volume, crossfader, sync, automix, and the automatic
// transitions that move the crossfader over the transition duration.
//
// Like Deck, a plain value driven with the run loop's time by its owner. The crossfader runs
// from 0 (deck 1 alone) through 0.5 (both) to 1 (deck 2 alone).
namespace vexo::phone {

class Mixer {
public:
    // The transition durations in seconds, in the order next and previous step through them
    // (they stop at either end).
    static constexpr double kTransitionDurations[] = {1, 2, 4, 8, 12, 16, 24, 32};
    static constexpr double kDefaultTransitionDuration = 8;
    // The transition types, each a curve the crossfader follows from where it stands to the
    // target: "Crossfade" straight, "Smooth" slow at both ends, "Echo Out" fast at first and
    // slow at the end, "Cut" holding until the last tenth and then moving quickly.
    static constexpr std::string_view kTransitionTypes[] = {"Crossfade", "Smooth", "Echo Out", "Cut"};
    static constexpr double kDefaultVolume = 0.8;

    Mixer() = default;

    // Clamped to 0...1; false for a value that is not a finite number.
    bool setVolume(double volume);
    [[nodiscard]] double volume() const { return m_volume; }

    // Clamped to 0...1, ending any transition; false for a value that is not a finite number.
    bool setCrossfaderPosition(double position);
    // Where the crossfader stands at `now` (a transition moves it).
    [[nodiscard]] double crossfaderPosition(double now) const;

    void toggleSync() { m_syncActive = !m_syncActive; }
    [[nodiscard]] bool isSyncActive() const { return m_syncActive; }
    void setAutomixActive(bool active) { m_automixActive = active; }
    [[nodiscard]] bool isAutomixActive() const { return m_automixActive; }

    void selectNextTransitionDuration();
    void selectPreviousTransitionDuration();
    [[nodiscard]] double transitionDuration() const;

    // False, changing nothing, for a name not in kTransitionTypes.
    bool setTransitionType(std::string_view type);
    [[nodiscard]] std::string_view transitionType() const { return kTransitionTypes[m_transitionType]; }

    // Moves the crossfader from where it stands to `target` over the transition duration,
    // replacing a transition in progress.
    void startTransition(double target, double now);
    [[nodiscard]] bool isTransitioning() const { return m_transition.has_value(); }
    // The target of the transition in progress.
    [[nodiscard]] std::optional<double> transitionTarget() const;
    // The loop time at which the transition in progress ends.
    [[nodiscard]] std::optional<double> transitionEnd() const;
    // Ends a transition whose time is up, leaving the crossfader at its target. True when
    // one ended.
    bool update(double now);

    [[nodiscard]] plist::Value status(double now) const;

private:
    struct Transition {
        double from;
        double to;
        double start;
        double duration;
        std::size_t type;
    };

    double m_volume = kDefaultVolume;
    double m_crossfader = 0.5;
    bool m_syncActive = false;
    bool m_automixActive = false;
    std::size_t m_duration = 3;
    std::size_t m_transitionType = 0;
    std::optional<Transition> m_transition;
};

} // namespace vexo::phone
