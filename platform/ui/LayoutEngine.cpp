#include "platform/ui/LayoutEngine.h"

#include "platform/foundation/Log.h"
#include "platform/layout/LayoutError.h"
#include "platform/layout/Solver.h"
#include "platform/ui/View.h"
#include "platform/ui/ViewController.h"
#include "platform/ui/Window.h"

#include <functional>
#include <memory>
#include <vector>

namespace platform {
namespace {

namespace lo = platform::layout;

// While frames are written from a solution, those changes must not mark the
// solution stale again.
thread_local bool tlsApplying = false;
// The engine of the pass in progress, so that layoutSubviews can read it,
// and the root it lays out.
thread_local LayoutEngine* tlsCurrent = nullptr;
thread_local const View* tlsCurrentRoot = nullptr;

struct ViewVariables {
    lo::Variable left;
    lo::Variable top;
    lo::Variable width;
    lo::Variable height;
};

class SystemBuilder {
public:
    explicit SystemBuilder(View& root) : _root(root) {}

    void build() {
        collect(_root);
        for (const auto& [view, constraint] : _constraints) {
            add(*constraint);
        }
        for (View* view : _constrained) {
            addIntrinsicSize(*view);
            addStay(*view);
        }
    }

    void solve() { _solver.updateVariables(); }

    std::unordered_map<const View*, QRectF> solution() const {
        std::unordered_map<const View*, QRectF> result;
        for (const auto& [view, vars] : _variables) {
            result[view] = QRectF(vars.left.value(), vars.top.value(), vars.width.value(),
                                  vars.height.value());
        }
        return result;
    }

    bool empty() const { return _constraints.empty() && _constrained.empty(); }

private:
    void collect(View& view) {
        if (!view.translatesAutoresizingMaskIntoConstraints() && &view != &_root) {
            _constrained.push_back(&view);
        }
        for (const LayoutConstraintPtr& c : view.constraints()) {
            auto first = c->firstItem();
            auto second = c->secondItem();
            if (first && first->isDescendantOfView(&_root) &&
                (!second || second->isDescendantOfView(&_root))) {
                _constraints.emplace_back(&view, c);
            }
        }
        for (const ViewPtr& s : view.subviews()) {
            collect(*s);
        }
    }

    // The variables of a view, made on first use. Views that are not laid
    // out by constraints are pinned to their current frames, and so is the
    // root to its bounds.
    ViewVariables& variablesOf(View& view) {
        auto it = _variables.find(&view);
        if (it != _variables.end()) {
            return it->second;
        }
        const QString name = view.typeName();
        ViewVariables vars{lo::Variable(name + QStringLiteral(".left")),
                           lo::Variable(name + QStringLiteral(".top")),
                           lo::Variable(name + QStringLiteral(".width")),
                           lo::Variable(name + QStringLiteral(".height"))};
        auto& stored = _variables.emplace(&view, vars).first->second;
        const bool pinned = &view == &_root || view.translatesAutoresizingMaskIntoConstraints();
        if (pinned) {
            const QRectF rect = &view == &_root ? QRectF(QPointF(0, 0), view.bounds().size())
                                                : view.convertRectToView(view.bounds(), &_root);
            addRequired(lo::Expression(stored.left) == rect.x());
            addRequired(lo::Expression(stored.top) == rect.y());
            addRequired(lo::Expression(stored.width) == rect.width());
            addRequired(lo::Expression(stored.height) == rect.height());
        } else {
            addRequired(lo::Expression(stored.width) >= 0.0);
            addRequired(lo::Expression(stored.height) >= 0.0);
        }
        return stored;
    }

    lo::Expression attribute(View& view, LayoutAttribute attribute) {
        ViewVariables& v = variablesOf(view);
        switch (attribute) {
            case LayoutAttribute::Left:
            case LayoutAttribute::Leading:
                return v.left;
            case LayoutAttribute::Right:
            case LayoutAttribute::Trailing:
                return v.left + v.width;
            case LayoutAttribute::Top:
                return v.top;
            case LayoutAttribute::Bottom:
                return v.top + v.height;
            case LayoutAttribute::Width:
                return v.width;
            case LayoutAttribute::Height:
                return v.height;
            case LayoutAttribute::CenterX:
                return v.left + 0.5 * lo::Expression(v.width);
            case LayoutAttribute::CenterY:
                return v.top + 0.5 * lo::Expression(v.height);
            case LayoutAttribute::NotAnAttribute:
                break;
        }
        return lo::Expression(0.0);
    }

    void add(const LayoutConstraint& c) {
        auto first = c.firstItem();
        if (!first || c.firstAttribute() == LayoutAttribute::NotAnAttribute) {
            return;
        }
        const lo::Expression lhs = attribute(*first, c.firstAttribute());
        lo::Expression rhs(c.constant());
        if (auto second = c.secondItem();
            second && c.secondAttribute() != LayoutAttribute::NotAnAttribute) {
            rhs = attribute(*second, c.secondAttribute()) * c.multiplier() + c.constant();
        }
        lo::Constraint constraint = c.relation() == LayoutRelation::Equal             ? lhs == rhs
                                    : c.relation() == LayoutRelation::LessThanOrEqual ? lhs <= rhs
                                                                                      : lhs >= rhs;
        addAt(constraint, c.priority(), c.description());
    }

