#pragma once

#include <QMetaObject>
#include <QPointer>
#include <QScreen>

#include <vector>

namespace platform {

/// Keeps the environment in step with a QScreen: the main screen's bounds
/// (in points) and scale from its size and device pixel ratio, and the
/// device and status-bar orientations from its rotation away from its
/// natural orientation, so that a monitor in its usual position reads as an
/// upright phone. Changing the device orientation posts the device's
/// notification. Main thread only.
class ScreenEnvironment {
public:
    ScreenEnvironment() = default;
    ~ScreenEnvironment();
    ScreenEnvironment(const ScreenEnvironment&) = delete;
    ScreenEnvironment& operator=(const ScreenEnvironment&) = delete;

    /// Follows screen (null: none) from now on and syncs at once.
    void follow(QScreen* screen);
    /// Copies the followed screen's state into the environment.
    void sync();

    /// The device orientation of a screen turned to `orientation` from its
    /// natural orientation `natural`. The status bar's orientation has the
    /// same number (the interface turns with the screen).
    static int deviceOrientation(Qt::ScreenOrientation orientation, Qt::ScreenOrientation natural);

private:
    void disconnect();

    QPointer<QScreen> _screen;
    std::vector<QMetaObject::Connection> _connections;
};

}  // namespace platform
