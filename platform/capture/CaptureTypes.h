#pragma once

#include <QSize>
#include <QString>

#include <cstdint>
#include <limits>

/// The capture framework's constants, with the platform's names (as strings)
/// and numbers, so values handed through the component unchanged mean what
/// they mean on the platform. Everything here is immutable and thread-safe.
namespace platform {

/// Media types of input ports and connections.
inline const QString kMediaTypeVideo = QStringLiteral("vide");
inline const QString kMediaTypeAudio = QStringLiteral("soun");

/// Session presets. Each names a video size in the sensor's landscape
/// orientation; Photo is the device's full still size and High the largest
/// video size the device offers.
namespace session_preset {
inline const QString kHigh = QStringLiteral("AVCaptureSessionPresetHigh");
inline const QString kPhoto = QStringLiteral("AVCaptureSessionPresetPhoto");
inline const QString k3840x2160 = QStringLiteral("AVCaptureSessionPreset3840x2160");
inline const QString k1920x1080 = QStringLiteral("AVCaptureSessionPreset1920x1080");
inline const QString k1280x720 = QStringLiteral("AVCaptureSessionPreset1280x720");
inline const QString kiFrame960x540 = QStringLiteral("AVCaptureSessionPresetiFrame960x540");
}  // namespace session_preset

namespace device_position {
inline constexpr int kUnspecified = 0;
inline constexpr int kBack = 1;
inline constexpr int kFront = 2;
}  // namespace device_position

namespace focus_mode {
inline constexpr int kLocked = 0;
inline constexpr int kAutoFocus = 1;
inline constexpr int kContinuousAutoFocus = 2;
}  // namespace focus_mode

namespace exposure_mode {
inline constexpr int kLocked = 0;
inline constexpr int kAutoExpose = 1;
inline constexpr int kContinuousAutoExposure = 2;
inline constexpr int kCustom = 3;
}  // namespace exposure_mode

namespace flash_mode {
inline constexpr int kOff = 0;
inline constexpr int kOn = 1;
inline constexpr int kAuto = 2;
}  // namespace flash_mode

namespace torch_mode {
inline constexpr int kOff = 0;
inline constexpr int kOn = 1;
inline constexpr int kAuto = 2;
}  // namespace torch_mode

/// Passed to setTorchModeOnWithLevel: the highest level available right now.
inline constexpr float kMaxAvailableTorchLevel = std::numeric_limits<float>::max();

namespace white_balance_mode {
inline constexpr int kLocked = 0;
inline constexpr int kAutoWhiteBalance = 1;
inline constexpr int kContinuousAutoWhiteBalance = 2;
}  // namespace white_balance_mode

namespace video_stabilization_mode {
inline constexpr int kOff = 0;
inline constexpr int kStandard = 1;
inline constexpr int kCinematic = 2;
inline constexpr int kAuto = -1;
}  // namespace video_stabilization_mode

/// Video orientations. Landscape right (home button on the right) is the
/// sensor's own orientation: frames in it are not rotated.
namespace video_orientation {
inline constexpr int kPortrait = 1;
inline constexpr int kPortraitUpsideDown = 2;
inline constexpr int kLandscapeRight = 3;
inline constexpr int kLandscapeLeft = 4;
inline constexpr bool isValid(int orientation) {
    return orientation >= kPortrait && orientation <= kLandscapeLeft;
}
}  // namespace video_orientation

/// How a preview layer fits the video into its bounds.
namespace video_gravity {
inline const QString kResizeAspect = QStringLiteral("AVLayerVideoGravityResizeAspect");
inline const QString kResizeAspectFill = QStringLiteral("AVLayerVideoGravityResizeAspectFill");
inline const QString kResize = QStringLiteral("AVLayerVideoGravityResize");
}  // namespace video_gravity

/// Pixel formats (four-character codes).
namespace pixel_format {
inline constexpr std::uint32_t k32BGRA = 0x42475241;                        // 'BGRA'
inline constexpr std::uint32_t k420YpCbCr8BiPlanarFullRange = 0x34323066;   // '420f'
inline constexpr std::uint32_t k420YpCbCr8BiPlanarVideoRange = 0x34323076;  // '420v'
inline constexpr std::uint32_t k422YpCbCr8_yuvs = 0x79757673;               // 'yuvs'
/// The four characters of a format, for logs.
QString name(std::uint32_t format);
}  // namespace pixel_format

/// Key of the pixel format (an unsigned number) in video settings and still
/// output settings dictionaries.
inline const QString kPixelBufferPixelFormatTypeKey = QStringLiteral("PixelFormatType");

/// Errors of the capture framework.
inline const QString kAVFoundationErrorDomain = QStringLiteral("AVFoundationErrorDomain");
namespace av_error {
inline constexpr int kUnknown = -11800;
inline constexpr int kSessionNotRunning = -11803;
inline constexpr int kDeviceAlreadyUsedByAnotherSession = -11804;
inline constexpr int kDeviceWasDisconnected = -11808;
inline constexpr int kDeviceNotConnected = -11814;
inline constexpr int kDeviceInUseByAnotherApplication = -11815;
inline constexpr int kOperationInterrupted = -11816;
inline constexpr int kDeviceLockedForConfigurationByAnotherProcess = -11817;
inline constexpr int kTorchLevelUnavailable = -11846;
}  // namespace av_error

/// Pixel buffer return codes.
namespace cv_return {
inline constexpr int kSuccess = 0;
inline constexpr int kError = -6660;
inline constexpr int kInvalidArgument = -6661;
}  // namespace cv_return

/// Flag of lockBaseAddress/unlockBaseAddress: the caller only reads.
inline constexpr std::uint64_t kPixelBufferLockReadOnly = 0x1;

/// Notifications of the capture framework, posted on the default centre.
/// The sender is the device or session concerned.
inline const QString kCaptureDeviceWasDisconnectedNotification =
    QStringLiteral("AVCaptureDeviceWasDisconnectedNotification");
inline const QString kCaptureSessionRuntimeErrorNotification =
    QStringLiteral("AVCaptureSessionRuntimeErrorNotification");
inline const QString kCaptureSessionDidStartRunningNotification =
    QStringLiteral("AVCaptureSessionDidStartRunningNotification");
inline const QString kCaptureSessionDidStopRunningNotification =
    QStringLiteral("AVCaptureSessionDidStopRunningNotification");
/// User-info key of the runtime error (an ErrorPtr in a QVariant).
inline const QString kCaptureSessionErrorKey = QStringLiteral("AVCaptureSessionErrorKey");

/// A media time stamp: value / timescale seconds.
struct MediaTime {
    qint64 value = 0;
    qint32 timescale = 0;

    bool isValid() const { return timescale > 0; }
    double seconds() const { return isValid() ? static_cast<double>(value) / timescale : 0.0; }
};

}  // namespace platform
