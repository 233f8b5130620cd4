#pragma once

#include <QColor>
#include <QFont>
#include <QRectF>
#include <QSizeF>
#include <QString>

#include <vector>

class QPainter;

namespace platform {

/// Horizontal alignment of text, with the platform's numbers. Justified and
/// natural text is set flush left (left-to-right text only).
enum class TextAlignment { Left = 0, Center = 1, Right = 2, Justified = 3, Natural = 4 };

/// How the last visible line ends when the text does not fit, with the
/// platform's numbers. Lines always wrap at word boundaries (character
/// boundaries for CharWrapping); a word longer than a line is broken.
enum class LineBreakMode {
    WordWrapping = 0,
    CharWrapping = 1,
    Clipping = 2,
    TruncatingHead = 3,
    TruncatingTail = 4,
    TruncatingMiddle = 5,
};

/// Options of boundingRectWithSize, with the platform's bits.
namespace string_drawing {
inline constexpr unsigned kUsesLineFragmentOrigin = 1u << 0;
inline constexpr unsigned kUsesFontLeading = 1u << 1;
inline constexpr unsigned kTruncatesLastVisibleLine = 1u << 5;
}  // namespace string_drawing

/// Text broken into lines for a width, measured with the font's metrics in
/// fractional points: lines are ascent + descent high and as wide as their
/// glyphs' advances (trailing spaces excluded).
class TextBlock {
public:
    struct Line {
        QString text;
        double width = 0.0;
    };

    /// Lays text out within width points (0 or less, or infinite: no limit)
    /// in at most maximumLines lines (0: as many as needed). Line breaks in
    /// the text start new lines. When text remains after the last allowed
    /// line, that line ends as mode says.
    TextBlock(const QString& text, const QFont& font, double width, int maximumLines = 0,
              LineBreakMode mode = LineBreakMode::WordWrapping);

    const std::vector<Line>& lines() const { return _lines; }
    double lineHeight() const { return _lineHeight; }
    /// The widest line by the number of lines times the line height.
    QSizeF size() const;

    /// Draws the lines top down from rect's top, each aligned in rect's
    /// width.
    void draw(QPainter& painter, const QRectF& rect, TextAlignment alignment,
              const QColor& color) const;

private:
    void addLastLine(const QString& rest, const QString& wrapped, double width, double lineWidth,
                     LineBreakMode mode);

    QFont _font;
    double _ascent = 0.0;
    double _lineHeight = 0.0;
    std::vector<Line> _lines;
};

/// The platform's text measurement (bounding rectangle with size, options
/// and a font attribute). With kUsesLineFragmentOrigin the text wraps by
/// words within size's width (0: no limit) and the rectangle starts at
/// (0, 0), as tall as all its lines, or as the lines that fit size's height
/// with kTruncatesLastVisibleLine; without it the text is one line whose
/// rectangle starts at the baseline (y = −ascent). Values are fractional,
/// never rounded.
QRectF boundingRectWithSize(const QString& text, const QSizeF& size, unsigned options,
                            const QFont& font);

}  // namespace platform
