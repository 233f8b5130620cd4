#include "QXDCameraCore.h"

#include "support/BundleCheck.h"

#include "platform/foundation/Bundle.h"
#include "platform/foundation/Dispatch.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/Value.h"

#include <QFileInfo>
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

namespace {

struct BundleState {
    std::shared_ptr<platform::Bundle> bundle;
    QString problem;
};

const BundleState& bundleState() {
    static platform::OnceToken once;
    static BundleState state;
    platform::runOnce(once, [] {
        // Said once, whatever the logging switch: without its resources the
        // screens still work but look broken.
        const QString named = qEnvironmentVariable("QXD_FRAMEWORK_BUNDLE");
        if (!named.isEmpty() && !QFileInfo(named).isDir()) {
            platform::log::write(QStringLiteral("QXDCameraController: QXD_FRAMEWORK_BUNDLE names "
                                                "%1, which is not a folder; looking beside the "
                                                "library instead.")
                                     .arg(named));
        }
        state.bundle = QXDCameraCore::bundleForClass();
        state.problem = support::bundleProblem(state.bundle.get());
        if (!state.problem.isEmpty()) {
            platform::log::write(QStringLiteral("QXDCameraController: ") + state.problem);
        }
        if (!state.bundle) {
            // An empty bundle: look-ups give keys and no images, never a crash.
            state.bundle = std::make_shared<platform::Bundle>(QString());
        }
    });
    return state;
}

}  // namespace

std::shared_ptr<platform::Bundle> QXDCameraCore::bundle() {
    return bundleState().bundle;
}

QString QXDCameraCore::bundleProblem() {
    return bundleState().problem;
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
