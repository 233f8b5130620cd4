#include "platform/graphics/Blur.h"
#include "platform/graphics/GraphicsContext.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/Path.h"

#include <QPainter>

#include <gtest/gtest.h>

#include <cstdlib>
#include <numbers>
#include <tuple>
#include <vector>

namespace {

using platform::BezierPath;
using platform::ImageOrientation;

constexpr double kPi = std::numbers::pi;

// Ends any image context a failed assertion left open, so tests stay apart.
class DrawingTest : public testing::Test {
protected:
    void TearDown() override {
        while (platform::currentContext() != nullptr) {
            platform::popContext();
        }
    }

    // Runs draw in a fresh transparent image context of size points at scale
    // 1 and returns the pixels.
    template <typename Draw>
    static QImage render(QSize size, Draw draw) {
        platform::beginImageContext(size, false, 1.0);
        draw();
        auto image = platform::imageFromCurrentImageContext();
        platform::endImageContext();
        return image ? image->cgImage() : QImage();
    }
};

QColor at(const QImage& image, int x, int y) {
    return image.pixelColor(x, y);
}

// Every pixel a different opaque colour.
QImage numberedImage(int width, int height, int alpha = 255) {
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.setPixel(
                x, y, qPremultiply(qRgba(x * 9 + 3, y * 11 + 5, (x * 7 + y * 3) % 256, alpha)));
        }
    }
    return image;
}

TEST_F(DrawingTest, StrokedClosedPathCoversItsOutlineOnly) {
    const QImage image = render({12, 12}, [] {
        platform::setStrokeColor(Qt::red);
        BezierPath path;
        EXPECT_EQ(path.lineWidth(), 1.0);
        path.moveToPoint({3, 3});
        path.addLineToPoint({9, 3});
        path.addLineToPoint({9, 9});
        path.addLineToPoint({3, 9});
        path.closePath();
        path.setLineWidth(2.0);
        path.stroke();
    });
    ASSERT_EQ(image.size(), QSize(12, 12));
    // A 2-pixel line centred on x = 3 covers columns 2 and 3 exactly; the
    // closing edge and the mitred corners are drawn too.
    for (int y = 2; y < 10; ++y) {
        SCOPED_TRACE(y);
        EXPECT_EQ(at(image, 2, y), QColor(Qt::red));
        EXPECT_EQ(at(image, 3, y), QColor(Qt::red));
        EXPECT_EQ(at(image, 8, y), QColor(Qt::red));
        EXPECT_EQ(at(image, 9, y), QColor(Qt::red));
        EXPECT_EQ(at(image, y, 2), QColor(Qt::red));
        EXPECT_EQ(at(image, y, 9), QColor(Qt::red));
        EXPECT_EQ(at(image, 1, y).alpha(), 0);
        EXPECT_EQ(at(image, 10, y).alpha(), 0);
    }
    for (int y = 4; y < 8; ++y) {
        for (int x = 4; x < 8; ++x) {
            EXPECT_EQ(at(image, x, y).alpha(), 0) << "inside " << x << "," << y;
        }
    }
}

TEST_F(DrawingTest, StrokeCoverageHoldsEveryPixelAStrokePaints) {
    BezierPath quad;  // slanted edges, one sharp corner
    quad.moveToPoint({20, 30});
    quad.addLineToPoint({170, 45});
    quad.addLineToPoint({30, 60});
    quad.addLineToPoint({60, 170});
    quad.closePath();
    BezierPath open;  // no closing edge, a corner turned right back
    open.moveToPoint({10, 10});
    open.addLineToPoint({180, 180});
    open.addLineToPoint({20, 150});
    BezierPath arc;
    arc.addArcWithCenter({100, 100}, 60, 0, 2 * kPi, true);
    for (const auto& [name, path, width] :
         std::vector<std::tuple<const char*, BezierPath, double>>{{"quad", quad, 2.0},
                                                                  {"quad wide", quad, 7.0},
                                                                  {"open", open, 3.0},
                                                                  {"arc", arc, 4.0}}) {
        SCOPED_TRACE(name);
        BezierPath stroked = path;
        stroked.setLineWidth(width);
        const QImage image = render({200, 200}, [&] {
            platform::setStrokeColor(Qt::red);
            stroked.stroke();
        });
        QRegion area;
        for (const QRectF& rect : stroked.strokeCoverage()) {
            area += rect.toAlignedRect().adjusted(-1, -1, 1, 1);
        }
        int painted = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                if (at(image, x, y).alpha() != 0) {
                    ++painted;
                    ASSERT_TRUE(area.contains(QPoint(x, y))) << x << "," << y;
                }
            }
        }
        EXPECT_GT(painted, 100);
    }
    EXPECT_TRUE(BezierPath().strokeCoverage().empty());
}

