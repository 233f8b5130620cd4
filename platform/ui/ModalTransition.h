#pragma once

#include <functional>
#include <memory>

namespace platform {

class ViewController;

/// Runs the modal presentations and dismissals of view controllers: puts the
/// presented view into the window above everything, sized to the window,
/// brings it in or out (cover vertical: sliding from the bottom; cross
/// dissolve: fading) over kDuration when animated, drives the appearance
/// callbacks of both sides and links presenter and presented. A full-screen
/// presentation takes the presenting view out of the window once the
/// presented one covers it, and puts it back when it is dismissed.
/// Internal to the views layer; main thread only.
class ModalTransition {
public:
    static constexpr double kDuration = 0.3;

    static void present(ViewController& presenter, const std::shared_ptr<ViewController>& presented,
                        bool animated, std::function<void()> completion);
    static void dismiss(ViewController& requester, bool animated, std::function<void()> completion);
};

}  // namespace platform
