// The manual edit screen bakes every quarter turn into a new image. With a
// full-resolution photo that must cost no more than OpenCV's rotation of the
// same pixels into a new matrix.
#include "Ratio.h"

#include "manualedit/QuarterTurn.h"
#include "platform/graphics/Image.h"

#include <QImage>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

namespace {

constexpr int kPhotoWidth = 4032;
constexpr int kPhotoHeight = 3024;

// A 12-megapixel photo in the camera's 32-bit format, with varied pixels.
const QImage& photo() {
    static const QImage image = [] {
        QImage pixels(kPhotoWidth, kPhotoHeight, QImage::Format_ARGB32_Premultiplied);
        for (int y = 0; y < pixels.height(); ++y) {
            auto* row = reinterpret_cast<QRgb*>(pixels.scanLine(y));
            for (int x = 0; x < pixels.width(); ++x) {
                row[x] = qRgba(x & 0xFF, y & 0xFF, (x ^ y) & 0xFF, 0xFF);
            }
        }
        return pixels;
    }();
    return image;
}

void BM_ManualEditQuarterTurn(benchmark::State& state) {
    const platform::Image image(photo(), 1.0, platform::ImageOrientation::Up);
    for (auto _ : state) {
        platform::ImagePtr turned = drawQuarterTurn(image, true);
        benchmark::DoNotOptimize(turned->cgImage().constBits());
    }
}
BENCHMARK(BM_ManualEditQuarterTurn)->Unit(benchmark::kMillisecond);

// The reference: the same pixels, wrapped without a copy, rotated into a new
// matrix each time, as each turn of the screen makes a new image.
void BM_OpenCVRotate90Clockwise(benchmark::State& state) {
    const QImage& pixels = photo();
    const cv::Mat source(pixels.height(), pixels.width(), CV_8UC4,
                         const_cast<uchar*>(pixels.constBits()),
                         static_cast<std::size_t>(pixels.bytesPerLine()));
    for (auto _ : state) {
        cv::Mat turned;
        cv::rotate(source, turned, cv::ROTATE_90_CLOCKWISE);
        benchmark::DoNotOptimize(turned.data);
    }
}
BENCHMARK(BM_OpenCVRotate90Clockwise)->Unit(benchmark::kMillisecond);

const bool kRatios =
    bench::declareRatio("BM_ManualEditQuarterTurn", "BM_OpenCVRotate90Clockwise", 1.0);

}  // namespace
