#pragma once

#include "platform/ui/View.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace platform {

class ModalTransition;

/// How a presented controller covers the screen, with the platform's numbers.
/// Full screen takes the presenting controller's view out of the window (it
/// gets will/did disappear); over full screen leaves it in place, untouched.
enum class ModalPresentationStyle { FullScreen = 0, OverFullScreen = 5 };

/// How a presented controller arrives, with the platform's numbers.
enum class ModalTransitionStyle { CoverVertical = 0, CrossDissolve = 2 };

/// Manages one view tree: loads its view on first use and runs the
/// appearance callbacks in the platform's order, holds child controllers and
/// presents other controllers modally, like the platform's view controllers.
///
/// Appearance follows the view's presence in a visible window:
/// viewWillAppear when the view enters it, viewDidAppear on the next turn of
/// the run loop (or when a presentation's animation ends),
/// viewWillDisappear/viewDidDisappear when it leaves. viewWillLayoutSubviews
/// and viewDidLayoutSubviews bracket every layout pass of the view. Main
/// thread only.
class ViewController : public std::enable_shared_from_this<ViewController> {
public:
    /// Makes a controller of type T (whose constructor may be protected).
    template <typename T, typename... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        struct Made final : T {
            explicit Made(Args&&... a) : T(std::forward<Args>(a)...) {}
        };
        return std::make_shared<Made>(std::forward<Args>(args)...);
    }
    static std::shared_ptr<ViewController> create();
    virtual ~ViewController();
    ViewController(const ViewController&) = delete;
    ViewController& operator=(const ViewController&) = delete;

    /// The root view, loaded (loadView, then viewDidLoad) on first use.
    const ViewPtr& view();
    bool isViewLoaded() const { return _view != nullptr; }
    void setView(const ViewPtr& view);

    /// Makes the root view; the default is a plain view as large as the main
    /// screen that follows its superview's size. Overrides call setView.
    virtual void loadView();
    virtual void viewDidLoad() {}
    virtual void viewWillAppear(bool /*animated*/) {}
    virtual void viewDidAppear(bool /*animated*/) {}
    virtual void viewWillDisappear(bool /*animated*/) {}
    virtual void viewDidDisappear(bool /*animated*/) {}
    virtual void viewWillLayoutSubviews() {}
    virtual void viewDidLayoutSubviews() {}

    virtual bool prefersStatusBarHidden() const { return false; }
    /// The status bar's orientation (the application's).
    int interfaceOrientation() const;

    // Containment
    std::shared_ptr<ViewController> parentViewController() const { return _parent.lock(); }
    const std::vector<std::shared_ptr<ViewController>>& childViewControllers() const {
        return _children;
    }
    /// Adds child and calls its willMoveToParentViewController(this).
    void addChildViewController(const std::shared_ptr<ViewController>& child);
    /// Removes this controller from its parent and calls
    /// didMoveToParentViewController(nullptr).
    void removeFromParentViewController();
    virtual void willMoveToParentViewController(ViewController* /*parent*/) {}
    virtual void didMoveToParentViewController(ViewController* /*parent*/) {}

    // Modal presentation (full screen, sliding up when animated, 0.3 s)
    ModalPresentationStyle modalPresentationStyle() const { return _presentationStyle; }
    void setModalPresentationStyle(ModalPresentationStyle style) { _presentationStyle = style; }
    ModalTransitionStyle modalTransitionStyle() const { return _transitionStyle; }
    void setModalTransitionStyle(ModalTransitionStyle style) { _transitionStyle = style; }

    /// Presents controller over the window this controller's view is in, on
    /// behalf of the topmost ancestor (the presentation context). Refused,
    /// with a log line, when this view is not in a window, when the context
    /// already presents a controller, while a presentation or dismissal runs,
    /// and for a controller that is already presented or has a parent.
    /// completion runs once, after the presented controller's viewDidAppear.
    void presentViewController(const std::shared_ptr<ViewController>& controller, bool animated,
                               std::function<void()> completion = {});
    /// Dismisses the controller this one presented, or this one when it was
    /// presented (a child asks its presentation context). completion runs
    /// once, after the returning controller's viewDidAppear.
    void dismissViewControllerAnimated(bool animated, std::function<void()> completion = {});
    std::shared_ptr<ViewController> presentedViewController() const { return _presented; }
    std::shared_ptr<ViewController> presentingViewController() const { return _presenting.lock(); }
    /// True from presentViewController until its completion, for the
    /// presented controller.
    bool isBeingPresented() const { return _beingPresented; }
    /// True from dismissViewControllerAnimated until its completion, for the
    /// controllers being dismissed.
    bool isBeingDismissed() const { return _beingDismissed; }

    /// Called by the views layer when the view enters or leaves a visible
    /// window; drives the appearance callbacks.
    void viewDidMoveToWindow(bool visible);
    /// Called by the views layer around a layout pass of the view.
    void runLayoutPass(const std::function<void()>& layout);

    /// Short type name for log lines.
    virtual QString typeName() const;
    /// "<TypeName: 0x…>", as the platform writes controllers in its logs.
    QString description() const;

protected:
    ViewController();

private:
    friend class ModalTransition;

    enum class Appearance { Disappeared, Appearing, Appeared, Disappearing };

    /// The controller that presents on this one's behalf: its topmost parent.
    ViewController& presentationContext();
    /// While held, viewDidAppear waits for releaseAppearance instead of the
    /// next turn of the run loop (a running transition).
    void holdAppearance(bool animated);
    void releaseAppearance();
    /// Sends viewWillDisappear now; viewDidDisappear follows when the view
    /// leaves the window.
    void beginDisappearance(bool animated);

    ViewPtr _view;
    std::weak_ptr<ViewController> _parent;
    std::vector<std::shared_ptr<ViewController>> _children;
    std::shared_ptr<ViewController> _presented;
    std::weak_ptr<ViewController> _presenting;
    Appearance _appearance = Appearance::Disappeared;
    bool _transitionAnimated = false;
    bool _appearanceHeld = false;
    /// Set on a presentation context while it presents or dismisses.
    bool _transitioning = false;
    bool _beingPresented = false;
    bool _beingDismissed = false;
    std::uint64_t _appearanceGeneration = 0;
    ModalPresentationStyle _presentationStyle = ModalPresentationStyle::FullScreen;
    ModalTransitionStyle _transitionStyle = ModalTransitionStyle::CoverVertical;
};

}  // namespace platform
