#pragma once

#include <QString>
#include <QStringList>

#include <optional>

class QCoreApplication;

namespace scanner {

/// The command line of qxd-scanner.
struct ScannerOptions {
    QString camera;  ///< "", "back", "front", "virtual" or a camera ID
    bool listCameras = false;
    QString output = QStringLiteral("out");
    int pages = 2;  ///< headless: pages to take; with a window: 0 (until Escape) unless given
    bool pagesGiven = false;
    bool autoCapture = true;
    bool offscreen = false;
    std::optional<int> idiom;  ///< platform idiom; nullopt: from the window's shape
    QStringList detect;        ///< --detect: photos to scan

    /// Parses the application's arguments; on bad input prints why and
    /// returns nothing (exit code 2). --help and --version exit.
    static std::optional<ScannerOptions> parse(const QCoreApplication& app);
};

/// Whether the arguments ask for --offscreen (read before the application
/// object exists, to choose Qt's platform).
bool asksForOffscreen(int argc, char** argv);

}  // namespace scanner
