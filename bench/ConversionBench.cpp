// The camera converters next to OpenCV on a 720p webcam frame, both measured
// in the same run: cvtColor for the colour conversion, plus cv::rotate where
// the converter writes the frame turned to portrait. For 420f output OpenCV
// has no single call, so its reference is the shortest sequence of calls
// that makes the same planes.
#include "Ratio.h"

#include "platform/capture/PixelConversion.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdint>

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
const platform::Turn kPortrait{1, false};

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

// A 4:2:0 frame in one block (luma, then chroma), as OpenCV takes it.
struct Frame420 {
    cv::Mat all = patterned(kHeight * 3 / 2, kWidth);
    const std::uint8_t* luma() const { return all.data; }
    const std::uint8_t* chroma() const { return all.ptr(kHeight); }
    const std::uint8_t* u() const { return all.ptr(kHeight); }
    const std::uint8_t* v() const { return all.ptr(kHeight) + kWidth * kHeight / 4; }
};

struct Out420f {
    explicit Out420f(bool turned)
        : luma(turned ? kWidth : kHeight, turned ? kHeight : kWidth, CV_8UC1),
          chroma(luma.rows / 2, luma.cols / 2, CV_8UC2) {}
    cv::Mat luma, chroma;
};

// YUYV to BGRA --------------------------------------------------------------

void BM_YuyvToBgra(benchmark::State& state) {
    const cv::Mat src = patterned(kHeight, kWidth * 2);
    const bool turned = state.range(0) != 0;
    cv::Mat dst = turned ? cv::Mat(kWidth, kHeight, CV_8UC4) : cv::Mat(kHeight, kWidth, CV_8UC4);
    for (auto _ : state) {
        platform::convertYuyvToBgra(src.data, src.step, dst.data, dst.step, kWidth, kHeight,
                                    turned ? kPortrait : platform::Turn{});
        benchmark::DoNotOptimize(dst.data);
    }
}
BENCHMARK(BM_YuyvToBgra)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_YuyvToBgraOpenCV(benchmark::State& state) {
    const cv::Mat src = patterned(kHeight, kWidth * 2).reshape(2);
    cv::Mat dst(kHeight, kWidth, CV_8UC4), turned(kWidth, kHeight, CV_8UC4);
    for (auto _ : state) {
        cv::cvtColor(src, dst, cv::COLOR_YUV2BGRA_YUYV);
        if (state.range(0) != 0) {
            cv::rotate(dst, turned, cv::ROTATE_90_CLOCKWISE);
        }
        benchmark::DoNotOptimize(turned.data);
    }
}
BENCHMARK(BM_YuyvToBgraOpenCV)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// NV12 to BGRA --------------------------------------------------------------

void BM_Nv12ToBgra(benchmark::State& state) {
    const Frame420 src;
    const bool turned = state.range(0) != 0;
    cv::Mat dst = turned ? cv::Mat(kWidth, kHeight, CV_8UC4) : cv::Mat(kHeight, kWidth, CV_8UC4);
    for (auto _ : state) {
        platform::convertNv12ToBgra(src.luma(), kWidth, src.chroma(), kWidth, dst.data, dst.step,
                                    kWidth, kHeight, turned ? kPortrait : platform::Turn{});
        benchmark::DoNotOptimize(dst.data);
    }
}
BENCHMARK(BM_Nv12ToBgra)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Nv12ToBgraOpenCV(benchmark::State& state) {
    const Frame420 src;
    cv::Mat dst(kHeight, kWidth, CV_8UC4), turned(kWidth, kHeight, CV_8UC4);
    for (auto _ : state) {
        cv::cvtColor(src.all, dst, cv::COLOR_YUV2BGRA_NV12);
        if (state.range(0) != 0) {
            cv::rotate(dst, turned, cv::ROTATE_90_CLOCKWISE);
        }
        benchmark::DoNotOptimize(turned.data);
    }
}
BENCHMARK(BM_Nv12ToBgraOpenCV)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// I420 to BGRA --------------------------------------------------------------

void BM_I420ToBgra(benchmark::State& state) {
    const Frame420 src;
    const bool turned = state.range(0) != 0;
    cv::Mat dst = turned ? cv::Mat(kWidth, kHeight, CV_8UC4) : cv::Mat(kHeight, kWidth, CV_8UC4);
    for (auto _ : state) {
        platform::convertI420ToBgra(src.luma(), kWidth, src.u(), kWidth / 2, src.v(), kWidth / 2,
                                    dst.data, dst.step, kWidth, kHeight,
                                    turned ? kPortrait : platform::Turn{});
        benchmark::DoNotOptimize(dst.data);
    }
}
BENCHMARK(BM_I420ToBgra)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_I420ToBgraOpenCV(benchmark::State& state) {
    const Frame420 src;
    cv::Mat dst(kHeight, kWidth, CV_8UC4), turned(kWidth, kHeight, CV_8UC4);
    for (auto _ : state) {
        cv::cvtColor(src.all, dst, cv::COLOR_YUV2BGRA_I420);
        if (state.range(0) != 0) {
            cv::rotate(dst, turned, cv::ROTATE_90_CLOCKWISE);
        }
        benchmark::DoNotOptimize(turned.data);
    }
}
BENCHMARK(BM_I420ToBgraOpenCV)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// YUYV to 420f --------------------------------------------------------------

