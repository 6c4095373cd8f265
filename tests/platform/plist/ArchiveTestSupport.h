#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/plist/Value.h"

namespace vexo::plist::testing {

inline std::vector<std::uint8_t> readFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// Keyed archives written by the host platform, kept outside the repository: in
// $VEXO_SHARED_DIR when set, else in the folder the build was configured with (by default
// ../shared beside the checkout).
inline std::filesystem::path interopDirectory() {
    const char* shared = std::getenv("VEXO_SHARED_DIR");
    const std::filesystem::path base = shared != nullptr && *shared != '\0' ? shared : VEXO_SHARED_DIR;
    return base / "interop" / "keyed-archives";
}

// Skips the calling test, naming the folder, when the interop archives are not there: a clone
// made away from the shared folder still passes everything else.
#define VEXO_SKIP_WITHOUT_INTEROP_ARCHIVES()                                                                           \
    do {                                                                                                               \
        if (!std::filesystem::is_directory(::vexo::plist::testing::interopDirectory()))                                \
            GTEST_SKIP() << "no interop archives at " << ::vexo::plist::testing::interopDirectory()                    \
                         << " (set VEXO_SHARED_DIR to the folder holding interop/keyed-archives)";                     \
    } while (false)

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
