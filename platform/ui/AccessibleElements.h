#pragma once

#include "platform/ui/View.h"

#include <memory>
#include <vector>

namespace platform {

class ViewController;
class Window;

/// How assistive tools and the keyboard see a window's tree. Main thread
/// only.
namespace accessible {

/// The controller whose screen is in front: the root view controller, or
/// the last of the chain of controllers presented over it; null without a
/// root view controller.
std::shared_ptr<ViewController> frontController(const Window& window);

/// The root of the screen in front (the window itself without a root view
/// controller).
ViewPtr frontScreen(Window& window);

/// Whether view and every ancestor up to its window are shown (not hidden,
/// not fully transparent) and the view has an area.
bool isShown(const View& view);

/// The accessibility elements under root that are shown, in reading order:
/// top to bottom by rows (centres within half the smaller height of each
/// other), left to right within a row. Elements hide their own subviews.
std::vector<ViewPtr> elements(const ViewPtr& root);

/// The view's traits: its own when it has any, else those of its kind, plus
/// the state bits (selected, not enabled) of a control.
unsigned traits(const View& view);

/// Whether the keyboard can focus and press view: an enabled control, or an
/// element (not static text) that a tap at its centre reaches through a
/// gesture recogniser of its own or of an ancestor.
bool isPressable(const View& view);

/// Fires view as a tap would: a control sends its touch-up-inside actions,
/// another view gets a tap at its centre. False (and nothing happens) for a
/// view that is not pressable or not in a window.
bool press(View& view);

/// The view's frame in its window's coordinates.
QRectF frameInWindow(const View& view);

}  // namespace accessible
}  // namespace platform
