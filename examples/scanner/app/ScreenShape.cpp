#include "ScreenShape.h"

#include "QXDCameraController.h"
#include "ScanSession.h"
#include "platform/capture/CaptureSession.h"
#include "platform/environment/Environment.h"
#include "platform/ui/Window.h"

namespace scanner {
namespace {

// How much wider than high (or higher than wide) a window must be to change
// layout: a window near square keeps the one it has.
constexpr double kClearly = 1.15;

}  // namespace

ScreenShape::ScreenShape(std::shared_ptr<platform::Window> window,
                         std::shared_ptr<ScanSession> session, Factory factory, bool pad)
    : _window(window), _session(session), _factory(std::move(factory)), _pad(pad) {}

bool ScreenShape::wantsPad(const QSizeF& size, bool padNow) {
    if (size.width() >= kClearly * size.height()) {
        return true;
    }
    if (size.height() >= kClearly * size.width()) {
        return false;
    }
    return padNow;
}

bool ScreenShape::windowResized(const QSizeF& size) {
    const bool pad = wantsPad(size, _pad);
    auto window = _window.lock();
    auto session = _session.lock();
    if (pad == _pad || !window || !session || session->isFinished()) {
        return false;
    }
    const auto old = session->controller();
    if (!old) {
        return false;
    }
    platform::Device::current().setUserInterfaceIdiom(pad ? platform::idiom::kPad
                                                          : platform::idiom::kPhone);
    const auto fresh = _factory();
    if (!session->attachController(fresh)) {
        platform::Device::current().setUserInterfaceIdiom(_pad ? platform::idiom::kPad
                                                               : platform::idiom::kPhone);
        return false;
    }
    // One camera, one session: the old screen lets go of it before the new
    // one starts.
    if (const auto& camera = old->camera(); camera && camera->captureSession()) {
        camera->captureSession()->stopRunning();
    }
    window->setRootViewController(fresh);
    _pad = pad;
    return true;
}

}  // namespace scanner
