#include "platform/graphics/Image.h"

#include "platform/foundation/Bundle.h"

#include <QFileInfo>
#include <QPainter>
#include <QRegularExpression>

#include <algorithm>
#include <cstdint>

namespace platform {
namespace {

// Side of the square tiles in which quarter turns are copied: 64 pixels of
// 4 bytes keep one source and one destination tile in the L1 cache.
constexpr int kTile = 64;

// Copies src into dst where the destination pixel (dx, dy) takes the source
// pixel mapped by the orientation. Walks the destination in tiles so that
// both images are read and written in cache-sized blocks.
template <typename Map>
void tiledCopy(const QImage& src, QImage& dst, Map sourceOf) {
    const int w = dst.width();
    const int h = dst.height();
    const auto* srcBits = src.constBits();
    const qsizetype srcStride = src.bytesPerLine() / 4;
    for (int ty = 0; ty < h; ty += kTile) {
        const int yEnd = std::min(ty + kTile, h);
        for (int tx = 0; tx < w; tx += kTile) {
            const int xEnd = std::min(tx + kTile, w);
            for (int y = ty; y < yEnd; ++y) {
                auto* out = reinterpret_cast<std::uint32_t*>(dst.scanLine(y));
                for (int x = tx; x < xEnd; ++x) {
                    const auto [sx, sy] = sourceOf(x, y);
                    out[x] = reinterpret_cast<const std::uint32_t*>(srcBits)[sy * srcStride + sx];
                }
            }
        }
    }
}

bool is32Bit(QImage::Format format) {
    switch (format) {
        case QImage::Format_RGB32:
        case QImage::Format_ARGB32:
        case QImage::Format_ARGB32_Premultiplied:
        case QImage::Format_RGBX8888:
        case QImage::Format_RGBA8888:
        case QImage::Format_RGBA8888_Premultiplied:
            return true;
        default:
            return false;
    }
}

}  // namespace

bool swapsAxes(ImageOrientation orientation) {
    switch (orientation) {
        case ImageOrientation::Left:
        case ImageOrientation::Right:
        case ImageOrientation::LeftMirrored:
        case ImageOrientation::RightMirrored:
            return true;
        default:
            return false;
    }
}

QTransform orientationTransform(ImageOrientation orientation, const QSize& storedSize) {
    const double w = storedSize.width();
    const double h = storedSize.height();
    switch (orientation) {
        case ImageOrientation::Up:
            return {};
        case ImageOrientation::Down:
            return QTransform(-1, 0, 0, -1, w, h);
        case ImageOrientation::Left:
            return QTransform(0, -1, 1, 0, 0, w);
        case ImageOrientation::Right:
            return QTransform(0, 1, -1, 0, h, 0);
        case ImageOrientation::UpMirrored:
            return QTransform(-1, 0, 0, 1, w, 0);
        case ImageOrientation::DownMirrored:
            return QTransform(1, 0, 0, -1, 0, h);
        case ImageOrientation::LeftMirrored:
            return QTransform(0, 1, 1, 0, 0, 0);
        case ImageOrientation::RightMirrored:
            return QTransform(0, -1, -1, 0, h, w);
    }
    return {};
}

QImage applyOrientation(const QImage& image, ImageOrientation orientation) {
    if (image.isNull() || orientation == ImageOrientation::Up) {
        return image;
    }
    const QImage src = is32Bit(image.format())
                           ? image
                           : image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const int w = src.width();
    const int h = src.height();
    QImage dst = swapsAxes(orientation) ? QImage(h, w, src.format()) : QImage(w, h, src.format());
    if (dst.isNull()) {
        return {};
    }
    dst.setDevicePixelRatio(src.devicePixelRatio());
    // For each orientation, the stored pixel shown at displayed (x, y).
    switch (orientation) {
        case ImageOrientation::Up:
            break;
        case ImageOrientation::Down:
            tiledCopy(src, dst, [w, h](int x, int y) { return std::pair{w - 1 - x, h - 1 - y}; });
            break;
        case ImageOrientation::Left:
            tiledCopy(src, dst, [w](int x, int y) { return std::pair{w - 1 - y, x}; });
            break;
        case ImageOrientation::Right:
            tiledCopy(src, dst, [h](int x, int y) { return std::pair{y, h - 1 - x}; });
            break;
        case ImageOrientation::UpMirrored:
            tiledCopy(src, dst, [w](int x, int y) { return std::pair{w - 1 - x, y}; });
            break;
        case ImageOrientation::DownMirrored:
            tiledCopy(src, dst, [h](int x, int y) { return std::pair{x, h - 1 - y}; });
            break;
        case ImageOrientation::LeftMirrored:
            tiledCopy(src, dst, [](int x, int y) { return std::pair{y, x}; });
            break;
        case ImageOrientation::RightMirrored:
            tiledCopy(src, dst, [w, h](int x, int y) { return std::pair{w - 1 - y, h - 1 - x}; });
            break;
    }
    return dst;
}

std::shared_ptr<Image> Image::withCGImage(const QImage& image, double scale,
                                          ImageOrientation orientation) {
    if (image.isNull() || !(scale > 0.0)) {
        return nullptr;
    }
    return std::make_shared<Image>(image, scale, orientation);
}

std::shared_ptr<Image> Image::named(const QString& name, const std::shared_ptr<Bundle>& bundle,
                                    double screenScale) {
    if (!bundle) {
        return nullptr;
    }
    double fileScale = 1.0;
    const QString path = bundle->pathForImage(name, screenScale, &fileScale);
    if (path.isEmpty()) {
        return nullptr;
    }
    QImage pixels(path);
    return withCGImage(pixels, fileScale);
}

std::shared_ptr<Image> Image::withContentsOfFile(const QString& path) {
    static const QRegularExpression suffix(QStringLiteral("@([0-9]+)x$"));
    const QImage pixels(path);
    const auto match = suffix.match(QFileInfo(path).completeBaseName());
    const double scale = match.hasMatch() ? match.captured(1).toDouble() : 1.0;
    return withCGImage(pixels, scale);
}

Image::Image(QImage image, double scale, ImageOrientation orientation)
    : _image(std::move(image)), _scale(scale), _orientation(orientation) {}

QSizeF Image::size() const {
    const QSizeF pixels(_image.width() / _scale, _image.height() / _scale);
    return swapsAxes(_orientation) ? pixels.transposed() : pixels;
}

void Image::drawInRect(QPainter& painter, const QRectF& rect) const {
    if (_image.isNull() || rect.isEmpty()) {
        return;
    }
    const QSize stored = _image.size();
    const QSizeF shown =
        swapsAxes(_orientation) ? QSizeF(stored.height(), stored.width()) : QSizeF(stored);
    const QTransform toRect =
        QTransform::fromScale(rect.width() / shown.width(), rect.height() / shown.height()) *
        QTransform::fromTranslate(rect.x(), rect.y());
    painter.save();
    // Resample smoothly only when the image is actually scaled: a pure
    // quarter turn then stays pixel-exact.
    const bool scaled = rect.width() != shown.width() || rect.height() != shown.height();
    painter.setRenderHint(QPainter::SmoothPixmapTransform, scaled);
    painter.setTransform(orientationTransform(_orientation, stored) * toRect, true);
    painter.drawImage(QPointF(0, 0), _image);
    painter.restore();
}

void Image::drawAtPoint(QPainter& painter, const QPointF& point) const {
    drawInRect(painter, QRectF(point, size()));
}

}  // namespace platform
