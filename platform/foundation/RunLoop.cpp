#include "platform/foundation/RunLoop.h"

#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace platform {
namespace {

constexpr double kMinimumTimerInterval = 0.0001;

double steadySeconds() {
    using namespace std::chrono;
    static const auto origin = steady_clock::now();
    return duration<double>(steady_clock::now() - origin).count();
}

}  // namespace

RunLoop& RunLoop::main() {
    // Never destroyed, like every process-wide object: an engine or a screen
    // released on its own queue while the process exits still reaches it.
    static RunLoop& loop = *new RunLoop;
    return loop;
}

RunLoop::RunLoop() : _mainThread(std::this_thread::get_id()) {}

RunLoop::~RunLoop() {
    if (_qtTimer) {
        _qtTimer->deleteLater();
    }
}

double RunLoop::clockNow() const {
    return _manual ? _manualTime : steadySeconds();
}

double RunLoop::now() const {
    std::lock_guard lock(_mutex);
    return clockNow();
}

void RunLoop::schedule(double due, Entry entry) {
    {
        std::lock_guard lock(_mutex);
        _entries.emplace(Key{due, _sequence++}, std::move(entry));
    }
    wakeQt();
}

void RunLoop::post(Task task) {
    double due;
    {
        std::lock_guard lock(_mutex);
        due = clockNow();
    }
    schedule(due, Entry{nullptr, std::move(task), nullptr, {}});
}

void RunLoop::performAfterDelay(const void* target, double delay, Task task) {
    double due;
    {
        std::lock_guard lock(_mutex);
        due = clockNow() + std::max(0.0, delay);
    }
    schedule(due, Entry{target, std::move(task), nullptr, {}});
}

void RunLoop::cancelPreviousPerformRequests(const void* target) {
    if (target == nullptr) {
        return;
    }
    // The cancelled tasks are destroyed after the lock is released: their
    // captures may call back into the loop as they go away.
    std::vector<Task> cancelled;
    std::lock_guard lock(_mutex);
    for (auto it = _entries.begin(); it != _entries.end();) {
        if (it->second.target == target && !it->second.timer) {
            cancelled.push_back(std::move(it->second.task));
            it = _entries.erase(it);
        } else {
            ++it;
        }
    }
}

std::shared_ptr<Timer> RunLoop::scheduleTimer(double interval, bool repeats,
                                              std::function<void(Timer&)> handler) {
    interval = std::max(interval, kMinimumTimerInterval);
    auto timer = std::shared_ptr<Timer>(new Timer(interval, repeats));
    double due;
    {
        std::lock_guard lock(_mutex);
        due = clockNow() + interval;
    }
    schedule(due, Entry{nullptr, {}, timer, std::move(handler)});
    return timer;
}

std::size_t RunLoop::pendingCount() const {
    std::lock_guard lock(_mutex);
    return _entries.size();
}

bool RunLoop::isMainThread() const {
    std::lock_guard lock(_mutex);
    return std::this_thread::get_id() == _mainThread;
}

void RunLoop::useManualClock(double startTime) {
    std::map<Key, Entry> dropped;
    {
        std::lock_guard lock(_mutex);
        dropped.swap(_entries);
        _manual = true;
        _manualTime = startTime;
        _mainThread = std::this_thread::get_id();
        if (_qtTimer) {
            _qtTimer->stop();
        }
    }
    for (auto& [key, entry] : dropped) {
        if (entry.timer) {
            entry.timer->invalidate();
        }
    }
}

bool RunLoop::usesManualClock() const {
    std::lock_guard lock(_mutex);
    return _manual;
}

bool RunLoop::takeNext(double limit, Entry& entry, double& due) {
    std::lock_guard lock(_mutex);
    auto first = _entries.begin();
    if (first == _entries.end() || first->first.first > limit) {
        return false;
    }
    due = first->first.first;
    entry = std::move(first->second);
    _entries.erase(first);
    if (_manual && due > _manualTime) {
        _manualTime = due;
    }
    return true;
}

void RunLoop::runEntry(Entry& entry, double due) {
    if (!entry.timer) {
        entry.task();
        return;
    }
    if (!entry.timer->isValid()) {
        return;
    }
    entry.timerHandler(*entry.timer);
    if (entry.timer->repeats() && entry.timer->isValid()) {
        // Read the interval before the entry is moved into the call.
        const double next = due + entry.timer->interval();
        schedule(next, std::move(entry));
    } else {
        entry.timer->invalidate();
    }
}

void RunLoop::runDue(double limit) {
    for (;;) {
        // A fresh entry each turn, so a finished task (and what it captured)
        // is released here, not later inside takeNext with the lock held.
        Entry entry;
        double due = 0.0;
        if (!takeNext(limit, entry, due)) {
            return;
        }
        runEntry(entry, due);
    }
}

void RunLoop::advance(double seconds) {
    double end;
    {
        std::lock_guard lock(_mutex);
        if (!_manual) {
            std::fprintf(stderr, "RunLoop::advance needs a manual clock (useManualClock)\n");
            std::abort();
        }
        end = _manualTime + std::max(0.0, seconds);
    }
    runDue(end);
    std::lock_guard lock(_mutex);
    _manualTime = std::max(_manualTime, end);
}

void RunLoop::attachToQt() {
    {
        std::lock_guard lock(_mutex);
        _manual = false;
        _mainThread = std::this_thread::get_id();
        if (!_qtTimer) {
            auto* timer = new QTimer(QCoreApplication::instance());
            timer->setSingleShot(true);
            timer->setTimerType(Qt::PreciseTimer);
            QObject::connect(timer, &QTimer::timeout, timer, [this] { runDueForQt(); });
            // With the application gone nothing can run the pending work; it
            // is let go now, while what it holds (controllers waiting for a
            // delayed call) can still be torn down, not at static destruction.
            QObject::connect(timer, &QObject::destroyed, [this] {
                std::map<Key, Entry> dropped;
                std::lock_guard entriesLock(_mutex);
                dropped.swap(_entries);
            });
            _qtTimer = timer;
        }
    }
    wakeQt();
}

void RunLoop::wakeQt() {
    QPointer<QTimer> timer;
    {
        std::lock_guard lock(_mutex);
        if (_manual || !_qtTimer) {
            return;
        }
        timer = _qtTimer;
    }
    if (_qtWakePending.exchange(true)) {
        return;
    }
    QMetaObject::invokeMethod(
        timer,
        [this] {
            _qtWakePending = false;
            rearmQt();
        },
        Qt::QueuedConnection);
}

void RunLoop::rearmQt() {
    std::lock_guard lock(_mutex);
    if (_manual || !_qtTimer) {
        return;
    }
    if (_entries.empty()) {
        _qtTimer->stop();
        return;
    }
    const double wait = _entries.begin()->first.first - clockNow();
    const int ms = wait <= 0 ? 0 : static_cast<int>(std::ceil(wait * 1000.0));
    _qtTimer->start(ms);
}

void RunLoop::runDueForQt() {
    // Everything due when this turn starts runs now; what those tasks post
    // for "now" runs on the next turn, so Qt's own events are not starved.
    runDue(now());
    rearmQt();
}

}  // namespace platform
