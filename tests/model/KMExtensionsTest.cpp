#include "model/KMExtensions.h"

#include <limits>

#include <gtest/gtest.h>

using vexo::model::KMExtensions;
using vexo::plist::Value;

TEST(KMExtensionsTest, NumbersBecomeUpperCaseHexadecimalText) {
    const std::pair<Value, std::optional<std::string>> rows[] = {
        {Value(std::numeric_limits<std::uint64_t>::max()), "FFFFFFFFFFFFFFFF"},
        {Value(10), "A"},
        {Value(43794), "AB12"},
        {Value(0), "0"},
        {Value(-1), "FFFFFFFFFFFFFFFF"},
        {Value(), std::nullopt},
    };
    for (const auto& [number, text] : rows)
        EXPECT_EQ(KMExtensions::persistentIDStringForNumber(number), text);
}

TEST(KMExtensionsTest, TextIsScannedAsHexadecimal) {
    const std::pair<std::optional<std::string>, Value> rows[] = {
        {"AB12", Value(43794)},
        {"ab12xyz", Value(43794)},
        {"0x1F", Value(31)},
        {"  ff", Value(255)},
        {"FFFFFFFFFFFFFFFF", Value(std::numeric_limits<std::uint64_t>::max())},
        {"123456789ABCDEF012", Value(std::numeric_limits<std::uint64_t>::max())},
        {"zz", Value()},
        {"xyz", Value()},
        {"", Value()},
        {std::nullopt, Value()},
    };
    for (const auto& [text, number] : rows)
        EXPECT_EQ(KMExtensions::persistentIDNumberForString(text), number) << text.value_or("(nothing)");
    // Text and number round-trip for the largest identifier.
    const auto largest = Value(std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(KMExtensions::persistentIDNumberForString(KMExtensions::persistentIDStringForNumber(largest)), largest);
}
