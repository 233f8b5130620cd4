#include "platform/ui/AccessibleElements.h"

#include "platform/ui/AccessibilityTraits.h"
#include "platform/ui/Control.h"
#include "platform/ui/GestureRecognizer.h"
#include "platform/ui/ImageView.h"
#include "platform/ui/Label.h"
#include "platform/ui/ViewController.h"
#include "platform/ui/Window.h"

#include <algorithm>
#include <cmath>

namespace platform::accessible {
namespace {

constexpr double kInvisibleAlpha = 0.01;

void collect(const ViewPtr& view, std::vector<ViewPtr>& out) {
    if (view->isHidden() || view->alpha() < kInvisibleAlpha) {
        return;
    }
    if (view->isAccessibilityElement()) {
        if (!view->bounds().isEmpty()) {
            out.push_back(view);
        }
        return;
    }
    for (const ViewPtr& subview : view->subviews()) {
        collect(subview, out);
    }
}

}  // namespace

std::shared_ptr<ViewController> frontController(const Window& window) {
    auto controller = window.rootViewController();
    while (controller && controller->presentedViewController()) {
        controller = controller->presentedViewController();
    }
    return controller;
}

ViewPtr frontScreen(Window& window) {
    if (const auto controller = frontController(window); controller && controller->isViewLoaded()) {
        return controller->view();
    }
    return window.shared_from_this();
}

bool isShown(const View& view) {
    if (view.bounds().isEmpty()) {
        return false;
    }
    for (const View* v = &view; v != nullptr; v = v->superview().get()) {
        if (v->isHidden() || v->alpha() < kInvisibleAlpha) {
            return false;
        }
    }
    return view.window() != nullptr;
}

QRectF frameInWindow(const View& view) {
    return view.convertRectToView(view.bounds(), nullptr);
}

std::vector<ViewPtr> elements(const ViewPtr& root) {
    std::vector<ViewPtr> found;
    if (!root) {
        return found;
    }
    for (const View* v = root->superview().get(); v != nullptr; v = v->superview().get()) {
        if (v->isHidden() || v->alpha() < kInvisibleAlpha) {
            return found;
        }
    }
    collect(root, found);

    // Rows: elements whose centres lie within half the smaller height of
    // each other read as one row, left to right. A tall element (a full
    // screen view finder) is a row of its own.
    struct Placed {
        ViewPtr view;
        QRectF frame;
    };
    std::vector<Placed> placed;
    placed.reserve(found.size());
    for (const ViewPtr& view : found) {
        placed.push_back({view, frameInWindow(*view)});
    }
    std::stable_sort(placed.begin(), placed.end(), [](const Placed& a, const Placed& b) {
        return a.frame.center().y() < b.frame.center().y();
    });
    const auto sameRow = [](const QRectF& a, const QRectF& b) {
        return std::abs(a.center().y() - b.center().y()) < std::min(a.height(), b.height()) / 2.0;
    };
    std::vector<ViewPtr> ordered;
    ordered.reserve(placed.size());
    for (std::size_t start = 0; start < placed.size();) {
        const QRectF& first = placed[start].frame;
        std::size_t end = start + 1;
        while (end < placed.size() && sameRow(first, placed[end].frame)) {
            ++end;
        }
        std::stable_sort(placed.begin() + static_cast<std::ptrdiff_t>(start),
                         placed.begin() + static_cast<std::ptrdiff_t>(end),
                         [](const Placed& a, const Placed& b) {
                             return a.frame.center().x() < b.frame.center().x();
                         });
        for (std::size_t i = start; i < end; ++i) {
            ordered.push_back(placed[i].view);
        }
        start = end;
    }
    return ordered;
}

unsigned traits(const View& view) {
    namespace t = accessibility_traits;
    unsigned result = view.accessibilityTraits();
    const auto* control = dynamic_cast<const Control*>(&view);
    if (result == t::kNone) {
        if (control != nullptr) {
            result = t::kButton;
        } else if (dynamic_cast<const ImageView*>(&view) != nullptr) {
            result = t::kImage;
        } else if (dynamic_cast<const Label*>(&view) != nullptr) {
            result = t::kStaticText;
        }
    }
    if (control != nullptr) {
        if (control->isSelected()) {
            result |= t::kSelected;
        }
        if (!control->isEnabled()) {
            result |= t::kNotEnabled;
        }
    }
    return result;
}

bool isPressable(const View& view) {
    if (const auto* control = dynamic_cast<const Control*>(&view)) {
        return control->isEnabled() && control->isUserInteractionEnabled();
    }
    if (!view.isUserInteractionEnabled()) {
        return false;
    }
    const auto takesTaps = [](const View& v) {
        const auto& recognizers = v.gestureRecognizers();
        return std::any_of(recognizers.begin(), recognizers.end(),
                           [](const auto& r) { return r->isEnabled(); });
    };
    if (takesTaps(view)) {
        return true;
    }
    // A tap at the centre also reaches the recognisers of the ancestors (a
    // screen that focuses where its view finder is tapped); static text is
    // read, not pressed.
    if (traits(view) & accessibility_traits::kStaticText) {
        return false;
    }
    for (const View* v = view.superview().get(); v != nullptr; v = v->superview().get()) {
        if (!v->isUserInteractionEnabled()) {
            return false;
        }
        if (takesTaps(*v)) {
            return true;
        }
    }
    return false;
}

bool press(View& view) {
    const auto window = view.window();
    if (!window || !isPressable(view)) {
        return false;
    }
    if (auto* control = dynamic_cast<Control*>(&view)) {
        control->sendActionsForControlEvents(control_event::kTouchUpInside);
        return true;
    }
    window->tap(frameInWindow(view).center());
    return true;
}

}  // namespace platform::accessible
