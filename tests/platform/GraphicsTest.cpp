#include "platform/graphics/AffineTransform.h"
#include "platform/graphics/BitmapContext.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/PixelMemory.h"

#include <QPainter>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace {

using platform::BitmapContext;
using platform::ColorSpace;
using platform::ImageOrientation;
namespace bm = platform::bitmap;

constexpr std::uint32_t kBGRA = bm::kByteOrder32Little | bm::kAlphaPremultipliedFirst;

TEST(BitmapContextFormats, AcceptsOnlyThePlatformsPixelFormats) {
    std::vector<unsigned char> memory(64 * 64 * 16);
    struct Case {
        std::size_t bitsPerComponent;
        ColorSpace space;
        std::uint32_t info;
        bool supported;
    };
    const Case cases[] = {
        {8, ColorSpace::DeviceRGB, kBGRA, true},
        {8, ColorSpace::DeviceRGB, bm::kAlphaPremultipliedLast, true},
        {8, ColorSpace::DeviceRGB, bm::kAlphaNoneSkipFirst, true},
        {8, ColorSpace::DeviceRGB, bm::kByteOrder32Little | bm::kAlphaNoneSkipLast, true},
        {5, ColorSpace::DeviceRGB, bm::kByteOrder16Little | bm::kAlphaNoneSkipFirst, true},
        {8, ColorSpace::DeviceGray, bm::kAlphaNone, true},
        {8, ColorSpace::None, bm::kAlphaOnly, true},
        {16, ColorSpace::DeviceRGB, bm::kByteOrder16Little | bm::kAlphaPremultipliedLast, true},
        {32, ColorSpace::DeviceRGB,
         bm::kFloatComponents | bm::kByteOrder32Little | bm::kAlphaPremultipliedLast, true},
        // The grey frame path asks for one bit a component: no context.
        {1, ColorSpace::DeviceGray, bm::kAlphaNone, false},
        {8, ColorSpace::DeviceRGB, bm::kAlphaNone, false},
        {8, ColorSpace::DeviceRGB, bm::kByteOrder32Little | bm::kAlphaFirst, false},
        {8, ColorSpace::DeviceRGB, bm::kAlphaLast, false},
        {8, ColorSpace::DeviceGray, bm::kAlphaPremultipliedLast, false},
        {8, ColorSpace::None, bm::kAlphaNone, false},
        {32, ColorSpace::DeviceRGB, bm::kByteOrder32Little | bm::kAlphaPremultipliedLast, false},
        {8, ColorSpace::DeviceRGB, bm::kFloatComponents | kBGRA, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "bpc " << c.bitsPerComponent << " info 0x" << std::hex
                                        << c.info << " space " << static_cast<int>(c.space));
        const bool made = BitmapContext::create(memory.data(), 8, 8, c.bitsPerComponent, 8 * 16,
                                                c.space, c.info) != nullptr;
        EXPECT_EQ(made, c.supported);
        EXPECT_EQ(BitmapContext::isSupported(c.bitsPerComponent, c.space, c.info), c.supported);
    }
}

TEST(BitmapContextFormats, RejectsShortRowsAndEmptySizes) {
    std::vector<unsigned char> memory(4096);
    EXPECT_EQ(BitmapContext::create(memory.data(), 10, 4, 8, 39, ColorSpace::DeviceRGB, kBGRA),
              nullptr);
    EXPECT_NE(BitmapContext::create(memory.data(), 10, 4, 8, 40, ColorSpace::DeviceRGB, kBGRA),
              nullptr);
    EXPECT_EQ(BitmapContext::create(memory.data(), 0, 4, 8, 40, ColorSpace::DeviceRGB, kBGRA),
              nullptr);
    EXPECT_EQ(BitmapContext::create(memory.data(), 4, 0, 8, 40, ColorSpace::DeviceRGB, kBGRA),
              nullptr);
    auto own = BitmapContext::create(nullptr, 3, 3, 8, 0, ColorSpace::DeviceGray, bm::kAlphaNone);
    ASSERT_NE(own, nullptr);
    EXPECT_GE(own->bytesPerRow(), 3u);
}

TEST(BitmapContextImages, BgraFrameIsWrappedWithoutCopyAndReadsRightColours) {
    // Two BGRA pixels: opaque red, then half-transparent premultiplied green.
    const unsigned char pixels[] = {0x00, 0x00, 0xFF, 0xFF, 0x00, 0x80, 0x00, 0x80};
    auto context = BitmapContext::create(const_cast<unsigned char*>(pixels), 2, 1, 8, 8,
                                         ColorSpace::DeviceRGB, kBGRA);
    ASSERT_NE(context, nullptr);
    const QImage image = context->makeImage();
    EXPECT_EQ(image.constBits(), pixels);
    EXPECT_EQ(image.pixel(0, 0), qRgba(0xFF, 0, 0, 0xFF));
    EXPECT_EQ(image.pixelColor(1, 0).green(), 0xFF);
    EXPECT_EQ(image.pixelColor(1, 0).alpha(), 0x80);
}

TEST(BitmapContextImages, LayoutsWithoutAQtFormatConvertAndDrawBack) {
    // Alpha-first, big-endian: bytes A, R, G, B.
    unsigned char argb[] = {0xFF, 0x10, 0x20, 0x30};
    auto context = BitmapContext::create(argb, 1, 1, 8, 4, ColorSpace::DeviceRGB,
                                         bm::kByteOrder32Big | bm::kAlphaPremultipliedFirst);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->makeImage().pixel(0, 0), qRgba(0x10, 0x20, 0x30, 0xFF));
    context->draw([](QPainter& p) { p.fillRect(0, 0, 1, 1, QColor(0x40, 0x50, 0x60)); });
    EXPECT_EQ(argb[0], 0xFF);
    EXPECT_EQ(argb[1], 0x40);
    EXPECT_EQ(argb[2], 0x50);
    EXPECT_EQ(argb[3], 0x60);
}

