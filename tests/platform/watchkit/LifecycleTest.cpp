#include <gtest/gtest.h>

#include "TestInterface.h"

using namespace vexo::watchkit;
using namespace vexo::watchkit::testing;
using Calls = std::vector<std::string>;
namespace plist = vexo::plist;

namespace {

plist::Value deck(int number) {
    return plist::Value(plist::Dictionary{{"turntable", plist::Value(number)}});
}

} // namespace

TEST(LifecycleTest, PagesModalsAndTheGlanceFollowThePlatformOrder) {
    TestApplication app;
    // Each step is one thing the user does; the log is what the controllers heard, in order.
    const struct {
        const char* step;
        std::function<EventResult()> act;
        Calls expected;
    } steps[] = {
        {"start",
         [&] { return app.host->start(); },
         {"init", "left.awake", "init", "middle.awake", "init", "right.awake", "left.willActivate"}},
        {"swipe to the last page",
         [&] { return app.host->swipeToPage(2); },
         {"left.didDeactivate", "right.willActivate"}},
        {"swipe to where we are", [&] { return app.host->swipeToPage(2); }, {}},
        {"open the picker",
         [&] { return app.host->tap(app.visibleId("openButton")); },
         {"right.open", "right.open returns", "init", "picker.awake", "right.didDeactivate", "picker.willActivate"}},
        {"choose a row: the detail over the picker",
         [&] { return app.host->selectRow(app.visibleId("table"), 2); },
         {"picker.select 2", "init", "detail.awake", "picker.didDeactivate", "detail.willActivate"}},
        {"finish: the detail closes itself, then the picker",
         [&] { return app.host->tap(app.buttonTitled("Finish")); },
         {"detail.finish", "detail.didDeactivate", "picker.willActivate", "picker.didDeactivate",
          "right.willActivate"}},
        {"show the glance over the application",
         [&] { return app.host->showGlance(); },
         {"init", "glance.awake", "right.didDeactivate", "glance.willActivate"}},
        {"hide it", [&] { return app.host->hideGlance(); }, {"glance.didDeactivate", "right.willActivate"}},
        {"show it again: the same glance controller",
         [&] { return app.host->showGlance(); },
         {"right.didDeactivate", "glance.willActivate"}},
        {"a notification action brings the application back; the first page handles it",
         [&] { return app.host->deliverNotificationAction("load", deck(2)); },
         {"glance.didDeactivate", "right.willActivate", "left.handleAction load 2"}},
        {"the close control of a modal",
         [&] {
             (void)app.host->tap(app.visibleId("openButton"));
             app.log.take();
             return app.host->closeModal();
         },
         {"picker.didDeactivate", "right.willActivate"}},
    };
    for (const auto& step : steps) {
        app.log.take();
        EventResult result = step.act();
        EXPECT_TRUE(result) << step.step << ": " << result.error().message();
        EXPECT_EQ(app.log.take(), step.expected) << step.step;
    }
    EXPECT_TRUE(app.host->modalControllers().empty());
    EXPECT_EQ(app.host->currentPage(), 2u);
}

TEST(LifecycleTest, NotificationActionsGoToTheFirstPageAndStartTheApplication) {
    TestApplication app;
    EXPECT_TRUE(app.host->deliverNotificationAction("load", deck(1)));
    EXPECT_EQ(app.log.take(), (Calls{"init", "left.awake", "init", "middle.awake", "init", "right.awake",
                                     "left.willActivate", "left.handleAction load 1"}));

    // The handler asks another page to come forward, as a deck page does for its deck: done
    // after the handler returns.
    auto right = app.page<PageController>(2);
    app.page<PageController>(0)->onAction = [&](const std::string&) {
        right->becomeCurrentPage();
        app.log.calls.push_back("handler returns");
    };
    EXPECT_TRUE(app.host->deliverNotificationAction("load", plist::Value()));
    EXPECT_EQ(app.log.take(),
              (Calls{"left.handleAction load -", "handler returns", "left.didDeactivate", "right.willActivate"}));
}

