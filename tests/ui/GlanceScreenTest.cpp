#include "ScreenTestFixture.h"
#include "TestPictures.h"
#include "ui/VXAWGlanceController.h"

using namespace vexo;
using namespace vexo::ui;
using namespace vexo::ui::testing;
using nlohmann::json;
using plist::Dictionary;
using plist::Value;

namespace {

class GlanceScreenTest : public ScreenTest {
protected:
    std::shared_ptr<VXAWGlanceController> glance() const {
        return std::dynamic_pointer_cast<VXAWGlanceController>(m_host->glanceController());
    }
};

} // namespace

TEST_F(GlanceScreenTest, EachActivationClearsDeckZerosStatusAndAsksForARefresh) {
    startOn(0);
    const Value refresh = deckAction(0, 17);
    for (int activation = 0; activation < 2; ++activation) {
        phoneWrites("turntableStatus0", Value(Dictionary{{"playing", Value(true)}}));
        expectOk(m_host->showGlance());
        EXPECT_TRUE(m_phone->messageWithIdentifier("turntableStatus0").isNull()) << activation;
        const std::vector<Value> sent = takeSent();
        ASSERT_EQ(sent.size(), 1u);
        EXPECT_EQ(sent[0], refresh);
        EXPECT_NE(sent[0]["contents"]["turntable"].asInteger(), nullptr);
        EXPECT_EQ(sent[0]["contents"].count(), 2u) << "never params";
        EXPECT_TRUE(glance()->wormhole());
        expectOk(m_host->hideGlance());
        EXPECT_FALSE(glance()->wormhole()) << "its transport lives only while it is on screen";
    }
}

TEST_F(GlanceScreenTest, ShowsTheSongReportedForDeckZero) {
    startOn(0);
    phoneWrites("turntableSongInfo0", songInfo({{"name", Value("Stored")},
                                                {"artist", Value("Earlier")},
                                                {"artworkImage", Value(stripedPng(10, 20, {kBlue}))}}));
    expectOk(m_host->showGlance());
    EXPECT_EQ(visible("nameLabel")["text"], "Stored") << "the stored song shows at once";
    EXPECT_EQ(visible("artworkImage")["image"]["width"], 200);
    const std::string storedPicture = visible("artworkImage")["image"]["data"].get<std::string>();

    phoneWrites("turntableSongInfo1", songInfo({{"name", Value("Deck one")}}));
    EXPECT_EQ(visible("nameLabel")["text"], "Stored") << "other decks never reach the glance";
    phoneWrites("turntableSongInfo0", Value(Dictionary{}));
    EXPECT_EQ(visible("nameLabel")["text"], "Stored") << "no song leaves the screen as it is";

    phoneWrites("turntableSongInfo0", songInfo({{"name", Value("Fresh")}}));
    EXPECT_EQ(visible("nameLabel")["text"], "Fresh");
    EXPECT_TRUE(visible("artistLabel")["text"].is_null()) << "an absent artist clears the label";
    EXPECT_EQ(visible("artworkImage")["image"]["width"], 200) << "default-artwork, cut to the same disc";
    EXPECT_NE(visible("artworkImage")["image"]["data"], storedPicture);

    phoneWrites("turntableSongInfo0",
                songInfo({{"name", Value("Broken")}, {"artworkImage", Value(plist::Data{0xFF, 0xD8, 0x00})}}));
    EXPECT_EQ(visible("nameLabel")["text"], "Broken");
    EXPECT_TRUE(visible("artworkImage")["image"].is_null()) << "undecodable artwork clears the picture";
}
