#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/media/MediaItem.h"
#include "platform/plist/Value.h"

// Persistent identifiers of local media items as text: the link to the phone carries them in
// upper-case hexadecimal without leading zeros or prefix ("%llX": 43794 is "AB12", 0 is "0"),
// and the phone, which plays from the same media library, looks the song up by them.
//
// The operations of the host platform's media-item category, as static members. Any thread.
namespace vexo::model {

struct KMExtensions {
    // The local item whose identifier is `persistentID` (an unsigned number, or its text form
    // as a string), or nothing. When the library knows several, the last one answers.
    static std::optional<media::MediaItem> mediaItemForPersistentID(const plist::Value& persistentID);

    // The text form of a number's unsigned 64-bit value; nothing for nothing.
    static std::optional<std::string> persistentIDStringForNumber(const plist::Value& number);

    // The unsigned value of a text form, scanned the way the platform scans hexadecimal (blanks,
    // an optional 0x, digits of either case up to the first other character, saturating at the
    // largest 64-bit value); nothing when no digit could be read.
    static plist::Value persistentIDNumberForString(const std::optional<std::string>& string);

    // The text form of `item`'s own identifier.
    static std::string persistentIDString(const media::MediaItem& item);
};

} // namespace vexo::model
