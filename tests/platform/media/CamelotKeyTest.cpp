#include "platform/media/CamelotKey.h"

#include <gtest/gtest.h>

namespace vexo::media {
namespace {

TEST(CamelotKeyTest, EveryKeyHasItsPlaceOnTheWheel) {
    struct Row {
        int pitchClass;
        bool minor;
        const char* expected;
    };
    const Row rows[] = {
        {0, false, "8B"}, {7, false, "9B"}, {5, false, "7B"}, {11, false, "1B"}, {6, false, "2B"},  {9, true, "8A"},
        {4, true, "9A"},  {2, true, "7A"},  {8, true, "1A"},  {0, true, "5A"},   {12, false, "8B"}, {-3, true, "8A"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(camelotKey(row.pitchClass, row.minor), row.expected) << row.pitchClass << " " << row.minor;
}

TEST(CamelotKeyTest, TagNotationsBecomeCamelot) {
    struct Row {
        const char* tag;
        std::optional<std::string> expected;
    };
    const Row rows[] = {
        {"8A", "8A"},         {"08b", "8B"},       {" 12A ", "12A"},      {"1m", "8A"},         {"1d", "8B"},
        {"6m", "1A"},         {"Am", "8A"},        {"A minor", "8A"},     {"C", "8B"},          {"C major", "8B"},
        {"F#", "2B"},         {"Gb major", "2B"},  {"Bbm", "3A"},         {"C#min", "12A"},     {"Eb maj", "5B"},
        {"ab", "4B"},         {"B", "1B"},         {"", std::nullopt},    {"o", std::nullopt},  {"13A", std::nullopt},
        {"0B", std::nullopt}, {"H", std::nullopt}, {"Am7", std::nullopt}, {"8C", std::nullopt},
    };
    for (const Row& row : rows)
        EXPECT_EQ(camelotKeyFromTag(row.tag), row.expected) << '"' << row.tag << '"';
}

} // namespace
} // namespace vexo::media
