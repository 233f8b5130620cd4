#pragma once

#include "platform/graphics/Image.h"
#include "platform/ui/View.h"

#include <QImage>

#include <memory>

namespace platform {

/// The layer gravity that shows contents the way a view's content mode
/// asks (Redraw stretches, like ScaleToFill).
ContentsGravity contentsGravityForContentMode(ContentMode mode);

/// A view that shows an image through its layer's contents, placed by the
/// content mode (scale to fill by default), like the platform's image views.
/// Images that are not stored upright are turned once, when set. Not
/// interactive by default. Main thread only.
class ImageView : public View {
public:
    /// An image view as large as image (in points), at the origin.
    static std::shared_ptr<ImageView> create(ImagePtr image = nullptr);
    static std::shared_ptr<ImageView> create(const QRectF& frame);

    const ImagePtr& image() const { return _image; }
    void setImage(ImagePtr image);

    void setContentMode(ContentMode mode) override;
    /// The image's size in points; no intrinsic size without an image.
    QSizeF intrinsicContentSize() const override;
    QSizeF sizeThatFits(const QSizeF& size) const override;
    QString typeName() const override;

protected:
    explicit ImageView(const QRectF& frame, ImagePtr image = nullptr);
    void didCreate() override;

private:
    friend class View;

    ImagePtr _image;
    // _image's pixels turned upright.
    QImage _upright;
};

}  // namespace platform
