#include "platform/ui/ModalTransition.h"

#include "platform/foundation/Log.h"
#include "platform/foundation/RunLoop.h"
#include "platform/ui/ViewController.h"
#include "platform/ui/Window.h"

#include <vector>

namespace platform {
namespace {

// Every controller whose root view lies in root's tree, outermost first:
// the controllers whose appearance a transition of that tree drives.
std::vector<std::shared_ptr<ViewController>> controllersIn(const View& root) {
    std::vector<std::shared_ptr<ViewController>> found;
    std::function<void(const View&)> visit = [&](const View& view) {
        if (auto controller = view.viewController()) {
            found.push_back(std::move(controller));
        }
        for (const ViewPtr& subview : view.subviews()) {
            visit(*subview);
        }
    };
    visit(root);
    return found;
}

QRectF offscreenBelow(const QRectF& bounds) {
    return bounds.translated(0, bounds.height());
}

}  // namespace

void ModalTransition::present(ViewController& presenter,
                              const std::shared_ptr<ViewController>& presented, bool animated,
                              std::function<void()> completion) {
    if (!presented) {
        return;
    }
    ViewController& context = presenter.presentationContext();
    if (presented->presentingViewController() || presented->parentViewController() ||
        presented.get() == &context ||
        (presented->isViewLoaded() && presented->_view->window() != nullptr)) {
        log::write(QStringLiteral("Application tried to present modally an active controller %1.")
                       .arg(presented->description()));
        return;
    }
    bool busy = false;
    for (auto c = context.shared_from_this(); c && !busy; c = c->presentingViewController()) {
        busy = c->_transitioning;
    }
    if (busy) {
        log::write(QStringLiteral("Attempt to present %1 on %2 while a presentation is in "
                                  "progress!")
                       .arg(presented->description(), context.description()));
        return;
    }

    if (context._presented) {
        log::write(QStringLiteral("Attempt to present %1 on %2 which is already presenting %3")
                       .arg(presented->description(), context.description(),
                            context._presented->description()));
        return;
    }
    const auto window = presenter.isViewLoaded() ? presenter._view->window() : nullptr;
    if (!window) {
        log::write(QStringLiteral("Attempt to present %1 on %2 whose view is not in the window "
                                  "hierarchy!")
                       .arg(presented->description(), context.description()));
        return;
    }
    context._presented = presented;
    presented->_presenting = context.weak_from_this();
    context._transitioning = true;
    presented->_beingPresented = true;

    const ViewPtr view = presented->view();
    const ViewPtr contextView = context.isViewLoaded() ? context._view : nullptr;
    const bool takesOver =
        presented->modalPresentationStyle() == ModalPresentationStyle::FullScreen && contextView &&
        contextView->superview() == window;
    const bool slides = presented->modalTransitionStyle() == ModalTransitionStyle::CoverVertical;
    for (const auto& controller : controllersIn(*view)) {
        controller->holdAppearance(animated);
    }
    if (takesOver) {
        for (const auto& controller : controllersIn(*contextView)) {
            controller->beginDisappearance(animated);
        }
    }
    const QRectF bounds = window->bounds();
    View::performWithoutAnimation([&] {
        view->setAutoresizingMask(autoresizing::kFlexibleWidth | autoresizing::kFlexibleHeight);
        view->setFrame(bounds);
        view->setAlpha(1.0);
        window->addSubview(view);
        // Laid out in place first, so that only the whole view moves.
        view->layoutIfNeeded();
        if (animated && slides) {
            view->setFrame(offscreenBelow(bounds));
        } else if (animated) {
            view->setAlpha(0.0);
        }
    });

    auto finish = [weakContext = context.weak_from_this(), presented, contextView, takesOver,
                   completion = std::move(completion)] {
        if (takesOver) {
            contextView->removeFromSuperview();
        }
        // The transition is over before anyone hears of the appearance, so
        // that viewDidAppear may present in turn.
        presented->_beingPresented = false;
        if (const auto c = weakContext.lock()) {
            c->_transitioning = false;
        }
        for (const auto& controller : controllersIn(*presented->_view)) {
            controller->releaseAppearance();
        }
        if (completion) {
            completion();
        }
    };
    if (!animated) {
        RunLoop::main().post(std::move(finish));
        return;
    }
    View::animate(
        kDuration, 0.0, animation_options::kCurveEaseInOut,
        [&] {
            if (slides) {
                view->setFrame(bounds);
            } else {
                view->setAlpha(1.0);
            }
        },
        [finish = std::move(finish)](bool) { finish(); });
}

void ModalTransition::dismiss(ViewController& requester, bool animated,
                              std::function<void()> completion) {
    std::shared_ptr<ViewController> context;
    if (requester._presented) {
        context = requester.shared_from_this();
    } else if (auto presenting = requester.presentingViewController()) {
        context = std::move(presenting);
    } else {
        ViewController& top = requester.presentationContext();
        if (&top != &requester) {
            dismiss(top, animated, std::move(completion));
        }
        return;
    }
    // The controllers to go: the one the context presented and whatever that
    // one presented in turn, bottom first.
    std::vector<std::shared_ptr<ViewController>> chain;
    bool busy = false;
    for (auto c = context->_presented; c; c = c->_presented) {
        chain.push_back(c);
        busy = busy || c->_transitioning;
    }
    for (auto c = context; c && !busy; c = c->presentingViewController()) {
        busy = c->_transitioning;
    }
    if (busy) {
        log::write(QStringLiteral("Attempt to dismiss from view controller %1 while a "
                                  "presentation or dismiss is in progress!")
                       .arg(context->description()));
        return;
    }

    // Their views that are in the window, top first.
    std::vector<ViewPtr> leaving;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        if ((*it)->isViewLoaded() && (*it)->_view->window()) {
            leaving.push_back((*it)->_view);
        }
    }
    const auto window = leaving.empty() ? nullptr : leaving.front()->window();
    const ViewPtr contextView = context->isViewLoaded() ? context->_view : nullptr;
    const bool returns =
        window && contextView && !contextView->window() &&
        chain.front()->modalPresentationStyle() == ModalPresentationStyle::FullScreen;
    context->_transitioning = true;
    for (const auto& c : chain) {
        c->_beingDismissed = true;
    }
    for (const ViewPtr& view : leaving) {
        for (const auto& controller : controllersIn(*view)) {
            controller->beginDisappearance(animated);
        }
    }
    if (returns) {
        for (const auto& controller : controllersIn(*contextView)) {
            controller->holdAppearance(animated);
        }
        View::performWithoutAnimation([&] {
            contextView->setFrame(window->bounds());
            window->insertSubviewBelow(contextView, leaving.back().get());
            contextView->layoutIfNeeded();
        });
    }

