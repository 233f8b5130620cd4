#include "platform/ui/TextLayout.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QTextLayout>

#include <algorithm>
#include <cmath>

namespace platform {
namespace {

// Text layout works in fixed point; "no limit" stays well inside its range.
constexpr double kUnlimitedWidth = 1e6;

QString withLineSeparators(QString text) {
    text.replace(QStringLiteral("\r\n"), QString(QChar::LineSeparator));
    text.replace(QLatin1Char('\n'), QChar::LineSeparator);
    return text;
}

QString withoutTrailingSpace(QString text) {
    while (!text.isEmpty() && (text.back().isSpace() || text.back() == QChar::LineSeparator)) {
        text.chop(1);
    }
    return text;
}

}  // namespace

TextBlock::TextBlock(const QString& text, const QFont& font, double width, int maximumLines,
                     LineBreakMode mode)
    : _font(font) {
    const QFontMetricsF metrics(font);
    _ascent = metrics.ascent();
    _lineHeight = metrics.height();
    if (text.isEmpty()) {
        return;
    }
    const double lineWidth =
        width > 0.0 && std::isfinite(width) ? std::min(width, kUnlimitedWidth) : kUnlimitedWidth;
    const QString prepared = withLineSeparators(text);
    QTextLayout layout(prepared, font);
    QTextOption option;
    option.setWrapMode(mode == LineBreakMode::CharWrapping
                           ? QTextOption::WrapAnywhere
                           : QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(lineWidth);
        const QString wrapped =
            withoutTrailingSpace(prepared.mid(line.textStart(), line.textLength()));
        const bool lastAllowed =
            maximumLines > 0 && _lines.size() + 1 == static_cast<std::size_t>(maximumLines);
        if (lastAllowed) {
            const bool moreText = line.textStart() + line.textLength() < prepared.size();
            if (moreText) {
                addLastLine(prepared.mid(line.textStart()), wrapped, line.naturalTextWidth(),
                            lineWidth, mode);
            } else {
                _lines.push_back({wrapped, line.naturalTextWidth()});
            }
            break;
        }
        _lines.push_back({wrapped, line.naturalTextWidth()});
    }
    layout.endLayout();
}

void TextBlock::addLastLine(const QString& rest, const QString& wrapped, double width,
                            double lineWidth, LineBreakMode mode) {
    const QFontMetricsF metrics(_font);
    QString oneLine = rest;
    oneLine.replace(QChar::LineSeparator, QLatin1Char(' '));
    Qt::TextElideMode elide = Qt::ElideNone;
    switch (mode) {
        case LineBreakMode::WordWrapping:
        case LineBreakMode::CharWrapping:
            _lines.push_back({wrapped, width});
            return;
        case LineBreakMode::Clipping: {
            // The rest of the paragraph runs on and is cut off at the edge.
            const QString paragraph = rest.section(QChar::LineSeparator, 0, 0);
            _lines.push_back({paragraph, metrics.horizontalAdvance(paragraph)});
            return;
        }
        case LineBreakMode::TruncatingHead:
            elide = Qt::ElideLeft;
            break;
        case LineBreakMode::TruncatingTail:
            elide = Qt::ElideRight;
            break;
        case LineBreakMode::TruncatingMiddle:
            elide = Qt::ElideMiddle;
            break;
    }
    const QString elided = metrics.elidedText(oneLine, elide, lineWidth);
    _lines.push_back({elided, metrics.horizontalAdvance(elided)});
}

QSizeF TextBlock::size() const {
    double widest = 0.0;
    for (const Line& line : _lines) {
        widest = std::max(widest, line.width);
    }
    return {widest, _lineHeight * static_cast<double>(_lines.size())};
}

void TextBlock::draw(QPainter& painter, const QRectF& rect, TextAlignment alignment,
                     const QColor& color) const {
    painter.save();
    painter.setFont(_font);
    painter.setPen(color);
    double top = rect.top();
    for (const Line& line : _lines) {
        double x = rect.left();
        if (alignment == TextAlignment::Center) {
            x += (rect.width() - line.width) / 2.0;
        } else if (alignment == TextAlignment::Right) {
            x = rect.right() - line.width;
        }
        painter.drawText(QPointF(x, top + _ascent), line.text);
        top += _lineHeight;
    }
    painter.restore();
}

QRectF boundingRectWithSize(const QString& text, const QSizeF& size, unsigned options,
                            const QFont& font) {
    if ((options & string_drawing::kUsesLineFragmentOrigin) == 0) {
        const QFontMetricsF metrics(font);
        QString line = text;
        line.replace(QLatin1Char('\n'), QLatin1Char(' '));
        return {0.0, -metrics.ascent(), metrics.horizontalAdvance(line), metrics.height()};
    }
    int maximumLines = 0;
    if ((options & string_drawing::kTruncatesLastVisibleLine) != 0 && size.height() > 0.0) {
        const double lineHeight = QFontMetricsF(font).height();
        maximumLines =
            static_cast<int>(std::clamp(std::floor(size.height() / lineHeight), 1.0, 1e6));
    }
    const TextBlock block(text, font, size.width(), maximumLines, LineBreakMode::TruncatingTail);
    return {QPointF(0.0, 0.0), block.size()};
}

}  // namespace platform
