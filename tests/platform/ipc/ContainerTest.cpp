#include "platform/ipc/Container.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/ScopedContainerRoot.h"
#include "support/TemporaryDirectory.h"

using namespace vexo::ipc;
using vexo::testing::ScopedContainerRoot;
using vexo::testing::TemporaryDirectory;
namespace fs = std::filesystem;

namespace {

mode_t permissionsOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

} // namespace

TEST(ContainerTest, GroupMustBeOnePlainPathComponent) {
    TemporaryDirectory root;
    ScopedContainerRoot containerRoot;
    containerRoot.set(root.path().string());
    for (const std::string group : {"", ".", "..", "/", "a/b", "../escape", "/etc"})
        EXPECT_FALSE(Container::pathForGroup(group).has_value()) << "\"" << group << "\"";
    EXPECT_FALSE(Container::pathForGroup(std::string("nul\0x", 5)).has_value());
    EXPECT_TRUE(fs::is_empty(root.path())) << "a refused group creates nothing";

    for (const std::string group : {"group.vexo.watch", "...", ".hidden", "with space", "ünï"}) {
        EXPECT_EQ(Container::pathForGroup(group), root.path() / group);
        EXPECT_EQ(permissionsOf(root.path() / group), 0700u) << group;
    }
}

TEST(ContainerTest, RootComesFromTheLocationInOrder) {
    TemporaryDirectory temporary;
    const fs::path configured = temporary.path() / "configured" / "nested";
    const fs::path runtime = temporary.path() / "runtime";
    fs::create_directory(runtime);
    // The fallback is the real /tmp, so the group is one that no other run uses.
    const std::string group = "vexo-container-test-" + std::to_string(::getpid());
    const fs::path fallback = fs::path("/tmp") / ("vexo-" + std::to_string(::geteuid())) / group;

    const struct {
        std::optional<std::string> containerRoot;
        std::optional<std::string> runtimeDirectory;
        std::optional<fs::path> expected;
    } rows[] = {
        {configured.string(), runtime.string(), configured / group},
        {configured.string() + "/", std::nullopt, configured / group},
        {"", runtime.string(), runtime / "vexo" / group},
        {std::nullopt, runtime.string(), runtime / "vexo" / group},
        {"relative/root", runtime.string(), std::nullopt},
        {std::nullopt, "relative/runtime", fallback},
        {std::nullopt, std::nullopt, fallback},
    };
    ScopedContainerRoot restored;
    for (const auto& row : rows) {
        Container::setLocation({.root = row.containerRoot, .runtimeDirectory = row.runtimeDirectory});
        EXPECT_EQ(Container::pathForGroup(group), row.expected)
            << row.containerRoot.value_or("(unset)") << " / " << row.runtimeDirectory.value_or("(unset)");
    }
    for (const fs::path& made : {configured, configured / group, runtime / "vexo", fallback.parent_path(), fallback})
        EXPECT_EQ(permissionsOf(made), 0700u) << made;
    std::error_code ignored;
    fs::remove(fallback, ignored);
}

TEST(ContainerTest, UsesOnlyDirectoriesOfTheCallingUser) {
    TemporaryDirectory root;
    TemporaryDirectory elsewhere;
    ScopedContainerRoot containerRoot;
    containerRoot.set(root.path().string());

    fs::create_directory_symlink(elsewhere.path(), root.path() / "link");
    EXPECT_FALSE(Container::pathForGroup("link").has_value()) << "a symbolic link could lead anywhere";
    { std::ofstream(root.path() / "file") << "x"; }
    EXPECT_FALSE(Container::pathForGroup("file").has_value());

    const fs::path open = root.path() / "open";
    fs::create_directory(open);
    fs::permissions(open, fs::perms::owner_all | fs::perms::group_read | fs::perms::others_read);
    EXPECT_EQ(Container::pathForGroup("open"), open);
    EXPECT_EQ(permissionsOf(open), 0700u) << "an existing container is made private";

    containerRoot.set((root.path() / "file" / "below").string());
    EXPECT_FALSE(Container::pathForGroup("group").has_value()) << "the root cannot be made";

    if (::geteuid() != 0)
        return; // only root can make a directory of another user
    for (const char* foreign : {"foreign", "foreign-root"}) {
        fs::create_directory(root.path() / foreign);
        ASSERT_EQ(::chown((root.path() / foreign).c_str(), 65534, 65534), 0);
    }
    containerRoot.set(root.path().string());
    EXPECT_FALSE(Container::pathForGroup("foreign").has_value());
    containerRoot.set((root.path() / "foreign-root").string());
    EXPECT_FALSE(Container::pathForGroup("group").has_value());
}
