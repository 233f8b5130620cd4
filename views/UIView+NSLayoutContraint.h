#pragma once

#include "platform/ui/LayoutConstraint.h"

#include <vector>

namespace platform {
class View;
}

/// Finding the constraint that governs one attribute of a view. Main thread
/// only.

/// The constraints view holds whose first attribute is attribute, in the
/// order it holds them; empty for a null view.
std::vector<platform::LayoutConstraintPtr> constraintsForViewAttribute(
    platform::LayoutAttribute attribute, const platform::View* view);

/// The first constraint on attribute that involves view (as first or second
/// item): among those its superview holds if there is one, else among the
/// view's own; null when neither has one.
platform::LayoutConstraintPtr constraintForAttribute(const platform::View& view,
                                                     platform::LayoutAttribute attribute);
