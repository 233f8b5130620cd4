#pragma once

#include "platform/ui/View.h"

#include <QPointF>
#include <QSizeF>

#include <memory>

namespace platform {

/// A view whose bounds origin (the content offset) scrolls over content of
/// contentSize, dragged by touches, like the platform's scroll views. It
/// clips to its bounds; dragging never takes the offset past the content's
/// edges (there is no rubber-band bounce, whatever bounces says). Main
/// thread only.
class ScrollView : public View {
public:
    static std::shared_ptr<ScrollView> create(const QRectF& frame = {});

    QSizeF contentSize() const { return _contentSize; }
    /// Leaves the offset where it is, even past the new edges.
    void setContentSize(const QSizeF& size);
    QPointF contentOffset() const;
    void setContentOffset(const QPointF& offset);
    /// The largest offset dragging reaches: content size minus bounds size,
    /// never below zero.
    QPointF maximumContentOffset() const;

    bool isScrollEnabled() const { return _scrollEnabled; }
    void setScrollEnabled(bool enabled) { _scrollEnabled = enabled; }
    bool bounces() const { return _bounces; }
    void setBounces(bool bounces) { _bounces = bounces; }
    bool isDragging() const { return _dragging; }

    void touchesBegan(const std::vector<Touch>& touches) override;
    void touchesMoved(const std::vector<Touch>& touches) override;
    void touchesEnded(const std::vector<Touch>& touches) override;
    void touchesCancelled(const std::vector<Touch>& touches) override;
    QString typeName() const override;

protected:
    explicit ScrollView(const QRectF& frame);
    void didCreate() override;

private:
    friend class View;

    // Where a touch is in coordinates that do not scroll with the content.
    QPointF fixedLocation(const Touch& touch) const;

    QSizeF _contentSize;
    bool _scrollEnabled = true;
    bool _bounces = false;
    bool _dragging = false;
    QPointF _dragStartLocation;
    QPointF _dragStartOffset;
};

}  // namespace platform
