#include "QXDPolygonLayer.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/RunLoop.h"
#include "platform/graphics/AffineTransform.h"
#include "platform/layers/Transaction.h"
#include "platform/render/LayerPainter.h"
#include "tests/common/FrameworkLog.h"

#include <QImage>
#include <QPainter>

#include <gtest/gtest.h>

namespace {

using platform::Application;
using platform::Screen;

// The status bar's orientations by their names: landscape right swaps the
// axes, landscape left also flips against the screen height.
using platform::interface_orientation::kLandscapeLeft;
using platform::interface_orientation::kLandscapeRight;
using platform::interface_orientation::kPortrait;
using platform::interface_orientation::kPortraitUpsideDown;

const QColor kLine(255, 0, 0);
// A rectangle 50 wide and 20 high, so that a swap of the axes shows.
const std::vector<QPointF> kCorners = {{10, 20}, {60, 20}, {60, 40}, {10, 40}};

class QXDPolygonLayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform::RunLoop::main().useManualClock();
        layer = QXDPolygonLayer::create();
        platform::Transaction::Scope quiet(true);
        layer->setBounds(QRectF(0, 0, 100, 100));
    }
    void TearDown() override {
        Application::shared().setStatusBarOrientation(savedOrientation);
        Screen::main().setBounds(savedScreen);
    }

    // Draws the layer over an opaque blue picture, so that clearing shows.
    QImage render() const {
        QImage image(100, 100, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::blue);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        layer->drawInContext(painter);
        return image;
    }
    static bool isLine(const QImage& image, int x, int y) {
        return image.pixelColor(x, y) == kLine;
    }
    static bool isClear(const QImage& image, int x, int y) {
        return image.pixelColor(x, y).alpha() == 0;
    }
    static bool allClear(const QImage& image) {
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                if (!isClear(image, x, y)) {
                    return false;
                }
            }
        }
        return true;
    }

    const int savedOrientation = Application::shared().statusBarOrientation();
    const QRectF savedScreen = Screen::main().bounds();
    std::shared_ptr<QXDPolygonLayer> layer;
};

TEST_F(QXDPolygonLayerTest, FourPointsInPortraitStrokeAClosedOutlineAndLogEachPoint) {
    Application::shared().setStatusBarOrientation(kPortrait);
    qxdtest::FrameworkLog log;
    layer->drawPolygonAtKeyPoints(kCorners, QTransform(), kLine);
    const QImage image = render();

    // A 2-point line centred on each edge, the closing edge included.
    EXPECT_TRUE(isLine(image, 35, 19) && isLine(image, 35, 20));  // top
    EXPECT_TRUE(isLine(image, 35, 39) && isLine(image, 35, 40));  // bottom
    EXPECT_TRUE(isLine(image, 59, 30) && isLine(image, 60, 30));  // right
    EXPECT_TRUE(isLine(image, 9, 30) && isLine(image, 10, 30));   // left, closing
    EXPECT_TRUE(isClear(image, 35, 17) && isClear(image, 35, 22));
    EXPECT_TRUE(isClear(image, 35, 30)) << "the outline is never filled";
    EXPECT_TRUE(isClear(image, 90, 90)) << "the rest of the bounds is cleared";

    EXPECT_EQ(log.messages(), (QStringList{
                                  "Draw polygon line at point x: 10.000000 y: 20.000000",
                                  "Draw polygon line at point x: 60.000000 y: 20.000000",
                                  "Draw polygon line at point x: 60.000000 y: 40.000000",
                                  "Draw polygon line at point x: 10.000000 y: 40.000000",
                              }));
}

TEST_F(QXDPolygonLayerTest, LandscapeRightSwapsTheAxes) {
    Application::shared().setStatusBarOrientation(kLandscapeRight);
    layer->drawPolygonAtKeyPoints(kCorners, QTransform(), kLine);
    const QImage image = render();

    // Now 20 wide and 50 high: edges at x = 20 and 40, y = 10 and 60.
    EXPECT_TRUE(isLine(image, 20, 35) && isLine(image, 40, 35));
    EXPECT_TRUE(isLine(image, 30, 10) && isLine(image, 30, 60));
    EXPECT_TRUE(isClear(image, 50, 20)) << "nothing where portrait draws";
}

TEST_F(QXDPolygonLayerTest, LandscapeLeftSwapsAndFlipsAgainstTheScreenHeight) {
    Application::shared().setStatusBarOrientation(kLandscapeLeft);
    Screen::main().setBounds(QRectF(0, 0, 100, 100));
    layer->drawPolygonAtKeyPoints(kCorners, QTransform(), kLine);
    const QImage image = render();

    // (x, y) becomes (y, 100 - x): edges at x = 20 and 40, y = 40 and 90.
    EXPECT_TRUE(isLine(image, 20, 65) && isLine(image, 40, 65));
    EXPECT_TRUE(isLine(image, 30, 40) && isLine(image, 30, 90));
    EXPECT_TRUE(isClear(image, 30, 10)) << "not a plain swap";
}

