#include "platform/ui/LayoutConstraint.h"

#include "platform/foundation/Log.h"
#include "platform/layout/VisualFormat.h"
#include "platform/ui/LayoutEngine.h"
#include "platform/ui/View.h"

#include <algorithm>
#include <cmath>

namespace platform {
namespace {

// The nearest view that both items belong to: where an activated
// constraint is held.
ViewPtr commonAncestor(const ViewPtr& a, const ViewPtr& b) {
    if (!b) {
        return a;
    }
    for (ViewPtr v = a; v; v = v->superview()) {
        if (b->isDescendantOfView(v.get())) {
            return v;
        }
    }
    return nullptr;
}

}  // namespace

std::shared_ptr<LayoutConstraint> LayoutConstraint::create(const ViewPtr& firstItem,
                                                           LayoutAttribute firstAttribute,
                                                           LayoutRelation relation,
                                                           const ViewPtr& secondItem,
                                                           LayoutAttribute secondAttribute,
                                                           double multiplier, double constant) {
    std::shared_ptr<LayoutConstraint> c(new LayoutConstraint());
    c->_firstItem = firstItem;
    c->_firstAttribute = firstAttribute;
    c->_relation = relation;
    c->_secondItem = secondItem;
    c->_secondAttribute = secondItem ? secondAttribute : LayoutAttribute::NotAnAttribute;
    c->_multiplier = multiplier;
    c->_constant = constant;
    return c;
}

void LayoutConstraint::setConstant(double constant) {
    if (_constant == constant) {
        return;
    }
    _constant = constant;
    if (auto view = owner()) {
        // The next layout pass updates the solver's constant in place.
        LayoutEngine::noteConstantChange(*view, *this);
        view->setNeedsLayout();
    }
}

void LayoutConstraint::setPriority(float priority) {
    priority = std::clamp(priority, 1.0f, layout_priority::kRequired);
    const bool wasRequired = _priority >= layout_priority::kRequired;
    const bool isRequired = priority >= layout_priority::kRequired;
    if (owner() && wasRequired != isRequired) {
        log::write(QStringLiteral("Mutating a priority from required to not on an installed "
                                  "constraint (or vice-versa) is not supported: %1")
                       .arg(description()));
        return;
    }
    _priority = priority;
    if (auto view = owner()) {
        LayoutEngine::noteStructureChange(*view);
        view->setNeedsUpdateConstraints();
    }
}

bool LayoutConstraint::isActive() const {
    return !_owner.expired();
}

void LayoutConstraint::setActive(bool active) {
    if (active == isActive()) {
        return;
    }
    if (!active) {
        if (auto view = owner()) {
            view->removeConstraint(shared_from_this());
        }
        return;
    }
    if (auto holder = commonAncestor(firstItem(), secondItem())) {
        holder->addConstraint(shared_from_this());
    } else {
        log::write(QStringLiteral("Unable to activate constraint with items that have no common "
                                  "ancestor: %1")
                       .arg(description()));
    }
}

std::vector<std::shared_ptr<LayoutConstraint>> LayoutConstraint::constraintsWithVisualFormat(
    const QString& format, unsigned options, const QVariantMap& metrics,
    const std::map<QString, ViewPtr>& views) {
    QStringList names;
    for (const auto& [name, view] : views) {
        names << name;
    }
    // The superview is the one of the views named in the format.
    ViewPtr superview;
    auto resolve = [&](const layout::FormatItem& item) -> ViewPtr {
        switch (item.kind) {
            case layout::FormatItem::Kind::View: {
                auto it = views.find(item.name);
                return it == views.end() ? nullptr : it->second;
            }
            case layout::FormatItem::Kind::Superview:
                return superview;
            case layout::FormatItem::Kind::None:
                break;
        }
        return nullptr;
    };
    const auto described = layout::parseVisualFormat(format, options, metrics, names);
    for (const auto& d : described) {
        for (const auto* item : {&d.firstItem, &d.secondItem}) {
            if (item->kind == layout::FormatItem::Kind::View && !superview) {
                if (auto view = resolve(*item)) {
                    superview = view->superview();
                }
            }
        }
    }
    std::vector<std::shared_ptr<LayoutConstraint>> result;
    for (const auto& d : described) {
        auto first = resolve(d.firstItem);
        if (!first) {
            continue;
        }
        auto c = create(first, d.firstAttribute, static_cast<LayoutRelation>(d.relation),
                        resolve(d.secondItem), d.secondAttribute, d.multiplier, d.constant);
        c->_priority = static_cast<float>(d.priority);
        result.push_back(std::move(c));
    }
    return result;
}

void LayoutConstraint::activateConstraints(
    const std::vector<std::shared_ptr<LayoutConstraint>>& list) {
    for (const auto& c : list) {
        c->setActive(true);
    }
}

void LayoutConstraint::deactivateConstraints(
    const std::vector<std::shared_ptr<LayoutConstraint>>& list) {
    for (const auto& c : list) {
        c->setActive(false);
    }
}

QString LayoutConstraint::description() const {
    auto name = [](const ViewPtr& v) {
        return v ? QStringLiteral("%1(%2)")
                       .arg(v->typeName())
                       .arg(reinterpret_cast<quintptr>(v.get()), 0, 16)
                 : QStringLiteral("nil");
    };
    const QString relation = _relation == LayoutRelation::Equal             ? QStringLiteral("==")
                             : _relation == LayoutRelation::LessThanOrEqual ? QStringLiteral("<=")
                                                                            : QStringLiteral(">=");
    QString text = QStringLiteral("%1.%2 %3 ")
                       .arg(name(firstItem()), layout::attributeName(_firstAttribute), relation);
    if (auto second = secondItem()) {
        text += QStringLiteral("%1.%2").arg(name(second), layout::attributeName(_secondAttribute));
        if (_multiplier != 1.0) {
            text += QStringLiteral(" * %1").arg(_multiplier);
        }
        if (_constant != 0.0) {
            text +=
                QStringLiteral(" %1 %2").arg(_constant < 0 ? u'-' : u'+').arg(std::abs(_constant));
        }
    } else {
        text += QString::number(_constant);
    }
    if (_priority < layout_priority::kRequired) {
        text += QStringLiteral(" @%1").arg(_priority);
    }
    return text;
}

}  // namespace platform
