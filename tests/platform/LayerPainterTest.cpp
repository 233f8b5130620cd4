#include "platform/foundation/RunLoop.h"
#include "platform/layers/Layer.h"
#include "platform/layers/Transaction.h"
#include "platform/render/BackdropLayer.h"
#include "platform/render/LayerPainter.h"
#include "platform/render/PolylineStroke.h"

#include <QPainter>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <numbers>

namespace {

using platform::Layer;
using platform::LayerPainter;
using platform::ShapeLayer;

// Scenes are built without implicit animations so that what is painted is
// the model state, unless a test animates on purpose.
class LayerPainterTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform::RunLoop::main().useManualClock();
        platform::Transaction::begin();
        platform::Transaction::setDisableActions(true);
    }
    void TearDown() override { platform::Transaction::commit(); }

    static QImage paint(Layer& root, const QSizeF& size, double time = 0.0) {
        return LayerPainter::snapshot(root, size, 1.0, time);
    }
    static QColor at(const QImage& image, int x, int y) { return image.pixelColor(x, y); }
};

TEST_F(LayerPainterTest, RoundedClippingKeepsSublayersInsideTheCorners) {
    auto root = Layer::create();
    root->setFrame({0, 0, 60, 60});
    auto card = Layer::create();
    card->setFrame({10, 10, 40, 40});
    card->setMasksToBounds(true);
    card->setCornerRadius(10);
    card->setBackgroundColor(Qt::red);
    auto overflow = Layer::create();
    overflow->setFrame({-10, -10, 60, 60});
    overflow->setBackgroundColor(Qt::blue);
    card->addSublayer(overflow);
    root->addSublayer(card);

    const QImage image = paint(*root, {60, 60});
    EXPECT_EQ(at(image, 30, 30), QColor(Qt::blue));
    EXPECT_EQ(at(image, 48, 30), QColor(Qt::blue)) << "inside the straight edge";
    EXPECT_EQ(at(image, 5, 30).alpha(), 0) << "the sublayer is clipped to the card";
    EXPECT_EQ(at(image, 11, 11).alpha(), 0) << "the rounded corner is cut off";
    EXPECT_EQ(at(image, 52, 30).alpha(), 0);
}

TEST_F(LayerPainterTest, ShapeLayersStrokeAndFillTheirPaths) {
    auto root = Layer::create();
    root->setFrame({0, 0, 50, 40});
    QPainterPath square;
    square.addRect(10, 10, 20, 20);

    auto outline = ShapeLayer::create();
    outline->setFrame({0, 0, 50, 40});
    outline->setPath(square);
    outline->setFillColor(QColor());
    outline->setStrokeColor(Qt::green);
    outline->setLineWidth(2);
    root->addSublayer(outline);

    QImage image = paint(*root, {50, 40});
    EXPECT_EQ(at(image, 20, 10), QColor(Qt::green));
    EXPECT_EQ(at(image, 10, 20), QColor(Qt::green));
    EXPECT_EQ(at(image, 20, 20).alpha(), 0) << "no fill colour: the inside stays clear";
    EXPECT_EQ(at(image, 20, 13).alpha(), 0) << "the line is 2 points wide, not more";

    auto filled = ShapeLayer::create();
    filled->setFrame({0, 0, 50, 40});
    filled->setPath(square);
    outline->removeFromSuperlayer();
    root->addSublayer(filled);
    image = paint(*root, {50, 40});
    EXPECT_EQ(at(image, 20, 20), QColor(Qt::black)) << "shape layers fill black by default";
}

// How far a shape layer's stroke strays from QPainter's own stroke of the
// same path with the same pen, over a black background.
struct StrokeDifference {
    int strayPixels = 0;    ///< pixels off by more than a quarter of full scale
    double inkRatio = 0.0;  ///< total ink painted over the reference's
};

