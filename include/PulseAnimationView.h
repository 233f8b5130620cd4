#pragma once

#include "platform/ui/View.h"

#include <atomic>
#include <memory>

namespace platform {
class ShapeLayer;
}

/// The busy indicator of the capture screen: a ring that grows from the
/// centre and fades out once a second, forever, around a small white dot.
/// The pulse runs from startAnimation until the view goes. Main thread only,
/// except radius.
class PulseAnimationView : public platform::View {
public:
    /// A view without a frame; radius sets the ring's size (half of it) and
    /// the dot's (a sixteenth).
    static std::shared_ptr<PulseAnimationView> initWithRadius(double radius);

    /// The pulsing ring; null until the pulse first starts.
    const std::shared_ptr<platform::ShapeLayer>& animationLayer() const { return _animationLayer; }
    /// The white centre dot; null until the pulse first starts.
    const std::shared_ptr<platform::ShapeLayer>& circleLayer() const { return _circleLayer; }
    double radius() const { return _radius.load(); }
    void setRadius(double radius) { _radius.store(radius); }

    /// Builds the ring and the dot and starts the pulse; later calls do nothing.
    void startAnimation();
    /// Centres the ring and the dot in the bounds.
    void layoutSubviews() override;
    QString typeName() const override;

protected:
    PulseAnimationView() = default;

private:
    std::shared_ptr<platform::ShapeLayer> _animationLayer;
    std::shared_ptr<platform::ShapeLayer> _circleLayer;
    std::atomic<double> _radius{0.0};
};
