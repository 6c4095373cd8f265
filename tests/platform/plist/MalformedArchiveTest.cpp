#include <functional>

#include <gtest/gtest.h>

#include "ArchiveTestSupport.h"
#include "platform/plist/BinaryPropertyListWriter.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/plist/KeyedUnarchiver.h"

using namespace vexo::plist;
using vexo::ErrorKind;
using Reference = BinaryPropertyListWriter::Reference;

namespace {

// Builds an archive whose "$objects" are made by `makeObjects`, with the root at UID `root`.
Data archiveWith(const std::function<std::vector<Reference>(BinaryPropertyListWriter&)>& makeObjects,
                 std::uint64_t root = 1) {
    BinaryPropertyListWriter writer;
    std::vector<Reference> objects = makeObjects(writer);
    const Reference topKeys[] = {writer.addString("root")};
    const Reference topValues[] = {writer.addUid(root)};
    const Reference keys[] = {writer.addString("$archiver"), writer.addString("$top"), writer.addString("$objects")};
    const Reference values[] = {writer.addString("NSKeyedArchiver"), writer.addDictionary(topKeys, topValues),
                                writer.addArray(objects)};
    return writer.finish(writer.addDictionary(keys, values));
}

Reference classDescriptor(BinaryPropertyListWriter& writer, std::string_view name) {
    const Reference keys[] = {writer.addString("$classname")};
    const Reference values[] = {writer.addString(name)};
    return writer.addDictionary(keys, values);
}

// An NSArray instance at some UID whose elements are the given UIDs; its class is at `classUid`.
Reference arrayInstance(BinaryPropertyListWriter& writer, std::vector<std::uint64_t> elementUids,
                        std::uint64_t classUid) {
    std::vector<Reference> elements;
    for (auto uid : elementUids)
        elements.push_back(writer.addUid(uid));
    const Reference keys[] = {writer.addString("NS.objects"), writer.addString("$class")};
    const Reference values[] = {writer.addArray(elements), writer.addUid(classUid)};
    return writer.addDictionary(keys, values);
}

// The kind of error decoding `bytes` gives, or nothing when they decode.
std::optional<ErrorKind> errorKindOf(const Data& bytes) {
    const auto root = KeyedUnarchiver::unarchive(bytes);
    return root ? std::nullopt : std::optional(root.error().kind());
}

} // namespace

