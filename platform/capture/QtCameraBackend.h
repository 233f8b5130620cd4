#pragma once

#include "platform/capture/CaptureDeviceDriver.h"

#include <QCamera>
#include <QCameraDevice>
#include <QImage>
#include <QList>
#include <QSize>
#include <QString>
#include <QVideoFrame>
#include <QVideoFrameFormat>

#include <functional>
#include <memory>

namespace platform {

/// One video format a Qt camera offers.
struct QtCameraFormat {
    QSize resolution;
    QVideoFrameFormat::PixelFormat pixelFormat = QVideoFrameFormat::Format_Invalid;
    float maxFrameRate = 0.0f;
    bool operator==(const QtCameraFormat&) const = default;
};

/// What the driver needs to know of a Qt camera: plain data, so the driver
/// runs the same with Qt's cameras and with stand-ins.
struct QtCameraDescription {
    QString id;
    QString name;
    QCameraDevice::Position position = QCameraDevice::UnspecifiedPosition;
    QList<QtCameraFormat> videoFormats;
    QList<QSize> photoResolutions;
    QList<QCamera::FocusMode> focusModes;
    QList<QCamera::ExposureMode> exposureModes;
    QList<QCamera::FlashMode> flashModes;
    QList<QCamera::TorchMode> torchModes;
    bool whiteBalanceAuto = false;
    QCamera::Features features;

    /// The distinct resolutions of videoFormats, in their order.
    QList<QSize> videoResolutions() const;

    /// Asks camera (made for device) what it supports. Main thread.
    static QtCameraDescription of(const QCameraDevice& device, const QCamera& camera);
};

/// One opened camera on the Qt side: a QCamera in a capture session with a
/// video sink and an image capture. Lives on the main thread and is used only
/// there, except where a function says otherwise.
///
/// The events are set once, before start(). frame may be called on any thread
/// (the backend's streaming thread); the others come on the main thread, as
/// Qt's signals do. No event is sent from within a call of the driver's.
class QtCameraControl {
public:
    struct Events {
        std::function<void(const QVideoFrame&)> frame;
        /// The camera failed; Qt sends this when the device goes away.
        std::function<void(const QString& message)> error;
        /// isReadyForCapture() turned true.
        std::function<void()> readyForCapture;
        std::function<void(int id, const QImage& image)> stillCaptured;
        std::function<void(int id, const QString& message)> stillFailed;
    };

    virtual ~QtCameraControl() = default;

    virtual void setEvents(Events events) = 0;
    virtual void start() = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;
    /// One of the description's video formats.
    virtual void setFormat(const QtCameraFormat& format) = 0;
    /// Settings the description says the camera supports; quietly skips the rest.
    virtual void applySettings(const CaptureDeviceSettings& settings) = 0;

    virtual bool isReadyForCapture() const = 0;
    virtual void setStillResolution(const QSize& size) = 0;
    /// Starts a still capture: its id, or -1 with errorString() telling why.
    virtual int captureStill() = 0;
    virtual QString stillErrorString() const = 0;
};

/// Where the cameras come from: Qt Multimedia, or a stand-in in tests. Main
/// thread only.
class QtCameraBackend {
public:
    virtual ~QtCameraBackend() = default;

    /// The video inputs, in Qt's order.
    virtual QList<QtCameraDescription> videoInputs() = 0;
    /// The system's default video input: its id, or empty without one.
    virtual QString defaultVideoInputID() = 0;
    /// Opens a camera of videoInputs(); null when it is not there.
    virtual std::unique_ptr<QtCameraControl> open(const QString& id) = 0;
    /// Calls changed (main thread) whenever the list of video inputs changes.
    /// One watcher; a new one replaces the old, an empty function removes it.
    virtual void watchVideoInputs(std::function<void()> changed) = 0;

    /// Qt Multimedia's cameras.
    static std::shared_ptr<QtCameraBackend> multimedia();
};

}  // namespace platform
