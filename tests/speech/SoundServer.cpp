#include "SoundServer.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QStandardPaths>

namespace speechcheck {
namespace {

const QString kSink = QStringLiteral("qxd_speech");
constexpr int kStartMs = 15000;

}  // namespace

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(
            QEventLoop::WaitForMoreEvents,
            static_cast<int>(std::min<qint64>(deadline.remainingTime(), 100)));
    }
    return true;
}

SoundServer::SoundServer() {
    QDir(_folder.path()).mkpath(QStringLiteral("home"));
    QDir(_folder.path()).mkpath(QStringLiteral("run"));
    QFile::setPermissions(_folder.filePath(QStringLiteral("run")),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

SoundServer::~SoundServer() {
    stop(_recorder);
    stop(_server);
}

QString SoundServer::address() const {
    return QStringLiteral("unix:") + _folder.filePath(QStringLiteral("native"));
}

QProcessEnvironment SoundServer::environment() const {
    // Nothing of the user's own sound setup: the server keeps its state, and
    // its clients look for it, inside the temporary folder only.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), _folder.filePath(QStringLiteral("home")));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), _folder.filePath(QStringLiteral("home")));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), _folder.filePath(QStringLiteral("run")));
    env.insert(QStringLiteral("PULSE_RUNTIME_PATH"), _folder.filePath(QStringLiteral("run")));
    env.insert(QStringLiteral("PULSE_STATE_PATH"), _folder.filePath(QStringLiteral("home")));
    env.insert(QStringLiteral("PULSE_SERVER"), address());
    return env;
}

bool SoundServer::start(QString* error) {
    const QString program = QStandardPaths::findExecutable(QStringLiteral("pulseaudio"));
    const QString control = QStandardPaths::findExecutable(QStringLiteral("pactl"));
    if (program.isEmpty() || control.isEmpty()) {
        *error = QStringLiteral(
            "pulseaudio or pactl is not installed (scripts/install-deps.sh installs "
            "pulseaudio and pulseaudio-utils)");
        return false;
    }
    _server.setProcessEnvironment(environment());
    _server.setProcessChannelMode(QProcess::MergedChannels);
    // -n: none of the system's default modules (no real sound card). If this
    // process dies, the idle server ends itself half a minute later.
    _server.start(program,
                  {QStringLiteral("--daemonize=no"), QStringLiteral("--use-pid-file=no"),
                   QStringLiteral("-n"), QStringLiteral("--exit-idle-time=30"),
                   QStringLiteral("--disallow-exit"), QStringLiteral("--log-target=stderr"),
                   QStringLiteral("--load=module-null-sink sink_name=") + kSink,
                   QStringLiteral("--load=module-native-protocol-unix auth-anonymous=1 socket=") +
                       _folder.filePath(QStringLiteral("native"))});
    if (!_server.waitForStarted(kStartMs)) {
        *error = QStringLiteral("pulseaudio did not start: ") + _server.errorString();
        return false;
    }
    bool answered = false;
    QProcess probe;
    probe.setProcessEnvironment(environment());
    const auto ask = [&] { probe.start(control, {QStringLiteral("info")}); };
    ask();
    const bool ok = waitUntil(
        [&] {
            if (_server.state() == QProcess::NotRunning) {
                return true;
            }
            if (probe.state() == QProcess::NotRunning) {
                if (probe.exitStatus() == QProcess::NormalExit && probe.exitCode() == 0) {
                    answered = true;
                    return true;
                }
                ask();
            }
            return false;
        },
        kStartMs);
    if (!ok || !answered) {
        *error = QStringLiteral("the private pulseaudio server did not answer:\n") + serverLog();
        return false;
    }
    return true;
}

bool SoundServer::startRecording(QString* error) {
    const QString program = QStandardPaths::findExecutable(QStringLiteral("parec"));
    if (program.isEmpty()) {
        *error = QStringLiteral("parec is not installed (it comes with pulseaudio-utils)");
        return false;
    }
    _recorder.setProcessEnvironment(environment());
    QObject::connect(&_recorder, &QProcess::readyReadStandardOutput, &_recorder,
                     [this] { _recording += _recorder.readAllStandardOutput(); });
    _recorder.start(program,
                    {QStringLiteral("--device=") + kSink + QStringLiteral(".monitor"),
                     QStringLiteral("--format=s16le"), QStringLiteral("--rate=%1").arg(kSampleRate),
                     QStringLiteral("--channels=1"), QStringLiteral("--raw"),
                     QStringLiteral("--latency-msec=20")});
    // The monitor streams silence as soon as the recorder is connected.
    const bool ok = waitUntil(
        [&] { return !_recording.isEmpty() || _recorder.state() == QProcess::NotRunning; },
        kStartMs);
    if (!ok || _recording.isEmpty()) {
        *error = QStringLiteral("parec recorded nothing: ") +
                 QString::fromLocal8Bit(_recorder.readAllStandardError());
        return false;
    }
    return true;
}

QString SoundServer::serverLog() {
    return QString::fromLocal8Bit(_server.readAll());
}

void SoundServer::stop(QProcess& process) {
    if (process.state() == QProcess::NotRunning) {
        return;
    }
    process.terminate();
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(5000);
    }
}

}  // namespace speechcheck
