#include "platform/ui/LayoutEngineState.h"

#include "platform/foundation/Log.h"
#include "platform/layout/LayoutError.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace platform {

namespace lo = platform::layout;

namespace {

// Solutions closer than this to the last one written count as unchanged.
constexpr double kTolerance = 1e-9;

bool near(const QRectF& a, const QRectF& b) {
    return std::abs(a.x() - b.x()) < kTolerance && std::abs(a.y() - b.y()) < kTolerance &&
           std::abs(a.width() - b.width()) < kTolerance &&
           std::abs(a.height() - b.height()) < kTolerance;
}

}  // namespace

void LayoutEngine::State::markPending(ViewEntry& entry) {
    if (!entry.pending) {
        entry.pending = true;
        pending.push_back(&entry);
    }
}

void LayoutEngine::State::unmarkPending(ViewEntry& entry) {
    if (entry.pending) {
        entry.pending = false;
        pending.erase(std::find(pending.begin(), pending.end(), &entry));
    }
}

bool LayoutEngine::State::dirty() const {
    return structureChanged || !constants.empty() || !placements.empty() || !intrinsics.empty() ||
           !resized.empty();
}

auto LayoutEngine::State::addAt(const lo::Constraint& constraint, float priority,
                                const LayoutConstraint* source) -> lo::Constraint {
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

void LayoutEngine::State::remove(const lo::Constraint& constraint) {
    if (solver.hasConstraint(constraint)) {
        solver.removeConstraint(constraint);
    }
}

void LayoutEngine::State::updateConstant(const lo::Constraint& constraint, double constant,
                                         const std::function<QString()>& describe) {
    try {
        solver.updateConstant(constraint, constant);
    } catch (const lo::LayoutError& error) {
        log::write(QStringLiteral("Unable to change the constant of %1: %2")
                       .arg(describe(), QString::fromUtf8(error.what())));
    }
}

void LayoutEngine::State::eraseEntry(const View* view) {
    if (auto it = views.find(view); it != views.end()) {
        forget(it->second);
        views.erase(it);
    }
}

auto LayoutEngine::State::find(const View& view) -> ViewEntry* {
    auto it = views.find(&view);
    if (it == views.end() || it->second.view.expired()) {
        return nullptr;
    }
    return &it->second;
}

auto LayoutEngine::State::placementOf(const View& view, bool isRoot) -> QRectF {
    if (isRoot) {
        return QRectF(QPointF(0, 0), view.bounds().size());
    }
    return view.frame();
}

auto LayoutEngine::State::placementConstraints(const ViewEntry& entry, const ViewEntry* parent)
    -> std::vector<lo::Constraint> {
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

void LayoutEngine::State::place(ViewEntry& entry, View& view, ViewEntry* parent) {
    for (const lo::Constraint& c : entry.placement) {
        remove(c);
    }
    entry.placement.clear();
    entry.parent = parent != nullptr ? view.superview().get() : nullptr;
    entry.parentVars = parent != nullptr ? std::optional<Variables>(parent->vars) : std::nullopt;
    entry.pinned = parent == nullptr || view.translatesAutoresizingMaskIntoConstraints();
    entry.placedAt = placementOf(view, parent == nullptr);
    for (const lo::Constraint& c : placementConstraints(entry, parent)) {
        // A constrained view stays where it is only when nothing else
        // says where it goes.
        entry.placement.push_back(addAt(c, entry.pinned ? 1000.0f : 1.0f, nullptr));
    }
}

void LayoutEngine::State::repin(ViewEntry& entry, View& view) {
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

void LayoutEngine::State::constrainIntrinsicSize(ViewEntry& entry, View& view) {
    const bool constrained = !entry.pinned;
    const QSizeF size =
        constrained ? view.intrinsicContentSize() : QSizeF(kNoIntrinsicMetric, kNoIntrinsicMetric);
    const float priorities[4] = {view.contentHuggingPriority(LayoutAxis::Horizontal),
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

auto LayoutEngine::State::ensure(View& view) -> ViewEntry& {
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
        entry->sizeBounds = {addAt(lo::Expression(entry->vars.width) >= 0.0, 1000.0f, nullptr),
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

void LayoutEngine::State::forget(ViewEntry& entry) {
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

auto LayoutEngine::State::attribute(View& view, LayoutAttribute attribute) -> lo::Expression {
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

auto LayoutEngine::State::translate(const LayoutConstraint& c) -> std::optional<lo::Constraint> {
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

void LayoutEngine::State::include(const LayoutConstraintPtr& c) {
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

void LayoutEngine::State::rebuild(View& top) {
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

void LayoutEngine::State::collect(View& view, View& top, std::vector<LayoutConstraintPtr>& held) {
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

void LayoutEngine::State::reapplyInside(View& view) {
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

void LayoutEngine::State::applyNotes() {
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

void LayoutEngine::State::readSolution() {
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

void LayoutEngine::State::readEntry(ViewEntry& entry) {
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

}  // namespace platform
