#include "platform/watchkit/LayoutLoader.h"

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/watchkit/Button.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/ExtensionHost.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Slider.h"
#include "platform/watchkit/Table.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::watchkit;
using vexo::Expected;

namespace {

class DeckController : public InterfaceController {
public:
    template <class Self> static void describeInterface(InterfaceClass<Self>& c) {
        c.outlet("bpmLabel", &DeckController::m_bpmLabel);
        c.outlet("playButton", &DeckController::m_playButton);
        c.outlet("volumeSlider", &DeckController::m_volumeSlider);
        c.action("togglePlayback", &DeckController::togglePlayback);
        c.action("changeVolume", &DeckController::changeVolume);
        c.action("flip", &DeckController::flip);
        c.action("menuOnly", &DeckController::togglePlayback, ActionUse::Code);
    }
    void togglePlayback() {}
    void changeVolume(float) {}
    void flip(bool) {}

    Outlet<Label> m_bpmLabel;
    Outlet<Button> m_playButton;
    Outlet<Slider> m_volumeSlider;
};

class NameRow : public RowController {
public:
    template <class Self> static void describeInterface(InterfaceClass<Self>& c) {
        c.outlet("nameLabel", &NameRow::m_nameLabel);
    }
    Outlet<Label> m_nameLabel;
};

const std::string kValid = R"({"format": 1, "pages": ["deck"], "controllers": {"deck": {"class": "Deck", "objects": [
  {"kind": "label", "outlet": "bpmLabel"},
  {"kind": "button", "outlet": "playButton", "action": "togglePlayback"},
  {"kind": "slider", "outlet": "volumeSlider", "action": "changeVolume"},
  {"kind": "switch", "action": "flip"},
  {"kind": "table", "rowTypes": {"row": {"class": "Row", "objects": [{"kind": "label", "outlet": "nameLabel"}]}}}
]}}})";

// The lines of a refusal's message.
std::vector<std::string> problems(const Expected<InterfaceLayout>& result) {
    std::vector<std::string> lines;
    if (result)
        return lines;
    std::istringstream message(result.error().message());
    for (std::string line; std::getline(message, line);)
        lines.push_back(line);
    return lines;
}

// kValid with `from` replaced by `to` (once).
std::string edited(const std::string& from, const std::string& to) {
    std::string text = kValid;
    std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

struct Registry : ControllerRegistry {
    Registry() {
        registerClass<DeckController>("Deck");
        registerRowClass<NameRow>("Row");
    }
};

} // namespace