    auto finish = [context, chain, leaving, contextView, returns,
                   completion = std::move(completion)] {
        for (const ViewPtr& view : leaving) {
            view->removeFromSuperview();
        }
        context->_presented.reset();
        for (const auto& c : chain) {
            c->_presented.reset();
            c->_presenting.reset();
            c->_beingDismissed = false;
        }
        context->_transitioning = false;
        // The screen underneath appears once the dismissal is over, so that
        // its viewDidAppear may present again.
        if (returns) {
            for (const auto& controller : controllersIn(*contextView)) {
                controller->releaseAppearance();
            }
        }
        if (completion) {
            completion();
        }
    };
    const ViewPtr top = leaving.empty() ? nullptr : leaving.front();
    if (!animated || !top) {
        RunLoop::main().post(std::move(finish));
        return;
    }
    const bool slides = top->viewController() && top->viewController()->modalTransitionStyle() ==
                                                     ModalTransitionStyle::CoverVertical;
    const QRectF bounds = window->bounds();
    View::animate(
        kDuration, 0.0, animation_options::kCurveEaseInOut,
        [&] {
            if (slides) {
                top->setFrame(offscreenBelow(bounds));
            } else {
                top->setAlpha(0.0);
            }
        },
        [finish = std::move(finish)](bool) { finish(); });
}

}  // namespace platform
