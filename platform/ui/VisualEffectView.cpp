#include "platform/ui/VisualEffectView.h"

#include "platform/layers/Transaction.h"
#include "platform/render/BackdropLayer.h"

#include <QPainter>

namespace platform {

// --- Effects ------------------------------------------------------------------------

std::shared_ptr<const BlurEffect> BlurEffect::effectWithStyle(BlurEffectStyle style) {
    return std::shared_ptr<const BlurEffect>(new BlurEffect(style));
}

BlurStyle BlurEffect::blurStyle() const {
    BlurStyle blur;  // dark by default
    switch (_style) {
        case BlurEffectStyle::Dark:
            break;
        case BlurEffectStyle::Light:
            blur.tint = QColor(255, 255, 255, 77);
            break;
        case BlurEffectStyle::ExtraLight:
            blur.tint = QColor(247, 247, 247, 204);
            break;
    }
    return blur;
}

std::shared_ptr<const VibrancyEffect> VibrancyEffect::effectForBlurEffect(
    std::shared_ptr<const BlurEffect> blur) {
    return std::shared_ptr<const VibrancyEffect>(new VibrancyEffect(std::move(blur)));
}

QColor VibrancyEffect::overlayColor() const {
    const bool dark = !_blur || _blur->style() == BlurEffectStyle::Dark;
    return dark ? QColor(255, 255, 255, 20) : QColor(255, 255, 255, 38);
}

// --- View -----------------------------------------------------------------------------

std::shared_ptr<VisualEffectView> VisualEffectView::create(
    std::shared_ptr<const VisualEffect> effect, const QRectF& frame) {
    return make<VisualEffectView>(std::move(effect), frame);
}

VisualEffectView::VisualEffectView(std::shared_ptr<const VisualEffect> effect, const QRectF& frame)
    : View(frame), _effect(std::move(effect)) {}

LayerPtr VisualEffectView::makeBackingLayer() {
    if (dynamic_cast<const BlurEffect*>(_effect.get()) != nullptr) {
        return BackdropLayer::create();
    }
    return Layer::create();
}

void VisualEffectView::didCreate() {
    View::didCreate();
    _contentView = View::create(bounds());
    _contentView->setAutoresizingMask(autoresizing::kFlexibleWidth | autoresizing::kFlexibleHeight);
    addSubview(_contentView);
    applyEffect();
}

QString VisualEffectView::typeName() const {
    return QStringLiteral("VisualEffectView");
}

void VisualEffectView::setEffect(std::shared_ptr<const VisualEffect> effect) {
    _effect = std::move(effect);
    applyEffect();
}

void VisualEffectView::applyEffect() {
    auto* backdrop = dynamic_cast<BackdropLayer*>(layer().get());
    if (const auto* blur = dynamic_cast<const BlurEffect*>(_effect.get()); blur && backdrop) {
        backdrop->setBlurStyle(blur->blurStyle());
    }
    setNeedsDisplay();
}

void VisualEffectView::drawRect(QPainter& context, const QRectF& rect) {
    if (const auto* vibrancy = dynamic_cast<const VibrancyEffect*>(_effect.get())) {
        context.fillRect(rect, vibrancy->overlayColor());
    }
}

void VisualEffectView::layoutSubviews() {
    View::layoutSubviews();
    if (_contentView->frame() != bounds()) {
        Transaction::Scope quiet(true);
        _contentView->setFrame(bounds());
    }
}

}  // namespace platform
