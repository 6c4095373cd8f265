#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "TestImages.h"
#include "platform/graphics/ImageDecoder.h"
#include "platform/graphics/RoundArtworkRenderer.h"

namespace vexo::graphics {
namespace {

using test::Bytes;

constexpr Rgba8 kRed{255, 0, 0, 255};
constexpr Rgba8 kBlue{0, 0, 255, 255};
constexpr Rgba8 kGreen{0, 255, 0, 255};
constexpr std::uint8_t kRingGray = 37; // 0.145 x 255

Image decodePicture(const std::optional<Bytes>& png, int size) {
    EXPECT_TRUE(png);
    std::optional<Image> image = png ? ImageDecoder().decode(*png) : std::nullopt;
    EXPECT_TRUE(image);
    if (!image)
        return Image(1, 1, Image::Alpha::Premultiplied);
    EXPECT_EQ(image->width(), size);
    EXPECT_EQ(image->height(), size);
    return std::move(*image);
}

bool near(Rgba8 actual, Rgba8 expected, int tolerance) {
    return std::abs(actual.red - expected.red) <= tolerance && std::abs(actual.green - expected.green) <= tolerance &&
           std::abs(actual.blue - expected.blue) <= tolerance && std::abs(actual.alpha - expected.alpha) <= tolerance;
}

std::string describe(Rgba8 p) {
    return "(" + std::to_string(p.red) + ", " + std::to_string(p.green) + ", " + std::to_string(p.blue) + ", " +
           std::to_string(p.alpha) + ")";
}

TEST(RoundArtworkTest, DeckBadgeHasAGreyRingAroundTheImage) {
    RoundArtworkRenderer renderer;
    Image badge = decodePicture(
        renderer.render(test::makeJpeg(300, 300, test::solid(kGreen)), RoundArtworkStyle::deckPage()), 92);
    struct Probe {
        int x, y;
        Rgba8 expected;
        const char* what;
    };
    Rgba8 ring{kRingGray, kRingGray, kRingGray, 255};
    std::vector<Probe> probes = {
        {46, 46, kGreen, "centre"},
        {46, 9, kGreen, "inside the top of the disc"},
        {46, 2, ring, "top of the ring"},
        {89, 46, ring, "right of the ring"},
        {46, 89, ring, "bottom of the ring"},
        {2, 46, ring, "left of the ring"},
        {0, 0, {0, 0, 0, 0}, "corner outside the oval"},
        {91, 91, {0, 0, 0, 0}, "opposite corner"},
    };
    for (const Probe& p : probes)
        EXPECT_TRUE(near(badge.pixel(p.x, p.y), p.expected, 8)) << p.what << ": " << describe(badge.pixel(p.x, p.y));
}

TEST(RoundArtworkTest, MixerAndGlancePicturesStretchAWideImageIntoTheDisc) {
    // 200 x 100, red left and blue right: stretched, not cropped, so the whole height of the
    // disc shows red left of the centre line and blue right of it.
    Bytes wide = test::makePng(200, 100, test::halves(200, kRed, kBlue), false);
    RoundArtworkRenderer renderer;
    for (RoundArtworkStyle style : {RoundArtworkStyle::mixerPage(), RoundArtworkStyle::glance()}) {
        SCOPED_TRACE("size " + std::to_string(style.size));
        Image picture = decodePicture(renderer.render(wide, style), style.size);
        int size = style.size, inset = static_cast<int>(style.inset), mid = size / 2;
        // Down the disc, two points either side of the centre line (and off the blended seam).
        for (int y = inset + 3; y <= size - inset - 4; ++y) {
            EXPECT_TRUE(near(picture.pixel(mid - 3, y), kRed, 6))
                << "y " << y << " " << describe(picture.pixel(mid - 3, y));
            EXPECT_TRUE(near(picture.pixel(mid + 2, y), kBlue, 6))
                << "y " << y << " " << describe(picture.pixel(mid + 2, y));
        }
        // Across the middle: colour up to the disc's edge, transparency in the margin.
        EXPECT_TRUE(near(picture.pixel(inset + 2, mid), kRed, 6));
        EXPECT_TRUE(near(picture.pixel(size - inset - 3, mid), kBlue, 6));
        for (int x = 0; x < inset - 1; ++x) {
            EXPECT_EQ(picture.pixel(x, mid).alpha, 0) << "left margin x " << x;
            EXPECT_EQ(picture.pixel(size - 1 - x, mid).alpha, 0) << "right margin";
            EXPECT_EQ(picture.pixel(mid, x).alpha, 0) << "top margin";
        }
        EXPECT_EQ(picture.pixel(0, 0).alpha, 0);
        // On the diagonal, just outside the inset circle.
        int corner = static_cast<int>(mid - (mid - inset) / std::sqrt(2.0)) - 2;
        EXPECT_EQ(picture.pixel(corner, corner).alpha, 0);
    }
}

TEST(RoundArtworkTest, UndecodableDataGivesNoPicture) {
    RoundArtworkRenderer renderer;
    Bytes text = {'n', 'o', 't', ' ', 'a', 'n', ' ', 'i', 'm', 'a', 'g', 'e'};
    EXPECT_FALSE(renderer.render(text, RoundArtworkStyle::deckPage()));
    EXPECT_FALSE(renderer.render({}, RoundArtworkStyle::glance()));
    // Cached failures stay failures.
    EXPECT_FALSE(renderer.render(text, RoundArtworkStyle::deckPage()));
    EXPECT_FALSE(renderer.render(test::makePng(4, 4, test::solid(kRed)), RoundArtworkStyle{0, std::nullopt, 0}));
}

TEST(RoundArtworkTest, SameDataAndStyleDecodeOnce) {
    RoundArtworkRenderer renderer({}, 2);
    Bytes a = test::makeJpeg(120, 120, test::solid(kRed));
    Bytes b = test::makeJpeg(120, 120, test::solid(kBlue));
    Bytes c = test::makeJpeg(120, 120, test::solid(kGreen));

    auto first = renderer.render(a, RoundArtworkStyle::mixerPage());
    auto again = renderer.render(a, RoundArtworkStyle::mixerPage());
    EXPECT_EQ(renderer.decodeCount(), 1u);
    EXPECT_EQ(first, again);

    // Another size is another picture; then two more evict the least recently used.
    (void)renderer.render(a, RoundArtworkStyle::deckPage());
    EXPECT_EQ(renderer.decodeCount(), 2u);
    (void)renderer.render(b, RoundArtworkStyle::deckPage());
    (void)renderer.render(c, RoundArtworkStyle::deckPage());
    EXPECT_EQ(renderer.decodeCount(), 4u);
    (void)renderer.render(c, RoundArtworkStyle::deckPage());
    EXPECT_EQ(renderer.decodeCount(), 4u);
    (void)renderer.render(a, RoundArtworkStyle::mixerPage());
    EXPECT_EQ(renderer.decodeCount(), 5u);
}

} // namespace
} // namespace vexo::graphics
