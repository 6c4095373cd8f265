#pragma once

#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/plist/Value.h"

// The dictionaries that travel between the watch and the phone, built as each side builds
// them, for tests of either side.
namespace vexo::testing {

// {"identifier": identifier, "contents": contents}, as a deck or the mixer hands it over.
inline plist::Value envelope(std::string_view identifier, plist::Dictionary contents) {
    return plist::Value(
        plist::Dictionary{{"identifier", plist::Value(identifier)}, {"contents", plist::Value(std::move(contents))}});
}

// A deck action, with "params" only when `params` is not null (any value, for bad input).
inline plist::Value deckAction(std::int64_t deck, std::int64_t action, plist::Value params = {}) {
    plist::Dictionary contents{{"turntable", plist::Value(deck)}, {"action", plist::Value(action)}};
    if (!params.isNull())
        contents.emplace("params", std::move(params));
    return envelope("turntableAction", std::move(contents));
}

// A mixer action, with "params" only when `params` is not null.
inline plist::Value mixerAction(std::int64_t action, plist::Value params = {}) {
    plist::Dictionary contents{{"action", plist::Value(action)}};
    if (!params.isNull())
        contents.emplace("params", std::move(params));
    return envelope("mixerAction", std::move(contents));
}

// A deck's song information as the phone writes it: {"currentSong": song}; {} is no song.
inline plist::Value songInfo(plist::Dictionary song) {
    return plist::Value(plist::Dictionary{{"currentSong", plist::Value(std::move(song))}});
}

} // namespace vexo::testing
