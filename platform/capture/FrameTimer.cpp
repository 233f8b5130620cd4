#include "platform/capture/FrameTimer.h"

#include <algorithm>
#include <chrono>

namespace platform {

FrameTimer::FrameTimer(double ticksPerSecond, std::function<bool(std::uint64_t)> tick)
    : _tick(std::move(tick)) {
    _thread = std::thread([this, ticksPerSecond] { run(ticksPerSecond); });
}

FrameTimer::~FrameTimer() {
    stop();
}

void FrameTimer::stop() {
    {
        std::lock_guard lock(_mutex);
        _stopping = true;
    }
    _wake.notify_all();
    if (!_thread.joinable()) {
        return;
    }
    if (_thread.get_id() == std::this_thread::get_id()) {
        _thread.detach();
    } else {
        _thread.join();
    }
}

void FrameTimer::run(double ticksPerSecond) {
    using Clock = std::chrono::steady_clock;
    const std::chrono::duration<double> period(1.0 / std::max(ticksPerSecond, 0.001));
    const Clock::time_point start = Clock::now();
    std::uint64_t tick = 0;
    for (;;) {
        {
            std::unique_lock lock(_mutex);
            const auto due =
                start + std::chrono::duration_cast<Clock::duration>(period * double(tick));
            if (_wake.wait_until(lock, due, [this] { return _stopping; })) {
                return;
            }
        }
        if (!_tick(tick)) {
            return;
        }
        const auto passed = static_cast<std::uint64_t>((Clock::now() - start) / period);
        tick = std::max(tick + 1, passed);
    }
}

}  // namespace platform
