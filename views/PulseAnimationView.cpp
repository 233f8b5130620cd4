#include "PulseAnimationView.h"

#include "platform/graphics/Path.h"
#include "platform/layers/Animation.h"
#include "platform/layers/Layer.h"

#include <QColor>

namespace {

constexpr double kFullCircle = 6.283185307179586;

// A full circle around the layer's origin, so that positioning the layer
// centres it.
QPainterPath circleOfRadius(double radius) {
    platform::BezierPath path;
    path.addArcWithCenter(QPointF(0, 0), radius, 0.0, kFullCircle, true);
    return path.qPainterPath();
}

}  // namespace

std::shared_ptr<PulseAnimationView> PulseAnimationView::initWithRadius(double radius) {
    auto view = make<PulseAnimationView>();
    view->setRadius(radius);
    return view;
}

QString PulseAnimationView::typeName() const {
    return QStringLiteral("PulseAnimationView");
}

void PulseAnimationView::startAnimation() {
    if (_animationLayer) {
        return;
    }
    _animationLayer = platform::ShapeLayer::create();
    _animationLayer->setPath(circleOfRadius(radius() * 0.5));

    auto scale = platform::BasicAnimation::create(QStringLiteral("transform.scale.xy"));
    scale->setFromValue(0.0);
    scale->setToValue(1.0);
    auto opacity = platform::BasicAnimation::create(QStringLiteral("opacity"));
    opacity->setFromValue(0.8);
    opacity->setToValue(0.0);

    // The ring keeps the shape layer's default (black) fill: that is the look.
    _animationLayer->setStrokeColor(Qt::white);
    _animationLayer->setLineWidth(1.0);

    auto group = platform::AnimationGroup::create();
    group->setAnimations({scale, opacity});
    group->setDuration(1.0);
    group->setRepeatCount(platform::Animation::kRepeatForever);
    group->setRemovedOnCompletion(false);
    _animationLayer->addAnimation(group, QStringLiteral("frame"));
    layer()->addSublayer(_animationLayer);

    _circleLayer = platform::ShapeLayer::create();
    _circleLayer->setPath(circleOfRadius(radius() * 0.0625));
    _circleLayer->setFillColor(Qt::white);
    layer()->addSublayer(_circleLayer);

    layoutIfNeeded();
}

void PulseAnimationView::layoutSubviews() {
    View::layoutSubviews();
    const QPointF centre = bounds().center();
    if (_animationLayer) {
        _animationLayer->setPosition(centre);
    }
    if (_circleLayer) {
        _circleLayer->setPosition(centre);
    }
}
