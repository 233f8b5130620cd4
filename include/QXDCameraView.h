#pragma once

#include "platform/ui/View.h"

#include <memory>

/// The capture screen's root view: keeps every layer attached to its own
/// layer (the live preview among them) as large as its bounds, and can lay a
/// dark blur over everything while the camera switches. Main thread only.
class QXDCameraView : public platform::View {
public:
    static std::shared_ptr<QXDCameraView> create(const QRectF& frame = {});

    /// The container of the blur overlay while one is shown, else null.
    const platform::ViewPtr& blurView() const { return _blurView; }
    void setBlurView(const platform::ViewPtr& view) { _blurView = view; }

    void drawRect(QPainter& context, const QRectF& rect) override;
    bool prefersStatusBarHidden() const { return true; }
    /// Sizes every sublayer of the view's layer to the bounds; subviews are
    /// left to their own autoresizing.
    void layoutSubviews() override;

    /// Lays a dark blur with vibrancy over the view, replacing one already there.
    void addBlurEffect();
    /// Takes the blur away; does nothing without one.
    void removeBlurEffect();

    QString typeName() const override;

protected:
    explicit QXDCameraView(const QRectF& frame) : View(frame) {}

private:
    platform::ViewPtr _blurView;
};
