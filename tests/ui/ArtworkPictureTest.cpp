#include "ScreenTestFixture.h"
#include "TestPictures.h"
#include "platform/graphics/RoundArtworkRenderer.h"
#include "ui/VXAWGlanceController.h"
#include "ui/VXAWMixerInterfaceController.h"
#include "ui/VXAWTurntableInterfaceController.h"

using namespace vexo;
using namespace vexo::ui;
using namespace vexo::ui::testing;
using graphics::Rgba8;

namespace {

class ArtworkPictureTest : public ScreenTest {};

::testing::AssertionResult near(Rgba8 actual, Rgba8 expected) {
    auto close = [](int a, int b) { return std::abs(a - b) <= 2; };
    if (close(actual.red, expected.red) && close(actual.green, expected.green) && close(actual.blue, expected.blue) &&
        close(actual.alpha, expected.alpha))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "rgba(" << int(actual.red) << ", " << int(actual.green) << ", "
                                         << int(actual.blue) << ", " << int(actual.alpha) << ")";
}

constexpr Rgba8 kTransparent{0, 0, 0, 0};
constexpr Rgba8 kRingGrey{37, 37, 37, 255};

} // namespace

// Each screen's picture of a wide picture in four stripes: the whole picture is stretched into
// the square (a crop would show only the middle two stripes), inside a 6-point grey ring on
// the deck page and an 8-point transparent margin elsewhere.
TEST_F(ArtworkPictureTest, EachBadgeStretchesThePictureInsideItsRingOrMargin) {
    const auto wide = stripedPng(200, 100, {kRed, kGreen, kBlue, kWhite});
    VXAWTurntableInterfaceController deckPage(1);
    VXAWMixerInterfaceController mixerPage;
    VXAWGlanceController glance;

    struct Row {
        const char* screen;
        std::optional<std::vector<std::uint8_t>> picture;
        int size;
        Rgba8 margin; // just inside the edge, across the middle
    };
    const Row rows[] = {
        {"deck page", deckPage.displayImageDataForArtworkImageData(wide), 92, kRingGrey},
        {"mixer page", mixerPage.displayImageDataForArtworkImageData(wide), 144, kTransparent},
        {"glance", glance.displayImageDataForArtworkImageData(wide), 200, kTransparent},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.screen);
        const auto image = decodePicture(row.picture);
        ASSERT_TRUE(image);
        ASSERT_EQ(image->width(), row.size);
        ASSERT_EQ(image->height(), row.size);
        const int last = row.size - 1;
        const int middle = row.size / 2;
        for (auto [x, y] : {std::pair{0, 0}, std::pair{last, 0}, std::pair{0, last}, std::pair{last, last}})
            EXPECT_TRUE(near(image->pixel(x, y), kTransparent)) << "corner " << x << "," << y;
        EXPECT_TRUE(near(image->pixel(3, middle), row.margin)) << "left edge";
        EXPECT_TRUE(near(image->pixel(last - 3, middle), row.margin)) << "right edge";
        EXPECT_TRUE(near(image->pixel(middle, 3), row.margin)) << "top edge";
        EXPECT_TRUE(near(image->pixel(12, middle), kRed)) << "the first stripe shows";
        EXPECT_TRUE(near(image->pixel(last - 12, middle), kWhite)) << "the last stripe shows";
    }
    EXPECT_FALSE(deckPage.displayImageDataForArtworkImageData(std::vector<std::uint8_t>{1, 2, 3}));
    EXPECT_FALSE(glance.displayImageDataForArtworkImageData(std::nullopt));
}
