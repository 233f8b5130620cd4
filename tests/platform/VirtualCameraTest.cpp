// The virtual camera as a picture source: what its frames show for each
// source, that they are reproducible, that both output formats show the same
// picture, and that it never has more buffers out than configured.
#include "platform/capture/PixelBuffer.h"
#include "platform/capture/SampleBuffer.h"
#include "platform/capture/VirtualCamera.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using namespace platform;

constexpr QSize kFrameSize(64, 48);

// A still camera: no hand motion, no noise, fixed focus, one picture a tick.
VirtualCameraConfiguration steadyCamera(VirtualCameraConfiguration::Source source) {
    auto config = VirtualCameraConfiguration::back();
    config.source = source;
    config.capabilities.focusModes = {focus_mode::kLocked};
    config.handMotion = 0;
    config.noiseAmplitude = 0;
    config.frameRate = 30;
    config.secondsPerPicture = 1.0 / 30;
    return config;
}

FrameLayout layoutIn(std::uint32_t format) {
    FrameLayout layout;
    layout.sensorSize = kFrameSize;
    layout.pixelFormat = format;
    layout.orientation = video_orientation::kLandscapeRight;
    return layout;
}

// Locks a frame's pixels for reading while it lives.
class Pixels {
public:
    explicit Pixels(const SampleBufferPtr& sample) : _buffer(sample->imageBuffer()) {
        EXPECT_EQ(_buffer->lockBaseAddress(kPixelBufferLockReadOnly), cv_return::kSuccess);
    }
    ~Pixels() { _buffer->unlockBaseAddress(kPixelBufferLockReadOnly); }
    Pixels(const Pixels&) = delete;
    Pixels& operator=(const Pixels&) = delete;

    const std::uint8_t* at(std::size_t plane, int x, int y, int bytesPerSample) const {
        const auto* base = static_cast<const std::uint8_t*>(_buffer->baseAddressOfPlane(plane));
        return base + y * _buffer->bytesPerRowOfPlane(plane) + x * bytesPerSample;
    }
    QColor bgra(int x, int y) const {
        const std::uint8_t* p = at(0, x, y, 4);
        return QColor(p[2], p[1], p[0]);
    }
    int luma(int x, int y) const { return *at(0, x, y, 1); }
    const PixelBuffer& buffer() const { return *_buffer; }

private:
    std::shared_ptr<PixelBuffer> _buffer;
};

QColor centreOf(VirtualCamera& camera, std::uint64_t tick) {
    const SampleBufferPtr frame = camera.renderFrame(tick, layoutIn(pixel_format::k32BGRA));
    if (!frame) {
        ADD_FAILURE() << "no frame at tick " << tick;
        return {};
    }
    return Pixels(frame).bgra(kFrameSize.width() / 2, kFrameSize.height() / 2);
}

// The sensor's tone curve lifts black a little and keeps white off the
// top, so picture colours come back within a few dozen levels.
bool near(const QColor& a, const QColor& b, int tolerance = 32) {
    return std::abs(a.red() - b.red()) <= tolerance &&
           std::abs(a.green() - b.green()) <= tolerance &&
           std::abs(a.blue() - b.blue()) <= tolerance;
}

void writeSolid(const QString& path, const QColor& color) {
    QImage image(40, 30, QImage::Format_RGB32);
    image.fill(color);
    ASSERT_TRUE(image.save(path));
}

std::vector<std::uint8_t> bytesOf(const SampleBufferPtr& sample) {
    Pixels pixels(sample);
    const auto* base = pixels.at(0, 0, 0, 1);
    return {base, base + pixels.buffer().dataSize()};
}

}  // namespace