TEST(LayoutLoaderTest, ErrorsNameTheFileTheControllerAndTheOutlet) {
    Registry registry;
    Expected<InterfaceLayout> valid = LayoutLoader::parse(kValid, "test.json", registry);
    ASSERT_TRUE(valid) << valid.error().message();

    const struct {
        const char* what;
        std::string text;
        std::vector<std::string> expected;
    } cases[] = {
        {"an outlet of the class missing from the layout",
         edited(R"({"kind": "label", "outlet": "bpmLabel"},)", ""),
         {"test.json: controller 'deck' (Deck): outlet 'bpmLabel': declared by class Deck (a label) but missing "
          "from the layout"}},
        {"an outlet the class does not have",
         edited(R"({"kind": "label", "outlet": "bpmLabel"},)",
                R"({"kind": "label", "outlet": "bpmLabel"}, {"kind": "label", "outlet": "keyLabel"},)"),
         {"test.json: controller 'deck' (Deck): outlet 'keyLabel' (label keyLabel): class Deck has no such outlet"}},
        {"an outlet of the wrong kind",
         edited(R"({"kind": "label", "outlet": "bpmLabel"})", R"({"kind": "button", "outlet": "bpmLabel"})"),
         {"test.json: controller 'deck' (Deck): outlet 'bpmLabel': class Deck declares a label but the layout has a "
          "button (bpmLabel)"}},
        {"an unknown action, and the declared one then unused",
         edited(R"("action": "togglePlayback")", R"("action": "togglePlayBack")"),
         {"test.json: controller 'deck' (Deck): action 'togglePlayBack' of button playButton: class Deck has no such "
          "action",
          "test.json: controller 'deck' (Deck): action 'togglePlayback': declared by class Deck for the layout, but "
          "no object sends it"}},
        {"an action taking what the object does not send",
         edited(R"({"kind": "switch", "action": "flip"})",
                R"({"kind": "switch", "action": "flip"}, {"kind": "button", "action": "changeVolume"})"),
         {"test.json: controller 'deck' (Deck): action 'changeVolume' of button #4: class Deck declares it taking a "
          "float, which a button does not send"}},
        {"a row class's outlet missing from its row type",
         edited(R"({"kind": "label", "outlet": "nameLabel"})", R"({"kind": "label"})"),
         {"test.json: controller 'deck' (Deck), row type 'row' (Row): outlet 'nameLabel': declared by class Row (a "
          "label) but missing from the layout"}},
        {"two objects with one outlet",
         edited(
             R"({"kind": "switch", "action": "flip"})",
             R"({"kind": "switch", "action": "flip"}, {"kind": "group", "objects": [{"kind": "label", "outlet": "bpmLabel"}]})"),
         {"test.json: controller 'deck' (Deck): outlet 'bpmLabel' names two objects"}},
        {"an unknown kind and an unknown property",
         edited(R"({"kind": "switch", "action": "flip"})",
                R"({"kind": "switch", "action": "flip", "colour": "white"}, {"kind": "knob"})"),
         {"test.json: controller 'deck', object #3: unknown property 'colour'",
          "test.json: controller 'deck', object #4: unknown kind 'knob'"}},
        {"values of the wrong form",
         edited(R"({"kind": "label", "outlet": "bpmLabel"})",
                R"({"kind": "label", "outlet": "bpmLabel", "width": "wide", "textColor": "#12345", "hidden": 1})"),
         {"test.json: controller 'deck', object bpmLabel: 'width' must be pixels, \"fill\", \"fit\" or {\"relative\": "
          "fraction}",
          "test.json: controller 'deck', object bpmLabel: 'hidden' must be true or false",
          "test.json: controller 'deck', object bpmLabel: 'textColor' must be \"#rrggbb\", \"#rrggbbaa\" or one of "
          "white, lightGray, darkGray, black, clear, selection"}},
        {"accessibility labels of the wrong form",
         edited(R"("action": "togglePlayback")",
                R"("action": "togglePlayback", "accessibilityLabel": "", "accessibilityLabelByImage": {"pause": 1})"),
         {"test.json: controller 'deck', object playButton: 'accessibilityLabel' must be a non-empty string",
          "test.json: controller 'deck', object playButton: 'accessibilityLabelByImage' must map image names to "
          "labels"}},
        {"buttons adjusting what is no slider, by no step, or with an action besides",
         edited(R"({"kind": "switch", "action": "flip"})",
                R"({"kind": "switch", "action": "flip"}, {"kind": "button", "adjusts": {"slider": "bpmLabel", "by": 1}},
                   {"kind": "button", "adjusts": {"slider": "volumeSlider", "by": 0.5}},
                   {"kind": "button", "action": "togglePlayback", "adjusts": {"slider": "volumeSlider", "by": -1}})"),
         {"test.json: controller 'deck', object #5 adjusts: must be {\"slider\": outlet, \"by\": steps other than 0}",
          "test.json: controller 'deck', object #6: a button has one of an action, a segue or a slider it adjusts",
          "test.json: controller 'deck' (Deck): button #4 adjusts 'bpmLabel', which is no slider outlet here"}},
        {"a button of a row type adjusting a slider",
         edited(
             R"([{"kind": "label", "outlet": "nameLabel"}])",
             R"([{"kind": "label", "outlet": "nameLabel"}, {"kind": "button", "adjusts": {"slider": "volumeSlider", "by": 1}}])"),
         {"test.json: controller 'deck' (Deck), row type 'row' (Row): button #4/row/#1 in a row type cannot adjust a "
          "slider"}},
        {"pages and segues that name no controller",
         edited(R"("pages": ["deck"])", R"("pages": ["deck", "nowhere"])"),
         {"test.json: pages: 'nowhere' is not a controller of the layout"}},
        {"a segue to nowhere",
         edited(R"({"kind": "switch", "action": "flip"})",
                R"({"kind": "switch", "action": "flip"}, {"kind": "button", "segue": {"destination": "nowhere"}})"),
         {"test.json: controller 'deck', object #4: the segue's destination 'nowhere' is not a controller of the "
          "layout"}},
        {"an unregistered class",
         edited(R"("class": "Deck")", R"("class": "Ghost")"),
         {"test.json: controller 'deck' (Ghost): class Ghost is not registered"}},
        {"not JSON", "{\"format\": 1,", {"test.json: not valid JSON: "}},
        {"no pages",
         edited(R"("pages": ["deck"], )", ""),
         {"test.json: 'pages' must list the controller names of the pages, left to right"}},
    };
    for (const auto& testCase : cases) {
        Expected<InterfaceLayout> result = LayoutLoader::parse(testCase.text, "test.json", registry);
        ASSERT_FALSE(result) << testCase.what;
        EXPECT_EQ(result.error().kind(), vexo::ErrorKind::InvalidData);
        const std::vector<std::string> errors = problems(result);
        for (const std::string& expected : testCase.expected) {
            bool found = false;
            for (const std::string& error : errors)
                found = found || error.starts_with(expected);
            EXPECT_TRUE(found) << testCase.what << ": no error starting with\n  " << expected << "\namong\n"
                               << result.error().message();
        }
        EXPECT_EQ(errors.size(), testCase.expected.size()) << testCase.what << ":\n" << result.error().message();
    }
}

TEST(LayoutLoaderTest, UnregisteredClassesAreListedWhenAllowed) {
    ControllerRegistry empty;
    Expected<InterfaceLayout> refused = LayoutLoader::parse(kValid, "test.json", empty);
    EXPECT_EQ(problems(refused).size(), 2u);

    Expected<InterfaceLayout> allowed = LayoutLoader::parse(kValid, "test.json", empty, MissingClasses::Allow);
    ASSERT_TRUE(allowed) << allowed.error().message();
    EXPECT_EQ(allowed->uncheckedClasses, (std::vector<std::string>{"Deck", "Row"}));
    const ObjectLayout& table = allowed->controller("deck")->root.children.at(4);
    ASSERT_NE(table.rowType("row"), nullptr);
    EXPECT_EQ(table.rowType("row")->className, "Row");
}

TEST(LayoutLoaderTest, ReadsDefaultsLikeAndFiles) {
    Registry registry;
    std::string text = R"({"format": 1, "pages": ["one", "two"], "controllers": {
      // Two pages of one design.
      "one": {"class": "Deck", "spacing": 2, "accessibilityLabel": "Deck", "objects": [
        {"kind": "label", "outlet": "bpmLabel", "text": "--", "textColor": "#ff800080", "width": {"relative": 0.5}},
        {"kind": "button", "outlet": "playButton", "action": "togglePlayback", "height": 44, "enabled": false,
         "accessibilityLabel": "Play", "accessibilityLabelByImage": {"pause": "Pause"}},
        {"kind": "slider", "outlet": "volumeSlider", "action": "changeVolume", "minimum": -1, "maximum": 1,
         "steps": 4},
        {"kind": "button", "adjusts": {"slider": "volumeSlider", "by": -2}},
        {"kind": "switch", "action": "flip", "on": true, "color": "selection"},
        {"kind": "table", "rowTypes": {"row": {"class": "Row", "height": 40, "selectable": false,
          "objects": [{"kind": "label", "outlet": "nameLabel"}]}}}
      ]},
      "two": {"like": "one", "title": "Second", "accessibilityLabel": "Other deck"}
    }})";
    vexo::testing::TemporaryDirectory directory;
    std::filesystem::path path = directory.path() / "Interface.json";
    std::ofstream(path) << text;
    Expected<InterfaceLayout> result = LayoutLoader::loadFile(path, registry);
    ASSERT_TRUE(result) << result.error().message();
    const InterfaceLayout& layout = *result;
    EXPECT_EQ(layout.source, path.string());
    EXPECT_EQ(layout.pages, (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(layout.screenWidth, 312);
    const ControllerLayout& two = *layout.controller("two");
    EXPECT_EQ(two.className, "Deck");
    EXPECT_EQ(two.title, "Second");
    EXPECT_EQ(two.accessibilityLabel, "Other deck");
    EXPECT_EQ(layout.controller("one")->accessibilityLabel, "Deck");
    EXPECT_EQ(two.root.spacing, 2);
    const ObjectLayout& label = two.root.children.at(0);
    EXPECT_EQ(label.width.mode, Dimension::Mode::Relative);
    EXPECT_EQ(label.width.value, 0.5);
    EXPECT_EQ(label.height.mode, Dimension::Mode::Fit);
    EXPECT_EQ(label.textColor, (Color{1.0, 128 / 255.0, 0, 128 / 255.0}));
    EXPECT_FALSE(two.root.children.at(1).enabled);
    EXPECT_EQ(two.root.children.at(1).accessibilityLabel, "Play");
    EXPECT_EQ(two.root.children.at(1).accessibilityLabelByImage.at("pause"), "Pause");
    EXPECT_EQ(two.root.children.at(2).minimum, -1);
    EXPECT_EQ(two.root.children.at(2).steps, 4);
    ASSERT_TRUE(two.root.children.at(3).adjusts);
    EXPECT_EQ(two.root.children.at(3).adjusts->slider, "volumeSlider");
    EXPECT_EQ(two.root.children.at(3).adjusts->by, -2);
    EXPECT_TRUE(two.root.children.at(4).on);
    EXPECT_EQ(two.root.children.at(4).color, colors::selection());
    EXPECT_FALSE(two.root.children.at(5).rowType("row")->selectable);

    Expected<InterfaceLayout> missing = LayoutLoader::loadFile(directory.path() / "Missing.json", registry);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().kind(), vexo::ErrorKind::NotFound);
    EXPECT_TRUE(
        missing.error().message().starts_with((directory.path() / "Missing.json").string() + ": cannot be read"))
        << missing.error().message();
}