TEST_F(QXDPolygonLayerTest, OrientationMappingOfOnePoint) {
    // The status bar reports plain numbers: 3 is landscape left, 4 right.
    EXPECT_EQ(kLandscapeLeft, 3);
    EXPECT_EQ(kLandscapeRight, 4);
    Screen::main().setBounds(QRectF(0, 0, 480, 320));
    const QPointF point(10, 20);
    const std::vector<std::pair<int, QPointF>> expected = {
        {kPortrait, {10, 20}},
        {kLandscapeRight, {20, 10}},
        {kLandscapeLeft, {20, 310}},
        {kPortraitUpsideDown, {10, 20}},
        {platform::interface_orientation::kUnknown, {10, 20}},
    };
    for (const auto& [orientation, mapped] : expected) {
        Application::shared().setStatusBarOrientation(orientation);
        EXPECT_EQ(layer->adaptPointToOrientation(point), mapped) << "orientation " << orientation;
    }
}

TEST_F(QXDPolygonLayerTest, TheTransformAppliesBeforeTheOrientation) {
    Application::shared().setStatusBarOrientation(kLandscapeRight);
    qxdtest::FrameworkLog log;
    layer->drawPolygonAtKeyPoints(std::vector<QPointF>{{10, 20}},
                                  platform::affine::makeTranslation(5, 7), kLine);
    EXPECT_EQ(layer->t(), platform::affine::makeTranslation(5, 7));
    render();
    EXPECT_EQ(log.messages(), QStringList{"Draw polygon line at point x: 27.000000 y: 15.000000"});
}

TEST_F(QXDPolygonLayerTest, CleanLeavesATransparentLayerAndLogsNothing) {
    layer->drawPolygonAtKeyPoints(kCorners, QTransform(), kLine);
    render();
    qxdtest::FrameworkLog log;
    layer->clean();
    EXPECT_FALSE(layer->keypoints().has_value());
    EXPECT_TRUE(layer->needsDisplay());
    EXPECT_TRUE(allClear(render()));
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(QXDPolygonLayerTest, EmptyPointsClearTheBoundsWithoutAPathOrLog) {
    qxdtest::FrameworkLog log;
    layer->drawPolygonAtKeyPoints(std::vector<QPointF>{}, QTransform(), kLine);
    ASSERT_TRUE(layer->keypoints().has_value());
    EXPECT_TRUE(allClear(render()));
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(QXDPolygonLayerTest, RedrawsThroughTheDisplayPassWithoutImplicitAnimation) {
    layer->setContentsScale(2.0);
    layer->displayIfNeeded();
    layer->drawPolygonAtKeyPoints(kCorners, QTransform(), kLine);
    EXPECT_TRUE(layer->needsDisplay());
    EXPECT_TRUE(layer->animationKeys().isEmpty());
    layer->displayIfNeeded();
    const QImage& store = layer->backingStore();
    ASSERT_EQ(store.size(), QSize(200, 200));
    EXPECT_EQ(store.pixelColor(70, 39), kLine) << "the top edge, at 2 pixels a point";
    EXPECT_EQ(store.pixelColor(70, 60).alpha(), 0);
}

TEST_F(QXDPolygonLayerTest, AMovingOutlineIsRedrawnAndCompositedWhereItIsOnly) {
    // A detected page moving over a large preview, frame after frame.
    const std::vector<QPointF> first = {{20, 30}, {170, 40}, {160, 260}, {30, 250}};
    const std::vector<QPointF> second = {{60, 80}, {260, 70}, {250, 280}, {70, 270}};
    platform::Transaction::Scope quiet(true);
    layer->setFrame(QRectF(0, 0, 300, 300));
    auto fresh = QXDPolygonLayer::create();
    fresh->setFrame(QRectF(0, 0, 300, 300));

    layer->drawPolygonAtKeyPoints(first, QTransform(), kLine);
    layer->displayIfNeeded();
    layer->drawPolygonAtKeyPoints(second, QTransform(), kLine);
    layer->displayIfNeeded();
    fresh->drawPolygonAtKeyPoints(second, QTransform(), kLine);
    fresh->displayIfNeeded();
    EXPECT_EQ(layer->backingStore(), fresh->backingStore()) << "no trace of the first outline";

    const QRegion area = layer->backingStoreArea();
    qint64 pixels = 0;
    for (const QRect& rect : area) {
        pixels += static_cast<qint64>(rect.width()) * rect.height();
    }
    EXPECT_LT(pixels, 300 * 300 / 4) << "the outline, not its bounding box";
    const QImage& store = layer->backingStore();
    for (int y = 0; y < store.height(); ++y) {
        for (int x = 0; x < store.width(); ++x) {
            if (qAlpha(store.pixel(x, y)) != 0) {
                ASSERT_TRUE(area.contains(QPoint(x, y))) << x << "," << y;
            }
        }
    }

    // Composited over a picture only where it is, the same as the whole store.
    auto host = platform::Layer::create();
    host->setFrame(QRectF(0, 0, 300, 300));
    host->setBackgroundColor(Qt::blue);
    host->addSublayer(layer);
    QImage expected(300, 300, QImage::Format_ARGB32_Premultiplied);
    expected.fill(Qt::blue);
    {
        QPainter painter(&expected);
        painter.drawImage(QPointF(0, 0), store);
    }
    EXPECT_EQ(platform::LayerPainter::snapshot(*host, QSizeF(300, 300), 1.0, 0.0), expected);
}

}  // namespace
