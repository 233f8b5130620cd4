#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include <QPointer>

class QTimer;

namespace platform {

class RunLoop;

/// A repeating or one-shot timer on the main run loop. Invalidate it to stop
/// it; dropping the handle does not.
class Timer {
public:
    void invalidate() { _valid = false; }
    bool isValid() const { return _valid; }
    double interval() const { return _interval; }
    bool repeats() const { return _repeats; }

private:
    friend class RunLoop;
    Timer(double interval, bool repeats) : _interval(interval), _repeats(repeats) {}

    double _interval;
    bool _repeats;
    std::atomic<bool> _valid{true};
};

/// The main run loop: the one thread on which view work, delayed performs and
/// timers run, with the one clock that animations read.
///
/// It is driven either by Qt's event loop (applications: attachToQt) or by a
/// manual clock (tests: useManualClock, then advance). Scheduling calls
/// (post, performAfterDelay, cancelPreviousPerformRequests, scheduleTimer,
/// now) are thread-safe; tasks always run on the main thread, in order of
/// their due time and, for equal times, of scheduling. No lock is held while a
/// task runs.
class RunLoop {
public:
    using Task = std::function<void()>;

    static RunLoop& main();

    RunLoop();
    ~RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// Seconds on the run loop's clock.
    double now() const;

    /// Runs task on the next turn of the loop, after the tasks already due.
    void post(Task task);

    /// Runs task after delay seconds. target is the key (compared by
    /// identity) under which cancelPreviousPerformRequests finds it.
    void performAfterDelay(const void* target, double delay, Task task);

    /// Cancels every pending delayed perform aimed at target.
    void cancelPreviousPerformRequests(const void* target);

    /// Fires handler every interval seconds (at least 0.1 ms), or once.
    std::shared_ptr<Timer> scheduleTimer(double interval, bool repeats,
                                         std::function<void(Timer&)> handler);

    /// Number of scheduled tasks, timers included.
    std::size_t pendingCount() const;

    /// True on the thread that drives the loop.
    bool isMainThread() const;

    // --- Manual driving, for tests -----------------------------------------

    /// Switches to a manual clock reading startTime, drops everything pending
    /// and makes the calling thread the main thread.
    void useManualClock(double startTime = 0.0);
    bool usesManualClock() const;

    /// Runs, in order, everything that falls due within the next seconds; the
    /// clock reads each task's due time while it runs and ends at now+seconds.
    /// Must be called on the main thread.
    void advance(double seconds);

    /// Runs what is due now, including tasks those tasks post for now.
    void runPending() { advance(0.0); }

    // --- Qt driving, for applications --------------------------------------

    /// Drives the loop from the Qt event loop of the calling thread (the
    /// application's main thread), on a steady clock. Pending tasks keep
    /// their order.
    void attachToQt();

private:
    struct Entry {
        const void* target = nullptr;
        Task task;
        std::shared_ptr<Timer> timer;
        std::function<void(Timer&)> timerHandler;
    };
    using Key = std::pair<double, std::uint64_t>;

    void schedule(double due, Entry entry);
    bool takeNext(double limit, Entry& entry, double& due);
    void runEntry(Entry& entry, double due);
    void runDue(double limit);
    void runDueForQt();
    void wakeQt();
    void rearmQt();
    double clockNow() const;

    mutable std::mutex _mutex;
    std::map<Key, Entry> _entries;
    std::uint64_t _sequence = 0;
    bool _manual = false;
    double _manualTime = 0.0;
    std::thread::id _mainThread;
    // Owned by the Qt application object, so it goes away with it.
    QPointer<QTimer> _qtTimer;
    std::atomic<bool> _qtWakePending{false};
};

}  // namespace platform
