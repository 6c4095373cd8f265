#include "platform/media/CamelotKey.h"

#include <cctype>
#include <string>

namespace vexo::media {
namespace {

std::string lowerTrimmed(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (!std::isspace(static_cast<unsigned char>(c)))
            out.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    }
    return out;
}

// "8a", "08b", "1m", "12d" as number and letter; nothing otherwise.
std::optional<std::string> fromWheelNotation(const std::string& text) {
    std::size_t digits = 0;
    while (digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits])))
        ++digits;
    if (digits == 0 || digits > 2 || digits + 1 != text.size())
        return std::nullopt;
    const int number = std::stoi(text.substr(0, digits));
    if (number < 1 || number > 12)
        return std::nullopt;
    switch (text.back()) {
    case 'a':
        return std::to_string(number) + "A";
    case 'b':
        return std::to_string(number) + "B";
    // Open Key: 1d is C major (Camelot 8B), 1m A minor (8A).
    case 'm':
        return std::to_string((number + 6) % 12 + 1) + "A";
    case 'd':
        return std::to_string((number + 6) % 12 + 1) + "B";
    default:
        return std::nullopt;
    }
}

std::optional<std::string> fromNoteName(const std::string& text) {
    static constexpr int kNaturals[] = {9, 11, 0, 2, 4, 5, 7}; // a b c d e f g
    if (text.empty() || text[0] < 'a' || text[0] > 'g')
        return std::nullopt;
    int pitchClass = kNaturals[text[0] - 'a'];
    std::size_t at = 1;
    if (at < text.size() && (text[at] == '#' || text.compare(at, 5, "sharp") == 0)) {
        ++pitchClass;
        at += text[at] == '#' ? 1 : 5;
    } else if (at < text.size() && (text[at] == 'b' || text.compare(at, 4, "flat") == 0)) {
        --pitchClass;
        at += text[at] == 'b' ? 1 : 4;
    }
    const std::string mode = text.substr(at);
    bool minor = false;
    if (mode == "m" || mode == "min" || mode == "minor")
        minor = true;
    else if (!(mode.empty() || mode == "maj" || mode == "major"))
        return std::nullopt;
    return camelotKey(pitchClass, minor);
}

} // namespace

std::string camelotKey(int pitchClass, bool minor) {
    const int fifths = ((pitchClass % 12) + 12) % 12 * 7 % 12; // C 0, G 1, D 2, ...
    const int number = (fifths + (minor ? 4 : 7)) % 12 + 1;
    return std::to_string(number) + (minor ? "A" : "B");
}

std::optional<std::string> camelotKeyFromTag(std::string_view tag) {
    const std::string text = lowerTrimmed(tag);
    if (text.empty())
        return std::nullopt;
    if (std::isdigit(static_cast<unsigned char>(text[0])))
        return fromWheelNotation(text);
    return fromNoteName(text);
}

} // namespace vexo::media
