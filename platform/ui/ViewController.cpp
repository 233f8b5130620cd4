#include "platform/ui/ViewController.h"

#include "platform/environment/Environment.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/RunLoop.h"
#include "platform/ui/ModalTransition.h"

#include <algorithm>

namespace platform {

std::shared_ptr<ViewController> ViewController::create() {
    return make<ViewController>();
}

ViewController::ViewController() = default;

ViewController::~ViewController() = default;

QString ViewController::typeName() const {
    return QStringLiteral("ViewController");
}

QString ViewController::description() const {
    return QStringLiteral("<%1: 0x%2>")
        .arg(typeName())
        .arg(reinterpret_cast<quintptr>(this), 0, 16);
}

// --- View loading --------------------------------------------------------------

const ViewPtr& ViewController::view() {
    if (!_view) {
        loadView();
        if (!_view) {
            log::write(QStringLiteral("%1 loadView did not set a view; using a plain one")
                           .arg(description()));
            ViewController::loadView();
        }
        viewDidLoad();
    }
    return _view;
}

void ViewController::setView(const ViewPtr& view) {
    if (view == _view) {
        return;
    }
    if (_view && _view->_viewController.lock().get() == this) {
        _view->_viewController.reset();
    }
    _view = view;
    if (_view) {
        _view->_viewController = weak_from_this();
    }
}

void ViewController::loadView() {
    auto root = View::create(Screen::main().bounds());
    root->setAutoresizingMask(autoresizing::kFlexibleWidth | autoresizing::kFlexibleHeight);
    setView(root);
}

int ViewController::interfaceOrientation() const {
    return Application::shared().statusBarOrientation();
}

// --- Appearance --------------------------------------------------------------------

void ViewController::viewDidMoveToWindow(bool visible) {
    if (visible) {
        if (_appearance == Appearance::Appearing || _appearance == Appearance::Appeared) {
            return;
        }
        _appearance = Appearance::Appearing;
        const std::uint64_t generation = ++_appearanceGeneration;
        viewWillAppear(_transitionAnimated);
        if (_appearanceHeld) {
            return;
        }
        RunLoop::main().post([weak = weak_from_this(), generation] {
            const auto self = weak.lock();
            if (self && self->_appearanceGeneration == generation &&
                self->_appearance == Appearance::Appearing) {
                self->_appearance = Appearance::Appeared;
                self->viewDidAppear(false);
            }
        });
        return;
    }
    if (_appearance == Appearance::Disappeared) {
        return;
    }
    const bool animated = _transitionAnimated;
    if (_appearance != Appearance::Disappearing) {
        _appearance = Appearance::Disappearing;
        viewWillDisappear(animated);
    }
    _appearance = Appearance::Disappeared;
    ++_appearanceGeneration;
    _transitionAnimated = false;
    viewDidDisappear(animated);
}

void ViewController::holdAppearance(bool animated) {
    _appearanceHeld = true;
    _transitionAnimated = animated;
}

void ViewController::releaseAppearance() {
    if (!_appearanceHeld) {
        return;
    }
    _appearanceHeld = false;
    const bool animated = _transitionAnimated;
    _transitionAnimated = false;
    if (_appearance == Appearance::Appearing) {
        _appearance = Appearance::Appeared;
        viewDidAppear(animated);
    }
}

void ViewController::beginDisappearance(bool animated) {
    if (_appearance != Appearance::Appearing && _appearance != Appearance::Appeared) {
        return;
    }
    _appearance = Appearance::Disappearing;
    _transitionAnimated = animated;
    viewWillDisappear(animated);
}

void ViewController::runLayoutPass(const std::function<void()>& layout) {
    viewWillLayoutSubviews();
    if (layout) {
        layout();
    }
    viewDidLayoutSubviews();
}

// --- Containment -------------------------------------------------------------------

void ViewController::addChildViewController(const std::shared_ptr<ViewController>& child) {
    if (!child || child.get() == this || child->_parent.lock().get() == this) {
        return;
    }
    if (child->parentViewController()) {
        child->removeFromParentViewController();
    }
    child->willMoveToParentViewController(this);
    _children.push_back(child);
    child->_parent = weak_from_this();
}

void ViewController::removeFromParentViewController() {
    const auto parent = _parent.lock();
    if (!parent) {
        return;
    }
    // Keeps this controller alive through the callback when the parent held
    // the last reference.
    const auto self = shared_from_this();
    std::erase(parent->_children, self);
    _parent.reset();
    didMoveToParentViewController(nullptr);
}

ViewController& ViewController::presentationContext() {
    ViewController* context = this;
    while (auto parent = context->parentViewController()) {
        context = parent.get();
    }
    return *context;
}

// --- Presentation ------------------------------------------------------------------

void ViewController::presentViewController(const std::shared_ptr<ViewController>& controller,
                                           bool animated, std::function<void()> completion) {
    ModalTransition::present(*this, controller, animated, std::move(completion));
}

void ViewController::dismissViewControllerAnimated(bool animated,
                                                   std::function<void()> completion) {
    ModalTransition::dismiss(*this, animated, std::move(completion));
}

}  // namespace platform
