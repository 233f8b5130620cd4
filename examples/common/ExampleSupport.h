#pragma once

#include <QString>

/// What the example hosts share: console output and running without a
/// display.
namespace examples {

/// One line on standard output, flushed at once (hosts report progress
/// while they run).
void print(const QString& line);
/// "<program>: <line>" on standard error.
void printError(const QString& line);

/// Whether a window can be shown: an X11 or Wayland display is set and Qt
/// is not asked for a platform without windows.
bool hasDisplay();
/// Selects Qt's offscreen platform when there is no display and none was
/// chosen. Call before the application object exists.
void useOffscreenWithoutDisplay();

}  // namespace examples
