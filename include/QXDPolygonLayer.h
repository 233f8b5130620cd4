#pragma once

#include "platform/graphics/Path.h"
#include "platform/layers/Layer.h"

#include <QColor>
#include <QPointF>
#include <QTransform>

#include <functional>

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

/// The outline of a detected document, laid over the camera preview: one
/// closed line, 2 points wide, through the key points in the order given.
/// Each point is mapped by `t` (detector coordinates to layer coordinates)
/// and then to the current interface orientation.
///
/// Main thread only, except `t`, which is read and written whole under a
/// lock and may be used from any thread.
class QXDPolygonLayer : public platform::Layer {
public:
    /// The corners; nullopt (nothing to draw) is kept apart from an empty list.
    using KeyPoints = std::optional<std::vector<QPointF>>;

    static std::shared_ptr<QXDPolygonLayer> create();

    const KeyPoints& keypoints() const { return _keypoints; }
    void setKeypoints(KeyPoints keypoints) { _keypoints = std::move(keypoints); }
    const QColor& lineColor() const { return _lineColor; }
    void setLineColor(const QColor& lineColor) { _lineColor = lineColor; }
    QTransform t() const;
    void setT(const QTransform& t);

    /// Stores the points, the transform and the colour, then redraws.
    void drawPolygonAtKeyPoints(KeyPoints keyPoints, const QTransform& transform,
                                const QColor& lineColor);
    /// Asks for a redraw without implicit animation.
    void updateContext();
    /// Forgets the points and redraws, leaving the layer transparent.
    void clean();

    /// Clears the bounds and strokes the outline, logging each point drawn.
    void drawInContext(QPainter& context) override;
    bool drawsContent() const override { return true; }
    /// Round the outline only: the rest of the layer stays clear.
    std::optional<std::vector<QRectF>> drawingArea() const override;

    /// Maps a point in portrait layer coordinates to the status bar's
    /// current orientation. The two landscapes differ on purpose: `t` already
    /// accounts for the rest of the mapping.
    QPointF adaptPointToOrientation(const QPointF& point) const;

protected:
    QXDPolygonLayer() = default;
    QString typeName() const override;

private:
    /// The outline as drawInContext strokes it now, each corner passed to
    /// eachPoint (if set) as it is added; empty without points.
    platform::BezierPath outline(const std::function<void(const QPointF&)>& eachPoint) const;

    KeyPoints _keypoints;
    QColor _lineColor;
    mutable std::mutex _tMutex;
    QTransform _t;
};
