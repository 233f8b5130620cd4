#include "platform/foundation/Dispatch.h"
#include "platform/foundation/RunLoop.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using platform::RunLoop;

// Every test drives the main run loop by hand, starting from an empty loop,
// and leaves it empty for the next test.
class FoundationRunLoopTest : public ::testing::Test {
protected:
    void SetUp() override { loop().useManualClock(100.0); }
    void TearDown() override { loop().useManualClock(0.0); }

    static RunLoop& loop() { return RunLoop::main(); }

    // Records the order in which tasks ran, with the clock reading of each.
    std::vector<std::string> ran;
    std::vector<double> clock;
    std::function<void()> record(std::string name) {
        return [this, name = std::move(name)] {
            ran.push_back(name);
            clock.push_back(loop().now());
        };
    }
};

TEST_F(FoundationRunLoopTest, RunsByDueTimeThenSchedulingOrderWithTheClockAtEachDueTime) {
    int targetA = 0;
    loop().performAfterDelay(&targetA, 0.5, record("late"));
    loop().post(record("posted-1"));
    loop().performAfterDelay(&targetA, 0.25, record("early-1"));
    loop().performAfterDelay(nullptr, 0.25, record("early-2"));
    loop().post(record("posted-2"));
    loop().performAfterDelay(nullptr, 2.0, record("beyond"));
    EXPECT_EQ(loop().pendingCount(), 6u);
    EXPECT_TRUE(ran.empty()) << "nothing runs before the loop turns";

    loop().advance(1.0);

    EXPECT_EQ(ran,
              (std::vector<std::string>{"posted-1", "posted-2", "early-1", "early-2", "late"}));
    EXPECT_EQ(clock, (std::vector<double>{100.0, 100.0, 100.25, 100.25, 100.5}));
    EXPECT_DOUBLE_EQ(loop().now(), 101.0) << "the clock ends at the end of the advance";
    EXPECT_EQ(loop().pendingCount(), 1u);

    loop().advance(1.0);
    EXPECT_EQ(ran.back(), "beyond");
    EXPECT_DOUBLE_EQ(clock.back(), 102.0);
}

TEST_F(FoundationRunLoopTest, TasksPostedByARunningTaskRunInTheSameAdvanceInDueOrder) {
    loop().performAfterDelay(nullptr, 0.5, record("at-0.5"));
    loop().performAfterDelay(nullptr, 0.25, [this] {
        record("at-0.25")();
        // Due now, so it runs before the task at 0.5 but after its siblings.
        loop().post(record("posted-at-0.25"));
        loop().performAfterDelay(nullptr, 0.5, record("at-0.75"));
        loop().performAfterDelay(nullptr, 5.0, record("at-5.25"));
    });
    loop().performAfterDelay(nullptr, 0.25, record("sibling-at-0.25"));

    loop().advance(1.0);

    EXPECT_EQ(ran, (std::vector<std::string>{"at-0.25", "sibling-at-0.25", "posted-at-0.25",
                                             "at-0.5", "at-0.75"}));
    EXPECT_EQ(clock, (std::vector<double>{100.25, 100.25, 100.25, 100.5, 100.75}));
    EXPECT_EQ(loop().pendingCount(), 1u);

    // runPending runs what is due now and what those tasks post for now.
    loop().post([this] { loop().post(record("chained")); });
    loop().runPending();
    EXPECT_EQ(ran.back(), "chained");
    EXPECT_DOUBLE_EQ(loop().now(), 101.0);
}

TEST_F(FoundationRunLoopTest, CancelPreviousPerformRequestsCancelsOnlyThatTargetsPerforms) {
    int target = 0;
    int other = 0;
    int timerFires = 0;
    auto timer = loop().scheduleTimer(0.25, true, [&](platform::Timer&) { ++timerFires; });

    loop().performAfterDelay(&target, 0.25, record("target-1"));
    loop().performAfterDelay(&other, 0.25, record("other"));
    loop().performAfterDelay(&target, 0.5, record("target-2"));
    loop().post(record("posted"));
    loop().performAfterDelay(&target, 0.0, record("target-now"));

    loop().cancelPreviousPerformRequests(&target);
    loop().cancelPreviousPerformRequests(nullptr);  // a null target cancels nothing
    loop().advance(1.0);

    EXPECT_EQ(ran, (std::vector<std::string>{"posted", "other"}));
    EXPECT_EQ(timerFires, 4) << "timers are not delayed performs";
    EXPECT_TRUE(timer->isValid());
}

