#pragma once

#include <optional>

#include "platform/plist/Value.h"

namespace vexo::plist {

// Encodes values as keyed archives that the host platform's NSKeyedUnarchiver reads:
// dictionaries as NSDictionary, arrays as NSArray, dates as NSDate, strings, numbers,
// booleans and data as plain objects, and nothing as the archive's "$null". Equal strings
// are stored once. An unknown archived object (see Value::unknownObject) is written as
// nothing, since its contents were never read.
class KeyedArchiver {
public:
    // The archive of `root`; nothing (with a debug log line) when `root` nests deeper than
    // archive::kMaxNestingDepth. Thread-safe: keeps no state between calls.
    [[nodiscard]] static std::optional<Data> archivedData(const Value& root);

    // The same archive, written into `archive` (its memory reused, its contents replaced).
    // False, with `archive` empty, when `root` nests too deep.
    [[nodiscard]] static bool archive(const Value& root, Data& archive);
};

} // namespace vexo::plist
