#pragma once

#include <QString>

namespace platform {

class Window;

/// Lays out window and writes its tree, painted over black at the run
/// loop's current time at scale pixels a point, as a PNG file; false when
/// the file cannot be written. For debugging and examples without a screen.
bool renderToPng(Window& window, const QString& path, double scale = 1.0);

}  // namespace platform