TEST(MalformedArchiveTest, StructuralFaultsYieldNothingWithAReason) {
    struct Row {
        const char* name;
        Data bytes;
        const char* reason;
        ErrorKind kind = ErrorKind::InvalidData;
    };
    const Row rows[] = {
        {"empty input", {}, "not a property list"},
        {"text", Data{'h', 'e', 'l', 'l', 'o'}, "not a property list"},
        {"signature only", Data{'b', 'p', 'l', 'i', 's', 't', '0', '0'}, "too short"},
        {"UID out of range", archiveWith([](auto& w) {
             return std::vector{w.addString("$null"), arrayInstance(w, {7}, 2), classDescriptor(w, "NSArray")};
         }),
         "out of range"},
        {"root out of range", archiveWith([](auto& w) { return std::vector{w.addString("$null")}; }, 5),
         "out of range"},
        {"array that contains itself", archiveWith([](auto& w) {
             return std::vector{w.addString("$null"), arrayInstance(w, {1}, 2), classDescriptor(w, "NSArray")};
         }),
         "contains itself"},
        {"two arrays that contain each other", archiveWith([](auto& w) {
             return std::vector{w.addString("$null"), arrayInstance(w, {3}, 2), classDescriptor(w, "NSArray"),
                                arrayInstance(w, {1}, 2)};
         }),
         "contains itself"},
        {"class descriptor without a name", archiveWith([](auto& w) {
             return std::vector{w.addString("$null"), arrayInstance(w, {}, 2), w.addString("NSArray")};
         }),
         "class descriptor"},
        {"class descriptor at UID 0", archiveWith([](auto& w) {
             return std::vector{w.addString("$null"), arrayInstance(w, {}, 0)};
         }),
         "out of range"},
        {"instance without a class", archiveWith([](auto& w) {
             const Reference keys[] = {w.addString("NS.objects")};
             const Reference values[] = {w.addArray(std::vector<Reference>{})};
             return std::vector{w.addString("$null"), w.addDictionary(keys, values)};
         }),
         "without $class"},
        {"dictionary with more keys than objects", archiveWith([](auto& w) {
             const Reference keyUids[] = {w.addUid(3)};
             const Reference keys[] = {w.addString("NS.keys"), w.addString("NS.objects"), w.addString("$class")};
             const Reference values[] = {w.addArray(keyUids), w.addArray(std::vector<Reference>{}), w.addUid(2)};
             return std::vector{w.addString("$null"), w.addDictionary(keys, values), classDescriptor(w, "NSDictionary"),
                                w.addString("k")};
         }),
         "differ in length"},
        {"element that is not a UID", archiveWith([](auto& w) {
             const Reference elements[] = {w.addString("inline")};
             const Reference keys[] = {w.addString("NS.objects"), w.addString("$class")};
             const Reference values[] = {w.addArray(elements), w.addUid(2)};
             return std::vector{w.addString("$null"), w.addDictionary(keys, values), classDescriptor(w, "NSArray")};
         }),
         "not a UID"},
        {"not written by the keyed archiver",
         [] {
             BinaryPropertyListWriter w;
             const Reference keys[] = {w.addString("$archiver")};
             const Reference values[] = {w.addString("NSArchiver")};
             return w.finish(w.addDictionary(keys, values));
         }(),
         "NSKeyedArchiver", ErrorKind::Unsupported},
    };
    for (const auto& row : rows) {
        const auto result = KeyedUnarchiver::unarchive(row.bytes);
        ASSERT_FALSE(result) << row.name;
        EXPECT_EQ(result.error().kind(), row.kind) << row.name;
        EXPECT_NE(result.error().message().find(row.reason), std::string::npos)
            << row.name << ": got '" << result.error().message() << "'";
    }
}

TEST(MalformedArchiveTest, SharedObjectsDecodeButExponentialSharingIsRefused) {
    // Each array holds the next one twice: 2^n leaves from a few dozen objects.
    auto chain = [](int levels) {
        return archiveWith(
            [levels](auto& w) {
                std::vector<Reference> objects{w.addString("$null"), classDescriptor(w, "NSArray")};
                for (int i = 0; i < levels; ++i) {
                    const std::uint64_t next = static_cast<std::uint64_t>(i + 3);
                    objects.push_back(i + 1 < levels ? arrayInstance(w, {next, next}, 1) : arrayInstance(w, {}, 1));
                }
                return objects;
            },
            2);
    };
    EXPECT_EQ(errorKindOf(chain(6)), std::nullopt);
    EXPECT_EQ(errorKindOf(chain(40)), ErrorKind::TooLarge);
}

TEST(MalformedArchiveTest, UnknownClassesReadAsNothingBesideKnownParts) {
    const Data bytes = archiveWith([](auto& w) {
        const Reference urlKeys[] = {w.addString("NS.relative"), w.addString("$class")};
        const Reference urlValues[] = {w.addUid(4), w.addUid(3)};
        return std::vector{w.addString("$null"),
                           arrayInstance(w, {4, 5}, 2),
                           classDescriptor(w, "NSArray"),
                           classDescriptor(w, "NSURL"),
                           w.addString("https://example.invalid"),
                           w.addDictionary(urlKeys, urlValues)};
    });
    const Value root = KeyedUnarchiver::unarchiveObject(bytes);
    ASSERT_EQ(root.count(), 2u);
    EXPECT_EQ(root[std::size_t{0}], Value("https://example.invalid"));
    EXPECT_TRUE(root[std::size_t{1}].isNull());
    EXPECT_EQ(*root[std::size_t{1}].archivedClassName(), "NSURL");
}

