#include "platform/runtime/Timer.h"

#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/runtime/DeterministicRunLoop.h"

using namespace vexo::runtime;

TEST(TimerTest, RepeatingTimerKeepsItsScheduleAndNeverFiresABurst) {
    DeterministicRunLoop loop;
    std::vector<double> fired;
    auto timer = Timer::scheduledTimer(loop, 1.0, Timer::Repeats::Yes, [&](Timer&) { fired.push_back(loop.now()); });
    loop.advance(3.5);
    EXPECT_EQ(fired, (std::vector<double>{1, 2, 3}));
    timer->invalidate();

    // A loop too busy to fire on time: the timer fires once, then at its next own date.
    const struct {
        double interval, stall;
        int firesWhenIdle;
        double nextFireDate;
    } rows[] = {{1.0, 0.5, 0, 1.0}, {1.0, 1.0, 1, 2.0}, {1.0, 3.5, 1, 4.0}, {0.25, 10.1, 1, 10.25}};
    for (const auto& row : rows) {
        DeterministicRunLoop late;
        int fires = 0;
        auto lateTimer = Timer::scheduledTimer(late, row.interval, Timer::Repeats::Yes, [&](Timer&) { ++fires; });
        late.stall(row.stall);
        late.runUntilIdle();
        EXPECT_EQ(fires, row.firesWhenIdle) << row.interval << " late by " << row.stall;
        EXPECT_DOUBLE_EQ(lateTimer->fireDate(), row.nextFireDate) << row.interval << " late by " << row.stall;
        lateTimer->invalidate();
    }
}

TEST(TimerTest, InvalidatingInsideItsOwnCallbackStopsAndReleasesIt) {
    DeterministicRunLoop loop;
    auto captured = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = captured;
    const std::weak_ptr<Timer> weakTimer =
        Timer::scheduledTimer(loop, 0.5, Timer::Repeats::Yes, [captured](Timer& timer) {
            if (++*captured == 3)
                timer.invalidate();
        });
    captured.reset();
    ASSERT_FALSE(weakTimer.expired()) << "the loop keeps a scheduled timer alive";
    loop.advance(10);
    EXPECT_TRUE(watched.expired()) << "the callback and what it captured are released";
    EXPECT_TRUE(weakTimer.expired());
    EXPECT_FALSE(loop.nextTimerDate().has_value());
}

TEST(TimerTest, OneShotTimerIsValidOnlyUntilItsCallbackReturns) {
    DeterministicRunLoop loop;
    int fires = 0;
    bool validInside = false;
    const auto count = [&](Timer& fired) {
        ++fires;
        validInside = fired.isValid();
    };
    auto timer = Timer::scheduledTimer(loop, 2.0, Timer::Repeats::No, count);
    EXPECT_EQ(timer->timeInterval(), 0) << "a one-shot timer reports no interval";
    loop.advance(10);
    EXPECT_EQ(fires, 1);
    EXPECT_TRUE(validInside);
    EXPECT_FALSE(timer->isValid());

    // Fired by hand, it ends just the same; a repeating one keeps its schedule.
    auto byHand = Timer::scheduledTimer(loop, 2.0, Timer::Repeats::No, count);
    byHand->fire();
    byHand->fire();
    auto repeating = Timer::scheduledTimer(loop, 1.0, Timer::Repeats::Yes, count);
    repeating->fire();
    EXPECT_EQ(fires, 3);
    EXPECT_EQ(repeating->fireDate(), 11);
    loop.advance(10);
    EXPECT_EQ(fires, 13);
    repeating->invalidate();
}

TEST(TimerTest, DueTimersFireByDateThenSchedulingOrder) {
    DeterministicRunLoop loop;
    const RunLoop::CurrentScope current(&loop);
    std::string order;
    std::shared_ptr<Timer> cancelled;
    Timer::scheduledTimer(2.0, Timer::Repeats::No, [&](Timer&) { order += 'a'; });
    Timer::scheduledTimer(1.0, Timer::Repeats::No, [&](Timer&) {
        order += 'b';
        cancelled->invalidate(); // due at the same date, but not fired once invalid
    });
    cancelled = Timer::scheduledTimer(1.0, Timer::Repeats::Yes, [&](Timer&) { order += 'c'; });
    Timer::scheduledTimer(0.5, Timer::Repeats::No, [&](Timer&) { order += 'd'; });
    loop.stall(5);
    loop.runUntilIdle();
    EXPECT_EQ(order, "dba");

    RunLoop::setCurrent(nullptr);
    EXPECT_THROW(Timer::scheduledTimer(1.0, Timer::Repeats::No, [](Timer&) {}), std::logic_error);
}

TEST(TimerTest, IntervalsOfZeroOrLessFireSoonWithoutSpinning) {
    for (const double interval : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
        DeterministicRunLoop loop;
        int fires = 0;
        auto timer = Timer::scheduledTimer(loop, interval, Timer::Repeats::Yes, [&](Timer&) { ++fires; });
        loop.runUntilIdle();
        EXPECT_EQ(fires, 0) << interval;
        loop.advance(0.00105);
        EXPECT_EQ(fires, 10) << interval;
        timer->invalidate();
    }
}

TEST(TimerTest, DestroyedLoopInvalidatesItsTimers) {
    std::shared_ptr<Timer> timer;
    auto captured = std::make_shared<int>(0);
    {
        DeterministicRunLoop loop;
        timer = Timer::scheduledTimer(loop, 1.0, Timer::Repeats::Yes, [captured](Timer&) {});
    }
    EXPECT_FALSE(timer->isValid());
    EXPECT_EQ(captured.use_count(), 1);
    timer->invalidate();
    timer->fire();
}
