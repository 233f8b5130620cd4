// Views and their constraints, and the layout pass as views see it.

#include "platform/ui/View.h"

#include "platform/ui/LayoutConstraint.h"
#include "platform/ui/LayoutEngine.h"

#include <algorithm>

namespace platform {

// --- Constraints --------------------------------------------------------------

void View::setAutoresizingMask(unsigned mask) {
    _autoresizingMask = mask;
}

void View::setTranslatesAutoresizingMaskIntoConstraints(bool translates) {
    if (_translatesMask == translates) {
        return;
    }
    _translatesMask = translates;
    LayoutEngine::noteStructureChange(*this);
    setNeedsUpdateConstraints();
}

void View::addConstraint(const LayoutConstraintPtr& constraint) {
    if (!constraint ||
        std::find(_constraints.begin(), _constraints.end(), constraint) != _constraints.end()) {
        return;
    }
    if (auto previous = constraint->owner(); previous && previous.get() != this) {
        previous->removeConstraint(constraint);
    }
    constraint->_owner = weak_from_this();
    _constraints.push_back(constraint);
    LayoutEngine::noteStructureChange(*this);
    setNeedsUpdateConstraints();
}

void View::addConstraints(const std::vector<LayoutConstraintPtr>& constraints) {
    for (const auto& c : constraints) {
        addConstraint(c);
    }
}

void View::removeConstraint(const LayoutConstraintPtr& constraint) {
    auto it = std::find(_constraints.begin(), _constraints.end(), constraint);
    if (it == _constraints.end()) {
        return;
    }
    (*it)->_owner.reset();
    _constraints.erase(it);
    LayoutEngine::noteStructureChange(*this);
    setNeedsUpdateConstraints();
}

void View::removeConstraints(const std::vector<LayoutConstraintPtr>& constraints) {
    for (const auto& c : constraints) {
        removeConstraint(c);
    }
}

void View::setNeedsUpdateConstraints() {
    _needsUpdateConstraints = true;
    if (auto parent = superview()) {
        parent->markSubtreeNeedsUpdateConstraints();
    }
    setNeedsLayout();
}

void View::markSubtreeNeedsUpdateConstraints() {
    for (View* v = this; v != nullptr && !v->_subtreeNeedsUpdateConstraints;
         v = v->_superviewPointer) {
        v->_subtreeNeedsUpdateConstraints = true;
    }
}

void View::markSubtreeNeedsLayout() {
    for (View* v = this; v != nullptr && !v->_subtreeNeedsLayout; v = v->_superviewPointer) {
        v->_subtreeNeedsLayout = true;
    }
}

void View::updateConstraintsIfNeeded() {
    // Subviews first, and only the subtrees that asked.
    if (_subtreeNeedsUpdateConstraints) {
        _subtreeNeedsUpdateConstraints = false;
        const std::vector<ViewPtr> subviews = _subviews;
        for (const ViewPtr& s : subviews) {
            if (s->_needsUpdateConstraints || s->_subtreeNeedsUpdateConstraints) {
                s->updateConstraintsIfNeeded();
            }
        }
    }
    if (_needsUpdateConstraints) {
        updateConstraints();
    }
}

void View::updateConstraints() {
    _needsUpdateConstraints = false;
}

QSizeF View::intrinsicContentSize() const {
    return {kNoIntrinsicMetric, kNoIntrinsicMetric};
}

void View::invalidateIntrinsicContentSize() {
    LayoutEngine::noteIntrinsicChange(*this);
    setNeedsUpdateConstraints();
}

float View::contentHuggingPriority(LayoutAxis axis) const {
    return _hugging[int(axis)];
}

void View::setContentHuggingPriority(float priority, LayoutAxis axis) {
    _hugging[int(axis)] = priority;
    LayoutEngine::noteIntrinsicChange(*this);
    setNeedsUpdateConstraints();
}

float View::contentCompressionResistancePriority(LayoutAxis axis) const {
    return _compression[int(axis)];
}

void View::setContentCompressionResistancePriority(float priority, LayoutAxis axis) {
    _compression[int(axis)] = priority;
    LayoutEngine::noteIntrinsicChange(*this);
    setNeedsUpdateConstraints();
}

// --- Layout -------------------------------------------------------------------

void View::setNeedsLayout() {
    if (_needsLayout) {
        return;
    }
    _needsLayout = true;
    if (_superviewPointer != nullptr) {
        _superviewPointer->markSubtreeNeedsLayout();
    }
    _layer->setNeedsLayoutForDelegate();
}

void View::layoutIfNeeded() {
    // Layout runs from the root of the tree so that constraints between any
    // two views in it are solved together; only views that need layout (and
    // their subtrees, whose frames may follow) are visited.
    View* root = this;
    while (root->_superviewPointer != nullptr) {
        root = root->_superviewPointer;
    }
    LayoutEngine::layout(*root);
}

void View::layoutSubviews() {
    LayoutEngine::applyFrames(*this);
}

void View::sizeToFit() {
    const QSizeF size = sizeThatFits(bounds().size());
    QRectF f = frame();
    f.setSize(size);
    setFrame(f);
}

QSizeF View::sizeThatFits(const QSizeF& size) const {
    const QSizeF intrinsic = intrinsicContentSize();
    return {intrinsic.width() >= 0 ? intrinsic.width() : size.width(),
            intrinsic.height() >= 0 ? intrinsic.height() : size.height()};
}

}  // namespace platform
