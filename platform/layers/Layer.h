#pragma once

#include "platform/layers/Animation.h"

#include <QColor>
#include <QImage>
#include <QPainterPath>
#include <QPointF>
#include <QRectF>
#include <QRegion>
#include <QString>
#include <QStringList>
#include <QTransform>
#include <QVariant>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

class QPainter;

namespace platform {

class Layer;
using LayerPtr = std::shared_ptr<Layer>;

/// Where a layer's contents image sits in its bounds.
enum class ContentsGravity {
    Center,
    Top,
    Bottom,
    Left,
    Right,
    TopLeft,
    TopRight,
    BottomLeft,
    BottomRight,
    Resize,
    ResizeAspect,
    ResizeAspectFill
};

/// The renderable, animatable state of a layer at one moment. Key paths:
///   "bounds" (QRectF), "bounds.size" (QSizeF), "bounds.origin" (QPointF),
///   "position" (QPointF), "position.x", "position.y", "anchorPoint" (QPointF),
///   "opacity" (double), "backgroundColor" (QColor), "cornerRadius" (double),
///   "transform" (QTransform), "transform.scale", "transform.scale.xy",
///   "transform.scale.x", "transform.scale.y", "transform.rotation",
///   "transform.rotation.z", "transform.translation.x", "transform.translation.y"
///   (doubles: the scale/rotation/translation part of the transform, which is
///   rebuilt from its parts when one of them is animated),
///   "hidden" (bool), and for shape layers "fillColor", "strokeColor" (QColor),
///   "lineWidth", "strokeStart", "strokeEnd" (double).
struct LayerState {
    QRectF bounds;
    QPointF position;
    QPointF anchorPoint{0.5, 0.5};
    QTransform transform;
    double opacity = 1.0;
    bool hidden = false;
    QColor backgroundColor;  ///< invalid: no background
    double cornerRadius = 0.0;
    QColor fillColor;
    QColor strokeColor;
    double lineWidth = 1.0;
    double strokeStart = 0.0;
    double strokeEnd = 1.0;

    /// The value of a key path, or an invalid QVariant for an unknown one.
    QVariant value(const QString& keyPath) const;
    /// Sets a key path's value; false for an unknown key path or a value of
    /// the wrong kind.
    bool setValue(const QString& keyPath, const QVariant& value);
    /// The frame in the superlayer: bounds placed at position by the anchor
    /// point, through the transform.
    QRectF frame() const;
    /// Maps bounds coordinates into the superlayer's: the bounds origin and
    /// the anchor point move to the origin, the transform turns and scales
    /// about it, and the result sits at the position.
    QTransform toSuperlayer() const;
};

/// Decides the action (implicit animation) for a property change of a layer
/// it backs; the views layer uses it. nullopt: no opinion (use the default);
/// a null animation: no action.
class LayerDelegate {
public:
    virtual ~LayerDelegate() = default;
    virtual std::optional<std::shared_ptr<Animation>> actionForLayer(Layer& /*layer*/,
                                                                     const QString& /*key*/) {
        return std::nullopt;
    }
    /// True when actionForLayer would answer "no action" for every key right
    /// now, so that a change need not prepare one.
    virtual bool declinesActions(const Layer& /*layer*/) const { return false; }
    /// Draws the layer's content when the layer has no drawing of its own.
    virtual void drawLayer(Layer& /*layer*/, QPainter& /*context*/) {}
    /// Whether drawLayer draws anything for this layer; a layer whose
    /// delegate draws nothing gets no backing store.
    virtual bool layerDrawsContent(const Layer& /*layer*/) const { return true; }
    virtual void layoutSublayersOfLayer(Layer& /*layer*/) {}
    /// The layer started to need layout (setNeedsLayout, or its sublayers
    /// changed); a view lays itself out with it.
    virtual void layerNeedsLayout(Layer& /*layer*/) {}
};

/// A node of the layer tree: geometry, appearance, sublayers, own drawing and
/// animations, like the platform's layers.
///
/// Model values change at once; animations only change what is rendered,
/// which is the presentation state at the run loop's clock time. A change of
/// an animatable property of a standalone layer (one without a delegate that
/// decides) adds an implicit 0.25 s animation from the old rendered value,
/// unless the current transaction disables actions or the layer was made
/// since the last commit (Transaction::flush, or the end of the run loop
/// turn): a layer never committed takes its values at once. Main thread only.
class Layer : public std::enable_shared_from_this<Layer> {
public:
    static LayerPtr create();
    virtual ~Layer();
    Layer(const Layer&) = delete;
    Layer& operator=(const Layer&) = delete;

