#pragma once

#include "PageDetector.h"

#include <QByteArray>
#include <QImageIOHandler>
#include <QSize>
#include <QString>

#include <optional>

namespace scanner {

/// One photo taken elsewhere, scanned: the page's corners in the photo's
/// pixels as stored (before any EXIF turn) and the corrected page, turned
/// upright as the photo's EXIF orientation says.
struct PhotoScan {
    QString file;
    QSize size;                   ///< as stored
    std::optional<Quad> corners;  ///< none: no document found
    QString pagePath;             ///< the corrected page written; empty when none
    QString error;                ///< the photo could not be read or the page written
};

/// Scans file, writing the corrected page to outputFolder as
/// <photo's base name>-page.png.
PhotoScan scanPhoto(const QString& file, const PageDetector& detector, const QString& outputFolder);

/// The scan as one line of JSON: {"file", "width", "height", "corners" (four
/// [x, y] pairs or null), "page" (path or null)}, or {"file", "error"}.
QByteArray toJson(const PhotoScan& scan);

/// image turned as an image reader's transformation says (mirror and flip
/// first, then a quarter turn clockwise).
QImage applyTransformation(const QImage& image, QImageIOHandler::Transformations transformation);

}  // namespace scanner
