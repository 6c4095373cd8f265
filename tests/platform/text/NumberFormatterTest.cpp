#include "platform/text/NumberFormatter.h"

#include <cmath>
#include <string>

#include <gtest/gtest.h>

namespace vexo::text {
namespace {

TEST(NumberFormatterTest, OneFractionDigitHalfToEvenWithTheLocalesMarks) {
    struct Case {
        const char* locale;
        double value;
        std::string expected;
    };
    std::vector<Case> cases = {
        {"en_US", 4, "4"},          {"en_US", 2.5, "2.5"},    {"en_US", 12.25, "12.2"}, // a tie, to the even digit
        {"en_US", 12.75, "12.8"},                                                       // a tie, to the even digit
        {"en_US", 3.96, "4"},       {"en_US", 0, "0"},        {"en_US", 0.04, "0"},
        {"en_US", 7.5, "7.5"},      {"en_US", 1500, "1,500"}, {"en_US", 1234567.89, "1,234,567.9"},
        {"en_US", -2.25, "-2.2"},   {"en", 8, "8"},           {"de_DE", 2.5, "2,5"},
        {"de_DE", 12.25, "12,2"},   {"de_DE", 1500, "1.500"}, {"de_DE", 4, "4"},
        {"de", 1234.56, "1.234,6"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(NumberFormatter(c.locale).format(c.value), c.expected) << c.locale << " " << c.value;
}

TEST(NumberFormatterTest, OddValuesAndLocalesStillGiveText) {
    NumberFormatter english("en_US");
    EXPECT_EQ(english.format(std::nan("")), "NaN");
    EXPECT_EQ(english.format(INFINITY), "\u221E");
    EXPECT_EQ(NumberFormatter("en_US", 0).format(2.5), "2");
    EXPECT_EQ(NumberFormatter("en_US", 3).format(1.23456), "1.235");
    // An unknown locale formats like ICU's root: a dot, no failure.
    EXPECT_EQ(NumberFormatter("zz_QQ").format(2.5), "2.5");

    NumberFormatter moved = std::move(english);
    EXPECT_EQ(moved.format(1.5), "1.5");
}

} // namespace
} // namespace vexo::text
