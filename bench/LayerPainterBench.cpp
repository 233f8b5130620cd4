// Painting the capture screen's layer tree must cost little more than the
// same picture drawn with raw QPainter calls.
#include "Ratio.h"

#include "platform/foundation/RunLoop.h"
#include "platform/layers/Layer.h"
#include "platform/layers/Transaction.h"
#include "platform/render/LayerPainter.h"

#include <QPainter>

#include <benchmark/benchmark.h>

#include <numbers>

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kIcon = 64;

struct Scene {
    QImage preview;
    QImage icon;
    QPolygonF polygon{
        {QPointF(400, 200), QPointF(1500, 240), QPointF(1450, 900), QPointF(450, 860)}};
    std::vector<QRectF> bars{{0, 0, kWidth, 120}, {0, 420, kWidth, 240}, {0, 960, kWidth, 120}};

    Scene()
        : preview(kWidth, kHeight, QImage::Format_ARGB32_Premultiplied),
          icon(kIcon, kIcon, QImage::Format_ARGB32_Premultiplied) {
        for (int y = 0; y < kHeight; ++y) {
            auto* row = reinterpret_cast<QRgb*>(preview.scanLine(y));
            for (int x = 0; x < kWidth; ++x) {
                row[x] = qRgb(x & 0xFF, y & 0xFF, 0x80);
            }
        }
        icon.fill(Qt::transparent);
        QPainter p(&icon);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(Qt::white, 4));
        p.drawEllipse(QRectF(6, 6, kIcon - 12, kIcon - 12));
    }

    QPointF iconOrigin(const QRectF& bar, int index) const {
        return {bar.x() + 200 + index * 600, bar.center().y() - kIcon / 2.0};
    }
};

platform::LayerPtr buildTree(const Scene& scene) {
    platform::Transaction::Scope quiet(true);
    auto root = platform::Layer::create();
    root->setFrame({0, 0, kWidth, kHeight});
    auto preview = platform::Layer::create();
    preview->setFrame(root->bounds());
    preview->setContents(scene.preview);
    root->addSublayer(preview);

    auto polygon = platform::ShapeLayer::create();
    polygon->setFrame(root->bounds());
    QPainterPath outline;
    outline.addPolygon(scene.polygon);
    outline.closeSubpath();
    polygon->setPath(outline);
    polygon->setFillColor(QColor());
    polygon->setStrokeColor(Qt::green);
    polygon->setLineWidth(2);
    root->addSublayer(polygon);

    for (const QRectF& frame : scene.bars) {
        auto bar = platform::Layer::create();
        bar->setFrame(frame);
        for (int i = 0; i < 3; ++i) {
            auto icon = platform::Layer::create();
            const QPointF origin = scene.iconOrigin(frame, i) - frame.topLeft();
            icon->setFrame({origin, QSizeF(kIcon, kIcon)});
            icon->setContents(scene.icon);
            bar->addSublayer(icon);
        }
        root->addSublayer(bar);
    }

    auto ring = platform::ShapeLayer::create();
    QPainterPath circle;
    circle.addEllipse(QPointF(0, 0), 22, 22);
    ring->setPath(circle);
    ring->setStrokeColor(Qt::white);
    ring->setLineWidth(1);
    ring->setPosition({kWidth - 100, 60});
    auto scale = platform::BasicAnimation::create(QStringLiteral("transform.scale.xy"));
    scale->setFromValue(0.0);
    scale->setToValue(1.0);
    auto fade = platform::BasicAnimation::create(QStringLiteral("opacity"));
    fade->setFromValue(0.8);
    fade->setToValue(0.0);
    auto pulse = platform::AnimationGroup::create();
    pulse->setAnimations({scale, fade});
    pulse->setDuration(1.0);
    pulse->setRepeatCount(platform::Animation::kRepeatForever);
    pulse->setRemovedOnCompletion(false);
    ring->addAnimation(pulse, QStringLiteral("frame"));
    root->addSublayer(ring);
    return root;
}

void BM_PaintLayerTree1080p(benchmark::State& state) {
    platform::RunLoop::main().useManualClock();
    const Scene scene;
    auto root = buildTree(scene);
    QImage target(kWidth, kHeight, QImage::Format_ARGB32_Premultiplied);
    double time = 0.0;
    for (auto _ : state) {
        QPainter painter(&target);
        platform::LayerPainter::paint(painter, *root, time);
        time += 1.0 / 30.0;
    }
}
BENCHMARK(BM_PaintLayerTree1080p)->Unit(benchmark::kMillisecond);

void BM_PaintRawQPainter1080p(benchmark::State& state) {
    const Scene scene;
    QImage target(kWidth, kHeight, QImage::Format_ARGB32_Premultiplied);
    double time = 0.0;
    for (auto _ : state) {
        QPainter painter(&target);
        painter.drawImage(QPointF(0, 0), scene.preview);
        painter.setRenderHint(QPainter::Antialiasing);
        QPainterPath outline;
        outline.addPolygon(scene.polygon);
        outline.closeSubpath();
        painter.strokePath(outline, QPen(Qt::green, 2));
        for (const QRectF& bar : scene.bars) {
            for (int i = 0; i < 3; ++i) {
                painter.drawImage(scene.iconOrigin(bar, i), scene.icon);
            }
        }
        const double phase = time - static_cast<int>(time);
        painter.save();
        painter.translate(kWidth - 100, 60);
        painter.scale(phase, phase);
        painter.setOpacity(0.8 * (1.0 - phase));
        painter.setPen(QPen(Qt::white, 1));
        painter.drawEllipse(QPointF(0, 0), 22, 22);
        painter.restore();
        time += 1.0 / 30.0;
    }
}
BENCHMARK(BM_PaintRawQPainter1080p)->Unit(benchmark::kMillisecond);

const bool kRatios =
    bench::declareRatio("BM_PaintLayerTree1080p", "BM_PaintRawQPainter1080p", 1.5) &&
    bench::declareLimit("BM_PaintLayerTree1080p", 0.004);

}  // namespace
