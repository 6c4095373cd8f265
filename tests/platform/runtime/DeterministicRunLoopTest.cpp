#include "platform/runtime/DeterministicRunLoop.h"

#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/runtime/Timer.h"

using namespace vexo::runtime;

namespace {

// Both ends of a connected datagram socket pair, closed at the end of the test.
struct SocketPair {
    SocketPair() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, fds), 0); }
    ~SocketPair() {
        ::close(fds[0]);
        ::close(fds[1]);
    }
    void send() const { EXPECT_EQ(::send(fds[1], "x", 1, 0), 1); }
    bool receive() const {
        char byte;
        return ::recv(fds[0], &byte, 1, 0) == 1;
    }
    int fds[2] = {-1, -1};
};

} // namespace

TEST(DeterministicRunLoopTest, PostedWorkRunsInOrderIncludingWorkItPosts) {
    DeterministicRunLoop loop;
    std::string order;
    loop.post([&] {
        order += 'a';
        loop.post([&] { order += 'c'; });
    });
    loop.post([&] { order += 'b'; });
    EXPECT_EQ(order, "");
    EXPECT_EQ(loop.runUntilIdle(), 3u);
    EXPECT_EQ(order, "abc");
    EXPECT_EQ(loop.now(), 0) << "running until idle moves no time";
}

TEST(DeterministicRunLoopTest, WorkPostedFromAnotherThreadRunsOnTheLoop) {
    DeterministicRunLoop loop;
    const auto loopThread = std::this_thread::get_id();
    int ran = 0;
    std::thread poster([&] {
        for (int i = 0; i < 100; ++i)
            loop.post([&] {
                EXPECT_EQ(std::this_thread::get_id(), loopThread);
                ++ran;
            });
    });
    poster.join();
    loop.runUntilIdle();
    EXPECT_EQ(ran, 100);
}

TEST(DeterministicRunLoopTest, IsCurrentOnlyWhileItRuns) {
    DeterministicRunLoop loop;
    RunLoop* seen = nullptr;
    loop.post([&] { seen = RunLoop::current(); });
    EXPECT_EQ(RunLoop::current(), nullptr);
    loop.runUntilIdle();
    EXPECT_EQ(seen, &loop);
    EXPECT_EQ(RunLoop::current(), nullptr);
}

TEST(DeterministicRunLoopTest, ReadableDescriptorIsDeliveredWhileReadable) {
    DeterministicRunLoop loop;
    SocketPair pair;
    int calls = 0;
    // Reads only on every second call, so the loop must call again while data is left.
    auto watch = loop.watchReadable(pair.fds[0], [&] {
        if (++calls % 2 == 0) {
            EXPECT_TRUE(pair.receive());
        }
    });
    ASSERT_NE(watch, nullptr);
    loop.runUntilIdle();
    EXPECT_EQ(calls, 0) << "nothing to read yet";
    pair.send();
    pair.send();
    loop.runUntilIdle();
    EXPECT_EQ(calls, 4);
}

TEST(DeterministicRunLoopTest, DestroyingTheWatchInsideItsCallbackStopsIt) {
    DeterministicRunLoop loop;
    SocketPair pair;
    int calls = 0;
    std::unique_ptr<FdWatch> watch;
    watch = loop.watchReadable(pair.fds[0], [&] {
        ++calls;
        watch.reset();
    });
    pair.send();
    loop.runUntilIdle();
    EXPECT_EQ(calls, 1) << "the datagram is still there, but nobody watches";
    EXPECT_EQ(loop.watchCount(), 0u);
}

TEST(DeterministicRunLoopTest, AdvanceRunsTimersAtTheirDatesAndRunUntilStopsAtItsPredicate) {
    DeterministicRunLoop loop;
    int fires = 0;
    auto timer = Timer::scheduledTimer(loop, 5.0, Timer::Repeats::Yes, [&](Timer&) { ++fires; });
    EXPECT_TRUE(loop.runUntil([&] { return fires == 2; }, 60));
    EXPECT_EQ(loop.now(), 10);
    EXPECT_FALSE(loop.runUntil([] { return false; }, 7));
    EXPECT_EQ(loop.now(), 17);
    EXPECT_EQ(fires, 3);
    timer->invalidate();
}

TEST(DeterministicRunLoopTest, RunReturnsWhenStoppedOrOutOfWork) {
    DeterministicRunLoop loop;
    int fires = 0;
    Timer::scheduledTimer(loop, 1.0, Timer::Repeats::Yes, [&](Timer& timer) {
        if (++fires == 4)
            loop.stop();
        if (fires == 10)
            timer.invalidate();
    });
    loop.run();
    EXPECT_EQ(fires, 4);
    EXPECT_EQ(loop.now(), 4);
    loop.run();
    EXPECT_EQ(fires, 10) << "the second run ends when the last timer is gone";
}
