#include "SampleCard.h"

#include <QFont>
#include <QPainter>
#include <QPainterPath>
#include <QTransform>

namespace {

constexpr int kPageWidth = 600;
constexpr int kPageHeight = 800;

void drawArrow(QPainter& painter, const QPointF& tip) {
    QPainterPath arrow;
    arrow.moveTo(tip);
    arrow.lineTo(tip + QPointF(28, 34));
    arrow.lineTo(tip + QPointF(10, 34));
    arrow.lineTo(tip + QPointF(10, 80));
    arrow.lineTo(tip + QPointF(-10, 80));
    arrow.lineTo(tip + QPointF(-10, 34));
    arrow.lineTo(tip + QPointF(-28, 34));
    arrow.closeSubpath();
    painter.fillPath(arrow, QColor(0xd9, 0x4b, 0x2b));
}

QImage uprightPage() {
    QImage page(kPageWidth, kPageHeight, QImage::Format_ARGB32_Premultiplied);
    page.fill(QColor(0x3a, 0x3d, 0x44));  // the desk around the sheet
    QPainter painter(&page);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);

    const QRectF sheet(40, 40, kPageWidth - 80, kPageHeight - 80);
    painter.fillRect(sheet, QColor(0xfb, 0xfa, 0xf6));

    drawArrow(painter, QPointF(sheet.right() - 60, sheet.top() + 24));

    QFont heading;
    heading.setPixelSize(34);
    heading.setBold(true);
    painter.setFont(heading);
    painter.setPen(QColor(0x20, 0x22, 0x28));
    painter.drawText(QRectF(sheet.left() + 36, sheet.top() + 36, 380, 48),
                     QStringLiteral("Test card"));
    QFont small;
    small.setPixelSize(16);
    painter.setFont(small);
    painter.drawText(QRectF(sheet.left() + 36, sheet.top() + 86, 380, 24),
                     QStringLiteral("Upright when the arrow points up."));

    // Body text as grey bars of varying length.
    const QColor ink(0x9a, 0x9e, 0xa6);
    for (int line = 0; line < 16; ++line) {
        const double length = 380 + ((line * 37) % 70) - (line % 5 == 4 ? 180 : 0);
        painter.fillRect(QRectF(sheet.left() + 36, sheet.top() + 150 + line * 24, length, 9), ink);
    }

    // A row of colour patches along the bottom.
    const QColor patches[] = {Qt::black,
                              Qt::white,
                              QColor(0xe0, 0x30, 0x30),
                              QColor(0x30, 0xa0, 0x40),
                              QColor(0x30, 0x60, 0xe0),
                              QColor(0xf0, 0xc0, 0x20)};
    double x = sheet.left() + 36;
    for (const QColor& colour : patches) {
        const QRectF patch(x, sheet.bottom() - 110, 64, 64);
        painter.fillRect(patch, colour);
        painter.setPen(QPen(QColor(0x20, 0x22, 0x28), 1));
        painter.drawRect(patch);
        x += 76;
    }
    return page;
}

}  // namespace

QImage renderSampleCard() {
    // Lying on its left side: a quarter turn counter-clockwise.
    return uprightPage().transformed(QTransform().rotate(-90));
}