StrokeDifference compareWithQtStroke(const QPainterPath& path, const QColor& color, double width,
                                     const QTransform& transform = {}) {
    const QSizeF size(240, 200);
    auto shape = ShapeLayer::create();
    shape->setFrame({QPointF(), size});
    shape->setPath(path);
    shape->setFillColor(QColor());
    shape->setStrokeColor(color);
    shape->setLineWidth(width);
    shape->setAffineTransform(transform);
    const QImage painted = LayerPainter::snapshot(*shape, size, 1.0, 0.0, Qt::black);

    QImage reference(size.toSize(), QImage::Format_ARGB32_Premultiplied);
    reference.fill(Qt::black);
    {
        QPainter painter(&reference);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.translate(size.width() / 2, size.height() / 2);
        painter.setTransform(transform, true);
        painter.translate(-size.width() / 2, -size.height() / 2);
        painter.strokePath(path, platform::shapeStrokePen(color, width));
    }
    StrokeDifference difference;
    double ink = 0.0;
    double referenceInk = 0.0;
    for (int y = 0; y < reference.height(); ++y) {
        for (int x = 0; x < reference.width(); ++x) {
            const QRgb a = painted.pixel(x, y);
            const QRgb b = reference.pixel(x, y);
            ink += qGreen(a) + qRed(a) + qBlue(a);
            referenceInk += qGreen(b) + qRed(b) + qBlue(b);
            if (std::abs(qGreen(a) - qGreen(b)) > 64 || std::abs(qRed(a) - qRed(b)) > 64 ||
                std::abs(qBlue(a) - qBlue(b)) > 64) {
                ++difference.strayPixels;
            }
        }
    }
    difference.inkRatio = referenceInk > 0 ? ink / referenceInk : 0.0;
    return difference;
}

TEST_F(LayerPainterTest, StraightOutlinesMatchQtsStrokeWithMitersAndBevels) {
    QPainterPath quad;
    quad.addPolygon(
        QPolygonF{{QPointF(30, 20), QPointF(200, 32), QPointF(190, 170), QPointF(40, 160)}});
    quad.closeSubpath();
    QPainterPath sharp;  // 6 degrees at the tip: far past the miter limit, bevelled
    sharp.moveTo(20, 100);
    sharp.lineTo(220, 100);
    sharp.lineTo(20, 100 + 200 * std::tan(6 * std::numbers::pi / 180));
    QPainterPath zigzag;  // short segments, repeated points, two subpaths
    zigzag.moveTo(20, 20);
    for (int i = 1; i < 12; ++i) {
        zigzag.lineTo(20 + 15 * i, i % 2 == 0 ? 20 : 34);
        zigzag.lineTo(20 + 15 * i, i % 2 == 0 ? 20 : 34);
    }
    zigzag.moveTo(30, 120);
    zigzag.lineTo(200, 180);
    zigzag.lineTo(60, 170);
    zigzag.closeSubpath();
    QPainterPath curved;  // strokes the ordinary way
    curved.addEllipse(QPointF(120, 100), 80, 60);

    const QColor green(0, 255, 0);
    for (const auto& [name, path, width] :
         std::vector<std::tuple<const char*, QPainterPath, double>>{{"quad", quad, 2.0},
                                                                    {"quad wide", quad, 9.0},
                                                                    {"sharp", sharp, 4.0},
                                                                    {"zigzag", zigzag, 3.0},
                                                                    {"curved", curved, 2.0}}) {
        const StrokeDifference plain = compareWithQtStroke(path, green, width);
        EXPECT_LE(plain.strayPixels, 2) << name;
        EXPECT_NEAR(plain.inkRatio, 1.0, 0.03) << name;
        const StrokeDifference turned =
            compareWithQtStroke(path, green, width, QTransform().rotate(17).scale(0.8, 1.1));
        EXPECT_LE(turned.strayPixels, 2) << name << " turned";
        EXPECT_NEAR(turned.inkRatio, 1.0, 0.03) << name << " turned";
    }
    // Translucent strokes would darken where segments overlap: they take
    // the ordinary path and match exactly.
    const StrokeDifference translucent = compareWithQtStroke(quad, QColor(0, 255, 0, 128), 6.0);
    EXPECT_EQ(translucent.strayPixels, 0);
    EXPECT_DOUBLE_EQ(translucent.inkRatio, 1.0);
}

TEST_F(LayerPainterTest, ContentsArePlacedByTheirGravity) {
    QImage red(10, 10, QImage::Format_ARGB32_Premultiplied);
    red.fill(Qt::red);
    auto root = Layer::create();
    root->setFrame({0, 0, 40, 20});
    auto picture = Layer::create();
    picture->setFrame({0, 0, 40, 20});
    picture->setContents(red);
    root->addSublayer(picture);

    picture->setContentsGravity(platform::ContentsGravity::ResizeAspect);
    QImage image = paint(*root, {40, 20});
    EXPECT_EQ(at(image, 5, 10).alpha(), 0);
    EXPECT_EQ(at(image, 20, 10), QColor(Qt::red));
    EXPECT_EQ(at(image, 29, 19), QColor(Qt::red));
    EXPECT_EQ(at(image, 31, 10).alpha(), 0);

    picture->setContentsGravity(platform::ContentsGravity::Center);
    image = paint(*root, {40, 20});
    EXPECT_EQ(at(image, 14, 10).alpha(), 0);
    EXPECT_EQ(at(image, 15, 5), QColor(Qt::red));
    EXPECT_EQ(at(image, 20, 16).alpha(), 0);

    picture->setContentsGravity(platform::ContentsGravity::Resize);
    image = paint(*root, {40, 20});
    EXPECT_EQ(at(image, 0, 0), QColor(Qt::red));
    EXPECT_EQ(at(image, 39, 19), QColor(Qt::red));
}

