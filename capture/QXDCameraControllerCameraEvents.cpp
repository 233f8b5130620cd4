// The engine's callbacks turned into host callbacks, the frame-to-view
// transform, and freezing and resuming the picture.

#include "QXDCameraController.h"

#include "QXDCameraCore.h"
#include "QXDCameraView.h"
#include "platform/foundation/Value.h"
#include "platform/graphics/AffineTransform.h"

namespace {

// The frame-to-view mapping for a frame of imageSize pixels shown in a root
// view of viewSize points: each point is scaled, then moved back by the
// part of the aspect-filled picture that overhangs the view. The portrait
// branch's offsets are zero but for rounding, and whether that residue is
// negative decides if sy becomes sx; the expressions stay exactly as they
// are so that decision stays the same.
QTransform frameToViewTransform(const QSizeF& viewSize, const QSizeF& imageSize, bool portrait) {
    const double W = viewSize.width();
    const double H = viewSize.height();
    const double w = imageSize.width();
    const double h = imageSize.height();
    double sx = W / w;
    double sy = H / h;
    double ox = 0.0;
    double oy = 0.0;
    if (sx == sy) {
        ox = 0.0;
        oy = 0.0;
    } else if (portrait) {
        ox = (w * sx - W) * 0.5;
        oy = (h * sy - H) * 0.5;
        if (oy < 0) {
            oy = 0;
            sy = sx;
        }
    } else {
        ox = (h * sx - H) * 0.5;
        oy = (w * sy - W) * 0.5;
        if (ox < 0) {
            ox = 0;
            sx = sy;
        }
    }
    const QTransform translation = platform::affine::makeTranslation(-ox, -oy);
    return platform::affine::scale(translation, sx, sy);
}

}  // namespace

void QXDCameraController::cameraDidCaptureVideoSample(QXDCamera& camera, const QImage& image) {
    if (!_isVisible.load()) {
        return;
    }
    const QString preset = camera.sessionPreset();
    const bool portrait = interfaceOrientation() == 1;
    {
        std::lock_guard lock(_frameStateMutex);
        if (!platform::value::isSameObject(preset, _currentPreset)) {
            _currentPreset = preset;
            _transform = QTransform();
        }
        _transform =
            frameToViewTransform(_rootFrameForFrames.size(), QSizeF(image.size()), portrait);
    }
    if (auto host = delegate()) {
        host->captureControllerDidReceiveFrame(*this, platform::Image::withCGImage(image));
    }
}

void QXDCameraController::cameraDidCaptureStillImage(QXDCamera& /*camera*/, const QImage& image) {
    QXD_LOG(QStringLiteral("Capture controller did capture still image"));
    if (auto host = delegate()) {
        host->cameraDidCaptureStillImage(
            *this, platform::Image::withCGImage(image, 1.0, platform::ImageOrientation::Up));
    }
}

void QXDCameraController::cameraDidFailWithError(QXDCamera& /*camera*/,
                                                 const platform::ErrorPtr& error) {
    QXD_LOG(QStringLiteral("Capture controller did fail with error: ") +
            (error ? error->localizedDescription() : QString()));
    if (auto host = delegate()) {
        host->captureControllerDidFailWithError(*this, error);
    }
}

void QXDCameraController::freezeCamera() {
    camera()->stop();
    if (_cameraView) {
        _cameraView->addBlurEffect();
    }
}

void QXDCameraController::resumeCamera() {
    camera()->start();
    if (_cameraView) {
        _cameraView->removeBlurEffect();
    }
}
