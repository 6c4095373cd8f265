#include <gtest/gtest.h>

#include "TestInterface.h"
#include "support/WatchSnapshot.h"

using namespace vexo::watchkit;
using namespace vexo::watchkit::testing;
using nlohmann::json;
using vexo::testing::findByOutlet;

// One session as a browser would drive it, through JSON events only, reading what it needs
// from snapshots and change batches.
TEST(SessionTest, PagesModalsMenuGlanceAndNotificationInOneSession) {
    TestApplication app;
    json latest;
    int batches = 0;
    app.host->subscribe([&](const json& batch) {
        latest = batch;
        ++batches;
    });
    EXPECT_EQ(app.page<PageController>(0), nullptr) << "not made before start";
    ASSERT_TRUE(app.host->start());
    app.page<PageController>(0)->onAction = [&](const std::string& identifier) {
        if (identifier == "load")
            app.page<PageController>(2)->becomeCurrentPage();
    };

    auto send = [&](json event) {
        EventResult result = app.host->handleEvent(event);
        EXPECT_TRUE(result) << event.dump() << ": " << result.error().message();
        app.loop.runUntilIdle();
    };
    auto visibleScreen = [&] {
        json snapshot = app.host->snapshot();
        for (const char* list : {"modals", "pages"}) {
            for (const auto& screen : snapshot[list])
                if (screen["id"] == snapshot["visibleScreen"])
                    return screen;
        }
        return json();
    };
    auto idOf = [&](std::string_view outlet) { return findByOutlet(visibleScreen(), outlet)["id"].get<std::string>(); };

    send({{"type", "swipe"}, {"direction", "left"}});
    EXPECT_EQ(visibleScreen()["controller"], "middle");
    send({{"type", "tap"}, {"object", idOf("openButton")}});
    json picker = visibleScreen();
    EXPECT_EQ(picker["controller"], "picker");
    EXPECT_EQ(findByOutlet(picker, "titleLabel")["text"], "middle: record");
    send({{"type", "flip"}, {"object", idOf("toggle")}});
    send({{"type", "slide"}, {"object", idOf("slider")}, {"step", -2}});
    send({{"type", "tap"},
          {"object", findByOutlet(findByOutlet(visibleScreen(), "table")["rows"][1], "starButton")["id"]}});
    send({{"type", "selectRow"}, {"object", idOf("table")}, {"row", 2}});
    EXPECT_EQ(findByOutlet(visibleScreen(), "nameLabel")["text"], "item 2");

    // The glance comes and goes over the detail screen.
    send({{"type", "showGlance"}});
    EXPECT_EQ(app.host->snapshot()["visibleScreen"], "glance");
    EXPECT_EQ(latest["changes"][0]["active"], "glance");
    send({{"type", "hideGlance"}});

    json finish = vexo::testing::findObject(visibleScreen(), "title", "Finish");
    send({{"type", "tap"}, {"object", finish["id"]}});
    EXPECT_EQ(app.host->snapshot()["modals"], json::array());
    send({{"type", "openMenu"}});
    EXPECT_EQ(visibleScreen()["menu"]["open"], true);
    send({{"type", "pickMenuItem"}, {"index", 0}});
    send({{"type", "notificationAction"}, {"identifier", "load"}, {"userInfo", {{"turntable", 2}}}});

    EXPECT_EQ(app.log.calls, (std::vector<std::string>{"init",
                                                       "left.awake",
                                                       "init",
                                                       "middle.awake",
                                                       "init",
                                                       "right.awake",
                                                       "left.willActivate",
                                                       "left.didDeactivate",
                                                       "middle.willActivate",
                                                       "middle.open",
                                                       "middle.open returns",
                                                       "init",
                                                       "picker.awake",
                                                       "middle.didDeactivate",
                                                       "picker.willActivate",
                                                       "picker.toggle on",
                                                       "picker.slide 0.00",
                                                       "row.star item 1",
                                                       "picker.select 2",
                                                       "init",
                                                       "detail.awake",
                                                       "picker.didDeactivate",
                                                       "detail.willActivate",
                                                       "init",
                                                       "glance.awake",
                                                       "detail.didDeactivate",
                                                       "glance.willActivate",
                                                       "glance.didDeactivate",
                                                       "detail.willActivate",
                                                       "detail.finish",
                                                       "detail.didDeactivate",
                                                       "picker.willActivate",
                                                       "picker.didDeactivate",
                                                       "middle.willActivate",
                                                       "middle.menuPicked",
                                                       "left.handleAction load 2",
                                                       "middle.didDeactivate",
                                                       "right.willActivate"}));

    json snapshot = app.host->snapshot();
    EXPECT_EQ(snapshot["currentPage"], 2);
    EXPECT_EQ(snapshot["visibleScreen"], "page-2");
    std::vector<bool> active;
    for (const auto& page : snapshot["pages"])
        active.push_back(page["active"]);
    EXPECT_EQ(active, (std::vector<bool>{false, false, true}));
    EXPECT_EQ(snapshot["glance"]["visible"], false);
    EXPECT_EQ(snapshot["glance"]["screen"]["active"], false);
    EXPECT_EQ(findByOutlet(snapshot["glance"]["screen"], "titleLabel")["text"], "glance");
    EXPECT_EQ(findByOutlet(snapshot["pages"][1], "titleLabel")["text"], "middle");
    EXPECT_EQ(snapshot["pages"][1]["menu"]["open"], false);
    EXPECT_EQ(snapshot["revision"], batches) << "the snapshot knows the last batch";
    EXPECT_EQ(latest["changes"][0]["visibleScreen"], "page-2");
    EXPECT_EQ(latest["changes"][0]["currentPage"], 2);
}
