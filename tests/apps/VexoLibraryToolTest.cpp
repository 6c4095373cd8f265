#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/media/AudioFixture.h"
#include "platform/media/MediaLibrary.h"
#include "platform/runtime/DeterministicRunLoop.h"
#include "platform/runtime/NotificationCenter.h"
#include "support/ScopedContainerRoot.h"
#include "support/ScopedEnvironment.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"

using vexo::testing::AudioFixture;
using vexo::testing::Subprocess;
namespace fs = std::filesystem;

namespace {

class VexoLibraryToolTest : public ::testing::Test {
protected:
    VexoLibraryToolTest()
        : m_music(fs::canonical(m_root.path()) / "Music") {
        m_environment.set("VEXO_CONTAINER_ROOT", (m_root.path() / "containers").string());
        m_containerRoot.set((m_root.path() / "containers").string());
        m_environment.set("VEXO_MEDIA_LIBRARY", (m_root.path() / "library.sqlite").string());
        fs::create_directories(m_music / "lists");
    }

    static Subprocess::Result library(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VEXO_LIBRARY_PATH);
        return Subprocess::run(arguments);
    }

    void song(const std::string& name, const std::string& title, const std::string& artist) {
        ASSERT_TRUE(
            AudioFixture::write(m_music / name, AudioFixture::Format::Wav, 125.0, {title, artist, "", "", {}, {}}));
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
    vexo::testing::ScopedContainerRoot m_containerRoot;
    fs::path m_music;
};

} // namespace

