#pragma once

#include "QXDCameraCore.h"
#include "platform/foundation/Bundle.h"
#include "platform/foundation/Log.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

namespace qxdtest {

/// Switches the framework's logging on and captures its lines for the
/// guard's lifetime; the information dictionary and the log sink are put back
/// afterwards.
class FrameworkLog {
public:
    FrameworkLog()
        : _bundle(QXDCameraCore::bundleForClass()),
          _savedInfo(_bundle->infoDictionary()),
          _sink([this](const QString& line) { _lines << line; }) {
        QVariantMap info = _savedInfo;
        info.insert(QStringLiteral("QXDCameraControllerLoggingEnabled"), true);
        _bundle->setInfoDictionary(info);
    }
    ~FrameworkLog() { _bundle->setInfoDictionary(_savedInfo); }
    FrameworkLog(const FrameworkLog&) = delete;
    FrameworkLog& operator=(const FrameworkLog&) = delete;

    /// The messages logged through QXD_LOG, without the line's prefixes.
    QStringList messages() const {
        const QString marker = QStringLiteral("QXDCameraController - ");
        QStringList messages;
        for (const QString& line : _lines) {
            const auto at = line.indexOf(marker);
            if (at >= 0) {
                messages << line.mid(at + marker.size());
            }
        }
        return messages;
    }
    void clear() { _lines.clear(); }

private:
    std::shared_ptr<platform::Bundle> _bundle;
    QVariantMap _savedInfo;
    QStringList _lines;
    platform::log::ScopedSink _sink;
};

}  // namespace qxdtest
