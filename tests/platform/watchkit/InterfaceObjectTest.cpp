#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "TestInterface.h"
#include "platform/text/Localization.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/Image.h"
#include "platform/watchkit/ImageStore.h"
#include "platform/watchkit/Menu.h"
#include "platform/watchkit/Screen.h"
#include "platform/watchkit/Timer.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::watchkit;
using namespace vexo::watchkit::testing;

namespace {

// The smallest PNG header that tells a size: signature and IHDR of `width` x `height`.
std::vector<std::uint8_t> pngHeader(std::uint32_t width, std::uint32_t height) {
    std::vector<std::uint8_t> bytes = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    for (std::uint32_t value : {width, height}) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
    return bytes;
}

// The picker's screen on its own, without a host.
struct PickerScreen {
    PickerScreen() {
        registerTestClasses(registry, log);
        layout = LayoutLoader::parse(testLayoutText(), "test.json", registry).value();
        screen = std::make_unique<Screen>("s", *layout.controller("picker"),
                                          ScreenServices{nullptr, &images, &registry, {}, nullptr});
    }
    std::shared_ptr<Table> table() const { return std::static_pointer_cast<Table>(screen->objectForOutlet("table")); }
    std::vector<std::string> rowTypes() const {
        std::vector<std::string> types;
        for (const TableRow& row : table()->rows())
            types.push_back(row.typeName);
        return types;
    }

    CallLog log;
    ControllerRegistry registry;
    ImageStore images;
    InterfaceLayout layout;
    std::unique_ptr<Screen> screen;
};

} // namespace

TEST(InterfaceObjectTest, AnEmptyOutletIsAMessageToNil) {
    Outlet<Label> outlet;
    EXPECT_FALSE(outlet);
    outlet->setText("ignored");
    outlet->setHidden(true);
    EXPECT_FALSE(outlet->text().has_value());
    EXPECT_FALSE(outlet->isHidden());
    EXPECT_TRUE(outlet->isNil());
    Outlet<Table> table;
    table->setRowTypes({"item"});
    EXPECT_EQ(table->numberOfRows(), 0u);
    EXPECT_EQ(table->rowControllerAtIndex(0), nullptr);

    // A modal's outlets empty when it is dismissed, while others still hold the controller.
    TestApplication app;
    ASSERT_TRUE(app.host->start());
    ASSERT_TRUE(app.host->tap(app.visibleId("openButton")));
    auto picker = std::dynamic_pointer_cast<PickerController>(app.host->visibleController());
    ASSERT_TRUE(picker && picker->m_titleLabel);
    EXPECT_EQ(picker->m_titleLabel->text(), "left: record") << "the context carried a C++ object";
    auto row = picker->m_table->rowControllerAtIndex<ItemRow>(1);
    ASSERT_TRUE(row && row->m_nameLabel);
    std::shared_ptr<Table> held = picker->m_table.get();
    ASSERT_TRUE(app.host->closeModal());
    EXPECT_FALSE(picker->m_titleLabel);
    held->setRowTypes({"item"});
    held->insertRowsAtIndexes({0}, "item");
    EXPECT_EQ(held->numberOfRows(), 0u) << "a table held past its screen has no rows and makes none";
    EXPECT_FALSE(row->m_nameLabel);
    picker->m_titleLabel->setText("after");
    picker->m_table->setRowTypes({"item"});
    picker->clearAllMenuItems();
    EXPECT_FALSE(picker->m_table->rowControllerAtIndex(0));
}

TEST(InterfaceObjectTest, ObjectsKeepWhatWasSet) {
    PickerScreen picker;
    auto label = std::static_pointer_cast<Label>(picker.screen->objectForOutlet("titleLabel"));
    label->setText("");
    EXPECT_EQ(label->text(), "") << "an empty text is a text";
    label->setText(std::nullopt);
    EXPECT_EQ(label->text(), std::nullopt);

    auto slider = std::static_pointer_cast<Slider>(picker.screen->objectForOutlet("slider"));
    EXPECT_EQ(slider->value(), 0.5f) << "from the layout";
    slider->setValue(-1.0f);
    EXPECT_EQ(slider->value(), -1.0f) << "kept as given";
    const struct {
        float start;
        int steps;
        float expected;
    } moves[] = {{0.5f, 1, 0.75f}, {0.5f, -1, 0.25f}, {0.9f, 1, 1.0f}, {-1.0f, -1, 0.0f}, {-1.0f, 1, 0.25f}};
    for (const auto& move : moves) {
        slider->setValue(move.start);
        EXPECT_FLOAT_EQ(slider->stepped(move.steps), move.expected) << move.start << " by " << move.steps;
    }
    EXPECT_EQ(slider->clamped(7.0f), 1.0f);
    EXPECT_EQ(slider->clamped(std::nanf("")), 0.0f);
}

