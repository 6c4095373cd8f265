#include "platform/text/StringTable.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace vexo::text {
namespace {

TEST(StringTableTest, ParsesTheStringsFormat) {
    struct Case {
        std::string name;
        std::string text;
        std::string key;
        std::string value;
    };
    std::vector<Case> cases = {
        {"plain", R"("Manual" = "Manuell";)", "Manual", "Manuell"},
        {"comments around", "/* a\n comment */ \"a\" // note\n = /* x */ \"b\" ; // end", "a", "b"},
        {"shorthand", R"("Echo";)", "Echo", "Echo"},
        {"bare words", "Key_1 = value.2;", "Key_1", "value.2"},
        {"escapes", R"("q" = "say \"hi\"\\\n\t";)", "q", "say \"hi\"\\\n\t"},
        {"unicode escape", R"("u" = "\U00dcber \u20AC";)", "u",
         "\xC3\x9C"
         "ber \xE2\x82\xAC"},
        {"surrogate pair", R"("e" = "\UD83C\UDFB5";)", "e", "\xF0\x9F\x8E\xB5"},
        {"octal", R"("o" = "\101\102";)", "o", "AB"},
        {"utf-8 as is",
         "\"Fade\" = \"\xC3\x9C"
         "berblenden\";",
         "Fade",
         "\xC3\x9C"
         "berblenden"},
        {"byte-order mark", "\xEF\xBB\xBF\"a\" = \"b\";", "a", "b"},
        {"last one wins", R"("a" = "1"; "a" = "2";)", "a", "2"},
        {"empty value", R"("a" = "";)", "a", ""},
        {"key with spaces", R"("Automix On" = "Automix an";)", "Automix On", "Automix an"},
    };
    for (const Case& c : cases) {
        Expected<StringTable> table = StringTable::parse(c.text);
        ASSERT_TRUE(table) << c.name << ": " << table.error().message();
        const std::string* value = table->find(c.key);
        ASSERT_NE(value, nullptr) << c.name;
        EXPECT_EQ(*value, c.value) << c.name;
    }
    auto empty = StringTable::parse("  /* nothing */\n// at all\n");
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->size(), 0u);
}

TEST(StringTableTest, RejectsMalformedTextWithTheLine) {
    struct Case {
        std::string text;
        std::string error;
    };
    std::vector<Case> cases = {
        {"\"a\" = \"b\"", "line 1: expected ';' after the value"},
        {"\"a\" = \"b\";\n\"c\" \"d\";", "line 2: expected '=' after the key"},
        {"\"a\" = \"b;\n\n", "line 3: string is not closed"},
        {"/* open\n\"a\" = \"b\";", "line 1: comment is not closed"},
        {"\n\n\"a\" = ;", "line 3: expected a quoted string"},
        {"\"a\" =", "line 1: expected a value after '='"},
        {"= \"b\";", "line 1: expected a quoted string"},
        {R"("a" = "\UD83C";)", "line 1: unpaired UTF-16 surrogate"},
        {R"("a" = "\U12";)", "line 1: \\U needs four hexadecimal digits"},
        {R"("a" = "\0";)", "line 1: NUL in a string"},
        {"\"a\" = \"\xC3\";", "not valid UTF-8"},
        {"\"a\" = \"\xED\xA0\x80\";", "not valid UTF-8"},
        {std::string("\"a\" = \"\0\";", 9), "NUL in the text"},
    };
    for (const Case& c : cases) {
        Expected<StringTable> table = StringTable::parse(c.text);
        ASSERT_FALSE(table) << c.text;
        EXPECT_EQ(table.error(), Error(ErrorKind::InvalidData, c.error)) << c.text;
    }
}

TEST(StringTableTest, LoadSaysWhyAFileIsNotUsed) {
    const std::filesystem::path folder = std::filesystem::path(::testing::TempDir()) / "string-table-load";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "large.strings") << std::string((1u << 20) + 1, ' ');
    std::ofstream(folder / "broken.strings") << "\"a\" = \"b\"";
    std::ofstream(folder / "good.strings") << "\"a\" = \"b\";";
    const struct {
        std::string file;
        std::optional<ErrorKind> kind;
    } rows[] = {
        {"missing.strings", ErrorKind::NotFound},
        {"large.strings", ErrorKind::TooLarge},
        {"broken.strings", ErrorKind::InvalidData},
        {"good.strings", std::nullopt},
    };
    for (const auto& row : rows) {
        Expected<StringTable> table = StringTable::load(folder / row.file);
        EXPECT_EQ(table ? std::nullopt : std::optional(table.error().kind()), row.kind) << row.file;
    }
    std::filesystem::remove_all(folder);
}

} // namespace
} // namespace vexo::text
