#pragma once

#include "platform/layers/Layer.h"
#include "platform/ui/LayoutConstraint.h"

#include <QColor>
#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QTransform>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QPainter;

namespace platform {

class GestureRecognizer;
class LayoutEngine;
class ViewController;
class Window;

/// Autoresizing-mask bits, with the platform's values.
namespace autoresizing {
inline constexpr unsigned kNone = 0;
inline constexpr unsigned kFlexibleLeftMargin = 1;
inline constexpr unsigned kFlexibleWidth = 2;
inline constexpr unsigned kFlexibleRightMargin = 4;
inline constexpr unsigned kFlexibleTopMargin = 8;
inline constexpr unsigned kFlexibleHeight = 16;
inline constexpr unsigned kFlexibleBottomMargin = 32;
}  // namespace autoresizing

/// How a view shows content of another size (image views, buttons' images).
enum class ContentMode {
    ScaleToFill = 0,
    ScaleAspectFit = 1,
    ScaleAspectFill = 2,
    Redraw = 3,
    Center = 4,
    Top = 5,
    Bottom = 6,
    Left = 7,
    Right = 8,
    TopLeft = 9,
    TopRight = 10,
    BottomLeft = 11,
    BottomRight = 12,
};

enum class LayoutAxis { Horizontal = 0, Vertical = 1 };

/// Options of block animations, with the platform's bits.
namespace animation_options {
inline constexpr unsigned kLayoutSubviews = 1u << 0;
inline constexpr unsigned kAllowUserInteraction = 1u << 1;
inline constexpr unsigned kBeginFromCurrentState = 1u << 2;
inline constexpr unsigned kCurveEaseInOut = 0u << 16;
inline constexpr unsigned kCurveEaseIn = 1u << 16;
inline constexpr unsigned kCurveEaseOut = 2u << 16;
inline constexpr unsigned kCurveLinear = 3u << 16;
}  // namespace animation_options

/// Width or height for "no intrinsic size on this axis".
inline constexpr double kNoIntrinsicMetric = -1.0;

/// One finger on the screen, as delivered to views and recognisers.
struct Touch {
    enum class Phase { Began, Moved, Ended, Cancelled };
    Phase phase = Phase::Began;
    QPointF locationInWindow;
    int tapCount = 1;
    std::weak_ptr<View> view;  ///< the view hit when the touch began

    /// The location in view's coordinates (window coordinates for null).
    QPointF locationInView(const View* view) const;
};

/// A rectangle of the screen with content, subviews, constraints, gestures
/// and accessibility, backed by a layer, like the platform's views.
///
/// Views are made with View::make<T>(args...) (or T::create), never on the
/// stack: the view becomes its layer's delegate, which needs a shared owner.
/// The superview holds its subviews strongly; a subview's superview and
/// window are weak. Property changes inside an animation block animate;
/// outside one they apply at once. Main thread only.
class View : public LayerDelegate, public std::enable_shared_from_this<View> {
public:
    template <typename T, typename... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        // A local subclass reaches T's protected constructor, so view classes
        // can keep theirs protected and be made only here.
        struct Made final : T {
            explicit Made(Args&&... a) : T(std::forward<Args>(a)...) {}
        };
        std::shared_ptr<T> view = std::make_shared<Made>(std::forward<Args>(args)...);
        static_cast<View*>(view.get())->didCreate();
        return view;
    }
    static ViewPtr create(const QRectF& frame = {});

    ~View() override;
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    // Geometry, in the superview's coordinates (frame, center) or the
    // view's own (bounds). On a view placed by constraints a frame set by
    // hand stays until its constraints, its superview's size or its
    // intrinsic size change.
    QRectF frame() const;
    void setFrame(const QRectF& frame);
    QRectF bounds() const;
    void setBounds(const QRectF& bounds);
    QPointF center() const;
    void setCenter(const QPointF& center);
    QTransform transform() const;
    void setTransform(const QTransform& transform);

    // Appearance
    double alpha() const;
    void setAlpha(double alpha);
    bool isHidden() const;
    void setHidden(bool hidden);
    QColor backgroundColor() const;
    void setBackgroundColor(const QColor& color);
    bool clipsToBounds() const;
    void setClipsToBounds(bool clips);
    ContentMode contentMode() const { return _contentMode; }
    virtual void setContentMode(ContentMode mode);
    const LayerPtr& layer() const { return _layer; }

