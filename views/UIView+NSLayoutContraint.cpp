#include "views/UIView+NSLayoutContraint.h"

#include "platform/ui/View.h"

namespace {

platform::LayoutConstraintPtr firstInvolving(
    const std::vector<platform::LayoutConstraintPtr>& constraints, const platform::View& view) {
    for (const auto& constraint : constraints) {
        if (constraint->firstItem().get() == &view || constraint->secondItem().get() == &view) {
            return constraint;
        }
    }
    return nullptr;
}

}  // namespace

std::vector<platform::LayoutConstraintPtr> constraintsForViewAttribute(
    platform::LayoutAttribute attribute, const platform::View* view) {
    std::vector<platform::LayoutConstraintPtr> matching;
    if (view == nullptr) {
        return matching;
    }
    for (const auto& constraint : view->constraints()) {
        if (constraint->firstAttribute() == attribute) {
            matching.push_back(constraint);
        }
    }
    return matching;
}

platform::LayoutConstraintPtr constraintForAttribute(const platform::View& view,
                                                     platform::LayoutAttribute attribute) {
    // The superview's constraints win over the view's own.
    const auto superview = view.superview();
    if (auto found =
            firstInvolving(constraintsForViewAttribute(attribute, superview.get()), view)) {
        return found;
    }
    return firstInvolving(constraintsForViewAttribute(attribute, &view), view);
}
