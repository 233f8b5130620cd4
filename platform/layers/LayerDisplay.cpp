// A layer's own drawing: when it is redrawn, into which backing store, and
// which of its pixels that drawing may have touched.

#include "platform/layers/Layer.h"

#include "platform/graphics/PixelMath.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>
#include <cstring>

namespace platform {
namespace {

// Makes the pixels of area transparent.
void clear(QImage& image, const QRegion& area) {
    const qsizetype stride = image.bytesPerLine();
    uchar* bits = image.bits();
    for (const QRect& rect : area) {
        const auto bytes = static_cast<std::size_t>(rect.width()) * 4;
        for (int y = rect.top(); y <= rect.bottom(); ++y) {
            std::memset(bits + y * stride + static_cast<qsizetype>(rect.left()) * 4, 0, bytes);
        }
    }
}

}  // namespace

void Layer::setNeedsDisplay() {
    _needsDisplay = true;
    markChanged();
}

bool Layer::needsDisplay() const {
    return _needsDisplay || (!_displayedOnce && drawsContent());
}

void Layer::displayIfNeeded() {
    if (!needsDisplay()) {
        return;
    }
    _needsDisplay = false;
    _displayedOnce = true;
    const QRectF bounds = _model.bounds;
    // The small slack keeps 100 pt × 3.0 from becoming 301 pixels.
    const int width = static_cast<int>(std::ceil(bounds.width() * _contentsScale - 1e-6));
    const int height = static_cast<int>(std::ceil(bounds.height() * _contentsScale - 1e-6));
    if (!drawsContent() || width <= 0 || height <= 0) {
        _backingStore = QImage();
        _backingStoreArea = QRegion();
        return;
    }
    const QRect whole(0, 0, width, height);
    QRegion area(whole);
    if (const auto drawn = drawingArea()) {
        area = QRegion();
        for (const QRectF& rect : *drawn) {
            // A pixel more all round for anti-aliased edges.
            const QRectF pixels((rect.x() - bounds.x()) * _contentsScale,
                                (rect.y() - bounds.y()) * _contentsScale,
                                rect.width() * _contentsScale, rect.height() * _contentsScale);
            area += pixels.toAlignedRect().adjusted(-1, -1, 1, 1).intersected(whole);
        }
    }
    // A redraw at the same size reuses the store when nobody else holds it,
    // so a layer redrawn every frame allocates no pixels; only what the last
    // drawing left is cleared.
    QImage image;
    if (_backingStore.size() == QSize(width, height) &&
        _backingStore.format() == QImage::Format_ARGB32_Premultiplied &&
        _backingStore.isDetached()) {
        image = std::move(_backingStore);
        if (_backingStoreArea == QRegion(whole)) {
            image.fill(Qt::transparent);
        } else {
            clear(image, _backingStoreArea);
        }
    } else {
        image = QImage(width, height, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
    }
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        if (area != QRegion(whole)) {
            // A rectangle clips for free; a region of many rectangles or a
            // path would cost more to set up than drawing the box saves.
            painter.setClipRect(area.boundingRect());
        }
        painter.scale(_contentsScale, _contentsScale);
        painter.translate(-bounds.x(), -bounds.y());
        _displayPainter = &painter;
        drawInContext(painter);
        _displayPainter = nullptr;
    }
    _backingStore = std::move(image);
    _backingStoreArea = std::move(area);
}

const QImage& Layer::contentsForDrawing() {
    if (_contents.format() != QImage::Format_Grayscale8) {
        _contentsInColour = QImage();
        return _contents;
    }
    if (_contentsInColourKey == _contents.cacheKey() && !_contentsInColour.isNull()) {
        return _contentsInColour;
    }
    // A live preview sets a new frame of the same size each time: its
    // pixels go into the same buffer.
    if (_contentsInColour.size() != _contents.size() || !_contentsInColour.isDetached()) {
        _contentsInColour = QImage(_contents.size(), QImage::Format_RGB32);
    }
    for (int y = 0; y < _contents.height(); ++y) {
        pixel::greyRowToRgb32(_contents.constScanLine(y),
                              reinterpret_cast<std::uint32_t*>(_contentsInColour.scanLine(y)),
                              _contents.width());
    }
    _contentsInColourKey = _contents.cacheKey();
    return _contentsInColour;
}

void Layer::drawInContext(QPainter& context) {
    if (const auto delegate = _delegate.lock()) {
        delegate->drawLayer(*this, context);
    }
}

std::optional<std::vector<QRectF>> Layer::drawingArea() const {
    return std::nullopt;
}

bool Layer::drawsContent() const {
    const auto delegate = _delegate.lock();
    return delegate && delegate->layerDrawsContent(*this);
}

}  // namespace platform
