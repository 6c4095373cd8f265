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
    std::string error;
    const std::unique_ptr<AudioOutput> output = openOutput({"none", 44100, 256}, &notice, &error);
    ASSERT_TRUE(output) << error;
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
    std::string error;
    EXPECT_FALSE(openOutput({"no device is called this", 0, 512}, &notice, &error));
    EXPECT_NE(error.find("--list-audio-devices"), std::string::npos) << error;
}

} // namespace
} // namespace vexo::audio
