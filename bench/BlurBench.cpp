// The dark blur works on a copy reduced four times, so a full-HD frame costs
// a fraction of a straightforward full-size box blur of the same radius and
// stays within a few milliseconds.
#include "Ratio.h"

#include "platform/graphics/Blur.h"

#include <QImage>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace {

constexpr int kRadius = 20;

QImage frame1080p() {
    QImage image(1920, 1080, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < image.height(); ++y) {
        auto* row = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            row[x] = qRgba((x * 7) & 0xFF, (y * 5) & 0xFF, ((x / 40 + y / 40) % 2) * 255, 0xFF);
        }
    }
    return image;
}

// One box pass of kRadius along a line of count pixels, step words apart,
// with the end pixels repeated beyond the ends.
void boxLine(const std::uint32_t* in, std::uint32_t* out, int count, std::ptrdiff_t step) {
    const auto pixel = [&](int i) { return in[std::clamp(i, 0, count - 1) * step]; };
    std::uint32_t sum[4] = {};
    for (int k = -kRadius; k <= kRadius; ++k) {
        for (int c = 0; c < 4; ++c) {
            sum[c] += (pixel(k) >> (8 * c)) & 0xFF;
        }
    }
    constexpr std::uint32_t width = 2 * kRadius + 1;
    for (int x = 0; x < count; ++x) {
        std::uint32_t result = 0;
        const std::uint32_t entering = pixel(x + kRadius + 1);
        const std::uint32_t leaving = pixel(x - kRadius);
        for (int c = 0; c < 4; ++c) {
            result |= ((sum[c] + width / 2) / width) << (8 * c);
            sum[c] += ((entering >> (8 * c)) & 0xFF) - ((leaving >> (8 * c)) & 0xFF);
        }
        out[x * step] = result;
    }
}

// The straightforward separable box blur at full size: rows into a scratch
// image, then columns back, each with running sums.
void fullSizeBoxBlur(QImage& image, std::vector<std::uint32_t>& scratch) {
    const int w = image.width();
    const int h = image.height();
    const qsizetype stride = image.bytesPerLine() / 4;
    auto* pixels = reinterpret_cast<std::uint32_t*>(image.bits());
    scratch.resize(static_cast<std::size_t>(w) * h);
    for (int y = 0; y < h; ++y) {
        boxLine(pixels + y * stride, scratch.data() + static_cast<std::ptrdiff_t>(y) * w, w, 1);
    }
    for (int x = 0; x < w; ++x) {
        boxLine(scratch.data() + x, pixels + x, h, w);
    }
}

void BM_FullSizeBoxBlur1080p(benchmark::State& state) {
    QImage frame = frame1080p();
    std::vector<std::uint32_t> scratch;
    for (auto _ : state) {
        fullSizeBoxBlur(frame, scratch);
        benchmark::DoNotOptimize(frame.constBits());
    }
}
BENCHMARK(BM_FullSizeBoxBlur1080p)->Unit(benchmark::kMillisecond);

void BM_DarkBlur1080p(benchmark::State& state) {
    QImage frame = frame1080p();
    platform::BlurStyle style;
    style.radius = kRadius;
    for (auto _ : state) {
        platform::applyDarkBlur(frame, frame.rect(), style);
        benchmark::DoNotOptimize(frame.constBits());
    }
}
BENCHMARK(BM_DarkBlur1080p)->Unit(benchmark::kMillisecond);

const bool kRatios = bench::declareRatio("BM_DarkBlur1080p", "BM_FullSizeBoxBlur1080p", 0.2) &&
                     bench::declareLimit("BM_DarkBlur1080p", 0.008);

}  // namespace
