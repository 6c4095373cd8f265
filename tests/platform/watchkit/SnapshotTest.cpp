#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "TestInterface.h"
#include "platform/text/Localization.h"
#include "platform/watchkit/Screen.h"
#include "platform/watchkit/SnapshotFormat.h"
#include "platform/watchkit/StackLayout.h"
#include "support/WatchSnapshot.h"

using namespace vexo::watchkit;
using namespace vexo::watchkit::testing;
using nlohmann::json;
using vexo::testing::findById;
using vexo::testing::findByOutlet;

namespace {

json frame(double x, double y, double width, double height) {
    return {{"x", x}, {"y", y}, {"width", width}, {"height", height}};
}

// Frames of the objects of a one-controller layout whose objects are `objects` (JSON text),
// by outlet.
std::map<std::string, json> framesOf(const std::string& objects, double width = 312, double height = 390) {
    ControllerRegistry registry;
    std::string text =
        R"({"format": 1, "pages": ["p"], "controllers": {"p": {"class": "X", "objects": )" + objects + "}}}";
    vexo::Expected<InterfaceLayout> loaded = LayoutLoader::parse(text, "t.json", registry, MissingClasses::Allow);
    EXPECT_TRUE(loaded) << loaded.error().message();
    if (!loaded)
        return {};
    Screen screen("s", *loaded->controller("p"), ScreenServices{});
    StackLayout::Result layout = StackLayout::layoutScreen(screen, width, height);
    std::map<std::string, json> frames;
    json objectsJson = screen.toJson(layout.frames)["objects"];
    std::function<void(const json&)> walk = [&](const json& node) {
        if (node.contains("outlet"))
            frames[node["outlet"]] = node.value("frame", json());
        for (const auto& child : node.value("children", json::array()))
            walk(child);
    };
    for (const auto& object : objectsJson)
        walk(object);
    frames["(content)"] = layout.contentHeight;
    return frames;
}

} // namespace

TEST(SnapshotTest, ObjectsStackInTheirGroups) {
    const struct {
        const char* what;
        std::string objects;
        std::map<std::string, json> expected;
    } cases[] = {
        {"a column of fixed heights, spacing between",
         R"([{"kind": "label", "outlet": "a", "height": 30}, {"kind": "button", "outlet": "b"}])",
         {{"a", frame(0, 0, 312, 30)}, {"b", frame(0, 34, 312, 44)}}},
        {"hidden objects take no room",
         R"([{"kind": "label", "outlet": "a", "hidden": true}, {"kind": "button", "outlet": "b"}])",
         {{"a", nullptr}, {"b", frame(0, 0, 312, 44)}}},
        {"a row shares what fixed widths leave among fills",
         R"([{"kind": "group", "outlet": "g", "height": 44, "spacing": 2, "objects": [
              {"kind": "button", "outlet": "l", "width": 40}, {"kind": "label", "outlet": "m"},
              {"kind": "label", "outlet": "n"}, {"kind": "button", "outlet": "r", "width": {"relative": 0.25}}]}])",
         {{"g", frame(0, 0, 312, 44)},
          {"l", frame(0, 0, 40, 44)},
          {"m", frame(42, 0, 94, 28)},
          {"n", frame(138, 0, 94, 28)},
          {"r", frame(234, 0, 78, 44)}}},
        {"alignment along and across a row: centred in what the ends leave",
         R"([{"kind": "group", "height": 92, "insets": 4, "objects": [
              {"kind": "button", "outlet": "c", "width": 44, "height": 44, "horizontalAlignment": "center",
               "verticalAlignment": "center"},
              {"kind": "button", "outlet": "e", "width": 44, "height": 44, "horizontalAlignment": "right",
               "verticalAlignment": "bottom"}]}])",
         {{"c", frame(112, 24, 44, 44)}, {"e", frame(264, 44, 44, 44)}}},
        {"a column group fits its content; content taller than the face scrolls",
         R"([{"kind": "group", "outlet": "g", "layout": "vertical", "insets": {"top": 10}, "spacing": 0, "objects": [
              {"kind": "image", "outlet": "i", "width": 200, "height": 300, "horizontalAlignment": "center"},
              {"kind": "label", "outlet": "t"}]}])",
         {{"g", frame(0, 0, 312, 338)},
          {"i", frame(56, 10, 200, 300)},
          {"t", frame(0, 310, 312, 28)},
          {"(content)", 390}}},
        {"fills share the face's height",
         R"([{"kind": "label", "outlet": "a", "height": "fill"}, {"kind": "label", "outlet": "b", "height": 90},
             {"kind": "group", "outlet": "g", "height": 500}])",
         {{"a", frame(0, 0, 312, 0)}, {"b", frame(0, 4, 312, 90)}, {"(content)", 598}}},
    };
    for (const auto& testCase : cases) {
        std::map<std::string, json> frames = framesOf(testCase.objects);
        for (const auto& [outlet, expected] : testCase.expected) {
            json actual = frames.contains(outlet) ? frames[outlet] : json();
            EXPECT_EQ(actual, expected) << testCase.what << ": " << outlet;
        }
    }
}