TEST(VirtualCameraSource, FolderPicturesCycleInNameOrderAndUnreadableOnesShowGrey) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    writeSolid(folder.filePath(QStringLiteral("b.png")), Qt::blue);
    writeSolid(folder.filePath(QStringLiteral("a.png")), Qt::red);
    QFile broken(folder.filePath(QStringLiteral("c.jpg")));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("not a picture");
    broken.close();
    QFile notes(folder.filePath(QStringLiteral("notes.txt")));
    ASSERT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("ignored");
    notes.close();

    auto config = steadyCamera(VirtualCameraConfiguration::Source::Folder);
    config.folder = folder.path();
    const auto camera = VirtualCamera::create(config);
    EXPECT_TRUE(near(centreOf(*camera, 0), Qt::red));
    EXPECT_TRUE(near(centreOf(*camera, 1), Qt::blue));
    const QColor unreadable = centreOf(*camera, 2);
    EXPECT_LT(unreadable.value(), 100) << "dark";
    EXPECT_TRUE(near(unreadable, QColor(unreadable.red(), unreadable.red(), unreadable.red()), 4))
        << "grey";
    EXPECT_TRUE(near(centreOf(*camera, 3), Qt::red)) << "the text file is no picture";

    // A folder that is not there gives grey frames, not a failure.
    config.folder = folder.filePath(QStringLiteral("missing"));
    const auto lost = VirtualCamera::create(config);
    EXPECT_TRUE(near(centreOf(*lost, 0), unreadable, 4));
    EXPECT_TRUE(near(centreOf(*lost, 1), unreadable, 4));
}

TEST(VirtualCameraSource, FramesDependOnTheSeedAndTickOnly) {
    auto config = VirtualCameraConfiguration::back();  // motion and noise on
    const auto first = VirtualCamera::create(config);
    const auto twin = VirtualCamera::create(config);
    const FrameLayout layout = layoutIn(pixel_format::k32BGRA);

    const auto frame = bytesOf(first->renderFrame(5, layout));
    EXPECT_EQ(bytesOf(twin->renderFrame(5, layout)), frame) << "same seed, same tick";
    EXPECT_EQ(bytesOf(first->renderFrame(5, layout)), frame) << "the same tick again";
    EXPECT_NE(bytesOf(first->renderFrame(6, layout)), frame) << "the next tick moves";

    config.seed = 99;
    const auto other = VirtualCamera::create(config);
    EXPECT_NE(bytesOf(other->renderFrame(5, layout)), frame) << "another seed";
}

TEST(VirtualCameraSource, BothFormatsShowTheSamePicture) {
    // Four quarters of known colours.
    QImage picture(200, 150, QImage::Format_RGB32);
    const QColor colours[4] = {QColor(200, 40, 40), QColor(40, 160, 60), QColor(30, 60, 200),
                               QColor(230, 230, 230)};
    {
        QPainter painter(&picture);
        painter.fillRect(0, 0, 100, 75, colours[0]);
        painter.fillRect(100, 0, 100, 75, colours[1]);
        painter.fillRect(0, 75, 100, 75, colours[2]);
        painter.fillRect(100, 75, 100, 75, colours[3]);
    }
    auto config = steadyCamera(VirtualCameraConfiguration::Source::Image);
    config.image = picture;
    const auto camera = VirtualCamera::create(config);
    const auto colour = camera->renderFrame(0, layoutIn(pixel_format::k32BGRA));
    const auto grey = camera->renderFrame(0, layoutIn(pixel_format::k420YpCbCr8BiPlanarFullRange));
    ASSERT_TRUE(colour && grey);
    Pixels bgra(colour);
    Pixels yuv(grey);
    ASSERT_EQ(yuv.buffer().planeCount(), 2u);
    EXPECT_EQ(yuv.buffer().widthOfPlane(1), kFrameSize.width() / 2);
    EXPECT_EQ(yuv.buffer().heightOfPlane(1), kFrameSize.height() / 2);

    const int w = kFrameSize.width();
    const int h = kFrameSize.height();
    for (const QPoint& p : {QPoint(w / 4, h / 4), QPoint(3 * w / 4, h / 4),
                            QPoint(w / 4, 3 * h / 4), QPoint(3 * w / 4, 3 * h / 4)}) {
        const QColor c = bgra.bgra(p.x(), p.y());
        const double expected = 0.299 * c.red() + 0.587 * c.green() + 0.114 * c.blue();
        EXPECT_NEAR(yuv.luma(p.x(), p.y()), expected, 3.0) << p.x() << "," << p.y();
        // Chroma: blue-difference above 128 where blue leads, below where it lags.
        const std::uint8_t* uv = yuv.at(1, p.x() / 2, p.y() / 2, 2);
        EXPECT_EQ(uv[0] > 128, c.blue() > expected) << p.x() << "," << p.y();
        EXPECT_EQ(uv[1] > 128, c.red() > expected) << p.x() << "," << p.y();
    }
    // The four points see the four quarters (turned with the frame).
    std::vector<int> seen;
    for (const QPoint& p : {QPoint(w / 4, h / 4), QPoint(3 * w / 4, h / 4),
                            QPoint(w / 4, 3 * h / 4), QPoint(3 * w / 4, 3 * h / 4)}) {
        for (int i = 0; i < 4; ++i) {
            if (near(bgra.bgra(p.x(), p.y()), colours[i], 40)) {
                seen.push_back(i);
            }
        }
    }
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3}));
}

