#include "platform/audio/Recorder.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "audio/SignalMeasure.h"
#include "platform/audio/AudioFixture.h"
#include "platform/audio/Decoder.h"
#include "support/TemporaryDirectory.h"

namespace vexo::audio {
namespace {

using testing::ToneRecipe;
using namespace std::chrono_literals;

constexpr int kRate = 48000;

// Hands `frames` to the recorder in buffers of 512, as the audio thread does.
void pushAll(Recorder& recorder, const std::vector<float>& frames) {
    for (std::size_t at = 0; at < frames.size(); at += 1024) {
        recorder.push(frames.data() + at, std::min<std::size_t>(512, (frames.size() - at) / 2));
        std::this_thread::sleep_for(100us);
    }
}

TEST(RecorderTest, WhatIsPushedIsWhatTheFileHolds) {
    vexo::testing::TemporaryDirectory folder;
    for (const char* name : {"mix.wav", "mix.flac"}) {
        const auto path = folder.path() / name;
        auto started = Recorder::start(path, kRate);
        ASSERT_TRUE(started) << started.error().message();
        const std::unique_ptr<Recorder>& recorder = *started;
        pushAll(*recorder, testing::toneFrames(ToneRecipe{kRate, 2, 523, 0.4, 0}));
        recorder->stop();
        EXPECT_FALSE(recorder->isRecording());
        EXPECT_FALSE(recorder->failure());
        EXPECT_EQ(recorder->framesWritten() + recorder->framesDropped(), 2u * kRate);

        auto opened = Decoder::open(path, kRate);
        ASSERT_TRUE(opened) << opened.error().message();
        const std::unique_ptr<Decoder>& decoder = *opened;
        std::vector<float> back(3 * kRate * 2);
        const std::size_t frames = decoder->read(back.data(), 3 * kRate);
        EXPECT_EQ(frames, recorder->framesWritten()) << name;
        back.resize(frames * 2);
        EXPECT_NEAR(sound::testing::toneAmplitude(sound::testing::channel(back, 0, 0, kRate), 523, kRate), 0.4, 0.01);
    }
}

TEST(RecorderTest, ABadPathOrAFullDiskStopsTheRecordingWithAMessage) {
    vexo::testing::TemporaryDirectory folder;
    const auto noFolder = Recorder::start(folder.path() / "no-such-folder" / "mix.wav", kRate);
    ASSERT_FALSE(noFolder);
    EXPECT_EQ(noFolder.error().kind(), vexo::ErrorKind::NotFound);
    EXPECT_NE(noFolder.error().message().find("no-such-folder"), std::string::npos) << noFolder.error().message();
    const auto mp3 = Recorder::start(folder.path() / "mix.mp3", kRate);
    ASSERT_FALSE(mp3);
    EXPECT_EQ(mp3.error().kind(), vexo::ErrorKind::Unsupported);

    // /dev/full takes the file's creation and fails every write with "no space left".
    const auto full = folder.path() / "full.wav";
    std::filesystem::create_symlink("/dev/full", full);
    auto started = Recorder::start(full, kRate);
    if (!started)
        GTEST_SKIP() << "this system does not let a recording start on /dev/full: " << started.error().message();
    const std::unique_ptr<Recorder>& recorder = *started;
    const std::vector<float> second = testing::toneFrames(ToneRecipe{kRate, 1, 440, 0.4, 0});
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!recorder->failure() && std::chrono::steady_clock::now() < deadline)
        pushAll(*recorder, second);
    ASSERT_TRUE(recorder->failure());
    EXPECT_EQ(recorder->failure()->kind(), vexo::ErrorKind::SystemFailure) << recorder->failure()->message();
    EXPECT_FALSE(recorder->isRecording());
    pushAll(*recorder, second); // the audio thread goes on pushing: dropped, never blocked
    EXPECT_GT(recorder->framesDropped(), 0u);
    recorder->stop();
}

} // namespace
} // namespace vexo::audio
