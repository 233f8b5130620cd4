#pragma once

#include <QRectF>
#include <QSizeF>
#include <QString>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>

/// What the component reads of the device and the application it runs in:
/// the device's orientation and idiom, the status bar's orientation, the main
/// screen, and whether a camera source exists. Hosts and tests set these; a
/// Qt host keeps them in step with the real screen.
///
/// Orientation numbers are the platform's and are kept as plain integers,
/// since the component passes them on unchanged, out-of-range values included.
namespace platform {

namespace device_orientation {
inline constexpr int kUnknown = 0;
inline constexpr int kPortrait = 1;
inline constexpr int kPortraitUpsideDown = 2;
inline constexpr int kLandscapeLeft = 3;
inline constexpr int kLandscapeRight = 4;
inline constexpr int kFaceUp = 5;
inline constexpr int kFaceDown = 6;
}  // namespace device_orientation

/// The status bar's (interface) orientation: 3 is landscape left and 4
/// landscape right, the same numbers as the device's orientations.
namespace interface_orientation {
inline constexpr int kUnknown = 0;
inline constexpr int kPortrait = 1;
inline constexpr int kPortraitUpsideDown = 2;
inline constexpr int kLandscapeLeft = 3;
inline constexpr int kLandscapeRight = 4;
}  // namespace interface_orientation

namespace idiom {
inline constexpr int kPhone = 0;
inline constexpr int kPad = 1;
}  // namespace idiom

/// Posted by Device when its orientation changes while it generates
/// orientation notifications; the sender is the device.
inline const QString kDeviceOrientationDidChangeNotification =
    QStringLiteral("UIDeviceOrientationDidChangeNotification");

/// The device. Reading is thread-safe; changing the orientation posts its
/// notification on the calling thread (the main thread in applications).
class Device {
public:
    static Device& current();

    int orientation() const { return _orientation.load(); }
    /// Sets the orientation and, when notifications are being generated and
    /// the value changed, posts kDeviceOrientationDidChangeNotification.
    void setOrientation(int orientation);

    /// Counted: notifications flow while begins outnumber ends.
    void beginGeneratingDeviceOrientationNotifications();
    void endGeneratingDeviceOrientationNotifications();
    bool isGeneratingDeviceOrientationNotifications() const { return _generating.load() > 0; }

    /// Whether the device answers the idiom question at all.
    bool respondsToUserInterfaceIdiom() const;
    /// The idiom: the host's setting when it made one, else the one that
    /// suits the host's window (idiomForWindowSize). Phone when the device
    /// does not answer.
    int userInterfaceIdiom() const;
    /// The host's setting; nullopt makes the device one that does not answer.
    void setUserInterfaceIdiom(std::optional<int> idiom);
    /// Forgets the host's setting: the idiom follows the window size again.
    void resetUserInterfaceIdiom();
    /// Hosts report the size of the window the component is shown in (in
    /// points); an empty size (none reported) reads as a phone.
    void setWindowSize(const QSizeF& size);
    /// Pad for a window whose shorter side is at least 600 points (a tablet
    /// or a desktop window of that size), phone otherwise.
    static int idiomForWindowSize(const QSizeF& size);

private:
    Device() = default;

    std::atomic<int> _orientation{device_orientation::kPortrait};
    std::atomic<int> _generating{0};
    mutable std::mutex _mutex;
    bool _idiomSetByHost = false;
    std::optional<int> _idiom = idiom::kPhone;
    QSizeF _windowSize;
};

/// The application: its status-bar orientation. Thread-safe.
class Application {
public:
    static Application& shared();

    int statusBarOrientation() const { return _statusBarOrientation.load(); }
    void setStatusBarOrientation(int orientation) { _statusBarOrientation = orientation; }

private:
    Application() = default;
    std::atomic<int> _statusBarOrientation{interface_orientation::kPortrait};
};

/// The main screen: bounds in points and scale in pixels a point.
/// Thread-safe.
class Screen {
public:
    static Screen& main();

    QRectF bounds() const;
    void setBounds(const QRectF& bounds);
    double scale() const;
    void setScale(double scale);

private:
    Screen() = default;
    mutable std::mutex _mutex;
    QRectF _bounds{0, 0, 375, 667};
    double _scale = 2.0;
};

/// Whether a camera source exists: the host's or test's answer when set,
/// else the capture system's (any video device discoverable), else false.
/// Thread-safe.
class CameraAvailability {
public:
    static bool isCameraSourceAvailable();
    static void setOverride(std::optional<bool> available);
    /// Installed by the capture system.
    static void setProbe(std::function<bool()> probe);
};

}  // namespace platform
