#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace platform {

/// Calls a function at a fixed rate on a thread of its own, until stopped or
/// until the function answers false. Tick n is due n / rate seconds after the
/// start; a late thread skips the ticks it missed rather than bunching them.
/// Stopping never waits out a frame period: the thread waits on a condition
/// variable with a deadline.
class FrameTimer {
public:
    /// Runs tick(n) for n = 0, 1, ...; the first at once.
    FrameTimer(double ticksPerSecond, std::function<bool(std::uint64_t tick)> tick);
    /// Stops.
    ~FrameTimer();
    FrameTimer(const FrameTimer&) = delete;
    FrameTimer& operator=(const FrameTimer&) = delete;

    /// Returns once the thread has finished (at once when called from a tick,
    /// which then ends the thread after it returns).
    void stop();

private:
    void run(double ticksPerSecond);

    std::function<bool(std::uint64_t)> _tick;
    std::mutex _mutex;
    std::condition_variable _wake;
    bool _stopping = false;
    std::thread _thread;
};

}  // namespace platform
