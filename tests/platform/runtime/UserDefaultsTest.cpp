#include "platform/runtime/UserDefaults.h"

#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/plist/KeyedArchiveFormat.h"
#include "platform/plist/KeyedArchiver.h"
#include "support/TemporaryDirectory.h"

using vexo::plist::Array;
using vexo::plist::Dictionary;
using vexo::plist::Value;
using vexo::runtime::UserDefaults;
using vexo::testing::TemporaryDirectory;
namespace fs = std::filesystem;

namespace {

void writeFile(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::string> entriesOf(const fs::path& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    return names;
}

} // namespace

TEST(UserDefaultsTest, PersistedValuesWinOverRegisteredOnes) {
    const struct {
        const char* name;
        std::optional<Value> registered;
        std::optional<Value> registeredLater;
        std::optional<Value> persisted;
        bool removed;
        Value expected;
    } rows[] = {
        {"nothing anywhere", {}, {}, {}, false, Value()},
        {"registered only", Value(0), {}, {}, false, Value(0)},
        {"registered again", Value(0), Value(3), {}, false, Value(3)},
        {"persisted only", {}, {}, Value(1), false, Value(1)},
        {"persisted over registered", Value(0), {}, Value(1), false, Value(1)},
        {"registered after persisting", Value(1), Value(2), Value(7), false, Value(7)},
        {"removed shows registered", Value(0), {}, Value(1), true, Value(0)},
        {"removed without registered", {}, {}, Value("x"), true, Value()},
    };
    for (const auto& row : rows) {
        TemporaryDirectory directory;
        UserDefaults defaults(directory.path() / "defaults.plist");
        if (row.registered)
            defaults.registerDefaults({{"VXAWMixerTransitionMode", *row.registered}, {"other", Value(9)}});
        if (row.persisted)
            defaults.setObject(*row.persisted, "VXAWMixerTransitionMode");
        if (row.registeredLater)
            defaults.registerDefaults({{"VXAWMixerTransitionMode", *row.registeredLater}});
        if (row.removed)
            defaults.removeObjectForKey("VXAWMixerTransitionMode");
        EXPECT_EQ(defaults.objectForKey("VXAWMixerTransitionMode"), row.expected) << row.name;
        EXPECT_EQ(defaults.objectForKey("other"), row.registered ? Value(9) : Value()) << row.name;
    }
}

TEST(UserDefaultsTest, ValuesSetSurviveANewInstanceButRegisteredOnesDoNot) {
    TemporaryDirectory directory;
    const fs::path file = directory.path() / "config" / "vexo" / "watch.plist";
    const Dictionary nested{{"list", Value(Array{Value(1), Value("two")})}};
    {
        UserDefaults defaults(file);
        defaults.registerDefaults({{"registered", Value(5)}});
        defaults.setInteger(1, "VXAWMixerTransitionMode");
        defaults.setBool(true, "flag");
        defaults.setDouble(2.5, "ratio");
        defaults.setObject(Value("text"), "name");
        defaults.setObject(Value(nested), "nested");
        defaults.setObject(Value("gone"), "removed");
        defaults.setObject(Value(), "removed");
    }
    UserDefaults restarted(file);
    EXPECT_EQ(restarted.integerForKey("VXAWMixerTransitionMode"), 1);
    EXPECT_TRUE(restarted.boolForKey("flag"));
    EXPECT_EQ(restarted.doubleForKey("ratio"), 2.5);
    EXPECT_EQ(restarted.stringForKey("name"), "text");
    EXPECT_EQ(restarted.objectForKey("nested"), Value(nested));
    EXPECT_EQ(restarted.objectForKey("removed"), Value()) << "setting nothing removes the key";
    EXPECT_EQ(restarted.objectForKey("registered"), Value()) << "registered defaults live in memory only";
    // Typed reads go through the value conversions, whatever type was stored.
    EXPECT_EQ(restarted.stringForKey("VXAWMixerTransitionMode"), "1");
    EXPECT_EQ(restarted.integerForKey("ratio"), 2);
    EXPECT_EQ(restarted.integerForKey("nested"), 0);
    EXPECT_EQ(restarted.stringForKey("nested"), std::nullopt);
    EXPECT_EQ(restarted.stringForKey("missing"), std::nullopt);

    // The missing directories were made private, and the atomic writes left no temporary file.
    struct stat status {};
    ASSERT_EQ(::stat(file.parent_path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    ASSERT_EQ(::stat(file.parent_path().parent_path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    EXPECT_EQ(entriesOf(file.parent_path()), std::vector<std::string>{"watch.plist"});
}

TEST(UserDefaultsTest, AnUnreadableFileReadsAsEmptyAndIsReplacedOnTheNextChange) {
    const auto arrayArchive = vexo::plist::KeyedArchiver::archivedData(Value(Array{Value(1)}));
    ASSERT_TRUE(arrayArchive);
    const struct {
        const char* name;
        std::function<void(const fs::path&)> make;
        bool writable;
    } rows[] = {
        {"garbage",
         [](const fs::path& file) {
             writeFile(file, {'n', 'o', 't', 0xFF, 0x00});
         },
         true},
        {"empty file", [](const fs::path& file) { writeFile(file, {}); }, true},
        {"truncated archive",
         [](const fs::path& file) {
             auto bytes = *vexo::plist::KeyedArchiver::archivedData(Value(Dictionary{{"key", Value(1)}}));
             bytes.resize(bytes.size() / 2);
             writeFile(file, bytes);
         },
         true},
        {"archive of an array", [&](const fs::path& file) { writeFile(file, *arrayArchive); }, true},
        {"a FIFO, which must not block", [](const fs::path& file) { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); },
         true},
        {"a directory", [](const fs::path& file) { fs::create_directory(file); }, false},
    };
    for (const auto& row : rows) {
        TemporaryDirectory directory;
        const fs::path file = directory.path() / "defaults.plist";
        row.make(file);
        {
            UserDefaults defaults(file);
            defaults.registerDefaults({{"key", Value(0)}});
            EXPECT_EQ(defaults.integerForKey("key"), 0) << row.name;
            defaults.setInteger(4, "key");
            EXPECT_EQ(defaults.integerForKey("key"), 4) << row.name << ": kept in memory whatever the file";
        }
        EXPECT_EQ(UserDefaults(file).integerForKey("key"), row.writable ? 4 : 0) << row.name;
    }
}

TEST(UserDefaultsTest, AValueThatCannotBeArchivedChangesNothing) {
    TemporaryDirectory directory;
    const fs::path file = directory.path() / "defaults.plist";
    UserDefaults defaults(file);
    defaults.setInteger(1, "key");
    Value deep(Array{});
    for (std::size_t depth = 0; depth < vexo::plist::archive::kMaxNestingDepth + 2; ++depth)
        deep = Value(Array{deep});
    defaults.setObject(deep, "key");
    defaults.setInteger(2, "other");
    EXPECT_EQ(defaults.integerForKey("key"), 1);
    UserDefaults restarted(file);
    EXPECT_EQ(restarted.integerForKey("key"), 1);
    EXPECT_EQ(restarted.integerForKey("other"), 2) << "later changes are still written";
}

TEST(UserDefaultsTest, ChangesFromManyThreadsAreAllWritten) {
    TemporaryDirectory directory;
    const fs::path file = directory.path() / "defaults.plist";
    constexpr int kThreads = 4;
    constexpr int kKeysEach = 25;
    {
        UserDefaults defaults(file);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&defaults, thread] {
                for (int key = 0; key < kKeysEach; ++key) {
                    defaults.setInteger(key, "t" + std::to_string(thread) + "k" + std::to_string(key));
                    (void)defaults.integerForKey("t0k0");
                }
            });
        }
        for (auto& thread : threads)
            thread.join();
    }
    UserDefaults restarted(file);
    for (int thread = 0; thread < kThreads; ++thread) {
        for (int key = 0; key < kKeysEach; ++key)
            EXPECT_EQ(restarted.integerForKey("t" + std::to_string(thread) + "k" + std::to_string(key)), key);
    }
}

TEST(UserDefaultsTest, StandardPathStaysInsideTheConfigurationDirectory) {
    const struct {
        std::optional<std::string> configHome;
        std::string home;
        std::string domain;
        fs::path expected;
    } rows[] = {
        {"/cfg", "/home/u", "com.vexo.watch", "/cfg/vexo/com.vexo.watch.plist"},
        {std::nullopt, "/home/u", "watch", "/home/u/.config/vexo/watch.plist"},
        {"", "/home/u", "watch", "/home/u/.config/vexo/watch.plist"},
        {"relative/dir", "/home/u", "watch", "/home/u/.config/vexo/watch.plist"},
        {"/cfg", "/home/u", "../../etc/passwd", "/cfg/vexo/..%2F..%2Fetc%2Fpasswd.plist"},
        {"/cfg", "/home/u", "..", "/cfg/vexo/...plist"},
        {"/cfg", "/home/u", "100%", "/cfg/vexo/100%25.plist"},
        {"/cfg", "/home/u", std::string("a\0b", 3), "/cfg/vexo/a%00b.plist"},
    };
    for (const auto& row : rows) {
        const fs::path path = UserDefaults::standardPath(row.domain, {.home = row.home, .configHome = row.configHome});
        EXPECT_EQ(path, row.expected) << row.domain;
        EXPECT_EQ(path.parent_path().filename(), "vexo") << row.domain;
    }
}