TEST(SnapshotTest, ShowsEveryScreenWithItsObjectsAndState) {
    TestApplication app;
    json before = app.host->snapshot();
    EXPECT_EQ(before["started"], false);
    EXPECT_EQ(before["visibleScreen"], nullptr);
    EXPECT_TRUE(before["pages"].empty());

    ASSERT_TRUE(app.host->start());
    ASSERT_TRUE(app.host->tap(app.visibleId("openButton")));
    json snapshot = app.host->snapshot();
    EXPECT_EQ(snapshot["screen"], (json{{"width", 312.0}, {"height", 390.0}}));
    EXPECT_EQ(snapshot["visibleScreen"], "modal-1");
    ASSERT_EQ(snapshot["pages"].size(), 3u);
    const json& left = snapshot["pages"][0];
    EXPECT_EQ(left["id"], "page-0");
    EXPECT_EQ(left["controller"], "left");
    EXPECT_EQ(left["class"], "PageController");
    EXPECT_EQ(left["role"], "page");
    EXPECT_EQ(left["active"], false) << "covered by the picker";
    EXPECT_EQ(findByOutlet(left, "titleLabel"), (json{{"id", "page-0.0"},
                                                      {"kind", "label"},
                                                      {"outlet", "titleLabel"},
                                                      {"frame", frame(0, 0, 312, 30)},
                                                      {"hidden", false},
                                                      {"text", "left"},
                                                      {"textColor", nullptr}}));
    EXPECT_EQ(findByOutlet(left, "openButton")["action"], "open");
    EXPECT_EQ(left["accessibilityLabel"], "Library");
    EXPECT_EQ(left["menu"]["items"],
              (json::array({{{"image", {{"name", "automix"}}}, {"title", "Pick"}, {"action", "menuPicked"}}})));

    ASSERT_EQ(snapshot["modals"].size(), 1u);
    const json& picker = snapshot["modals"][0];
    EXPECT_EQ(picker["active"], true);
    EXPECT_EQ(picker["title"], "Cancel");
    EXPECT_EQ(picker["accessibilityLabel"], nullptr);
    EXPECT_EQ(picker["context"]["from"], "left");
    EXPECT_TRUE(picker["context"]["thing"]["$type"].get<std::string>().find("Thing") != std::string::npos);
    json rows = findByOutlet(picker, "table")["rows"];
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0]["rowType"], "heading");
    EXPECT_EQ(rows[0]["selectable"], false);
    EXPECT_EQ(rows[1]["group"]["frame"], frame(0, 56, 312, 40));
    EXPECT_EQ(findByOutlet(rows[2], "nameLabel")["text"], "item 2");
    json slider = findByOutlet(picker, "slider");
    EXPECT_EQ(slider["value"], 0.5);
    EXPECT_EQ(slider["steps"], 4);
    EXPECT_EQ(picker["objects"].back()["adjusts"], (json{{"slider", slider["id"]}, {"by", 1}}));
    EXPECT_EQ(findByOutlet(picker, "toggle")["on"], false);
    EXPECT_EQ(snapshot["glance"], (json{{"visible", false}, {"screen", nullptr}}));
}

TEST(SnapshotTest, AButtonsAccessibilityLabelFollowsItsImageInTheWatchsLanguage) {
    const vexo::text::Localization german(std::filesystem::path(VEXO_SOURCE_DIR) / "resources", "de_DE");
    for (const auto* localization : {static_cast<const vexo::text::Localization*>(nullptr), &german}) {
        TestApplication app(localization);
        ASSERT_TRUE(app.host->start());
        auto label = [&] { return findByOutlet(app.host->snapshot()["pages"][0], "openButton")["accessibilityLabel"]; };
        auto page = app.page<PageController>(0);
        EXPECT_EQ(label(), localization ? "Abspielen" : "Play");
        page->m_openButton->setBackgroundImageNamed("pause");
        EXPECT_EQ(label(), localization ? "Deck 1 anhalten" : "Pause deck 1");
        // An image without a label of its own gives the plain label back.
        page->m_openButton->setBackgroundImageNamed("pause-active");
        EXPECT_EQ(label(), localization ? "Abspielen" : "Play");
    }
}