TEST(InterfaceObjectTest, ImageDataIsStoredOnceByContentAndTooMuchChangesNothing) {
    TestApplication app;
    ASSERT_TRUE(app.host->start());
    ASSERT_TRUE(app.host->tap(app.visibleId("openButton")));
    auto picker = std::dynamic_pointer_cast<PickerController>(app.host->visibleController());
    auto one = picker->m_table->rowControllerAtIndex<ItemRow>(1);
    auto two = picker->m_table->rowControllerAtIndex<ItemRow>(2);

    one->m_starButton->setBackgroundImageData(pngHeader(92, 92));
    two->m_starButton->setBackgroundImageData(pngHeader(92, 92));
    const auto& data = one->m_starButton->backgroundImage().data();
    ASSERT_TRUE(data);
    EXPECT_EQ(data, two->m_starButton->backgroundImage().data()) << "equal bytes, one image";
    EXPECT_EQ(data->mediaType, "image/png");
    EXPECT_EQ(data->width, 92);
    EXPECT_EQ(app.host->imageWithId(data->id), data);
    EXPECT_EQ(one->m_starButton->backgroundImage().toJson()["data"], data->id);

    std::string id = data->id;
    one->m_starButton->setBackgroundImageData(std::vector<std::uint8_t>(ImageStore::kMaxImageBytes + 1, 0));
    EXPECT_EQ(one->m_starButton->backgroundImage().data()->id, id) << "refused data leaves the image as it was";
    one->m_starButton->setBackgroundImageNamed("turntable-play");
    EXPECT_EQ(*one->m_starButton->backgroundImage().name(), "turntable-play");
    one->m_starButton->setBackgroundImageData(std::nullopt);
    EXPECT_TRUE(one->m_starButton->backgroundImage().isEmpty()) << "nothing clears it";

    // Kept while shown, and among the recent ones after.
    two->m_starButton->setBackgroundImageNamed("turntable-play");
    EXPECT_EQ(app.host->imageWithId(id)->bytes, pngHeader(92, 92));
    ImageStore store;
    std::string first = store.add({1, 2, 3})->id;
    for (std::uint8_t i = 0; i < ImageStore::kRecentCount; ++i)
        (void)store.add({i, i, i, i});
    EXPECT_EQ(store.find(first), nullptr) << "released once neither shown nor recent";
    EXPECT_EQ(store.size(), ImageStore::kRecentCount);
}

TEST(InterfaceObjectTest, TableRowsFollowTheIndexRules) {
    PickerScreen picker;
    auto table = picker.table();
    using Types = std::vector<std::string>;
    const struct {
        const char* what;
        std::function<void()> operation;
        Types expected;
    } steps[] = {
        {"row types replace all rows",
         [&] {
             table->setRowTypes({"heading", "item"});
         },
         {"heading", "item"}},
        {"insert at the end and in front",
         [&] {
             table->insertRowsAtIndexes({0, 3}, "item");
         },
         {"item", "heading", "item", "item"}},
        {"insert a range",
         [&] { table->insertRowsAtIndexes(Table::indexesInRange(1, 2), "heading"); },
         {"item", "heading", "heading", "heading", "item", "item"}},
        {"remove some",
         [&] {
             table->removeRowsAtIndexes({0, 2, 5});
         },
         {"heading", "heading", "item"}},
        {"a number of rows replaces all rows", [&] { table->setNumberOfRows(2, "item"); }, {"item", "item"}},
        {"an unknown row type still takes its place",
         [&] { table->insertRowsAtIndexes({1}, "nonsense"); },
         {"item", "nonsense", "item"}},
    };
    for (const auto& step : steps) {
        step.operation();
        EXPECT_EQ(picker.rowTypes(), step.expected) << step.what;
    }
    EXPECT_EQ(table->rowControllerAtIndex<ItemRow>(1), nullptr) << "a plain row controller";
    EXPECT_NE(table->rowControllerAtIndex(1), nullptr);
    EXPECT_EQ(table->rowControllerAtIndex(3), nullptr);

    // Out of range: the platform raises; nothing changes.
    EXPECT_THROW(table->insertRowsAtIndexes({1, 5}, "item"), std::out_of_range);
    EXPECT_THROW(table->removeRowsAtIndexes({3}), std::out_of_range);
    EXPECT_EQ(picker.rowTypes(), (Types{"item", "nonsense", "item"}));

    // Each row has its own controller with outlets on its own objects.
    auto first = table->rowControllerAtIndex<ItemRow>(0);
    auto last = table->rowControllerAtIndex<ItemRow>(2);
    ASSERT_TRUE(first && last && first->m_nameLabel && last->m_nameLabel);
    EXPECT_NE(first->m_nameLabel.get(), last->m_nameLabel.get());
    first->m_nameLabel->setText("first");
    EXPECT_EQ(table->rows()[0].group->children()[0], first->m_nameLabel.get());
    table->removeRowsAtIndexes({0});
    EXPECT_FALSE(first->m_nameLabel) << "the row's objects went with it";
    EXPECT_TRUE(last->m_nameLabel);
}

