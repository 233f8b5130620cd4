#include "platform/graphics/BitmapContext.h"

#include "platform/graphics/PixelMemory.h"

#include <QPainter>

#include <array>
#include <cstring>
#include <limits>

namespace platform {
namespace {

using namespace bitmap;

struct Layout {
    bool supported = false;
    std::size_t bitsPerPixel = 0;
};

bool isEightBitOrder(std::uint32_t order) {
    return order == kByteOrderDefault || order == kByteOrder32Little || order == kByteOrder32Big;
}

bool isSixteenBitOrder(std::uint32_t order) {
    return order == kByteOrderDefault || order == kByteOrder16Little || order == kByteOrder16Big;
}

Layout layoutFor(std::size_t bitsPerComponent, ColorSpace space, std::uint32_t info) {
    const std::uint32_t alpha = info & kAlphaInfoMask;
    const std::uint32_t order = info & kByteOrderMask;
    const bool isFloat = (info & kFloatComponents) != 0;
    if ((info & ~(kAlphaInfoMask | kFloatComponents | kByteOrderMask)) != 0 || alpha > kAlphaOnly) {
        return {};
    }
    switch (space) {
        case ColorSpace::None:
            return {bitsPerComponent == 8 && alpha == kAlphaOnly && !isFloat, 8};
        case ColorSpace::DeviceGray:
            return {bitsPerComponent == 8 && alpha == kAlphaNone && !isFloat, 8};
        case ColorSpace::DeviceRGB:
            break;
    }
    if (bitsPerComponent == 5) {
        return {alpha == kAlphaNoneSkipFirst && !isFloat && isSixteenBitOrder(order), 16};
    }
    if (bitsPerComponent == 8) {
        const bool alphaOk = alpha == kAlphaNoneSkipFirst || alpha == kAlphaNoneSkipLast ||
                             alpha == kAlphaPremultipliedFirst || alpha == kAlphaPremultipliedLast;
        return {alphaOk && !isFloat && isEightBitOrder(order), 32};
    }
    if (bitsPerComponent == 16) {
        const bool alphaOk = alpha == kAlphaPremultipliedLast || alpha == kAlphaNoneSkipLast;
        return {alphaOk && !isFloat && order == kByteOrder16Little, 64};
    }
    if (bitsPerComponent == 32) {
        const bool alphaOk = alpha == kAlphaPremultipliedLast || alpha == kAlphaNoneSkipLast;
        return {alphaOk && isFloat && order == kByteOrder32Little, 128};
    }
    return {};
}

// Where red, green, blue and alpha sit in a 32-bit pixel whose layout has no
// QImage format; alpha -1 means the byte is skipped (opaque).
struct ByteMap {
    std::array<int, 4> rgba;
};

ByteMap byteMapFor(std::uint32_t info) {
    const std::uint32_t alpha = info & kAlphaInfoMask;
    const bool skip = alpha == kAlphaNoneSkipFirst || alpha == kAlphaNoneSkipLast;
    const bool little = (info & kByteOrderMask) == kByteOrder32Little;
    const bool first = alpha == kAlphaPremultipliedFirst || alpha == kAlphaNoneSkipFirst;
    // Little-endian words of alpha-last pixels hold A,B,G,R in memory;
    // big-endian words of alpha-first pixels hold A,R,G,B.
    if (little && !first) {
        return {{3, 2, 1, skip ? -1 : 0}};
    }
    return {{1, 2, 3, skip ? -1 : 0}};
}

}  // namespace

bool BitmapContext::isSupported(std::size_t bitsPerComponent, ColorSpace space,
                                std::uint32_t bitmapInfo) {
    return layoutFor(bitsPerComponent, space, bitmapInfo).supported;
}

std::unique_ptr<BitmapContext> BitmapContext::create(void* data, std::size_t width,
                                                     std::size_t height,
                                                     std::size_t bitsPerComponent,
                                                     std::size_t bytesPerRow, ColorSpace space,
                                                     std::uint32_t bitmapInfo,
                                                     std::shared_ptr<const void> owner) {
    const Layout layout = layoutFor(bitsPerComponent, space, bitmapInfo);
    constexpr std::size_t kMaxSide = std::numeric_limits<int>::max() / 16;
    if (!layout.supported || width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) {
        return nullptr;
    }
    const std::size_t minimumRow = (width * layout.bitsPerPixel + 7) / 8;
    if (data == nullptr && bytesPerRow == 0) {
        bytesPerRow = (minimumRow + 3) / 4 * 4;
    }
    if (bytesPerRow < minimumRow) {
        return nullptr;
    }
    std::unique_ptr<BitmapContext> context(new BitmapContext());
    if (data == nullptr) {
        auto memory = allocatePixels(bytesPerRow * height);
        data = memory.get();
        owner = std::move(memory);
    }
    context->_data = data;
    context->_owner = std::move(owner);
    context->_width = width;
    context->_height = height;
    context->_bitsPerComponent = bitsPerComponent;
    context->_bitsPerPixel = layout.bitsPerPixel;
    context->_bytesPerRow = bytesPerRow;
    context->_space = space;
    context->_bitmapInfo = bitmapInfo;
    return context;
}

QImage::Format BitmapContext::directFormat() const {
    const std::uint32_t alpha = _bitmapInfo & kAlphaInfoMask;
    const std::uint32_t order = _bitmapInfo & kByteOrderMask;
    if (_space == ColorSpace::None) {
        return QImage::Format_Alpha8;
    }
    if (_space == ColorSpace::DeviceGray) {
        return QImage::Format_Grayscale8;
    }
    switch (_bitsPerComponent) {
        case 5:
            return order == kByteOrder16Little ? QImage::Format_RGB555 : QImage::Format_Invalid;
        case 8:
            if (order == kByteOrder32Little) {
                if (alpha == kAlphaPremultipliedFirst) {
                    return QImage::Format_ARGB32_Premultiplied;
                }
                return alpha == kAlphaNoneSkipFirst ? QImage::Format_RGB32 : QImage::Format_Invalid;
            }
            if (alpha == kAlphaPremultipliedLast) {
                return QImage::Format_RGBA8888_Premultiplied;
            }
            return alpha == kAlphaNoneSkipLast ? QImage::Format_RGBX8888 : QImage::Format_Invalid;
        case 16:
            return alpha == kAlphaPremultipliedLast ? QImage::Format_RGBA64_Premultiplied
                                                    : QImage::Format_RGBX64;
        case 32:
            return alpha == kAlphaPremultipliedLast ? QImage::Format_RGBA32FPx4_Premultiplied
                                                    : QImage::Format_RGBX32FPx4;
        default:
            return QImage::Format_Invalid;
    }
}

QImage BitmapContext::makeImage() const {
    const QImage::Format format = directFormat();
    if (format != QImage::Format_Invalid) {
        return wrapPixels(_data, static_cast<int>(_width), static_cast<int>(_height),
                          static_cast<qsizetype>(_bytesPerRow), format, _owner);
    }
    return convertedCopy();
}

QImage BitmapContext::convertedCopy() const {
    const int w = static_cast<int>(_width);
    const int h = static_cast<int>(_height);
    const auto* base = static_cast<const unsigned char*>(_data);
    if (_bitsPerComponent == 5) {
        // Big-endian 16-bit words: swap the two bytes of each pixel.
        QImage image(w, h, QImage::Format_RGB555);
        for (int y = 0; y < h; ++y) {
            const unsigned char* src = base + static_cast<std::size_t>(y) * _bytesPerRow;
            unsigned char* dst = image.scanLine(y);
            for (int x = 0; x < w; ++x) {
                dst[2 * x] = src[2 * x + 1];
                dst[2 * x + 1] = src[2 * x];
            }
        }
        return image;
    }
    const ByteMap map = byteMapFor(_bitmapInfo);
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < h; ++y) {
        const unsigned char* src = base + static_cast<std::size_t>(y) * _bytesPerRow;
        auto* dst = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < w; ++x) {
            const unsigned char* p = src + 4 * x;
            const int a = map.rgba[3] < 0 ? 255 : p[map.rgba[3]];
            dst[x] = qRgba(p[map.rgba[0]], p[map.rgba[1]], p[map.rgba[2]], a);
        }
    }
    return image;
}