    void addIntrinsicSize(View& view) {
        const QSizeF intrinsic = view.intrinsicContentSize();
        ViewVariables& v = variablesOf(view);
        if (intrinsic.width() >= 0) {
            addAt(lo::Expression(v.width) <= intrinsic.width(),
                  view.contentHuggingPriority(LayoutAxis::Horizontal), {});
            addAt(lo::Expression(v.width) >= intrinsic.width(),
                  view.contentCompressionResistancePriority(LayoutAxis::Horizontal), {});
        }
        if (intrinsic.height() >= 0) {
            addAt(lo::Expression(v.height) <= intrinsic.height(),
                  view.contentHuggingPriority(LayoutAxis::Vertical), {});
            addAt(lo::Expression(v.height) >= intrinsic.height(),
                  view.contentCompressionResistancePriority(LayoutAxis::Vertical), {});
        }
    }

    // Keeps an underconstrained view where it is rather than at an
    // arbitrary place, at the weakest priority.
    void addStay(View& view) {
        ViewVariables& v = variablesOf(view);
        const QRectF rect = view.convertRectToView(view.bounds(), &_root);
        addAt(lo::Expression(v.left) == rect.x(), 1.0f, {});
        addAt(lo::Expression(v.top) == rect.y(), 1.0f, {});
        addAt(lo::Expression(v.width) == rect.width(), 1.0f, {});
        addAt(lo::Expression(v.height) == rect.height(), 1.0f, {});
    }

    void addRequired(const lo::Constraint& constraint) { addAt(constraint, 1000.0f, {}); }

    void addAt(const lo::Constraint& constraint, float priority, const QString& description) {
        const lo::Constraint prioritised(constraint, lo::Strength(priority));
        try {
            _solver.addConstraint(prioritised);
        } catch (const lo::UnsatisfiableConstraint&) {
            log::write(QStringLiteral("Unable to simultaneously satisfy constraints; breaking %1")
                           .arg(description.isEmpty() ? constraint.toString() : description));
            _solver.addConstraint(lo::Constraint(constraint, lo::Strength(999.0)));
        } catch (const lo::LayoutError& error) {
            log::write(QStringLiteral("Layout: %1").arg(QString::fromUtf8(error.what())));
        }
    }

    View& _root;
    lo::Solver _solver;
    std::vector<std::pair<View*, LayoutConstraintPtr>> _constraints;
    std::vector<View*> _constrained;
    std::unordered_map<const View*, ViewVariables> _variables;
};

View& rootOf(View& view) {
    View* root = &view;
    while (auto parent = root->superview()) {
        root = parent.get();
    }
    return *root;
}

void markAllNeedLayout(View& view) {
    view.setNeedsLayout();
    for (const ViewPtr& s : view.subviews()) {
        markAllNeedLayout(*s);
    }
}

}  // namespace

void LayoutEngine::layoutTree(View& view) {
    if (view.needsLayout()) {
        view._needsLayout = false;
        if (auto controller = view.viewController()) {
            controller->runLayoutPass([&] { view.layoutSubviews(); });
        } else {
            view.layoutSubviews();
        }
        view.layer()->layoutIfNeeded();
    }
    // Copy: layoutSubviews may change the subviews.
    const std::vector<ViewPtr> subviews = view.subviews();
    for (const ViewPtr& s : subviews) {
        layoutTree(*s);
    }
}

void LayoutEngine::noteChange(View& view) {
    if (tlsApplying) {
        return;
    }
    if (auto window = view.window()) {
        window->layoutEngine().setNeedsSolve();
    }
}

const QRectF* LayoutEngine::solvedRect(const View& view) const {
    auto it = _solution.find(&view);
    return it == _solution.end() ? nullptr : &it->second;
}

void LayoutEngine::solve(View& root) {
    SystemBuilder builder(root);
    builder.build();
    builder.solve();
    _solution = builder.solution();
    _needsSolve = false;
}

void LayoutEngine::layout(View& root) {
    root.updateConstraintsIfNeeded();
    auto* window = dynamic_cast<Window*>(&root);
    LayoutEngine detached;
    // A tree without a window is solved afresh on every pass, except for a
    // pass started from inside one of its own (a layoutSubviews that lays out
    // a subview): that one keeps the outer pass's solution instead of
    // solving, and re-entering, forever.
    const bool nested = tlsCurrent != nullptr && tlsCurrentRoot == &root;
    LayoutEngine& engine = window != nullptr ? window->layoutEngine()
                           : nested          ? *tlsCurrent
                                             : detached;
    if (engine._needsSolve) {
        engine.solve(root);
        markAllNeedLayout(root);
    }
    LayoutEngine* previous = tlsCurrent;
    const View* previousRoot = tlsCurrentRoot;
    tlsCurrent = &engine;
    tlsCurrentRoot = &root;
    layoutTree(root);
    tlsCurrent = previous;
    tlsCurrentRoot = previousRoot;
}

void LayoutEngine::applyFrames(View& view) {
    if (tlsCurrent == nullptr) {
        return;
    }
    View& root = rootOf(view);
    const bool wasApplying = tlsApplying;
    tlsApplying = true;
    for (const ViewPtr& s : view.subviews()) {
        if (s->translatesAutoresizingMaskIntoConstraints()) {
            continue;
        }
        const QRectF* solved = tlsCurrent->solvedRect(*s);
        if (solved == nullptr) {
            continue;
        }
        const QPointF centre = view.convertPointFromView(solved->center(), &root);
        const QRectF bounds = s->bounds();
        if (bounds.size() != solved->size()) {
            s->setBounds(QRectF(bounds.topLeft(), solved->size()));
        }
        if (s->center() != centre) {
            s->setCenter(centre);
        }
    }
    tlsApplying = wasApplying;
}

}  // namespace platform
