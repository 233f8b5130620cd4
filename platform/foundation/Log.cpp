#include "platform/foundation/Log.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>

#include <cstdio>
#include <mutex>

#include <sys/syscall.h>
#include <unistd.h>

namespace platform::log {
namespace {

std::mutex& sinkMutex() {
    static std::mutex mutex;
    return mutex;
}

Sink& currentSink() {
    static Sink sink;
    return sink;
}

QString processName() {
    static const QString name = [] {
        QString fromFile = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
        if (!fromFile.isEmpty()) {
            return QFileInfo(fromFile).fileName();
        }
        return QCoreApplication::applicationName();
    }();
    return name;
}

void writeToStandardError(const QString& line) {
    const QByteArray bytes = line.toUtf8();
    std::fprintf(stderr, "%s\n", bytes.constData());
    std::fflush(stderr);
}

}  // namespace

QString formatLine(const QString& message) {
    const QString stamp =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
    const auto tid = static_cast<long>(::syscall(SYS_gettid));
    return QStringLiteral("%1 %2[%3:%4] %5")
        .arg(stamp, processName())
        .arg(static_cast<long>(::getpid()))
        .arg(tid)
        .arg(message);
}

void write(const QString& message) {
    const QString line = formatLine(message);
    std::lock_guard lock(sinkMutex());
    if (currentSink()) {
        currentSink()(line);
    } else {
        writeToStandardError(line);
    }
}

Sink setSink(Sink sink) {
    std::lock_guard lock(sinkMutex());
    Sink previous = std::move(currentSink());
    currentSink() = std::move(sink);
    return previous;
}

}  // namespace platform::log
