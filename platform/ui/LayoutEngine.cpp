#include "platform/ui/LayoutEngine.h"

#include "platform/foundation/Log.h"
#include "platform/layout/LayoutError.h"
#include "platform/layout/Solver.h"
#include "platform/ui/View.h"
#include "platform/ui/ViewController.h"
#include "platform/ui/Window.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace platform {

namespace lo = platform::layout;

namespace {

// Layout passes started from inside one (a layoutSubviews that lays out a
// subview) nest at most this deep; a pass re-runs at most this often when
// its own frame writes changed what the solver knows.
constexpr int kMaxNesting = 8;
constexpr int kMaxRounds = 4;
constexpr double kTolerance = 1e-9;

// The pass in progress on this thread, so that layoutSubviews finds its
// engine at once, and how deeply passes nest.
struct PassInProgress {
    int depth = 0;
    LayoutEngine* engine = nullptr;
    const View* root = nullptr;
};
thread_local PassInProgress tlsPass;

bool near(const QRectF& a, const QRectF& b) {
    return std::abs(a.x() - b.x()) < kTolerance && std::abs(a.y() - b.y()) < kTolerance &&
           std::abs(a.width() - b.width()) < kTolerance &&
           std::abs(a.height() - b.height()) < kTolerance;
}

}  // namespace

struct LayoutEngine::State {
    struct Variables {
        lo::Variable left;
        lo::Variable top;
        lo::Variable width;
        lo::Variable height;
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
        std::vector<lo::Constraint> placement;
        std::vector<lo::Constraint> sizeBounds;
        QRectF placedAt;
        std::vector<lo::Constraint> intrinsic;
        QSizeF intrinsicSize{kNoIntrinsicMetric, kNoIntrinsicMetric};
        float priorities[4] = {0, 0, 0, 0};
        QRectF solved;
        bool solvedOnce = false;
        bool pending = false;
        bool seen = false;
    };

    struct ConstraintEntry {
        std::weak_ptr<LayoutConstraint> source;
        lo::Constraint constraint;
        double constant = 0.0;
        float priority = 0.0f;
        bool seen = false;
    };

    lo::Solver solver;
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

    void markPending(ViewEntry& entry) {
        if (!entry.pending) {
            entry.pending = true;
            pending.push_back(&entry);
        }
    }

    void unmarkPending(ViewEntry& entry) {
        if (entry.pending) {
            entry.pending = false;
            pending.erase(std::find(pending.begin(), pending.end(), &entry));
        }
    }

    bool dirty() const {
        return structureChanged || !constants.empty() || !placements.empty() ||
               !intrinsics.empty() || !resized.empty();
    }

    // --- solver access ---------------------------------------------------------

    lo::Constraint addAt(const lo::Constraint& constraint, float priority,
                         const LayoutConstraint* source) {
        const lo::Constraint prioritised(constraint, lo::Strength(priority));
        try {
            solver.addConstraint(prioritised);
            return prioritised;
        } catch (const lo::UnsatisfiableConstraint&) {
            log::write(QStringLiteral("Unable to simultaneously satisfy constraints; breaking %1")
                           .arg(source == nullptr ? constraint.toString() : source->description()));
            const lo::Constraint relaxed(constraint, lo::Strength(999.0));
            solver.addConstraint(relaxed);
            return relaxed;
        }
    }

    void remove(const lo::Constraint& constraint) {
        if (solver.hasConstraint(constraint)) {
            solver.removeConstraint(constraint);
        }
    }

    void updateConstant(const lo::Constraint& constraint, double constant,
                        const std::function<QString()>& describe) {
        try {
            solver.updateConstant(constraint, constant);
        } catch (const lo::LayoutError& error) {
            log::write(QStringLiteral("Unable to change the constant of %1: %2")
                           .arg(describe(), QString::fromUtf8(error.what())));
        }
    }

    // --- views -------------------------------------------------------------------

