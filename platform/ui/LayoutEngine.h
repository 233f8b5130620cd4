#pragma once

#include <QRectF>

#include <unordered_map>

namespace platform {

class View;

/// Turns the constraints of a view tree into frames.
///
/// A layout pass (View::layoutIfNeeded) asks the engine of the tree's root to
/// solve every constraint held in the tree, together with the intrinsic
/// sizes (hugging 250 / compression resistance 750 by default) of
/// constrained views and the frames of the views that translate their
/// autoresizing masks, and then runs layoutSubviews top-down; the base
/// layoutSubviews writes each constrained subview's solved frame (as centre
/// and bounds size). A window keeps its engine and only re-solves after a
/// change; a tree without a window is solved on every pass. A required
/// constraint that contradicts the others is logged and kept at priority 999.
/// Main thread only.
class LayoutEngine {
public:
    /// Marks the engine of view's tree as needing a new solve.
    static void noteChange(View& view);
    /// Runs a layout pass over the tree whose root is root.
    static void layout(View& root);
    /// Writes the solved frames of view's constrained subviews.
    static void applyFrames(View& view);

    void setNeedsSolve() { _needsSolve = true; }
    bool needsSolve() const { return _needsSolve; }
    /// The solved frame of a view in root coordinates, if it took part.
    const QRectF* solvedRect(const View& view) const;

private:
    void solve(View& root);
    static void layoutTree(View& view);

    bool _needsSolve = true;
    std::unordered_map<const View*, QRectF> _solution;
};

}  // namespace platform
