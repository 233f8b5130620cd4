#pragma once

#include <optional>

namespace platform {

/// True when a screen reader is running, like the platform's check for its
/// screen reader: the host's override when one is set, otherwise whether Qt's
/// accessibility is active (an assistive tool has connected). Main thread
/// only (it reads Qt's state).
bool isScreenReaderRunning();

/// Sets, or with nullopt clears, the host's answer for
/// isScreenReaderRunning. Thread-safe.
void setScreenReaderRunningOverride(std::optional<bool> running);

/// The host's current override, if any. Thread-safe.
std::optional<bool> screenReaderRunningOverride();

}  // namespace platform
