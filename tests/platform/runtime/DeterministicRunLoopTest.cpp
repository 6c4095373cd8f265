#include "platform/runtime/DeterministicRunLoop.h"

#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/runtime/Timer.h"

using namespace vexo::runtime;

TEST(DeterministicRunLoopTest, PostedWorkRunsInOrderOnTheLoopFromAnyThread) {
    DeterministicRunLoop loop;
    std::string order;
    loop.post([&] {
        order += 'a';
        EXPECT_EQ(RunLoop::current(), &loop);
        loop.post([&] { order += 'c'; });
    });
    std::thread([&] { loop.post([&] { order += 'b'; }); }).join();
    EXPECT_EQ(order, "");
    EXPECT_EQ(loop.runUntilIdle(), 3u);
    EXPECT_EQ(order, "abc");
    EXPECT_EQ(loop.now(), 0) << "running until idle moves no time";
    EXPECT_EQ(RunLoop::current(), nullptr);
}

TEST(DeterministicRunLoopTest, ReadableDescriptorIsDeliveredUntilDrainedOrUnwatched) {
    DeterministicRunLoop loop;
    int fds[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, fds), 0);
    int calls = 0;
    std::unique_ptr<FdWatch> watch;
    // Reads only on every second call, so the loop must call again while data is left; the
    // fifth call stops watching with a datagram still queued.
    watch = loop.watchReadable(fds[0], [&] {
        char byte;
        if (++calls % 2 == 0) {
            EXPECT_EQ(::recv(fds[0], &byte, 1, 0), 1);
        }
        if (calls == 5)
            watch.reset();
    });
    ASSERT_NE(watch, nullptr);
    loop.runUntilIdle();
    EXPECT_EQ(calls, 0) << "nothing to read yet";
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(::send(fds[1], "x", 1, 0), 1);
    loop.runUntilIdle();
    EXPECT_EQ(calls, 5);
    EXPECT_EQ(loop.watchCount(), 0u);
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST(DeterministicRunLoopTest, TimeMovesOnlyWhenDriven) {
    DeterministicRunLoop loop;
    int fires = 0;
    Timer::scheduledTimer(loop, 5.0, Timer::Repeats::Yes, [&](Timer& timer) {
        ++fires;
        if (fires == 4)
            loop.stop();
        if (fires == 6)
            timer.invalidate();
    });
    EXPECT_TRUE(loop.runUntil([&] { return fires == 2; }, 60));
    EXPECT_EQ(loop.now(), 10);
    EXPECT_FALSE(loop.runUntil([] { return false; }, 7));
    EXPECT_EQ(loop.now(), 17);
    loop.run();
    EXPECT_EQ(loop.now(), 20) << "stopped by the fourth fire";
    loop.run();
    EXPECT_EQ(fires, 6) << "a run ends when nothing is left to do";
}