TEST(InterfaceObjectTest, MenusHoldFourItemsOfDeclaredActions) {
    TestApplication app;
    ASSERT_TRUE(app.host->start());
    auto page = app.page<PageController>(0);
    Menu& menu = page->screen()->menu();
    ASSERT_EQ(menu.items().size(), 1u) << "added when it woke";
    EXPECT_EQ(menu.items()[0], (Menu::Item{"automix", "Pick", "menuPicked"}));

    page->addMenuItemWithImageNamed("automix", "Open", "open");
    page->addMenuItemWithImageNamed("automix", "Unknown", "noSuchAction");
    EXPECT_EQ(menu.items().size(), 2u) << "an action the class lacks is refused";
    page->addMenuItemWithImageNamed("automix", "Three", "open");
    page->addMenuItemWithImageNamed("automix", "Four", "open");
    page->addMenuItemWithImageNamed("automix", "Five", "open");
    EXPECT_EQ(menu.items().size(), Menu::kMaxItems);

    ASSERT_TRUE(app.host->openMenu());
    page->clearAllMenuItems();
    EXPECT_TRUE(menu.items().empty());
    EXPECT_FALSE(menu.isOpen()) << "an emptied menu closes";
    EXPECT_FALSE(app.host->openMenu());

    page->addMenuItemWithImageNamed("automix", "Rebuilt", "open");
    EXPECT_TRUE(menu.isOpen()) << "a menu refilled before the user acts opens again";
    ASSERT_TRUE(app.host->closeMenu());
    page->clearAllMenuItems();
    page->addMenuItemWithImageNamed("automix", "Later", "open");
    EXPECT_FALSE(menu.isOpen()) << "a menu the user closed stays closed";
}

TEST(InterfaceObjectTest, AnimationsAndTimersRecordTheirState) {
    vexo::runtime::DeterministicRunLoop loop;
    ControllerRegistry registry;
    const char* text = R"({"format": 1, "pages": ["p"], "controllers": {"p": {"class": "X", "objects": [
        {"kind": "group", "animation": {"prefix": "spin-", "count": 3, "duration": 0.5}},
        {"kind": "group"},
        {"kind": "timer"}]}}})";
    vexo::Expected<InterfaceLayout> loaded = LayoutLoader::parse(text, "t.json", registry, MissingClasses::Allow);
    ASSERT_TRUE(loaded) << loaded.error().message();
    auto now = std::chrono::system_clock::time_point(std::chrono::seconds(100));
    Screen screen("s", *loaded->controller("p"),
                  ScreenServices{nullptr, nullptr, nullptr, [&] { return now; }, nullptr});
    auto& animated = static_cast<Group&>(*screen.objects()[0]);
    auto& still = static_cast<Group&>(*screen.objects()[1]);
    auto& timer = static_cast<Timer&>(*screen.objects()[2]);
    EXPECT_EQ(animated.layout().animation->frames, (std::vector<std::string>{"spin-0", "spin-1", "spin-2"}));
    animated.startAnimating();
    animated.startAnimating();
    EXPECT_TRUE(animated.isAnimating());
    EXPECT_EQ(animated.animationStartCount(), 2) << "a second start restarts";
    animated.stopAnimating();
    EXPECT_FALSE(animated.isAnimating());
    still.startAnimating();
    EXPECT_FALSE(still.isAnimating()) << "no animation to start";

    EXPECT_EQ(timer.date(), now);
    EXPECT_FALSE(timer.isRunning());
    timer.start();
    now += std::chrono::seconds(7);
    timer.stop();
    EXPECT_EQ(timer.stoppedAt(), now);
    nlohmann::json state = timer.toJson({}, false);
    EXPECT_EQ(state["date"], 100.0);
    EXPECT_EQ(state["stoppedAt"], 107.0);
    EXPECT_EQ(state["running"], false);
}

TEST(InterfaceObjectTest, LayoutTextsAreLocalisedWhenAsked) {
    vexo::testing::TemporaryDirectory resources;
    std::filesystem::create_directories(resources.path() / "de.lproj");
    std::ofstream(resources.path() / "de.lproj" / "Localizable.strings")
        << "\"Done\" = \"Fertig\";\n\"Loud\" = \"Laut\";\n";
    vexo::text::Localization german(resources.path(), "de_DE");

    CallLog log;
    ControllerRegistry registry;
    registerTestClasses(registry, log);
    vexo::Expected<InterfaceLayout> loaded = LayoutLoader::parse(testLayoutText(), "test.json", registry);
    ASSERT_TRUE(loaded);
    const ControllerLayout& picker = *loaded->controller("picker");
    const vexo::text::Localization* localizations[] = {&german, nullptr};
    for (const vexo::text::Localization* localization : localizations) {
        Screen screen("s", picker, ScreenServices{nullptr, nullptr, &registry, {}, localization});
        // The last but one: a slider's "+" button follows "Done".
        auto done = std::static_pointer_cast<Button>(screen.objects().end()[-2]);
        auto toggle = std::static_pointer_cast<Switch>(screen.objectForOutlet("toggle"));
        EXPECT_EQ(done->title(), localization ? "Fertig" : "Done");
        EXPECT_EQ(toggle->title(), localization ? "Laut" : "Loud");
    }
}