TEST(VirtualCameraSource, NoMoreBuffersOutThanConfigured) {
    auto config = steadyCamera(VirtualCameraConfiguration::Source::Document);
    config.maximumBuffersInFlight = 3;
    const auto camera = VirtualCamera::create(config);
    const FrameLayout layout = layoutIn(pixel_format::k32BGRA);
    std::vector<SampleBufferPtr> held;
    for (std::uint64_t tick = 0; tick < 3; ++tick) {
        held.push_back(camera->renderFrame(tick, layout));
        ASSERT_TRUE(held.back());
    }
    EXPECT_FALSE(camera->renderFrame(3, layout)) << "every buffer is out";
    held.erase(held.begin());
    EXPECT_TRUE(camera->renderFrame(4, layout)) << "a returned buffer is used again";

    // Frames of another size come from a pool of their own.
    FrameLayout larger = layout;
    larger.sensorSize = QSize(128, 96);
    const auto big = camera->renderFrame(5, larger);
    ASSERT_TRUE(big);
    EXPECT_EQ(big->imageBuffer()->width(), 128);
}

namespace {

TEST(VirtualCameraBuffers, ThePoolGrowsToASecondOfFramesAndGivesBurstsBack) {
    auto config = steadyCamera(VirtualCameraConfiguration::Source::Document);
    config.maximumBuffersInFlight = 0;
    config.frameRate = 30;
    EXPECT_EQ(VirtualCamera::create(config)->bufferBound(), 30u);
    config.frameRate = 2;
    EXPECT_EQ(VirtualCamera::create(config)->bufferBound(), 4u) << "never fewer than four";

    // A pool keeps only so many returned blocks; the rest go back at once.
    PixelBufferPool::Attributes attributes;
    attributes.width = 64;
    attributes.height = 48;
    attributes.maximumFreeBufferCount = 2;
    const auto pool = PixelBufferPool::create(attributes);
    std::vector<std::shared_ptr<PixelBuffer>> held;
    for (int i = 0; i < 5; ++i) {
        held.push_back(pool->createPixelBuffer());
    }
    EXPECT_EQ(pool->allocatedBufferCount(), 5u);
    held.clear();
    EXPECT_EQ(pool->freeBufferCount(), 2u);
    EXPECT_EQ(pool->allocatedBufferCount(), 2u);
}

TEST(VirtualCameraBuffers, FramesCanComePaddedOddSizedOrCutShort) {
    auto config = steadyCamera(VirtualCameraConfiguration::Source::Document);
    config.failures.extraBytesPerRow = 24;
    config.failures.oddFrameSize = true;
    config.failures.truncatedBufferEvery = 2;
    const auto camera = VirtualCamera::create(config);
    const auto whole = camera->renderFrame(0, layoutIn(pixel_format::k32BGRA));
    ASSERT_TRUE(whole);
    const auto& buffer = *whole->imageBuffer();
    EXPECT_EQ(buffer.width(), kFrameSize.width() - 1);
    EXPECT_EQ(buffer.height(), kFrameSize.height() - 1);
    EXPECT_EQ(buffer.bytesPerRow(), 256u + 24u) << "64-byte rows plus the padding";
    {
        const Pixels pixels(whole);
        EXPECT_NE(pixels.bgra(buffer.width() - 1, buffer.height() - 1), QColor(0, 0, 0))
            << "the last pixel of the last row is drawn";
    }

    const auto cut = camera->renderFrame(1, layoutIn(pixel_format::k32BGRA));
    ASSERT_TRUE(cut);
    EXPECT_FALSE(cut->imageBuffer()->isIntact());
    EXPECT_EQ(cut->imageBuffer()->lockBaseAddress(kPixelBufferLockReadOnly), cv_return::kError);
    EXPECT_EQ(cut->imageBuffer()->baseAddress(), nullptr);

    // Bi-planar frames keep even sizes.
    const auto grey = camera->renderFrame(2, layoutIn(pixel_format::k420YpCbCr8BiPlanarFullRange));
    ASSERT_TRUE(grey);
    EXPECT_EQ(grey->imageBuffer()->width(), kFrameSize.width());
}

}  // namespace
