#include "platform/runtime/Timer.h"

#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/runtime/DeterministicRunLoop.h"

using namespace vexo::runtime;

namespace {

class TimerTest : public testing::Test {
protected:
    TimerTest() : m_previous(RunLoop::setCurrent(&m_loop)) {}
    ~TimerTest() override { RunLoop::setCurrent(m_previous); }

    DeterministicRunLoop m_loop;
    RunLoop* m_previous;
};

} // namespace

TEST_F(TimerTest, RepeatingTimerFiresOnScheduleAtItsOwnDates) {
    std::vector<double> fired;
    auto timer = Timer::scheduledTimer(1.0, Timer::Repeats::Yes, [&](Timer&) { fired.push_back(m_loop.now()); });
    m_loop.advance(3.5);
    EXPECT_EQ(fired, (std::vector<double>{1, 2, 3}));
    EXPECT_TRUE(timer->isValid());
    EXPECT_EQ(timer->fireDate(), 4);
    EXPECT_EQ(timer->timeInterval(), 1);
}

TEST_F(TimerTest, LateRepeatingTimerFiresOnceAndKeepsItsSchedule) {
    struct Row {
        double interval;
        double stall;
        int firesWhenIdle;
        double nextFireDate;
    };
    const Row rows[] = {
        {1.0, 0.5, 0, 1.0},
        {1.0, 1.0, 1, 2.0},
        {1.0, 3.5, 1, 4.0},
        {0.25, 10.1, 1, 10.25},
        {2.0, 4.0, 1, 6.0},
    };
    for (const Row& row : rows) {
        DeterministicRunLoop loop;
        int fires = 0;
        auto timer = Timer::scheduledTimer(loop, row.interval, Timer::Repeats::Yes, [&](Timer&) { ++fires; });
        loop.stall(row.stall);
        loop.runUntilIdle();
        EXPECT_EQ(fires, row.firesWhenIdle) << "interval " << row.interval << " stall " << row.stall;
        EXPECT_DOUBLE_EQ(timer->fireDate(), row.nextFireDate) << "interval " << row.interval << " stall " << row.stall;
        timer->invalidate();
    }
}

TEST_F(TimerTest, InvalidatingInsideItsOwnCallbackStopsAndReleasesIt) {
    auto captured = std::make_shared<int>(0);
    std::weak_ptr<int> watched = captured;
    Timer* seen = nullptr;
    std::weak_ptr<Timer> weakTimer = Timer::scheduledTimer(0.5, Timer::Repeats::Yes, [captured, &seen](Timer& timer) {
        seen = &timer;
        if (++*captured == 3)
            timer.invalidate();
    });
    captured.reset();
    ASSERT_FALSE(weakTimer.expired()) << "the loop keeps a scheduled timer alive";
    EXPECT_EQ(seen, nullptr);

    m_loop.advance(10);
    EXPECT_TRUE(watched.expired()) << "the callback and what it captured are released";
    EXPECT_TRUE(weakTimer.expired());
    EXPECT_FALSE(m_loop.nextTimerDate().has_value());
}

TEST_F(TimerTest, OneShotTimerIsValidInsideItsCallbackAndNotAfter) {
    int fires = 0;
    bool validInside = false;
    auto timer = Timer::scheduledTimer(2.0, Timer::Repeats::No, [&](Timer& fired) {
        ++fires;
        validInside = fired.isValid();
    });
    EXPECT_EQ(timer->timeInterval(), 0) << "a one-shot timer reports no interval";
    m_loop.advance(1.9);
    EXPECT_EQ(fires, 0);
    m_loop.advance(10);
    EXPECT_EQ(fires, 1);
    EXPECT_TRUE(validInside);
    EXPECT_FALSE(timer->isValid());
}

TEST_F(TimerTest, DueTimersFireInFireDateOrderThenSchedulingOrder) {
    std::string order;
    const std::pair<double, char> timers[] = {{2.0, 'a'}, {1.0, 'b'}, {1.0, 'c'}, {0.5, 'd'}};
    for (const auto& [interval, name] : timers)
        Timer::scheduledTimer(interval, Timer::Repeats::No, [&order, name = name](Timer&) { order += name; });
    m_loop.stall(5);
    m_loop.runUntilIdle();
    EXPECT_EQ(order, "dbca");
}

TEST_F(TimerTest, TimerInvalidatedByAnotherDueTimerDoesNotFire) {
    int laterFires = 0;
    std::shared_ptr<Timer> later;
    // Both fall due at 1; the first scheduled goes first and invalidates the other.
    Timer::scheduledTimer(1.0, Timer::Repeats::No, [&](Timer&) { later->invalidate(); });
    later = Timer::scheduledTimer(1.0, Timer::Repeats::Yes, [&](Timer&) { ++laterFires; });
    m_loop.advance(5);
    EXPECT_EQ(laterFires, 0);
}

TEST_F(TimerTest, IntervalsOfZeroOrLessFireSoonWithoutSpinning) {
    const double intervals[] = {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()};
    for (const double interval : intervals) {
        int fires = 0;
        auto timer = Timer::scheduledTimer(interval, Timer::Repeats::Yes, [&](Timer&) { ++fires; });
        m_loop.runUntilIdle();
        EXPECT_EQ(fires, 0) << interval;
        m_loop.advance(0.001);
        EXPECT_GE(fires, 1) << interval;
        EXPECT_LE(fires, 10) << interval;
        timer->invalidate();
    }
}

TEST_F(TimerTest, FireByHandKeepsTheRepeatingSchedule) {
    int fires = 0;
    auto repeating = Timer::scheduledTimer(1.0, Timer::Repeats::Yes, [&](Timer&) { ++fires; });
    m_loop.advance(0.5);
    repeating->fire();
    EXPECT_EQ(fires, 1);
    EXPECT_EQ(repeating->fireDate(), 1.0);
    m_loop.advance(0.5);
    EXPECT_EQ(fires, 2);

    auto oneShot = Timer::scheduledTimer(1.0, Timer::Repeats::No, [&](Timer&) { ++fires; });
    oneShot->fire();
    EXPECT_FALSE(oneShot->isValid());
    oneShot->fire();
    m_loop.advance(5);
    EXPECT_EQ(fires, 3 + 5) << "one by hand; the repeating timer went on at 2, 3, 4, 5, 6";
}

TEST_F(TimerTest, SchedulingNeedsACurrentLoop) {
    RunLoop::setCurrent(nullptr);
    EXPECT_THROW(Timer::scheduledTimer(1.0, Timer::Repeats::No, [](Timer&) {}), std::logic_error);
}

TEST_F(TimerTest, DestroyedLoopInvalidatesItsTimers) {
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
