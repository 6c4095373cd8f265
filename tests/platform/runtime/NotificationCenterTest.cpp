#include "platform/runtime/NotificationCenter.h"

#include <string>

#include <gtest/gtest.h>

using namespace vexo::runtime;
using vexo::plist::Dictionary;
using vexo::plist::Value;

namespace {

// Distinct addresses to serve as observer and sender identities.
struct Identities {
    int a, b, c, senderOne, senderTwo;
};

} // namespace

TEST(NotificationCenterTest, DeliversInRegistrationOrderFilteredBySender) {
    NotificationCenter center;
    Identities id{};
    std::string heard;
    Notification last;
    center.addObserver(
        &id.a,
        [&](const Notification& notification) {
            heard += 'a';
            last = notification;
        },
        "changed");
    center.addObserver(
        &id.b, [&](const Notification&) { heard += 'b'; }, "changed", &id.senderOne);
    center.addObserver(
        &id.c, [&](const Notification&) { heard += 'c'; }, "changed", &id.senderTwo);
    center.addObserver(
        &id.c, [&](const Notification&) { heard += 'x'; }, "other");

    const struct {
        const void* sender;
        std::string expected;
    } rows[] = {{&id.senderOne, "ab"}, {&id.senderTwo, "ac"}, {nullptr, "a"}, {&id.a, "a"}};
    for (const auto& row : rows) {
        heard.clear();
        center.post("changed", row.sender, Value(Dictionary{{"identifier", Value("mixerStatus")}}));
        EXPECT_EQ(heard, row.expected);
        EXPECT_EQ(last.name, "changed");
        EXPECT_EQ(last.sender, row.sender);
        EXPECT_EQ(last.userInfo["identifier"], Value("mixerStatus"));
    }
}

TEST(NotificationCenterTest, RemovesForOneNameOrForAllNames) {
    NotificationCenter center;
    Identities id{};
    std::string heard;
    for (const char* name : {"one", "two"}) {
        center.addObserver(
            &id.a, [&heard, name](const Notification&) { heard += std::string("a-") + name + ' '; }, name);
        center.addObserver(
            &id.b, [&heard, name](const Notification&) { heard += std::string("b-") + name + ' '; }, name);
    }
    center.addObserver(
        &id.b, [&](const Notification&) { heard += "b-again "; }, "two");
    center.removeObserver(&id.a, "one");
    center.post("one");
    center.post("two");
    EXPECT_EQ(heard, "b-one a-two b-two b-again ") << "a second registration is a second delivery";

    heard.clear();
    center.removeObserver(&id.b);
    center.post("one");
    center.post("two");
    EXPECT_EQ(heard, "a-two ");
}

TEST(NotificationCenterTest, HandlersMayRemoveAddAndPostDuringDelivery) {
    NotificationCenter center;
    Identities id{};
    std::string heard;
    center.addObserver(
        &id.a,
        [&](const Notification&) {
            heard += "a ";
            center.removeObserver(&id.a);         // itself
            center.removeObserver(&id.b, "name"); // a later observer of this delivery
            center.addObserver(
                &id.c, [&](const Notification&) { heard += "c "; }, "name");
            center.post("nested");
        },
        "name");
    center.addObserver(
        &id.b, [&](const Notification&) { heard += "b "; }, "name");
    center.addObserver(
        &id.b, [&](const Notification&) { heard += "nested "; }, "nested");

    center.post("name");
    EXPECT_EQ(heard, "a nested ") << "b was removed, c was added after the delivery began";
    heard.clear();
    center.post("name");
    EXPECT_EQ(heard, "c ");
}
