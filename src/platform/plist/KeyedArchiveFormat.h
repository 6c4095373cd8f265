#pragma once

#include <cstddef>
#include <string_view>

// The shape of a keyed archive as the host platform's NSKeyedArchiver writes it: a binary
// property list {"$archiver": "NSKeyedArchiver", "$version": 100000, "$top": {"root": UID},
// "$objects": ["$null", ...]} whose objects refer to each other by UID (an index into
// "$objects"). Strings, numbers and data are stored as they are; other objects are
// dictionaries naming their class descriptor under "$class".
namespace vexo::plist::archive {

inline constexpr std::string_view kArchiverKey = "$archiver";
inline constexpr std::string_view kArchiverName = "NSKeyedArchiver";
inline constexpr std::string_view kVersionKey = "$version";
inline constexpr int kVersion = 100000;
inline constexpr std::string_view kTopKey = "$top";
inline constexpr std::string_view kRootKey = "root";
inline constexpr std::string_view kObjectsKey = "$objects";
inline constexpr std::string_view kNullObject = "$null";

inline constexpr std::string_view kClassKey = "$class";
inline constexpr std::string_view kClassNameKey = "$classname";
inline constexpr std::string_view kClassesKey = "$classes";

inline constexpr std::string_view kKeysField = "NS.keys";
inline constexpr std::string_view kObjectsField = "NS.objects";
inline constexpr std::string_view kStringField = "NS.string";
inline constexpr std::string_view kDataField = "NS.data";
inline constexpr std::string_view kBytesField = "NS.bytes";
inline constexpr std::string_view kTimeField = "NS.time";

inline constexpr std::string_view kDictionaryClass = "NSDictionary";
inline constexpr std::string_view kMutableDictionaryClass = "NSMutableDictionary";
inline constexpr std::string_view kArrayClass = "NSArray";
inline constexpr std::string_view kMutableArrayClass = "NSMutableArray";
inline constexpr std::string_view kStringClass = "NSString";
inline constexpr std::string_view kMutableStringClass = "NSMutableString";
inline constexpr std::string_view kDataClass = "NSData";
inline constexpr std::string_view kMutableDataClass = "NSMutableData";
inline constexpr std::string_view kDateClass = "NSDate";
inline constexpr std::string_view kObjectClass = "NSObject";

// Values nest at most this deep in either direction. Deeper input is refused, not truncated;
// the bound keeps recursion (ours and the XML parser's) far from the stack's end.
inline constexpr std::size_t kMaxNestingDepth = 256;

} // namespace vexo::plist::archive
