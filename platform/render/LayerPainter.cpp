#include "platform/render/LayerPainter.h"

#include "platform/foundation/RunLoop.h"
#include "platform/layers/Transaction.h"
#include "platform/render/BackdropLayer.h"
#include "platform/render/OpaqueImageCopy.h"
#include "platform/render/PaintOrder.h"
#include "platform/render/PolylineStroke.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace platform {
namespace {

using paint_order::Step;

// One painting of a tree: drawings numbered below hiddenBefore lie under an
// opaque layer and are left out.
struct Pass {
    QPainter& painter;
    double time;
    int hiddenBefore = paint_order::kNone;
    int nextLayer = 0;

    bool shows(int layerIndex, Step step) const {
        return paint_order::number(layerIndex, step) >= hiddenBefore;
    }
};

QPainterPath roundedBounds(const QRectF& bounds, double radius) {
    QPainterPath path;
    if (radius > 0) {
        const double r = std::min(radius, std::min(bounds.width(), bounds.height()) / 2.0);
        path.addRoundedRect(bounds, r, r);
    } else {
        path.addRect(bounds);
    }
    return path;
}

void drawImageInRect(QPainter& painter, const QImage& image, const QRectF& target) {
    const QRectF source(0, 0, image.width(), image.height());
    const bool exact = target.size() == source.size();
    painter.setRenderHint(QPainter::SmoothPixmapTransform, !exact);
    if (exact) {
        painter.drawImage(target.topLeft(), image);
    } else {
        painter.drawImage(target, image, source);
    }
}

void paintContents(QPainter& painter, Layer& layer, const LayerState& state, bool clipIsRectangle) {
    const QImage& contents = layer.contents();
    if (!contents.isNull()) {
        const double scale = std::max(layer.contentsScale(), 1e-6);
        const QSizeF natural(contents.width() / scale, contents.height() / scale);
        const QRectF placed =
            LayerPainter::contentsRect(state.bounds, natural, layer.contentsGravity());
        if (placed.size() == QSizeF(contents.size()) &&
            copyGreyImage(painter, contents, placed.topLeft(), clipIsRectangle)) {
            return;
        }
        drawImageInRect(painter, layer.contentsForDrawing(), placed);
        return;
    }
    if (layer.drawsContent()) {
        layer.displayIfNeeded();
        const QImage& store = layer.backingStore();
        if (store.isNull()) {
            return;
        }
        const QRegion& area = layer.backingStoreArea();
        const bool unscaled = QSizeF(store.size()) == state.bounds.size();
        if (unscaled && area != QRegion(store.rect())) {
            // Only where the drawing is; the rest of the store is clear.
            painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
            for (const QRect& rect : area) {
                painter.drawImage(state.bounds.topLeft() + QPointF(rect.topLeft()), store, rect);
            }
            return;
        }
        drawImageInRect(painter, store, state.bounds);
    }
}

void paintShape(QPainter& painter, const ShapeLayer& shape, const LayerState& state) {
    const QPainterPath& path = shape.path();
    if (path.isEmpty()) {
        return;
    }
    painter.setRenderHint(QPainter::Antialiasing);
    if (state.fillColor.isValid() && state.fillColor.alpha() > 0) {
        painter.fillPath(path, state.fillColor);
    }
    if (state.strokeColor.isValid() && state.strokeColor.alpha() > 0 && state.lineWidth > 0 &&
        state.strokeEnd > state.strokeStart) {
        if (!strokeOpaquePolylines(painter, path, state.strokeColor, state.lineWidth)) {
            painter.strokePath(path, shapeStrokePen(state.strokeColor, state.lineWidth));
        }
    }
}

// clipIsRectangle: the painter's clip, if any, is exactly its bounding
// rectangle.
void paintLayer(Pass& pass, Layer& layer, bool clipIsRectangle) {
    QPainter& painter = pass.painter;
    const LayerState state = layer.presentationState(pass.time);
    if (paint_order::skipsLayer(state)) {
        return;
    }
    const int index = pass.nextLayer++;
    painter.save();
    painter.setTransform(state.toSuperlayer(), true);
    painter.setOpacity(painter.opacity() * std::min(1.0, state.opacity));

    if (auto* backdrop = dynamic_cast<BackdropLayer*>(&layer);
        backdrop && pass.shows(index, Step::Backdrop)) {
        backdrop->applyBackdrop(painter, state.bounds);
    }
    if (layer.masksToBounds()) {
        // A square clip stays a rectangle, which the raster engine clips
        // without a per-pixel mask.
        if (state.cornerRadius > 0) {
            painter.setClipPath(roundedBounds(state.bounds, state.cornerRadius), Qt::IntersectClip);
            clipIsRectangle = false;
        } else {
            painter.setClipRect(state.bounds, Qt::IntersectClip);
            clipIsRectangle =
                clipIsRectangle && painter.deviceTransform().type() <= QTransform::TxScale;
        }
    }
    if (state.backgroundColor.isValid() && state.backgroundColor.alpha() > 0 &&
        pass.shows(index, Step::Background)) {
        if (state.cornerRadius > 0) {
            painter.setRenderHint(QPainter::Antialiasing);
            painter.fillPath(roundedBounds(state.bounds, state.cornerRadius),
                             state.backgroundColor);
        } else {
            painter.fillRect(state.bounds, state.backgroundColor);
        }
    }
    if (pass.shows(index, Step::Contents)) {
        paintContents(painter, layer, state, clipIsRectangle);
    }
    if (const auto* shape = dynamic_cast<const ShapeLayer*>(&layer);
        shape && pass.shows(index, Step::Shape)) {
        paintShape(painter, *shape, state);
    }
    for (const LayerPtr& sublayer : layer.sublayers()) {
        paintLayer(pass, *sublayer, clipIsRectangle);
    }
    painter.restore();
}

// Whether area falls on whole device pixels under an untilted painter, so
// that a layer covering it covers each of its pixels in full.
bool onWholePixels(const QPainter& painter, const QRectF& area) {
    const QTransform device = painter.deviceTransform();
    if (device.type() > QTransform::TxScale) {
        return false;
    }
    const QRectF mapped = device.mapRect(area);
    auto whole = [](double value) { return std::abs(value - std::round(value)) < 1e-6; };
    return whole(mapped.left()) && whole(mapped.top()) && whole(mapped.right()) &&
           whole(mapped.bottom());
}

}  // namespace

