#include "platform/graphics/AssetCatalog.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/graphics/ImageDecoder.h"

namespace vexo::graphics {
namespace {

std::optional<Image> load(const AssetCatalog& catalog, std::string_view name) {
    std::optional<std::vector<std::uint8_t>> png = catalog.imageNamed(name);
    if (!png)
        return std::nullopt;
    return ImageDecoder().decode(*png);
}

int countVisible(const Image& image) {
    int visible = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            visible += image.pixel(x, y).alpha > 128;
    return visible;
}

TEST(AssetCatalogTest, EveryNamedImageIsDrawn) {
    AssetCatalog catalog(AssetCatalog::defaultDirectory());
    const std::vector<std::string>& names = AssetCatalog::allNames();
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size()) << "duplicate names";

    std::vector<std::string> required = {
        "turntable-play",
        "turntable-play-active",
        "turntable-pause-active",
        "turntable-prev",
        "turntable-prev-active",
        "turntable-next",
        "turntable-next-active",
        "turntable-button-center",
        "turntable-button-center-active",
        "turntable-button-seg2-left",
        "turntable-button-seg2-left-active",
        "turntable-button-seg2-right",
        "turntable-button-seg2-right-active",
        "turntable-artwork-vexo",
        "mixer-turntable-artwork-vexo",
        "default-artwork",
        "automix",
        "library-playlist.png",
        "tracking-0-f.png",
        "tracking-49-f.png",
        "tracking-active-0-f.png",
        "tracking-active-49-f.png",
        "mixer-crossfader-manual0-f",
        "mixer-crossfader-manual4-f",
        "mixer-crossfader-auto0-f",
        "mixer-crossfader-auto4-f",
    };
    for (const std::string& name : required)
        EXPECT_TRUE(catalog.pathForImage(name)) << name;
    for (const std::string& name : names) {
        std::optional<Image> image = load(catalog, name);
        ASSERT_TRUE(image) << name;
        EXPECT_GT(countVisible(*image), 0) << name << " is blank";
        EXPECT_LE(image->width(), 312) << name << " is wider than the watch face";
    }
}

TEST(AssetCatalogTest, ProgressArcGrowsWithTheIndex) {
    AssetCatalog catalog(AssetCatalog::defaultDirectory());
    for (std::string prefix : {"tracking-", "tracking-active-"}) {
        int previous = -1;
        for (int i = 0; i < 50; ++i) {
            std::optional<Image> frame = load(catalog, prefix + std::to_string(i) + "-f.png");
            ASSERT_TRUE(frame);
            // Pixels brighter than the dim track belong to the arc.
            int lit = 0;
            for (int y = 0; y < frame->height(); ++y)
                for (int x = 0; x < frame->width(); ++x) {
                    Rgba8 p = frame->pixel(x, y);
                    lit += p.alpha > 200 && std::max({p.red, p.green, p.blue}) > 120;
                }
            if (i == 0)
                EXPECT_EQ(lit, 0) << prefix << i;
            else
                EXPECT_GT(lit, previous) << prefix << i;
            previous = lit;
        }
    }
}

TEST(AssetCatalogTest, NamesAreLookedUpInsideTheDirectoryOnly) {
    std::filesystem::path directory =
        std::filesystem::temp_directory_path() / ("vexo-assets-" + std::to_string(::getpid()));
    std::filesystem::create_directories(directory / "sub");
    std::ofstream(directory / "plain.png") << "x";
    std::ofstream(directory / ".hidden.png") << "x";
    std::ofstream(directory / "sub" / "inner.png") << "x";
    AssetCatalog catalog(directory / "sub");
    AssetCatalog top(directory);

    struct Case {
        std::string name;
        bool found;
    };
    std::vector<Case> cases = {
        {"plain", true},       {"plain.png", true},
        {"missing", false},    {"", false},
        {".png", false},       {".hidden", false},
        {"sub/inner", false},  {"../plain", false},
        {"..", false},         {std::string("pl\0ain", 6), false},
        {"sub\\inner", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(top.imageNamed(c.name).has_value(), c.found) << c.name;
        EXPECT_EQ(top.pathForImage(c.name).has_value(), c.found) << c.name;
    }
    EXPECT_TRUE(catalog.imageNamed("inner"));
    EXPECT_FALSE(catalog.imageNamed("../plain"));
    std::filesystem::remove_all(directory);

    // Read once and kept: the bytes outlive the file.
    EXPECT_TRUE(catalog.imageNamed("inner.png"));
}

TEST(AssetCatalogTest, AConfiguredDirectoryComesFirst) {
    AssetCatalog::setConfiguredDirectory("/somewhere/else");
    EXPECT_EQ(AssetCatalog::defaultDirectory(), std::filesystem::path("/somewhere/else"));
    AssetCatalog::setConfiguredDirectory(std::filesystem::path());
    EXPECT_NE(AssetCatalog::defaultDirectory(), std::filesystem::path(""));
    AssetCatalog::setConfiguredDirectory(std::nullopt);
}

} // namespace
} // namespace vexo::graphics
