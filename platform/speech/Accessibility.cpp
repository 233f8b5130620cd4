#include "platform/speech/Accessibility.h"

#include <QAccessible>

#include <atomic>

namespace platform {
namespace {

// The host's override: -1 none, 0 off, 1 on.
std::atomic<int> screenReaderOverride{-1};

}  // namespace

bool isScreenReaderRunning() {
    if (const auto running = screenReaderRunningOverride()) {
        return *running;
    }
    return QAccessible::isActive();
}

void setScreenReaderRunningOverride(std::optional<bool> running) {
    screenReaderOverride.store(running ? (*running ? 1 : 0) : -1);
}

std::optional<bool> screenReaderRunningOverride() {
    const int value = screenReaderOverride.load();
    if (value < 0) {
        return std::nullopt;
    }
    return value == 1;
}

}  // namespace platform
