// A small host of the framework: shows the version it was built as, the
// images and string tables of its resource bundle, and writes a contact sheet
// of the images.
//
//   qxd-bundle-tour [output-folder]     (default ./out)

#include "ExampleSupport.h"
#include "QXDCameraControllerVersion.h"
#include "QXDCameraCore.h"
#include "platform/foundation/Bundle.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFont>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cstdlib>
#include <vector>

using examples::print;
using examples::printError;

namespace {

const QStringList kButtonKeys = {QStringLiteral("button.cancel"), QStringLiteral("button.confirm")};

struct ImageInfo {
    QString name;
    QSizeF points;
    std::vector<double> scales;
    QImage sheetImage;  // the 2x variant, or the nearest the bundle has
};

// "@(#)PROGRAM:... PROJECT:...-1\n" without its what(1) marker and newline.
QString versionString() {
    QString text =
        QString::fromLatin1(reinterpret_cast<const char*>(QXDCameraControllerVersionString));
    if (text.startsWith(QStringLiteral("@(#)"))) {
        text.remove(0, 4);
    }
    return text.trimmed();
}

QString formatScale(double scale) {
    return QStringLiteral("@%1x").arg(scale);
}

// The scales the bundle has for name, smallest first. pathForImage gives the
// nearest variant at or above the asked scale, so asking just past each found
// scale walks through all of them.
std::vector<double> scalesOfImage(const platform::Bundle& bundle, const QString& name) {
    std::vector<double> scales;
    double wanted = 1.0;
    while (true) {
        double found = 0.0;
        if (bundle.pathForImage(name, wanted, &found).isEmpty() || found < wanted) {
            break;
        }
        scales.push_back(found);
        wanted = found + 1.0;
    }
    return scales;
}

std::vector<ImageInfo> loadImages(const platform::Bundle& bundle) {
    std::vector<ImageInfo> images;
    for (const QString& name : bundle.imageNames()) {
        ImageInfo info;
        info.name = name;
        info.scales = scalesOfImage(bundle, name);
        double smallestScale = 1.0;
        const QImage smallest(bundle.pathForImage(name, 0.0, &smallestScale));
        if (!smallest.isNull() && smallestScale > 0.0) {
            info.points = QSizeF(smallest.size()) / smallestScale;
        }
        double sheetScale = 2.0;
        info.sheetImage = QImage(bundle.pathForImage(name, 2.0, &sheetScale));
        info.sheetImage.setDevicePixelRatio(sheetScale);
        images.push_back(std::move(info));
    }
    return images;
}

void printVersion(const platform::Bundle& bundle) {
    print(QStringLiteral("Framework"));
    print(QStringLiteral("  version string   %1").arg(versionString()));
    print(QStringLiteral("  version number   %1").arg(QXDCameraControllerVersionNumber, 0, 'f', 1));
    print(QStringLiteral("  bundle version   %1")
              .arg(bundle.objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString"))
                       .toString()));
    print(QStringLiteral("  bundle           %1").arg(bundle.bundlePath()));
}

void printImages(const std::vector<ImageInfo>& images) {
    print(QString());
    print(QStringLiteral("Images (%1)").arg(images.size()));
    for (const ImageInfo& image : images) {
        QStringList scales;
        for (const double scale : image.scales) {
            scales << formatScale(scale);
        }
        const QString size =
            QStringLiteral("%1x%2 pt").arg(image.points.width()).arg(image.points.height());
        print(QStringLiteral("  %1 %2 %3")
                  .arg(image.name.leftJustified(24), size.leftJustified(11), scales.join(u' ')));
    }
}

// One row of the localizations table: cells padded to their columns, without
// trailing blanks.
QString tableRow(const QString& language, const QStringList& cells) {
    constexpr int kLanguageWidth = 6;
    constexpr int kColumnWidth = 16;
    QString row = language.leftJustified(kLanguageWidth);
    for (const QString& cell : cells) {
        row += cell.leftJustified(kColumnWidth);
    }
    return QStringLiteral("  ") + row.trimmed();
}

void printLocalizations(const platform::Bundle& bundle) {
    const QStringList languages = bundle.localizations();
    print(QString());
    print(QStringLiteral("Localizations (%1)").arg(languages.size()));
    print(tableRow(QStringLiteral("lang"), kButtonKeys));
    for (const QString& language : languages) {
        QFile file(
            QStringLiteral("%1/%2.lproj/Localizable.strings").arg(bundle.bundlePath(), language));
        QHash<QString, QString> table;
        if (file.open(QIODevice::ReadOnly)) {
            table = platform::parseStringTable(QString::fromUtf8(file.readAll()));
        }
        QStringList titles;
        for (const QString& key : kButtonKeys) {
            titles << table.value(key, QStringLiteral("(missing)"));
        }
        print(tableRow(language, titles));
    }
}

// All images at 2x, each centred on a dark rounded tile with its name below.
QImage drawContactSheet(const std::vector<ImageInfo>& images) {
    constexpr double kScale = 2.0;
    constexpr int kColumns = 3;
    constexpr qreal kPadding = 14;  // points, around each image inside its tile
    constexpr qreal kLabelHeight = 22;
    constexpr qreal kGap = 10;  // between tiles and around the sheet
    constexpr qreal kMinTileWidth = 150;

    QSizeF largest;
    for (const ImageInfo& image : images) {
        largest = largest.expandedTo(image.points);
    }
    const qreal tileWidth = std::max(kMinTileWidth, largest.width() + 2 * kPadding);
    const qreal tileHeight = largest.height() + 2 * kPadding + kLabelHeight;
    const int rows = static_cast<int>((images.size() + kColumns - 1) / kColumns);
    const QSizeF sheetPoints(kColumns * tileWidth + (kColumns + 1) * kGap,
                             rows * tileHeight + (rows + 1) * kGap);

    QImage sheet((sheetPoints * kScale).toSize(), QImage::Format_ARGB32_Premultiplied);
    sheet.setDevicePixelRatio(kScale);
    sheet.fill(QColor(0x0e, 0x0f, 0x12));

    QPainter painter(&sheet);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform |
                           QPainter::TextAntialiasing);
    QFont font = painter.font();
    font.setPixelSize(11);
    painter.setFont(font);

