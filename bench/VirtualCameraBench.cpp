// The virtual camera must keep up with 30 frames a second at 1920x1080 on
// the one thread it streams from: one frame of the document scene (hand
// motion, sensor noise) in each output format, rendered on the calling
// thread into pooled buffers that are handed back at once, as a consumer
// that keeps up does.
#include "Ratio.h"

#include "platform/capture/VirtualCamera.h"

#include <benchmark/benchmark.h>

namespace {

void virtualCameraFrames(benchmark::State& state, std::uint32_t format) {
    auto camera = platform::VirtualCamera::create(platform::VirtualCameraConfiguration::back());
    platform::FrameLayout layout;
    layout.sensorSize = {1920, 1080};
    layout.pixelFormat = format;
    std::uint64_t tick = 0;
    // The scene is prepared once per layout and look; frames after it are
    // the steady state.
    benchmark::DoNotOptimize(camera->renderFrame(tick++, layout));
    for (auto _ : state) {
        const platform::SampleBufferPtr frame = camera->renderFrame(tick++, layout);
        if (!frame) {
            state.SkipWithError("no free pixel buffer");
            break;
        }
        benchmark::DoNotOptimize(frame.get());
    }
}

void BM_VirtualCameraFrame1080pBGRA(benchmark::State& state) {
    virtualCameraFrames(state, platform::pixel_format::k32BGRA);
}
void BM_VirtualCameraFrame1080p420f(benchmark::State& state) {
    virtualCameraFrames(state, platform::pixel_format::k420YpCbCr8BiPlanarFullRange);
}
BENCHMARK(BM_VirtualCameraFrame1080pBGRA)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VirtualCameraFrame1080p420f)->Unit(benchmark::kMillisecond);

constexpr double kFramePeriod = 1.0 / 30.0;

const bool kLimits = bench::declareLimit("BM_VirtualCameraFrame1080pBGRA", kFramePeriod) &&
                     bench::declareLimit("BM_VirtualCameraFrame1080p420f", kFramePeriod);

}  // namespace