TEST_F(VexoLibraryToolTest, WrongUsageExitsWithTwoAndSaysWhy) {
    const std::vector<std::vector<std::string>> calls = {
        {},
        {"frobnicate"},
        {"scan"},
        {"items"},
        {"item"},
        {"item", "zz"},
        {"item", "0x"},
        {"item", "1FFFFFFFFFFFFFFFFF"},
        {"--colour", "playlists"},
        {"playlists", "extra"},
        {"demo"},
    };
    for (const auto& call : calls) {
        const auto result = library(call);
        EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(call) << result.errors;
        EXPECT_FALSE(result.errors.empty()) << testing::PrintToString(call);
    }
    const auto help = library({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* command : {"scan", "playlists", "items", "item", "demo", "--library"})
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
    EXPECT_TRUE(std::regex_search(byName.output, std::regex("One +Ann +2:05 +- +- +\\(silent\\)\n"))) << byName.output;
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
    EXPECT_TRUE(
        std::regex_search(after.output, std::regex(oneID + " +One +Ann +2:05 +- +- +\\(silent\\) +\\(missing\\)\n")))
        << after.output;
    EXPECT_NE(library({"item", oneID}).output.find("(missing"), std::string::npos);
}

TEST_F(VexoLibraryToolTest, AScanInAnotherProcessReachesThisProcessUnderTheSameIdentifiers) {
    using vexo::media::MediaLibrary;
    vexo::runtime::DeterministicRunLoop loop;
    vexo::runtime::RunLoop::CurrentScope current(&loop);
    const auto media = MediaLibrary::open(m_root.path() / "library.sqlite").valueOr(nullptr);
    ASSERT_TRUE(media);
    media->beginGeneratingLibraryChangeNotifications();
    int changes = 0;
    auto& centre = vexo::runtime::NotificationCenter::defaultCenter();
    centre.addObserver(
        &changes, [&](const vexo::runtime::Notification&) { ++changes; }, MediaLibrary::kDidChangeNotification,
        media.get());

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

namespace {

std::string fileText(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

// Width and height from a PNG's header; 0 x 0 for anything else.
std::pair<std::uint32_t, std::uint32_t> pngSize(const std::vector<std::uint8_t>& bytes) {
    if (bytes.size() < 24 || bytes[0] != 0x89 || bytes[1] != 'P' || bytes[2] != 'N' || bytes[3] != 'G')
        return {0, 0};
    auto word = [&](std::size_t at) {
        return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 | std::uint32_t{bytes[at + 2]} << 8 |
               bytes[at + 3];
    };
    return {word(16), word(20)};
}

} // namespace

TEST_F(VexoLibraryToolTest, DemoWritesTaggedSongsAndPlaylistsAndScansThem) {
    using vexo::media::MediaLibrary;
    using vexo::media::MediaType;
    const fs::path demo = m_root.path() / "new" / "Demo";
    const auto made = library({"demo", "--no-analysis", demo.string()});
    ASSERT_EQ(made.exitCode, 0) << made.errors;
    EXPECT_NE(made.output.find("40 songs"), std::string::npos) << made.output;
    EXPECT_NE(made.output.find("items: 40 added"), std::string::npos) << made.output;
    EXPECT_NE(made.errors.find("wrote song 40 of 40"), std::string::npos) << made.errors;

    const auto media = MediaLibrary::open(m_root.path() / "library.sqlite").valueOr(nullptr);
    ASSERT_TRUE(media);
    const auto playlists = media->playlists(MediaType::Any, MediaLibrary::EmptyPlaylists::Include);
    EXPECT_GE(playlists.size(), 25u);
    std::map<std::string, std::size_t> counts;
    for (const auto& playlist : playlists)
        counts[playlist.name()] = playlist.count();
    const std::vector<std::pair<std::string, std::size_t>> expected = {
        {"Warm-up", 23}, {"Top 10", 10}, {"Empty Crate", 0}, {"Lost and Found", 3}, {"All Songs", 40},
    };
    for (const auto& [name, count] : expected) {
        ASSERT_TRUE(counts.contains(name)) << name;
        EXPECT_EQ(counts[name], count) << name;
    }
    // The playlist names a fourth file that is not there.
    const std::string lost = fileText(demo / "Playlists" / "Lost and Found.m3u8");
    const auto missingLine = lost.find("../Songs/99 Never Recorded.wav\n");
    ASSERT_NE(missingLine, std::string::npos) << lost;
    EXPECT_FALSE(fs::exists(demo / "Playlists" / "../Songs/99 Never Recorded.wav"));

    const auto items = media->items();
    ASSERT_EQ(items.size(), 40u);
    std::size_t withTempo = 0, withKey = 0, withArtwork = 0, wide = 0, tall = 0, tiny = 0, large = 0;
    bool cjk = false, emoji = false, accented = false;
    for (const auto& item : items) {
        EXPECT_TRUE(item.assetURL()) << item.title();
        EXPECT_GE(item.playbackDuration(), 20.0) << item.title();
        EXPECT_LE(item.playbackDuration(), 40.0) << item.title();
        withTempo += item.beatsPerMinute() > 0 ? 1 : 0;
        withKey += item.initialKey().empty() ? 0 : 1;
        if (const auto artwork = item.artworkData()) {
            ++withArtwork;
            const auto [width, height] = pngSize(*artwork);
            ASSERT_GT(width, 0u) << item.title();
            wide += width > height ? 1 : 0;
            tall += height > width ? 1 : 0;
            tiny += width <= 16 ? 1 : 0;
            large += width >= 1000 && width == height ? 1 : 0;
        }
        cjk = cjk || item.title().find("東京") != std::string::npos;
        emoji = emoji || item.title().find("🎧") != std::string::npos;
        accented = accented || item.artist() == "Zoë & the Ångströms";
    }
    EXPECT_GT(withTempo, 0u);
    EXPECT_LT(withTempo, 40u);
    EXPECT_GT(withKey, 0u);
    EXPECT_LT(withKey, 40u);
    EXPECT_GT(withArtwork, 0u);
    EXPECT_LT(withArtwork, 40u);
    EXPECT_GT(wide, 0u);
    EXPECT_GT(tall, 0u);
    EXPECT_GT(tiny, 0u);
    EXPECT_GT(large, 0u);
    EXPECT_TRUE(cjk && emoji && accented);

    const auto top = library({"items", "Top 10"});
    EXPECT_TRUE(std::regex_search(top.output, std::regex("Morning Circuit +Nova Kinetics +0:31 +122 +Am +-\n")))
        << top.output;

    // Again into the same folder: the same bytes, the same identifiers.
    const std::string before = fileText(demo / "Songs" / "03 東京ナイト.wav");
    ASSERT_FALSE(before.empty());
    const auto again = library({"demo", "--no-analysis", demo.string()});
    ASSERT_EQ(again.exitCode, 0) << again.errors;
    EXPECT_NE(again.output.find("items: 0 added, 40 updated"), std::string::npos) << again.output;
    EXPECT_EQ(fileText(demo / "Songs" / "03 東京ナイト.wav"), before);
    const auto reread = media->items();
    ASSERT_EQ(reread.size(), 40u);
    for (std::size_t i = 0; i < items.size(); ++i)
        EXPECT_EQ(reread[i].persistentID(), items[i].persistentID()) << items[i].title();
}

TEST_F(VexoLibraryToolTest, DemoRefusesFoldersItDidNotMake) {
    const fs::path someoneElses = m_root.path() / "Documents";
    fs::create_directories(someoneElses);
    std::ofstream(someoneElses / "thesis.txt") << "precious";
    const fs::path file = m_root.path() / "file.txt";
    std::ofstream(file) << "x";

    const std::vector<std::pair<fs::path, std::string>> rows = {
        {someoneElses, ".vexo-demo-library"},
        {file, "not a folder"},
        {file / "below", file.string()},
    };
    for (const auto& [folder, reason] : rows) {
        const auto result = library({"demo", folder.string()});
        EXPECT_EQ(result.exitCode, 1) << folder;
        EXPECT_NE(result.errors.find(reason), std::string::npos) << folder << ": " << result.errors;
    }
    EXPECT_EQ(fileText(someoneElses / "thesis.txt"), "precious");
    EXPECT_FALSE(fs::exists(someoneElses / "Songs"));
    EXPECT_FALSE(fs::exists(m_root.path() / "library.sqlite"));

    if (::geteuid() != 0) { // root writes anywhere
        const fs::path locked = m_root.path() / "locked";
        fs::create_directories(locked);
        fs::permissions(locked, fs::perms::owner_read | fs::perms::owner_exec);
        const auto result = library({"demo", locked.string()});
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_NE(result.errors.find("cannot write in"), std::string::npos) << result.errors;
        fs::permissions(locked, fs::perms::owner_all);
    }
}

TEST_F(VexoLibraryToolTest, ScanAnalysesNewSongsOnceAndAnalyzeAgainOnlyWhenAsked) {
    song("one.wav", "One", "Ann");
    const auto scan = library({"scan", m_music.string()});
    ASSERT_EQ(scan.exitCode, 0) << scan.errors;
    EXPECT_NE(scan.output.find("analysed 1 song: 0 with tempo and key, 1 in part"), std::string::npos) << scan.output;
    EXPECT_NE(scan.errors.find("one.wav: silent"), std::string::npos) << scan.errors;

    struct Row {
        std::vector<std::string> arguments;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {{"scan", m_music.string()}, "analysis: no song needs analysing"},
        {{"analyze"}, "analysis: no song needs analysing"},
        {{"analyze", "--force", (m_root.path() / "elsewhere").string()}, "analysis: no song needs analysing"},
        {{"analyze", "--force", (m_music / "one.wav").string()}, "analysed 1 song"},
        {{"analyze", "-j", "2", "--force"}, "analysed 1 song"},
    };
    for (const Row& row : rows) {
        const auto result = library(row.arguments);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_NE(result.output.find(row.expected), std::string::npos) << row.arguments.back() << ": " << result.output;
    }
    EXPECT_EQ(library({"--library", (m_root.path() / "none.sqlite").string(), "analyze"}).exitCode, 1);
}