void BM_YuyvTo420f(benchmark::State& state) {
    const cv::Mat src = patterned(kHeight, kWidth * 2);
    const bool turned = state.range(0) != 0;
    Out420f out(turned);
    for (auto _ : state) {
        platform::convertYuyvTo420f(src.data, src.step, out.luma.data, out.luma.step,
                                    out.chroma.data, out.chroma.step, kWidth, kHeight,
                                    turned ? kPortrait : platform::Turn{});
        benchmark::DoNotOptimize(out.chroma.data);
    }
}
BENCHMARK(BM_YuyvTo420f)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// Luma by cvtColor; the chroma plane is the U,V channel of the YUYV picture
// with each two rows averaged.
void BM_YuyvTo420fOpenCV(benchmark::State& state) {
    const cv::Mat src = patterned(kHeight, kWidth * 2).reshape(2);
    Out420f plain(false), turned(true);
    cv::Mat uv(kHeight, kWidth, CV_8UC1);
    for (auto _ : state) {
        cv::cvtColor(src, plain.luma, cv::COLOR_YUV2GRAY_YUYV);
        cv::extractChannel(src, uv, 1);
        cv::Mat chroma(kHeight / 2, kWidth, CV_8UC1, plain.chroma.data, plain.chroma.step);
        cv::resize(uv, chroma, chroma.size(), 0, 0, cv::INTER_AREA);
        if (state.range(0) != 0) {
            cv::rotate(plain.luma, turned.luma, cv::ROTATE_90_CLOCKWISE);
            cv::rotate(plain.chroma, turned.chroma, cv::ROTATE_90_CLOCKWISE);
        }
        benchmark::DoNotOptimize(turned.chroma.data);
    }
}
BENCHMARK(BM_YuyvTo420fOpenCV)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// I420 to 420f --------------------------------------------------------------

void BM_I420To420f(benchmark::State& state) {
    const Frame420 src;
    const bool turned = state.range(0) != 0;
    Out420f out(turned);
    for (auto _ : state) {
        platform::convertI420To420f(src.luma(), kWidth, src.u(), kWidth / 2, src.v(), kWidth / 2,
                                    out.luma.data, out.luma.step, out.chroma.data,
                                    out.chroma.step, kWidth, kHeight,
                                    turned ? kPortrait : platform::Turn{});
        benchmark::DoNotOptimize(out.chroma.data);
    }
}
BENCHMARK(BM_I420To420f)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// Luma by cvtColor; the chroma plane merges the U and V planes.
void BM_I420To420fOpenCV(benchmark::State& state) {
    const Frame420 src;
    const cv::Mat u(kHeight / 2, kWidth / 2, CV_8UC1, const_cast<std::uint8_t*>(src.u()));
    const cv::Mat v(kHeight / 2, kWidth / 2, CV_8UC1, const_cast<std::uint8_t*>(src.v()));
    Out420f plain(false), turned(true);
    for (auto _ : state) {
        cv::cvtColor(src.all, plain.luma, cv::COLOR_YUV2GRAY_I420);
        const cv::Mat planes[] = {u, v};
        cv::merge(planes, 2, plain.chroma);
        if (state.range(0) != 0) {
            cv::rotate(plain.luma, turned.luma, cv::ROTATE_90_CLOCKWISE);
            cv::rotate(plain.chroma, turned.chroma, cv::ROTATE_90_CLOCKWISE);
        }
        benchmark::DoNotOptimize(turned.chroma.data);
    }
}
BENCHMARK(BM_I420To420fOpenCV)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

bool declareBoth(const std::string& name) {
    return bench::declareRatio(name + "/0", name + "OpenCV/0", 1.5) &&
           bench::declareRatio(name + "/1", name + "OpenCV/1", 1.5);
}

const bool kRatios = declareBoth("BM_YuyvToBgra") && declareBoth("BM_Nv12ToBgra") &&
                     declareBoth("BM_I420ToBgra") && declareBoth("BM_YuyvTo420f") &&
                     declareBoth("BM_I420To420f");

}  // namespace
