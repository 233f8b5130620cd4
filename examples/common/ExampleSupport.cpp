#include "ExampleSupport.h"

#include <QCoreApplication>

#include <cstdio>

namespace examples {

void print(const QString& line) {
    std::fputs(qPrintable(line + u'\n'), stdout);
    std::fflush(stdout);
}

void printError(const QString& line) {
    std::fputs(
        qPrintable(QCoreApplication::applicationName() + QStringLiteral(": ") + line + u'\n'),
        stderr);
}

bool hasDisplay() {
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if (platform == "offscreen" || platform == "minimal") {
        return false;
    }
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

void useOffscreenWithoutDisplay() {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && !hasDisplay()) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
}

}  // namespace examples
