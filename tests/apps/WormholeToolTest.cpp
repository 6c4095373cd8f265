#include <csignal>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/ScopedEnvironment.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"

using vexo::testing::Subprocess;

namespace {

class WormholeToolTest : public ::testing::Test {
protected:
    void SetUp() override { m_environment.set("VEXO_CONTAINER_ROOT", m_root.path().string()); }

    static Subprocess::Result wormhole(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VEXO_WORMHOLE_PATH);
        return Subprocess::run(arguments);
    }

    vexo::testing::TemporaryDirectory m_root;
    vexo::testing::ScopedEnvironment m_environment;
};

} // namespace

TEST_F(WormholeToolTest, WrongUsageExitsWithTwoAndSaysWhy) {
    const std::vector<std::vector<std::string>> calls = {
        {},
        {"frobnicate"},
        {"write", "mixerStatus"},
        {"write", "mixerStatus", "{not json"},
        {"write", "mixerStatus", R"({"art": {"$data": "***"}})"},
        {"write", "../escape", "{}"},
        {"read", ""},
        {"clear"},
        {"clear", "x", "--all"},
        {"--no-directory", "clear", "--all"},
    };
    for (const auto& call : calls) {
        const auto result = wormhole(call);
        EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(call) << result.errors;
        EXPECT_FALSE(result.errors.empty()) << testing::PrintToString(call);
    }
    EXPECT_FALSE(std::filesystem::exists(m_root.path() / "escape.archive"));
}

TEST_F(WormholeToolTest, WritesReadsClearsAndDumps) {
    ASSERT_EQ(wormhole({"write", "mixerStatus", R"({"volume": 0.5, "art": {"$data": "AAEC"}})"}).exitCode, 0);
    const auto read = wormhole({"read", "mixerStatus"});
    EXPECT_EQ(read.exitCode, 0);
    EXPECT_EQ(nlohmann::json::parse(read.output),
              nlohmann::json::parse(R"({"volume": 0.5, "art": {"$data": "AAEC"}})"));

    const auto file = m_root.path() / "group.com.vexo.remote" / "messages" / "mixerStatus.archive";
    const auto dump = wormhole({"dump", file.string()});
    EXPECT_EQ(dump.exitCode, 0);
    EXPECT_EQ(dump.output, read.output);

    EXPECT_EQ(wormhole({"clear", "mixerStatus"}).exitCode, 0);
    const auto missing = wormhole({"read", "mixerStatus"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.errors.find("no message"), std::string::npos);

    EXPECT_EQ(wormhole({"dump", "/nonexistent/file"}).exitCode, 1);
    EXPECT_EQ(wormhole({"dump", VEXO_WORMHOLE_PATH}).exitCode, 1);
}

TEST_F(WormholeToolTest, ListenPrintsWhatAnotherProcessWrites) {
    Subprocess listener({VEXO_WORMHOLE_PATH, "listen", "mixerStatus", "libraryItems"});
    // The listener says so on standard error once it is registered.
    for (int i = 0; i < 100 && listener.errors().find("listening") == std::string::npos; ++i)
        listener.readLine(0.05);

    ASSERT_EQ(wormhole({"write", "mixerStatus", R"({"volume":0.5})"}).exitCode, 0);
    const auto first = listener.readLine(10);
    ASSERT_TRUE(first.has_value()) << listener.errors();
    EXPECT_NE(first->find(R"(mixerStatus {"volume":0.5})"), std::string::npos) << *first;

    ASSERT_EQ(wormhole({"write", "libraryItems", R"({"items":[1,2]})"}).exitCode, 0);
    ASSERT_EQ(wormhole({"post", "mixerStatus"}).exitCode, 0);
    const auto second = listener.readLine(10);
    const auto third = listener.readLine(10);
    ASSERT_TRUE(second && third);
    EXPECT_NE(second->find(R"(libraryItems {"items":[1,2]})"), std::string::npos) << *second;
    EXPECT_NE(third->find(R"(mixerStatus {"volume":0.5})"), std::string::npos) << *third;

    EXPECT_EQ(listener.stop(SIGINT), 0);
}
