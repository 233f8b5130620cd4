#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <functional>

namespace speechcheck {

/// Runs the Qt event loop until done() holds or timeoutMs pass; true when
/// done() held. Waits on events (process output, exits, timers), never
/// sleeps.
bool waitUntil(const std::function<bool()>& done, int timeoutMs);

/// A PulseAudio server of this process's own, with one null sink, living in
/// a temporary folder, and a recorder of everything played into that sink
/// (16 kHz mono, signed 16-bit). Both processes end with the object.
///
/// Main thread only (it waits on the Qt event loop).
class SoundServer {
public:
    static constexpr int kSampleRate = 16000;

    SoundServer();
    ~SoundServer();
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    /// The address clients connect to ("unix:<folder>/native"); valid before
    /// start, so it can go into PULSE_SERVER before anything connects.
    QString address() const;

    /// Starts the server and waits until it answers; false with why.
    bool start(QString* error);
    /// Starts recording the sink and waits for its first bytes; false with why.
    bool startRecording(QString* error);

    /// The samples recorded so far.
    const QByteArray& recording() const { return _recording; }
    qint64 recordedSamples() const { return _recording.size() / 2; }

    /// What the server wrote to its log, for failure reports.
    QString serverLog();

private:
    QProcessEnvironment environment() const;
    void stop(QProcess& process);

    QTemporaryDir _folder;
    QProcess _server;
    QProcess _recorder;
    QByteArray _recording;
};

}  // namespace speechcheck
