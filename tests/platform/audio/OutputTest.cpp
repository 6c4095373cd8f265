#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "platform/audio/AudioOutput.h"

namespace vexo::audio {
namespace {

using namespace std::chrono_literals;

TEST(OutputTest, TheNullOutputCallsForWholeBuffersUntilItStops) {
    std::string notice;
    auto opened = openOutput({"none", 44100, 256}, &notice);
    ASSERT_TRUE(opened) << opened.error().message();
    const std::unique_ptr<AudioOutput>& output = *opened;
    EXPECT_TRUE(notice.empty()) << "asked for by name, it needs no notice";
    EXPECT_EQ(output->sampleRate(), 44100);
    EXPECT_EQ(output->bufferFrames(), 256u);
    EXPECT_NE(output->description().find("null output"), std::string::npos);

    std::atomic<int> calls{0};
    std::atomic<std::size_t> wrongSizes{0};
    ASSERT_TRUE(output->start([&](float* out, std::size_t frames) {
        if (frames != 256)
            ++wrongSizes;
        out[0] = 1; // the buffer is the output's own, writable
        ++calls;
    }));
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (calls < 5 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(1ms);
    output->stop();
    const int afterStop = calls;
    EXPECT_GE(afterStop, 5);
    EXPECT_EQ(wrongSizes, 0u);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(calls, afterStop) << "nothing is called after stop()";
    output->stop();
}

TEST(OutputTest, ADeviceThatIsNotThereIsRefusedWithAPointer) {
    std::string notice;
    const auto output = openOutput({"no device is called this", 0, 512}, &notice);
    ASSERT_FALSE(output);
    EXPECT_EQ(output.error().kind(), vexo::ErrorKind::NotFound) << output.error().message();
    EXPECT_NE(output.error().message().find("--list-audio-devices"), std::string::npos) << output.error().message();
}

} // namespace
} // namespace vexo::audio
