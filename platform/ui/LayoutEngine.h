#pragma once

#include <QRectF>

#include <memory>

namespace platform {

class View;
class LayoutConstraint;

/// Turns the constraints of a view tree into frames, incrementally.
///
/// The root of a tree (a window, or a view without a superview) keeps one
/// engine. The engine holds the tree's constraints in a solver, together with
/// the intrinsic sizes (hugging 250 / compression resistance 750 by default)
/// of constrained views and the frames of the views that translate their
/// autoresizing masks, each placed relative to its superview. Views report
/// what changed (a constraint added, removed or given a new constant, a view
/// moved in the tree, a translated frame, an intrinsic size); the next layout
/// pass brings the solver up to date with constant updates where it can, and
/// the base layoutSubviews writes the solved frame (as centre and bounds size)
/// only of the subviews whose solution changed since it was last written. A
/// frame set by hand on a constrained view thus stays until its constraints
/// move it, and a pass that finds nothing changed does no work. A required
/// constraint that contradicts the others is logged and kept at priority 999.
/// Main thread only.
class LayoutEngine {
public:
    LayoutEngine();
    ~LayoutEngine();
    LayoutEngine(const LayoutEngine&) = delete;
    LayoutEngine& operator=(const LayoutEngine&) = delete;

    /// Constraints were added or removed, views moved in the tree, or a
    /// priority or translatesAutoresizingMaskIntoConstraints changed.
    static void noteStructureChange(View& view);
    /// The constant of a constraint held by owner changed.
    static void noteConstantChange(View& owner, const LayoutConstraint& constraint);
    /// The frame of a view that translates its mask (or of a root) changed.
    static void notePlacementChange(View& view);
    /// A view's intrinsic size or its hugging or resistance changed.
    static void noteIntrinsicChange(View& view);
    /// A view's bounds changed size: its constrained subviews take their
    /// solved frames again at its next layout.
    static void noteResize(View& view);

    /// Runs a layout pass over the tree whose root is root.
    static void layout(View& root);
    /// Writes the solved frames of view's constrained subviews whose
    /// solution changed since they were last written.
    static void applyFrames(View& view);

    /// Whether the next pass has solver work to do.
    bool needsSolve() const;
    /// The solved frame of a view relative to its superview's solved origin,
    /// if it took part in the last solve.
    const QRectF* solvedRect(const View& view) const;

private:
    struct State;
    static LayoutEngine* engineOf(View& view);
    void sync(View& root);
    static void layoutTree(View& view);

    std::unique_ptr<State> _state;
};

}  // namespace platform
