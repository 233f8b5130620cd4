// Painting a tree the way a host shows a window: pixels the same as the
// plain painting over the host's background, without the drawings an
// opaque layer hides, and grey pictures copied straight in.
#include "platform/foundation/RunLoop.h"
#include "platform/layers/Layer.h"
#include "platform/layers/Transaction.h"
#include "platform/render/LayerPainter.h"

#include <QPainter>

#include <gtest/gtest.h>

namespace {

using platform::Layer;
using platform::LayerPainter;

// A layer that draws a yellow square and counts its drawings.
class CountingLayer : public Layer {
public:
    static std::shared_ptr<CountingLayer> create() {
        struct Made final : CountingLayer {};
        return std::make_shared<Made>();
    }
    bool drawsContent() const override { return true; }
    void drawInContext(QPainter& context) override {
        ++drawings;
        context.fillRect(QRectF(4, 4, 10, 10), Qt::yellow);
    }
    int drawings = 0;
};

QImage greyRamp(int width, int height) {
    QImage image(width, height, QImage::Format_Grayscale8);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.scanLine(y)[x] = static_cast<uchar>((x * 7 + y * 13) % 256);
        }
    }
    return image;
}

QImage colourNoise(int width, int height) {
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.setPixel(x, y, qRgb(x * 5 % 256, y * 9 % 256, (x * y) % 256));
        }
    }
    return image;
}

class HostPaintTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform::RunLoop::main().useManualClock();
        platform::Transaction::begin();
        platform::Transaction::setDisableActions(true);
    }
    void TearDown() override { platform::Transaction::commit(); }

    // The plain painting over a black background, at scale.
    static QImage plain(Layer& root, const QSize& size, double scale) {
        QImage image(size * scale, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::black);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(scale, scale);
        LayerPainter::paint(painter, root, 0.0);
        return image;
    }
    // As a host paints: into pixels it has not cleared, over black.
    static QImage hosted(Layer& root, const QSize& size, double scale) {
        QImage image(size * scale, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::magenta);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(scale, scale);
        LayerPainter::paint(painter, root, 0.0, QRectF(QPointF(), QSizeF(size)), Qt::black);
        return image;
    }
};

TEST_F(HostPaintTest, OpaqueLayersHideWhatIsBeneathWithTheSamePixels) {
    const QSize size(120, 80);
    auto root = Layer::create();
    root->setFrame(QRectF(QPointF(), QSizeF(size)));
    root->setBackgroundColor(Qt::red);
    auto beneath = CountingLayer::create();
    beneath->setFrame({0, 0, 40, 40});
    root->addSublayer(beneath);
    // A camera picture filling the window, then controls over it.
    auto holder = Layer::create();
    holder->setFrame(QRectF(QPointF(), QSizeF(size)));
    holder->setMasksToBounds(true);
    root->addSublayer(holder);
    auto picture = Layer::create();
    picture->setFrame({-10, 0, 140, 80});
    picture->setContentsGravity(platform::ContentsGravity::ResizeAspectFill);
    holder->addSublayer(picture);
    auto control = Layer::create();
    control->setFrame({10, 10, 30, 20});
    control->setBackgroundColor(QColor(0, 0, 255, 128));
    root->addSublayer(control);

    struct Case {
        const char* name;
        QImage contents;
        double scale;
        double cornerRadius;
        double opacity;
        bool hides;
    };
    const std::vector<Case> cases{
        {"grey, unscaled", greyRamp(140, 80), 1.0, 0, 1.0, true},
        {"grey at 1.5 pixels a point", greyRamp(140, 80), 1.5, 0, 1.0, true},
        {"colour, scaled up", colourNoise(70, 40), 1.0, 0, 1.0, true},
        {"translucent picture", greyRamp(140, 80), 1.0, 0, 0.6, false},
        {"rounded mask", colourNoise(70, 40), 1.0, 12, 1.0, false},
        {"picture with alpha", colourNoise(70, 40).convertToFormat(QImage::Format_ARGB32), 1.0, 0,
         1.0, false},
        {"no picture", QImage(), 1.0, 0, 1.0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        picture->setContents(c.contents);
        picture->setOpacity(c.opacity);
        holder->setCornerRadius(c.cornerRadius);
        const QImage expected = plain(*root, size, c.scale);
        beneath->setNeedsDisplay();
        const int drawingsBefore = beneath->drawings;
        const QImage painted = hosted(*root, size, c.scale);
        EXPECT_EQ(painted, expected);
        EXPECT_EQ(beneath->drawings - drawingsBefore, c.hides ? 0 : 1);
    }
}

TEST_F(HostPaintTest, GreyPicturesLookAsQtDrawsThem) {
    const QImage grey = greyRamp(50, 30);
    auto root = Layer::create();
    root->setFrame({0, 0, 60, 40});
    auto window = Layer::create();
    window->setFrame({5, 5, 40, 20});
    window->setMasksToBounds(true);
    root->addSublayer(window);
    auto picture = Layer::create();
    picture->setContents(grey);
    window->addSublayer(picture);

    // Whole-pixel places are copied, the rest drawn through a colour copy
    // of the picture; all match Qt's drawing of the grey picture itself.
    for (const QRectF& frame : {QRectF(-3, -2, 50, 30), QRectF(0, 0, 50, 30),
                                QRectF(-2.5, 1, 50, 30), QRectF(-4, -3.5, 71, 37.3)}) {
        SCOPED_TRACE(frame.x());
        picture->setFrame(frame);
        QImage expected(60, 40, QImage::Format_ARGB32_Premultiplied);
        expected.fill(Qt::darkGreen);
        {
            QPainter painter(&expected);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setRenderHint(QPainter::SmoothPixmapTransform, frame.size() != grey.size());
            painter.setClipRect(QRectF(5, 5, 40, 20));
            painter.drawImage(frame.translated(5, 5), grey, grey.rect());
        }
        QImage painted(60, 40, QImage::Format_ARGB32_Premultiplied);
        painted.fill(Qt::darkGreen);
        {
            QPainter painter(&painted);
            painter.setRenderHint(QPainter::Antialiasing);
            LayerPainter::paint(painter, *root, 0.0, QRectF(0, 0, 60, 40), QColor());
        }
        EXPECT_EQ(painted, expected);
    }

    // A live preview's next frame goes into the same colour buffer.
    const uchar* buffer = picture->contentsForDrawing().constBits();
    QImage next = greyRamp(50, 30);
    next.fill(200);
    picture->setContents(next);
    EXPECT_EQ(picture->contentsForDrawing().constBits(), buffer);
    EXPECT_EQ(picture->contentsForDrawing().pixel(10, 10), qRgb(200, 200, 200));
}

}  // namespace
