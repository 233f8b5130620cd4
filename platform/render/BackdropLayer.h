#pragma once

#include "platform/graphics/Blur.h"
#include "platform/layers/Layer.h"

class QPainter;

namespace platform {

/// A layer that blurs and darkens whatever is already painted beneath its
/// bounds before its own content and sublayers are drawn, like the platform's
/// visual-effect backdrops. Main thread only.
class BackdropLayer : public Layer {
public:
    static std::shared_ptr<BackdropLayer> create();

    const BlurStyle& blurStyle() const { return _style; }
    void setBlurStyle(const BlurStyle& style);

    /// Blurs the painter's target under bounds (layer coordinates). Works
    /// when the painter paints into a QImage; other targets are left as they
    /// are.
    void applyBackdrop(QPainter& painter, const QRectF& bounds) const;

protected:
    BackdropLayer() = default;
    QString typeName() const override;

private:
    BlurStyle _style;
};

}  // namespace platform
