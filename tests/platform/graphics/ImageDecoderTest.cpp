#include "platform/graphics/ImageDecoder.h"

#include <string>

#include <gtest/gtest.h>

#include "TestImages.h"
#include "platform/graphics/BoxReducer.h"
#include "platform/graphics/JpegDecoder.h"

namespace vexo::graphics {
namespace {

using test::Bytes;

constexpr Rgba8 kRed{255, 0, 0, 255};
constexpr Rgba8 kBlue{0, 0, 255, 255};

// JPEG is lossy: a channel counts as right when within `tolerance`.
void expectNear(Rgba8 actual, Rgba8 expected, int tolerance, const std::string& where) {
    EXPECT_NEAR(actual.red, expected.red, tolerance) << where;
    EXPECT_NEAR(actual.green, expected.green, tolerance) << where;
    EXPECT_NEAR(actual.blue, expected.blue, tolerance) << where;
    EXPECT_NEAR(actual.alpha, expected.alpha, tolerance) << where;
}

TEST(ImageDecoderTest, DecodesEveryPngLayoutToStraightColours) {
    struct Case {
        std::string name;
        Bytes data;
        Rgba8 left;  // expected at (1, 1)
        Rgba8 right; // expected at (width - 2, 1)
    };
    auto split = test::halves(16, {200, 100, 50, 255}, {10, 20, 30, 128});
    std::vector<Case> cases = {
        {"rgba", test::makePng(16, 8, split), {200, 100, 50, 255}, {10, 20, 30, 128}},
        {"rgb", test::makePng(16, 8, split, false), {200, 100, 50, 255}, {10, 20, 30, 255}},
        {"rgba interlaced", test::makePng(16, 8, split, true, true), {200, 100, 50, 255}, {10, 20, 30, 128}},
        {"gray 16-bit", test::makeGray16Png(16, 8, 0x8080), {128, 128, 128, 255}, {128, 128, 128, 255}},
        {"palette with tRNS", test::makePalettePng(16, 8, {0, 200, 0, 255}), {0, 200, 0, 255}, {0, 0, 0, 0}},
    };
    ImageDecoder decoder;
    for (const Case& c : cases) {
        std::optional<Image> image = decoder.decode(c.data);
        ASSERT_TRUE(image) << c.name;
        EXPECT_EQ(image->width(), 16) << c.name;
        EXPECT_EQ(image->height(), 8) << c.name;
        // Premultiplying to 8 bits and back may be one off for translucent pixels.
        expectNear(image->pixel(1, 1), c.left, 1, c.name + " left");
        expectNear(image->pixel(14, 1), c.right, 1, c.name + " right");
    }
}

TEST(ImageDecoderTest, ReducedDecodesKeepColoursAndEdges) {
    // Decoding towards a small target takes other paths (three-byte rows, reduction while
    // reading); the halves must still land on their sides.
    struct Case {
        std::string name;
        Bytes data;
        Rgba8 left;
        Rgba8 right;
    };
    auto split = test::halves(400, {200, 100, 50, 255}, {10, 20, 30, 128});
    std::vector<Case> cases = {
        {"rgb", test::makePng(400, 200, split, false), {200, 100, 50, 255}, {10, 20, 30, 255}},
        {"rgba", test::makePng(400, 200, split), {200, 100, 50, 255}, {10, 20, 30, 128}},
        {"rgb interlaced", test::makePng(400, 200, split, false, true), {200, 100, 50, 255}, {10, 20, 30, 255}},
        {"gray 16-bit", test::makeGray16Png(400, 200, 0x4040), {64, 64, 64, 255}, {64, 64, 64, 255}},
        {"palette with tRNS", test::makePalettePng(400, 200, {0, 200, 0, 255}), {0, 200, 0, 255}, {0, 0, 0, 0}},
        {"jpeg", test::makeJpeg(400, 200, split), {200, 100, 50, 255}, {10, 20, 30, 255}},
    };
    for (const Case& c : cases) {
        std::optional<Image> image = ImageDecoder().decode(c.data, {92, 92});
        ASSERT_TRUE(image) << c.name;
        EXPECT_EQ(image->width(), 200) << c.name;
        EXPECT_EQ(image->height(), 100) << c.name;
        int tolerance = c.name == "jpeg" ? 10 : 1;
        expectNear(image->pixel(0, 0), c.left, tolerance, c.name + " left edge");
        expectNear(image->pixel(98, 99), c.left, tolerance, c.name + " left of the seam");
        expectNear(image->pixel(101, 50), c.right, tolerance, c.name + " right of the seam");
        expectNear(image->pixel(199, 99), c.right, tolerance, c.name + " right edge");
    }
}

TEST(ImageDecoderTest, JpegIsScaledInTheDctButNeverBelowTheTarget) {
    struct Case {
        int width, height;
        Size target;
        int expectedNumerator;
    };
    // Numerator n over 8: the smallest that keeps both sides at or above the target.
    std::vector<Case> cases = {
        {3000, 3000, {92, 92}, 1}, {736, 736, {92, 92}, 1}, {727, 727, {92, 92}, 2},     {400, 100, {92, 92}, 8},
        {800, 200, {92, 92}, 4},   {200, 200, {0, 0}, 8},   {1000, 1000, {144, 144}, 2}, {50, 50, {92, 92}, 8},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(JpegDecoder::scaleNumeratorFor({c.width, c.height}, c.target), c.expectedNumerator)
            << c.width << "x" << c.height << " to " << c.target.width;
    }

    Bytes jpeg = test::makeJpeg(1600, 800, test::halves(1600, kRed, kBlue));
    std::optional<Image> image = ImageDecoder().decode(jpeg, {92, 92});
    ASSERT_TRUE(image);
    EXPECT_GE(image->width(), 92);
    EXPECT_GE(image->height(), 92);
    EXPECT_LT(image->width(), 2 * 184);
    EXPECT_LT(image->height(), 2 * 92);
    expectNear(image->pixel(2, image->height() / 2), kRed, 12, "left");
    expectNear(image->pixel(image->width() - 3, image->height() / 2), kBlue, 12, "right");

    std::optional<Image> full = ImageDecoder().decode(jpeg);
    ASSERT_TRUE(full);
    EXPECT_EQ(full->width(), 1600);
    EXPECT_EQ(full->height(), 800);
}

TEST(ImageDecoderTest, ProgressiveAndCmykJpegsDecode) {
    Bytes progressive = test::makeJpeg(64, 48, test::solid({30, 160, 90, 255}), 95, true);
    // Stored inverted, as Adobe writes CMYK: full cyan value with full key reads as red.
    const std::uint8_t red[4] = {255, 0, 0, 255};
    Bytes cmyk = test::makeCmykJpeg(64, 48, red);
    for (Size target : {Size{}, Size{16, 16}}) {
        std::optional<Image> image = ImageDecoder().decode(progressive, target);
        ASSERT_TRUE(image);
        expectNear(image->pixel(image->width() / 2, image->height() / 2), {30, 160, 90, 255}, 6, "progressive");
        image = ImageDecoder().decode(cmyk, target);
        ASSERT_TRUE(image);
        expectNear(image->pixel(image->width() / 2, image->height() / 2), kRed, 6, "cmyk");
    }
}

TEST(ImageDecoderTest, JpegIsTurnedByItsExifOrientation) {
    // 40 x 20: red left, blue right. Where red ends up tells the turn.
    Bytes jpeg = test::makeJpeg(40, 20, test::halves(40, kRed, kBlue), 95);
    struct Case {
        int orientation;
        bool bigEndian;
        int width, height;
        Point red; // a point well inside the red half, as shown
    };
    std::vector<Case> cases = {
        {1, true, 40, 20, {5, 10}},  {2, true, 40, 20, {34, 10}}, {3, false, 40, 20, {34, 10}},
        {4, true, 40, 20, {5, 10}},  {5, true, 20, 40, {10, 5}},  {6, false, 20, 40, {10, 5}},
        {7, true, 20, 40, {10, 34}}, {8, true, 20, 40, {10, 34}}, {0, true, 40, 20, {5, 10}},
        {9, false, 40, 20, {5, 10}},
    };
    for (const Case& c : cases) {
        std::optional<Image> image = ImageDecoder().decode(
            test::withExifOrientation(jpeg, static_cast<std::uint16_t>(c.orientation), c.bigEndian));
        ASSERT_TRUE(image) << c.orientation;
        EXPECT_EQ(image->width(), c.width) << c.orientation;
        EXPECT_EQ(image->height(), c.height) << c.orientation;
        int x = static_cast<int>(c.red.x), y = static_cast<int>(c.red.y);
        expectNear(image->pixel(x, y), kRed, 12, "orientation " + std::to_string(c.orientation));
        expectNear(image->pixel(image->width() - 1 - x, image->height() - 1 - y), kBlue, 12,
                   "opposite, orientation " + std::to_string(c.orientation));
    }
    // A marker cut short is ignored, not trusted.
    Bytes cut = test::withExifOrientation(jpeg, 6);
    // The APP1 data (from byte 6) now stops half way through the orientation entry.
    cut[5] = 24;
    cut.erase(cut.begin() + 6 + 22, cut.begin() + 6 + 32);
    std::optional<Image> image = ImageDecoder().decode(cut);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 40);
}

TEST(ImageDecoderTest, ReadsHeadersWithoutDecoding) {
    ImageDecoder decoder;
    auto png = decoder.readHeader(test::makePng(7, 5, test::solid(kRed)));
    ASSERT_TRUE(png);
    EXPECT_EQ(png->format, ImageDecoder::Format::Png);
    EXPECT_EQ(png->width, 7);
    EXPECT_EQ(png->height, 5);
    auto jpeg = decoder.readHeader(test::makeJpeg(9, 3, test::solid(kRed)));
    ASSERT_TRUE(jpeg);
    EXPECT_EQ(jpeg->format, ImageDecoder::Format::Jpeg);
    EXPECT_EQ(jpeg->width, 9);
    EXPECT_EQ(jpeg->height, 3);
    EXPECT_FALSE(decoder.readHeader(Bytes{'G', 'I', 'F', '8', '9', 'a'}));
}

TEST(ImageDecoderTest, RefusesBrokenAndOversizedData) {
    Bytes png = test::makePng(40, 40, test::solid(kRed));
    Bytes jpeg = test::makeJpeg(40, 40, test::solid(kRed));

    Bytes hugePng = png;
    test::setPngSize(hugePng, 100'000, 100'000);
    Bytes hugeJpeg = jpeg;
    test::setJpegSize(hugeJpeg, 65'000, 65'000);
    Bytes corruptCrc = png;
    corruptCrc[30] ^= 0xFF;
    Bytes garbageAfterSignature(png.begin(), png.begin() + 8);
    for (int i = 0; i < 200; ++i)
        garbageAfterSignature.push_back(static_cast<std::uint8_t>(i * 37));
    Bytes garbageJpeg = {0xFF, 0xD8, 0xFF};
    for (int i = 0; i < 300; ++i)
        garbageJpeg.push_back(static_cast<std::uint8_t>(i * 91 + 7));

    struct Case {
        std::string name;
        Bytes data;
    };
    std::vector<Case> cases = {
        {"empty", {}},
        {"text", {'h', 'e', 'l', 'l', 'o'}},
        {"png signature only", Bytes(png.begin(), png.begin() + 8)},
        {"png cut in the header", Bytes(png.begin(), png.begin() + 20)},
        {"png cut in the data", Bytes(png.begin(), png.end() - 30)},
        {"png with a bad header CRC", corruptCrc},
        {"png garbage after the signature", garbageAfterSignature},
        {"png declaring 100000 x 100000", hugePng},
        {"jpeg cut in the header", Bytes(jpeg.begin(), jpeg.begin() + 40)},
        {"jpeg cut in the data", Bytes(jpeg.begin(), jpeg.begin() + static_cast<long>(jpeg.size()) * 3 / 4)},
        {"jpeg garbage after the marker", garbageJpeg},
        {"jpeg declaring 65000 x 65000", hugeJpeg},
    };
    ImageDecoder decoder;
    for (const Case& c : cases)
        EXPECT_FALSE(decoder.decode(c.data, {92, 92})) << c.name;

    // The huge declarations are still readable headers: refusing them is the limits' job.
    auto header = decoder.readHeader(hugeJpeg);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->width, 65'000);

    struct LimitCase {
        std::string name;
        DecodeLimits limits;
        bool decodes;
    };
    std::vector<LimitCase> limits = {
        {"defaults", {}, true},
        {"input one byte too short", {png.size() - 1, 50'000'000, 30'000}, false},
        {"input exactly at the cap", {png.size(), 1600, 40}, true},
        {"one pixel too many", {1u << 20, 1599, 30'000}, false},
        {"one side too long", {1u << 20, 50'000'000, 39}, false},
    };
    for (const LimitCase& c : limits)
        EXPECT_EQ(ImageDecoder(c.limits).decode(png).has_value(), c.decodes) << c.name;
    EXPECT_FALSE(ImageDecoder({1u << 20, 1599, 30'000}).decode(jpeg)) << "jpeg over the pixel cap";
}

TEST(BoxReducerTest, AveragesWholeAndPartialBlocks) {
    struct Case {
        int width, height, factor;
        int outWidth, outHeight;
    };
    std::vector<Case> sizes = {{10, 10, 2, 5, 5}, {11, 7, 3, 4, 3}, {5, 5, 1, 5, 5}, {3, 2, 8, 1, 1}};
    for (const Case& c : sizes) {
        BoxReducer reducer(c.width, c.height, c.factor, Image::Alpha::Opaque);
        std::vector<std::uint32_t> row(static_cast<std::size_t>(c.width), 0xFF102030u);
        for (int y = 0; y < c.height; ++y)
            reducer.addRow(row.data());
        Image image = reducer.finish();
        EXPECT_EQ(image.width(), c.outWidth);
        EXPECT_EQ(image.height(), c.outHeight);
        EXPECT_EQ(image.pixel(c.outWidth - 1, c.outHeight - 1), (Rgba8{0x10, 0x20, 0x30, 255}));
    }

    // 3 x 1 reduced by 2: the first block averages two pixels, the edge block keeps one.
    BoxReducer reducer(3, 1, 2, Image::Alpha::Premultiplied);
    std::uint32_t row[] = {0xFF000000u, 0xFFFFFFFFu, 0x80800000u};
    reducer.addRow(row);
    Image image = reducer.finish();
    EXPECT_EQ(image.pixels()[0], 0xFF808080u);
    EXPECT_EQ(image.pixels()[1], 0x80800000u);

    EXPECT_EQ(BoxReducer::factorFor(1000, 1000, 92, 92), 10);
    EXPECT_EQ(BoxReducer::factorFor(375, 375, 92, 92), 4);
    EXPECT_EQ(BoxReducer::factorFor(1000, 100, 92, 92), 1);
    EXPECT_EQ(BoxReducer::factorFor(1000, 1000, 0, 0), 1);
}

} // namespace
} // namespace vexo::graphics
