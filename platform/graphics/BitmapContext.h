#pragma once

#include <QImage>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

class QPainter;

namespace platform {

enum class ColorSpace { DeviceRGB, DeviceGray, None };

/// Bitmap-info bits: the alpha layout in the low five bits, a float flag and
/// the byte order.
namespace bitmap {
inline constexpr std::uint32_t kAlphaInfoMask = 0x1F;
inline constexpr std::uint32_t kFloatComponents = 0x100;
inline constexpr std::uint32_t kByteOrderMask = 0x7000;
inline constexpr std::uint32_t kByteOrderDefault = 0;
inline constexpr std::uint32_t kByteOrder16Little = 0x1000;
inline constexpr std::uint32_t kByteOrder32Little = 0x2000;
inline constexpr std::uint32_t kByteOrder16Big = 0x3000;
inline constexpr std::uint32_t kByteOrder32Big = 0x4000;

inline constexpr std::uint32_t kAlphaNone = 0;
inline constexpr std::uint32_t kAlphaPremultipliedLast = 1;
inline constexpr std::uint32_t kAlphaPremultipliedFirst = 2;
inline constexpr std::uint32_t kAlphaLast = 3;
inline constexpr std::uint32_t kAlphaFirst = 4;
inline constexpr std::uint32_t kAlphaNoneSkipLast = 5;
inline constexpr std::uint32_t kAlphaNoneSkipFirst = 6;
inline constexpr std::uint32_t kAlphaOnly = 7;
}  // namespace bitmap

/// A drawing surface over pixel memory in one of the platform's supported
/// pixel formats:
///
///   colour space  bits/pixel  bits/component  alpha (byte order)
///   none          8           8               only
///   grey          8           8               none
///   RGB           16          5               none-skip-first (16-bit orders)
///   RGB           32          8               none-skip-first, none-skip-last,
///                                             premultiplied-first, premultiplied-last
///                                             (default, 32-bit little or big)
///   RGB           64          16              premultiplied-last, none-skip-last (16-bit little)
///   RGB           128         32 (float)      premultiplied-last, none-skip-last (32-bit little)
///
/// Any other combination (one bit a component, non-premultiplied alpha, a
/// bytes-a-row smaller than a row, a zero size) makes no context. A context is
/// bound to one thread at a time.
class BitmapContext {
public:
    /// Makes a context over data, or over fresh zeroed memory when data is
    /// null (bytesPerRow 0 then picks the minimum). owner, when given, keeps
    /// data alive for as long as the context or an image made from it lives.
    static std::unique_ptr<BitmapContext> create(void* data, std::size_t width, std::size_t height,
                                                 std::size_t bitsPerComponent,
                                                 std::size_t bytesPerRow, ColorSpace space,
                                                 std::uint32_t bitmapInfo,
                                                 std::shared_ptr<const void> owner = {});

    /// True when the combination is in the table above.
    static bool isSupported(std::size_t bitsPerComponent, ColorSpace space,
                            std::uint32_t bitmapInfo);

    std::size_t width() const { return _width; }
    std::size_t height() const { return _height; }
    std::size_t bitsPerComponent() const { return _bitsPerComponent; }
    std::size_t bitsPerPixel() const { return _bitsPerPixel; }
    std::size_t bytesPerRow() const { return _bytesPerRow; }
    ColorSpace colorSpace() const { return _space; }
    std::uint32_t bitmapInfo() const { return _bitmapInfo; }
    void* data() const { return _data; }

    /// An image of the context's pixels. When the layout has a matching
    /// QImage format the image shares the memory (no copy, and the memory is
    /// kept alive by the image); otherwise it is a converted copy.
    QImage makeImage() const;

    /// Runs draw with a painter on the context's pixels (y down, origin top
    /// left, one unit a pixel).
    void draw(const std::function<void(QPainter&)>& draw);

private:
    BitmapContext() = default;

    QImage::Format directFormat() const;
    QImage convertedCopy() const;
    void writeBack(const QImage& image);

    void* _data = nullptr;
    std::shared_ptr<const void> _owner;
    std::size_t _width = 0;
    std::size_t _height = 0;
    std::size_t _bitsPerComponent = 0;
    std::size_t _bitsPerPixel = 0;
    std::size_t _bytesPerRow = 0;
    ColorSpace _space = ColorSpace::DeviceRGB;
    std::uint32_t _bitmapInfo = 0;
};

}  // namespace platform
