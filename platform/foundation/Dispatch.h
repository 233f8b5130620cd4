#pragma once

#include <QString>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace platform {

/// A serial queue: tasks run one at a time, in order, on the queue's own
/// thread.
///
/// All calls are thread-safe. Destroying the queue lets the tasks already
/// queued finish first. sync() onto the queue the caller is running on is a
/// programming error (it would deadlock) and aborts the process with a
/// message naming the queue.
class DispatchQueue {
public:
    using Task = std::function<void()>;

    static std::shared_ptr<DispatchQueue> createSerial(const QString& label);
    static std::shared_ptr<DispatchQueue> createSerial(const char* label);

    ~DispatchQueue();
    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    const QString& label() const;

    /// Queues task and returns at once.
    void async(Task task);
    /// Queues task and waits until it has run.
    void sync(const Task& task);

    /// True when called from a task of this queue.
    bool isCurrent() const;
    /// The label of the queue running the calling task, or an empty string.
    static QString currentLabel();

private:
    struct State;
    explicit DispatchQueue(const QString& label);

    std::shared_ptr<State> _state;
};

/// Queues task on the main run loop.
void dispatchMainAsync(std::function<void()> task);

/// A counting semaphore. Thread-safe.
class Semaphore {
public:
    explicit Semaphore(long value = 0) : _value(value) {}

    void signal();
    /// Waits without time limit.
    void wait();
    /// Waits at most seconds; false when the time ran out.
    bool waitFor(double seconds);

private:
    std::mutex _mutex;
    std::condition_variable _condition;
    long _value;
};

/// Once-only initialisation: the first call runs fn; every other call, on any
/// thread, waits until that run has finished and then returns.
using OnceToken = std::once_flag;
inline void runOnce(OnceToken& token, const std::function<void()>& fn) {
    std::call_once(token, fn);
}

}  // namespace platform
