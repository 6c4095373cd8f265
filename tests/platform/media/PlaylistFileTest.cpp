#include "platform/media/PlaylistFile.h"

#include <fstream>

#include <gtest/gtest.h>

#include "support/TemporaryDirectory.h"

using vexo::media::PlaylistFile;

namespace {

std::vector<std::string> strings(const std::vector<std::filesystem::path>& paths) {
    std::vector<std::string> out;
    for (const auto& path : paths)
        out.push_back(path.string());
    return out;
}

} // namespace

TEST(PlaylistFileTest, ParsesEntriesCommentsAndLineEndings) {
    struct Row {
        std::string file;
        std::string text;
        std::string name;
        std::vector<std::string> entries;
        std::size_t skipped;
    };
    const std::vector<Row> rows = {
        {"/m/lists/Mix.m3u8",
         "#EXTM3U\n#EXTINF:123,Artist - Title\n../songs/a.mp3\n\n# a comment\n/abs/b.flac\n",
         "Mix",
         {"/m/songs/a.mp3", "/abs/b.flac"},
         0},
        {"/m/Windows.m3u",
         "#EXTM3U\r\n#EXTINF:1,x\r\nsub\\dir\\c.mp3\r\n  d e.mp3  \r\n",
         "Windows",
         {"/m/sub/dir/c.mp3", "/m/d e.mp3"},
         0},
        {"/m/OldMac.m3u", "a.mp3\rb.mp3\r", "OldMac", {"/m/a.mp3", "/m/b.mp3"}, 0},
        {"/m/bom.m3u8", "\xEF\xBB\xBF#PLAYLIST: Road Trip \n./x/../y.ogg\n", "Road Trip", {"/m/y.ogg"}, 0},
        {"/m/urls.m3u",
         "file:///s/a%20b.mp3\nfile://localhost/s/c.mp3\nhttp://radio.example/stream\nhttps://x/y.mp3\nfile://nas/"
         "z.mp3\n",
         "urls",
         {"/s/a b.mp3", "/s/c.mp3"},
         3},
        {"/m/latin1.m3u", "Caf\xE9.mp3\n", "latin1", {"/m/Caf\xC3\xA9.mp3"}, 0},
        {"/m/utf8.m3u", "Caf\xC3\xA9.mp3\n", "utf8", {"/m/Caf\xC3\xA9.mp3"}, 0},
        {"/m/nul.m3u8", std::string("a\0b.mp3\nok.mp3", 14), "nul", {"/m/ok.mp3"}, 1},
        {"/m/empty.m3u", "", "empty", {}, 0},
        {"/m/repeat.m3u", "a.mp3\na.mp3\n", "repeat", {"/m/a.mp3", "/m/a.mp3"}, 0},
    };
    for (const auto& row : rows) {
        const auto contents = PlaylistFile::parse(row.text, row.file);
        EXPECT_EQ(contents.name, row.name) << row.file;
        EXPECT_EQ(strings(contents.entries), row.entries) << row.file;
        EXPECT_EQ(contents.skippedLines, row.skipped) << row.file;
    }
}

TEST(PlaylistFileTest, ReadResolvesSymbolicLinksOfEntriesThatExist) {
    vexo::testing::TemporaryDirectory folder;
    const auto real = std::filesystem::canonical(folder.path());
    std::filesystem::create_directory(real / "songs");
    std::ofstream(real / "songs" / "a.mp3") << "x";
    std::filesystem::create_directory_symlink(real / "songs", real / "alias");
    std::ofstream(real / "list.m3u") << "alias/a.mp3\nalias/gone.mp3\n";

    const auto contents = PlaylistFile::read(real / "list.m3u");
    ASSERT_TRUE(contents) << contents.error().message();
    EXPECT_EQ(strings(contents->entries),
              (std::vector<std::string>{(real / "songs" / "a.mp3").string(), (real / "alias" / "gone.mp3").string()}));

    const auto absent = PlaylistFile::read(real / "absent.m3u");
    ASSERT_FALSE(absent);
    EXPECT_EQ(absent.error(), vexo::Error(vexo::ErrorKind::NotFound, "No such file or directory"));
}