    // Geometry
    QRectF frame() const;
    void setFrame(const QRectF& frame);
    QRectF bounds() const;
    void setBounds(const QRectF& bounds);
    QPointF position() const;
    void setPosition(const QPointF& position);
    QPointF anchorPoint() const;
    void setAnchorPoint(const QPointF& anchorPoint);
    QTransform affineTransform() const;
    void setAffineTransform(const QTransform& transform);

    // Appearance
    double opacity() const;
    void setOpacity(double opacity);
    bool isHidden() const;
    void setHidden(bool hidden);
    QColor backgroundColor() const;
    void setBackgroundColor(const QColor& color);
    double cornerRadius() const;
    void setCornerRadius(double radius);
    bool masksToBounds() const { return _masksToBounds; }
    void setMasksToBounds(bool masks);
    /// A contents image (the platform's CGImage); a null image is none.
    const QImage& contents() const { return _contents; }
    void setContents(const QImage& contents);
    /// The contents as a painter draws them when it cannot copy them
    /// straight: 8-bit grey turned to 32-bit colour (the same pixels, which
    /// the raster engine scales several times faster), made once per
    /// contents image into a buffer kept for the next; any other image as it
    /// is.
    const QImage& contentsForDrawing();
    ContentsGravity contentsGravity() const { return _contentsGravity; }
    void setContentsGravity(ContentsGravity gravity);
    /// Pixels a point of the backing store made by drawInContext.
    double contentsScale() const { return _contentsScale; }
    void setContentsScale(double scale);

    // Tree
    LayerPtr superlayer() const { return _superlayer.lock(); }
    const std::vector<LayerPtr>& sublayers() const { return _sublayers; }
    void addSublayer(const LayerPtr& layer);
    void insertSublayer(const LayerPtr& layer, std::size_t index);
    void insertSublayerBelow(const LayerPtr& layer, const Layer* sibling);
    void insertSublayerAbove(const LayerPtr& layer, const Layer* sibling);
    void removeFromSuperlayer();

    // Drawing
    void setNeedsDisplay();
    /// True after setNeedsDisplay, and for a layer that draws content and has
    /// not been displayed yet.
    bool needsDisplay() const;
    /// Redraws the backing store now if it needs display.
    void displayIfNeeded();
    /// The backing store made by the last display (null before).
    const QImage& backingStore() const { return _backingStore; }
    /// The pixels of the backing store the last display may have left other
    /// than transparent (all of it unless drawingArea says less).
    const QRegion& backingStoreArea() const { return _backingStoreArea; }
    /// The layer's own drawing, in points with the origin at the bounds'
    /// origin. The default asks the delegate.
    virtual void drawInContext(QPainter& context);
    /// Where drawInContext, run now, may leave pixels other than
    /// transparent, in bounds coordinates: rectangles that together hold all
    /// of its drawing but anti-aliasing; nullopt (the default) for anywhere
    /// in the bounds. A redraw then clears only where the last drawing was
    /// and draws clipped to the rectangles' bounding box, and the store is
    /// composited only inside the rectangles: a drawing must leave the rest
    /// transparent.
    virtual std::optional<std::vector<QRectF>> drawingArea() const;
    /// True when the layer draws (overrides drawInContext or has a delegate).
    virtual bool drawsContent() const;

    // Layout
    void setNeedsLayout();
    /// setNeedsLayout for the delegate's own use: the delegate already knows,
    /// so it is not told.
    void setNeedsLayoutForDelegate();
    bool needsLayout() const { return _needsLayout; }
    void layoutIfNeeded();
    virtual void layoutSublayers();

    // Animations
    /// Stores a copy of animation under key (replacing one there); an empty
    /// key stores it under a fresh private key.
    void addAnimation(const std::shared_ptr<Animation>& animation, const QString& key);
    std::shared_ptr<Animation> animationForKey(const QString& key) const;
    QStringList animationKeys() const;
    void removeAnimationForKey(const QString& key);
    void removeAllAnimations();
    /// True while an animation is in effect (for hosts that repaint then).
    bool hasActiveAnimations(double time) const;

