#pragma once

#include <optional>
#include <string>
#include <string_view>

// Musical keys in the Camelot wheel's notation, the one the watch shows and the demonstration
// library tags: "1A" to "12A" are the minor keys, "1B" to "12B" the major ones, neighbouring
// numbers a fifth apart, and a minor key shares its number with its relative major ("8A" A
// minor, "8B" C major).
namespace vexo::media {

// `pitchClass` 0 = C ... 11 = B (taken modulo 12).
[[nodiscard]] std::string camelotKey(int pitchClass, bool minor);

// The same key in Camelot notation from the notations found in tags: Camelot ("8A", "08a"),
// Open Key ("1m" minor, "1d" major), note names with an optional mode ("Am", "A minor",
// "F#", "Gb major", "Bbm", "C#min", "Eb maj"). Nothing for text that names no key ("", "x",
// "o" for off-key).
[[nodiscard]] std::optional<std::string> camelotKeyFromTag(std::string_view tag);

} // namespace vexo::media
