#include <cmath>
#include <cstdlib>
#include <limits>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "ArchiveTestSupport.h"
#include "platform/plist/Json.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/plist/KeyedUnarchiver.h"

using namespace vexo::plist;
using vexo::plist::testing::deckStatusMessage;
using vexo::plist::testing::interopDirectory;
using vexo::plist::testing::readFile;

namespace {

Value roundTrip(const Value& value) {
    const auto bytes = KeyedArchiver::archivedData(value);
    EXPECT_TRUE(bytes.has_value());
    if (!bytes)
        return Value();
    const auto root = KeyedUnarchiver::unarchive(*bytes);
    EXPECT_TRUE(root) << root.error().message();
    return root.valueOr(Value());
}

// JSON numbers are compared by value, whatever their JSON type, since EXPECTED.json writes
// 0.0 where the archive holds a real and 3 where it holds an integer.
bool sameJson(const nlohmann::json& a, const nlohmann::json& b) {
    if (a.is_number() && b.is_number())
        return a.get<double>() == b.get<double>() ||
               std::abs(a.get<double>() - b.get<double>()) <= 1e-9 * std::abs(b.get<double>());
    if (a.type() != b.type() || a.size() != b.size())
        return false;
    if (a.is_object()) {
        for (const auto& [key, value] : b.items()) {
            if (!a.contains(key) || !sameJson(a[key], value))
                return false;
        }
        return true;
    }
    if (a.is_array()) {
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (!sameJson(a[i], b[i]))
                return false;
        }
        return true;
    }
    return a == b;
}

} // namespace

TEST(KeyedArchiveTest, DecodesEveryInteropArchiveToItsExpectedValue) {
    VEXO_SKIP_WITHOUT_INTEROP_ARCHIVES();
    std::ifstream expectedFile(interopDirectory() / "EXPECTED.json");
    ASSERT_TRUE(expectedFile) << "missing " << interopDirectory();
    const auto expected = nlohmann::json::parse(expectedFile);
    ASSERT_GE(expected.size(), 18u);
    for (const auto& [name, value] : expected.items()) {
        const auto root = KeyedUnarchiver::unarchive(readFile(interopDirectory() / name));
        ASSERT_TRUE(root) << name << ": " << root.error().message();
        const auto decoded = json::toJson(*root);
        EXPECT_TRUE(sameJson(decoded, value))
            << name << "\n decoded:  " << decoded.dump() << "\n expected: " << value.dump();
    }
}

TEST(KeyedArchiveTest, InteropDetailsSurvive) {
    VEXO_SKIP_WITHOUT_INTEROP_ARCHIVES();
    // -1 stored in eight bytes is a signed integer, the date keeps its fraction exactly, and
    // a string stored as UTF-16 reads back as the same character.
    const auto instruments =
        KeyedUnarchiver::unarchiveObject(readFile(interopDirectory() / "go-ios--int64-value-in-nskeyedarchive.bin"));
    EXPECT_EQ(instruments["pidToInjectCombineDYLIB"], Value(-1));
    const auto state = KeyedUnarchiver::unarchiveObject(readFile(interopDirectory() / "go-ios--ax_statechange.bin"));
    EXPECT_EQ(state["timestamp"].asDate()->secondsSinceReferenceDate, 620737053.76402);
    const auto eszett = KeyedUnarchiver::unarchiveObject(readFile(interopDirectory() / "gnustep--eszett1.plist"));
    EXPECT_EQ(eszett, Value("\xC3\x9F"));
}

TEST(KeyedArchiveTest, RoundTripsEveryKindOfValue) {
    Dictionary large;
    for (int i = 0; i < 10000; ++i)
        large.emplace("key" + std::to_string(i), Value(i));
    Data blob(1 << 20);
    for (std::size_t i = 0; i < blob.size(); ++i)
        blob[i] = static_cast<std::uint8_t>(i * 7919 >> 3);

    const Value values[] = {
        Value(std::numeric_limits<std::uint64_t>::max()),
        Value(std::numeric_limits<std::int64_t>::min()),
        Value(std::numeric_limits<std::int64_t>::max()),
        Value(-1),
        Value(0),
        Value(255),
        Value(256),
        Value(65536),
        Value(std::int64_t{1} << 40),
        Value(0.1f),
        Value(0.1),
        Value(-0.0),
        Value(std::numeric_limits<double>::infinity()),
        Value(true),
        Value(false),
        Value(""),
        Value("plain ascii"),
        Value("Gr\xC3\xBC\xC3\x9F"
              "e \xF0\x9F\x8E\xA7 \xE2\x99\xAB"),
        Value(Data{}),
        Value(blob),
        Value(Date{620737053.76402}),
        Value(Date{-1234.5}),
        Value(),
        Value(Array{}),
        Value(Dictionary{}),
        Value(large),
        Value(Array{Value(), Value("x"), Value(Array{Value(1), Value(Dictionary{{"a", Value()}})})}),
        deckStatusMessage(),
    };
    for (const Value& value : values) {
        const Value back = roundTrip(value);
        EXPECT_EQ(back, value) << json::toJson(value).dump().substr(0, 200);
        EXPECT_EQ(back.type(), value.type());
    }
    EXPECT_TRUE(roundTrip(Value(0.1f)).asReal()->isSinglePrecision);
    EXPECT_EQ(roundTrip(Value(0.1f)).doubleValue(), 0.10000000149011612);
    EXPECT_TRUE(roundTrip(Value(std::numeric_limits<std::uint64_t>::max())).asInteger()->isUnsigned);
    EXPECT_TRUE(std::isnan(roundTrip(Value(std::nan(""))).doubleValue()));
    const Value withNaN(Dictionary{{"fontSize", Value(std::nan(""))}});
    EXPECT_TRUE(std::isnan(roundTrip(withNaN)["fontSize"].doubleValue()));
}

