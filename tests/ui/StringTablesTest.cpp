// Every text the layout shows, and every text of the development language, is translated in
// every language the watch ships, so that no screen mixes languages.
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "platform/text/Localization.h"
#include "platform/text/StringTable.h"
#include "platform/watchkit/InterfaceLayout.h"

using namespace vexo;

namespace {

// The texts, titles and accessibility labels anywhere in the layout: objects, row types and
// controllers (their screens and close controls).
void collectTexts(const nlohmann::json& node, std::set<std::string>& texts) {
    if (node.is_object()) {
        for (const auto& [key, value] : node.items()) {
            const bool isText = key == "text" || key == "title" || key == "accessibilityLabel";
            if (isText && value.is_string() && !value.get<std::string>().empty()) {
                texts.insert(value.get<std::string>());
            } else if (key == "accessibilityLabelByImage" && value.is_object()) {
                for (const auto& [image, label] : value.items())
                    texts.insert(label.get<std::string>());
            } else {
                collectTexts(value, texts);
            }
        }
    } else if (node.is_array()) {
        for (const auto& element : node)
            collectTexts(element, texts);
    }
}

// The keys of a table as written (this project's tables quote every key and escape none).
std::set<std::string> keysOf(const std::filesystem::path& table) {
    std::ifstream file(table);
    std::set<std::string> keys;
    const std::regex entry(R"re(^"([^"\\]*)"\s*=)re");
    std::smatch match;
    for (std::string line; std::getline(file, line);)
        if (std::regex_search(line, match, entry))
            keys.insert(match[1]);
    return keys;
}

std::set<std::string> layoutTexts() {
    std::ifstream file(watchkit::InterfaceLayout::defaultPath());
    std::stringstream text;
    text << file.rdbuf();
    std::set<std::string> texts;
    collectTexts(nlohmann::json::parse(text.str(), nullptr, true, /*ignore_comments=*/true), texts);
    return texts;
}

} // namespace

TEST(StringTablesTest, EveryLanguageTranslatesTheLayoutAndEveryEnglishText) {
    const std::filesystem::path resources = text::Localization::defaultResourceDirectory();
    const std::set<std::string> texts = layoutTexts();
    ASSERT_TRUE(texts.count("Load More")) << "the layout's texts were found";
    ASSERT_TRUE(texts.count("Pause deck 1")) << "the layout's accessibility labels were found";
    const std::set<std::string> englishKeys = keysOf(resources / "en.lproj" / "Localizable.strings");
    ASSERT_TRUE(englishKeys.count("Automix On")) << "the English keys were found";

    std::size_t languages = 0;
    for (const auto& folder : std::filesystem::directory_iterator(resources)) {
        if (folder.path().extension() != ".lproj")
            continue;
        ++languages;
        const auto table = text::StringTable::load(folder.path() / "Localizable.strings");
        ASSERT_TRUE(table) << folder.path() << ": " << table.error().message();
        for (const std::string& key : texts)
            EXPECT_TRUE(table->find(key)) << folder.path().filename() << " lacks the layout's \"" << key << "\"";
        for (const std::string& key : englishKeys)
            EXPECT_TRUE(table->find(key)) << folder.path().filename() << " lacks the English \"" << key << "\"";
    }
    EXPECT_GE(languages, 2u);
}
