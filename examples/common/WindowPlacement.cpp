#include "WindowPlacement.h"

#include <QMargins>
#include <QScreen>
#include <QWindow>

#include <algorithm>
#include <cmath>

namespace examples {
namespace {

// Until the window is mapped, most window systems report no frame.
constexpr int kTypicalTitleBar = 37;
constexpr int kTypicalBorder = 1;

}  // namespace

QRect fitWindow(QSize wanted, const QRect& available, int frameTop, int frameRest) {
    if (wanted.isEmpty() || available.isEmpty()) {
        return QRect(available.topLeft(), wanted);
    }
    const int roomWidth = available.width() - 2 * frameRest - 2 * kScreenMargin;
    const int roomHeight = available.height() - frameTop - frameRest - 2 * kScreenMargin;
    const double scale =
        std::min({1.0, double(roomWidth) / wanted.width(), double(roomHeight) / wanted.height()});
    const QSize size(std::max(1, int(std::floor(wanted.width() * scale))),
                     std::max(1, int(std::floor(wanted.height() * scale))));
    const int x = available.left() + (available.width() - size.width()) / 2;
    const int y = available.top() + kScreenMargin + frameTop;
    return QRect(QPoint(x, y), size);
}

void placeOnScreen(QWindow& window, QSize wanted) {
    const QScreen* screen = window.screen();
    if (screen == nullptr) {
        window.resize(wanted);
        return;
    }
    QMargins frame = window.frameMargins();
    if (frame.isNull()) {
        frame = QMargins(kTypicalBorder, kTypicalTitleBar, kTypicalBorder, kTypicalBorder);
    }
    const QRect placed = fitWindow(wanted, screen->availableGeometry(), frame.top(),
                                   std::max({frame.left(), frame.right(), frame.bottom()}));
    window.setGeometry(placed);
}

}  // namespace examples
