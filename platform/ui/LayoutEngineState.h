#pragma once

// The layout engine's state: the solver and what it knows of a view tree.
// Private to the layout engine's sources.

#include "platform/layout/Constraint.h"
#include "platform/layout/Expression.h"
#include "platform/layout/Solver.h"
#include "platform/layout/Variable.h"
#include "platform/ui/LayoutConstraint.h"
#include "platform/ui/LayoutEngine.h"
#include "platform/ui/View.h"

#include <QRectF>
#include <QSizeF>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace platform {

struct LayoutEngine::State {
    struct Variables {
        layout::Variable left;
        layout::Variable top;
        layout::Variable width;
        layout::Variable height;
    };

    // A view that takes part: its variables, where it is placed relative to
    // its superview (required pins for views that translate their masks and
    // for the root, weakest stays for constrained views), its intrinsic-size
    // constraints, and its solution relative to its superview.
    struct ViewEntry {
        std::weak_ptr<View> view;
        // The view itself, to be used only while `view` has not expired.
        View* self = nullptr;
        const View* parent = nullptr;
        // The superview's variables the placement refers to (null handles
        // for the root): the solution is read relative to them.
        std::optional<Variables> parentVars;
        Variables vars;
        bool pinned = false;
        std::vector<layout::Constraint> placement;
        std::vector<layout::Constraint> sizeBounds;
        QRectF placedAt;
        std::vector<layout::Constraint> intrinsic;
        QSizeF intrinsicSize{kNoIntrinsicMetric, kNoIntrinsicMetric};
        float priorities[4] = {0, 0, 0, 0};
        QRectF solved;
        bool solvedOnce = false;
        bool pending = false;
        bool seen = false;
    };

    struct ConstraintEntry {
        std::weak_ptr<LayoutConstraint> source;
        layout::Constraint constraint;
        double constant = 0.0;
        float priority = 0.0f;
        bool seen = false;
    };

    layout::Solver solver;
    std::unordered_map<const View*, ViewEntry> views;
    std::unordered_map<const LayoutConstraint*, ConstraintEntry> constraints;
    bool structureChanged = true;
    // Constraints whose constants changed. Only looked at when the tree kept
    // its structure since the last pass, and then only those still known:
    // each is held by a view of the tree.
    std::vector<const LayoutConstraint*> constants;
    std::vector<std::weak_ptr<View>> placements;
    std::vector<std::weak_ptr<View>> intrinsics;
    std::vector<std::weak_ptr<View>> resized;
    const View* root = nullptr;
    // The entries whose solution waits for their superview's layoutSubviews.
    std::vector<ViewEntry*> pending;

    void markPending(ViewEntry& entry);

    void unmarkPending(ViewEntry& entry);

    bool dirty() const;

    // --- solver access ---------------------------------------------------------

    layout::Constraint addAt(const layout::Constraint& constraint, float priority,
                             const LayoutConstraint* source);

    void remove(const layout::Constraint& constraint);

    void updateConstant(const layout::Constraint& constraint, double constant,
                        const std::function<QString()>& describe);

    // --- views -------------------------------------------------------------------

    // Drops the entry of a view that is gone, constraints and all.
    void eraseEntry(const View* view);

    // The entry of a live view. An entry whose view is gone may share its
    // address with a newer view; it is not that view's.
    ViewEntry* find(const View& view);

    static QRectF placementOf(const View& view, bool isRoot);

    // The constraints placing entry at rect relative to its superview.
    std::vector<layout::Constraint> placementConstraints(const ViewEntry& entry,
                                                         const ViewEntry* parent);

    void place(ViewEntry& entry, View& view, ViewEntry* parent);

    // Moves the pins of a view that translates its mask to its current
    // frame, or the stays of a constrained view to its last solution (so that
    // a view whose constraints went away stays where it was laid out, not
    // where a hand-set frame put it).
    void repin(ViewEntry& entry, View& view);

    void constrainIntrinsicSize(ViewEntry& entry, View& view);

    // The entry of a view of the tree, made (with its superview's) on first use.
    ViewEntry& ensure(View& view);

    // Takes the entry's own constraints out of the solver and its variables
    // out of reach, before the entry goes.
    void forget(ViewEntry& entry);

    // --- constraints --------------------------------------------------------------

    layout::Expression attribute(View& view, LayoutAttribute attribute);

    // The solver's form of a constraint between two views of the tree. Its
    // expression reads `first - (second × multiplier + constant)`.
    std::optional<layout::Constraint> translate(const LayoutConstraint& c);

    void include(const LayoutConstraintPtr& c);

    // --- passes -------------------------------------------------------------------

    void rebuild(View& top);

    void collect(View& view, View& top, std::vector<LayoutConstraintPtr>& held);

    void reapplyInside(View& view);

    void applyNotes();

    void readSolution();

    // Takes the entry's solution; a view whose place relative to its
    // superview moved gets written by its superview's next layoutSubviews.
    void readEntry(ViewEntry& entry);
};

}  // namespace platform
