#include "platform/ipc/Container.h"

#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/ipc/ScopedEnvironment.h"
#include "platform/ipc/TemporaryDirectory.h"

using namespace vexo::ipc;
using vexo::ipc::testing::ScopedEnvironment;
using vexo::ipc::testing::TemporaryDirectory;
namespace fs = std::filesystem;

namespace {

mode_t permissionsOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// A group name no other test or run uses, for the one case that must use /tmp itself.
std::string uniqueGroup() {
    return "vexo-container-test-" + std::to_string(::getpid());
}

} // namespace

TEST(ContainerTest, GroupMustBeOnePlainPathComponent) {
    TemporaryDirectory root;
    ScopedEnvironment environment;
    environment.set("VEXO_CONTAINER_ROOT", root.path().string());
    const std::string refused[] = {"", ".", "..", "/", "a/b", "../escape", "/etc", std::string("nul\0x", 5)};
    for (const std::string& group : refused)
        EXPECT_FALSE(Container::pathForGroup(group).has_value()) << "\"" << group << "\"";
    EXPECT_TRUE(fs::is_empty(root.path())) << "a refused group creates nothing";

    const std::string accepted[] = {"group.vexo.watch", "...", ".hidden", "with space", "ünï"};
    for (const std::string& group : accepted) {
        const auto container = Container::pathForGroup(group);
        ASSERT_TRUE(container.has_value()) << group;
        EXPECT_EQ(*container, root.path() / group);
        EXPECT_TRUE(fs::is_directory(*container)) << group;
        EXPECT_EQ(permissionsOf(*container), 0700u) << group;
    }
}

TEST(ContainerTest, RootComesFromTheEnvironmentInOrder) {
    TemporaryDirectory temporary;
    const fs::path configured = temporary.path() / "configured" / "nested";
    const fs::path runtime = temporary.path() / "runtime";
    fs::create_directory(runtime);
    const std::string group = uniqueGroup();
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
    for (const auto& row : rows) {
        ScopedEnvironment environment;
        environment.set("VEXO_CONTAINER_ROOT", row.containerRoot);
        environment.set("XDG_RUNTIME_DIR", row.runtimeDirectory);
        const auto container = Container::pathForGroup(group);
        EXPECT_EQ(container, row.expected) << row.containerRoot.value_or("(unset)") << " / "
                                           << row.runtimeDirectory.value_or("(unset)");
        if (container) {
            EXPECT_EQ(permissionsOf(*container), 0700u);
        }
    }
    EXPECT_EQ(permissionsOf(runtime / "vexo"), 0700u);
    EXPECT_EQ(permissionsOf(fallback.parent_path()), 0700u);
    std::error_code ignored;
    fs::remove(fallback, ignored);
}

TEST(ContainerTest, RefusesWhatIsNotOneOfOurDirectories) {
    TemporaryDirectory root;
    ScopedEnvironment environment;
    environment.set("VEXO_CONTAINER_ROOT", root.path().string());
    TemporaryDirectory elsewhere;

    fs::create_directory_symlink(elsewhere.path(), root.path() / "link");
    EXPECT_FALSE(Container::pathForGroup("link").has_value()) << "a symbolic link could lead anywhere";

    { std::ofstream(root.path() / "file") << "x"; }
    EXPECT_FALSE(Container::pathForGroup("file").has_value());

    if (::geteuid() == 0) {
        const fs::path foreign = root.path() / "foreign";
        fs::create_directory(foreign);
        ASSERT_EQ(::chown(foreign.c_str(), 65534, 65534), 0);
        EXPECT_FALSE(Container::pathForGroup("foreign").has_value()) << "owned by another user";

        const fs::path foreignRoot = root.path() / "foreign-root";
        fs::create_directory(foreignRoot);
        ASSERT_EQ(::chown(foreignRoot.c_str(), 65534, 65534), 0);
        environment.set("VEXO_CONTAINER_ROOT", foreignRoot.string());
        EXPECT_FALSE(Container::pathForGroup("group").has_value()) << "root owned by another user";
    }
}

TEST(ContainerTest, ExistingContainerIsMadePrivate) {
    TemporaryDirectory root;
    ScopedEnvironment environment;
    environment.set("VEXO_CONTAINER_ROOT", root.path().string());
    const fs::path open = root.path() / "open";
    fs::create_directory(open);
    ASSERT_EQ(::chmod(open.c_str(), 0755), 0);
    EXPECT_EQ(Container::pathForGroup("open"), open);
    EXPECT_EQ(permissionsOf(open), 0700u);
}

TEST(ContainerTest, UncreatableRootGivesNothing) {
    TemporaryDirectory temporary;
    { std::ofstream(temporary.path() / "file") << "x"; }
    ScopedEnvironment environment;
    environment.set("VEXO_CONTAINER_ROOT", (temporary.path() / "file" / "below").string());
    EXPECT_FALSE(Container::pathForGroup("group").has_value());
}
