#pragma once

#include <QRect>
#include <QSize>

class QWindow;

/// Where the example hosts open their windows.
namespace examples {

/// Space kept between the top of the available area and the window's
/// frame, and below it, in device-independent pixels.
inline constexpr int kScreenMargin = 24;

/// The client rectangle, in device-independent pixels, for a window that
/// wants `wanted` on a screen whose available area (without panels) is
/// `available`: the wanted size, scaled down with its aspect ratio kept
/// until the window with its frame (`frameTop` above the client area,
/// `frameRest` on each other side) and a margin above and below fits;
/// centred horizontally, a margin below the top of the area.
QRect fitWindow(QSize wanted, const QRect& available, int frameTop, int frameRest);

/// Sizes and places window by fitWindow on its screen, with the frame
/// margins the window system reports (a usual title bar when it reports
/// none before the window is shown).
void placeOnScreen(QWindow& window, QSize wanted);

}  // namespace examples