TEST(SnapshotTest, JsonEventsAreCheckedAndCarriedOut) {
    TestApplication app;
    ASSERT_TRUE(app.host->start());
    std::string title = app.visibleId("titleLabel");
    // Rows run in order against one application; an empty error means the event is done.
    const struct {
        json event;
        std::string error;
        std::vector<std::string> calls;
    } rows[] = {
        {{{"type", "tap"}, {"object", title}}, "tap: object 'page-0.0' is a label; only buttons take taps", {}},
        {{{"type", "tap"}, {"object", "page-9.9"}}, "tap: no object 'page-9.9' on any screen", {}},
        {{{"type", "tap"}, {"object", "page-1.1"}},
         "tap: object 'page-1.1' is on screen 'page-1' (middle), which is not the one shown",
         {}},
        {{{"type", "swipe"}, {"page", 7}}, "swipe: there is no page 7 (there are 3)", {}},
        {{{"type", "swipe"}, {"direction", "right"}}, "swipe: there is no page left of the first", {}},
        {{{"type", "swipe"}, {"direction", "left"}}, "", {"left.didDeactivate", "middle.willActivate"}},
        {{{"type", "pickMenuItem"}, {"index", 0}}, "pickMenuItem: no menu is open", {}},
        {{{"type", "openMenu"}}, "", {}},
        {{{"type", "tap"}, {"object", "page-1.1"}}, "tap: the menu of 'page-1' covers the screen", {}},
        {{{"type", "pickMenuItem"}, {"index", 1}}, "pickMenuItem: the menu has no item 1 (it has 1)", {}},
        {{{"type", "pickMenuItem"}, {"index", 0}}, "", {"middle.menuPicked"}},
        {{{"type", "closeModal"}}, "closeModal: no modal screen is shown", {}},
        {{{"type", "tap"}, {"object", "page-1.1"}},
         "",
         {"middle.open", "middle.open returns", "init", "picker.awake", "middle.didDeactivate", "picker.willActivate"}},
        {{{"type", "swipe"}, {"page", 0}}, "swipe: modal screen 'modal-1' covers the pages", {}},
        {{{"type", "selectRow"}, {"object", "modal-1.1"}, {"row", 0}},
         "selectRow: row 0 (heading) cannot be selected",
         {}},
        {{{"type", "selectRow"}, {"object", "modal-1.1"}, {"row", 3}},
         "selectRow: table 'modal-1.1' has no row 3 (it has 3)",
         {}},
        {{{"type", "slide"}, {"object", "modal-1.2"}, {"step", 1}}, "", {"picker.slide 0.75"}},
        {{{"type", "slide"}, {"object", "modal-1.2"}, {"value", 3}}, "", {"picker.slide 1.00"}},
        {{{"type", "slide"}, {"object", "modal-1.2"}}, "slide: needs either \"value\" or \"step\"", {}},
        {{{"type", "flip"}, {"object", "modal-1.3"}}, "", {"picker.toggle on"}},
        {{{"type", "flip"}, {"object", "modal-1.3"}, {"on", true}}, "", {}},
        {{{"type", "flip"}, {"object", "modal-1.2"}}, "flip: object 'modal-1.2' is no switch", {}},
        {{{"type", "showGlance"}}, "", {"init", "glance.awake", "picker.didDeactivate", "glance.willActivate"}},
        {{{"type", "openMenu"}}, "openMenu: the glance has no menu", {}},
        {{{"type", "closeModal"}}, "closeModal: the glance is shown", {}},
        {{{"type", "notificationAction"}, {"identifier", "automix"}, {"userInfo", {{"turntable", 1}}}},
         "",
         {"glance.didDeactivate", "picker.willActivate", "left.handleAction automix 1"}},
        {{{"type", "notificationAction"}, {"identifier", "automix"}, {"userInfo", 3}},
         "notificationAction: needs \"userInfo\" as an object",
         {}},
        {{{"type", "hideGlance"}}, "hideGlance: the glance is not shown", {}},
        {{{"type", "closeModal"}}, "", {"picker.didDeactivate", "middle.willActivate"}},
    };
    app.log.take();
    for (const auto& row : rows) {
        EventResult result = app.host->handleEvent(row.event);
        EXPECT_EQ(result ? "" : result.error().message(), row.error) << row.event.dump();
        EXPECT_EQ(toJson(result)["ok"], row.error.empty());
        EXPECT_EQ(app.log.take(), row.calls) << row.event.dump();
    }
    json picker = findById(app.host->snapshot(), "modal-1.2");
    EXPECT_TRUE(picker.is_null()) << "the picker is gone";
}

