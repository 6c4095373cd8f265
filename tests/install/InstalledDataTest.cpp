// Finding the files a program ships beside it, wherever the tree was installed or unpacked.

#include "platform/install/InstalledData.h"

#include <fstream>

#include <gtest/gtest.h>

#include "support/TemporaryDirectory.h"

using vexo::install::InstalledData;

TEST(InstalledDataTest, FindsShareVexoBesideTheProgramsFolderOnly) {
    vexo::testing::TemporaryDirectory directory;
    const std::filesystem::path root = directory.path();
    std::filesystem::create_directories(root / "opt/vexo/share/vexo/web");
    std::filesystem::create_directories(root / "opt/vexo/bin");
    std::filesystem::create_directories(root / "build/apps/vexo-watch");
    // A file where a folder should be is not a folder of ours.
    std::ofstream(root / "opt/vexo/share/vexo/assets") << "not a folder";

    const struct {
        std::filesystem::path executable;
        std::string part;
        std::optional<std::filesystem::path> expected;
    } cases[] = {
        {root / "opt/vexo/bin/vexo-watch", "web", root / "opt/vexo/share/vexo/web"},
        {root / "opt/vexo/bin/vexo-watch", "resources", std::nullopt},
        {root / "opt/vexo/bin/vexo-watch", "assets", std::nullopt},
        {root / "opt/vexo/bin/vexo-watch", "", std::nullopt},
        // A build tree has no share/ beside its programs.
        {root / "build/apps/vexo-watch/vexo-watch", "web", std::nullopt},
        {"bin/vexo-watch", "web", std::nullopt},
    };
    for (const auto& row : cases)
        EXPECT_EQ(InstalledData::directoryFor(row.executable, row.part), row.expected)
            << row.executable << " " << row.part;
}

TEST(InstalledDataTest, TheTestProgramRunsFromABuildTree) {
    const std::filesystem::path program = InstalledData::runningProgram();
    ASSERT_TRUE(program.is_absolute()) << program;
    EXPECT_EQ(program.filename(), "vexo_install_tests");
    EXPECT_EQ(InstalledData::directory("web"), std::nullopt);
}