QRectF LayerPainter::contentsRect(const QRectF& bounds, const QSizeF& content,
                                  ContentsGravity gravity) {
    const double w = bounds.width();
    const double h = bounds.height();
    const double cw = content.width();
    const double ch = content.height();
    auto placed = [&](double fx, double fy) {
        return QRectF(bounds.x() + (w - cw) * fx, bounds.y() + (h - ch) * fy, cw, ch);
    };
    switch (gravity) {
        case ContentsGravity::Resize:
            return bounds;
        case ContentsGravity::ResizeAspect:
        case ContentsGravity::ResizeAspectFill: {
            if (cw <= 0 || ch <= 0) {
                return bounds;
            }
            const double sx = w / cw;
            const double sy = h / ch;
            const double s =
                gravity == ContentsGravity::ResizeAspect ? std::min(sx, sy) : std::max(sx, sy);
            const QSizeF size(cw * s, ch * s);
            return {bounds.x() + (w - size.width()) / 2, bounds.y() + (h - size.height()) / 2,
                    size.width(), size.height()};
        }
        case ContentsGravity::Center:
            return placed(0.5, 0.5);
        case ContentsGravity::Top:
            return placed(0.5, 0.0);
        case ContentsGravity::Bottom:
            return placed(0.5, 1.0);
        case ContentsGravity::Left:
            return placed(0.0, 0.5);
        case ContentsGravity::Right:
            return placed(1.0, 0.5);
        case ContentsGravity::TopLeft:
            return placed(0.0, 0.0);
        case ContentsGravity::TopRight:
            return placed(1.0, 0.0);
        case ContentsGravity::BottomLeft:
            return placed(0.0, 1.0);
        case ContentsGravity::BottomRight:
            return placed(1.0, 1.0);
    }
    return bounds;
}

void LayerPainter::paint(QPainter& painter, Layer& root, double time) {
    // What is painted has been committed: from now on its changes animate.
    Transaction::flush();
    Pass pass{painter, time};
    paintLayer(pass, root, !painter.hasClipping());
}

void LayerPainter::paint(QPainter& painter, Layer& root, double time, const QRectF& area,
                         const QColor& background) {
    Transaction::flush();
    Pass pass{painter, time};
    // Under any other blending or opacity, what lies beneath still counts.
    if (painter.opacity() >= 1.0 &&
        painter.compositionMode() == QPainter::CompositionMode_SourceOver &&
        onWholePixels(painter, area)) {
        pass.hiddenBefore = paint_order::lastOpaqueCover(root, time, area);
    }
    const bool clipIsRectangle = !painter.hasClipping();
    painter.save();
    painter.setClipRect(area, Qt::IntersectClip);
    if (background.isValid() && background.alpha() > 0 && pass.hiddenBefore == paint_order::kNone) {
        painter.fillRect(area, background);
    }
    paintLayer(pass, root,
               clipIsRectangle && painter.deviceTransform().type() <= QTransform::TxScale);
    painter.restore();
}

QImage LayerPainter::snapshot(Layer& root, const QSizeF& size, double scale, double time,
                              const QColor& background) {
    const QSize pixels = (size * scale).toSize();
    if (pixels.isEmpty()) {
        return {};
    }
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(background.isValid() ? background : QColor(Qt::transparent));
    QPainter painter(&image);
    painter.scale(scale, scale);
    paint(painter, root, time, QRectF(QPointF(), size), QColor());
    return image;
}

bool LayerPainter::writeSnapshot(Layer& root, const QSizeF& size, double scale, const QString& path,
                                 const QColor& background) {
    const QImage image = snapshot(root, size, scale, RunLoop::main().now(), background);
    return !image.isNull() && image.save(path, "PNG");
}

}  // namespace platform
