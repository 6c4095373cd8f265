#include "platform/watchkit/EventDecoder.h"

#include <optional>

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
        vexo::Expected<input::Event> event = EventDecoder::decode(row.event);
        if (row.error.empty()) {
            ASSERT_TRUE(event) << row.event.dump() << ": " << event.error().message();
            EXPECT_EQ(event->index(), row.alternative) << row.event.dump();
        } else {
            ASSERT_FALSE(event) << row.event.dump();
            EXPECT_EQ(event.error(), vexo::Error(vexo::ErrorKind::InvalidData, row.error));
        }
    }
}

TEST(EventDecoderTest, TheHostTellsMalformedEventsFromRefusedOnes) {
    vexo::watchkit::testing::TestApplication app;
    ASSERT_TRUE(app.host->start());
    const struct {
        json event;
        std::optional<vexo::ErrorKind> refusal;
    } rows[] = {
        {{{"type", "swipe"}, {"page", 1}}, std::nullopt},
        {{{"type", "swipe"}, {"page", 9}}, vexo::ErrorKind::Unavailable},
        {{{"type", "tap"}, {"object", "nowhere"}}, vexo::ErrorKind::Unavailable},
        {{{"type", "closeModal"}}, vexo::ErrorKind::Unavailable},
        {{{"type", "swipe"}}, vexo::ErrorKind::InvalidData},
        {{{"type", "nothing"}}, vexo::ErrorKind::InvalidData},
    };
    for (const auto& row : rows) {
        EventResult result = app.host->handleEvent(row.event);
        EXPECT_EQ(result ? std::nullopt : std::optional(result.error().kind()), row.refusal) << row.event.dump();
    }
}