void BitmapContext::writeBack(const QImage& image) {
    const int w = static_cast<int>(_width);
    const int h = static_cast<int>(_height);
    auto* base = static_cast<unsigned char*>(_data);
    if (_bitsPerComponent == 5) {
        for (int y = 0; y < h; ++y) {
            const unsigned char* src = image.constScanLine(y);
            unsigned char* dst = base + static_cast<std::size_t>(y) * _bytesPerRow;
            for (int x = 0; x < w; ++x) {
                dst[2 * x] = src[2 * x + 1];
                dst[2 * x + 1] = src[2 * x];
            }
        }
        return;
    }
    const ByteMap map = byteMapFor(_bitmapInfo);
    for (int y = 0; y < h; ++y) {
        const auto* src = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        unsigned char* dst = base + static_cast<std::size_t>(y) * _bytesPerRow;
        for (int x = 0; x < w; ++x) {
            unsigned char* p = dst + 4 * x;
            p[map.rgba[0]] = static_cast<unsigned char>(qRed(src[x]));
            p[map.rgba[1]] = static_cast<unsigned char>(qGreen(src[x]));
            p[map.rgba[2]] = static_cast<unsigned char>(qBlue(src[x]));
            const int alphaIndex = map.rgba[3] < 0 ? 0 : map.rgba[3];
            p[alphaIndex] = static_cast<unsigned char>(map.rgba[3] < 0 ? 255 : qAlpha(src[x]));
        }
    }
}

void BitmapContext::draw(const std::function<void(QPainter&)>& draw) {
    const QImage::Format format = directFormat();
    if (format != QImage::Format_Invalid) {
        QImage surface(static_cast<uchar*>(_data), static_cast<int>(_width),
                       static_cast<int>(_height), static_cast<qsizetype>(_bytesPerRow), format);
        QPainter painter(&surface);
        draw(painter);
        return;
    }
    QImage surface = convertedCopy();
    {
        QPainter painter(&surface);
        draw(painter);
    }
    writeBack(surface);
}

}  // namespace platform