TEST(PixelMemory, WrappedMemoryLivesExactlyAsLongAsItsLastUser) {
    auto memory = platform::allocatePixels(16);
    std::weak_ptr<unsigned char> watch = memory;
    QImage copy;
    {
        QImage image = platform::wrapPixels(memory.get(), 2, 2, 8,
                                            QImage::Format_ARGB32_Premultiplied, memory);
        memory.reset();
        EXPECT_FALSE(watch.expired()) << "the image keeps the memory alive";
        copy = image;
        EXPECT_EQ(copy.constBits(), image.constBits()) << "copies share the pixels";
    }
    EXPECT_FALSE(watch.expired()) << "a copy of the image is still a user";
    copy = QImage();
    EXPECT_TRUE(watch.expired()) << "the last user let go";
    EXPECT_TRUE(platform::wrapPixels(nullptr, 2, 2, 8, QImage::Format_RGB32, {}).isNull());
}

QImage numberedImage(int w, int h) {
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            image.setPixel(x, y, qRgb(x, y, 7));
        }
    }
    return image;
}

TEST(ImageOrientationTest, QuarterTurnsAndFlipsMoveEveryPixel) {
    const QImage source = numberedImage(30, 20);
    const QImage right = platform::applyOrientation(source, ImageOrientation::Right);
    ASSERT_EQ(right.size(), QSize(20, 30));
    // A right turn puts the left column, read bottom to top, on the top row.
    for (int x = 0; x < 20; ++x) {
        EXPECT_EQ(right.pixel(x, 0), source.pixel(0, 19 - x));
    }
    QImage back = source;
    for (int i = 0; i < 4; ++i) {
        back = platform::applyOrientation(back, ImageOrientation::Right);
    }
    EXPECT_EQ(back, source);

    // Each orientation agrees with its transform on every pixel centre.
    for (int o = 0; o <= 7; ++o) {
        const auto orientation = static_cast<ImageOrientation>(o);
        SCOPED_TRACE(o);
        const QImage turned = platform::applyOrientation(source, orientation);
        const QTransform t = platform::orientationTransform(orientation, source.size());
        for (int y = 0; y < source.height(); y += 3) {
            for (int x = 0; x < source.width(); x += 3) {
                const QPointF shown = t.map(QPointF(x + 0.5, y + 0.5));
                ASSERT_EQ(turned.pixel(int(shown.x()), int(shown.y())), source.pixel(x, y));
            }
        }
    }
}

TEST(ImageTest, SizeScaleAndOrientedDrawing) {
    const QImage pixels = numberedImage(40, 20);
    EXPECT_EQ(platform::Image::withCGImage(QImage()), nullptr);
    auto image = platform::Image::withCGImage(pixels, 2.0, ImageOrientation::Left);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->size(), QSizeF(10, 20));

    QImage canvas(20, 40, QImage::Format_ARGB32_Premultiplied);
    canvas.fill(Qt::black);
    {
        QPainter painter(&canvas);
        image->drawInRect(painter, QRectF(0, 0, 20, 40));
    }
    const QImage expected = platform::applyOrientation(pixels, ImageOrientation::Left);
    for (int y = 0; y < canvas.height(); ++y) {
        for (int x = 0; x < canvas.width(); ++x) {
            ASSERT_EQ(canvas.pixel(x, y), expected.pixel(x, y)) << x << "," << y;
        }
    }
}

TEST(AffineTransformTest, CompositionOrderAndRectangleRules) {
    namespace affine = platform::affine;
    namespace rect = platform::rect;
    // Scale then translate: the translation is not scaled.
    const QTransform st = affine::concat(affine::makeScale(2, 3), affine::makeTranslation(10, 20));
    EXPECT_EQ(affine::apply(QPointF(1, 1), st), QPointF(12, 23));
    // translate(t, ...) applies the translation before t.
    const QTransform ts = affine::translate(affine::makeScale(2, 3), 10, 20);
    EXPECT_EQ(affine::apply(QPointF(1, 1), ts), QPointF(22, 63));
    const QTransform r = affine::makeRotation(std::numbers::pi / 2);
    const QPointF turned = affine::apply(QPointF(1, 0), r);
    EXPECT_NEAR(turned.x(), 0, 1e-12);
    EXPECT_NEAR(turned.y(), 1, 1e-12);
    EXPECT_TRUE(affine::isIdentity(affine::concat(st, affine::invert(st))));
    const QRectF bounds = affine::apply(QRectF(0, 0, 2, 1), r);
    EXPECT_NEAR(bounds.x(), -1, 1e-12);
    EXPECT_NEAR(bounds.y(), 0, 1e-12);
    EXPECT_NEAR(bounds.width(), 1, 1e-12);
    EXPECT_NEAR(bounds.height(), 2, 1e-12);

    const QRectF box(0, 0, 10, 5);
    EXPECT_TRUE(rect::contains(box, QPointF(0, 0)));
    EXPECT_FALSE(rect::contains(box, QPointF(10, 2))) << "the far edge is outside";
    EXPECT_FALSE(rect::contains(box, QPointF(3, 5)));
    const QRectF flipped(10, 5, -10, -5);
    EXPECT_EQ(rect::minX(flipped), 0);
    EXPECT_EQ(rect::maxY(flipped), 5);
    EXPECT_TRUE(rect::equal(flipped, box));
    EXPECT_FALSE(rect::intersects(box, QRectF(10, 0, 5, 5))) << "touching is not intersecting";
    EXPECT_TRUE(std::isinf(rect::intersection(box, QRectF(20, 20, 1, 1)).x()));
}

}  // namespace
