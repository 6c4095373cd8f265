// The installed tree as a user gets it: `cmake --install` into a temporary prefix, the tree
// moved elsewhere, and the programs run from it with none of the variables that point at
// data, so that they can find their files only beside themselves.

#include <chrono>
#include <csignal>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "face/FaceTestClient.h"
#include "support/ScopedEnvironment.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"

using vexo::testing::Subprocess;

namespace {

const std::vector<std::string> kPrograms = {"vexo-watch", "vexo-phone", "vexo-library", "wormhole"};

std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void replaceInFile(const std::filesystem::path& path, const std::string& from, const std::string& to) {
    std::string text = readFile(path);
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from << " not in " << path;
    text.replace(at, from.size(), to);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// The options and subcommands that a --help text lists: the names of each line under
// "Options:" ("-p,--port INT") and the first word of each line under "Subcommands:".
std::set<std::string> wordsOfHelp(const std::string& help) {
    std::set<std::string> words;
    std::istringstream lines(help);
    std::string line;
    std::string section;
    static const std::regex option(R"((?:^|,)(--?[A-Za-z][A-Za-z0-9-]*))");
    while (std::getline(lines, line)) {
        if (!line.empty() && line.front() != ' ') {
            section = line;
            continue;
        }
        std::string first;
        if (!(std::istringstream(line) >> first))
            continue;
        if (section == "Subcommands:")
            words.insert(first);
        if (section != "Options:")
            continue;
        // "  -p,--port INT ...": the names before the first space.
        const std::string names = first;
        for (std::sregex_iterator match(names.begin(), names.end(), option), end; match != end; ++match)
            words.insert((*match)[1]);
    }
    return words;
}

class InstalledTreeTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::filesystem::path staging = m_directory.path() / "staging";
        Subprocess::Result installed =
            Subprocess::run({VEXO_CMAKE_COMMAND, "--install", VEXO_BUILD_DIR, "--prefix", staging.string()});
        ASSERT_EQ(installed.exitCode, 0) << installed.output << installed.errors;
        // Unpacked somewhere else than where it was installed.
        m_prefix = m_directory.path() / "elsewhere";
        std::filesystem::rename(staging, m_prefix);

        for (const char* name :
             {"VEXO_RESOURCE_DIR", "VEXO_ASSET_DIR", "VEXO_WEB_DIR", "VEXO_CONTAINER_ROOT", "VEXO_MEDIA_LIBRARY",
              "VEXO_PHONE_LAUNCH_COMMAND", "VEXO_LANGUAGE", "VEXO_LOCALE", "LC_ALL", "NOTIFY_SOCKET", "WATCHDOG_USEC"})
            m_environment.set(name, std::nullopt);
        m_environment.set("LANG", "C.UTF-8");
        m_environment.set("HOME", (m_directory.path() / "home").string());
        for (const char* name : {"XDG_RUNTIME_DIR", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME"}) {
            const std::filesystem::path folder = m_directory.path() / name;
            std::filesystem::create_directories(folder);
            std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
            m_environment.set(name, folder.string());
        }
    }

    [[nodiscard]] std::string program(const std::string& name) const { return (m_prefix / "bin" / name).string(); }
    [[nodiscard]] std::filesystem::path data(const std::string& part) const { return m_prefix / "share/vexo" / part; }

    vexo::testing::TemporaryDirectory m_directory;
    vexo::testing::ScopedEnvironment m_environment;
    std::filesystem::path m_prefix;
};

} // namespace

