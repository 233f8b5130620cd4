// One live frame end to end through the capture screen: a 1920x1080 frame
// of the virtual camera (turned upright, so 1080x1920) from its pre-rendered
// buffers, through the engine and the controller (transform, a host that
// does nothing), then a full paint of the screen at 1080x1920: the preview
// aspect-filled, the bars, icons, pulse ring and a 4-point outline, into the
// window's backing image. Next to it, the path a Qt host takes for the same
// frame without us: a QVideoFrame of the same NV12 bytes, toImage(), and the
// same screen drawn with raw QPainter calls. Pixel-sized heap blocks made
// per frame in the steady state are counted; there must be none.
#include "AllocationCounter.h"
#include "Ratio.h"

#include "PulseAnimationView.h"
#include "QXDCameraController.h"

#include "platform/capture/CaptureTypes.h"
#include "platform/capture/PixelBuffer.h"
#include "platform/capture/SampleBuffer.h"
#include "platform/capture/VideoPreviewLayer.h"
#include "platform/capture/VirtualCamera.h"
#include "platform/environment/Environment.h"
#include "platform/foundation/RunLoop.h"
#include "platform/graphics/PixelMemory.h"
#include "platform/render/LayerPainter.h"
#include "platform/ui/Button.h"
#include "platform/ui/Font.h"
#include "platform/ui/Window.h"

#include <QPainter>
#include <QVideoFrame>
#include <QVideoFrameFormat>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

namespace {

constexpr int kWidth = 1080;
constexpr int kHeight = 1920;
constexpr std::size_t kPreRendered = 4;
constexpr int kWarmUp = 8;

const std::vector<QPointF> kCorners{{180, 420}, {900, 470}, {860, 1500}, {220, 1450}};

class NoOpHost : public QXDCameraCaptureControllerDelegate {
public:
    void captureControllerDidReceiveFrame(QXDCameraController& /*controller*/,
                                          const platform::ImagePtr& frame) override {
        benchmark::DoNotOptimize(frame.get());
    }
};

// Frames the virtual camera rendered ahead, upright (portrait), in format.
std::vector<platform::SampleBufferPtr> preRender(platform::VirtualCamera& camera,
                                                 std::uint32_t format) {
    platform::FrameLayout layout;
    layout.sensorSize = {1920, 1080};
    layout.pixelFormat = format;
    layout.orientation = platform::video_orientation::kPortrait;
    std::vector<platform::SampleBufferPtr> frames;
    for (std::size_t i = 0; i < kPreRendered; ++i) {
        frames.push_back(camera.renderFrame(i, layout));
    }
    return frames;
}

// The frame as the preview layer shows it: its pixels wrapped, not copied.
QImage previewImage(platform::PixelBuffer& buffer) {
    buffer.lockBaseAddress(platform::kPixelBufferLockReadOnly);
    const QImage image =
        buffer.pixelFormatType() == platform::pixel_format::k32BGRA
            ? platform::wrapPixels(buffer.baseAddress(), buffer.width(), buffer.height(),
                                   static_cast<qsizetype>(buffer.bytesPerRow()),
                                   QImage::Format_RGB32, buffer.owner())
            : platform::wrapPixels(buffer.baseAddressOfPlane(0), buffer.widthOfPlane(0),
                                   buffer.heightOfPlane(0),
                                   static_cast<qsizetype>(buffer.bytesPerRowOfPlane(0)),
                                   QImage::Format_Grayscale8, buffer.owner());
    buffer.unlockBaseAddress(platform::kPixelBufferLockReadOnly);
    return image;
}

// The capture screen in a 1080x1920 window, shown, with the trigger in
// place and an outline drawn.
struct CaptureScreen {
    std::shared_ptr<platform::VirtualCamera> camera =
        platform::VirtualCamera::create(platform::VirtualCameraConfiguration::back());
    std::shared_ptr<NoOpHost> host = std::make_shared<NoOpHost>();
    std::shared_ptr<QXDCameraController> controller;
    std::shared_ptr<platform::Window> window;
    QImage backing{kWidth, kHeight, QImage::Format_ARGB32_Premultiplied};
    // An upright 1080x1920 colour frame fills the window at scale 1.
    QTransform colourTransform;

