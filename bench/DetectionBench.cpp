// The scanner's page detection next to the textbook pipeline (full-resolution
// grey, 5x5 Gaussian blur, Canny 75/200, contours, polygons at 2% of the
// perimeter, the largest four-sided one) on the same full-HD virtual frames,
// both on one core: time per frame, and each one's accuracy against the
// frames' true page corners.
#include "Ratio.h"

#include "PageDetector.h"
#include "platform/capture/PixelBuffer.h"
#include "platform/capture/SampleBuffer.h"
#include "platform/capture/VirtualCamera.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <QString>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

namespace {

using namespace platform;

struct Frame {
    QImage colour;  ///< RGB32, as a BGRA frame arrives
    QImage luma;    ///< the same frame's 420f luma plane
    scanner::Quad truth;
};

QImage pictureOf(const SampleBufferPtr& sample, QImage::Format format) {
    const auto buffer = sample->imageBuffer();
    buffer->lockBaseAddress(kPixelBufferLockReadOnly);
    QImage copy = QImage(static_cast<const uchar*>(buffer->baseAddressOfPlane(0)), buffer->width(),
                         buffer->height(), qsizetype(buffer->bytesPerRowOfPlane(0)), format)
                      .copy();
    buffer->unlockBaseAddress(kPixelBufferLockReadOnly);
    return copy;
}

/// Full-HD frames across desks, light, shadow, placement and focus.
const std::vector<Frame>& frames() {
    static const std::vector<Frame> made = [] {
        using virtual_scene::Desk;
        std::vector<Frame> out;
        const auto add = [&](Desk desk, auto change) {
            auto config = VirtualCameraConfiguration::back();
            config.capabilities.focusModes = {focus_mode::kLocked};
            config.desk = desk;
            config.seed = 40 + out.size();
            change(config.scene);
            auto camera = VirtualCamera::create(config);
            FrameLayout layout;
            layout.sensorSize = QSize(1920, 1080);
            layout.orientation = video_orientation::kLandscapeRight;
            Frame frame;
            frame.colour = pictureOf(camera->renderFrame(7, layout), QImage::Format_RGB32);
            layout.pixelFormat = pixel_format::k420YpCbCr8BiPlanarFullRange;
            frame.luma = pictureOf(camera->renderFrame(7, layout), QImage::Format_Grayscale8);
            frame.truth = scanner::fromPolygon(camera->pageCorners(7, layout));
            out.push_back(frame);
        };
        for (const Desk desk : {Desk::Wood, Desk::Grey, Desk::White}) {
            add(desk, [](auto&) {});
            add(desk, [](auto& k) { k.shadow = 0.6; });
            add(desk, [](auto& k) {
                k.rotation = 15;
                k.tilt = 0.2;
            });
            add(desk, [](auto& k) {
                k.blur = 0.01;
                k.sharpTop = 0.4;
            });
        }
        return out;
    }();
    return made;
}

/// The textbook pipeline, on a grey or BGRA picture.
std::optional<scanner::Quad> textbook(const QImage& picture) {
    const bool grey = picture.format() == QImage::Format_Grayscale8;
    const cv::Mat full(picture.height(), picture.width(), grey ? CV_8UC1 : CV_8UC4,
                       const_cast<uchar*>(picture.constBits()),
                       static_cast<std::size_t>(picture.bytesPerLine()));
    cv::Mat gray;
    if (grey) {
        gray = full;
    } else {
        cv::cvtColor(full, gray, cv::COLOR_BGRA2GRAY);
    }
    cv::Mat blurred;
    cv::GaussianBlur(gray, blurred, cv::Size(5, 5), 0);
    cv::Mat edged;
    cv::Canny(blurred, edged, 75, 200);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(edged, contours, cv::RETR_LIST, cv::CHAIN_APPROX_SIMPLE);
    std::sort(contours.begin(), contours.end(),
              [](const auto& a, const auto& b) { return cv::contourArea(a) > cv::contourArea(b); });
    for (std::size_t i = 0; i < contours.size() && i < 5; ++i) {
        std::vector<cv::Point> polygon;
        cv::approxPolyDP(contours[i], polygon, 0.02 * cv::arcLength(contours[i], true), true);
        if (polygon.size() == 4) {
            std::array<QPointF, 4> corners{};
            for (int k = 0; k < 4; ++k) {
                corners[k] = QPointF(polygon[k].x + 0.5, polygon[k].y + 0.5);
            }
            return scanner::ordered(corners);
        }
    }
    return std::nullopt;
}

/// One core for OpenCV while a benchmark runs.
class OneCore {
public:
    OneCore() : _threads(cv::getNumThreads()) { cv::setNumThreads(1); }
    ~OneCore() { cv::setNumThreads(_threads); }
    OneCore(const OneCore&) = delete;
    OneCore& operator=(const OneCore&) = delete;

private:
    int _threads;
};

template <typename Detect>
void runOver(benchmark::State& state, bool luma, Detect detect) {
    const OneCore oneCore;
    const auto& all = frames();
    std::size_t index = 0;
    for (auto _ : state) {
        const Frame& frame = all[index++ % all.size()];
        benchmark::DoNotOptimize(detect(luma ? frame.luma : frame.colour));
    }
}

const scanner::PageDetector& detector() {
    static const scanner::PageDetector made;
    return made;
}

void BM_DetectPage1080p(benchmark::State& state) {
    runOver(state, false, [](const QImage& p) { return detector().detect(p); });
}
void BM_DetectPage1080pLuma(benchmark::State& state) {
    runOver(state, true, [](const QImage& p) { return detector().detect(p); });
}
void BM_TextbookPage1080p(benchmark::State& state) {
    runOver(state, false, textbook);
}
void BM_TextbookPage1080pLuma(benchmark::State& state) {
    runOver(state, true, textbook);
}
BENCHMARK(BM_DetectPage1080p)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DetectPage1080pLuma)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TextbookPage1080p)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TextbookPage1080pLuma)->Unit(benchmark::kMillisecond);

