// The watch application's own layout file: what the loader alone can check of it. Whether
// its outlets and actions are the ones its classes declare is checked where the classes
// are: every screen test loads this layout against them, refusing a mismatch.
#include <algorithm>
#include <cctype>
#include <functional>
#include <set>

#include <gtest/gtest.h>

#include "platform/graphics/AssetCatalog.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/InterfaceObject.h"
#include "platform/watchkit/LayoutLoader.h"
#include "platform/watchkit/Screen.h"
#include "platform/watchkit/StackLayout.h"

using namespace vexo::watchkit;

namespace {

using Names = std::set<std::string>;

// The image assets `object` and what it holds show.
void collectImages(const ObjectLayout& object, Names& images) {
    if (object.image)
        images.insert(*object.image);
    if (object.animation)
        images.insert(object.animation->frames.begin(), object.animation->frames.end());
    for (const ObjectLayout& child : object.children)
        collectImages(child, images);
}

vexo::Expected<InterfaceLayout> loadInterface() {
    static ControllerRegistry none;
    return LayoutLoader::loadFile(InterfaceLayout::defaultPath(), none, MissingClasses::Allow);
}

} // namespace

TEST(InterfaceFileTest, UsesOnlyDrawnImagesAndFitsTheFace) {
    vexo::Expected<InterfaceLayout> loaded = loadInterface();
    ASSERT_TRUE(loaded) << loaded.error().message();
    const auto& drawn = vexo::graphics::AssetCatalog::allNames();
    Names available(drawn.begin(), drawn.end());
    for (const auto& [name, controller] : loaded->controllers) {
        Names images;
        collectImages(controller.root, images);
        for (const ObjectLayout& table : controller.root.children) {
            for (const RowTypeLayout& rowType : table.rowTypes)
                collectImages(rowType.group, images);
        }
        for (const std::string& image : images)
            EXPECT_TRUE(available.contains(image)) << name << " uses the undrawn image " << image;

        // Every object lies within the face's width, and shows (an empty table aside).
        Screen screen("s", controller, ScreenServices{});
        StackLayout::Result frames = StackLayout::layoutScreen(screen, 312, 390);
        for (const auto& [object, frame] : frames.frames) {
            EXPECT_GE(frame.x, 0) << name << " " << object->layout().path;
            EXPECT_LE(frame.x + frame.width, 312.0 + 1e-9) << name << " " << object->layout().path;
            if (object->kind() != ObjectKind::Table) {
                EXPECT_GT(frame.height, 0) << name << " " << object->layout().path;
            }
        }
    }
    const ObjectLayout* artwork = nullptr;
    std::function<void(const ObjectLayout&)> find = [&](const ObjectLayout& object) {
        if (object.outlet == "artworkGroup")
            artwork = &object;
        for (const ObjectLayout& child : object.children)
            find(child);
    };
    find(loaded->controller("turntable2")->root);
    ASSERT_TRUE(artwork && artwork->animation);
    EXPECT_EQ(artwork->animation->frames.size(), 24u);
    EXPECT_EQ(artwork->animation->frames.back(), "turntable-artwork-animation-23");
}

TEST(InterfaceFileTest, EveryScreenSliderAndUntitledButtonHasAnAccessibilityLabel) {
    vexo::Expected<InterfaceLayout> loaded = loadInterface();
    ASSERT_TRUE(loaded) << loaded.error().message();
    for (const auto& [identifier, controller] : loaded->controllers) {
        const std::string& name = identifier; // a lambda below names it; bindings cannot be captured
        if (name != loaded->notification) {
            EXPECT_TRUE(controller.accessibilityLabel) << name;
        }
        // A title of symbols ("‹", "÷2") says nothing to a listener.
        std::function<void(const ObjectLayout&)> check = [&](const ObjectLayout& object) {
            const bool worded = object.text && std::any_of(object.text->begin(), object.text->end(),
                                                           [](unsigned char c) { return std::isalpha(c); });
            if (object.kind == ObjectKind::Slider || (object.kind == ObjectKind::Button && !worded)) {
                EXPECT_TRUE(object.accessibilityLabel) << name << " " << object.path;
            }
            for (const ObjectLayout& child : object.children)
                check(child);
        };
        check(controller.root);
    }
}
