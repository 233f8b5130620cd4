#include "platform/graphics/Image.h"

#include "platform/foundation/Bundle.h"
#include "platform/graphics/PixelMath.h"

#include <QFileInfo>
#include <QPaintEngine>
#include <QPainter>
#include <QRegularExpression>
#include <QSysInfo>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace platform {
namespace {

// Side of the square tiles in which quarter turns are copied: 64 pixels of
// 4 bytes keep one source and one destination tile in the L1 cache.
constexpr int kTile = 64;

// Writes the oriented pixels of src into the w x h block at dst (rows
// dstStride pixels apart): the destination pixel (dx, dy) takes the source
// pixel mapped by the orientation, combined by store(out, in). Walks the
// destination in tiles so that both images are read and written in
// cache-sized blocks.
template <typename Map, typename Store>
void tiledCopy(const QImage& src, std::uint32_t* dst, qsizetype dstStride, int w, int h,
               Map sourceOf, Store store) {
    const auto* srcBits = reinterpret_cast<const std::uint32_t*>(src.constBits());
    const qsizetype srcStride = src.bytesPerLine() / 4;
    for (int ty = 0; ty < h; ty += kTile) {
        const int yEnd = std::min(ty + kTile, h);
        for (int tx = 0; tx < w; tx += kTile) {
            const int xEnd = std::min(tx + kTile, w);
            for (int y = ty; y < yEnd; ++y) {
                std::uint32_t* out = dst + y * dstStride;
                for (int x = tx; x < xEnd; ++x) {
                    const auto [sx, sy] = sourceOf(x, y);
                    store(out[x], srcBits[sy * srcStride + sx]);
                }
            }
        }
    }
}

// The oriented copy of the 32-bit image src into dst, which has src's
// displayed size.
template <typename Store>
void orientedCopy(const QImage& src, ImageOrientation orientation, std::uint32_t* dst,
                  qsizetype dstStride, Store store) {
    const int w = src.width();
    const int h = src.height();
    const int dw = swapsAxes(orientation) ? h : w;
    const int dh = swapsAxes(orientation) ? w : h;
    const auto copy = [&](auto sourceOf) {
        tiledCopy(src, dst, dstStride, dw, dh, sourceOf, store);
    };
    // For each orientation, the stored pixel shown at displayed (x, y).
    switch (orientation) {
        case ImageOrientation::Up:
            copy([](int x, int y) { return std::pair{x, y}; });
            break;
        case ImageOrientation::Down:
            copy([w, h](int x, int y) { return std::pair{w - 1 - x, h - 1 - y}; });
            break;
        case ImageOrientation::Left:
            copy([w](int x, int y) { return std::pair{w - 1 - y, x}; });
            break;
        case ImageOrientation::Right:
            copy([h](int x, int y) { return std::pair{y, h - 1 - x}; });
            break;
        case ImageOrientation::UpMirrored:
            copy([w](int x, int y) { return std::pair{w - 1 - x, y}; });
            break;
        case ImageOrientation::DownMirrored:
            copy([h](int x, int y) { return std::pair{x, h - 1 - y}; });
            break;
        case ImageOrientation::LeftMirrored:
            copy([](int x, int y) { return std::pair{y, x}; });
            break;
        case ImageOrientation::RightMirrored:
            copy([w, h](int x, int y) { return std::pair{w - 1 - y, h - 1 - x}; });
            break;
    }
}

constexpr auto storeCopy = [](std::uint32_t& out, std::uint32_t in) { out = in; };

constexpr auto storeSourceOver = [](std::uint32_t& out, std::uint32_t in) {
    const std::uint32_t alpha = in >> 24;
    if (alpha == 0xFF) {
        out = in;
    } else if (alpha != 0) {
        // The raster engine's rounding, so drawing straight into memory gives
        // the pixels a painter would.
        out = in + pixel::byteMul(out, 0xFF - alpha);
    }
};

// Pixel layouts whose 32-bit words can be copied between images as they are:
// the native-endian ARGB family and the byte-ordered RGBA family. Each has an
// opaque member and a premultiplied one.
enum class Family { None, Argb, Rgba };

Family familyOf(QImage::Format format) {
    switch (format) {
        case QImage::Format_RGB32:
        case QImage::Format_ARGB32_Premultiplied:
            return Family::Argb;
        case QImage::Format_RGBX8888:
        case QImage::Format_RGBA8888_Premultiplied:
            // Alpha is the top byte of the word only on little-endian hosts.
            return QSysInfo::ByteOrder == QSysInfo::LittleEndian ? Family::Rgba : Family::None;
        default:
            return Family::None;
    }
}

bool isOpaqueFormat(QImage::Format format) {
    return format == QImage::Format_RGB32 || format == QImage::Format_RGBX8888;
}

bool isWhole(double value) {
    return std::abs(value - std::round(value)) < 1e-6;
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
    orientedCopy(src, orientation, reinterpret_cast<std::uint32_t*>(dst.bits()),
                 dst.bytesPerLine() / 4, storeCopy);
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

bool Image::drawDirect(QPainter& painter, const QRectF& rect) const {
    QPaintDevice* device = painter.device();
    if (device == nullptr || device->devType() != QInternal::Image ||
        painter.paintEngine() == nullptr || painter.paintEngine()->type() != QPaintEngine::Raster) {
        return false;
    }
    auto* target = static_cast<QImage*>(device);
    // A shared target would be copied on write, away from the memory the
    // painter draws into.
    if (!target->isDetached() || familyOf(target->format()) == Family::None ||
        familyOf(target->format()) != familyOf(_image.format())) {
        return false;
    }
    const QPainter::CompositionMode mode = painter.compositionMode();
    const bool opaqueSource = isOpaqueFormat(_image.format());
    const bool copies = mode == QPainter::CompositionMode_Source ||
                        (mode == QPainter::CompositionMode_SourceOver && opaqueSource);
    const bool blends = mode == QPainter::CompositionMode_SourceOver && !opaqueSource;
    // An opaque target cannot take translucent pixels as they are.
    if ((!copies && !blends) || (copies && !opaqueSource && isOpaqueFormat(target->format())) ||
        painter.opacity() != 1.0 || painter.hasClipping()) {
        return false;
    }
    const QTransform& toDevice = painter.deviceTransform();
    if (toDevice.type() > QTransform::TxScale || toDevice.m11() <= 0 || toDevice.m22() <= 0) {
        return false;
    }
    const QRectF shown = toDevice.mapRect(rect);
    const QSize pixels = swapsAxes(_orientation) ? _image.size().transposed() : _image.size();
    if (!isWhole(shown.x()) || !isWhole(shown.y()) ||
        std::abs(shown.width() - pixels.width()) > 1e-6 ||
        std::abs(shown.height() - pixels.height()) > 1e-6) {
        return false;
    }
    const QRect area(
        QPoint(static_cast<int>(std::lround(shown.x())), static_cast<int>(std::lround(shown.y()))),
        pixels);
    if (!target->rect().contains(area)) {
        return false;
    }
    const qsizetype stride = target->bytesPerLine() / 4;
    auto* origin = reinterpret_cast<std::uint32_t*>(target->bits()) + area.y() * stride + area.x();
    if (copies) {
        orientedCopy(_image, _orientation, origin, stride, storeCopy);
    } else {
        orientedCopy(_image, _orientation, origin, stride, storeSourceOver);
    }
    return true;
}

void Image::drawInRect(QPainter& painter, const QRectF& rect) const {
    if (_image.isNull() || rect.isEmpty()) {
        return;
    }
    if (drawDirect(painter, rect)) {
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