    // Hierarchy
    ViewPtr superview() const { return _superview.lock(); }
    const std::vector<ViewPtr>& subviews() const { return _subviews; }
    void addSubview(const ViewPtr& view);
    void insertSubview(const ViewPtr& view, std::size_t index);
    void insertSubviewAbove(const ViewPtr& view, const View* sibling);
    void insertSubviewBelow(const ViewPtr& view, const View* sibling);
    void removeFromSuperview();
    /// Moves a subview to the top; does nothing for a view that is not one.
    void bringSubviewToFront(const View* view);
    void sendSubviewToBack(const View* view);
    bool isDescendantOfView(const View* view) const;
    std::shared_ptr<Window> window() const;
    /// The view's tag, for finding it in a tree.
    int tag() const { return _tag; }
    void setTag(int tag) { _tag = tag; }
    ViewPtr viewWithTag(int tag);

    // Autoresizing and constraints
    unsigned autoresizingMask() const { return _autoresizingMask; }
    void setAutoresizingMask(unsigned mask);
    bool autoresizesSubviews() const { return _autoresizesSubviews; }
    void setAutoresizesSubviews(bool autoresizes) { _autoresizesSubviews = autoresizes; }
    bool translatesAutoresizingMaskIntoConstraints() const { return _translatesMask; }
    void setTranslatesAutoresizingMaskIntoConstraints(bool translates);
    const std::vector<LayoutConstraintPtr>& constraints() const { return _constraints; }
    void addConstraint(const LayoutConstraintPtr& constraint);
    void addConstraints(const std::vector<LayoutConstraintPtr>& constraints);
    void removeConstraint(const LayoutConstraintPtr& constraint);
    void removeConstraints(const std::vector<LayoutConstraintPtr>& constraints);
    void setNeedsUpdateConstraints();
    bool needsUpdateConstraints() const { return _needsUpdateConstraints; }
    void updateConstraintsIfNeeded();
    /// Override to adjust constraints; the override must call the base.
    virtual void updateConstraints();

    virtual QSizeF intrinsicContentSize() const;
    void invalidateIntrinsicContentSize();
    float contentHuggingPriority(LayoutAxis axis) const;
    void setContentHuggingPriority(float priority, LayoutAxis axis);
    float contentCompressionResistancePriority(LayoutAxis axis) const;
    void setContentCompressionResistancePriority(float priority, LayoutAxis axis);

    // Layout
    void setNeedsLayout();
    bool needsLayout() const { return _needsLayout; }
    /// Lays out now, from the topmost view that needs it down to this one's
    /// subtree: solves the constraints of the tree, writes frames, and calls
    /// layoutSubviews of each view that needs layout.
    void layoutIfNeeded();
    /// Override to place subviews by hand; the base applies the frames the
    /// constraints give and the autoresizing masks.
    virtual void layoutSubviews();
    virtual void sizeToFit();
    virtual QSizeF sizeThatFits(const QSizeF& size) const;

    // Drawing
    void setNeedsDisplay();
    /// Override to draw the view's content (in points, in bounds
    /// coordinates); a view that draws must also return true from drawsContent.
    virtual void drawRect(QPainter& context, const QRectF& rect);
    virtual bool drawsContent() const { return false; }

    // Interaction
    bool isUserInteractionEnabled() const { return _userInteractionEnabled; }
    void setUserInteractionEnabled(bool enabled) { _userInteractionEnabled = enabled; }
    bool isMultipleTouchEnabled() const { return _multipleTouchEnabled; }
    void setMultipleTouchEnabled(bool enabled) { _multipleTouchEnabled = enabled; }
    const std::vector<std::shared_ptr<GestureRecognizer>>& gestureRecognizers() const {
        return _gestureRecognizers;
    }
    void addGestureRecognizer(const std::shared_ptr<GestureRecognizer>& recognizer);
    void removeGestureRecognizer(const GestureRecognizer* recognizer);
    /// The deepest visible, interactive descendant (or this view) containing
    /// point (in this view's coordinates), or null.
    virtual ViewPtr hitTest(const QPointF& point);
    virtual bool pointInside(const QPointF& point) const;
    /// Whether a recogniser attached to this view or an ancestor may act on
    /// a touch that hit this view. Controls refuse their ancestors' taps.
    virtual bool gestureRecognizerShouldBegin(const GestureRecognizer& recognizer) const;
    QPointF convertPointToView(const QPointF& point, const View* view) const;
    QPointF convertPointFromView(const QPointF& point, const View* view) const;
    QRectF convertRectToView(const QRectF& rect, const View* view) const;

    virtual void touchesBegan(const std::vector<Touch>& touches);
    virtual void touchesMoved(const std::vector<Touch>& touches);
    virtual void touchesEnded(const std::vector<Touch>& touches);
    virtual void touchesCancelled(const std::vector<Touch>& touches);