TEST(KeyedArchiveTest, WritesTheShapeThePlatformExpects) {
    const auto bytes = KeyedArchiver::archivedData(Value(Dictionary{{"a", Value("a")}, {"b", Value("a")}}));
    ASSERT_TRUE(bytes);
    // Equal strings are stored once: "$null", "a" and the dictionary's class descriptor and
    // the dictionary itself make four objects; "NSDictionary" appears once.
    const std::string text(bytes->begin(), bytes->end());
    EXPECT_NE(text.find("NSKeyedArchiver"), std::string::npos);
    EXPECT_EQ(text.find("NSDictionary"), text.rfind("NSDictionary"));
    EXPECT_EQ(text.find("$null"), text.rfind("$null"));
}

TEST(KeyedArchiveTest, RefusesValuesNestedTooDeep) {
    Value nested("leaf");
    for (int i = 0; i < 300; ++i)
        nested = Value(Array{nested});
    EXPECT_FALSE(KeyedArchiver::archivedData(nested).has_value());

    Value shallow("leaf");
    for (int i = 0; i < 200; ++i)
        shallow = Value(Array{shallow});
    EXPECT_EQ(roundTrip(shallow), shallow);
}

TEST(KeyedArchiveTest, ArchivingIntoAKeptBufferGivesTheSameBytes) {
    // Larger messages before smaller ones, so that stale bytes of an earlier one would show.
    Value tooDeep("leaf");
    for (int i = 0; i < 300; ++i)
        tooDeep = Value(Array{tooDeep});
    const Value messages[] = {
        Value(Dictionary{{"artworkImage", Value(Data(4096, 0x5A))}}), deckStatusMessage(), tooDeep, Value("x"), Value(),
    };
    Data buffer;
    for (const Value& message : messages) {
        const auto expected = KeyedArchiver::archivedData(message);
        EXPECT_EQ(KeyedArchiver::archive(message, buffer), expected.has_value());
        EXPECT_EQ(buffer, expected.value_or(Data()));
    }
}

TEST(KeyedArchiveTest, AnIndependentReaderReadsWhatWeWrite) {
    if (std::system("python3 -c 'import plistlib' >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "python3 is not available";
    const auto directory = std::filesystem::temp_directory_path() / ("vexo-archives-" + std::to_string(::getpid()));
    std::filesystem::create_directories(directory);
    const std::pair<const char*, Value> samples[] = {
        {"deck-status", deckStatusMessage()},
        {"largest-unsigned", Value(std::numeric_limits<std::uint64_t>::max())},
        {"negative", Value(std::numeric_limits<std::int64_t>::min())},
        {"single-precision", Value(0.1f)},
        {"unicode", Value("Gr\xC3\xBC\xC3\x9F"
                          "e \xF0\x9F\x8E\xA7")},
        {"nested", Value(Dictionary{{"items", Value(Array{Value("a"), Value(Dictionary{{"n", Value(1)}}), Value()})},
                                    {"artworkImage", Value(Data{0, 1, 2, 255})},
                                    {"when", Value(Date{620737053.76402})}})},
        {"nil", Value()},
    };
    for (const auto& [name, value] : samples) {
        const Data bytes = *KeyedArchiver::archivedData(value);
        std::ofstream(directory / (std::string(name) + ".archive"), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        std::ofstream(directory / (std::string(name) + ".json")) << json::toJson(value).dump();
    }
    const std::string command =
        "python3 '" VEXO_SOURCE_DIR "/tests/platform/plist/independent_unarchiver.py' '" + directory.string() + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::filesystem::remove_all(directory);
}
