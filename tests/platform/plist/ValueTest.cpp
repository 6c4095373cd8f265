#include "platform/plist/Value.h"

#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "platform/plist/NumericText.h"

using namespace vexo::plist;

namespace {

constexpr auto kInt64Max = std::numeric_limits<std::int64_t>::max();
constexpr auto kInt64Min = std::numeric_limits<std::int64_t>::min();
constexpr auto kUInt64Max = std::numeric_limits<std::uint64_t>::max();

struct ConversionRow {
    Value input;
    std::int64_t integer;
    std::uint64_t unsignedValue;
    double real;
    bool boolean;
};

} // namespace

TEST(ValueTest, ConvertsNumbersAndStringsAsThePlatformDoes) {
    const ConversionRow rows[] = {
        {Value("245"), 245, 245, 245, true},
        {Value("  -12abc"), -12, static_cast<std::uint64_t>(-12), -12, true},
        {Value("+7"), 7, 7, 7, true},
        {Value("\t 3.75 BPM"), 3, 3, 3.75, true},
        {Value(".5"), 0, 0, 0.5, false},
        {Value("1e3"), 1, 1, 1000, true},
        {Value("abc"), 0, 0, 0, false},
        {Value(""), 0, 0, 0, false},
        {Value("99999999999999999999"), kInt64Max, kUInt64Max, 1e20, true},
        {Value("-99999999999999999999"), kInt64Min, static_cast<std::uint64_t>(kInt64Min), -1e20, true},
        {Value("YES"), 0, 0, 0, true},
        {Value("no"), 0, 0, 0, false},
        {Value("true"), 0, 0, 0, true},
        {Value("000"), 0, 0, 0, false},
        {Value("-0009"), -9, static_cast<std::uint64_t>(-9), -9, true},
        {Value(245), 245, 245, 245, true},
        {Value(-1), -1, kUInt64Max, -1, true},
        {Value(kUInt64Max), -1, kUInt64Max, 18446744073709551615.0, true},
        {Value(2.9), 2, 2, 2.9, true},
        {Value(-2.9), -2, static_cast<std::uint64_t>(-2), -2.9, true},
        {Value(0.25), 0, 0, 0.25, true},
        {Value(1e300), kInt64Max, kUInt64Max, 1e300, true},
        {Value(true), 1, 1, 1, true},
        {Value(false), 0, 0, 0, false},
        {Value(), 0, 0, 0, false},
        {Value(Data{1, 2}), 0, 0, 0, false},
        {Value(Array{Value(1)}), 0, 0, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "input type " << static_cast<int>(row.input.type()) << " string "
                                        << row.input.stringValue().value_or("-"));
        EXPECT_EQ(row.input.integerValue(), row.integer);
        EXPECT_EQ(row.input.unsignedLongLongValue(), row.unsignedValue);
        EXPECT_DOUBLE_EQ(row.input.doubleValue(), row.real);
        EXPECT_EQ(row.input.boolValue(), row.boolean);
    }
}

TEST(ValueTest, SinglePrecisionKeepsTheFloatsExactValue) {
    EXPECT_EQ(Value(0.1f).doubleValue(), 0.10000000149011612);
    EXPECT_TRUE(Value(0.1f).asReal()->isSinglePrecision);
    // Reading as float and widening is what the models do with fractional values.
    EXPECT_EQ(static_cast<double>(Value(0.1).floatValue()), 0.10000000149011612);
    EXPECT_EQ(static_cast<double>(Value("0.1").floatValue()), 0.10000000149011612);
}

TEST(ValueTest, MissingKeysReadAsZeroFalseAndNothing) {
    const Value message(Dictionary{{"volume", Value(0.5)}, {"name", Value("Intro")}});
    EXPECT_TRUE(message["absent"].isNull());
    EXPECT_EQ(message["absent"].integerValue(), 0);
    EXPECT_FALSE(message["absent"].boolValue());
    EXPECT_EQ(message["absent"].stringValue(), std::nullopt);
    EXPECT_EQ(message["absent"].arrayValue(), std::nullopt);
    EXPECT_TRUE(message["name"]["nested"].isNull());
    EXPECT_TRUE(Value("text")[std::size_t{0}].isNull());
    EXPECT_EQ(message["volume"].floatValue(), 0.5f);
}

TEST(ValueTest, DescribesNumbersAsStrings) {
    const std::pair<Value, std::string> rows[] = {
        {Value(245), "245"}, {Value(-3), "-3"},    {Value(kUInt64Max), "18446744073709551615"},
        {Value(0.5), "0.5"}, {Value(0.1f), "0.1"}, {Value(2.0), "2"},
        {Value(true), "1"},  {Value(false), "0"},  {Value("as is"), "as is"},
    };
    for (const auto& [value, expected] : rows)
        EXPECT_EQ(value.stringValue(), expected);
    EXPECT_EQ(Value(Data{}).stringValue(), std::nullopt);
    EXPECT_EQ(Value(Date{0}).stringValue(), std::nullopt);
}

TEST(ValueTest, UnsignedValuesInTheSignedRangeEqualSignedOnes) {
    EXPECT_EQ(Value(5u), Value(5));
    EXPECT_EQ(Value(std::uint64_t{1} << 62), Value(std::int64_t{1} << 62));
    EXPECT_NE(Value(kUInt64Max), Value(-1));
    EXPECT_TRUE(Value(kUInt64Max).asInteger()->isUnsigned);
}

TEST(ValueTest, UnknownObjectsReadAsNothing) {
    const Value url = Value::unknownObject("NSURL");
    EXPECT_TRUE(url.isNull());
    EXPECT_EQ(*url.archivedClassName(), "NSURL");
    EXPECT_EQ(url, Value());
    EXPECT_EQ(Value().archivedClassName(), nullptr);
}

TEST(NumericTextTest, ScansHexadecimalLikeThePlatformScanner) {
    const std::pair<const char*, std::optional<std::uint64_t>> rows[] = {
        {"AB12", 43794},
        {"ab12xyz", 43794},
        {"0x1F", 31},
        {"0X1f", 31},
        {"  ff", 255},
        {"0", 0},
        {"0xzz", 0},
        {"FFFFFFFFFFFFFFFF", kUInt64Max},
        {"1FFFFFFFFFFFFFFFF", kUInt64Max},
        {"", std::nullopt},
        {"xyz", std::nullopt},
        {"zz", std::nullopt},
        {"-1", std::nullopt},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(text::scanHexUnsigned(text), expected) << text;
}