    CaptureScreen() {
        auto& loop = platform::RunLoop::main();
        loop.useManualClock();
        platform::CameraAvailability::setOverride(false);
        platform::Screen::main().setScale(1.0);
        platform::Device::current().setUserInterfaceIdiom(platform::idiom::kPhone);
        platform::Application::shared().setStatusBarOrientation(1);
        controller = QXDCameraController::init();
        controller->setDelegate(host);
        window = platform::Window::create({0, 0, kWidth, kHeight});
        window->setRootViewController(controller);
        window->makeKeyAndVisible();
        loop.runPending();
        loop.advance(7.0);
        window->layoutIfNeededForHost();
    }
    ~CaptureScreen() {
        window.reset();
        controller.reset();
        platform::RunLoop::main().useManualClock();
        platform::CameraAvailability::setOverride(std::nullopt);
        platform::Screen::main().setScale(2.0);
        platform::Device::current().resetUserInterfaceIdiom();
    }

    void frame(const platform::SampleBufferPtr& sample) {
        controller->camera()->captureOutputDidOutputSampleBuffer(nullptr, sample, nullptr);
        controller->cameraPreview()->setContents(previewImage(*sample->imageBuffer()));
        // A grey frame reaches the host as no picture, which leaves the
        // screen's transform without a scale; the outline then goes to the
        // layer with the transform a colour frame of this size gives, so that
        // both runs paint it.
        const QTransform t = controller->transform();
        if (std::isfinite(t.m11()) && std::isfinite(t.m22())) {
            controller->drawPolygonAtKeyPoints(kCorners, Qt::green);
        } else {
            controller->polygonLayer()->drawPolygonAtKeyPoints(kCorners, colourTransform,
                                                               Qt::green);
        }
        window->layoutIfNeededForHost();
        QPainter painter(&backing);
        painter.setRenderHint(QPainter::Antialiasing);
        // As a host paints its window.
        platform::LayerPainter::paint(painter, *window->layer(), platform::RunLoop::main().now(),
                                      window->bounds(), Qt::black);
    }
};

void captureScreenFrames(benchmark::State& state, std::uint32_t format) {
    CaptureScreen screen;
    const auto frames = preRender(*screen.camera, format);
    for (const auto& frame : frames) {
        if (!frame) {
            state.SkipWithError("the virtual camera had no free buffer");
            return;
        }
    }
    std::size_t next = 0;
    for (int i = 0; i < kWarmUp; ++i) {
        screen.frame(frames[next++ % frames.size()]);
    }
    bench::allocations::start();
    for (auto _ : state) {
        screen.frame(frames[next++ % frames.size()]);
        benchmark::DoNotOptimize(screen.backing.constBits());
    }
    const auto allocated = bench::allocations::stop();
    state.counters["pixel_blocks_per_frame"] =
        static_cast<double>(allocated) / static_cast<double>(state.iterations());
    if (allocated != 0) {
        state.SkipWithError("pixel memory was allocated in the steady state");
    }
}

void BM_CaptureScreenFrame420f(benchmark::State& state) {
    captureScreenFrames(state, platform::pixel_format::k420YpCbCr8BiPlanarFullRange);
}
void BM_CaptureScreenFrameBGRA(benchmark::State& state) {
    captureScreenFrames(state, platform::pixel_format::k32BGRA);
}
BENCHMARK(BM_CaptureScreenFrame420f)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CaptureScreenFrameBGRA)->Unit(benchmark::kMillisecond);

// --- The same frame and screen without us -----------------------------------------------

struct QtHostScreen {
    QVideoFrame frame;
    QImage torch, cameraSwitch, help, shutter, watermark;
    QImage backing{kWidth, kHeight, QImage::Format_ARGB32_Premultiplied};
    QFont cancelFont = platform::fontWithName(QStringLiteral("HelveticaNeue-THIN"), 18);
    double pulsePhase = 0;

