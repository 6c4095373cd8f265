#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/plist/Value.h"
#include "platform/runtime/Observable.h"

namespace vexo::transport {
class MMWormhole;
}

// The watch-side mirror of the phone application's mixer: volume, crossfader, beat sync,
// automix and the transition automix uses, plus one watch-only setting, the transition mode,
// kept in the extension's user defaults under "VXAWMixerTransitionMode".
//
// It listens on "mixerStatus" and sends mixer actions. Fractional values from the phone are
// read in single precision. Every property setter notifies its observers, also when the value
// is unchanged. Main thread only.
namespace vexo::model {

class VXAWMixer : public runtime::Observable {
public:
    // The key paths of the observable properties, as observers spell them.
    static constexpr std::string_view kVolumeKeyPath = "volume";
    static constexpr std::string_view kCrossfaderPositionKeyPath = "crossfaderPosition";
    static constexpr std::string_view kSyncActiveKeyPath = "syncActive";
    static constexpr std::string_view kAutomixActiveKeyPath = "automixActive";
    static constexpr std::string_view kTransitionModeKeyPath = "transitionMode";
    static constexpr std::string_view kTransitionDurationKeyPath = "transitionDuration";
    static constexpr std::string_view kTransitionTypeKeyPath = "transitionType";
    static constexpr std::string_view kAvailableTransitionTypesKeyPath = "availableTransitionTypes";
    static constexpr std::string_view kWormholeKeyPath = "wormhole";

    // The user-defaults key of the transition mode.
    static constexpr std::string_view kTransitionModeDefaultsKey = "VXAWMixerTransitionMode";

    // Registers the transition mode's default (0), sets the initial values (volume -1,
    // crossfader 0.5, sync and automix off) and starts the transport: clears the stored
    // "mixerAction", listens on "mixerStatus", applies the stored status (also when there is
    // none, which reads as all zero) and sends a status request (action 11).
    VXAWMixer();
    ~VXAWMixer() override;

    // Registers the default value 0 for the transition mode in the environment's user defaults.
    static void initialize();

    void setupWormhole();
    void teardownWormhole();

    // Applies a "mixerStatus" message; missing keys, or a message that is nothing, read as
    // 0, false or nothing. Any other identifier changes nothing.
    void processMessageWithIdentifier(std::string_view identifier, const plist::Value& contents);

    // Sends {"identifier": "mixerAction", "contents": {"action": code[, "params": params]}}.
    // Action 2 then sets the crossfader at once to params["crossfaderPosition"] (as a float).
    void sendActionMessage(std::int64_t action, const plist::Value& params = plist::Value());

    double volume() const { return m_volume; }
    void setVolume(double volume) { setAndNotify(kVolumeKeyPath, m_volume, volume); }
    double crossfaderPosition() const { return m_crossfaderPosition; }
    void setCrossfaderPosition(double position) {
        setAndNotify(kCrossfaderPositionKeyPath, m_crossfaderPosition, position);
    }
    bool isSyncActive() const { return m_syncActive; }
    void setSyncActive(bool active) { setAndNotify(kSyncActiveKeyPath, m_syncActive, active); }
    bool isAutomixActive() const { return m_automixActive; }
    void setAutomixActive(bool active) { setAndNotify(kAutomixActiveKeyPath, m_automixActive, active); }
    // 0 manual, 1 automatic; stored in the user defaults, never sent to the phone.
    std::int64_t transitionMode() const;
    void setTransitionMode(std::int64_t mode);
    double transitionDuration() const { return m_transitionDuration; }
    void setTransitionDuration(double seconds) {
        setAndNotify(kTransitionDurationKeyPath, m_transitionDuration, seconds);
    }
    const std::optional<std::string>& transitionType() const { return m_transitionType; }
    void setTransitionType(std::optional<std::string> type) {
        setAndNotify(kTransitionTypeKeyPath, m_transitionType, std::move(type));
    }
    // The names the phone offers, as it sent them.
    const std::optional<plist::Array>& availableTransitionTypes() const { return m_availableTransitionTypes; }
    void setAvailableTransitionTypes(std::optional<plist::Array> types) {
        setAndNotify(kAvailableTransitionTypesKeyPath, m_availableTransitionTypes, std::move(types));
    }
    const std::shared_ptr<transport::MMWormhole>& wormhole() const { return m_wormhole; }
    void setWormhole(std::shared_ptr<transport::MMWormhole> wormhole) {
        setAndNotify(kWormholeKeyPath, m_wormhole, std::move(wormhole));
    }

    [[nodiscard]] std::any valueForKey(std::string_view key) const override;

private:
    double m_volume = 0;
    double m_crossfaderPosition = 0;
    bool m_syncActive = false;
    bool m_automixActive = false;
    double m_transitionDuration = 0;
    std::optional<std::string> m_transitionType;
    std::optional<plist::Array> m_availableTransitionTypes;
    std::shared_ptr<transport::MMWormhole> m_wormhole;
};

} // namespace vexo::model
