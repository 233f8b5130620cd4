#include "platform/ui/ScreenEnvironment.h"

#include "platform/environment/Environment.h"

namespace platform {
namespace {

// Quarter turns from portrait in Qt's order of orientations, which turns
// the same way as the platform's portrait, landscape left, upside down,
// landscape right.
int quarterTurns(Qt::ScreenOrientation orientation) {
    switch (orientation) {
        case Qt::LandscapeOrientation:
            return 1;
        case Qt::InvertedPortraitOrientation:
            return 2;
        case Qt::InvertedLandscapeOrientation:
            return 3;
        case Qt::PortraitOrientation:
        case Qt::PrimaryOrientation:
            break;
    }
    return 0;
}

}  // namespace

ScreenEnvironment::~ScreenEnvironment() {
    disconnect();
}

int ScreenEnvironment::deviceOrientation(Qt::ScreenOrientation orientation,
                                         Qt::ScreenOrientation natural) {
    static constexpr int kByTurns[] = {
        device_orientation::kPortrait,
        device_orientation::kLandscapeLeft,
        device_orientation::kPortraitUpsideDown,
        device_orientation::kLandscapeRight,
    };
    const int turns = (quarterTurns(orientation) - quarterTurns(natural) + 4) % 4;
    return kByTurns[turns];
}

void ScreenEnvironment::disconnect() {
    for (const auto& connection : _connections) {
        QObject::disconnect(connection);
    }
    _connections.clear();
}

void ScreenEnvironment::follow(QScreen* screen) {
    if (screen != _screen) {
        disconnect();
        _screen = screen;
        if (screen != nullptr) {
            const auto resync = [this] { sync(); };
            _connections.push_back(QObject::connect(screen, &QScreen::orientationChanged, resync));
            _connections.push_back(QObject::connect(screen, &QScreen::geometryChanged, resync));
            _connections.push_back(
                QObject::connect(screen, &QScreen::logicalDotsPerInchChanged, resync));
        }
    }
    sync();
}

void ScreenEnvironment::sync() {
    if (!_screen) {
        return;
    }
    Screen::main().setBounds(QRectF(QPointF(0, 0), _screen->size()));
    Screen::main().setScale(_screen->devicePixelRatio());
    Qt::ScreenOrientation natural = _screen->nativeOrientation();
    if (natural == Qt::PrimaryOrientation) {
        natural = _screen->primaryOrientation();
    }
    const int orientation = deviceOrientation(_screen->orientation(), natural);
    // Interface and device orientations share their numbers and names for
    // the four upright positions.
    Application::shared().setStatusBarOrientation(orientation);
    Device::current().setOrientation(orientation);
}

}  // namespace platform