TEST(MalformedArchiveTest, DeepNestingIsRefused) {
    auto nested = [](int depth) {
        return archiveWith(
            [depth](auto& w) {
                std::vector<Reference> objects{w.addString("$null"), classDescriptor(w, "NSArray")};
                for (int i = 0; i < depth; ++i) {
                    const auto next = static_cast<std::uint64_t>(i + 3);
                    objects.push_back(i + 1 < depth ? arrayInstance(w, {next}, 1) : arrayInstance(w, {}, 1));
                }
                return objects;
            },
            2);
    };
    EXPECT_EQ(errorKindOf(nested(200)), std::nullopt);
    EXPECT_EQ(errorKindOf(nested(100000)), ErrorKind::TooLarge);
}

TEST(MalformedArchiveTest, AbsurdCountsAreRefusedWithoutAllocating) {
    // An array claiming 2^62 elements in a list of a few dozen bytes.
    Data bytes = {'b', 'p', 'l', 'i', 's', 't', '0', '0', 0xAF, 0x13, 0x40, 0, 0, 0, 0, 0, 0, 0};
    const std::size_t tableOffset = bytes.size();
    bytes.push_back(8);
    bytes.insert(bytes.end(), {0, 0, 0, 0, 0, 0, 1, 1});
    for (int i = 0; i < 7; ++i)
        bytes.push_back(0);
    bytes.push_back(1);
    for (int i = 0; i < 8; ++i)
        bytes.push_back(0);
    for (int i = 7; i >= 0; --i)
        bytes.push_back(static_cast<std::uint8_t>(tableOffset >> (8 * i)));
    EXPECT_FALSE(KeyedUnarchiver::unarchive(bytes));

    // A trailer that claims more objects than the file could hold.
    Data valid = *KeyedArchiver::archivedData(Value("x"));
    valid[valid.size() - 17] = 0x7F;
    EXPECT_FALSE(KeyedUnarchiver::unarchive(valid));
}

TEST(MalformedArchiveTest, EveryTruncationYieldsNothing) {
    const Data valid = *KeyedArchiver::archivedData(vexo::plist::testing::deckStatusMessage());
    for (std::size_t size = 0; size < valid.size(); ++size) {
        const Data truncated(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(KeyedUnarchiver::unarchive(truncated)) << size;
    }
}

TEST(MalformedArchiveTest, MalformedXmlYieldsNothing) {
    const struct {
        std::string xml;
        const char* reason;
        ErrorKind kind = ErrorKind::InvalidData;
    } rows[] = {
        {"<plist><array><string>x</string></plist>", "unclosed container"},
        {"<plist><array></dict></plist>", "unexpected </dict>"},
        {"<plist><dict><key>a</key></dict></plist>", "key without a value"},
        {"<plist><integer>12x</integer></plist>", "malformed integer"},
        {"<plist><date>2001-13-01T00:00:00Z</date></plist>", "malformed date"},
        {"<plist><data>!!!</data></plist>", "malformed base64"},
        {"<plist><string>&bogus;</string></plist>", "unknown entity"},
        {"<plist><blob/></plist>", "unknown element"},
        {"<plist><string>unterminated", "unterminated"},
        {[] {
             std::string deep = "<plist>";
             for (int i = 0; i < 1000; ++i)
                 deep += "<array>";
             return deep;
         }(),
         "nesting deeper", ErrorKind::TooLarge},
    };
    for (const auto& [xml, reason, kind] : rows) {
        const Data bytes(xml.begin(), xml.end());
        const auto result = KeyedUnarchiver::unarchive(bytes);
        ASSERT_FALSE(result) << xml.substr(0, 60);
        EXPECT_EQ(result.error().kind(), kind) << xml.substr(0, 60);
        EXPECT_NE(result.error().message().find(reason), std::string::npos)
            << xml.substr(0, 60) << ": got '" << result.error().message() << "'";
    }
}
