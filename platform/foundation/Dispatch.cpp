#include "platform/foundation/Dispatch.h"

#include "platform/foundation/RunLoop.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <thread>

namespace platform {
namespace {

thread_local const DispatchQueue* tlsCurrentQueue = nullptr;
thread_local QString tlsCurrentLabel;

}  // namespace

struct DispatchQueue::State {
    QString label;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<Task> tasks;
    bool closing = false;
    std::thread worker;
};

std::shared_ptr<DispatchQueue> DispatchQueue::createSerial(const QString& label) {
    return std::shared_ptr<DispatchQueue>(new DispatchQueue(label));
}

std::shared_ptr<DispatchQueue> DispatchQueue::createSerial(const char* label) {
    return createSerial(QString::fromUtf8(label ? label : ""));
}

DispatchQueue::DispatchQueue(const QString& label) : _state(std::make_shared<State>()) {
    _state->label = label;
    // The worker holds the state, not the queue, so it can outlive the queue
    // object when the last reference is dropped from one of its own tasks.
    _state->worker = std::thread([state = _state, self = this] {
        tlsCurrentQueue = self;
        tlsCurrentLabel = state->label;
        std::unique_lock lock(state->mutex);
        for (;;) {
            state->wake.wait(lock, [&] { return state->closing || !state->tasks.empty(); });
            if (state->tasks.empty()) {
                break;
            }
            Task task = std::move(state->tasks.front());
            state->tasks.pop_front();
            lock.unlock();
            task();
            task = nullptr;
            lock.lock();
        }
    });
}

DispatchQueue::~DispatchQueue() {
    {
        std::lock_guard lock(_state->mutex);
        _state->closing = true;
    }
    _state->wake.notify_all();
    if (isCurrent()) {
        tlsCurrentQueue = nullptr;
        _state->worker.detach();
    } else {
        _state->worker.join();
    }
}

const QString& DispatchQueue::label() const {
    return _state->label;
}

void DispatchQueue::async(Task task) {
    {
        std::lock_guard lock(_state->mutex);
        _state->tasks.push_back(std::move(task));
    }
    _state->wake.notify_one();
}

void DispatchQueue::sync(const Task& task) {
    if (isCurrent()) {
        std::fprintf(stderr,
                     "dispatch: sync onto the current queue \"%s\" would deadlock; "
                     "this is a programming error\n",
                     _state->label.toUtf8().constData());
        std::fflush(stderr);
        std::abort();
    }
    Semaphore done;
    async([&] {
        task();
        done.signal();
    });
    done.wait();
}

bool DispatchQueue::isCurrent() const {
    return tlsCurrentQueue == this;
}

QString DispatchQueue::currentLabel() {
    return tlsCurrentQueue ? tlsCurrentLabel : QString();
}

void dispatchMainAsync(std::function<void()> task) {
    RunLoop::main().post(std::move(task));
}

void Semaphore::signal() {
    // Notify with the lock held: a waiter may destroy the semaphore as soon as
    // its wait returns (sync() does), which it cannot do before we unlock.
    std::lock_guard lock(_mutex);
    ++_value;
    _condition.notify_one();
}

void Semaphore::wait() {
    std::unique_lock lock(_mutex);
    _condition.wait(lock, [this] { return _value > 0; });
    --_value;
}

bool Semaphore::waitFor(double seconds) {
    std::unique_lock lock(_mutex);
    const auto limit = std::chrono::duration<double>(seconds);
    if (!_condition.wait_for(lock, limit, [this] { return _value > 0; })) {
        return false;
    }
    --_value;
    return true;
}

}  // namespace platform
