#include <stdexcept>

#include "ScreenTestFixture.h"
#include "model/VXAWMixer.h"
#include "platform/watchkit/Table.h"
#include "ui/VXAWTransitionsInterfaceController.h"

using namespace vexo;
using namespace vexo::ui;
using namespace vexo::ui::testing;
using nlohmann::json;
using plist::Array;
using plist::Dictionary;
using plist::Value;

namespace {

class TransitionsScreenTest : public ScreenTest {
protected:
    // Opens the transitions screen from the mixer page, as its button's segue does.
    void openTransitions() {
        start();
        showPage(1);
        expectOk(m_host->tap(segueButton()));
        ASSERT_EQ(visibleScreen()["controller"], "transitions");
        takeSent();
    }
    std::string segueButton() const {
        for (const auto& object : flatten(visibleScreen()["objects"]))
            if (object.contains("segue") && object["segue"].is_object())
                return object["id"].get<std::string>();
        return {};
    }
    static std::vector<json> flatten(const json& objects) {
        std::vector<json> all;
        for (const auto& object : objects) {
            all.push_back(object);
            if (object.contains("children")) {
                auto inner = flatten(object["children"]);
                all.insert(all.end(), inner.begin(), inner.end());
            }
        }
        return all;
    }
    // Row i's name and whether it is the selection colour; rows without a name are headings.
    std::vector<std::pair<std::string, bool>> rows() const {
        std::vector<std::pair<std::string, bool>> result;
        const nlohmann::json table = visible("table");
        for (const auto& row : table["rows"]) {
            const json label = vexo::testing::findByOutlet(row, "nameLabel");
            if (label.is_null()) {
                result.emplace_back("heading", false);
                continue;
            }
            result.emplace_back(label["text"].get<std::string>(), label["textColor"]["red"] == 0.918);
        }
        return result;
    }
    static Value status(std::optional<std::string> type, Array types, float duration = 4.0f) {
        Dictionary message{{"availableTransitions", Value(std::move(types))}, {"transitionDuration", Value(duration)}};
        if (type)
            message.emplace("transitionType", Value(*type));
        return Value(std::move(message));
    }
};

using Rows = std::vector<std::pair<std::string, bool>>;

} // namespace

TEST_F(TransitionsScreenTest, TheModeSwitchShowsOrHidesTheList) {
    phoneWrites("mixerStatus", status("Echo", {Value("Fade"), Value("Echo"), Value("Cut")}));
    openTransitions();
    EXPECT_EQ(visible("transitionModeSwitch")["on"], false);
    EXPECT_EQ(visible("transitionModeSwitch")["color"]["red"], 0.918);
    EXPECT_EQ(visible("transitionDurationGroup")["hidden"], true);
    EXPECT_TRUE(rows().empty()) << "mode 0 shows no list, whatever the phone offers";

    expectOk(m_host->flip(visibleId("transitionModeSwitch")));
    EXPECT_EQ(mixer()->transitionMode(), 1);
    EXPECT_EQ(visible("transitionModeSwitch")["on"], true);
    EXPECT_EQ(visible("transitionDurationGroup")["hidden"], false);
    EXPECT_EQ(
        rows(),
        (Rows{{"heading", false}, {localized("Fade"), false}, {localized("Echo"), true}, {localized("Cut"), false}}));
    EXPECT_EQ(visible("transitionDurationLabel")["text"], "4s");
    EXPECT_TRUE(takeSent().empty()) << "the mode is the watch's own";

    expectOk(m_host->flip(visibleId("transitionModeSwitch")));
    EXPECT_EQ(mixer()->transitionMode(), 0);
    EXPECT_TRUE(rows().empty());
}

