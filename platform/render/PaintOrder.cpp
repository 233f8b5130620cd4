#include "platform/render/PaintOrder.h"

#include "platform/render/LayerPainter.h"

#include <algorithm>

namespace platform::paint_order {
namespace {

struct Search {
    double time;
    QRectF area;
    int nextLayer = 0;
    int cover = kNone;
};

// What may still be painted in a subtree, in area coordinates: a rectangle,
// or nothing known (under a rounded or tilted mask).
struct Visible {
    QRectF rect;
    bool known = true;
};

bool covers(const QRectF& painted, const QRectF& area) {
    return painted.left() <= area.left() && painted.top() <= area.top() &&
           painted.right() >= area.right() && painted.bottom() >= area.bottom();
}

void search(Layer& layer, const QTransform& toArea, const Visible& visible, double opacity,
            Search& found) {
    const LayerState state = layer.presentationState(found.time);
    if (skipsLayer(state)) {
        return;
    }
    const int index = found.nextLayer++;
    const QTransform transform = state.toSuperlayer() * toArea;
    const double shown = opacity * std::min(1.0, state.opacity);
    const bool square = transform.type() <= QTransform::TxScale;

    Visible inside = visible;
    if (layer.masksToBounds()) {
        if (!square || state.cornerRadius > 0) {
            inside.known = false;
        } else {
            inside.rect = inside.rect.intersected(transform.mapRect(state.bounds));
        }
    }
    if (shown >= 1.0 && square && inside.known) {
        if (state.backgroundColor.isValid() && state.backgroundColor.alpha() == 255 &&
            state.cornerRadius <= 0 &&
            covers(transform.mapRect(state.bounds).intersected(inside.rect), found.area)) {
            found.cover = number(index, Step::Background);
        }
        const QImage& contents = layer.contents();
        if (!contents.isNull() && !contents.hasAlphaChannel()) {
            const double scale = std::max(layer.contentsScale(), 1e-6);
            const QRectF placed = LayerPainter::contentsRect(
                state.bounds, QSizeF(contents.width() / scale, contents.height() / scale),
                layer.contentsGravity());
            if (covers(transform.mapRect(placed).intersected(inside.rect), found.area)) {
                found.cover = number(index, Step::Contents);
            }
        }
    }
    for (const LayerPtr& sublayer : layer.sublayers()) {
        search(*sublayer, transform, inside, shown, found);
    }
}

}  // namespace

int lastOpaqueCover(Layer& root, double time, const QRectF& area) {
    Search found{time, area};
    search(root, QTransform(), Visible{area}, 1.0, found);
    return found.cover;
}

}  // namespace platform::paint_order