TEST(SnapshotTest, ChangesArriveOncePerTurnWithTheirFinalState) {
    TestApplication app;
    std::vector<json> batches;
    std::uint64_t subscription = app.host->subscribe([&](const json& batch) { batches.push_back(batch); });
    ASSERT_TRUE(app.host->start());
    app.loop.runUntilIdle();
    ASSERT_EQ(batches.size(), 1u);
    json changes = batches[0]["changes"];
    EXPECT_EQ(batches[0]["revision"], 1);
    EXPECT_EQ(changes[0]["change"], "navigation");
    EXPECT_EQ(changes[0]["visibleScreen"], "page-0");
    EXPECT_EQ(changes[0]["active"], "page-0");
    EXPECT_EQ(changes.size(), 4u) << "navigation and three new screens: " << changes.dump();
    EXPECT_EQ(changes[1]["change"], "screenAdded");
    EXPECT_EQ(findByOutlet(changes[1]["screen"], "titleLabel")["text"], "left") << "as it stands at the end";

    // Two changes of one label in one turn are one record; hiding it moves the button.
    batches.clear();
    auto left = app.page<PageController>(0);
    left->m_titleLabel->setText("one");
    left->m_titleLabel->setText("two");
    left->m_titleLabel->setHidden(true);
    EXPECT_TRUE(batches.empty()) << "nothing until the turn ends";
    app.loop.runUntilIdle();
    ASSERT_EQ(batches.size(), 1u);
    changes = batches[0]["changes"];
    ASSERT_EQ(changes.size(), 4u) << "the label, and the button, the box and its label that moved: " << changes.dump();
    EXPECT_EQ(changes[0]["object"]["text"], "two");
    EXPECT_EQ(changes[0]["object"]["hidden"], true);
    EXPECT_FALSE(changes[0]["object"].contains("frame"));
    json moved;
    for (const auto& change : changes)
        moved[change["object"].value("outlet", "")] = change["object"].value("frame", json());
    EXPECT_EQ(moved["openButton"], frame(0, 0, 312, 40));
    EXPECT_EQ(moved["noteLabel"], frame(0, 44, 312, 20));

    // A modal comes whole; an object of a covered screen changes alone; it goes by name.
    batches.clear();
    ASSERT_TRUE(app.host->tap(app.visibleId("openButton")));
    left->m_titleLabel->setText("three");
    app.loop.runUntilIdle();
    ASSERT_EQ(batches.size(), 1u);
    changes = batches[0]["changes"];
    EXPECT_EQ(changes[0]["modals"], json::array({"modal-1"}));
    EXPECT_EQ(changes[1]["change"], "screenAdded");
    EXPECT_EQ(changes[1]["screen"]["id"], "modal-1");
    EXPECT_EQ(findByOutlet(changes[1]["screen"], "table")["rows"].size(), 3u);
    EXPECT_EQ(changes[2]["object"]["text"], "three");

    batches.clear();
    ASSERT_TRUE(app.host->closeModal());
    app.host->flushChanges();
    ASSERT_EQ(batches.size(), 1u);
    EXPECT_EQ(batches[0]["changes"][1], (json{{"change", "screenRemoved"}, {"screen", "modal-1"}}));
    EXPECT_EQ(batches[0]["revision"], 4);

    app.loop.runUntilIdle();
    EXPECT_EQ(batches.size(), 1u) << "no empty batches";
    app.host->unsubscribe(subscription);
    left->m_titleLabel->setText("unheard");
    app.loop.runUntilIdle();
    EXPECT_EQ(batches.size(), 1u);
}

TEST(SnapshotTest, ObjectsInsideAHiddenGroupLoseTheirFrameAndGetItBack) {
    TestApplication app;
    std::vector<json> batches;
    app.host->subscribe([&](const json& batch) { batches.push_back(batch); });
    ASSERT_TRUE(app.host->start());
    app.loop.runUntilIdle();
    auto box = app.visible("box");
    std::string note = app.visibleId("noteLabel");
    auto recordOf = [&](const std::string& id) {
        for (const auto& batch : batches) {
            for (const auto& change : batch["changes"]) {
                if (change["change"] == "object" && change["object"]["id"] == id)
                    return change["object"];
            }
        }
        return json();
    };

    batches.clear();
    box->setHidden(true);
    app.loop.runUntilIdle();
    ASSERT_TRUE(recordOf(note).is_object()) << "the label inside is told it has no frame";
    EXPECT_FALSE(recordOf(note).contains("frame"));
    EXPECT_FALSE(findById(app.host->snapshot(), note).contains("frame"));

    batches.clear();
    box->setHidden(false);
    app.loop.runUntilIdle();
    ASSERT_TRUE(recordOf(note).is_object()) << "and gets its frame back, the same as before";
    EXPECT_EQ(recordOf(note)["frame"], findById(app.host->snapshot(), note)["frame"]);
}

