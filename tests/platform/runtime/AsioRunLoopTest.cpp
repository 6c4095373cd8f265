#include "platform/runtime/AsioRunLoop.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/runtime/Timer.h"

using namespace vexo::runtime;

// These run the real loop. None waits for a length of time: each waits for its event, with a
// generous limit that only a broken loop reaches.
namespace {

constexpr double kGenerousTimeout = 30;

struct SocketPair {
    SocketPair() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, fds), 0); }
    ~SocketPair() {
        ::close(fds[0]);
        ::close(fds[1]);
    }
    int fds[2] = {-1, -1};
};

} // namespace

TEST(AsioRunLoopTest, WorkPostedFromAnotherThreadRunsInOrderAndStopEndsRun) {
    AsioRunLoop loop;
    std::vector<int> ran;
    RunLoop* current = nullptr;
    std::thread poster([&] {
        for (int i = 0; i < 100; ++i)
            loop.post([&ran, i] { ran.push_back(i); });
        loop.post([&] {
            current = RunLoop::current();
            loop.stop();
        });
    });
    loop.run();
    poster.join();
    std::vector<int> expected(100);
    for (int i = 0; i < 100; ++i)
        expected[i] = i;
    EXPECT_EQ(ran, expected);
    EXPECT_EQ(current, &loop);
    EXPECT_EQ(RunLoop::current(), nullptr);
}

TEST(AsioRunLoopTest, RepeatingTimerFiresUntilItInvalidatesItself) {
    AsioRunLoop loop;
    std::vector<double> fireDates;
    auto timer = Timer::scheduledTimer(loop, 0.001, Timer::Repeats::Yes, [&](Timer& fired) {
        fireDates.push_back(fired.fireDate());
        if (fireDates.size() == 3)
            fired.invalidate();
    });
    EXPECT_TRUE(loop.runUntil([&] { return !timer->isValid(); }, kGenerousTimeout));
    ASSERT_EQ(fireDates.size(), 3u);
    EXPECT_LT(fireDates[0], fireDates[1]);
    EXPECT_LT(fireDates[1], fireDates[2]);
}

TEST(AsioRunLoopTest, EveryQueuedDatagramIsDeliveredEvenWhenReadOnePerCallback) {
    AsioRunLoop loop;
    SocketPair pair;
    // All three arrive before the loop first looks, so one readiness event covers them all.
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(::send(pair.fds[1], "x", 1, 0), 1);
    int received = 0;
    auto watch = loop.watchReadable(pair.fds[0], [&] {
        char byte;
        if (::recv(pair.fds[0], &byte, 1, 0) == 1)
            ++received;
    });
    ASSERT_NE(watch, nullptr);
    EXPECT_TRUE(loop.runUntil([&] { return received == 3; }, kGenerousTimeout));

    std::thread sender([&] { EXPECT_EQ(::send(pair.fds[1], "y", 1, 0), 1); });
    EXPECT_TRUE(loop.runUntil([&] { return received == 4; }, kGenerousTimeout)) << "one sent while waiting";
    sender.join();
}

TEST(AsioRunLoopTest, DestroyingTheWatchInsideItsCallbackStopsIt) {
    AsioRunLoop loop;
    SocketPair pair;
    ASSERT_EQ(::send(pair.fds[1], "x", 1, 0), 1);
    int calls = 0;
    bool settled = false;
    std::unique_ptr<FdWatch> watch;
    watch = loop.watchReadable(pair.fds[0], [&] {
        ++calls;
        watch.reset();
        // Two hops, so that any delivery a live watch would have queued runs before `settled`.
        loop.post([&] { loop.post([&] { settled = true; }); });
    });
    EXPECT_TRUE(loop.runUntil([&] { return settled; }, kGenerousTimeout));
    EXPECT_EQ(calls, 1) << "the datagram was never read, yet the callback must not run again";
}