/// Mean IoU with the true corners over the frames (0 for a frame without an
/// outline), both pictures of each frame.
template <typename Detect>
double meanIoU(Detect detect) {
    double sum = 0;
    int count = 0;
    for (const Frame& frame : frames()) {
        for (const QImage* picture : {&frame.colour, &frame.luma}) {
            const std::optional<scanner::Quad> found = detect(*picture);
            sum += found ? scanner::intersectionOverUnion(*found, frame.truth) : 0.0;
            ++count;
        }
    }
    return sum / count;
}

bool accuracyCheck() {
    bench::declareCheck("BM_DetectPage1080p", [] {
        const double ours = meanIoU([](const QImage& p) -> std::optional<scanner::Quad> {
            const auto found = detector().detect(p);
            return found ? std::optional(found->corners) : std::nullopt;
        });
        const double reference = meanIoU(textbook);
        char line[160];
        std::snprintf(line, sizeof line,
                      "mean IoU on %zu full-HD frames: ours %.4f, textbook %.4f (goal: ours >= "
                      "textbook)",
                      frames().size() * 2, ours, reference);
        return std::pair<std::string, bool>(line, ours >= reference);
    });
    return true;
}

[[maybe_unused]] const bool kDeclared =
    bench::declareRatio("BM_DetectPage1080p", "BM_TextbookPage1080p", 1.0 / 3) &&
    bench::declareRatio("BM_DetectPage1080pLuma", "BM_TextbookPage1080pLuma", 1.0 / 3) &&
    bench::declareLimit("BM_DetectPage1080p", 6e-3) &&
    bench::declareLimit("BM_DetectPage1080pLuma", 6e-3) && accuracyCheck();

}  // namespace
