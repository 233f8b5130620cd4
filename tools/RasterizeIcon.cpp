// Renders an SVG icon into the PNG files of a resource bundle: one file per
// screen scale, named <name>.png, <name>@2x.png, <name>@3x.png, ...
//
//   qxd-rasterize-icon <icon.svg> <output-folder> <name> <width>x<height> [scale...]
//
// The size is in points; each scale gives an image of size * scale pixels.
// Without scales, 1, 2 and 3 are written.

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSizeF>
#include <QSvgRenderer>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

namespace {

void fail(const QString& message) {
    std::fprintf(stderr, "qxd-rasterize-icon: %s\n", qPrintable(message));
}

std::optional<QSizeF> parseSize(const QString& text) {
    static const QRegularExpression format(
        QStringLiteral(R"(^([0-9]+(?:\.[0-9]+)?)x([0-9]+(?:\.[0-9]+)?)$)"));
    const auto match = format.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const QSizeF size(match.captured(1).toDouble(), match.captured(2).toDouble());
    if (size.isEmpty()) {
        return std::nullopt;
    }
    return size;
}

QString fileNameForScale(const QString& name, int scale) {
    return scale == 1 ? name + QStringLiteral(".png")
                      : QStringLiteral("%1@%2x.png").arg(name, QString::number(scale));
}

bool writeImage(QSvgRenderer& renderer, const QSizeF& points, int scale, const QString& path) {
    const QSize pixels(static_cast<int>(std::lround(points.width() * scale)),
                       static_cast<int>(std::lround(points.height() * scale)));
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    // One point is 1/72 inch, so the file's resolution tells its scale; it
    // also keeps the output the same whatever the build machine's screen.
    const int dotsPerMeter = static_cast<int>(std::lround(72.0 / 0.0254 * scale));
    image.setDotsPerMeterX(dotsPerMeter);
    image.setDotsPerMeterY(dotsPerMeter);
    {
        QPainter painter(&image);
        painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
        renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(pixels)));
    }
    // Written through a temporary file so an interrupted build never leaves a
    // truncated PNG that looks up to date.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) ||
        !image.convertToFormat(QImage::Format_ARGB32).save(&file, "PNG") || !file.commit()) {
        fail(QStringLiteral("cannot write %1").arg(path));
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    // A core application is enough: the icons are paths only, never text,
    // so rendering needs neither fonts nor a display.
    QCoreApplication app(argc, argv);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Renders an SVG icon to PNG files at several screen scales."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("svg"), QStringLiteral("The icon's SVG file."));
    parser.addPositionalArgument(QStringLiteral("folder"),
                                 QStringLiteral("The folder the PNG files go to."));
    parser.addPositionalArgument(QStringLiteral("name"),
                                 QStringLiteral("The image name, without scale or extension."));
    parser.addPositionalArgument(QStringLiteral("size"),
                                 QStringLiteral("The size in points, as <width>x<height>."));
    parser.addPositionalArgument(QStringLiteral("scales"),
                                 QStringLiteral("Screen scales to write (default 1 2 3)."),
                                 QStringLiteral("[scale...]"));
    parser.process(app);

    const QStringList arguments = parser.positionalArguments();
    if (arguments.size() < 4) {
        fail(QStringLiteral("expected <svg> <folder> <name> <width>x<height> [scale...]"));
        return EXIT_FAILURE;
    }
    const QString& svgPath = arguments[0];
    const QString& folder = arguments[1];
    const QString& name = arguments[2];
    const auto points = parseSize(arguments[3]);
    if (!points) {
        fail(QStringLiteral("bad size \"%1\", expected e.g. 32x32").arg(arguments[3]));
        return EXIT_FAILURE;
    }
    std::vector<int> scales;
    for (qsizetype i = 4; i < arguments.size(); ++i) {
        bool ok = false;
        const int scale = arguments[i].toInt(&ok);
        if (!ok || scale < 1) {
            fail(QStringLiteral("bad scale \"%1\"").arg(arguments[i]));
            return EXIT_FAILURE;
        }
        scales.push_back(scale);
    }
    if (scales.empty()) {
        scales = {1, 2, 3};
    }

    QSvgRenderer renderer(svgPath);
    if (!renderer.isValid()) {
        fail(QStringLiteral("cannot read %1 as SVG").arg(svgPath));
        return EXIT_FAILURE;
    }
    renderer.setAspectRatioMode(Qt::KeepAspectRatio);

    if (!QDir().mkpath(folder)) {
        fail(QStringLiteral("cannot create %1").arg(folder));
        return EXIT_FAILURE;
    }
    const QDir output(folder);
    for (const int scale : scales) {
        if (!writeImage(renderer, *points, scale,
                        output.absoluteFilePath(fileNameForScale(name, scale)))) {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}
