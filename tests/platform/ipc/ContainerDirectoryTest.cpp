#include "platform/ipc/ContainerDirectory.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/ScopedContainerRoot.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::ipc;
using vexo::testing::ScopedContainerRoot;
using vexo::testing::TemporaryDirectory;
namespace fs = std::filesystem;

namespace {

// The pid of a process that has ended and been reaped.
pid_t deadPid() {
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(0);
    ::waitpid(child, nullptr, 0);
    return child;
}

} // namespace

TEST(ContainerDirectoryTest, TheFirstWriteOfANameRemovesOnlyTheLeftoversOfDeadWriters) {
    TemporaryDirectory root;
    ScopedContainerRoot containerRoot;
    containerRoot.set(root.path().string());
    const fs::path messages = root.path() / "group" / "messages";
    fs::create_directories(messages);
    const std::string dead = std::to_string(deadPid());
    const std::string alive = std::to_string(::getppid());

    struct Row {
        std::string name;
        bool removed;
    };
    const Row rows[] = {
        {".mixerStatus.archive." + dead + ".0.tmp", true},
        {".mixerStatus.archive." + dead + ".17.tmp", true},
        {".mixerStatus.archive." + alive + ".0.tmp", false},                      // its writer may be renaming it now
        {".mixerStatus.archive." + std::to_string(::getpid()) + ".3.tmp", false}, // ours
        {".libraryItems.archive." + dead + ".0.tmp", false},                      // another name: its own first write
        {".mixerStatus.archive." + dead + ".0", false},                           // not our pattern
        {".mixerStatus.archive.x.0.tmp", false},
        {"mixerStatus.archive.tmp", false},
    };
    for (const Row& row : rows)
        std::ofstream(messages / row.name) << "partial";

    ContainerDirectory directory("group", "messages");
    const std::uint8_t bytes[] = {1, 2, 3};
    ASSERT_TRUE(directory.writeAtomically("mixerStatus.archive", bytes));
    for (const Row& row : rows)
        EXPECT_EQ(!fs::exists(messages / row.name), row.removed) << row.name;

    // Only the first write of a name looks: a later leftover stays until the next instance.
    std::ofstream(messages / rows[0].name) << "partial";
    ASSERT_TRUE(directory.writeAtomically("mixerStatus.archive", bytes));
    EXPECT_TRUE(fs::exists(messages / rows[0].name));
    ContainerDirectory restarted("group", "messages");
    ASSERT_TRUE(restarted.writeAtomically("mixerStatus.archive", bytes));
    EXPECT_FALSE(fs::exists(messages / rows[0].name));
    const auto read = restarted.read("mixerStatus.archive");
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(std::vector<std::uint8_t>(read->begin(), read->end()), std::vector<std::uint8_t>({1, 2, 3}));
}

TEST(ContainerDirectoryTest, SubdirectoriesThatLeaveTheContainerAreRefused) {
    TemporaryDirectory root;
    ScopedContainerRoot containerRoot;
    containerRoot.set(root.path().string());
    const std::uint8_t bytes[] = {1};
    for (const char* subdirectory : {"..", "../escape", "messages/../../escape"}) {
        ContainerDirectory directory("group", subdirectory);
        EXPECT_FALSE(directory.writeAtomically("file", bytes)) << subdirectory;
    }
    EXPECT_FALSE(fs::exists(root.path() / "escape"));
    EXPECT_FALSE(fs::exists(root.path() / "file"));
    ContainerDirectory nested("group", "a/b");
    EXPECT_TRUE(nested.writeAtomically("file", bytes));
    EXPECT_TRUE(fs::exists(root.path() / "group" / "a" / "b" / "file"));
}
