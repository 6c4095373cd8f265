#pragma once

#include "platform/plist/Value.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace vexo::plist::testing {

inline std::vector<std::uint8_t> readFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline std::filesystem::path interopDirectory() {
    return std::filesystem::path(VEXO_SHARED_DIR) / "interop" / "keyed-archives";
}

// A deck status message as the phone sends it: twelve keys of every scalar kind.
inline Value deckStatusMessage() {
    return Value(Dictionary{
        {"playing", Value(true)},
        {"currentTime", Value(183)},
        {"currentDisplayTime", Value("3:03")},
        {"autoLoopBeatInterval", Value(0.25f)},
        {"looping", Value(false)},
        {"fxName", Value("Echo")},
        {"fxEnabled", Value(true)},
        {"fxLowPassEnabled", Value(false)},
        {"fxHighPassEnabled", Value(true)},
        {"bpm", Value(128)},
        {"key", Value("8A")},
        {"songID", Value("9F3A61C2D4E5B607")},
    });
}

} // namespace vexo::plist::testing
