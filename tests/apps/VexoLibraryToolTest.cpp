#include "support/Subprocess.h"

#include "platform/media/AudioFixture.h"
#include "platform/media/MediaLibrary.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/runtime/NotificationCenter.h"
#include "support/ScopedEnvironment.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

using vexo::testing::AudioFixture;
using vexo::testing::Subprocess;
namespace fs = std::filesystem;

namespace {

class VexoLibraryToolTest : public ::testing::Test {
protected:
    VexoLibraryToolTest() : m_music(fs::canonical(m_root.path()) / "Music") {
        m_environment.set("VEXO_CONTAINER_ROOT", (m_root.path() / "containers").string());
        m_environment.set("VEXO_MEDIA_LIBRARY", (m_root.path() / "library.sqlite").string());
        fs::create_directories(m_music / "lists");
    }

    static Subprocess::Result library(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VEXO_LIBRARY_PATH);
        return Subprocess::run(arguments);
    }

    void song(const std::string& name, const std::string& title, const std::string& artist) {
        ASSERT_TRUE(AudioFixture::write(m_music / name, AudioFixture::Format::Wav, 125.0,
                                        {title, artist, "", "", {}, {}}));
    }

    // The identifier column of the line that contains `text`.
    static std::string idOnLine(const std::string& output, const std::string& text) {
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            if (line.find(text) != std::string::npos)
                return line.substr(0, line.find(' '));
        }
        return {};
    }

    vexo::testing::TemporaryDirectory m_root;
    vexo::testing::ScopedEnvironment m_environment;
    fs::path m_music;
};

} // namespace