    explicit QtHostScreen(platform::PixelBuffer& nv12)
        : frame(QVideoFrameFormat(QSize(nv12.width(), nv12.height()),
                                  QVideoFrameFormat::Format_NV12)) {
        nv12.lockBaseAddress(platform::kPixelBufferLockReadOnly);
        frame.map(QVideoFrame::WriteOnly);
        for (int plane = 0; plane < 2; ++plane) {
            const int rows = plane == 0 ? nv12.height() : nv12.height() / 2;
            const auto* from = static_cast<const unsigned char*>(nv12.baseAddressOfPlane(plane));
            for (int y = 0; y < rows; ++y) {
                std::memcpy(frame.bits(plane) + y * frame.bytesPerLine(plane),
                            from + y * nv12.bytesPerRowOfPlane(plane),
                            static_cast<std::size_t>(nv12.width()));
            }
        }
        frame.unmap();
        nv12.unlockBaseAddress(platform::kPixelBufferLockReadOnly);
        auto controller = QXDCameraController::init();
        auto image = [&](const char* name) {
            const auto found = controller->loadImage(QString::fromLatin1(name));
            return found ? found->cgImage() : QImage();
        };
        torch = image("Camera-Flash-OFF");
        cameraSwitch = image("Camera-Switch");
        help = image("icon_help_ios");
        shutter = image("Camera-Shutter");
        watermark = image("velmo_alpha");
    }

    void paint() {
        const QImage picture = frame.toImage();
        QPainter painter(&backing);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.fillRect(QRectF(0, 0, kWidth, kHeight), Qt::black);
        // Aspect fill.
        const QSizeF size =
            QSizeF(picture.size()).scaled(QSizeF(kWidth, kHeight), Qt::KeepAspectRatioByExpanding);
        painter.drawImage(
            QRectF(QPointF((kWidth - size.width()) / 2, (kHeight - size.height()) / 2), size),
            picture);
        painter.setPen(QPen(Qt::green, 2));
        painter.drawPolygon(QPolygonF(QList<QPointF>(kCorners.begin(), kCorners.end())));
        painter.drawImage(QRectF(0, 8, 50, 28), torch);
        painter.drawImage(QRectF(kWidth - 50, 6, 50, 32), cameraSwitch);
        const QPointF pulse(kWidth / 2.0, 22);
        pulsePhase = std::fmod(pulsePhase + 1.0 / 30.0, 1.0);
        painter.setPen(QPen(QColor::fromRgbF(1, 1, 1, 0.8 * (1 - pulsePhase)), 1));
        painter.setBrush(QColor::fromRgbF(0, 0, 0, 0.8 * (1 - pulsePhase)));
        painter.drawEllipse(pulse, 22 * pulsePhase, 22 * pulsePhase);
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::white);
        painter.drawEllipse(pulse, 2.75, 2.75);
        painter.setFont(cancelFont);
        painter.setPen(Qt::white);
        painter.drawText(QRectF(10, kHeight - 60, 80, 30), Qt::AlignLeft | Qt::AlignVCenter,
                         QStringLiteral("Cancel"));
        painter.drawImage(QRectF(kWidth - 50, kHeight - 65, 40, 40), help);
        painter.drawImage(QRectF(kWidth / 2.0 - 39, kHeight - 84, 78, 78), shutter);
        painter.drawImage(QRectF(kWidth / 2.0 - 50, kHeight - 110, 100, 20), watermark);
    }
};

void BM_QtHostFrame420f(benchmark::State& state) {
    auto camera = platform::VirtualCamera::create(platform::VirtualCameraConfiguration::back());
    const auto frames = preRender(*camera, platform::pixel_format::k420YpCbCr8BiPlanarFullRange);
    if (!frames.front()) {
        state.SkipWithError("the virtual camera had no free buffer");
        return;
    }
    QtHostScreen screen(*frames.front()->imageBuffer());
    for (int i = 0; i < kWarmUp; ++i) {
        screen.paint();
    }
    for (auto _ : state) {
        screen.paint();
        benchmark::DoNotOptimize(screen.backing.constBits());
    }
}
BENCHMARK(BM_QtHostFrame420f)->Unit(benchmark::kMillisecond);

constexpr double kFrameBudget = 0.003;

const bool kGoals = bench::declareRatio("BM_CaptureScreenFrame420f", "BM_QtHostFrame420f", 0.4) &&
                    bench::declareRatio("BM_CaptureScreenFrameBGRA", "BM_QtHostFrame420f", 0.4) &&
                    bench::declareLimit("BM_CaptureScreenFrame420f", kFrameBudget) &&
                    bench::declareLimit("BM_CaptureScreenFrameBGRA", kFrameBudget);

}  // namespace