TEST_F(InstalledTreeTest, TheWatchServesItsInstalledFilesAndThePhoneAnswers) {
    // Marks on the installed copies, which a program reading the source or build tree misses.
    std::ofstream(data("web/index.html"), std::ios::app) << "<!-- installed copy -->\n";
    replaceInFile(data("resources/en.lproj/Localizable.strings"), R"("Manual" = "Manual";)",
                  R"x("Manual" = "Manual (installed copy)";)x");
    std::filesystem::copy_file(data("assets/turntable-play.png"), data("assets/default-artwork.png"),
                               std::filesystem::copy_options::overwrite_existing);

    Subprocess phone({program("vexo-phone"), "--audio-device", "none"});
    std::optional<std::string> listening = phone.readLine(60);
    ASSERT_TRUE(listening &&
                listening->starts_with("listening in " + (m_directory.path() / "XDG_RUNTIME_DIR/vexo").string()))
        << listening.value_or("(no line)") << "\n"
        << phone.errors();
    // The index goes where data belongs.
    EXPECT_TRUE(std::filesystem::exists(m_directory.path() / "XDG_DATA_HOME/vexo/media-library.sqlite"));

    Subprocess watch({program("vexo-watch"), "--port", "0"});
    std::optional<std::string> line = watch.readLine(60);
    std::smatch match;
    static const std::regex serving(R"(^Watch face: http://127\.0\.0\.1:(\d+)/$)");
    ASSERT_TRUE(line && std::regex_match(*line, match, serving)) << line.value_or("(no line)") << "\n"
                                                                 << watch.errors();
    const auto port = static_cast<std::uint16_t>(std::stoi(match[1]));

    using vexo::face::testing::httpRequest;
    EXPECT_EQ(httpRequest(port, {"GET", "/", "", {}}).body, readFile(data("web/index.html")));
    const vexo::face::testing::HttpReply snapshot = httpRequest(port, {"GET", "/api/snapshot", "", {}});
    EXPECT_EQ(snapshot.status, 200);
    EXPECT_NE(snapshot.body.find("Manual (installed copy)"), std::string::npos) << snapshot.body.substr(0, 2000);
    const vexo::face::testing::HttpReply artwork = httpRequest(port, {"GET", "/assets/default-artwork", "", {}});
    EXPECT_EQ(artwork.status, 200);
    EXPECT_TRUE(artwork.body == readFile(data("assets/default-artwork.png"))) << artwork.body.size() << " bytes";

    // The watch asked the phone for the mixer's state at start; the phone's answer is stored.
    Subprocess::Result mixer{1, "", ""};
    for (int attempt = 0; attempt < 100 && mixer.exitCode != 0; ++attempt) {
        if (attempt > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        mixer = Subprocess::run({program("wormhole"), "read", "mixerStatus"});
    }
    EXPECT_EQ(mixer.exitCode, 0) << mixer.errors << phone.errors();
    EXPECT_NE(mixer.output.find("\"volume\""), std::string::npos) << mixer.output;

    EXPECT_EQ(watch.stop(SIGTERM), 0) << watch.errors();
    EXPECT_EQ(phone.stop(SIGTERM), 0) << phone.errors();
}

TEST_F(InstalledTreeTest, EveryOptionAndSubcommandOfEveryProgramIsInItsManualPage) {
    for (const std::string& name : kPrograms) {
        const std::filesystem::path page = m_prefix / "share/man/man1" / (name + ".1.gz");
        Subprocess::Result unpacked = Subprocess::run({VEXO_GZIP_PROGRAM, "-dc", page.string()});
        ASSERT_EQ(unpacked.exitCode, 0) << page << ": " << unpacked.errors;
        // groff writes "-" as "\-" and switches fonts with "\fB" and the like.
        const std::string text = std::regex_replace(std::regex_replace(unpacked.output, std::regex(R"(\\f[BIRP])"), ""),
                                                    std::regex(R"(\\-)"), "-");

        // The program's options and subcommands, and those of each subcommand in turn.
        std::set<std::string> words;
        std::vector<std::vector<std::string>> commands = {{program(name)}};
        while (!commands.empty()) {
            std::vector<std::string> command = commands.back();
            commands.pop_back();
            command.push_back("--help");
            Subprocess::Result help = Subprocess::run(command);
            ASSERT_EQ(help.exitCode, 0) << name << ": " << help.errors;
            command.pop_back();
            for (const std::string& word : wordsOfHelp(help.output)) {
                words.insert(word);
                if (word.front() != '-') {
                    commands.push_back(command);
                    commands.back().push_back(word);
                }
            }
        }
        EXPECT_TRUE(words.contains("--help")) << name;
        for (const std::string& word : words) {
            const std::regex whole("(^|" + std::string(R"([^A-Za-z0-9-]))") + word + "($|[^A-Za-z0-9-])");
            EXPECT_TRUE(std::regex_search(text, whole)) << name << ": " << word << " is not in " << page;
        }
    }
}

TEST_F(InstalledTreeTest, BashCompletesOptionsSubcommandsAndFiles) {
    std::ofstream(m_directory.path() / "mix-one.wav") << "";
    const std::filesystem::path script = m_prefix / "share/bash-completion/completions/vexo-phone";
    const struct {
        std::vector<std::string> words;    // the command line, the word being completed last
        std::vector<std::string> expected; // all offered, in order
    } cases[] = {
        {{"vexo-library", "sc"}, {"scan"}},
        {{"vexo-library", "p"}, {"playlists"}},
        {{"vexo-watch", "--p"}, {"--phone-command", "--port"}},
        {{"vexo-phone", "notify", ""}, {"automix", "load"}},
        {{"vexo-phone", "notify", "load", "--h"}, {"--help"}},
        {{"vexo-phone", "--verbose", "--au"}, {"--audio-device", "--auto-gain-target"}},
        {{"vexo-phone", "--record", (m_directory.path() / "mix-").string()},
         {(m_directory.path() / "mix-one.wav").string()}},
        {{"vexo-watch", "--port", ""}, {}},
        {{"wormhole", "cl"}, {"clear"}},
    };
    for (const auto& row : cases) {
        std::string words;
        for (std::size_t i = 0; i < row.words.size(); ++i)
            words += " '" + (i == 0 ? program(row.words[i]) : row.words[i]) + "'";
        const std::string command = "source '" + script.string() + "'; COMP_WORDS=(" + words +
                                    "); COMP_CWORD=" + std::to_string(row.words.size() - 1) +
                                    "; _vexo_complete; printf '%s\\n' \"${COMPREPLY[@]}\" | sort";
        Subprocess::Result completed = Subprocess::run({VEXO_BASH_PROGRAM, "--norc", "-c", command});
        ASSERT_EQ(completed.exitCode, 0) << completed.errors;
        std::vector<std::string> offered;
        std::istringstream lines(completed.output);
        for (std::string line; std::getline(lines, line);)
            if (!line.empty())
                offered.push_back(line);
        EXPECT_EQ(offered, row.expected) << row.words.front() << " ... '" << row.words.back() << "'";
    }
}

TEST_F(InstalledTreeTest, UserUnitsStartTheInstalledProgramsAsNotifyServices) {
    // Units name the programs where they were installed, not where the tree went since.
    const std::filesystem::path installedPrefix = m_directory.path() / "staging";
    for (const std::string name : {"vexo-phone", "vexo-watch"}) {
        const std::string unit = readFile(m_prefix / "lib/systemd/user" / (name + ".service"));
        for (const std::string& line : {"ExecStart=" + (installedPrefix / "bin" / name).string() + "\n",
                                        std::string("Type=notify\n"), std::string("Restart=on-failure\n")})
            EXPECT_NE(unit.find(line), std::string::npos) << name << ": no " << line;
        EXPECT_EQ(unit.find("@VEXO"), std::string::npos) << name << " has a placeholder left:\n" << unit;
    }
    EXPECT_NE(readFile(m_prefix / "lib/systemd/user/vexo-watch.service").find("After=vexo-phone.service\n"),
              std::string::npos);
}