TEST(SnapshotTest, EventsAndSnapshotsMayBePostedFromAnotherThread) {
    TestApplication app;
    ASSERT_TRUE(app.host->start());
    std::string open = app.visibleId("openButton");
    std::vector<std::string> results;
    json snapshot;
    std::thread sender([&] {
        app.host->postEvent({{"type", "tap"}, {"object", open}}, [&](const EventResult& result) {
            results.push_back(result ? "ok" : result.error().message());
        });
        app.host->postEvent({{"type", "tap"}, {"object", open}}, [&](const EventResult& result) {
            results.push_back(result ? "ok" : result.error().message());
        });
        app.host->postSnapshot([&](const json& taken) { snapshot = taken; });
    });
    sender.join();
    EXPECT_TRUE(results.empty()) << "nothing happens off the loop";
    app.loop.runUntilIdle();
    EXPECT_EQ(results, (std::vector<std::string>{
                           "ok", "tap: object 'page-0.1' is on screen 'page-0' (left), which is not the one shown"}));
    EXPECT_EQ(snapshot["visibleScreen"], "modal-1");

    // Work posted for a host that has gone does nothing but answer.
    std::string answer;
    app.host->postEvent({{"type", "closeModal"}},
                        [&](const EventResult& result) { answer = result.error().message(); });
    app.host.reset();
    app.loop.runUntilIdle();
    EXPECT_EQ(answer, "the interface has gone");
}

TEST(SnapshotTest, TextsAlwaysDumpAsJson) {
    const std::string replacement = "\xEF\xBF\xBD";
    const struct {
        std::string in;
        std::string out;
    } rows[] = {
        {"Caf\xC3\xA9 \xF0\x9F\x8E\xB5", "Caf\xC3\xA9 \xF0\x9F\x8E\xB5"},
        {"a\xFF"
         "b",
         "a" + replacement + "b"},
        {"cut \xC3", "cut " + replacement},
        {"\xED\xA0\x80", replacement + replacement + replacement}, // a surrogate
        {"\xC0\xAF", replacement + replacement},                   // an overlong slash
    };
    for (const auto& row : rows)
        EXPECT_EQ(snapshot::text(row.in), row.out) << row.out;

    TestApplication app;
    ASSERT_TRUE(app.host->start());
    app.page<PageController>(0)->m_titleLabel->setText("Tag \xFF from a file");
    EXPECT_NO_THROW((void)app.host->snapshot().dump());
}

TEST(SnapshotTest, TellsThePageTheWatchsLanguageLocaleAndPlatformTexts) {
    const std::filesystem::path resources = std::filesystem::path(VEXO_SOURCE_DIR) / "resources";
    const vexo::text::Localization german(resources, "de_DE");
    const vexo::text::Localization english(resources, "en");
    const struct {
        const vexo::text::Localization* localization;
        std::string locale;
        json expected;
    } cases[] = {
        {nullptr,
         "",
         {{"language", "en"},
          {"identifier", "en-US"},
          {"texts", {{"Cancel", "Cancel"}, {"Close the menu", "Close the menu"}}}}},
        {&english,
         "en_GB",
         {{"language", "en"},
          {"identifier", "en-GB"},
          {"texts", {{"Cancel", "Cancel"}, {"Close the menu", "Close the menu"}}}}},
        {&german,
         "de_DE",
         {{"language", "de"},
          {"identifier", "de-DE"},
          {"texts",
           {{"Cancel", "Abbrechen"},
            {"Close the menu", "Men\xC3\xBC schlie\xC3\x9F"
                               "en"}}}}},
        // Texts and numbers may be set apart: German texts, Swiss numbers.
        {&german,
         "de_CH",
         {{"language", "de"},
          {"identifier", "de-CH"},
          {"texts",
           {{"Cancel", "Abbrechen"},
            {"Close the menu", "Men\xC3\xBC schlie\xC3\x9F"
                               "en"}}}}},
    };
    for (const auto& c : cases) {
        TestApplication app(c.localization, c.locale);
        EXPECT_EQ(app.host->snapshot()["locale"], c.expected) << c.locale;
        ASSERT_TRUE(app.host->start());
        EXPECT_EQ(app.host->snapshot()["locale"], c.expected) << c.locale << ", started";
    }
}
