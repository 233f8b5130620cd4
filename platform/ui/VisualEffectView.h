#pragma once

#include "platform/graphics/Blur.h"
#include "platform/ui/View.h"

#include <QColor>

#include <memory>

namespace platform {

/// Blur styles, with the platform's numbers.
enum class BlurEffectStyle { ExtraLight = 0, Light = 1, Dark = 2 };

/// What a visual-effect view does to what lies beneath it.
class VisualEffect {
public:
    virtual ~VisualEffect() = default;

protected:
    VisualEffect() = default;
};

/// Blurs what lies beneath and tints it: dark, light or extra light.
class BlurEffect : public VisualEffect {
public:
    static std::shared_ptr<const BlurEffect> effectWithStyle(BlurEffectStyle style);
    BlurEffectStyle style() const { return _style; }
    /// The blur radius and tint of the style.
    BlurStyle blurStyle() const;

private:
    explicit BlurEffect(BlurEffectStyle style) : _style(style) {}
    BlurEffectStyle _style;
};

/// Lifts what lies beneath a blur a little, for content that sits on it.
class VibrancyEffect : public VisualEffect {
public:
    static std::shared_ptr<const VibrancyEffect> effectForBlurEffect(
        std::shared_ptr<const BlurEffect> blur);
    const std::shared_ptr<const BlurEffect>& blurEffect() const { return _blur; }
    /// The translucent colour laid over what lies beneath.
    QColor overlayColor() const;

private:
    explicit VibrancyEffect(std::shared_ptr<const BlurEffect> blur) : _blur(std::move(blur)) {}
    std::shared_ptr<const BlurEffect> _blur;
};

/// A view that applies a visual effect to what is painted beneath it, with
/// a content view on top for its own subviews, like the platform's effect
/// views. A blur is done by the backing layer (a BackdropLayer) when the
/// tree is painted; vibrancy lays a faint light colour over the backdrop.
/// Whether the view blurs is fixed when it is made: setEffect can change the
/// blur's style or the vibrancy, not add a blur to a view made without one or
/// remove it. Main thread only.
class VisualEffectView : public View {
public:
    static std::shared_ptr<VisualEffectView> create(std::shared_ptr<const VisualEffect> effect,
                                                    const QRectF& frame = {});

    const std::shared_ptr<const VisualEffect>& effect() const { return _effect; }
    void setEffect(std::shared_ptr<const VisualEffect> effect);
    /// Add subviews here; it always covers the bounds.
    const ViewPtr& contentView() const { return _contentView; }

    void layoutSubviews() override;
    void drawRect(QPainter& context, const QRectF& rect) override;
    bool drawsContent() const override { return true; }
    QString typeName() const override;

protected:
    VisualEffectView(std::shared_ptr<const VisualEffect> effect, const QRectF& frame);
    void didCreate() override;
    LayerPtr makeBackingLayer() override;

private:
    friend class View;

    void applyEffect();

    std::shared_ptr<const VisualEffect> _effect;
    ViewPtr _contentView;
};

}  // namespace platform
