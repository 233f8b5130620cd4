#include "platform/ui/Button.h"

#include "platform/ui/Font.h"

#include <QPainter>

#include <algorithm>

namespace platform {
namespace {

constexpr double kTitleFontSize = 15.0;
const QColor kSystemTint(0, 122, 255);
// Laid over the image's own pixels while highlighted or disabled.
const QColor kHighlightOverlay(0, 0, 0, 85);
const QColor kDisabledOverlay(255, 255, 255, 110);

QColor defaultTitleColor(ButtonType type, unsigned state) {
    if (type == ButtonType::Custom) {
        return Qt::white;
    }
    if ((state & control_state::kDisabled) != 0) {
        return {142, 142, 147};
    }
    QColor tint = kSystemTint;
    if ((state & control_state::kHighlighted) != 0) {
        tint.setAlphaF(0.2f);
    }
    return tint;
}

ImagePtr overlaid(const Image& source, const QColor& overlay) {
    QImage pixels = source.cgImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    {
        QPainter painter(&pixels);
        painter.setCompositionMode(QPainter::CompositionMode_SourceAtop);
        painter.fillRect(pixels.rect(), overlay);
    }
    return Image::withCGImage(pixels, source.scale(), source.imageOrientation());
}

// Start of a span of `size` in [start, start + available] for an alignment.
double aligned(double start, double available, double size, int where) {
    switch (where) {
        case -1:
            return start;
        case 1:
            return start + available - size;
        default:
            return start + (available - size) / 2.0;
    }
}

int horizontalPlace(ContentHorizontalAlignment alignment) {
    switch (alignment) {
        case ContentHorizontalAlignment::Left:
        case ContentHorizontalAlignment::Leading:
        case ContentHorizontalAlignment::Fill:
            return -1;
        case ContentHorizontalAlignment::Right:
        case ContentHorizontalAlignment::Trailing:
            return 1;
        case ContentHorizontalAlignment::Center:
            break;
    }
    return 0;
}

// Places a span of `size` vertically in area; Fill takes the whole height.
std::pair<double, double> verticalSpan(const QRectF& area, double size,
                                       ContentVerticalAlignment alignment) {
    switch (alignment) {
        case ContentVerticalAlignment::Top:
            return {area.top(), size};
        case ContentVerticalAlignment::Bottom:
            return {area.bottom() - size, size};
        case ContentVerticalAlignment::Fill:
            return {area.top(), std::max(0.0, area.height())};
        case ContentVerticalAlignment::Center:
            break;
    }
    return {area.top() + (area.height() - size) / 2.0, size};
}

}  // namespace

std::shared_ptr<Button> Button::create(ButtonType type) {
    return make<Button>(type);
}

Button::Button(ButtonType type) : Control(QRectF()), _type(type) {}

QString Button::typeName() const {
    return QStringLiteral("Button");
}

// --- Values per state ---------------------------------------------------------

void Button::setImage(ImagePtr image, unsigned state) {
    _images.set(state, image, image != nullptr);
    updateContent();
}

ImagePtr Button::imageForState(unsigned state) const {
    return _images.find(state);
}

void Button::setBackgroundImage(ImagePtr image, unsigned state) {
    _backgroundImages.set(state, image, image != nullptr);
    updateContent();
}

ImagePtr Button::backgroundImageForState(unsigned state) const {
    return _backgroundImages.find(state);
}

void Button::setTitle(const QString& title, unsigned state) {
    _titles.set(state, title, !title.isEmpty());
    updateContent();
}

QString Button::titleForState(unsigned state) const {
    return _titles.find(state);
}

void Button::setTitleColor(const QColor& color, unsigned state) {
    _titleColors.set(state, color, color.isValid());
    updateContent();
}

QColor Button::titleColorForState(unsigned state) const {
    const QColor color = _titleColors.find(state);
    return color.isValid() ? color : defaultTitleColor(_type, state);
}

// --- Subviews -------------------------------------------------------------------

const std::shared_ptr<Label>& Button::titleLabel() {
    if (!_titleLabel) {
        _titleLabel = Label::create();
        _titleLabel->setFont(systemFont(kTitleFontSize));
        _titleLabel->setLineBreakMode(LineBreakMode::TruncatingMiddle);
        _titleLabel->_sizeDependent = weak_from_this();
        addSubview(_titleLabel);
        updateContent();
    }
    return _titleLabel;
}

const std::shared_ptr<ImageView>& Button::imageView() {
    if (!_imageView) {
        _imageView = ImageView::create();
        if (_titleLabel) {
            insertSubviewBelow(_imageView, _titleLabel.get());
        } else {
            addSubview(_imageView);
        }
        updateContent();
    }
    return _imageView;
}

ImagePtr Button::displayedImage() {
    ImagePtr image = currentImage();
    const unsigned now = state();
    QColor overlay;
    if (isHighlighted() && _adjustsWhenHighlighted && !_images.has(now)) {
        overlay = kHighlightOverlay;
    } else if (!isEnabled() && _adjustsWhenDisabled && !_images.has(now)) {
        overlay = kDisabledOverlay;
    }
    if (!image || !overlay.isValid()) {
        return image;
    }
    if (_adjusted.source != image || _adjusted.overlay != overlay) {
        _adjusted = {image, overlay, overlaid(*image, overlay)};
    }
    return _adjusted.image;
}

void Button::updateContent() {
    const ImagePtr image = currentImage();
    if (image && !_imageView) {
        imageView();  // shows the content itself
        return;
    }
    const QString title = currentTitle();
    if (!title.isEmpty() && !_titleLabel) {
        titleLabel();
        return;
    }
    if (_imageView) {
        _imageView->setImage(displayedImage());
        _imageView->setHidden(!image);
    }
    if (_titleLabel) {
        _titleLabel->setText(title);
        _titleLabel->setTextColor(currentTitleColor());
        _titleLabel->setHidden(title.isEmpty());
    }
    if (const ImagePtr background = currentBackgroundImage(); background || _backgroundView) {
        if (!_backgroundView) {
            _backgroundView = ImageView::create();
            insertSubview(_backgroundView, 0);
        }
        _backgroundView->setImage(background);
    }
    contentSizeDidChange();
}

void Button::stateDidChange() {
    updateContent();
}

void Button::contentSizeDidChange() {
    invalidateIntrinsicContentSize();
    setNeedsLayout();
}

// --- Insets and adjustments -------------------------------------------------------

void Button::setContentEdgeInsets(const EdgeInsets& insets) {
    _contentInsets = insets;
    contentSizeDidChange();
}

void Button::setImageEdgeInsets(const EdgeInsets& insets) {
    _imageInsets = insets;
    setNeedsLayout();
}

void Button::setTitleEdgeInsets(const EdgeInsets& insets) {
    _titleInsets = insets;
    setNeedsLayout();
}

void Button::setAdjustsImageWhenHighlighted(bool adjusts) {
    _adjustsWhenHighlighted = adjusts;
    updateContent();
}

void Button::setAdjustsImageWhenDisabled(bool adjusts) {
    _adjustsWhenDisabled = adjusts;
    updateContent();
}

// --- Geometry -----------------------------------------------------------------------

QSizeF Button::imageSize() const {
    const ImagePtr image = currentImage();
    return image ? image->size() : QSizeF(0, 0);
}

QSizeF Button::titleSize() const {
    if (!_titleLabel || currentTitle().isEmpty()) {
        return {0, 0};
    }
    return _titleLabel->intrinsicContentSize();
}

QRectF Button::contentRectForBounds(const QRectF& bounds) const {
    return _contentInsets.inset(bounds);
}

Button::Placement Button::place(const QRectF& contentRect) const {
    const QRectF imageArea = _imageInsets.inset(contentRect);
    const QRectF titleArea = _titleInsets.inset(contentRect);
    const QSizeF image = imageSize();
    const QSizeF title = titleSize();
    const bool fill = contentHorizontalAlignment() == ContentHorizontalAlignment::Fill;

    // Each shrinks to its area; the title gets what the image leaves.
    double imageWidth = std::min(image.width(), std::max(0.0, imageArea.width()));
    if (fill && !image.isEmpty() && title.isEmpty()) {
        imageWidth = std::max(0.0, imageArea.width());
    }
    const double imageHeight = std::min(image.height(), std::max(0.0, imageArea.height()));
    const double titleRoom = std::max(0.0, titleArea.width() - imageWidth);
    const double titleWidth = fill ? titleRoom : std::min(title.width(), titleRoom);
    const double titleHeight = std::min(title.height(), std::max(0.0, titleArea.height()));

    // Image then title, side by side, as one run.
    const double run = imageWidth + titleWidth;
    const int where = horizontalPlace(contentHorizontalAlignment());
    const double imageX = aligned(imageArea.left(), imageArea.width(), run, where);
    const double titleX = aligned(titleArea.left(), titleArea.width(), run, where) + imageWidth;
    const auto [imageY, imageH] = verticalSpan(imageArea, imageHeight, contentVerticalAlignment());
    const auto [titleY, titleH] = verticalSpan(titleArea, titleHeight, contentVerticalAlignment());
    return {QRectF(imageX, imageY, imageWidth, image.isEmpty() ? 0.0 : imageH),
            QRectF(titleX, titleY, titleWidth, title.isEmpty() ? 0.0 : titleH)};
}

QRectF Button::imageRectForContentRect(const QRectF& contentRect) const {
    return place(contentRect).image;
}

QRectF Button::titleRectForContentRect(const QRectF& contentRect) const {
    return place(contentRect).title;
}

QSizeF Button::intrinsicContentSize() const {
    const QSizeF image = imageSize();
    const QSizeF title = titleSize();
    return {image.width() + title.width() + _contentInsets.horizontal(),
            std::max(image.height(), title.height()) + _contentInsets.vertical()};
}

QSizeF Button::sizeThatFits(const QSizeF& /*size*/) const {
    return intrinsicContentSize();
}

void Button::layoutSubviews() {
    Control::layoutSubviews();
    const QRectF area = bounds();
    const Placement placement = place(contentRectForBounds(area));
    if (_backgroundView) {
        _backgroundView->setFrame(area);
    }
    if (_imageView) {
        _imageView->setFrame(placement.image);
    }
    if (_titleLabel) {
        _titleLabel->setFrame(placement.title);
    }
}

}  // namespace platform