    // Accessibility
    bool isAccessibilityElement() const { return _accessibilityElement; }
    void setIsAccessibilityElement(bool element) { _accessibilityElement = element; }
    const QString& accessibilityLabel() const { return _accessibilityLabel; }
    /// Label and value changes are reported to the window's assistive tools.
    void setAccessibilityLabel(const QString& label);
    const QString& accessibilityHint() const { return _accessibilityHint; }
    void setAccessibilityHint(const QString& hint) { _accessibilityHint = hint; }
    const QString& accessibilityValue() const { return _accessibilityValue; }
    void setAccessibilityValue(const QString& value);
    /// accessibility_traits bits; none means those of the view's kind.
    unsigned accessibilityTraits() const { return _accessibilityTraits; }
    void setAccessibilityTraits(unsigned traits) { _accessibilityTraits = traits; }

    // Block animations. Changes to frame, bounds, center, transform, alpha
    // and background colour made inside `animations` (layout passes
    // included) animate from what is on screen; completion gets true when
    // every animation ran to its end, false when one was interrupted.
    using Animations = std::function<void()>;
    using Completion = std::function<void(bool finished)>;
    static void animate(double duration, const Animations& animations, Completion completion = {});
    static void animate(double duration, double delay, unsigned options,
                        const Animations& animations, Completion completion = {});
    /// A spring with damping ratio (1 = no overshoot) and initial velocity (in
    /// units of the whole change a second).
    static void animateWithSpring(double duration, double delay, double dampingRatio,
                                  double initialVelocity, unsigned options,
                                  const Animations& animations, Completion completion = {});
    static void performWithoutAnimation(const Animations& changes);
    static bool areAnimationsEnabled();

    /// The controller whose root view this is, if any.
    std::shared_ptr<ViewController> viewController() const { return _viewController.lock(); }

    /// A one-line-per-view description of the tree with frames.
    QString dump() const;
    /// Short type name used by dump() and constraint descriptions.
    virtual QString typeName() const;

    // LayerDelegate
    std::optional<std::shared_ptr<Animation>> actionForLayer(Layer& layer,
                                                             const QString& key) override;
    void drawLayer(Layer& layer, QPainter& context) override;
    void layoutSublayersOfLayer(Layer& layer) override;
    void layerNeedsLayout(Layer& layer) override;
    bool declinesActions(const Layer& layer) const override;
    bool layerDrawsContent(const Layer& layer) const override;

protected:
    explicit View(const QRectF& frame = {});
    /// Called once right after construction, with a shared owner in place.
    virtual void didCreate();
    /// The backing layer to make; called from didCreate.
    virtual LayerPtr makeBackingLayer();

    virtual void willMoveToSuperview(const View* newSuperview);
    virtual void didMoveToSuperview();
    virtual void didMoveToWindow();

private:
    friend class Window;
    friend class LayoutConstraint;
    friend class ViewController;
    friend class LayoutEngine;

    // Takes the view out of its superview on its way into nextWindow's
    // tree: the window change is only reported when the window changes.
    void detachFromSuperview(const std::shared_ptr<Window>& nextWindow);
    void notePlacementChange();
    // Marks this view and its ancestors as having a descendant to visit.
    void markSubtreeNeedsLayout();
    void markSubtreeNeedsUpdateConstraints();

    // Implementation state lives here; see View.cpp.
    LayerPtr _layer;
    QRectF _initialFrame;
    std::weak_ptr<View> _superview;
    // The same superview for the walks up the tree that layout does on every
    // pass; cleared when this view leaves it or the superview goes.
    View* _superviewPointer = nullptr;
    std::weak_ptr<Window> _window;
    std::weak_ptr<ViewController> _viewController;
    std::vector<ViewPtr> _subviews;
    std::vector<LayoutConstraintPtr> _constraints;
    std::vector<std::shared_ptr<GestureRecognizer>> _gestureRecognizers;
    ContentMode _contentMode = ContentMode::ScaleToFill;
    unsigned _autoresizingMask = autoresizing::kNone;
    bool _autoresizesSubviews = true;
    bool _translatesMask = true;
    bool _needsUpdateConstraints = false;
    bool _needsLayout = true;
    // A descendant needs layout or a constraint update: passes only visit
    // the subtrees that do.
    bool _subtreeNeedsLayout = false;
    bool _subtreeNeedsUpdateConstraints = false;
    // The engine of the tree while this view is its root (windows keep
    // their own).
    std::unique_ptr<LayoutEngine> _rootLayoutEngine;
    bool _userInteractionEnabled = true;
    bool _multipleTouchEnabled = false;
    bool _accessibilityElement = false;
    int _tag = 0;
    unsigned _accessibilityTraits = 0;
    float _hugging[2] = {250.0f, 250.0f};
    float _compression[2] = {750.0f, 750.0f};
    QString _accessibilityLabel;
    QString _accessibilityHint;
    QString _accessibilityValue;
};

}  // namespace platform
