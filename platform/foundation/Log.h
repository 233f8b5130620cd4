#pragma once

#include <QString>

#include <functional>

/// The system log: one line a call, like the platform's log function.
///
/// Thread-safe: any thread may log; lines from different threads never
/// interleave. The sink is called with the logging lock held, so a sink must
/// not log itself.
namespace platform::log {

/// Receives each finished line, without a trailing newline.
using Sink = std::function<void(const QString& line)>;

/// Writes "<date> <time> <process>[<pid>:<tid>] <message>" through the sink.
void write(const QString& message);

/// Formats one line as write() does, without sending it anywhere.
QString formatLine(const QString& message);

/// Replaces the sink and returns the previous one. An empty sink restores the
/// default, which writes to standard error.
Sink setSink(Sink sink);

/// Installs a sink for the lifetime of the guard, then puts the old one back.
class ScopedSink {
public:
    explicit ScopedSink(Sink sink) : _previous(setSink(std::move(sink))) {}
    ~ScopedSink() { setSink(std::move(_previous)); }
    ScopedSink(const ScopedSink&) = delete;
    ScopedSink& operator=(const ScopedSink&) = delete;

private:
    Sink _previous;
};

}  // namespace platform::log
