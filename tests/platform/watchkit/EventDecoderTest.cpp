#include "platform/watchkit/EventDecoder.h"

#include <gtest/gtest.h>

#include "TestInterface.h"

using namespace vexo::watchkit;
using json = nlohmann::json;

TEST(EventDecoderTest, ReadsEventsAndSaysWhyOthersAreNone) {
    const struct {
        json event;
        std::size_t alternative; // index in input::Event when read
        std::string error;       // "type: reason" when not
    } rows[] = {
        {{{"type", "tap"}, {"object", "page-0.1"}}, 0, ""},
        {{{"type", "selectRow"}, {"object", "t"}, {"row", 2}}, 1, ""},
        {{{"type", "slide"}, {"object", "s"}, {"step", -3}}, 2, ""},
        {{{"type", "flip"}, {"object", "s"}, {"on", false}}, 3, ""},
        {{{"type", "swipe"}, {"direction", "right"}}, 4, ""},
        {{{"type", "pickMenuItem"}, {"index", 0}}, 6, ""},
        {{{"type", "hideGlance"}}, 10, ""},
        {{{"type", "notificationAction"}, {"identifier", "load"}, {"userInfo", nullptr}}, 11, ""},
        {json::array(), 0, "event: an event is a JSON object with a \"type\""},
        {{{"type", 3}}, 0, "event: an event is a JSON object with a \"type\""},
        {{{"type", "fly"}}, 0, "event: unknown type 'fly'"},
        {{{"type", "tap"}}, 0, "tap: needs \"object\" as a string"},
        {{{"type", "tap"}, {"object", "x"}, {"id", 1}}, 0, "tap: unknown field 'id'"},
        {{{"type", "selectRow"}, {"object", "t"}, {"row", -1}},
         0,
         "selectRow: needs \"row\" as a whole number of at least 0"},
        {{{"type", "slide"}, {"object", "s"}, {"step", 1001}}, 0, "slide: needs \"step\" as a whole number of steps"},
        {{{"type", "slide"}, {"object", "s"}, {"value", 1}, {"step", 1}},
         0,
         "slide: needs either \"value\" or \"step\""},
        {{{"type", "swipe"}, {"direction", "up"}},
         0,
         "swipe: needs \"page\", or \"direction\" as \"left\" or \"right\""},
        {{{"type", "openMenu"}, {"now", true}}, 0, "openMenu: unknown field 'now'"},
        {{{"type", "notificationAction"}, {"identifier", "x"}, {"userInfo", {{"$data", "!"}}}},
         0,
         "notificationAction: needs \"userInfo\" as an object: \"$data\" must hold base64 text"},
    };
    for (const auto& row : rows) {
        EventDecoder::Result result = EventDecoder::decode(row.event);
        if (row.error.empty()) {
            ASSERT_TRUE(result.event) << row.event.dump() << ": " << result.error;
            EXPECT_EQ(result.event->index(), row.alternative) << row.event.dump();
        } else {
            EXPECT_FALSE(result.event) << row.event.dump();
            EXPECT_EQ(result.type + ": " + result.error, row.error);
        }
    }
}

TEST(EventDecoderTest, TheHostTellsMalformedEventsFromRefusedOnes) {
    vexo::watchkit::testing::TestApplication app;
    ASSERT_TRUE(app.host->start().ok());
    const struct {
        json event;
        bool ok;
        bool malformed;
    } rows[] = {
        {{{"type", "swipe"}, {"page", 1}}, true, false},
        {{{"type", "swipe"}, {"page", 9}}, false, false},
        {{{"type", "tap"}, {"object", "nowhere"}}, false, false},
        {{{"type", "closeModal"}}, false, false},
        {{{"type", "swipe"}}, false, true},
        {{{"type", "nothing"}}, false, true},
    };
    for (const auto& row : rows) {
        EventResult result = app.host->handleEvent(row.event);
        EXPECT_EQ(result.ok(), row.ok) << row.event.dump();
        EXPECT_EQ(result.isMalformed(), row.malformed) << row.event.dump();
    }
}