TEST_F(DrawingTest, ArcsFollowThePlatformsAngleConventions) {
    const auto disc = [](double start, double end, bool clockwise) {
        return render({20, 20}, [=] {
            platform::setFillColor(Qt::blue);
            BezierPath path;
            path.addArcWithCenter({10, 10}, 6, start, end, clockwise);
            path.closePath();
            path.fill();
        });
    };
    const QImage full = disc(0, 2 * kPi, true);
    for (const auto& [x, y] : {std::pair{10, 10}, {5, 10}, {14, 10}, {10, 5}, {10, 14}}) {
        EXPECT_EQ(at(full, x, y), QColor(Qt::blue)) << x << "," << y;
    }
    for (const auto& [x, y] : {std::pair{2, 2}, {17, 17}, {10, 2}, {17, 10}, {4, 4}}) {
        EXPECT_EQ(at(full, x, y).alpha(), 0) << x << "," << y;
    }
    // Counter-clockwise from 0 to 2π goes nowhere.
    EXPECT_EQ(at(disc(0, 2 * kPi, false), 10, 10).alpha(), 0);
    // With y down, clockwise from 0 to π passes through the bottom.
    const QImage lower = disc(0, kPi, true);
    EXPECT_EQ(at(lower, 10, 14), QColor(Qt::blue));
    EXPECT_EQ(at(lower, 10, 6).alpha(), 0);
    const QImage upper = disc(0, kPi, false);
    EXPECT_EQ(at(upper, 10, 6), QColor(Qt::blue));
    EXPECT_EQ(at(upper, 10, 14).alpha(), 0);
    // Clockwise from π back to 0 goes on round, over the top.
    const QImage over = disc(kPi, 0, true);
    EXPECT_EQ(at(over, 10, 6), QColor(Qt::blue));
    EXPECT_EQ(at(over, 10, 14).alpha(), 0);
}