TEST(LifecycleTest, NavigationFromOutsideACallbackWaitsForTheNextTurn) {
    TestApplication app;
    ASSERT_TRUE(app.host->start());
    app.log.take();

    // As from a timer: the caller may still be running code of a controller we would release.
    app.page<PageController>(1)->becomeCurrentPage();
    app.page<PageController>(1)->presentControllerWithName("picker");
    EXPECT_TRUE(app.log.take().empty());
    app.loop.runUntilIdle();
    EXPECT_EQ(app.log.take(), (Calls{"left.didDeactivate", "middle.willActivate", "init", "picker.awake",
                                     "middle.didDeactivate", "picker.willActivate"}));

    // A modal under another dismisses what is over it too; only the top one was active.
    ASSERT_TRUE(app.host->selectRow(app.visibleId("table"), 1));
    auto picker = app.host->modalControllers().front();
    app.log.take();
    picker->dismissController();
    app.loop.runUntilIdle();
    EXPECT_EQ(app.log.take(), (Calls{"detail.didDeactivate", "middle.willActivate"}));
    EXPECT_TRUE(app.host->modalControllers().empty());

    // Once off screen, a controller's navigation does nothing; nor do unknown names.
    picker->presentControllerWithName("detail");
    picker->dismissController();
    app.page<PageController>(1)->presentControllerWithName("nowhere");
    app.page<PageController>(1)->dismissController(); // a page is no modal
    app.loop.runUntilIdle();
    EXPECT_TRUE(app.log.take().empty());
    EXPECT_EQ(app.host->visibleController(), app.host->pageController(1));
}

TEST(LifecycleTest, BecomeCurrentPageUnderAModalChangesThePageWithoutCalls) {
    TestApplication app;
    ASSERT_TRUE(app.host->start());
    ASSERT_TRUE(app.host->tap(app.visibleId("openButton")));
    app.log.take();
    app.page<PageController>(2)->becomeCurrentPage();
    app.loop.runUntilIdle();
    EXPECT_TRUE(app.log.take().empty()) << "the pages are covered";
    EXPECT_EQ(app.host->currentPage(), 2u);
    ASSERT_TRUE(app.host->closeModal());
    EXPECT_EQ(app.log.take(), (Calls{"picker.didDeactivate", "right.willActivate"}));
}

TEST(LifecycleTest, AControllerThatThrowsFailsTheEventNotTheHost) {
    TestApplication app;
    ASSERT_TRUE(app.host->start());
    ASSERT_TRUE(app.host->tap(app.visibleId("openButton")));
    ASSERT_TRUE(app.host->selectRow(app.visibleId("table"), 1));
    std::string fail = app.buttonTitled("Fail");
    EventResult result = app.host->tap(fail);
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().message().find("fail of 'detail' threw: index 0 beyond bounds"), std::string::npos)
        << result.error().message();
    app.log.take();
    EXPECT_TRUE(app.host->closeModal());
    EXPECT_EQ(app.log.take(), (Calls{"detail.didDeactivate", "picker.willActivate"}));
}

TEST(LifecycleTest, StartIsRefusedWhenAPageCannotBeMade) {
    CallLog log;
    vexo::runtime::DeterministicRunLoop loop;
    ControllerRegistry registry;
    registerTestClasses(registry, log);
    vexo::Expected<InterfaceLayout> loaded = LayoutLoader::parse(testLayoutText(), "test.json", registry);
    ASSERT_TRUE(loaded) << loaded.error().message();
    loaded->controllers["right"].className = "Ghost";
    ExtensionHost host(loop, registry, std::move(*loaded));
    EventResult result = host.start();
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().message().find("class Ghost is not registered"), std::string::npos)
        << result.error().message();
    EXPECT_FALSE(host.isStarted());
    EXPECT_EQ(host.pageCount(), 0u);
    EXPECT_EQ(host.visibleController(), nullptr);
}
