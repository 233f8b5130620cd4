#include "platform/render/LayerPainter.h"

#include "platform/foundation/RunLoop.h"
#include "platform/layers/Transaction.h"
#include "platform/render/BackdropLayer.h"
#include "platform/render/PolylineStroke.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace platform {
namespace {

// Maps the layer's bounds coordinates into its superlayer's: the bounds
// origin and the anchor point move to the origin, the transform turns and
// scales about it, and the result sits at the position.
QTransform layerToSuperlayer(const LayerState& state) {
    const QSizeF size = state.bounds.size();
    const QPointF anchor(state.anchorPoint.x() * size.width(),
                         state.anchorPoint.y() * size.height());
    return QTransform::fromTranslate(-state.bounds.x() - anchor.x(),
                                     -state.bounds.y() - anchor.y()) *
           state.transform * QTransform::fromTranslate(state.position.x(), state.position.y());
}

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

void paintContents(QPainter& painter, Layer& layer, const LayerState& state) {
    const QImage& contents = layer.contents();
    if (!contents.isNull()) {
        const double scale = std::max(layer.contentsScale(), 1e-6);
        const QSizeF natural(contents.width() / scale, contents.height() / scale);
        drawImageInRect(painter, contents,
                        LayerPainter::contentsRect(state.bounds, natural, layer.contentsGravity()));
        return;
    }
    if (layer.drawsContent()) {
        layer.displayIfNeeded();
        const QImage& store = layer.backingStore();
        if (!store.isNull()) {
            drawImageInRect(painter, store, state.bounds);
        }
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

void paintLayer(QPainter& painter, Layer& layer, double time) {
    const LayerState state = layer.presentationState(time);
    if (state.hidden || state.opacity <= 0.0) {
        return;
    }
    painter.save();
    painter.setTransform(layerToSuperlayer(state), true);
    painter.setOpacity(painter.opacity() * std::min(1.0, state.opacity));

    if (auto* backdrop = dynamic_cast<BackdropLayer*>(&layer)) {
        backdrop->applyBackdrop(painter, state.bounds);
    }
    if (layer.masksToBounds()) {
        // A square clip stays a rectangle, which the raster engine clips
        // without a per-pixel mask.
        if (state.cornerRadius > 0) {
            painter.setClipPath(roundedBounds(state.bounds, state.cornerRadius),
                                Qt::IntersectClip);
        } else {
            painter.setClipRect(state.bounds, Qt::IntersectClip);
        }
    }
    if (state.backgroundColor.isValid() && state.backgroundColor.alpha() > 0) {
        if (state.cornerRadius > 0) {
            painter.setRenderHint(QPainter::Antialiasing);
            painter.fillPath(roundedBounds(state.bounds, state.cornerRadius),
                             state.backgroundColor);
        } else {
            painter.fillRect(state.bounds, state.backgroundColor);
        }
    }
    paintContents(painter, layer, state);
    if (const auto* shape = dynamic_cast<const ShapeLayer*>(&layer)) {
        paintShape(painter, *shape, state);
    }
    for (const LayerPtr& sublayer : layer.sublayers()) {
        paintLayer(painter, *sublayer, time);
    }
    painter.restore();
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
    paintLayer(painter, root, time);
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
    paint(painter, root, time);
    return image;
}

bool LayerPainter::writeSnapshot(Layer& root, const QSizeF& size, double scale, const QString& path,
                                 const QColor& background) {
    const QImage image = snapshot(root, size, scale, RunLoop::main().now(), background);
    return !image.isNull() && image.save(path, "PNG");
}

}  // namespace platform