TEST_F(DrawingTest, ContextStackNestsImageAndBorrowedContexts) {
    EXPECT_EQ(platform::currentContext(), nullptr);
    EXPECT_EQ(platform::imageFromCurrentImageContext(), nullptr);
    BezierPath().fill();  // no context: nothing happens

    platform::beginImageContext({10, 5}, false, 2.0);
    QPainter* outer = platform::currentContext();
    ASSERT_NE(outer, nullptr);
    platform::setFillColor(Qt::green);
    outer->fillRect(QRectF(0, 0, 1, 1), outer->brush());  // one point: 2 x 2 pixels

    platform::beginImageContext({4, 3}, true, 1.0);
    QPainter* inner = platform::currentContext();
    EXPECT_NE(inner, outer);
    auto opaque = platform::imageFromCurrentImageContext();
    ASSERT_NE(opaque, nullptr);
    EXPECT_EQ(opaque->cgImage().size(), QSize(4, 3));
    EXPECT_EQ(at(opaque->cgImage(), 3, 2), QColor(Qt::black));

    QImage canvas(2, 2, QImage::Format_ARGB32_Premultiplied);
    canvas.fill(Qt::transparent);
    {
        QPainter borrowed(&canvas);
        platform::pushContext(borrowed);
        EXPECT_EQ(platform::currentContext(), &borrowed);
        EXPECT_EQ(platform::imageFromCurrentImageContext(), nullptr) << "not an image context";
        platform::endImageContext();  // ignored: the top is not an image context
        EXPECT_EQ(platform::currentContext(), &borrowed);
        platform::setFillColor(Qt::yellow);
        BezierPath square;
        square.moveToPoint({0, 0});
        square.addLineToPoint({1, 0});
        square.addLineToPoint({1, 1});
        square.addLineToPoint({0, 1});
        square.closePath();
        square.fill();
        platform::popContext();
    }
    EXPECT_EQ(at(canvas, 0, 0), QColor(Qt::yellow));
    EXPECT_EQ(at(canvas, 1, 1).alpha(), 0);

    EXPECT_EQ(platform::currentContext(), inner);
    platform::endImageContext();
    EXPECT_EQ(platform::currentContext(), outer);
    auto image = platform::imageFromCurrentImageContext();
    platform::endImageContext();
    EXPECT_EQ(platform::currentContext(), nullptr);

    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->scale(), 2.0);
    EXPECT_EQ(image->size(), QSizeF(10, 5));
    EXPECT_EQ(image->cgImage().size(), QSize(20, 10));
    EXPECT_EQ(at(image->cgImage(), 1, 1), QColor(Qt::green));
    EXPECT_EQ(at(image->cgImage(), 2, 2).alpha(), 0);
}

TEST_F(DrawingTest, EndingAContextWithItsImageHandsThePixelsOver) {
    EXPECT_EQ(platform::endImageContextWithImage(), nullptr) << "no context";
    platform::beginImageContext({6, 4}, false, 2.0);
    QPainter* outer = platform::currentContext();
    platform::beginImageContext({3, 2}, false, 1.0);
    platform::currentContext()->fillRect(QRectF(0, 0, 1, 1), Qt::red);
    const auto inner = platform::endImageContextWithImage();
    EXPECT_EQ(platform::currentContext(), outer) << "only the image context ended";
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(inner->scale(), 1.0);
    EXPECT_EQ(inner->cgImage().size(), QSize(3, 2));
    EXPECT_EQ(at(inner->cgImage(), 0, 0), QColor(Qt::red));
    EXPECT_EQ(at(inner->cgImage(), 2, 1).alpha(), 0);

    const auto image = platform::endImageContextWithImage();
    EXPECT_EQ(platform::currentContext(), nullptr);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->size(), QSizeF(6, 4));
    EXPECT_EQ(image->cgImage().size(), QSize(12, 8));
}

TEST_F(DrawingTest, ScaleZeroMeansTheMainScreensScale) {
    const double saved = platform::mainScreenScaleForImageContexts();
    EXPECT_EQ(saved, 1.0);
    platform::setMainScreenScaleForImageContexts(3.0);
    platform::beginImageContext({2, 1}, false, 0.0);
    auto image = platform::imageFromCurrentImageContext();
    platform::endImageContext();
    platform::setMainScreenScaleForImageContexts(saved);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->scale(), 3.0);
    EXPECT_EQ(image->cgImage().size(), QSize(6, 3));
}