    // Drops the entry of a view that is gone, constraints and all.
    void eraseEntry(const View* view) {
        if (auto it = views.find(view); it != views.end()) {
            forget(it->second);
            views.erase(it);
        }
    }

    // The entry of a live view. An entry whose view is gone may share its
    // address with a newer view; it is not that view's.
    ViewEntry* find(const View& view) {
        auto it = views.find(&view);
        if (it == views.end() || it->second.view.expired()) {
            return nullptr;
        }
        return &it->second;
    }

    static QRectF placementOf(const View& view, bool isRoot) {
        if (isRoot) {
            return QRectF(QPointF(0, 0), view.bounds().size());
        }
        return view.frame();
    }

    // The constraints placing entry at rect relative to its superview.
    std::vector<lo::Constraint> placementConstraints(const ViewEntry& entry,
                                                     const ViewEntry* parent) {
        const Variables& v = entry.vars;
        lo::Expression left(v.left);
        lo::Expression top(v.top);
        if (parent != nullptr) {
            left = left - lo::Expression(parent->vars.left);
            top = top - lo::Expression(parent->vars.top);
        }
        const QRectF& r = entry.placedAt;
        return {left == r.x(), top == r.y(), lo::Expression(v.width) == r.width(),
                lo::Expression(v.height) == r.height()};
    }

    void place(ViewEntry& entry, View& view, ViewEntry* parent) {
        for (const lo::Constraint& c : entry.placement) {
            remove(c);
        }
        entry.placement.clear();
        entry.parent = parent != nullptr ? view.superview().get() : nullptr;
        entry.parentVars =
            parent != nullptr ? std::optional<Variables>(parent->vars) : std::nullopt;
        entry.pinned = parent == nullptr || view.translatesAutoresizingMaskIntoConstraints();
        entry.placedAt = placementOf(view, parent == nullptr);
        for (const lo::Constraint& c : placementConstraints(entry, parent)) {
            // A constrained view stays where it is only when nothing else
            // says where it goes.
            entry.placement.push_back(addAt(c, entry.pinned ? 1000.0f : 1.0f, nullptr));
        }
    }

    // Moves the pins of a view that translates its mask to its current
    // frame, or the stays of a constrained view to its last solution (so that
    // a view whose constraints went away stays where it was laid out, not
    // where a hand-set frame put it).
    void repin(ViewEntry& entry, View& view) {
        const bool isRoot = entry.parent == nullptr;
        if (!entry.pinned && !entry.solvedOnce) {
            return;
        }
        const QRectF now = entry.pinned ? placementOf(view, isRoot) : entry.solved;
        if (entry.placement.size() != 4 || now == entry.placedAt) {
            return;
        }
        const double before[4] = {entry.placedAt.x(), entry.placedAt.y(), entry.placedAt.width(),
                                  entry.placedAt.height()};
        const double after[4] = {now.x(), now.y(), now.width(), now.height()};
        entry.placedAt = now;
        for (int i = 0; i < 4; ++i) {
            if (before[i] != after[i]) {
                // The pins read `attribute - value == 0`.
                updateConstant(entry.placement[static_cast<std::size_t>(i)], -after[i],
                               [&view] { return view.typeName(); });
            }
        }
    }

