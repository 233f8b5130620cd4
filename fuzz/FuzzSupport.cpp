#include "FuzzSupport.h"

#include "platform/foundation/Log.h"
#include "platform/foundation/RunLoop.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>

#include <memory>

namespace fuzz {

void initialize() {
    static bool done = false;
    if (done) {
        return;
    }
    done = true;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "qxd-fuzz";
    static char* argv[] = {name, nullptr};
    static QGuiApplication app(argc, argv);
    platform::RunLoop::main().useManualClock();
    // Rejected inputs are logged; a fuzzer makes millions of them.
    static platform::log::ScopedSink quiet([](const QString&) {});
}

const QString& scratchFolder() {
    static QTemporaryDir folder;
    static const QString path = folder.path();
    return path;
}

QString writeScratch(const QString& name, const std::uint8_t* data, std::size_t size) {
    const QString path = QDir(scratchFolder()).filePath(name);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        file.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size));
    }
    return path;
}

}  // namespace fuzz