TEST_F(DrawingTest, OrientedImagesDrawnPixelForPixelMatchTheirTurn) {
    const QImage pixels = numberedImage(7, 5);
    for (int o = 0; o <= 7; ++o) {
        const auto orientation = static_cast<ImageOrientation>(o);
        SCOPED_TRACE(o);
        const auto image = platform::Image::withCGImage(pixels, 1.0, orientation);
        const QImage expected = platform::applyOrientation(pixels, orientation);
        // Straight into a fresh context, then at an offset in a larger one.
        const QImage exact = render(expected.size(), [&] {
            image->drawInRect(*platform::currentContext(), QRectF(QPointF(0, 0), image->size()));
        });
        ASSERT_EQ(exact, expected);
        const QImage placed = render({12, 12}, [&] {
            image->drawAtPoint(*platform::currentContext(), {2, 3});
        });
        EXPECT_EQ(placed.copy(QRect(QPoint(2, 3), expected.size())), expected);
        EXPECT_EQ(at(placed, 1, 3).alpha(), 0);
        EXPECT_EQ(at(placed, 2, 2).alpha(), 0);
        EXPECT_EQ(at(placed, 2 + expected.width(), 3).alpha(), 0);
        // A clip sends the same drawing through the painter: same pixels.
        const QImage clipped = render(expected.size(), [&] {
            QPainter& painter = *platform::currentContext();
            painter.setClipRect(QRectF(QPointF(0, 0), image->size()));
            image->drawInRect(painter, QRectF(QPointF(0, 0), image->size()));
        });
        EXPECT_EQ(clipped, expected);
    }

    // A scale-2 image at its size in a scale-2 context is pixel for pixel.
    const auto retina = platform::Image::withCGImage(pixels, 2.0, ImageOrientation::Right);
    platform::beginImageContext(retina->size(), false, 2.0);
    retina->drawAtPoint(*platform::currentContext(), {0, 0});
    const auto snapshot = platform::imageFromCurrentImageContext();
    platform::endImageContext();
    EXPECT_EQ(snapshot->cgImage(), platform::applyOrientation(pixels, ImageOrientation::Right));
}

TEST_F(DrawingTest, TranslucentImagesBlendOverWhatIsThere) {
    const QImage pixels = numberedImage(6, 4, 128);
    const auto image = platform::Image::withCGImage(pixels, 1.0, ImageOrientation::Left);
    const QImage drawn = render({4, 6}, [&] {
        QPainter& painter = *platform::currentContext();
        painter.fillRect(QRect(0, 0, 4, 6), QColor(40, 200, 90));
        image->drawAtPoint(painter, {0, 0});
    });
    QImage expected(4, 6, QImage::Format_ARGB32_Premultiplied);
    expected.fill(QColor(40, 200, 90));
    QPainter(&expected).drawImage(0, 0, platform::applyOrientation(pixels, ImageOrientation::Left));
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 4; ++x) {
            const QRgb a = drawn.pixel(x, y);
            const QRgb b = expected.pixel(x, y);
            EXPECT_LE(std::abs(qRed(a) - qRed(b)) + std::abs(qGreen(a) - qGreen(b)) +
                          std::abs(qBlue(a) - qBlue(b)) + std::abs(qAlpha(a) - qAlpha(b)),
                      2)
                << x << "," << y;
        }
    }
}

TEST_F(DrawingTest, ScaledOrientedImagesAreResampled) {
    QImage pixels(3, 2, QImage::Format_RGB32);
    const QColor colours[] = {Qt::red, Qt::green, Qt::blue, Qt::white, Qt::black, Qt::yellow};
    for (int i = 0; i < 6; ++i) {
        pixels.setPixelColor(i % 3, i / 3, colours[i]);
    }
    const auto image = platform::Image::withCGImage(pixels, 1.0, ImageOrientation::Left);
    const QImage turned = platform::applyOrientation(pixels, ImageOrientation::Left);
    const QImage drawn = render(
        {16, 24}, [&] { image->drawInRect(*platform::currentContext(), QRectF(0, 0, 16, 24)); });
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 2; ++x) {
            const QColor got = at(drawn, x * 8 + 4, y * 8 + 4);
            const QColor want = turned.pixelColor(x, y);
            EXPECT_NEAR(got.red(), want.red(), 40) << x << "," << y;
            EXPECT_NEAR(got.green(), want.green(), 40) << x << "," << y;
            EXPECT_NEAR(got.blue(), want.blue(), 40) << x << "," << y;
        }
    }
}

