#include "QXDCameraView.h"

#include "platform/ui/VisualEffectView.h"

namespace {

constexpr unsigned kFlexibleEverything =
    platform::autoresizing::kFlexibleLeftMargin | platform::autoresizing::kFlexibleWidth |
    platform::autoresizing::kFlexibleRightMargin | platform::autoresizing::kFlexibleTopMargin |
    platform::autoresizing::kFlexibleHeight | platform::autoresizing::kFlexibleBottomMargin;

}  // namespace

std::shared_ptr<QXDCameraView> QXDCameraView::create(const QRectF& frame) {
    return make<QXDCameraView>(frame);
}

QString QXDCameraView::typeName() const {
    return QStringLiteral("QXDCameraView");
}

void QXDCameraView::drawRect(QPainter& context, const QRectF& rect) {
    View::drawRect(context, rect);
}

void QXDCameraView::layoutSubviews() {
    // Deliberately not the base: the layers follow the bounds, and the
    // subviews follow their autoresizing masks.
    const QRectF area = bounds();
    const auto sublayers = layer()->sublayers();
    for (const auto& sublayer : sublayers) {
        sublayer->setFrame(area);
    }
}

void QXDCameraView::addBlurEffect() {
    if (_blurView) {
        removeBlurEffect();
    }
    _blurView = View::create(bounds());
    _blurView->setAutoresizingMask(kFlexibleEverything);
    addSubview(_blurView);

    const auto blur = platform::BlurEffect::effectWithStyle(platform::BlurEffectStyle::Dark);
    const auto vibrancy = platform::VibrancyEffect::effectForBlurEffect(blur);
    // Each effect view takes the camera view's frame, not its bounds.
    const auto blurEffectView = platform::VisualEffectView::create(blur, frame());
    blurEffectView->setAutoresizingMask(kFlexibleEverything);
    const auto vibrancyEffectView = platform::VisualEffectView::create(vibrancy, frame());
    vibrancyEffectView->setAutoresizingMask(kFlexibleEverything);

    // Siblings in the container, the vibrancy on top.
    _blurView->addSubview(blurEffectView);
    _blurView->addSubview(vibrancyEffectView);
}

void QXDCameraView::removeBlurEffect() {
    if (_blurView) {
        _blurView->removeFromSuperview();
        _blurView.reset();
    }
}
