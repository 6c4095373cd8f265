// The real vexo-watch program, started as a person starts it.

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "FaceTestClient.h"
#include "support/ScopedEnvironment.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"

#ifdef VEXO_WATCH_PROGRAM

using vexo::testing::Subprocess;

namespace {

class WatchProgramTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(VEXO_WATCH_PROGRAM))
            GTEST_SKIP() << VEXO_WATCH_PROGRAM << " is not built";
        std::filesystem::create_directories(m_directory.path() / "web");
        std::ofstream(m_directory.path() / "web" / "index.html") << "<!doctype html><title>face</title>";
        m_environment.set("VEXO_CONTAINER_ROOT", (m_directory.path() / "containers").string());
        m_environment.set("VEXO_MEDIA_LIBRARY", (m_directory.path() / "library.sqlite").string());
        m_environment.set("XDG_CONFIG_HOME", (m_directory.path() / "config").string());
        m_environment.set("VEXO_PHONE_LAUNCH_COMMAND", std::nullopt);
        m_environment.set("VEXO_WEB_DIR", std::nullopt);
    }

    std::vector<std::string> command(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), VEXO_WATCH_PROGRAM);
        return arguments;
    }

    // The port of the line "Watch face: http://127.0.0.1:PORT/", or 0.
    static std::uint16_t portOf(const std::optional<std::string>& line) {
        std::smatch match;
        static const std::regex pattern(R"(^Watch face: http://127\.0\.0\.1:(\d+)/$)");
        if (!line || !std::regex_match(*line, match, pattern))
            return 0;
        return static_cast<std::uint16_t>(std::stoi(match[1]));
    }

    vexo::testing::TemporaryDirectory m_directory;
    vexo::testing::ScopedEnvironment m_environment;
};

} // namespace

TEST_F(WatchProgramTest, ServesTheWatchAndStopsCleanlyOnSigterm) {
    Subprocess watch(command({"--port", "0", "--web-root", (m_directory.path() / "web").string()}));
    std::optional<std::string> line = watch.readLine(120);
    std::uint16_t port = portOf(line);
    ASSERT_NE(port, 0) << line.value_or("(no line)") << "\n" << watch.errors();

    vexo::face::testing::HttpReply snapshot = vexo::face::testing::httpRequest(port, {"GET", "/api/snapshot", "", {}});
    ASSERT_EQ(snapshot.status, 200) << watch.errors();
    nlohmann::json json = nlohmann::json::parse(snapshot.body);
    EXPECT_EQ(json["started"], true);
    EXPECT_EQ(json["pages"].size(), 3u);
    EXPECT_EQ(vexo::face::testing::httpRequest(port, {"GET", "/", "", {}}).body, "<!doctype html><title>face</title>");

    // A second watch on the same port says so in one line and fails.
    Subprocess::Result second = Subprocess::run(command({"--port", std::to_string(port)}));
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_NE(second.errors.find("in use"), std::string::npos) << second.errors;

    EXPECT_EQ(watch.stop(SIGTERM), 0) << watch.errors();
}

TEST_F(WatchProgramTest, UsageErrorsExitWithTwo) {
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
        std::string output; // part of standard output or error
    } cases[] = {
        {{"--help"}, 0, "--port"},
        {{"--version"}, 0, "vexo-watch"},
        {{"--port", "70000"}, 2, "port"},
        {{"--bogus"}, 2, "bogus"},
        {{"--web-root", "/nonexistent/web"}, 2, "not a directory"},
        {{"--language", "C"}, 2, "language"},
        {{"--group", "../elsewhere"}, 2, "group"},
    };
    for (const auto& row : cases) {
        Subprocess::Result result = Subprocess::run(command(row.arguments));
        EXPECT_EQ(result.exitCode, row.exitCode) << row.arguments[0];
        EXPECT_NE((result.output + result.errors).find(row.output), std::string::npos)
            << result.output << result.errors;
    }
}

#endif
