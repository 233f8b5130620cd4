#include "QXDCameraCore.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/Value.h"

#include <QStringList>

const QString QXDCameraErrorDomain = QStringLiteral("QXDCameraErrorDomain");

const char* QXDCameraCaptureSessionQueueLabel = "org.qxdcamera.QXDCameraController.camera.session";
const char* QXDCameraStillImageOutputQueueLabel = "org.qxdcamera.QXDCameraController.camera.image";
const char* QXDCameraVideoDataOutputQueueLabel = "org.qxdcamera.QXDCameraController.camera.video";
const char* kCameraActionsQueueLabel = "org.qxdcamera.cameraActionsQueue";

namespace {

// Any object of the library does to find the library's file.
const char kLibraryAnchor = 0;

}  // namespace

std::shared_ptr<platform::Bundle> QXDCameraCore::bundleForClass() {
    static const QStringList besideLibrary = {
        QStringLiteral("resources"),
        QStringLiteral("../share/QXDCameraController/resources"),
        QStringLiteral("../../share/QXDCameraController/resources"),
    };
    return platform::Bundle::bundleForLibrary(&kLibraryAnchor, "QXD_FRAMEWORK_BUNDLE",
                                              besideLibrary,
                                              QStringLiteral(QXD_BUILD_RESOURCES_DIR));
}

std::shared_ptr<platform::Bundle> QXDCameraCore::bundle() {
    static platform::OnceToken once;
    static std::shared_ptr<platform::Bundle> cached;
    platform::runOnce(once, [] { cached = bundleForClass(); });
    return cached;
}

void QXD_LOG(const QString& message) {
    const auto bundle = QXDCameraCore::bundleForClass();
    if (!bundle) {
        return;
    }
    const QVariant enabled =
        bundle->infoDictionary().value(QStringLiteral("QXDCameraControllerLoggingEnabled"));
    if (platform::value::boolValue(enabled)) {
        platform::log::write(QStringLiteral("QXDCameraController - ") + message);
    }
}
