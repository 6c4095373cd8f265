#include <algorithm>
#include <cctype>
#include <functional>
#include <map>
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

// What each screen's controller names, as its class declares it.
struct Expected {
    std::string className;
    std::map<std::string, std::string> outlets; // outlet -> kind
    Names actions;
    // Row type -> its class ("" for none) and its outlets.
    std::map<std::string, std::pair<std::string, std::map<std::string, std::string>>> rowTypes;
};

const std::map<std::string, std::string> kDeckOutlets = {
    {"placeholderGroup", "group"},    {"mainGroup", "group"},         {"artworkGroup", "group"},
    {"artworkButton", "button"},      {"bpmLabel", "label"},          {"keyLabel", "label"},
    {"playGroup", "group"},           {"playButton", "button"},       {"previousButton", "button"},
    {"nextButton", "button"},         {"durationTimer", "timer"},     {"durationImage", "image"},
    {"currentTimeLabel", "label"},    {"nameLabel", "label"},         {"artistLabel", "label"},
    {"autoLoopButtonGroup", "group"}, {"autoLoopButton", "button"},   {"fxButton", "button"},
    {"fxButtonGroup", "group"},       {"fxButtonLabel", "label"},     {"fxButtonTitleLabel", "label"},
    {"fxLowPassButton", "button"},    {"fxHighPassButton", "button"},
};
const Names kDeckActions = {"showLibrary",
                            "showQueue",
                            "togglePlayback",
                            "skipForward",
                            "skipBackward",
                            "autoLoopDurationHalf",
                            "autoLoopDurationDouble",
                            "toggleLooping",
                            "fxSelectNext",
                            "fxSelectPrevious",
                            "toggleFx",
                            "toggleFxLowPass",
                            "toggleFxHighPass",
                            "next",
                            "previous"};

const std::map<std::string, Expected>& expectedControllers() {
    static const std::map<std::string, Expected> expected = {
        {"turntable1", {"VXAWTurntable1InterfaceController", kDeckOutlets, kDeckActions, {}}},
        {"turntable2", {"VXAWTurntable2InterfaceController", kDeckOutlets, kDeckActions, {}}},
        {"mixer",
         {"VXAWMixerInterfaceController",
          {{"turntable1Group", "group"},
           {"turntable2Group", "group"},
           {"turntable1Button", "button"},
           {"turntable2Button", "button"},
           {"turntable1TransportGroup", "group"},
           {"turntable2TransportGroup", "group"},
           {"turntable1TransportButton", "button"},
           {"turntable2TransportButton", "button"},
           {"volumeDownButton", "button"},
           {"volumeUpButton", "button"},
           {"volumeImage", "image"},
           {"volumeSlider", "slider"},
           {"syncButton", "button"},
           {"syncButtonGroup", "group"},
           {"syncButtonLabel", "label"},
           {"crossfaderLeftButton", "button"},
           {"crossfaderRightButton", "button"},
           {"crossfaderImage", "image"},
           {"transitionTypeLabel", "label"}},
          // toggleAutomix is the force-touch menu's, added by code.
          {"crossfadeLeft", "crossfadeMiddle", "crossfadeRight", "sync", "showTurntable1", "showTurntable2",
           "togglePlaybackTurntable1", "togglePlaybackTurntable2", "showLibraryTurntable1", "showLibraryTurntable2",
           "changeVolume"},
          {}}},
        {"transitions",
         {"VXAWTransitionsInterfaceController",
          {{"transitionModeSwitch", "switch"},
           {"table", "table"},
           {"transitionDurationGroup", "group"},
           {"transitionDurationLabel", "label"}},
          {"toggleTransitionMode", "transitionDurationSelectNext", "transitionDurationSelectPrevious"},
          {{"transitionTypeSectionRowType", {"", {}}},
           {"transitionTypeRowType", {"VXAWTransitionTypeRowType", {{"nameLabel", "label"}}}}}}},
        {"library",
         {"VXAWLibraryInterfaceController",
          {{"backButton", "button"},
           {"sectionNameLabel", "label"},
           {"table", "table"},
           {"placeholderGroup", "group"},
           {"placeholderLabel", "label"},
           {"loadMoreButton", "button"}},
          {"back", "previousTab", "nextTab", "loadMore"},
          {{"groupItemRowType", {"VXAWGroupItemRowType", {{"nameLabel", "label"}, {"image", "image"}}}}}}},
        {"itunesPlaylist",
         {"VXAWiTunesPlaylistInterfaceController",
          {{"nameLabel", "label"},
           {"table", "table"},
           {"loadMoreButton", "button"},
           {"placeholderGroup", "group"},
           {"placeholderLabel", "label"}},
          {"loadMore"},
          {{"songItemRowType", {"VXAWSongItemRowType", {{"nameLabel", "label"}, {"artistLabel", "label"}}}}}}},
        {"glance",
         {"VXAWGlanceController",
          {{"artworkImage", "image"}, {"nameLabel", "label"}, {"artistLabel", "label"}, {"placeholderGroup", "group"}},
          {},
          {}}},
        {"notification", {"NotificationController", {}, {}, {}}},
    };
    return expected;
}

