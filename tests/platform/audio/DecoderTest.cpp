#include "platform/audio/Decoder.h"

#include <cmath>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "audio/SignalMeasure.h"
#include "platform/audio/AudioFileWriter.h"
#include "platform/audio/AudioFixture.h"
#include "support/TemporaryDirectory.h"

namespace vexo::audio {
namespace {

using testing::ToneRecipe;
using namespace sound::testing;

constexpr int kRate = 48000;

std::vector<float> readAll(Decoder& decoder) {
    std::vector<float> all;
    std::vector<float> buffer(4096 * 2);
    while (const std::size_t frames = decoder.read(buffer.data(), 4096))
        all.insert(all.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(frames * 2));
    return all;
}

std::string bytesOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(DecoderTest, EveryScannedFormatDecodesToItsToneAndLength) {
    struct Row {
        const char* extension;
        int writtenRate;
        // Frames a lossy codec may add or take (encoder priming and padding).
        double lengthTolerance;
    };
    const Row rows[] = {
        {".wav", 48000, 0},    {".flac", 44100, 2},   {".aiff", 22050, 2},    {".mp3", 44100, 2400},
        {".m4a", 48000, 2400}, {".ogg", 44100, 2400}, {".opus", 48000, 2400},
    };
    vexo::testing::TemporaryDirectory folder;
    for (const Row& row : rows) {
        const auto path = folder.path() / (std::string("tone") + row.extension);
        if (auto written = testing::writeToneFile(path, ToneRecipe{row.writtenRate, 2, 1000, 0.5, 0}); !written) {
            ADD_FAILURE() << row.extension << ": " << written.error().message();
            continue;
        }
        auto opened = Decoder::open(path, kRate);
        ASSERT_TRUE(opened) << row.extension << ": " << opened.error().message();
        const std::unique_ptr<Decoder>& decoder = *opened;
        EXPECT_NEAR(static_cast<double>(decoder->estimatedFrames()), 2.0 * kRate, 0.05 * kRate) << row.extension;
        const std::vector<float> frames = readAll(*decoder);
        EXPECT_NEAR(static_cast<double>(frames.size() / 2), 2.0 * kRate, row.lengthTolerance + 2) << row.extension;
        EXPECT_FALSE(decoder->error()) << decoder->error()->message();
        const std::vector<float> middle = channel(frames, 1, kRate / 2, kRate / 2);
        EXPECT_NEAR(dominantFrequency(middle, kRate, 500, 1500), 1000, 2) << row.extension;
        EXPECT_NEAR(toneAmplitude(middle, 1000, kRate), 0.5, 0.03) << row.extension;
    }
}

TEST(DecoderTest, ASeekLandsOnTheFrameAStraightReadGives) {
    vexo::testing::TemporaryDirectory folder;
    struct Row {
        const char* extension;
        int writtenRate;
        double tolerance;
    };
    // Lossless at the output rate: exact. Resampled or lossy: the same sound within a little.
    const Row rows[] = {{".wav", 48000, 0}, {".flac", 48000, 0}, {".flac", 44100, 0.02}, {".mp3", 48000, 0.05}};
    for (const Row& row : rows) {
        const auto path = folder.path() / (std::string("seek") + std::to_string(row.writtenRate) + row.extension);
        ASSERT_TRUE(testing::writeToneFile(path, ToneRecipe{row.writtenRate, 3, 330, 0.5, 0}));
        auto straight = Decoder::open(path, kRate);
        ASSERT_TRUE(straight);
        const std::vector<float> all = readAll(**straight);
        auto opened = Decoder::open(path, kRate);
        ASSERT_TRUE(opened);
        const std::unique_ptr<Decoder>& decoder = *opened;
        for (const std::int64_t frame :
             {std::int64_t{100000}, std::int64_t{12345}, std::int64_t{0}, std::int64_t{77777}}) {
            ASSERT_TRUE(decoder->seek(frame));
            std::vector<float> got(256 * 2);
            ASSERT_EQ(decoder->read(got.data(), 256), 256u);
            for (std::size_t i = 0; i < got.size(); ++i)
                ASSERT_NEAR(got[i], all[static_cast<std::size_t>(frame) * 2 + i], row.tolerance + 1e-6)
                    << row.extension << " " << row.writtenRate << " at " << frame << "+" << i / 2;
        }
        ASSERT_TRUE(decoder->seek(10 * kRate));
        std::vector<float> past(64);
        EXPECT_EQ(decoder->read(past.data(), 32), 0u) << "past the end reads nothing";
    }
}

TEST(DecoderTest, BadFilesSayWhyAndNeverCrash) {
    vexo::testing::TemporaryDirectory folder;
    const auto good = folder.path() / "good.wav";
    ASSERT_TRUE(testing::writeToneFile(good, ToneRecipe{kRate, 2, 440, 0.5, 0}));
    const auto goodFlac = folder.path() / "good.flac";
    ASSERT_TRUE(testing::writeToneFile(goodFlac, ToneRecipe{kRate, 2, 440, 0.5, 0}));
    const std::string wav = bytesOf(good);
    const std::string flac = bytesOf(goodFlac);
    const auto write = [&](const char* name, const std::string& bytes) {
        std::ofstream(folder.path() / name, std::ios::binary) << bytes;
        return folder.path() / name;
    };
    struct Row {
        std::filesystem::path path;
        // Nothing: it must not open, and the reason holds this. Else: it opens and gives about
        // this many frames.
        const char* reason;
        vexo::ErrorKind kind;
        double frames;
    };
    using vexo::ErrorKind;
    const Row rows[] = {
        {folder.path() / "missing.wav", "no such file", ErrorKind::NotFound, 0},
        {write("empty.wav", ""), "not an audio file", ErrorKind::InvalidData, 0},
        {write("garbage.mp3", std::string(8192, '\x5a')), "", ErrorKind::InvalidData, 0},
        {write("header-cut.wav", wav.substr(0, 20)), "", ErrorKind::InvalidData, 0},
        {folder.path(), "folder", ErrorKind::InvalidData, 0},
        {write("half.wav", wav.substr(0, wav.size() / 2)), nullptr, {}, kRate},
        {write("half.flac", flac.substr(0, flac.size() / 2)), nullptr, {}, 0.85 * kRate},
    };
    for (const Row& row : rows) {
        const auto decoder = Decoder::open(row.path, kRate);
        if (row.reason != nullptr) {
            ASSERT_FALSE(decoder) << row.path;
            EXPECT_EQ(decoder.error().kind(), row.kind) << row.path << ": " << decoder.error().message();
            EXPECT_FALSE(decoder.error().message().empty()) << row.path;
            EXPECT_NE(decoder.error().message().find(row.reason), std::string::npos) << decoder.error().message();
            continue;
        }
        ASSERT_TRUE(decoder) << row.path << ": " << decoder.error().message();
        EXPECT_NEAR(static_cast<double>(readAll(**decoder).size() / 2), row.frames, 0.1 * kRate) << row.path;
    }
}

} // namespace
} // namespace vexo::audio
