#include "model/VXAWMixer.h"

#include "model/Environment.h"
#include "model/VXAWProtocol.h"
#include "platform/runtime/UserDefaults.h"
#include "transport/MMWormhole.h"

namespace vexo::model {
namespace {

double singlePrecision(const plist::Value& value) {
    return static_cast<double>(value.floatValue());
}

} // namespace

void VXAWMixer::initialize() {
    if (const auto& defaults = environment().userDefaults)
        defaults->registerDefaults({{std::string(kTransitionModeDefaultsKey), plist::Value(0)}});
}

VXAWMixer::VXAWMixer() {
    // The platform runs the class set-up once before first use; registering again is harmless
    // and keeps a freshly installed environment right.
    initialize();
    setVolume(-1.0);
    setCrossfaderPosition(0.5);
    setSyncActive(false);
    setAutomixActive(false);
    setupWormhole();
}

VXAWMixer::~VXAWMixer() {
    teardownWormhole();
}

void VXAWMixer::setupWormhole() {
    setWormhole(std::make_shared<transport::MMWormhole>(
        environment().applicationGroupIdentifier, std::string(kWormholeMessageDirectory), environment().mainLoop));
    // Deliberately the outgoing action file, not the status: the last status of an earlier
    // run is applied below.
    m_wormhole->clearMessageContentsForIdentifier(VXAWMixerActionMessageIdentifier);
    m_wormhole->listenForMessageWithIdentifier(VXAWMixerStatusMessageIdentifier, [this](const plist::Value& message) {
        processMessageWithIdentifier(VXAWMixerStatusMessageIdentifier, message);
    });
    processMessageWithIdentifier(VXAWMixerStatusMessageIdentifier,
                                 m_wormhole->messageWithIdentifier(VXAWMixerStatusMessageIdentifier));
    sendActionMessage(VXAWMixerActionRequestStatus);
}

void VXAWMixer::teardownWormhole() {
    if (!m_wormhole)
        return;
    m_wormhole->stopListeningForMessageWithIdentifier(VXAWMixerStatusMessageIdentifier);
    setWormhole(nullptr);
}

void VXAWMixer::processMessageWithIdentifier(std::string_view identifier, const plist::Value& contents) {
    if (identifier != VXAWMixerStatusMessageIdentifier)
        return;
    setVolume(singlePrecision(contents[VXAWMixerVolumeKey]));
    setCrossfaderPosition(singlePrecision(contents[VXAWMixerCrossfaderPositionKey]));
    setSyncActive(contents[VXAWMixerSyncActiveKey].boolValue());
    setAutomixActive(contents[VXAWMixerAutomixActiveKey].boolValue());
    setTransitionType(contents[VXAWMixerTransitionTypeKey].stringValue());
    setTransitionDuration(singlePrecision(contents[VXAWMixerTransitionDurationKey]));
    setAvailableTransitionTypes(contents[VXAWMixerAvailableTransitionTypesKey].arrayValue());
}

void VXAWMixer::sendActionMessage(std::int64_t action, const plist::Value& params) {
    plist::Dictionary contents{{std::string(kActionCodeKey), plist::Value(action)}};
    if (!params.isNull())
        contents.emplace(kActionParamsKey, params);
    openParentApplication(plist::Value(plist::Dictionary{
        {std::string(VXAWMessageIdentifierKey), plist::Value(VXAWMixerActionMessageIdentifier)},
        {std::string(VXAWMessageContentsKey), plist::Value(std::move(contents))},
    }));
    if (action == VXAWMixerActionSetCrossfaderPosition)
        setCrossfaderPosition(singlePrecision(params[VXAWMixerCrossfaderPositionKey]));
}

std::int64_t VXAWMixer::transitionMode() const {
    const auto& defaults = environment().userDefaults;
    return defaults ? defaults->integerForKey(kTransitionModeDefaultsKey) : 0;
}

void VXAWMixer::setTransitionMode(std::int64_t mode) {
    // The value lives in the defaults, so the change is bracketed by hand.
    willChangeValueForKey(kTransitionModeKeyPath);
    if (const auto& defaults = environment().userDefaults)
        defaults->setInteger(mode, kTransitionModeDefaultsKey);
    didChangeValueForKey(kTransitionModeKeyPath);
}

std::any VXAWMixer::valueForKey(std::string_view key) const {
    if (key == kVolumeKeyPath)
        return m_volume;
    if (key == kCrossfaderPositionKeyPath)
        return m_crossfaderPosition;
    if (key == kSyncActiveKeyPath)
        return m_syncActive;
    if (key == kAutomixActiveKeyPath)
        return m_automixActive;
    if (key == kTransitionModeKeyPath)
        return transitionMode();
    if (key == kTransitionDurationKeyPath)
        return m_transitionDuration;
    if (key == kTransitionTypeKeyPath)
        return m_transitionType;
    if (key == kAvailableTransitionTypesKeyPath)
        return m_availableTransitionTypes;
    if (key == kWormholeKeyPath)
        return m_wormhole;
    return Observable::valueForKey(key);
}

} // namespace vexo::model
