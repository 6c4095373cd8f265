#include "model/VXAWModel.h"

#include "ModelTestFixture.h"
#include "model/VXAWLibrary.h"
#include "model/VXAWMixer.h"
#include "model/VXAWTurntable.h"

using namespace vexo;
using namespace vexo::model;
using model::testing::envelope;
using plist::Value;

namespace {
class VXAWModelTest : public model::testing::ModelTest {};
} // namespace

TEST_F(VXAWModelTest, ThePhoneHearsDeckOneDeckTwoThenTheMixer) {
    const auto model = VXAWModel::sharedModel();
    EXPECT_EQ(takeSent(), (std::vector{
                              envelope("turntableAction", {{"turntable", Value(1)}, {"action", Value(16)}}),
                              envelope("turntableAction", {{"turntable", Value(2)}, {"action", Value(16)}}),
                              envelope("mixerAction", {{"action", Value(11)}}),
                          }));
    EXPECT_EQ(VXAWModel::sharedModel(), model);
    EXPECT_TRUE(takeSent().empty()) << "only one model, one deck 1";
}

TEST_F(VXAWModelTest, LooksDecksUpByOneBasedNumber) {
    const auto model = VXAWModel::sharedModel();
    ASSERT_EQ(model->turntables().size(), 2u);
    EXPECT_EQ(model->turntable(1), model->turntable1());
    EXPECT_EQ(model->turntable(2), model->turntable2());
    EXPECT_EQ(model->turntables()[0], model->turntable1());
    EXPECT_EQ(model->turntable1()->turntableNumber(), 1);
    EXPECT_EQ(model->turntable2()->turntableNumber(), 2);
    for (std::int64_t number :
         {std::int64_t{0}, std::int64_t{-1}, std::int64_t{3}, std::numeric_limits<std::int64_t>::min()})
        EXPECT_EQ(model->turntable(number), nullptr) << number;
    EXPECT_TRUE(model->mixer());
    EXPECT_TRUE(model->library());
}

TEST_F(VXAWModelTest, ANewEnvironmentBuildsANewModel) {
    const auto first = VXAWModel::sharedModel();
    installEnvironment({&m_loop, m_parent, nullptr, makeDefaults()});
    EXPECT_NE(VXAWModel::sharedModel(), first);
}
