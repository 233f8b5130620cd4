#include "PhotoScan.h"

#include "PageWarp.h"

#include <QDir>
#include <QFileInfo>
#include <QImageReader>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTransform>

namespace scanner {

QImage applyTransformation(const QImage& image, QImageIOHandler::Transformations transformation) {
    QImage out = image;
    const bool mirror = transformation.testFlag(QImageIOHandler::TransformationMirror);
    const bool flip = transformation.testFlag(QImageIOHandler::TransformationFlip);
    if (mirror || flip) {
        out = out.mirrored(mirror, flip);
    }
    if (transformation.testFlag(QImageIOHandler::TransformationRotate90)) {
        out = out.transformed(QTransform().rotate(90));
    }
    return out;
}

PhotoScan scanPhoto(const QString& file, const PageDetector& detector,
                    const QString& outputFolder) {
    PhotoScan scan;
    scan.file = file;
    if (!QFileInfo(file).isFile()) {
        scan.error = QStringLiteral("no such file");
        return scan;
    }
    QImageReader reader(file);
    reader.setAutoTransform(false);
    // A photo's pixels as stored; the EXIF turn is applied to the page only.
    const QImage photo = reader.read();
    if (photo.isNull()) {
        scan.error = reader.errorString();
        return scan;
    }
    scan.size = photo.size();
    const auto found = detector.detect(photo);
    if (!found) {
        return scan;
    }
    scan.corners = found->corners;
    const QImage page =
        applyTransformation(flattenPage(photo, found->corners), reader.transformation());
    if (page.isNull()) {
        return scan;
    }
    if (!QDir().mkpath(outputFolder)) {
        scan.error = QStringLiteral("cannot make the folder %1").arg(outputFolder);
        return scan;
    }
    const QString path =
        QDir(outputFolder)
            .filePath(QFileInfo(file).completeBaseName() + QStringLiteral("-page.png"));
    if (!page.save(path, "PNG")) {
        scan.error = QStringLiteral("cannot write %1").arg(path);
        return scan;
    }
    scan.pagePath = path;
    return scan;
}

QByteArray toJson(const PhotoScan& scan) {
    QJsonObject object;
    object.insert(QStringLiteral("file"), scan.file);
    if (!scan.error.isEmpty() && scan.size.isEmpty()) {
        object.insert(QStringLiteral("error"), scan.error);
        return QJsonDocument(object).toJson(QJsonDocument::Compact);
    }
    object.insert(QStringLiteral("width"), scan.size.width());
    object.insert(QStringLiteral("height"), scan.size.height());
    if (scan.corners) {
        QJsonArray corners;
        for (const QPointF& corner : *scan.corners) {
            corners.append(
                QJsonArray{std::round(corner.x() * 10) / 10, std::round(corner.y() * 10) / 10});
        }
        object.insert(QStringLiteral("corners"), corners);
    } else {
        object.insert(QStringLiteral("corners"), QJsonValue::Null);
    }
    object.insert(QStringLiteral("page"), scan.pagePath.isEmpty() ? QJsonValue(QJsonValue::Null)
                                                                  : QJsonValue(scan.pagePath));
    if (!scan.error.isEmpty()) {
        object.insert(QStringLiteral("error"), scan.error);
    }
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

}  // namespace scanner
