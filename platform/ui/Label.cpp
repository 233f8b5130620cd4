#include "platform/ui/Label.h"

#include "platform/ui/Font.h"

#include <QFontMetricsF>

#include <algorithm>
#include <cmath>

namespace platform {
namespace {

constexpr double kDefaultFontSize = 17.0;

QSizeF roundedUp(const QSizeF& size) {
    return {std::ceil(size.width()), std::ceil(size.height())};
}

}  // namespace

std::shared_ptr<Label> Label::create(const QRectF& frame) {
    return make<Label>(frame);
}

Label::Label(const QRectF& frame) : View(frame), _font(systemFont(kDefaultFontSize)) {
    setUserInteractionEnabled(false);
}

QString Label::typeName() const {
    return QStringLiteral("Label");
}

void Label::setText(const QString& text) {
    if (text != _text) {
        _text = text;
        contentDidChange();
    }
}

void Label::setFont(const QFont& font) {
    if (font != _font) {
        _font = font;
        contentDidChange();
    }
}

void Label::setTextColor(const QColor& color) {
    if (color != _textColor) {
        _textColor = color;
        setNeedsDisplay();
    }
}

void Label::setTextAlignment(TextAlignment alignment) {
    if (alignment != _alignment) {
        _alignment = alignment;
        setNeedsDisplay();
    }
}

void Label::setNumberOfLines(int lines) {
    if (lines != _numberOfLines) {
        _numberOfLines = std::max(0, lines);
        contentDidChange();
    }
}

void Label::setLineBreakMode(LineBreakMode mode) {
    if (mode != _lineBreakMode) {
        _lineBreakMode = mode;
        contentDidChange();
    }
}

void Label::setPreferredMaxLayoutWidth(double width) {
    if (width != _preferredMaxLayoutWidth) {
        _preferredMaxLayoutWidth = width;
        invalidateIntrinsicContentSize();
    }
}

void Label::contentDidChange() {
    invalidateIntrinsicContentSize();
    setNeedsDisplay();
    if (const auto dependent = _sizeDependent.lock()) {
        dependent->invalidateIntrinsicContentSize();
        dependent->setNeedsLayout();
    }
}

TextBlock Label::layout(double width, int maximumLines) const {
    return {_text, _font, width, maximumLines, _lineBreakMode};
}

QSizeF Label::intrinsicContentSize() const {
    const double width = _numberOfLines != 1 ? _preferredMaxLayoutWidth : 0.0;
    return roundedUp(layout(width, _numberOfLines).size());
}

QSizeF Label::sizeThatFits(const QSizeF& size) const {
    const double width = _numberOfLines != 1 ? size.width() : 0.0;
    return roundedUp(layout(width, _numberOfLines).size());
}

void Label::layoutSubviews() {
    View::layoutSubviews();
    // The backing store is drawn for one size; a new size needs new lines.
    if (bounds().size() != _drawnSize) {
        setNeedsDisplay();
    }
}

void Label::drawRect(QPainter& context, const QRectF& /*rect*/) {
    const QRectF area = bounds();
    _drawnSize = area.size();
    if (_text.isEmpty()) {
        return;
    }
    // As many lines as the height holds (at least one), within the limit.
    const double lineHeight = QFontMetricsF(_font).height();
    int fitting =
        static_cast<int>(std::clamp(std::floor(area.height() / lineHeight + 1e-6), 1.0, 1e6));
    if (_numberOfLines > 0) {
        fitting = std::min(fitting, _numberOfLines);
    }
    const TextBlock block = layout(area.width(), fitting);
    const double textHeight = block.size().height();
    const QRectF textRect(area.left(), area.top() + (area.height() - textHeight) / 2.0,
                          area.width(), textHeight);
    block.draw(context, textRect, _alignment, _textColor);
}

}  // namespace platform
