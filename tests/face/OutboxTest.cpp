#include "face/Outbox.h"

#include <gtest/gtest.h>

using vexo::face::Outbox;

namespace {

Outbox::Message text(std::size_t size) {
    return std::make_shared<const std::string>(size, 'x');
}

} // namespace

TEST(OutboxTest, RefusesWhatWouldPassEitherBound) {
    const struct {
        const char* what;
        Outbox::Limits limits;
        std::vector<std::size_t> sizes;
        std::vector<bool> taken;
    } cases[] = {
        {"count bound", {2, 1000}, {1, 1, 1}, {true, true, false}},
        {"byte bound", {10, 100}, {60, 40, 1}, {true, true, false}},
        {"a large message into an empty outbox", {10, 100}, {500, 1}, {true, false}},
        {"a large message behind another", {10, 100}, {1, 500, 99}, {true, false, true}},
    };
    for (const auto& row : cases) {
        Outbox outbox(row.limits);
        for (std::size_t i = 0; i < row.sizes.size(); ++i)
            EXPECT_EQ(outbox.push(text(row.sizes[i])), row.taken[i]) << row.what << ", message " << i;
    }
}

TEST(OutboxTest, SendingMakesRoomAgain) {
    Outbox outbox({3, 100});
    ASSERT_TRUE(outbox.push(text(50)));
    ASSERT_TRUE(outbox.push(text(50)));
    EXPECT_FALSE(outbox.push(text(1)));
    EXPECT_EQ(outbox.front()->size(), 50u);
    outbox.pop();
    EXPECT_EQ(outbox.bytes(), 50u);
    EXPECT_TRUE(outbox.push(text(50)));
    outbox.pop();
    outbox.pop();
    EXPECT_TRUE(outbox.empty());
    EXPECT_EQ(outbox.bytes(), 0u);
}
