// The engine's per-frame cost must not grow with the frame size: frames are
// wrapped, never copied. It is measured next to one cold copy of the same
// frame, taken from a pool of buffers larger than the caches, as frames
// arrive from a camera.
#include "Ratio.h"

#include "QXDCamera.h"

#include "platform/capture/PixelBuffer.h"
#include "platform/capture/SampleBuffer.h"
#include "platform/environment/Environment.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

struct NoOpDelegate : QXDCameraDelegate {
    benchmark::IterationCount frames = 0;
    void cameraDidCaptureVideoSample(QXDCamera&, const QImage& image) override {
        benchmark::DoNotOptimize(image.constBits());
        ++frames;
    }
};

// Enough buffers that a 1280x720 frame is not in the last-level cache when
// it comes round again.
constexpr std::size_t kPoolSize = 48;

struct FramePool {
    std::vector<platform::SampleBufferPtr> samples;

    FramePool(int width, int height, std::uint32_t format) {
        auto pool = platform::PixelBufferPool::create({width, height, format, 0});
        for (std::size_t i = 0; i < kPoolSize; ++i) {
            auto buffer = pool->createPixelBuffer();
            std::memset(buffer->planeData(0), 0x80, buffer->dataSize());
            samples.push_back(std::make_shared<platform::SampleBuffer>(
                buffer, platform::MediaTime{static_cast<std::int64_t>(i), 30}));
        }
    }
};

void engineFrames(benchmark::State& state, std::uint32_t format) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    platform::CameraAvailability::setOverride(false);
    auto delegate = std::make_shared<NoOpDelegate>();
    auto camera = QXDCamera::create(nullptr, 1, true, delegate);
    FramePool frames(width, height, format);
    std::size_t next = 0;
    for (auto _ : state) {
        camera->captureOutputDidOutputSampleBuffer(nullptr, frames.samples[next], nullptr);
        next = (next + 1) % frames.samples.size();
    }
    if (delegate->frames != state.iterations()) {
        state.SkipWithError("the engine dropped frames");
    }
    platform::CameraAvailability::setOverride(std::nullopt);
}

void BM_EngineFrameBGRA(benchmark::State& state) {
    engineFrames(state, platform::pixel_format::k32BGRA);
}
void BM_EngineFrame420f(benchmark::State& state) {
    engineFrames(state, platform::pixel_format::k420YpCbCr8BiPlanarFullRange);
}
BENCHMARK(BM_EngineFrameBGRA)->Args({1280, 720})->Args({1920, 1080})->Args({3840, 2160});
BENCHMARK(BM_EngineFrame420f)->Args({1280, 720})->Args({1920, 1080})->Args({3840, 2160});

void coldCopies(benchmark::State& state, std::uint32_t format) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    FramePool frames(width, height, format);
    std::vector<unsigned char> target(frames.samples[0]->imageBuffer()->dataSize());
    std::size_t next = 0;
    for (auto _ : state) {
        const auto& buffer = frames.samples[next]->imageBuffer();
        std::memcpy(target.data(), buffer->planeData(0), buffer->dataSize());
        benchmark::ClobberMemory();
        next = (next + 1) % frames.samples.size();
    }
}

void BM_ColdCopyBGRA(benchmark::State& state) {
    coldCopies(state, platform::pixel_format::k32BGRA);
}
void BM_ColdCopy420f(benchmark::State& state) {
    coldCopies(state, platform::pixel_format::k420YpCbCr8BiPlanarFullRange);
}
BENCHMARK(BM_ColdCopyBGRA)
    ->Args({1280, 720})
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ColdCopy420f)
    ->Args({1280, 720})
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->Unit(benchmark::kMicrosecond);

const bool kGoals =
    bench::declareRatio("BM_EngineFrameBGRA/3840/2160", "BM_ColdCopyBGRA/3840/2160", 0.01) &&
    bench::declareRatio("BM_EngineFrame420f/3840/2160", "BM_ColdCopyBGRA/3840/2160", 0.01) &&
    bench::declareRatio("BM_EngineFrameBGRA/3840/2160", "BM_EngineFrameBGRA/1280/720", 1.5) &&
    bench::declareRatio("BM_EngineFrame420f/3840/2160", "BM_EngineFrame420f/1280/720", 1.5);

}  // namespace