    void constrainIntrinsicSize(ViewEntry& entry, View& view) {
        const bool constrained = !entry.pinned;
        const QSizeF size = constrained ? view.intrinsicContentSize()
                                        : QSizeF(kNoIntrinsicMetric, kNoIntrinsicMetric);
        const float priorities[4] = {
            view.contentHuggingPriority(LayoutAxis::Horizontal),
            view.contentCompressionResistancePriority(LayoutAxis::Horizontal),
            view.contentHuggingPriority(LayoutAxis::Vertical),
            view.contentCompressionResistancePriority(LayoutAxis::Vertical)};
        if (size == entry.intrinsicSize &&
            std::equal(std::begin(priorities), std::end(priorities), entry.priorities)) {
            return;
        }
        for (const lo::Constraint& c : entry.intrinsic) {
            remove(c);
        }
        entry.intrinsic.clear();
        entry.intrinsicSize = size;
        std::copy(std::begin(priorities), std::end(priorities), entry.priorities);
        const Variables& v = entry.vars;
        if (size.width() >= 0) {
            entry.intrinsic.push_back(
                addAt(lo::Expression(v.width) <= size.width(), priorities[0], nullptr));
            entry.intrinsic.push_back(
                addAt(lo::Expression(v.width) >= size.width(), priorities[1], nullptr));
        }
        if (size.height() >= 0) {
            entry.intrinsic.push_back(
                addAt(lo::Expression(v.height) <= size.height(), priorities[2], nullptr));
            entry.intrinsic.push_back(
                addAt(lo::Expression(v.height) >= size.height(), priorities[3], nullptr));
        }
    }

    // The entry of a view of the tree, made (with its superview's) on first use.
    ViewEntry& ensure(View& view) {
        const bool isRoot = &view == root;
        ViewPtr superview = isRoot ? nullptr : view.superview();
        ViewEntry* parent = superview ? &ensure(*superview) : nullptr;
        ViewEntry* entry = find(view);
        if (entry == nullptr) {
            eraseEntry(&view);
            entry = &views[&view];
            entry->view = view.weak_from_this();
            entry->self = &view;
            const QString name = view.typeName();
            entry->vars = {lo::Variable(name + QStringLiteral(".left")),
                           lo::Variable(name + QStringLiteral(".top")),
                           lo::Variable(name + QStringLiteral(".width")),
                           lo::Variable(name + QStringLiteral(".height"))};
            // The solver lists the variables it wrote; each leads to its entry.
            for (lo::Variable* variable :
                 {&entry->vars.left, &entry->vars.top, &entry->vars.width, &entry->vars.height}) {
                variable->setContext(entry);
            }
            entry->sizeBounds = {
                addAt(lo::Expression(entry->vars.width) >= 0.0, 1000.0f, nullptr),
                addAt(lo::Expression(entry->vars.height) >= 0.0, 1000.0f, nullptr)};
            place(*entry, view, parent);
        } else if (!entry->seen) {
            const bool pinned = isRoot || view.translatesAutoresizingMaskIntoConstraints();
            const bool sameParent =
                entry->parent == superview.get() &&
                (parent == nullptr
                     ? !entry->parentVars
                     : entry->parentVars && entry->parentVars->left.is(parent->vars.left));
            if (!sameParent || entry->pinned != pinned) {
                place(*entry, view, parent);
            } else {
                repin(*entry, view);
            }
        }
        if (!entry->seen) {
            entry->seen = true;
            constrainIntrinsicSize(*entry, view);
        }
        return *entry;
    }

    // Takes the entry's own constraints out of the solver and its variables
    // out of reach, before the entry goes.
    void forget(ViewEntry& entry) {
        unmarkPending(entry);
        for (lo::Variable* variable :
             {&entry.vars.left, &entry.vars.top, &entry.vars.width, &entry.vars.height}) {
            variable->setContext(nullptr);
        }
        for (const lo::Constraint& c : entry.placement) {
            remove(c);
        }
        for (const lo::Constraint& c : entry.intrinsic) {
            remove(c);
        }
        for (const lo::Constraint& c : entry.sizeBounds) {
            remove(c);
        }
        entry.placement.clear();
        entry.intrinsic.clear();
        entry.sizeBounds.clear();
    }

    // --- constraints --------------------------------------------------------------

