#include "platform/foundation/Dispatch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

namespace {

using platform::DispatchQueue;
using platform::Semaphore;

TEST(DispatchQueueTest, RunsTasksOneAtATimeInOrderOffTheCallingThread) {
    auto queue = DispatchQueue::createSerial("com.qxd.test.serial");
    EXPECT_EQ(queue->label(), QStringLiteral("com.qxd.test.serial"));
    EXPECT_FALSE(queue->isCurrent());
    EXPECT_TRUE(DispatchQueue::currentLabel().isEmpty());

    constexpr int kTasks = 500;
    std::vector<int> order;  // only touched on the queue until sync returns
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    std::atomic<bool> onCaller{false};
    const auto caller = std::this_thread::get_id();
    for (int i = 0; i < kTasks; ++i) {
        queue->async([&, i] {
            overlapped = overlapped || running.fetch_add(1) != 0;
            onCaller = onCaller || std::this_thread::get_id() == caller;
            order.push_back(i);
            running.fetch_sub(1);
        });
    }
    queue->sync([] {});  // returns only after everything queued before it

    std::vector<int> expected(kTasks);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
    EXPECT_FALSE(overlapped);
    EXPECT_FALSE(onCaller);
}

TEST(DispatchQueueTest, SyncWaitsForTheTaskWhichRunsOnTheQueue) {
    auto queue = DispatchQueue::createSerial("com.qxd.test.sync");
    auto other = DispatchQueue::createSerial("com.qxd.test.other");
    bool current = false;
    bool otherCurrent = true;
    QString label;
    std::thread::id ranOn;
    queue->sync([&] {
        current = queue->isCurrent();
        otherCurrent = other->isCurrent();
        label = DispatchQueue::currentLabel();
        ranOn = std::this_thread::get_id();
    });
    EXPECT_TRUE(current);
    EXPECT_FALSE(otherCurrent);
    EXPECT_EQ(label, QStringLiteral("com.qxd.test.sync"));
    EXPECT_NE(ranOn, std::this_thread::get_id());
}

TEST(DispatchQueueDeathTest, SyncOntoTheCurrentQueueAbortsNamingTheQueue) {
    // The process has threads (Qt's, other queues'): re-execute rather than fork.
    const std::string previousStyle = GTEST_FLAG_GET(death_test_style);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            auto queue = DispatchQueue::createSerial("com.qxd.test.reentrant");
            queue->sync([&] { queue->sync([] {}); });
        },
        "com\\.qxd\\.test\\.reentrant");
    GTEST_FLAG_SET(death_test_style, previousStyle);
}

TEST(DispatchQueueTest, DestroyingTheQueueLetsQueuedTasksFinish) {
    std::vector<int> ran;
    Semaphore started;
    Semaphore release;
    {
        auto queue = DispatchQueue::createSerial("com.qxd.test.drain");
        queue->async([&] {
            started.signal();
            release.wait();
            ran.push_back(0);
        });
        for (int i = 1; i <= 20; ++i) {
            queue->async([&, i] { ran.push_back(i); });
        }
        started.wait();
        release.signal();
        // The queue goes away here with most of its tasks still waiting.
    }
    ASSERT_EQ(ran.size(), 21u);
    EXPECT_EQ(ran.back(), 20);
}

TEST(DispatchQueueTest, AQueueReleasedFromItsOwnTaskFinishesWhatWasQueued) {
    // The first task holds the last reference and drops it while running; the
    // gate makes sure the caller's reference is gone by then.
    Semaphore gate;
    Semaphore done;
    std::weak_ptr<DispatchQueue> weak;
    bool destroyedBeforeSecondTask = false;
    {
        auto queue = DispatchQueue::createSerial("com.qxd.test.self-release");
        weak = queue;
        auto holder = std::make_shared<std::shared_ptr<DispatchQueue>>(queue);
        queue->async([&gate, holder] {
            gate.wait();
            holder->reset();
        });
        queue->async([&] {
            destroyedBeforeSecondTask = weak.expired();
            done.signal();
        });
    }
    gate.signal();
    ASSERT_TRUE(done.waitFor(10.0)) << "the task queued behind the release never ran";
    EXPECT_TRUE(destroyedBeforeSecondTask);
}

TEST(SemaphoreTest, CountsSignalsAndTimesOut) {
    Semaphore empty;
    EXPECT_FALSE(empty.waitFor(0.01));

    Semaphore counted(2);
    EXPECT_TRUE(counted.waitFor(0.0));
    counted.wait();
    EXPECT_FALSE(counted.waitFor(0.01)) << "two units were available, not three";

    // A signal from another thread wakes a waiter.
    std::thread signaller([&] { counted.signal(); });
    counted.wait();
    signaller.join();
    EXPECT_FALSE(counted.waitFor(0.0));
}

TEST(RunOnceTest, RunsExactlyOnceAndEveryCallerSeesItsResult) {
    platform::OnceToken token;
    std::atomic<int> calls{0};
    int value = 0;  // written by the one run, read by every caller after runOnce
    constexpr int kThreads = 8;
    std::vector<int> seen(kThreads, -1);
    std::vector<std::thread> threads;
    Semaphore go;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            go.wait();
            platform::runOnce(token, [&] {
                ++calls;
                value = 42;
            });
            seen[static_cast<size_t>(t)] = value;
        });
    }
    for (int t = 0; t < kThreads; ++t) {
        go.signal();
    }
    for (auto& thread : threads) {
        thread.join();
    }
    platform::runOnce(token, [&] { ++calls; });
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(seen, std::vector<int>(kThreads, 42));
}

}  // namespace