TEST_F(LayerPainterTest, TransformsTurnAboutTheAnchorPoint) {
    auto root = Layer::create();
    root->setFrame({0, 0, 60, 60});
    auto bar = Layer::create();
    bar->setBounds({0, 0, 20, 10});
    bar->setPosition({30, 30});
    bar->setBackgroundColor(Qt::white);
    QTransform quarter(0, 1, -1, 0, 0, 0);
    bar->setAffineTransform(quarter);
    root->addSublayer(bar);

    const QImage image = paint(*root, {60, 60});
    EXPECT_EQ(at(image, 30, 21), QColor(Qt::white));
    EXPECT_EQ(at(image, 30, 38), QColor(Qt::white));
    EXPECT_EQ(at(image, 22, 30).alpha(), 0) << "the bar stands upright after the turn";
    EXPECT_EQ(at(image, 34, 30), QColor(Qt::white));
}

TEST_F(LayerPainterTest, PaintsThePresentationValueAtTheGivenTime) {
    auto root = Layer::create();
    root->setFrame({0, 0, 10, 10});
    root->setBackgroundColor(Qt::white);
    auto fade = platform::BasicAnimation::create(QStringLiteral("opacity"));
    fade->setFromValue(1.0);
    fade->setToValue(0.0);
    fade->setDuration(1.0);
    root->addAnimation(fade, QStringLiteral("fade"));

    EXPECT_EQ(at(paint(*root, {10, 10}, 0.0), 5, 5).alpha(), 255);
    EXPECT_NEAR(at(paint(*root, {10, 10}, 0.5), 5, 5).alpha(), 128, 2);
    EXPECT_NEAR(at(paint(*root, {10, 10}, 0.99), 5, 5).alpha(), 3, 1);
    EXPECT_EQ(at(paint(*root, {10, 10}, 1.5), 5, 5).alpha(), 255)
        << "the model value after the end";
}

TEST_F(LayerPainterTest, BackdropBlursOnlyWhatLiesBeneathIt) {
    QImage scene(80, 40, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < scene.height(); ++y) {
        for (int x = 0; x < scene.width(); ++x) {
            scene.setPixelColor(x, y, x < 40 ? Qt::black : Qt::white);
        }
    }
    auto root = Layer::create();
    root->setFrame({0, 0, 80, 40});
    root->setContents(scene);
    auto blur = platform::BackdropLayer::create();
    blur->setFrame({20, 0, 40, 40});
    root->addSublayer(blur);

    const QImage image = paint(*root, {80, 40});
    EXPECT_EQ(at(image, 10, 20), QColor(Qt::black)) << "left of the backdrop: untouched";
    EXPECT_EQ(at(image, 70, 20), QColor(Qt::white)) << "right of the backdrop: untouched";
    const int nearEdgeLeft = at(image, 37, 20).red();
    const int nearEdgeRight = at(image, 42, 20).red();
    EXPECT_GT(nearEdgeLeft, 0) << "the black side picks up light across the edge";
    EXPECT_LT(nearEdgeRight, 255) << "the white side is blurred and darkened";
    EXPECT_LT(nearEdgeLeft, nearEdgeRight);
}

TEST_F(LayerPainterTest, SnapshotsAreWrittenAsPng) {
    auto root = Layer::create();
    root->setFrame({0, 0, 8, 4});
    root->setBackgroundColor(Qt::yellow);
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("tree.png"));
    ASSERT_TRUE(LayerPainter::writeSnapshot(*root, {8, 4}, 2.0, path));
    const QImage written(path);
    EXPECT_EQ(written.size(), QSize(16, 8));
    EXPECT_EQ(written.pixelColor(15, 7), QColor(Qt::yellow));
    EXPECT_FALSE(LayerPainter::writeSnapshot(*root, {8, 4}, 1.0, folder.filePath("no/such/x.png")));
}

}  // namespace