    lo::Expression attribute(View& view, LayoutAttribute attribute) {
        const Variables& v = ensure(view).vars;
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

    // The solver's form of a constraint between two views of the tree. Its
    // expression reads `first - (second × multiplier + constant)`.
    std::optional<lo::Constraint> translate(const LayoutConstraint& c) {
        auto first = c.firstItem();
        if (!first || c.firstAttribute() == LayoutAttribute::NotAnAttribute) {
            return std::nullopt;
        }
        const lo::Expression lhs = attribute(*first, c.firstAttribute());
        lo::Expression rhs(c.constant());
        if (auto second = c.secondItem();
            second && c.secondAttribute() != LayoutAttribute::NotAnAttribute) {
            rhs = attribute(*second, c.secondAttribute()) * c.multiplier() + c.constant();
        }
        return c.relation() == LayoutRelation::Equal             ? lhs == rhs
               : c.relation() == LayoutRelation::LessThanOrEqual ? lhs <= rhs
                                                                 : lhs >= rhs;
    }

    void include(const LayoutConstraintPtr& c) {
        auto it = constraints.find(c.get());
        if (it != constraints.end() && it->second.source.lock() == c) {
            ConstraintEntry& entry = it->second;
            entry.seen = true;
            if (entry.priority != c->priority()) {
                remove(entry.constraint);
                constraints.erase(it);
            } else {
                if (entry.constant != c->constant()) {
                    entry.constant = c->constant();
                    updateConstant(entry.constraint, -entry.constant,
                                   [&c] { return c->description(); });
                }
                return;
            }
        } else if (it != constraints.end()) {
            remove(it->second.constraint);
            constraints.erase(it);
        }
        const auto translated = translate(*c);
        if (!translated) {
            return;
        }
        ConstraintEntry entry{c, addAt(*translated, c->priority(), c.get()), c->constant(),
                              c->priority(), true};
        constraints.emplace(c.get(), std::move(entry));
    }

    // --- passes -------------------------------------------------------------------

    void rebuild(View& top) {
        for (auto& [view, entry] : views) {
            entry.seen = false;
        }
        for (auto& [key, entry] : constraints) {
            entry.seen = false;
        }
        std::vector<LayoutConstraintPtr> held;
        collect(top, top, held);
        for (const LayoutConstraintPtr& c : held) {
            include(c);
        }
        for (auto it = constraints.begin(); it != constraints.end();) {
            if (!it->second.seen) {
                remove(it->second.constraint);
                it = constraints.erase(it);
            } else {
                ++it;
            }
        }
        for (auto it = views.begin(); it != views.end();) {
            if (!it->second.seen) {
                forget(it->second);
                it = views.erase(it);
            } else {
                ++it;
            }
        }
    }

    void collect(View& view, View& top, std::vector<LayoutConstraintPtr>& held) {
        if (&view != &top && !view.translatesAutoresizingMaskIntoConstraints()) {
            ensure(view);
        }
        for (const LayoutConstraintPtr& c : view.constraints()) {
            auto first = c->firstItem();
            auto second = c->secondItem();
            if (first && first->isDescendantOfView(&top) &&
                (!second || second->isDescendantOfView(&top))) {
                held.push_back(c);
            }
        }
        for (const ViewPtr& s : view.subviews()) {
            collect(*s, top, held);
        }
    }

    void reapplyInside(View& view) {
        bool any = false;
        for (const ViewPtr& s : view.subviews()) {
            if (ViewEntry* entry = find(*s); entry != nullptr && !entry->pinned) {
                markPending(*entry);
                any = true;
            }
        }
        if (any) {
            view.setNeedsLayout();
        }
    }

    void applyNotes() {
        for (const auto& weak : placements) {
            if (auto view = weak.lock()) {
                if (ViewEntry* entry = find(*view); entry != nullptr && entry->pinned) {
                    repin(*entry, *view);
                }
            }
        }
        for (const auto& weak : intrinsics) {
            if (auto view = weak.lock()) {
                if (ViewEntry* entry = find(*view)) {
                    constrainIntrinsicSize(*entry, *view);
                }
            }
        }
        for (const LayoutConstraint* c : constants) {
            auto it = constraints.find(c);
            if (it != constraints.end() && !it->second.source.expired() &&
                it->second.constant != c->constant()) {
                it->second.constant = c->constant();
                updateConstant(it->second.constraint, -it->second.constant,
                               [&c] { return c->description(); });
            }
        }
    }

    void readSolution() {
        const std::vector<const lo::Variable*>* written = solver.updateChangedVariables();
        if (written == nullptr) {
            for (auto& [key, entry] : views) {
                readEntry(entry);
            }
            return;
        }
        // Only constants moved: only the views whose variables were written
        // and the views placed relative to them can have moved.
        const ViewEntry* last = nullptr;
        for (const lo::Variable* variable : *written) {
            auto* entry = static_cast<ViewEntry*>(variable->context());
            if (entry == nullptr || entry == last || entry->view.expired()) {
                continue;
            }
            last = entry;
            readEntry(*entry);
            for (const ViewPtr& s : entry->self->subviews()) {
                if (ViewEntry* child = find(*s); child != nullptr && child->parent == entry->self) {
                    readEntry(*child);
                }
            }
        }
    }

    // Takes the entry's solution; a view whose place relative to its
    // superview moved gets written by its superview's next layoutSubviews.
    void readEntry(ViewEntry& entry) {
        const Variables& v = entry.vars;
        QRectF rect(v.left.value(), v.top.value(), v.width.value(), v.height.value());
        if (entry.parentVars) {
            rect.translate(-entry.parentVars->left.value(), -entry.parentVars->top.value());
        }
        if (entry.solvedOnce && near(rect, entry.solved)) {
            return;
        }
        entry.solved = rect;
        entry.solvedOnce = true;
        if (entry.pinned) {
            return;
        }
        markPending(entry);
        if (!entry.view.expired() && entry.self->_superviewPointer != nullptr) {
            entry.self->_superviewPointer->setNeedsLayout();
        }
    }
};

LayoutEngine::LayoutEngine() : _state(std::make_unique<State>()) {}

LayoutEngine::~LayoutEngine() = default;

bool LayoutEngine::needsSolve() const {
    return _state->dirty();
}

const QRectF* LayoutEngine::solvedRect(const View& view) const {
    const State::ViewEntry* entry = _state->find(view);
    return entry == nullptr || !entry->solvedOnce ? nullptr : &entry->solved;
}

LayoutEngine* LayoutEngine::engineOf(View& view) {
    View* root = &view;
    while (root->_superviewPointer != nullptr) {
        root = root->_superviewPointer;
    }
    return root->_rootLayoutEngine.get();
}

void LayoutEngine::noteStructureChange(View& view) {
    if (LayoutEngine* engine = engineOf(view)) {
        engine->_state->structureChanged = true;
    }
}

void LayoutEngine::noteConstantChange(View& owner, const LayoutConstraint& constraint) {
    if (LayoutEngine* engine = engineOf(owner)) {
        engine->_state->constants.push_back(&constraint);
    }
}

void LayoutEngine::notePlacementChange(View& view) {
    if (LayoutEngine* engine = engineOf(view)) {
        engine->_state->placements.push_back(view.weak_from_this());
    }
}

void LayoutEngine::noteResize(View& view) {
    if (view.subviews().empty()) {
        return;
    }
    if (LayoutEngine* engine = engineOf(view)) {
        engine->_state->resized.push_back(view.weak_from_this());
    }
}

void LayoutEngine::noteIntrinsicChange(View& view) {
    if (LayoutEngine* engine = engineOf(view)) {
        engine->_state->intrinsics.push_back(view.weak_from_this());
    }
}

void LayoutEngine::sync(View& root) {
    if (_state->root != &root) {
        // A new root: start from nothing.
        _state = std::make_unique<State>();
        _state->root = &root;
    }
    State& state = *_state;
    if (state.structureChanged) {
        state.rebuild(root);
    } else {
        state.applyNotes();
    }
    state.structureChanged = false;
    state.constants.clear();
    state.placements.clear();
    state.intrinsics.clear();
    state.readSolution();
    for (const auto& weak : std::exchange(state.resized, {})) {
        if (auto view = weak.lock()) {
            state.reapplyInside(*view);
        }
    }
}

void LayoutEngine::layoutTree(View& view) {
    if (view._needsLayout) {
        view._needsLayout = false;
        if (auto controller = view.viewController()) {
            controller->runLayoutPass([&] { view.layoutSubviews(); });
        } else {
            view.layoutSubviews();
        }
        view.layer()->layoutIfNeeded();
    }
    if (!view._subtreeNeedsLayout) {
        return;
    }
    view._subtreeNeedsLayout = false;
    // The subviews that asked, held: layoutSubviews may change the list.
    // Usually one asked, and then nothing is allocated. One that an earlier
    // sibling's layout marks re-marks this view, and the pass goes round again.
    ViewPtr first;
    std::vector<ViewPtr> more;
    for (const ViewPtr& s : view.subviews()) {
        if (s->_needsLayout || s->_subtreeNeedsLayout) {
            if (!first) {
                first = s;
            } else {
                more.push_back(s);
            }
        }
    }
    if (first) {
        layoutTree(*first);
    }
    for (const ViewPtr& s : more) {
        if (s->_needsLayout || s->_subtreeNeedsLayout) {
            layoutTree(*s);
        }
    }
}

void LayoutEngine::layout(View& root) {
    PassInProgress& pass = tlsPass;
    if (pass.depth >= kMaxNesting) {
        return;
    }
    if (!root._rootLayoutEngine) {
        root._rootLayoutEngine = std::make_unique<LayoutEngine>();
    }
    LayoutEngine* const engine = root._rootLayoutEngine.get();
    ++pass.depth;
    LayoutEngine* const outerEngine = std::exchange(pass.engine, engine);
    const View* const outerRoot = std::exchange(pass.root, &root);
    // A pass whose frame writes changed what the solver knows (a translated
    // subview resized with its superview) runs again, a few times at most.
    for (int round = 0; round < kMaxRounds; ++round) {
        if (root._subtreeNeedsUpdateConstraints || root._needsUpdateConstraints) {
            root.updateConstraintsIfNeeded();
        }
        if (engine->_state->dirty() || engine->_state->root != &root) {
            engine->sync(root);
        }
        if (!root._needsLayout && !root._subtreeNeedsLayout) {
            break;
        }
        layoutTree(root);
        if (!engine->_state->dirty() && !root._needsLayout && !root._subtreeNeedsLayout) {
            break;
        }
    }
    pass.engine = outerEngine;
    pass.root = outerRoot;
    --pass.depth;
}

void LayoutEngine::applyFrames(View& view) {
    const PassInProgress& pass = tlsPass;
    LayoutEngine* engine = pass.engine;
    if (engine == nullptr || !view.isDescendantOfView(pass.root)) {
        engine = engineOf(view);
    }
    if (engine == nullptr) {
        return;
    }
    State& state = *engine->_state;
    // By index: writing a frame may lay out more and add to the list.
    for (std::size_t i = 0; i < state.pending.size();) {
        State::ViewEntry* entry = state.pending[i];
        if (entry->parent != &view || entry->view.expired() ||
            entry->self->_superviewPointer != &view ||
            entry->self->translatesAutoresizingMaskIntoConstraints()) {
            ++i;
            continue;
        }
        state.pending.erase(state.pending.begin() + static_cast<std::ptrdiff_t>(i));
        entry->pending = false;
        // Held by view, whose layoutSubviews this is.
        View* const s = entry->self;
        const QRectF solved = entry->solved;
        const QRectF bounds = s->bounds();
        if (bounds.size() != solved.size()) {
            s->setBounds(QRectF(bounds.topLeft(), solved.size()));
        }
        if (s->center() != solved.center()) {
            s->setCenter(solved.center());
        }
    }
}

}  // namespace platform