TEST_F(VexoLibraryToolTest, WrongUsageExitsWithTwoAndSaysWhy) {
    const std::vector<std::vector<std::string>> calls = {
        {}, {"frobnicate"}, {"scan"}, {"items"}, {"item"}, {"item", "zz"}, {"item", "0x"},
        {"item", "1FFFFFFFFFFFFFFFFF"}, {"--colour", "playlists"}, {"playlists", "extra"},
    };
    for (const auto& call : calls) {
        const auto result = library(call);
        EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(call) << result.errors;
        EXPECT_FALSE(result.errors.empty()) << testing::PrintToString(call);
    }
    const auto help = library({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* command : {"scan", "playlists", "items", "item", "--library"})
        EXPECT_NE(help.output.find(command), std::string::npos) << command;
    EXPECT_EQ(library({"--version"}).exitCode, 0);
}

TEST_F(VexoLibraryToolTest, MissingFolderOrLibraryFailsWithOne) {
    std::ofstream(m_root.path() / "file.txt") << "x";
    for (const auto& folder : {m_root.path() / "absent", m_root.path() / "file.txt"}) {
        const auto result = library({"scan", folder.string()});
        EXPECT_EQ(result.exitCode, 1) << folder;
        EXPECT_NE(result.errors.find(folder.string()), std::string::npos) << result.errors;
    }
    EXPECT_FALSE(fs::exists(m_root.path() / "library.sqlite"));
    const auto listing = library({"playlists"});
    EXPECT_EQ(listing.exitCode, 1);
    EXPECT_NE(listing.errors.find("scan"), std::string::npos) << listing.errors;
}

TEST_F(VexoLibraryToolTest, ScanThenListPlaylistsItemsAndOneItem) {
    song("one.wav", "One", "Ann");
    song("two.wav", "Two", "Bob");
    std::ofstream(m_music / "lists" / "Road Trip.m3u8") << "#EXTM3U\n../one.wav\n../gone.wav\n../two.wav\n";
    std::ofstream(m_music / "Bad.mp3") << "not audio";

    const auto scan = library({"scan", m_music.string()});
    ASSERT_EQ(scan.exitCode, 0) << scan.errors;
    EXPECT_NE(scan.output.find("items: 2 added, 0 updated, 0 gone"), std::string::npos) << scan.output;
    EXPECT_NE(scan.output.find("playlists: 1 added"), std::string::npos) << scan.output;
    EXPECT_NE(scan.errors.find("Bad.mp3"), std::string::npos) << scan.errors;
    // Not a terminal: no progress line redrawn in place.
    EXPECT_EQ(scan.errors.find('\r'), std::string::npos);

    const auto playlists = library({"playlists"});
    ASSERT_EQ(playlists.exitCode, 0) << playlists.errors;
    const std::string playlistID = idOnLine(playlists.output, "Road Trip");
    EXPECT_TRUE(std::regex_match(playlistID, std::regex("[1-9A-F][0-9A-F]{0,15}"))) << playlists.output;
    EXPECT_TRUE(std::regex_search(playlists.output, std::regex("Road Trip +2\n"))) << playlists.output;

    const auto byName = library({"items", "Road Trip"});
    ASSERT_EQ(byName.exitCode, 0) << byName.errors;
    EXPECT_TRUE(std::regex_search(byName.output, std::regex("One +Ann +2:05\n"))) << byName.output;
    EXPECT_EQ(library({"items", playlistID}).output, byName.output);
    EXPECT_EQ(library({"items", "0x" + playlistID}).output, byName.output);
    EXPECT_EQ(library({"items", std::to_string(std::stoull(playlistID, nullptr, 16))}).output, byName.output);
    EXPECT_EQ(library({"items", "No Such List"}).exitCode, 1);

    const std::string oneID = idOnLine(byName.output, "One");
    const auto one = library({"item", oneID});
    ASSERT_EQ(one.exitCode, 0) << one.errors;
    EXPECT_NE(one.output.find("title:       One"), std::string::npos) << one.output;
    EXPECT_NE(one.output.find("file://" + (m_music / "one.wav").string()), std::string::npos) << one.output;
    EXPECT_NE(one.output.find("playlists:   Road Trip"), std::string::npos) << one.output;
    EXPECT_EQ(library({"item", std::to_string(std::stoull(oneID, nullptr, 16))}).output, one.output);
    EXPECT_EQ(library({"item", "1"}).exitCode, 1);

    // A removed file stays listed, marked missing, under the same identifier.
    fs::remove(m_music / "one.wav");
    const auto rescan = library({"scan", m_music.string()});
    EXPECT_NE(rescan.output.find("0 added, 0 updated, 1 gone, 1 unchanged"), std::string::npos) << rescan.output;
    const auto after = library({"items", "Road Trip"});
    EXPECT_TRUE(std::regex_search(after.output, std::regex(oneID + " +One +Ann +2:05 +\\(missing\\)\n")))
        << after.output;
    EXPECT_NE(library({"item", oneID}).output.find("(missing"), std::string::npos);
}

TEST_F(VexoLibraryToolTest, AScanInAnotherProcessReachesThisProcessUnderTheSameIdentifiers) {
    using vexo::media::MediaLibrary;
    vexo::runtime::DeterministicRunLoop loop;
    vexo::runtime::RunLoop::CurrentScope current(&loop);
    const auto media = MediaLibrary::open(MediaLibrary::defaultPath());
    ASSERT_TRUE(media);
    media->beginGeneratingLibraryChangeNotifications();
    int changes = 0;
    auto& centre = vexo::runtime::NotificationCenter::defaultCenter();
    centre.addObserver(&changes, [&](const vexo::runtime::Notification&) { ++changes; },
                       MediaLibrary::kDidChangeNotification, media.get());

    song("one.wav", "One", "Ann");
    ASSERT_EQ(library({"scan", m_music.string()}).exitCode, 0);
    loop.runUntilIdle();
    EXPECT_EQ(changes, 1);
    const auto items = media->items();
    ASSERT_EQ(items.size(), 1u);
    char hex[17];
    std::snprintf(hex, sizeof hex, "%llX", static_cast<unsigned long long>(items[0].persistentID()));
    EXPECT_NE(library({"item", hex}).output.find("title:       One"), std::string::npos);

    // Another group's scan is not heard here.
    song("two.wav", "Two", "Bob");
    ASSERT_EQ(library({"--group", "group.other", "scan", m_music.string()}).exitCode, 0);
    loop.runUntilIdle();
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(media->items().size(), 2u);
    centre.removeObserver(&changes);
}