namespace {

// Two pages of one class that differ only in a number, as the deck pages do.
class BasePage : public InterfaceController {
public:
    template <class Self> static void describeInterface(InterfaceClass<Self>& c) {
        c.outlet("numberLabel", &BasePage::m_numberLabel);
        c.action("press", &BasePage::press);
    }
    virtual void press() { m_numberLabel->setText("base"); }
    [[nodiscard]] std::shared_ptr<Label> label() const { return m_numberLabel.get(); }

private:
    Outlet<Label> m_numberLabel;
};

class SecondPage : public BasePage {
public:
    template <class Self> static void describeInterface(InterfaceClass<Self>& c) { BasePage::describeInterface(c); }
    void press() override {
        BasePage::press();
        label()->setText(*label()->text() + " then second");
    }
};

} // namespace

TEST(LayoutLoaderTest, SubclassesDeclareTheInterfaceOfTheirBase) {
    ControllerRegistry registry;
    EXPECT_TRUE(registry.registerClass<BasePage>("First"));
    EXPECT_TRUE(registry.registerClass<SecondPage>("Second"));
    EXPECT_FALSE(registry.registerClass<SecondPage>("Second")) << "a name is taken once";
    EXPECT_EQ(registry.controllerClassNames(), (std::vector<std::string>{"First", "Second"}));
    const char* text = R"({"format": 1, "pages": ["one", "two"], "controllers": {
        "one": {"class": "First", "objects": [{"kind": "button", "action": "press", "objects": [
                  {"kind": "label", "outlet": "numberLabel"}]}]},
        "two": {"like": "one", "class": "Second"}}})";
    Expected<InterfaceLayout> loaded = LayoutLoader::parse(text, "t.json", registry);
    ASSERT_TRUE(loaded) << loaded.error().message();
    vexo::runtime::DeterministicRunLoop loop;
    ExtensionHost host(loop, registry, std::move(*loaded));
    ASSERT_TRUE(host.start());
    ASSERT_TRUE(host.tap("page-0.0"));
    ASSERT_TRUE(host.swipeToPage(1));
    ASSERT_TRUE(host.tap("page-1.0"));
    auto first = std::dynamic_pointer_cast<BasePage>(host.pageController(0));
    auto second = std::dynamic_pointer_cast<SecondPage>(host.pageController(1));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->label()->text(), "base");
    EXPECT_EQ(second->label()->text(), "base then second") << "the action calls the override";
}
