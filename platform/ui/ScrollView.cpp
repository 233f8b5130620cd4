#include "platform/ui/ScrollView.h"

#include <algorithm>

namespace platform {

std::shared_ptr<ScrollView> ScrollView::create(const QRectF& frame) {
    return make<ScrollView>(frame);
}

ScrollView::ScrollView(const QRectF& frame) : View(frame) {}

void ScrollView::didCreate() {
    View::didCreate();
    setClipsToBounds(true);
}

QString ScrollView::typeName() const {
    return QStringLiteral("ScrollView");
}

void ScrollView::setContentSize(const QSizeF& size) {
    _contentSize = size;
}

QPointF ScrollView::contentOffset() const {
    return bounds().topLeft();
}

void ScrollView::setContentOffset(const QPointF& offset) {
    QRectF area = bounds();
    if (area.topLeft() != offset) {
        area.moveTopLeft(offset);
        setBounds(area);
    }
}

QPointF ScrollView::maximumContentOffset() const {
    const QSizeF size = bounds().size();
    return {std::max(0.0, _contentSize.width() - size.width()),
            std::max(0.0, _contentSize.height() - size.height())};
}

QPointF ScrollView::fixedLocation(const Touch& touch) const {
    const ViewPtr parent = superview();
    return touch.locationInView(parent.get());
}

void ScrollView::touchesBegan(const std::vector<Touch>& touches) {
    if (!_scrollEnabled || touches.empty()) {
        return;
    }
    _dragging = true;
    _dragStartLocation = fixedLocation(touches.front());
    _dragStartOffset = contentOffset();
}

void ScrollView::touchesMoved(const std::vector<Touch>& touches) {
    if (!_dragging || !_scrollEnabled || touches.empty()) {
        return;
    }
    const QPointF wanted = _dragStartOffset - (fixedLocation(touches.front()) - _dragStartLocation);
    const QPointF limit = maximumContentOffset();
    setContentOffset(
        {std::clamp(wanted.x(), 0.0, limit.x()), std::clamp(wanted.y(), 0.0, limit.y())});
}

void ScrollView::touchesEnded(const std::vector<Touch>& touches) {
    touchesMoved(touches);
    _dragging = false;
}

void ScrollView::touchesCancelled(const std::vector<Touch>& /*touches*/) {
    _dragging = false;
}

}  // namespace platform
