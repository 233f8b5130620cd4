#include "platform/ui/ImageView.h"

namespace platform {

ContentsGravity contentsGravityForContentMode(ContentMode mode) {
    switch (mode) {
        case ContentMode::ScaleToFill:
        case ContentMode::Redraw:
            return ContentsGravity::Resize;
        case ContentMode::ScaleAspectFit:
            return ContentsGravity::ResizeAspect;
        case ContentMode::ScaleAspectFill:
            return ContentsGravity::ResizeAspectFill;
        case ContentMode::Center:
            return ContentsGravity::Center;
        case ContentMode::Top:
            return ContentsGravity::Top;
        case ContentMode::Bottom:
            return ContentsGravity::Bottom;
        case ContentMode::Left:
            return ContentsGravity::Left;
        case ContentMode::Right:
            return ContentsGravity::Right;
        case ContentMode::TopLeft:
            return ContentsGravity::TopLeft;
        case ContentMode::TopRight:
            return ContentsGravity::TopRight;
        case ContentMode::BottomLeft:
            return ContentsGravity::BottomLeft;
        case ContentMode::BottomRight:
            return ContentsGravity::BottomRight;
    }
    return ContentsGravity::Resize;
}

std::shared_ptr<ImageView> ImageView::create(ImagePtr image) {
    const QRectF frame = image ? QRectF(QPointF(0, 0), image->size()) : QRectF();
    return make<ImageView>(frame, std::move(image));
}

std::shared_ptr<ImageView> ImageView::create(const QRectF& frame) {
    return make<ImageView>(frame);
}

ImageView::ImageView(const QRectF& frame, ImagePtr image) : View(frame), _image(std::move(image)) {
    setUserInteractionEnabled(false);
}

void ImageView::didCreate() {
    View::didCreate();
    layer()->setContentsGravity(contentsGravityForContentMode(contentMode()));
    if (_image) {
        ImagePtr image = std::move(_image);
        setImage(std::move(image));
    }
}

QString ImageView::typeName() const {
    return QStringLiteral("ImageView");
}

void ImageView::setImage(ImagePtr image) {
    if (image == _image) {
        return;
    }
    _image = std::move(image);
    _upright = QImage();
    if (_image) {
        const ImageOrientation orientation = _image->imageOrientation();
        _upright = orientation == ImageOrientation::Up
                       ? _image->cgImage()
                       : applyOrientation(_image->cgImage(), orientation);
    }
    layer()->setContents(_upright);
    layer()->setContentsScale(_image ? _image->scale() : 1.0);
    invalidateIntrinsicContentSize();
}

void ImageView::setContentMode(ContentMode mode) {
    View::setContentMode(mode);
    layer()->setContentsGravity(contentsGravityForContentMode(mode));
}

QSizeF ImageView::intrinsicContentSize() const {
    if (!_image) {
        return {kNoIntrinsicMetric, kNoIntrinsicMetric};
    }
    return _image->size();
}

QSizeF ImageView::sizeThatFits(const QSizeF& size) const {
    return _image ? _image->size() : size;
}

}  // namespace platform
