// The camera converters next to OpenCV's cvtColor on a full-HD frame, both
// measured in the same run.
#include "Ratio.h"

#include "platform/capture/PixelConversion.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdint>

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

cv::Mat patterned(int rows, int cols) {
    cv::Mat mat(rows, cols, CV_8UC1);
    for (int y = 0; y < rows; ++y) {
        auto* row = mat.ptr<std::uint8_t>(y);
        for (int x = 0; x < cols; ++x) {
            row[x] = static_cast<std::uint8_t>((x * 7 + y * 13 + (x ^ y)) & 0xFF);
        }
    }
    return mat;
}

void BM_ConvertYuyvToBgra1080p(benchmark::State& state) {
    const cv::Mat src = patterned(kHeight, kWidth * 2);
    cv::Mat dst(kHeight, kWidth, CV_8UC4);
    for (auto _ : state) {
        platform::convertYuyvToBgra(src.data, src.step, dst.data, dst.step, kWidth, kHeight);
        benchmark::DoNotOptimize(dst.data);
    }
}
BENCHMARK(BM_ConvertYuyvToBgra1080p)->Unit(benchmark::kMillisecond);

void BM_ConvertYuyvToBgra1080pOpenCV(benchmark::State& state) {
    const cv::Mat src = patterned(kHeight, kWidth * 2).reshape(2);
    cv::Mat dst(kHeight, kWidth, CV_8UC4);
    for (auto _ : state) {
        cv::cvtColor(src, dst, cv::COLOR_YUV2BGRA_YUYV);
        benchmark::DoNotOptimize(dst.data);
    }
}
BENCHMARK(BM_ConvertYuyvToBgra1080pOpenCV)->Unit(benchmark::kMillisecond);

void BM_ConvertNv12ToBgra1080p(benchmark::State& state) {
    const cv::Mat src = patterned(kHeight * 3 / 2, kWidth);
    cv::Mat dst(kHeight, kWidth, CV_8UC4);
    for (auto _ : state) {
        platform::convertNv12ToBgra(src.data, src.step, src.ptr(kHeight), src.step, dst.data,
                                    dst.step, kWidth, kHeight);
        benchmark::DoNotOptimize(dst.data);
    }
}
BENCHMARK(BM_ConvertNv12ToBgra1080p)->Unit(benchmark::kMillisecond);

void BM_ConvertNv12ToBgra1080pOpenCV(benchmark::State& state) {
    const cv::Mat src = patterned(kHeight * 3 / 2, kWidth);
    cv::Mat dst(kHeight, kWidth, CV_8UC4);
    for (auto _ : state) {
        cv::cvtColor(src, dst, cv::COLOR_YUV2BGRA_NV12);
        benchmark::DoNotOptimize(dst.data);
    }
}
BENCHMARK(BM_ConvertNv12ToBgra1080pOpenCV)->Unit(benchmark::kMillisecond);

const bool kRatios =
    bench::declareRatio("BM_ConvertYuyvToBgra1080p", "BM_ConvertYuyvToBgra1080pOpenCV", 1.5) &&
    bench::declareRatio("BM_ConvertNv12ToBgra1080p", "BM_ConvertNv12ToBgra1080pOpenCV", 1.5);

}  // namespace