TEST_F(FoundationRunLoopTest, RepeatingTimersFireEveryIntervalUntilInvalidated) {
    std::vector<double> repeatingAt;
    std::vector<double> onceAt;
    auto repeating = loop().scheduleTimer(0.25, true, [&](platform::Timer& timer) {
        repeatingAt.push_back(loop().now());
        if (repeatingAt.size() == 6) {
            timer.invalidate();
        }
    });
    auto once =
        loop().scheduleTimer(0.5, false, [&](platform::Timer&) { onceAt.push_back(loop().now()); });

    loop().advance(1.0);
    EXPECT_EQ(repeatingAt, (std::vector<double>{100.25, 100.5, 100.75, 101.0}));
    EXPECT_EQ(onceAt, (std::vector<double>{100.5}));
    EXPECT_FALSE(once->isValid()) << "a one-shot timer is spent once it has fired";

    // Invalidating from inside the handler stops it after that firing.
    loop().advance(2.0);
    EXPECT_EQ(repeatingAt.size(), 6u);
    EXPECT_FALSE(repeating->isValid());

    // Invalidating from outside stops a timer before its next firing;
    // dropping the handle does not.
    int dropped = 0;
    int stopped = 0;
    loop().scheduleTimer(0.5, true, [&](platform::Timer&) { ++dropped; });
    auto stop = loop().scheduleTimer(0.5, true, [&](platform::Timer&) { ++stopped; });
    loop().advance(0.5);
    stop->invalidate();
    loop().advance(1.0);
    EXPECT_EQ(dropped, 3);
    EXPECT_EQ(stopped, 1);
}

// Releasing a task's captures may call back into the loop (objects cancel
// their own performs when they go away); that must not deadlock.
TEST_F(FoundationRunLoopTest, TasksAreReleasedWithoutTheLoopLocked) {
    struct CancelsOnDestruction {
        ~CancelsOnDestruction() { RunLoop::main().cancelPreviousPerformRequests(this); }
    };
    int ranCount = 0;
    for (int i = 0; i < 3; ++i) {
        auto guard = std::make_shared<CancelsOnDestruction>();
        loop().performAfterDelay(nullptr, 0.25 * i, [guard, &ranCount] { ++ranCount; });
    }
    auto cancelled = std::make_shared<CancelsOnDestruction>();
    int target = 0;
    loop().performAfterDelay(&target, 1.0, [cancelled] {});
    cancelled.reset();

    loop().advance(0.75);
    loop().cancelPreviousPerformRequests(&target);
    EXPECT_EQ(ranCount, 3);
    EXPECT_EQ(loop().pendingCount(), 0u);
}

TEST_F(FoundationRunLoopTest, TasksPostedFromAnotherThreadRunOnTheMainThread) {
    ASSERT_TRUE(loop().isMainThread());
    std::thread::id ranOn;
    bool workerIsMain = true;
    std::thread worker([&] {
        workerIsMain = loop().isMainThread();
        loop().post([&] { ranOn = std::this_thread::get_id(); });
    });
    worker.join();
    EXPECT_FALSE(workerIsMain);
    EXPECT_EQ(ranOn, std::thread::id()) << "posting does not run the task";
    loop().runPending();
    EXPECT_EQ(ranOn, std::this_thread::get_id());

    // dispatchMainAsync is the same queue.
    bool dispatched = false;
    std::thread other([&] { platform::dispatchMainAsync([&] { dispatched = true; }); });
    other.join();
    loop().runPending();
    EXPECT_TRUE(dispatched);
}

}  // namespace
