#include "model/VXAWMixer.h"

#include "support/KeyPathRecorder.h"
#include "support/WatchFixture.h"

using namespace vexo;
using namespace vexo::model;
using plist::Dictionary;
using plist::Value;
using vexo::testing::KeyPathRecorder;
using vexo::testing::mixerAction;

namespace {

class VXAWMixerTest : public vexo::testing::WatchFixture {};

const Dictionary kStatus{
    {"volume", Value(0.8)},
    {"crossfaderPosition", Value(0.25)},
    {"syncActive", Value(true)},
    {"automixActive", Value("YES")},
    {"transitionType", Value("Fade")},
    {"transitionDuration", Value(2.3)},
    {"availableTransitions", Value(plist::Array{Value("Fade"), Value("Cut")})},
};

} // namespace

TEST_F(VXAWMixerTest, StartsFromTheStoredStatusAndRemovesTheStoredAction) {
    phoneWrites("mixerStatus", Value(kStatus));
    m_phone->passMessageObject(Value(Dictionary{{"action", Value(6)}}), "mixerAction");

    VXAWMixer mixer;
    EXPECT_EQ(mixer.volume(), static_cast<double>(0.8f));
    EXPECT_TRUE(mixer.isAutomixActive());
    EXPECT_TRUE(m_phone->messageWithIdentifier("mixerAction").isNull());
    EXPECT_FALSE(m_phone->messageWithIdentifier("mixerStatus").isNull());
    EXPECT_EQ(takeSent(), std::vector{mixerAction(11)});
}

TEST_F(VXAWMixerTest, WithoutAStoredStatusTheInitialValuesAreOverwrittenWithZero) {
    VXAWMixer mixer;
    EXPECT_EQ(mixer.volume(), 0.0);
    EXPECT_EQ(mixer.crossfaderPosition(), 0.0);
    EXPECT_EQ(mixer.transitionType(), std::nullopt);
    EXPECT_EQ(mixer.availableTransitionTypes(), std::nullopt);
}

TEST_F(VXAWMixerTest, ReadsFractionsInSinglePrecisionAndMissingKeysAsZero) {
    VXAWMixer mixer;
    phoneWrites("mixerStatus", Value(kStatus));
    EXPECT_EQ(mixer.transitionDuration(), 2.299999952316284);
    EXPECT_EQ(mixer.crossfaderPosition(), 0.25);
    EXPECT_TRUE(mixer.isSyncActive());
    EXPECT_EQ(mixer.transitionType(), "Fade");
    ASSERT_TRUE(mixer.availableTransitionTypes());
    EXPECT_EQ(mixer.availableTransitionTypes()->size(), 2u);

    Dictionary withoutVolume = kStatus;
    withoutVolume.erase("volume");
    phoneWrites("mixerStatus", Value(withoutVolume));
    EXPECT_EQ(mixer.volume(), 0.0);

    mixer.processMessageWithIdentifier("mixerAction", Value(kStatus));
    EXPECT_EQ(mixer.volume(), 0.0) << "another identifier changes nothing";
}

TEST_F(VXAWMixerTest, EchoesTheCrossfaderAtOnceOnlyForActionTwo) {
    VXAWMixer mixer;
    takeSent();
    KeyPathRecorder recorder;
    recorder.observe(mixer, {"crossfaderPosition"});

    const Value params(Dictionary{{"crossfaderPosition", Value(0.75)}});
    mixer.sendActionMessage(VXAWMixerActionSetCrossfaderPosition, params);
    EXPECT_EQ(mixer.crossfaderPosition(), 0.75);
    EXPECT_EQ(recorder.take().size(), 1u);

    mixer.sendActionMessage(VXAWMixerActionTransitionLeft);
    EXPECT_EQ(mixer.crossfaderPosition(), 0.75);
    EXPECT_TRUE(recorder.take().empty());

    mixer.sendActionMessage(VXAWMixerActionSetCrossfaderPosition);
    EXPECT_EQ(mixer.crossfaderPosition(), 0.0) << "no parameters read as 0";

    EXPECT_EQ(takeSent(), (std::vector{
                              mixerAction(2, params),
                              mixerAction(3),
                              mixerAction(2),
                          }));
}

TEST_F(VXAWMixerTest, TransitionModeIsPersistedAndAnnounced) {
    {
        VXAWMixer mixer;
        EXPECT_EQ(mixer.transitionMode(), 0);
        KeyPathRecorder recorder;
        recorder.observe(mixer, {"transitionMode"});
        mixer.setTransitionMode(1);
        EXPECT_EQ(recorder.take(), std::vector<std::string>{"transitionMode"});
    }
    // A restart: new defaults read from the same file, a new mixer.
    installFreshEnvironment();
    VXAWMixer restarted;
    EXPECT_EQ(restarted.transitionMode(), 1);
}