TEST(DarkBlurTest, SharpEdgeBecomesADarkenedGradientInsideTheRegionOnly) {
    QImage image(64, 32, QImage::Format_RGB32);
    for (int x = 0; x < 64; ++x) {
        for (int y = 0; y < 32; ++y) {
            image.setPixelColor(x, y, x < 32 ? Qt::black : Qt::white);
        }
    }
    const QImage before = image;
    const QRect region(8, 4, 48, 24);
    platform::applyDarkBlur(image, region);
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 64; ++x) {
            if (!region.contains(x, y)) {
                ASSERT_EQ(image.pixel(x, y), before.pixel(x, y)) << "outside " << x << "," << y;
            }
        }
    }
    // Along a row the step has become a ramp, everywhere darker than white.
    int previous = -1;
    for (int x = region.left(); x <= region.right(); ++x) {
        const QColor c = at(image, x, 16);
        EXPECT_GE(c.red(), previous) << x;
        previous = c.red();
        EXPECT_EQ(c.alpha(), 255);
    }
    const int inBetween = at(image, 30, 16).red();
    EXPECT_GT(at(image, 26, 16).red(), at(image, 9, 16).red());
    EXPECT_GT(inBetween, at(image, 26, 16).red());
    EXPECT_GT(at(image, 36, 16).red(), inBetween);
    EXPECT_GT(at(image, 9, 16).red(), 0) << "the tint lightens black a little";
    EXPECT_LT(at(image, 54, 16).red(), 140) << "white is darkened";
}

TEST(DarkBlurTest, UniformRegionsTakeTheTintEvenlyInAnyFormat) {
    // 200 under 55% of (16, 16, 16) is about 99, right up to the region's
    // edges: the blur never reads past them.
    for (const auto format : {QImage::Format_RGB32, QImage::Format_ARGB32_Premultiplied,
                              QImage::Format_RGBA8888_Premultiplied, QImage::Format_RGB888}) {
        SCOPED_TRACE(format);
        QImage image(40, 30, format);
        image.fill(QColor(200, 200, 200));
        platform::applyDarkBlur(image, QRect(-10, 5, 30, 100));
        for (int y = 0; y < 30; ++y) {
            for (int x = 0; x < 40; ++x) {
                const QColor c = at(image, x, y);
                if (x < 20 && y >= 5) {
                    ASSERT_NEAR(c.red(), 99, 1) << x << "," << y;
                    ASSERT_EQ(c.red(), c.blue()) << x << "," << y;
                    ASSERT_EQ(c.alpha(), 255);
                } else {
                    ASSERT_EQ(c, QColor(200, 200, 200)) << x << "," << y;
                }
            }
        }
    }
}

TEST(DarkBlurTest, LinearRampsKeepTheirPlaceAwayFromTheEdges) {
    // A blur leaves a straight ramp as it is; only the tint moves it. Pixels
    // out of place or a shifted scale-up would bend it.
    for (const bool vertical : {false, true}) {
        SCOPED_TRACE(vertical ? "vertical" : "horizontal");
        QImage image(256, 256, QImage::Format_RGB32);
        for (int y = 0; y < 256; ++y) {
            for (int x = 0; x < 256; ++x) {
                const int v = vertical ? y : x;
                image.setPixel(x, y, qRgb(v, 255 - v, 128));
            }
        }
        platform::applyDarkBlur(image, image.rect());
        for (int i = 64; i < 192; ++i) {
            const QColor c = vertical ? at(image, 100, i) : at(image, i, 100);
            const double tint = 16 * 140 / 255.0;
            ASSERT_NEAR(c.red(), i * 115 / 255.0 + tint, 1.5) << i;
            ASSERT_NEAR(c.green(), (255 - i) * 115 / 255.0 + tint, 1.5) << i;
        }
    }
}

TEST(DarkBlurTest, EmptyOrOutsideRegionsChangeNothing) {
    QImage image = numberedImage(16, 16);
    const QImage before = image;
    platform::applyDarkBlur(image, QRect());
    platform::applyDarkBlur(image, QRect(20, 0, 10, 10));
    platform::applyDarkBlur(image, QRect(-10, -10, 10, 30));
    EXPECT_EQ(image, before);
}

}  // namespace