void collect(const ObjectLayout& object, std::map<std::string, std::string>& outlets, Names& actions, Names& images) {
    if (object.outlet)
        outlets[*object.outlet] = std::string(kindName(object.kind));
    if (object.action)
        actions.insert(*object.action);
    if (object.image)
        images.insert(*object.image);
    if (object.animation)
        images.insert(object.animation->frames.begin(), object.animation->frames.end());
    for (const ObjectLayout& child : object.children)
        collect(child, outlets, actions, images);
}

vexo::Expected<InterfaceLayout> loadInterface() {
    static ControllerRegistry none;
    return LayoutLoader::loadFile(InterfaceLayout::defaultPath(), none, MissingClasses::Allow);
}

} // namespace

TEST(InterfaceFileTest, NamesEveryOutletActionAndRowTypeOfTheScreens) {
    vexo::Expected<InterfaceLayout> loaded = loadInterface();
    ASSERT_TRUE(loaded) << loaded.error().message();
    const InterfaceLayout& layout = *loaded;
    EXPECT_EQ(layout.pages, (std::vector<std::string>{"turntable1", "mixer", "turntable2"}));
    EXPECT_EQ(layout.glance, "glance");
    EXPECT_EQ(layout.notification, "notification");
    EXPECT_EQ(layout.screenWidth, 312);
    EXPECT_EQ(layout.screenHeight, 390);
    ASSERT_NE(layout.controller("queue"), nullptr) << "deck pages present \"queue\"";

    Names expectedMissing = {"VXAWQueueInterfaceController"};
    for (const auto& [name, expected] : expectedControllers()) {
        const ControllerLayout* controller = layout.controller(name);
        ASSERT_NE(controller, nullptr) << name;
        EXPECT_EQ(controller->className, expected.className) << name;
        expectedMissing.insert(expected.className);
        std::map<std::string, std::string> outlets;
        Names actions, images;
        for (const ObjectLayout& object : controller->root.children)
            collect(object, outlets, actions, images);
        EXPECT_EQ(outlets, expected.outlets) << name;
        EXPECT_EQ(actions, expected.actions) << name;

        std::map<std::string, std::pair<std::string, std::map<std::string, std::string>>> rowTypes;
        std::function<void(const ObjectLayout&)> findTables = [&](const ObjectLayout& object) {
            for (const RowTypeLayout& rowType : object.rowTypes) {
                std::map<std::string, std::string> rowOutlets;
                Names rowActions, rowImages;
                collect(rowType.group, rowOutlets, rowActions, rowImages);
                rowTypes[rowType.identifier] = {rowType.className.value_or(""), rowOutlets};
                if (rowType.className)
                    expectedMissing.insert(*rowType.className);
            }
            for (const ObjectLayout& child : object.children)
                findTables(child);
        };
        findTables(controller->root);
        EXPECT_EQ(rowTypes, expected.rowTypes) << name;
    }
    EXPECT_EQ(Names(layout.uncheckedClasses.begin(), layout.uncheckedClasses.end()), expectedMissing);
}

TEST(InterfaceFileTest, UsesOnlyDrawnImagesAndFitsTheFace) {
    vexo::Expected<InterfaceLayout> loaded = loadInterface();
    ASSERT_TRUE(loaded) << loaded.error().message();
    const auto& drawn = vexo::graphics::AssetCatalog::allNames();
    Names available(drawn.begin(), drawn.end());
    for (const auto& [name, controller] : loaded->controllers) {
        std::map<std::string, std::string> outlets;
        Names actions, images;
        collect(controller.root, outlets, actions, images);
        for (const ObjectLayout& table : controller.root.children) {
            for (const RowTypeLayout& rowType : table.rowTypes)
                collect(rowType.group, outlets, actions, images);
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
    for (const auto& [name, controller] : loaded->controllers) {
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
