#include "support/BundleCheck.h"

#include "platform/foundation/Bundle.h"

#include <QDir>
#include <QFileInfo>
#include <QStringList>

namespace support {

QString bundleProblem(const platform::Bundle* bundle) {
    const QString consequence = QStringLiteral(
        " Until it is, buttons show their string keys instead of their titles and have no icons.");
    if (bundle == nullptr) {
        return QStringLiteral(
                   "the framework's resources were not found: set "
                   "QXD_FRAMEWORK_BUNDLE to the folder of the built resources, or "
                   "install them beside the library.") +
               consequence;
    }
    const QString path = bundle->bundlePath();
    const QFileInfo folder(path);
    const QDir dir(path);
    if (!folder.isDir()) {
        return QStringLiteral("the framework's resources folder %1 does not exist.").arg(path) +
               consequence;
    }
    if (!folder.isReadable() || !folder.isExecutable() ||
        dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot).isEmpty()) {
        const bool empty =
            folder.isReadable() && dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot).isEmpty();
        return (empty ? QStringLiteral("the framework's resources folder %1 is empty.")
                      : QStringLiteral("the framework's resources folder %1 cannot be read "
                                       "(check its permissions)."))
                   .arg(path) +
               consequence;
    }
    QStringList missing;
    const QFileInfo info(dir.filePath(QStringLiteral("Info.json")));
    if (!info.isFile() || !info.isReadable()) {
        missing << QStringLiteral("Info.json");
    }
    if (bundle->imageNames().isEmpty()) {
        missing << QStringLiteral("images");
    }
    if (bundle->localizations().isEmpty()) {
        missing << QStringLiteral("string tables");
    }
    if (!missing.isEmpty()) {
        return QStringLiteral("the framework's resources folder %1 is incomplete: it has no %2.")
                   .arg(path, missing.join(QStringLiteral(", no "))) +
               consequence;
    }
    return {};
}

}  // namespace support
