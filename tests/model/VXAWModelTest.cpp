#include "model/VXAWModel.h"

#include "model/VXAWLibrary.h"
#include "model/VXAWMixer.h"
#include "model/VXAWTurntable.h"
#include "support/WatchFixture.h"

using namespace vexo;
using namespace vexo::model;
using plist::Value;
using vexo::testing::deckAction;
using vexo::testing::mixerAction;

namespace {
class VXAWModelTest : public vexo::testing::WatchFixture {};
} // namespace

TEST_F(VXAWModelTest, ThePhoneHearsDeckOneDeckTwoThenTheMixer) {
    const auto model = VXAWModel::sharedModel();
    EXPECT_EQ(takeSent(), (std::vector{
                              deckAction(1, 16),
                              deckAction(2, 16),
                              mixerAction(11),
                          }));
    EXPECT_EQ(VXAWModel::sharedModel(), model);
    EXPECT_TRUE(takeSent().empty()) << "only one model, one deck 1";
}

TEST_F(VXAWModelTest, LooksDecksUpByOneBasedNumber) {
    const auto model = VXAWModel::sharedModel();
    EXPECT_EQ(model->turntable(1)->turntableNumber(), 1);
    EXPECT_EQ(model->turntable(2)->turntableNumber(), 2);
    for (std::int64_t number :
         {std::int64_t{0}, std::int64_t{-1}, std::int64_t{3}, std::numeric_limits<std::int64_t>::min()})
        EXPECT_EQ(model->turntable(number), nullptr) << number;
}

TEST_F(VXAWModelTest, ANewEnvironmentBuildsANewModel) {
    const auto first = VXAWModel::sharedModel();
    installFreshEnvironment();
    EXPECT_NE(VXAWModel::sharedModel(), first);
}