    // Model and presentation values
    const LayerState& modelState() const { return _model; }
    QVariant valueForKeyPath(const QString& keyPath) const;
    /// Sets a model value through the same path as the setters (with its
    /// implicit action).
    void setValueForKeyPath(const QString& keyPath, const QVariant& value);
    /// The state rendered at time: the model with every active animation
    /// applied in the order they were added.
    LayerState presentationState(double time) const;
    /// presentationState at the main run loop's clock time.
    LayerState presentationState() const;

    std::weak_ptr<LayerDelegate> delegate() const { return _delegate; }
    void setDelegate(std::weak_ptr<LayerDelegate> delegate);

    /// Called (on the root of the tree) whenever anything in the tree changes
    /// that needs a repaint; hosts use it to schedule painting.
    void setTreeChangedHandler(std::function<void()> handler);

    /// A one-line-per-layer description of the tree, for debugging.
    QString dump() const;

protected:
    Layer();
    /// Sets a model value the way the setters do: the implicit action from
    /// the value rendered now, then the tree change. Subclasses call it from
    /// their setters.
    void setModelValue(const QString& keyPath, const QVariant& value);
    /// Records a property change already made to the model: runs the
    /// implicit action (from oldRendered to the new model value) and reports
    /// the tree change.
    void didChangeValue(const QString& keyPath, const QVariant& oldRendered);
    /// Reports a change that needs a repaint to the root of the tree.
    void markChanged();
    /// True for the painter displayIfNeeded hands drawInContext: the store
    /// under it is transparent when the drawing starts, so clearing it first
    /// changes nothing.
    bool startsTransparent(const QPainter& context) const { return &context == _displayPainter; }
    /// Marks the layer as needing layout and tells its delegate.
    void requestLayout();
    LayerState& mutableModel() { return _model; }
    virtual QString typeName() const;

private:
    struct Running;

    /// setModelValue for a whole geometry field, without boxing the value
    /// when no action can follow.
    template <typename T>
    void setGeometryValue(T LayerState::*field, const QString& key, const T& value);
    void runAction(const QString& key, const QVariant& oldRendered);
    void startAnimation(std::shared_ptr<Animation> animation, const QString& key);
    void finishAnimation(std::uint64_t generation);
    static void stopEarly(Running& running);
    void appendDump(QString& out, int depth) const;
    /// Marks the layers above as having a sublayer that needs layout.
    void noteNeedsLayoutAbove();

    LayerState _model;
    bool _masksToBounds = false;
    QImage _contents;
    QImage _contentsInColour;
    qint64 _contentsInColourKey = 0;
    ContentsGravity _contentsGravity = ContentsGravity::Resize;
    double _contentsScale = 1.0;
    std::weak_ptr<Layer> _superlayer;
    // The same superlayer for the walks up the tree that every change makes;
    // cleared when this layer leaves it or the superlayer goes.
    Layer* _superlayerPointer = nullptr;
    std::vector<LayerPtr> _sublayers;
    bool _needsDisplay = false;
    bool _displayedOnce = false;
    std::uint64_t _madeAtCommit = 0;
    bool _needsLayout = false;
    // A sublayer, or one below it, needs layout: layoutIfNeeded visits only
    // the branches that do.
    bool _sublayerNeedsLayout = false;
    QImage _backingStore;
    QRegion _backingStoreArea;
    const QPainter* _displayPainter = nullptr;
    std::vector<std::pair<QString, std::shared_ptr<Running>>> _animations;
    std::uint64_t _animationGeneration = 0;
    std::weak_ptr<LayerDelegate> _delegate;
    // Shared, so that a handler may replace itself while it runs.
    std::shared_ptr<const std::function<void()>> _treeChanged;
};

/// A layer that draws a path: filled with fillColor (opaque black by default,
/// an invalid colour for none) and stroked with strokeColor (none by default)
/// at lineWidth.
class ShapeLayer : public Layer {
public:
    static std::shared_ptr<ShapeLayer> create();

    const QPainterPath& path() const { return _path; }
    void setPath(const QPainterPath& path);
    QColor fillColor() const;
    void setFillColor(const QColor& color);
    QColor strokeColor() const;
    void setStrokeColor(const QColor& color);
    double lineWidth() const;
    void setLineWidth(double width);
    double strokeStart() const;
    void setStrokeStart(double start);
    double strokeEnd() const;
    void setStrokeEnd(double end);

protected:
    ShapeLayer();
    QString typeName() const override;

private:
    QPainterPath _path;
};

}  // namespace platform
