#pragma once

#include <QString>

#include <memory>

namespace platform {
class Bundle;
}

/// Gives the framework's resource bundle (images, string tables, the
/// information dictionary).
class QXDCameraCore {
public:
    /// The bundle that holds the framework. Made on the first call and the
    /// same object on every later one; never null (without resources it is
    /// an empty bundle, whose look-ups give their keys and no images).
    /// Thread-safe.
    static std::shared_ptr<platform::Bundle> bundle();
    /// What was wrong with the resources when bundle() first looked (not
    /// found, empty, unreadable or incomplete), in words; empty when they are
    /// whole. The first look also writes it to the log, once.
    static QString bundleProblem();

    /// Looks the framework's bundle up afresh, as the logging switch does on
    /// every call. Thread-safe.
    static std::shared_ptr<platform::Bundle> bundleForClass();
};

/// Writes "QXDCameraController - <message>" to the system log when the
/// framework's information dictionary has QXDCameraControllerLoggingEnabled
/// set to YES; does nothing otherwise. The message is taken as it is, never
/// as a format. Thread-safe.
void QXD_LOG(const QString& message);

/// The domain of the engine's errors: "QXDCameraErrorDomain".
extern const QString QXDCameraErrorDomain;

/// Labels of the engine's serial queues and of the capture screen's
/// camera-actions queue. Writable on purpose: a host may point them at its
/// own labels before the first engine is made.
extern const char* QXDCameraCaptureSessionQueueLabel;
extern const char* QXDCameraStillImageOutputQueueLabel;
extern const char* QXDCameraVideoDataOutputQueueLabel;
extern const char* kCameraActionsQueueLabel;