TEST_F(TransitionsScreenTest, NewTypesWaitForTheNextActivationButTheSelectionMovesAtOnce) {
    mixer()->setTransitionMode(1);
    openTransitions();
    EXPECT_EQ(visible("transitionDurationGroup")["hidden"], false);
    EXPECT_TRUE(rows().empty()) << "no types known yet: not even the heading";

    phoneWrites("mixerStatus", status("Cut", {Value("Fade"), Value("Cut")}));
    EXPECT_TRUE(rows().empty()) << "the offered types are not observed";
    reactivate();
    EXPECT_EQ(rows(), (Rows{{"heading", false}, {localized("Fade"), false}, {localized("Cut"), true}}));

    phoneWrites("mixerStatus", status("Brake", {Value("Fade"), Value("Cut")}));
    EXPECT_EQ(rows(), (Rows{{"heading", false}, {localized("Fade"), false}, {localized("Cut"), false}}))
        << "a type not listed";
    phoneWrites("mixerStatus", status(std::nullopt, {Value("Fade"), Value("Cut"), Value("Echo")}));
    EXPECT_EQ(rows().size(), 3u) << "a longer list recolours only the rows there are";
}

TEST_F(TransitionsScreenTest, SelectingARowSendsItsTypeAndTheHeadingIsNotARow) {
    mixer()->setTransitionMode(1);
    phoneWrites("mixerStatus", status("Fade", {Value("Fade"), Value("Echo"), Value("Cut")}));
    openTransitions();
    expectOk(m_host->selectRow(visibleId("table"), 2));
    EXPECT_EQ(takeSent(), std::vector<Value>{mixerAction(10, Dictionary{{"transitionType", Value("Echo")}})});
    EXPECT_EQ(rows()[1].second, true) << "the highlight waits for the phone";

    EXPECT_FALSE(m_host->selectRow(visibleId("table"), 0)) << "the heading is not selectable";
    const auto controller = std::dynamic_pointer_cast<VXAWTransitionsInterfaceController>(m_host->visibleController());
    ASSERT_TRUE(controller);
    auto table = std::dynamic_pointer_cast<watchkit::Table>(m_host->object(visibleId("table")));
    EXPECT_THROW(controller->tableDidSelectRowAtIndex(*table, 0), std::out_of_range);
    EXPECT_THROW(controller->tableDidSelectRowAtIndex(*table, 4), std::out_of_range);
    EXPECT_TRUE(takeSent().empty());

    tapAction("transitionDurationSelectNext");
    tapAction("transitionDurationSelectPrevious");
    EXPECT_EQ(takeSent(), (std::vector<Value>{mixerAction(8), mixerAction(9)}));
}

TEST_F(TransitionsScreenTest, AModeOtherThanZeroOrOneListsButCannotBeSwitched) {
    mixer()->setTransitionMode(2);
    phoneWrites("mixerStatus", status("Cut", {Value("Cut")}));
    openTransitions();
    EXPECT_EQ(visible("transitionModeSwitch")["on"], false) << "left as it was";
    EXPECT_EQ(rows(), (Rows{{"heading", false}, {localized("Cut"), true}}));
    expectOk(m_host->flip(visibleId("transitionModeSwitch")));
    EXPECT_EQ(mixer()->transitionMode(), 2);
}

TEST_F(TransitionsScreenTest, DurationsInSecondsWithOneFractionDigit) {
    mixer()->setTransitionMode(1);
    openTransitions();
    struct Row {
        double seconds;
        const char* english;
        const char* german;
    };
    const Row rows[] = {
        {0, "0s", "0s"},
        {4.0, "4s", "4s"},
        {2.5, "2.5s", "2,5s"},
        {12.25, "12.2s", "12,2s"},
        {12.35, "12.4s", "12,4s"},
        {1500, "1,500s", "1.500s"},
        {static_cast<double>(3.96f), "4s", "4s"},
    };
    for (const Row& row : rows) {
        mixer()->setTransitionDuration(row.seconds);
        EXPECT_EQ(visible("transitionDurationLabel")["text"], inLocale(row.english, row.german)) << row.seconds;
    }
}
