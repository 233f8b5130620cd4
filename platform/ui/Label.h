#pragma once

#include "platform/ui/TextLayout.h"
#include "platform/ui/View.h"

#include <QColor>
#include <QFont>
#include <QString>

#include <memory>

namespace platform {

/// A view that draws read-only text, like the platform's labels: one line
/// by default, truncated at the tail; numberOfLines 0 wraps into as many
/// lines as the height allows. The text is drawn vertically centred in the
/// bounds. Not interactive by default. Main thread only.
class Label : public View {
public:
    static std::shared_ptr<Label> create(const QRectF& frame = {});

    const QString& text() const { return _text; }
    void setText(const QString& text);
    /// The system font of 17 points by default.
    const QFont& font() const { return _font; }
    void setFont(const QFont& font);
    /// Black by default.
    const QColor& textColor() const { return _textColor; }
    void setTextColor(const QColor& color);
    TextAlignment textAlignment() const { return _alignment; }
    void setTextAlignment(TextAlignment alignment);
    /// 1 by default; 0 means no limit.
    int numberOfLines() const { return _numberOfLines; }
    void setNumberOfLines(int lines);
    LineBreakMode lineBreakMode() const { return _lineBreakMode; }
    void setLineBreakMode(LineBreakMode mode);
    /// The width at which the intrinsic size of a multi-line label wraps (0:
    /// no wrapping, the text's natural width).
    double preferredMaxLayoutWidth() const { return _preferredMaxLayoutWidth; }
    void setPreferredMaxLayoutWidth(double width);

    /// The text's size, rounded up to whole points (0 × 0 without text).
    QSizeF intrinsicContentSize() const override;
    /// The text's size when wrapped within size's width, rounded up.
    QSizeF sizeThatFits(const QSizeF& size) const override;
    void layoutSubviews() override;
    void drawRect(QPainter& context, const QRectF& rect) override;
    bool drawsContent() const override { return true; }
    QString typeName() const override;

protected:
    explicit Label(const QRectF& frame);

private:
    friend class View;
    friend class Button;

    // The laid-out text for a width and line limit.
    TextBlock layout(double width, int maximumLines) const;
    // Redraws and re-measures after a change of what is shown.
    void contentDidChange();

    QString _text;
    QFont _font;
    QColor _textColor = Qt::black;
    TextAlignment _alignment = TextAlignment::Natural;
    int _numberOfLines = 1;
    LineBreakMode _lineBreakMode = LineBreakMode::TruncatingTail;
    double _preferredMaxLayoutWidth = 0.0;
    QSizeF _drawnSize;
    // A view whose own size follows this label's (a button and its title).
    std::weak_ptr<View> _sizeDependent;
};

}  // namespace platform
