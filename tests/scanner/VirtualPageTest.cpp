// Where the virtual camera says its page is, checked against the pixels it
// renders: in every orientation and mirroring, with hand motion, in stills,
// and under each of the scene's knobs.
#include "platform/capture/PixelBuffer.h"
#include "platform/capture/SampleBuffer.h"
#include "platform/capture/VirtualCamera.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QLineF>

#include <atomic>
#include <cmath>
#include <semaphore>

namespace {

using namespace platform;

VirtualCameraConfiguration sceneCamera(const virtual_scene::SceneKnobs& knobs) {
    auto config = VirtualCameraConfiguration::back();
    config.capabilities.focusModes = {focus_mode::kLocked};
    config.desk = virtual_scene::Desk::Grey;
    config.scene = knobs;
    config.noiseAmplitude = 0;
    return config;
}

// The frame's luma (BGRA frames averaged), one byte a pixel.
QImage lumaOf(const SampleBufferPtr& sample) {
    auto buffer = sample->imageBuffer();
    EXPECT_EQ(buffer->lockBaseAddress(kPixelBufferLockReadOnly), cv_return::kSuccess);
    QImage grey(buffer->width(), buffer->height(), QImage::Format_Grayscale8);
    const auto* base = static_cast<const std::uint8_t*>(buffer->baseAddressOfPlane(0));
    const std::size_t stride = buffer->bytesPerRowOfPlane(0);
    const bool bgra = buffer->pixelFormatType() == pixel_format::k32BGRA;
    for (int y = 0; y < grey.height(); ++y) {
        const std::uint8_t* row = base + y * stride;
        for (int x = 0; x < grey.width(); ++x) {
            grey.scanLine(y)[x] =
                bgra ? std::uint8_t((row[4 * x] + 2 * row[4 * x + 1] + row[4 * x + 2]) / 4)
                     : row[x];
        }
    }
    buffer->unlockBaseAddress(kPixelBufferLockReadOnly);
    return grey;
}

int lumaAt(const QImage& grey, const QPointF& point) {
    const int x = std::clamp(int(std::floor(point.x())), 0, grey.width() - 1);
    const int y = std::clamp(int(std::floor(point.y())), 0, grey.height() - 1);
    return grey.constScanLine(y)[x];
}

// Samples just inside and just outside the middle of each side and near each
// corner: the page (bright) inside, the grey desk or the page's drop shadow
// outside.
void expectPageAt(const QImage& grey, const QPolygonF& corners, const char* what) {
    ASSERT_EQ(corners.size(), 4) << what;
    QPointF centre;
    for (const QPointF& corner : corners) {
        centre += corner / 4;
    }
    for (int side = 0; side < 4; ++side) {
        const QLineF edge(corners[side], corners[(side + 1) % 4]);
        for (const double along : {0.15, 0.5, 0.85}) {
            const QPointF onEdge = edge.pointAt(along);
            QLineF inward(onEdge, centre);
            inward.setLength(5);
            const QPointF inside = inward.p2();
            inward.setLength(-5);
            const QPointF outside = inward.p2();
            EXPECT_GT(lumaAt(grey, inside), 180)
                << what << ": inside side " << side << " at " << along;
            EXPECT_LT(lumaAt(grey, outside), 150)
                << what << ": outside side " << side << " at " << along;
        }
    }
}

TEST(VirtualPage, CornersFollowThePageInEveryOrientationWithHandMotionAndInStills) {
    virtual_scene::SceneKnobs knobs;
    knobs.lightGradient = 0;
    knobs.rotation = 7;
    knobs.tilt = 0.15;
    auto camera = VirtualCamera::create(sceneCamera(knobs));
    struct Case {
        int orientation;
        bool mirrored;
        std::uint32_t format;
    };
    for (const Case& c : {Case{video_orientation::kPortrait, false, pixel_format::k32BGRA},
                          Case{video_orientation::kLandscapeRight, false,
                               pixel_format::k420YpCbCr8BiPlanarFullRange},
                          Case{video_orientation::kLandscapeLeft, true, pixel_format::k32BGRA},
                          Case{video_orientation::kPortraitUpsideDown, true,
                               pixel_format::k420YpCbCr8BiPlanarFullRange}}) {
        FrameLayout layout;
        layout.sensorSize = QSize(640, 480);
        layout.orientation = c.orientation;
        layout.mirrored = c.mirrored;
        layout.pixelFormat = c.format;
        for (const std::uint64_t tick : {0u, 17u, 40u}) {
            const auto frame = camera->renderFrame(tick, layout);
            ASSERT_TRUE(frame);
            const std::string what = "orientation " + std::to_string(c.orientation) +
                                     (c.mirrored ? " mirrored" : "") + " tick " +
                                     std::to_string(tick);
            expectPageAt(lumaOf(frame), camera->pageCorners(tick, layout), what.c_str());
        }
        // Hand motion moves the page between frames, and the corners with it.
        EXPECT_NE(camera->pageCorners(0, layout), camera->pageCorners(17, layout));
    }

    FrameLayout still;
    still.sensorSize = QSize(1024, 768);
    still.orientation = video_orientation::kPortrait;
    const auto result = camera->captureStill({still, 1.0});
    ASSERT_TRUE(result.sampleBuffer);
    expectPageAt(lumaOf(result.sampleBuffer), camera->stillPageCorners(still), "still");
}

TEST(VirtualPage, KnobsChangeThePictureAndAPagelessSceneHasNoCorners) {
    FrameLayout layout;
    layout.sensorSize = QSize(480, 360);
    layout.orientation = video_orientation::kPortrait;

    virtual_scene::SceneKnobs plain;
    plain.lightGradient = 0;
    const QImage base = lumaOf(VirtualCamera::create(sceneCamera(plain))->renderFrame(0, layout));
    const QPolygonF baseCorners = VirtualCamera::create(sceneCamera(plain))->pageCorners(0, layout);

    // A near-white desk is almost as bright as the page.
    auto white = sceneCamera(plain);
    white.desk = virtual_scene::Desk::White;
    const QImage pale = lumaOf(VirtualCamera::create(white)->renderFrame(0, layout));
    EXPECT_GT(lumaAt(pale, QPointF(3, 3)), 200);
    EXPECT_LT(lumaAt(base, QPointF(3, 3)), 130);

    // Scale, rotation and offset move the corners; the page stays A4 on
    // average over its opposite sides.
    virtual_scene::SceneKnobs moved = plain;
    moved.scale = 0.6;
    moved.rotation = -20;
    moved.offset = QPointF(0.1, -0.05);
    moved.tilt = 0;
    auto movedCamera = VirtualCamera::create(sceneCamera(moved));
    const QPolygonF corners = movedCamera->pageCorners(0, layout);
    expectPageAt(lumaOf(movedCamera->renderFrame(0, layout)), corners, "moved");
    const double width =
        (QLineF(corners[0], corners[1]).length() + QLineF(corners[3], corners[2]).length()) / 2;
    const double height =
        (QLineF(corners[0], corners[3]).length() + QLineF(corners[1], corners[2]).length()) / 2;
    EXPECT_NEAR(height / width, 1.414, 0.03);
    EXPECT_LT(width, QLineF(baseCorners[0], baseCorners[1]).length());

    // A shadow darkens the left of the picture; blur softens the page's edge.
    virtual_scene::SceneKnobs shaded = plain;
    shaded.shadow = 1;
    const QImage dark = lumaOf(VirtualCamera::create(sceneCamera(shaded))->renderFrame(0, layout));
    // In the page's margin, a quarter down its left side.
    const QPointF leftOfPage =
        baseCorners[0] + (baseCorners[3] - baseCorners[0]) / 4 + QPointF(8, 0);
    EXPECT_LT(lumaAt(dark, leftOfPage), lumaAt(base, leftOfPage) - 40);

    virtual_scene::SceneKnobs soft = plain;
    soft.blur = 0.02;
    const QImage blurred = lumaOf(VirtualCamera::create(sceneCamera(soft))->renderFrame(0, layout));
    const QPointF edge = (baseCorners[0] + baseCorners[3]) / 2;
    const auto contrastAcross = [&](const QImage& grey) {
        return lumaAt(grey, edge + QPointF(3, 0)) - lumaAt(grey, edge - QPointF(3, 0));
    };
    EXPECT_LT(contrastAcross(blurred), contrastAcross(base) / 2 + 5);

    virtual_scene::SceneKnobs none = plain;
    none.page = false;
    auto empty = VirtualCamera::create(sceneCamera(none));
    EXPECT_TRUE(empty->pageCorners(0, layout).isEmpty());
    const QImage desk = lumaOf(empty->renderFrame(0, layout));
    EXPECT_LT(lumaAt(desk, QPointF(layout.size().width() / 2.0, layout.size().height() / 2.0)),
              150);

    auto image = sceneCamera(plain);
    image.source = VirtualCameraConfiguration::Source::Image;
    image.image = base;
    EXPECT_TRUE(VirtualCamera::create(image)->pageCorners(0, layout).isEmpty());
}

TEST(VirtualPage, TheLastDeliveredFrameReportsItsCorners) {
    auto config = sceneCamera({});
    config.frameRate = 200;
    auto camera = VirtualCamera::create(config);
    EXPECT_TRUE(camera->lastFramePageCorners().first.isEmpty());

    class Sink final : public CaptureStreamSink {
    public:
        explicit Sink(std::shared_ptr<VirtualCamera> camera) : _camera(std::move(camera)) {}
        FrameLayout nextFrameLayout() override {
            FrameLayout layout;
            layout.sensorSize = QSize(320, 240);
            layout.orientation = video_orientation::kPortrait;
            return layout;
        }
        void streamDidOutputSampleBuffer(const SampleBufferPtr& sample,
                                         const FrameLayout& layout) override {
            // Delivered after the corners are recorded: they belong to this frame.
            const auto [corners, seen] = _camera->lastFramePageCorners();
            matches = matches && seen == layout &&
                      corners == _camera->pageCorners(
                                     std::uint64_t(sample->presentationTimeStamp().value), layout);
            if (++frames == 3) {
                threeFrames.release();
            }
        }
        void streamDidFail(const ErrorPtr&) override {}
        std::atomic<bool> matches{true};
        std::atomic<int> frames{0};
        std::binary_semaphore threeFrames{0};

    private:
        std::shared_ptr<VirtualCamera> _camera;
    };
    auto sink = std::make_shared<Sink>(camera);
    ASSERT_EQ(camera->startStreaming(sink), nullptr);
    // The stream runs on its own thread; stopStreaming joins it.
    sink->threeFrames.acquire();
    camera->stopStreaming();
    EXPECT_TRUE(sink->matches.load());
    EXPECT_EQ(camera->lastFramePageCorners().first.size(), 4);
}

}  // namespace
