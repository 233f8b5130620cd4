#include "platform/graphics/GraphicsContext.h"

#include "platform/graphics/Image.h"

#include <QImage>
#include <QPainter>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace platform {
namespace {

struct ImageContext {
    ImageContext(QImage pixels, double pixelScale) : image(std::move(pixels)), scale(pixelScale) {}

    QImage image;
    double scale;
    // Declared after the image, so it ends before the image goes.
    QPainter painter;
};

struct Entry {
    QPainter* painter;
    std::unique_ptr<ImageContext> image;
};

std::vector<Entry>& stack() {
    thread_local std::vector<Entry> contexts;
    return contexts;
}

std::atomic<double> mainScreenScale{1.0};

// Pixels for a new image context. Transparent ones come zeroed from calloc,
// which for large blocks hands out fresh pages from the system without
// writing them: a context costs nothing until drawn into.
QImage freshPixels(const QSize& size, bool opaque) {
    if (opaque) {
        QImage image(size, QImage::Format_RGB32);
        image.fill(Qt::black);
        return image;
    }
    const qsizetype bytesPerLine = qsizetype{size.width()} * 4;
    void* memory = std::calloc(static_cast<std::size_t>(bytesPerLine),
                               static_cast<std::size_t>(size.height()));
    if (memory == nullptr) {
        return {};
    }
    // The image frees the memory when its last copy goes.
    QImage image(
        static_cast<uchar*>(memory), size.width(), size.height(), bytesPerLine,
        QImage::Format_ARGB32_Premultiplied, [](void* block) { std::free(block); }, memory);
    if (image.isNull()) {
        std::free(memory);
    }
    return image;
}

}  // namespace

void pushContext(QPainter& painter) {
    stack().push_back({&painter, nullptr});
}

void popContext() {
    auto& contexts = stack();
    if (!contexts.empty()) {
        contexts.pop_back();
    }
}

QPainter* currentContext() {
    const auto& contexts = stack();
    return contexts.empty() ? nullptr : contexts.back().painter;
}

void setStrokeColor(const QColor& color) {
    QPainter* painter = currentContext();
    if (painter == nullptr) {
        return;
    }
    QPen pen = painter->pen();
    if (pen.style() == Qt::NoPen) {
        pen.setStyle(Qt::SolidLine);
    }
    pen.setColor(color);
    painter->setPen(pen);
}

void setFillColor(const QColor& color) {
    if (QPainter* painter = currentContext()) {
        painter->setBrush(color);
    }
}

void beginImageContext(const QSizeF& size, bool opaque, double scale) {
    const double pixelScale = scale > 0.0 ? scale : mainScreenScaleForImageContexts();
    const QSize pixels(static_cast<int>(std::ceil(size.width() * pixelScale - 1e-9)),
                       static_cast<int>(std::ceil(size.height() * pixelScale - 1e-9)));
    if (pixels.isEmpty()) {
        return;
    }
    QImage image = freshPixels(pixels, opaque);
    if (image.isNull()) {
        return;
    }
    // The painter then works in points.
    image.setDevicePixelRatio(pixelScale);
    auto context = std::make_unique<ImageContext>(std::move(image), pixelScale);
    QPainter& painter = context->painter;
    if (!painter.begin(&context->image)) {
        return;
    }
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(Qt::black, 1.0));
    painter.setBrush(Qt::black);
    stack().push_back({&painter, std::move(context)});
}

std::shared_ptr<Image> imageFromCurrentImageContext() {
    const auto& contexts = stack();
    if (contexts.empty() || !contexts.back().image) {
        return nullptr;
    }
    const ImageContext& context = *contexts.back().image;
    // A deep copy: a shallow one would share memory the painter keeps
    // writing to.
    return Image::withCGImage(context.image.copy(), context.scale);
}

void endImageContext() {
    auto& contexts = stack();
    if (!contexts.empty() && contexts.back().image) {
        contexts.pop_back();
    }
}

std::shared_ptr<Image> endImageContextWithImage() {
    auto& contexts = stack();
    if (contexts.empty() || !contexts.back().image) {
        return nullptr;
    }
    const std::unique_ptr<ImageContext> context = std::move(contexts.back().image);
    contexts.pop_back();
    context->painter.end();
    // The context's image lets go of the pixels with the context, leaving
    // this one as their only user.
    return Image::withCGImage(context->image, context->scale);
}

void setMainScreenScaleForImageContexts(double scale) {
    if (scale > 0.0) {
        mainScreenScale.store(scale);
    }
}

double mainScreenScaleForImageContexts() {
    return mainScreenScale.load();
}

}  // namespace platform
