// Wrapping frame memory as an image must cost nothing next to copying it, and
// a quarter turn must run as a plain tiled copy.
#include "Ratio.h"

#include "platform/graphics/BitmapContext.h"
#include "platform/graphics/GraphicsContext.h"
#include "platform/graphics/Image.h"
#include "platform/graphics/PixelMemory.h"

#include <QPainter>

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

constexpr int kFrameWidth = 3840;
constexpr int kFrameHeight = 2160;
constexpr std::size_t kFrameBytes = std::size_t{kFrameWidth} * kFrameHeight * 4;

void BM_CopyFrame4K(benchmark::State& state) {
    auto source = platform::allocatePixels(kFrameBytes);
    auto target = platform::allocatePixels(kFrameBytes);
    for (auto _ : state) {
        std::memcpy(target.get(), source.get(), kFrameBytes);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_CopyFrame4K)->Unit(benchmark::kMicrosecond);

void BM_WrapFrame4K(benchmark::State& state) {
    auto pixels = platform::allocatePixels(kFrameBytes);
    for (auto _ : state) {
        auto context = platform::BitmapContext::create(
            pixels.get(), kFrameWidth, kFrameHeight, 8, kFrameWidth * 4,
            platform::ColorSpace::DeviceRGB,
            platform::bitmap::kByteOrder32Little | platform::bitmap::kAlphaPremultipliedFirst,
            pixels);
        QImage image = context->makeImage();
        benchmark::DoNotOptimize(image.constBits());
    }
}
BENCHMARK(BM_WrapFrame4K)->Unit(benchmark::kMicrosecond);

QImage photo() {
    QImage image(4032, 3024, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < image.height(); ++y) {
        auto* row = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            row[x] = qRgba(x & 0xFF, y & 0xFF, (x ^ y) & 0xFF, 0xFF);
        }
    }
    return image;
}

void BM_QuarterTurnTiled(benchmark::State& state) {
    const QImage source = photo();
    for (auto _ : state) {
        QImage turned = platform::applyOrientation(source, platform::ImageOrientation::Right);
        benchmark::DoNotOptimize(turned.constBits());
    }
}
BENCHMARK(BM_QuarterTurnTiled)->Unit(benchmark::kMillisecond);

void BM_QuarterTurnQtTransformed(benchmark::State& state) {
    const QImage source = photo();
    for (auto _ : state) {
        QImage turned = source.transformed(QTransform().rotate(90));
        benchmark::DoNotOptimize(turned.constBits());
    }
}
BENCHMARK(BM_QuarterTurnQtTransformed)->Unit(benchmark::kMillisecond);

const bool kRatios = bench::declareRatio("BM_WrapFrame4K", "BM_CopyFrame4K", 0.01) &&
                     bench::declareRatio("BM_QuarterTurnTiled", "BM_QuarterTurnQtTransformed", 1.0);

}  // namespace

// Drawing a turned photo pixel for pixel into a fresh image context copies the
// turn straight into the context's memory, so it costs about what the turn
// alone does. (Taking an image from the context is one more copy, not
// measured here.)
namespace {

void BM_DrawOrientedIntoImageContext(benchmark::State& state) {
    const auto image =
        platform::Image::withCGImage(photo(), 1.0, platform::ImageOrientation::Right);
    for (auto _ : state) {
        platform::beginImageContext(image->size(), false, 1.0);
        QPainter& context = *platform::currentContext();
        image->drawAtPoint(context, QPointF(0, 0));
        benchmark::DoNotOptimize(&context);
        platform::endImageContext();
    }
}
BENCHMARK(BM_DrawOrientedIntoImageContext)->Unit(benchmark::kMillisecond);

const bool kDrawRatios =
    bench::declareRatio("BM_DrawOrientedIntoImageContext", "BM_QuarterTurnTiled", 1.3);

}  // namespace