    for (std::size_t i = 0; i < images.size(); ++i) {
        const ImageInfo& image = images[i];
        const int row = static_cast<int>(i) / kColumns;
        const int column = static_cast<int>(i) % kColumns;
        const QRectF tile(kGap + column * (tileWidth + kGap), kGap + row * (tileHeight + kGap),
                          tileWidth, tileHeight);
        QPainterPath rounded;
        rounded.addRoundedRect(tile, 8, 8);
        painter.fillPath(rounded, QColor(0x2a, 0x2c, 0x33));

        const QRectF imageArea(tile.left(), tile.top() + kPadding, tile.width(),
                               tile.height() - 2 * kPadding - kLabelHeight);
        if (!image.sheetImage.isNull()) {
            const QSizeF size = image.sheetImage.deviceIndependentSize();
            QRectF target(QPointF(), size);
            target.moveCenter(imageArea.center());
            painter.drawImage(target, image.sheetImage);
        }

        const QRectF label(tile.left() + 4, tile.bottom() - kPadding - kLabelHeight + 6,
                           tile.width() - 8, kLabelHeight);
        painter.setPen(QColor(0xe6, 0xe7, 0xea));
        painter.drawText(label, Qt::AlignHCenter | Qt::AlignTop,
                         painter.fontMetrics().elidedText(image.name, Qt::ElideMiddle,
                                                          static_cast<int>(label.width())));
    }
    painter.end();
    return sheet;
}

}  // namespace

int main(int argc, char** argv) {
    // Runs on machines without a display too: nothing here needs a window.
    examples::useOffscreenWithoutDisplay();
    QGuiApplication app(argc, argv);

    const QStringList arguments = QGuiApplication::arguments();
    const QString outputFolder = arguments.size() > 1 ? arguments[1] : QStringLiteral("out");

    const auto bundle = QXDCameraCore::bundle();
    if (!bundle) {
        printError(QStringLiteral(
            "cannot find the QXDCameraController resource bundle; build the "
            "QXDCameraControllerResources target or point QXD_FRAMEWORK_BUNDLE at the bundle "
            "folder"));
        return EXIT_FAILURE;
    }

    printVersion(*bundle);
    const std::vector<ImageInfo> images = loadImages(*bundle);
    printImages(images);
    printLocalizations(*bundle);

    if (images.empty()) {
        printError(QStringLiteral("the bundle at %1 has no images").arg(bundle->bundlePath()));
        return EXIT_FAILURE;
    }
    if (!QDir().mkpath(outputFolder)) {
        printError(QStringLiteral("cannot create the output folder %1").arg(outputFolder));
        return EXIT_FAILURE;
    }
    const QString sheetPath =
        QFileInfo(QDir(outputFolder).filePath(QStringLiteral("contact-sheet.png")))
            .absoluteFilePath();
    if (!drawContactSheet(images).save(sheetPath, "PNG")) {
        printError(QStringLiteral("cannot write %1").arg(sheetPath));
        return EXIT_FAILURE;
    }
    print(QString());
    print(QStringLiteral("Contact sheet: %1").arg(sheetPath));
    return EXIT_SUCCESS;
}
