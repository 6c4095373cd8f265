#include "platform/media/TagReader.h"

#include <fstream>

#include <gtest/gtest.h>

#include "platform/media/AudioFixture.h"
#include "support/TemporaryDirectory.h"

using vexo::media::MediaType;
using vexo::media::TagReader;
using vexo::testing::AudioFixture;

namespace {

void writeBytes(const std::filesystem::path& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

} // namespace

TEST(TagReaderTest, ReadsTagsLengthAndPictureOfEveryFormat) {
    using Format = AudioFixture::Format;
    vexo::testing::TemporaryDirectory folder;
    const std::vector<Format> formats = {Format::Wav,       Format::Mp3,  Format::Flac,
                                         Format::OggVorbis, Format::Opus, Format::M4a};
    int seed = 0;
    for (const Format format : formats) {
        const auto path = folder.path() / ("song" + AudioFixture::extension(format));
        const auto picture = AudioFixture::pictureBytes(++seed);
        ASSERT_TRUE(AudioFixture::write(path, format, 3.0, {"Tïtle", "Ärtist", "Album", "Techno", picture, {}}))
            << path;
        const auto track = TagReader::read(path);
        ASSERT_TRUE(track) << path << ": " << track.error().message();
        EXPECT_EQ(track->title, "Tïtle") << path;
        EXPECT_EQ(track->artist, "Ärtist") << path;
        EXPECT_EQ(track->albumTitle, "Album") << path;
        EXPECT_NEAR(track->duration, 3.0, 0.1) << path;
        EXPECT_EQ(track->mediaType, MediaType::Music) << path;
        EXPECT_EQ(track->artwork, picture) << path;
    }
}

TEST(TagReaderTest, KindComesFromTheFileThenTheGenreThenTheExtension) {
    using Format = AudioFixture::Format;
    struct Row {
        std::string name;
        Format format;
        std::string genre;
        std::optional<int> mp4Kind;
        MediaType expected;
    };
    const std::vector<Row> rows = {
        {"a.wav", Format::Wav, "Podcast", {}, MediaType::Podcast},
        {"b.mp3", Format::Mp3, "audiobooks", {}, MediaType::AudioBook},
        {"c.m4a", Format::M4a, "Pop", 21, MediaType::Podcast},
        {"d.m4a", Format::M4a, "Podcast", 1, MediaType::Music},
        {"e.m4b", Format::M4a, "", {}, MediaType::AudioBook},
        {"f.m4v", Format::M4a, "", {}, MediaType::Movie},
        {"g.flac", Format::Flac, "Podcasts", {}, MediaType::Podcast},
    };
    vexo::testing::TemporaryDirectory folder;
    for (const auto& row : rows) {
        const auto path = folder.path() / row.name;
        ASSERT_TRUE(AudioFixture::write(path, row.format, 1.0, {"T", "A", "", row.genre, {}, row.mp4Kind}));
        const auto track = TagReader::read(path);
        ASSERT_TRUE(track) << row.name;
        EXPECT_EQ(track->mediaType, row.expected) << row.name;
    }
}

TEST(TagReaderTest, UntitledFileIsNamedAfterItsFile) {
    vexo::testing::TemporaryDirectory folder;
    const auto path = folder.path() / "02 Night Drive.mp3";
    ASSERT_TRUE(AudioFixture::write(path, AudioFixture::Format::Mp3, 1.0, {"  ", "", "", "", {}, {}}));
    const auto track = TagReader::read(path);
    ASSERT_TRUE(track);
    EXPECT_EQ(track->title, "02 Night Drive");
    EXPECT_EQ(track->artist, "");
    EXPECT_FALSE(track->artwork);
}

TEST(TagReaderTest, DamagedOrMissingFilesGiveAReasonNotACrash) {
    vexo::testing::TemporaryDirectory folder;
    const std::vector<std::pair<std::string, std::string>> files = {
        {"empty.mp3", ""},
        {"text.flac", "this is not a FLAC stream at all"},
        {"truncated.flac", "fLaC\x80\x00\x00\x22\x10"},
        {"riff.wav", "RIFF\xff\xff\xff\xffWAVEfmt "},
        {"garbage.ogg", std::string(4096, '\x5a')},
        {"garbage.opus", "OggS\0\0"},
        {"zero.m4a", std::string("\0\0\0\0ftypM4A ", 12)},
        {"loop.m4a", std::string("\0\0\0\x08moov\0\0\0\x08trak", 16)},
    };
    for (const auto& [name, bytes] : files) {
        writeBytes(folder.path() / name, bytes);
        const auto track = TagReader::read(folder.path() / name);
        ASSERT_FALSE(track) << name;
        EXPECT_EQ(track.error().kind(), vexo::ErrorKind::InvalidData) << name << ": " << track.error().message();
    }
    const auto absent = TagReader::read(folder.path() / "absent.mp3");
    ASSERT_FALSE(absent);
    EXPECT_EQ(absent.error(), vexo::Error(vexo::ErrorKind::NotFound, "No such file or directory"));
}

TEST(TagReaderTest, KnowsAudioFilesByExtensionInAnyCase) {
    const std::vector<std::pair<std::string, bool>> rows = {
        {"a.mp3", true}, {"a.MP3", true},      {"a.Flac", true}, {"a.ogg", true},  {"a.opus", true},
        {"a.m4a", true}, {"a.wav", true},      {"a.aiff", true}, {"a.m3u", false}, {"a.jpg", false},
        {"mp3", false},  {"a.mp3.txt", false}, {".mp3", false},
    };
    for (const auto& [name, expected] : rows)
        EXPECT_EQ(TagReader::isAudioFile(name), expected) << name;
}

TEST(TagReaderTest, ReadsTempoAndKeyWhereEachFormatKeepsThem) {
    using Format = AudioFixture::Format;
    struct Row {
        Format format;
        std::string bpm;
        std::string key;
        bool keyUnderOtherName;
        std::int64_t expectedBpm;
        std::string expectedKey;
    };
    std::vector<Row> rows;
    for (const Format format : {Format::Wav, Format::Mp3, Format::Flac, Format::OggVorbis, Format::Opus, Format::M4a}) {
        rows.push_back({format, "128", "Am", false, 128, "Am"});
        rows.push_back({format, "", "F♯m", true, 0, "F♯m"});
        rows.push_back({format, "", "", false, 0, ""});
    }
    rows.push_back({Format::Mp3, "127.6", " 8A ", false, 128, "8A"});
    rows.push_back({Format::Flac, "fast", "", false, 0, ""});
    rows.push_back({Format::OggVorbis, "98 BPM", "D minor", false, 98, "D minor"});

    vexo::testing::TemporaryDirectory folder;
    int index = 0;
    for (const auto& row : rows) {
        const auto path = folder.path() / ("song" + std::to_string(++index) + AudioFixture::extension(row.format));
        AudioFixture::Tags tags("Title", "Artist", "Album", "", AudioFixture::pictureBytes(index));
        tags.bpm = row.bpm;
        tags.initialKey = row.key;
        tags.keyUnderOtherName = row.keyUnderOtherName;
        ASSERT_TRUE(AudioFixture::write(path, row.format, 1.0, tags)) << path;
        const auto track = TagReader::read(path);
        ASSERT_TRUE(track) << path;
        EXPECT_EQ(track->beatsPerMinute, row.expectedBpm) << path << " bpm " << row.bpm;
        EXPECT_EQ(track->initialKey, row.expectedKey) << path << " key " << row.key;
        // Writing tempo and key leaves the other tags and the picture alone.
        EXPECT_EQ(track->title, "Title") << path;
        EXPECT_EQ(track->artwork, AudioFixture::pictureBytes(index)) << path;
    }
}

TEST(TagReaderTest, TempoTextReadsAsWholeBeatsPerMinuteOrNone) {
    const std::vector<std::pair<std::string, std::int64_t>> rows = {
        {"128", 128}, {" 127.6 ", 128}, {"127.4", 127}, {"127,5", 128}, {"98 BPM", 98},
        {"0.6", 1},   {"999", 999},     {"999.5", 0},   {"1000", 0},    {"0", 0},
        {"", 0},      {"fast", 0},      {"-120", 0},    {".5", 0},      {"99999999999999999999999", 0},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(TagReader::beatsPerMinuteFromText(text), expected) << '"' << text << '"';
}

TEST(TagReaderTest, OverlongKeyIsCutBetweenCharacters) {
    vexo::testing::TemporaryDirectory folder;
    const auto path = folder.path() / "long.flac";
    AudioFixture::Tags tags("T", "A");
    tags.initialKey = "Ré " + std::string(27, 'x') + "é mineur"; // bytes 31 and 32 are "é"
    ASSERT_TRUE(AudioFixture::write(path, AudioFixture::Format::Flac, 1.0, tags));
    const auto track = TagReader::read(path);
    ASSERT_TRUE(track);
    EXPECT_EQ(track->initialKey, "Ré " + std::string(27, 'x'));
}
