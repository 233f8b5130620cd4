#include "platform/capture/CaptureDevice.h"
#include "platform/capture/PixelConversion.h"
#include "platform/capture/QtCameraDriver.h"
#include "platform/capture/QtCameraSource.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QThread>
#include <QVideoFrame>
#include <QVideoFrameFormat>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

using namespace platform;

namespace {

struct Bgra {
    int b, g, r, a;
    bool operator==(const Bgra&) const = default;
};

// The conversion, one pixel at a time in floating point.
Bgra reference(int y, int u, int v) {
    const auto c = [](double x) { return static_cast<int>(std::clamp(std::lround(x), 0L, 255L)); };
    return {c(y + 1.772 * (u - 128)), c(y - 0.344136 * (u - 128) - 0.714136 * (v - 128)),
            c(y + 1.402 * (v - 128)), 255};
}

Bgra at(const std::vector<std::uint8_t>& image, std::size_t stride, int x, int y) {
    const std::uint8_t* p = image.data() + y * stride + 4 * x;
    return {p[0], p[1], p[2], p[3]};
}

Bgra yuyvPixel(int y, int u, int v) {
    const std::uint8_t src[4] = {static_cast<std::uint8_t>(y), static_cast<std::uint8_t>(u),
                                 static_cast<std::uint8_t>(y), static_cast<std::uint8_t>(v)};
    std::vector<std::uint8_t> dst(8);
    convertYuyvToBgra(src, 4, dst.data(), 8, 2, 1);
    return at(dst, 8, 1, 0);
}

std::uint8_t noise(int a, int b) {
    return static_cast<std::uint8_t>((a * 73 + b * 151 + a * b * 7) & 0xFF);
}

}  // namespace

TEST(PixelConversion, KnownColoursGiveExactValues) {
    EXPECT_EQ(yuyvPixel(0, 128, 128), (Bgra{0, 0, 0, 255}));
    EXPECT_EQ(yuyvPixel(255, 128, 128), (Bgra{255, 255, 255, 255}));
    EXPECT_EQ(yuyvPixel(128, 128, 128), (Bgra{128, 128, 128, 255}));
    EXPECT_EQ(yuyvPixel(76, 85, 255), (Bgra{0, 0, 254, 255}));   // red
    EXPECT_EQ(yuyvPixel(150, 44, 21), (Bgra{1, 255, 0, 255}));   // green
    EXPECT_EQ(yuyvPixel(29, 255, 107), (Bgra{254, 0, 0, 255}));  // blue
}

TEST(PixelConversion, YuyvMatchesReferenceOnOddSizesAndStrides) {
    const int width = 37, height = 5;
    const std::size_t srcStride = 2 * 38 + 6, dstStride = 4 * width + 12;
    std::vector<std::uint8_t> src(srcStride * height);
    for (std::size_t i = 0; i < src.size(); ++i) {
        src[i] = noise(static_cast<int>(i), 3);
    }
    std::vector<std::uint8_t> dst(dstStride * height, 0);
    convertYuyvToBgra(src.data(), srcStride, dst.data(), dstStride, width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::uint8_t* m = src.data() + y * srcStride + 4 * (x / 2);
            const Bgra want = reference(m[(x % 2) * 2], m[1], m[3]);
            const Bgra got = at(dst, dstStride, x, y);
            ASSERT_LE(
                std::abs(got.r - want.r) + std::abs(got.g - want.g) + std::abs(got.b - want.b), 1)
                << x << "," << y;
            ASSERT_EQ(got.a, 255);
        }
        EXPECT_EQ(dst[y * dstStride + 4 * width], 0) << "wrote past the row";
    }
}

TEST(PixelConversion, Nv12MatchesReferenceOnOddSizesAndStrides) {
    const int width = 23, height = 7;
    const std::size_t lumaStride = 29, chromaStride = 26, dstStride = 4 * width + 4;
    std::vector<std::uint8_t> luma(lumaStride * height), chroma(chromaStride * 4);
    for (std::size_t i = 0; i < luma.size(); ++i) {
        luma[i] = noise(static_cast<int>(i), 1);
    }
    for (std::size_t i = 0; i < chroma.size(); ++i) {
        chroma[i] = noise(static_cast<int>(i), 2);
    }
    std::vector<std::uint8_t> dst(dstStride * height);
    convertNv12ToBgra(luma.data(), lumaStride, chroma.data(), chromaStride, dst.data(), dstStride,
                      width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::uint8_t* uv = chroma.data() + (y / 2) * chromaStride + 2 * (x / 2);
            const Bgra want = reference(luma[y * lumaStride + x], uv[0], uv[1]);
            const Bgra got = at(dst, dstStride, x, y);
            ASSERT_LE(
                std::abs(got.r - want.r) + std::abs(got.g - want.g) + std::abs(got.b - want.b), 1)
                << x << "," << y;
        }
    }
}

TEST(PixelConversion, EveryWidthAroundTheBlockSizeMatchesTheReference) {
    // Rows are converted in blocks of sixteen pixels and the rest one by
    // one: every width up to three blocks and a bit, odd heights for NV12's
    // unpaired last row, and extreme chroma that must clamp.
    for (int width = 1; width <= 50; ++width) {
        const int height = 3;
        const std::size_t stride = 2 * ((width + 1) / 2) + 2;
        std::vector<std::uint8_t> luma(stride * height), chroma(stride * 2),
            yuyv(2 * stride * height);
        for (std::size_t i = 0; i < luma.size(); ++i) {
            luma[i] = noise(static_cast<int>(i), width);
        }
        for (std::size_t i = 0; i < chroma.size(); ++i) {
            chroma[i] = i % 5 == 0 ? 255 : i % 7 == 0 ? 0 : noise(static_cast<int>(i), 7);
        }
        for (std::size_t i = 0; i < yuyv.size(); ++i) {
            yuyv[i] =
                i % 2 == 0 ? noise(static_cast<int>(i), 3) : (i % 8 == 1 ? 255 : noise(int(i), 9));
        }
        const std::size_t dstStride = 4 * width + 4;
        std::vector<std::uint8_t> fromNv12(dstStride * height, 0), fromYuyv(dstStride * height, 0);
        convertNv12ToBgra(luma.data(), stride, chroma.data(), stride, fromNv12.data(), dstStride,
                          width, height);
        convertYuyvToBgra(yuyv.data(), 2 * stride, fromYuyv.data(), dstStride, width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const std::uint8_t* uv = chroma.data() + (y / 2) * stride + 2 * (x / 2);
                const Bgra nv12 = reference(luma[y * stride + x], uv[0], uv[1]);
                const std::uint8_t* m = yuyv.data() + y * 2 * stride + 4 * (x / 2);
                const Bgra packed = reference(m[(x % 2) * 2], m[1], m[3]);
                const Bgra gotNv12 = at(fromNv12, dstStride, x, y);
                const Bgra gotYuyv = at(fromYuyv, dstStride, x, y);
                ASSERT_LE(std::abs(gotNv12.r - nv12.r) + std::abs(gotNv12.g - nv12.g) +
                              std::abs(gotNv12.b - nv12.b),
                          1)
                    << "NV12 width " << width << " at " << x << "," << y;
                ASSERT_LE(std::abs(gotYuyv.r - packed.r) + std::abs(gotYuyv.g - packed.g) +
                              std::abs(gotYuyv.b - packed.b),
                          1)
                    << "YUYV width " << width << " at " << x << "," << y;
                ASSERT_EQ(gotNv12.a, 255);
                ASSERT_EQ(gotYuyv.a, 255);
            }
            ASSERT_EQ(fromNv12[y * dstStride + 4 * width], 0) << "wrote past the row";
            ASSERT_EQ(fromYuyv[y * dstStride + 4 * width], 0) << "wrote past the row";
        }
    }
}

TEST(QtCameraMapping, PositionsAndPresets) {
    EXPECT_EQ(qt_camera::positionFrom(QCameraDevice::BackFace), device_position::kBack);
    EXPECT_EQ(qt_camera::positionFrom(QCameraDevice::FrontFace), device_position::kFront);
    EXPECT_EQ(qt_camera::positionFrom(QCameraDevice::UnspecifiedPosition),
              device_position::kUnspecified);

    const QList<QSize> video = {{640, 480}, {1280, 720}, {1920, 1088}, {960, 540}};
    EXPECT_EQ(qt_camera::stillSizeFor({}, video), QSize(1920, 1088));
    EXPECT_EQ(qt_camera::stillSizeFor({{2592, 1944}, {640, 480}}, video), QSize(2592, 1944));
    // Exact sizes only: 1920x1088 is no 1080p format.
    EXPECT_EQ(qt_camera::sessionPresetsFor(video, QSize(2592, 1944)),
              QStringList({session_preset::kPhoto, session_preset::k1280x720,
                           session_preset::kiFrame960x540}));
    EXPECT_TRUE(qt_camera::sessionPresetsFor({}, {}).isEmpty());
}

TEST(QtCameraMapping, CapabilitiesOfAWebcamAndOfAPhoneLikeCamera) {
    QtCameraDescription webcam;
    webcam.videoResolutions = {{640, 480}, {1280, 720}};
    webcam.focusModes = {QCamera::FocusModeAuto};
    webcam.exposureModes = {QCamera::ExposureAuto, QCamera::ExposureManual};
    webcam.flashModes = {QCamera::FlashOff};
    webcam.torchModes = {QCamera::TorchOff};
    CaptureDeviceCapabilities caps = qt_camera::capabilitiesFor(webcam);
    EXPECT_EQ(caps.stillImageSize, QSize(1280, 720));
    EXPECT_EQ(caps.videoSizeForPreset(session_preset::kHigh), QSize(1280, 720));
    EXPECT_FALSE(caps.supportsPreset(session_preset::k1920x1080));
    EXPECT_EQ(caps.focusModes,
              (std::vector<int>{focus_mode::kAutoFocus, focus_mode::kContinuousAutoFocus}));
    EXPECT_EQ(caps.exposureModes,
              (std::vector<int>{exposure_mode::kLocked, exposure_mode::kAutoExpose,
                                exposure_mode::kContinuousAutoExposure}));
    EXPECT_FALSE(caps.hasFlash);
    EXPECT_FALSE(caps.hasTorch);
    EXPECT_FALSE(caps.focusPointOfInterest);

    QtCameraDescription phone = webcam;
    phone.focusModes = {};  // fixed focus
    phone.flashModes = {QCamera::FlashOff, QCamera::FlashOn, QCamera::FlashAuto};
    phone.torchModes = {QCamera::TorchOff, QCamera::TorchOn};
    phone.features = QCamera::Feature::CustomFocusPoint;
    caps = qt_camera::capabilitiesFor(phone);
    EXPECT_EQ(caps.focusModes, std::vector<int>{focus_mode::kLocked});
    EXPECT_TRUE(caps.hasFlash);
    EXPECT_EQ(caps.flashModes,
              (std::vector<int>{flash_mode::kOff, flash_mode::kOn, flash_mode::kAuto}));
    EXPECT_TRUE(caps.hasTorch);
    EXPECT_TRUE(caps.focusPointOfInterest);
    EXPECT_EQ(qt_camera::flashModeFor(flash_mode::kAuto), QCamera::FlashAuto);
    EXPECT_EQ(qt_camera::torchModeFor(torch_mode::kOn), QCamera::TorchOn);
    EXPECT_EQ(qt_camera::focusModeFor(focus_mode::kContinuousAutoFocus), QCamera::FocusModeAuto);
}

TEST(QtCameraFrames, BgraFramesAreWrappedAndYuyvFramesConverted) {
    std::shared_ptr<PixelBufferPool> pool;
    std::shared_ptr<PixelBuffer> wrapped;
    {
        QVideoFrame frame(QVideoFrameFormat(QSize(4, 2), QVideoFrameFormat::Format_BGRA8888));
        ASSERT_TRUE(frame.map(QVideoFrame::WriteOnly));
        std::fill_n(frame.bits(0), frame.mappedBytes(0), std::uint8_t{0x5A});
        frame.unmap();
        wrapped = qt_camera::pixelBufferFor(frame, pixel_format::k32BGRA, pool);
    }
    ASSERT_TRUE(wrapped);
    EXPECT_FALSE(pool) << "a BGRA frame needs no copy";
    ASSERT_EQ(wrapped->lockBaseAddress(kPixelBufferLockReadOnly), cv_return::kSuccess);
    EXPECT_EQ(static_cast<const std::uint8_t*>(wrapped->baseAddress())[7], 0x5A);
    wrapped->unlockBaseAddress(kPixelBufferLockReadOnly);

    QVideoFrame yuyv(QVideoFrameFormat(QSize(2, 2), QVideoFrameFormat::Format_YUYV));
    ASSERT_TRUE(yuyv.map(QVideoFrame::WriteOnly));
    for (int row = 0; row < 2; ++row) {
        const std::uint8_t white[4] = {255, 128, 255, 128};
        std::copy_n(white, 4, yuyv.bits(0) + row * yuyv.bytesPerLine(0));
    }
    yuyv.unmap();
    const auto converted = qt_camera::pixelBufferFor(yuyv, pixel_format::k32BGRA, pool);
    ASSERT_TRUE(converted);
    EXPECT_EQ(converted->pixelFormatType(), pixel_format::k32BGRA);
    EXPECT_EQ(converted->planeData(0)[0], 255);
}

TEST(QtCameraSource, ListsOnTheMainThreadOnlyAndNeverWaitsForIt) {
    std::atomic<int> listings{0};
    std::atomic<bool> listedElsewhere{false};
    QThread* const mainThread = QThread::currentThread();
    auto source = std::make_shared<QtCameraSource>([&] {
        ++listings;
        listedElsewhere = listedElsewhere || QThread::currentThread() != mainThread;
        return QList<QCameraDevice>{};
    });
    EXPECT_TRUE(source->devices().empty());
    EXPECT_EQ(listings.load(), 1);

    // A capture queue asks while the main thread is busy (here: joining it).
    std::thread capture([&] {
        EXPECT_TRUE(source->devices().empty());
        source->devices();
    });
    capture.join();
    EXPECT_EQ(listings.load(), 1) << "answered from the last listing";
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(listings.load(), 2) << "one fresh listing for both requests";
    EXPECT_FALSE(listedElsewhere.load());

    // Without cameras, discovery falls back to the virtual ones.
    DeviceDiscovery::setHardwareSource([source] { return source->devices(); });
    const auto devices = DeviceDiscovery::allDevices();
    DeviceDiscovery::setHardwareSource({});
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0]->uniqueID(), QStringLiteral("qxd.virtual-camera.back"));
}

namespace {
class FailureSink final : public CaptureStreamSink {
public:
    FrameLayout nextFrameLayout() override { return {}; }
    void streamDidOutputSampleBuffer(const SampleBufferPtr&, const FrameLayout&) override {}
    void streamDidFail(const ErrorPtr& error) override { failed.set_value(error); }
    std::promise<ErrorPtr> failed;
};
}  // namespace

TEST(QtCameraDriver, ACameraErrorIsADisconnection) {
    QtCameraDescription description;
    description.id = QStringLiteral("usb-cam-1");
    description.name = QStringLiteral("USB Camera");
    description.position = QCameraDevice::FrontFace;
    description.videoResolutions = {{1280, 720}};
    const auto driver = QtCameraDriver::create(description);
    const auto device = CaptureDevice::create(driver);
    EXPECT_EQ(device->uniqueID(), QStringLiteral("usb-cam-1"));
    EXPECT_EQ(device->position(), device_position::kFront);
    EXPECT_TRUE(device->supportsAVCaptureSessionPreset(session_preset::k1280x720));

    auto sink = std::make_shared<FailureSink>();
    auto failed = sink->failed.get_future();
    ASSERT_EQ(device->startStreaming(sink), nullptr);
    driver->handleCameraError(QStringLiteral("Camera unplugged"));
    EXPECT_FALSE(device->isConnected());
    ASSERT_EQ(failed.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    const ErrorPtr error = failed.get();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), av_error::kDeviceWasDisconnected);
    device->stopStreaming();

    driver->handleVideoInputsChanged({});  // already gone: nothing more happens
    EXPECT_NE(driver->captureStill({}).error, nullptr);
}

namespace {

// Records the frames a stream delivers; can hold the stream's queue inside a
// delivery until released, as a consumer that falls behind.
class RecordingSink final : public CaptureStreamSink {
public:
    explicit RecordingSink(std::uint32_t format) : _format(format) {}

    FrameLayout nextFrameLayout() override { return {QSize(32, 16), _format}; }
    void streamDidOutputSampleBuffer(const SampleBufferPtr& sample, const FrameLayout&) override {
        std::unique_lock lock(_mutex);
        _samples.push_back(sample);
        _changed.notify_all();
        _changed.wait(lock, [this] { return !_holding; });
    }
    void streamDidFail(const ErrorPtr&) override {}

    void hold() {
        std::lock_guard lock(_mutex);
        _holding = true;
    }
    void release() {
        std::lock_guard lock(_mutex);
        _holding = false;
        _changed.notify_all();
    }
    bool waitFor(std::size_t count) {
        std::unique_lock lock(_mutex);
        return _changed.wait_for(lock, std::chrono::seconds(10),
                                 [&] { return _samples.size() >= count; });
    }
    std::vector<SampleBufferPtr> samples() {
        std::lock_guard lock(_mutex);
        return _samples;
    }

private:
    const std::uint32_t _format;
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _holding = false;
    std::vector<SampleBufferPtr> _samples;
};

// A 32x16 NV12 frame of one grey level, stamped at `microseconds`.
QVideoFrame greyNv12Frame(std::uint8_t luma, qint64 microseconds) {
    QVideoFrame frame(QVideoFrameFormat(QSize(32, 16), QVideoFrameFormat::Format_NV12));
    frame.map(QVideoFrame::WriteOnly);
    std::fill_n(frame.bits(0), frame.mappedBytes(0), luma);
    std::fill_n(frame.bits(1), frame.mappedBytes(1), std::uint8_t{128});
    frame.unmap();
    frame.setStartTime(microseconds);
    return frame;
}

std::uint8_t firstByte(const SampleBufferPtr& sample) {
    const auto& buffer = sample->imageBuffer();
    buffer->lockBaseAddress(kPixelBufferLockReadOnly);
    const std::uint8_t value = *static_cast<const std::uint8_t*>(buffer->baseAddress());
    buffer->unlockBaseAddress(kPixelBufferLockReadOnly);
    return value;
}

std::shared_ptr<QtCameraDriver> webcam() {
    QtCameraDescription description;
    description.id = QStringLiteral("usb-cam-2");
    description.name = QStringLiteral("USB Camera");
    description.videoResolutions = {{32, 16}};
    return QtCameraDriver::create(description);
}

}  // namespace

TEST(QtCameraDriver, SinkFramesArriveInOrderAndLateOnesAreDropped) {
    const auto driver = webcam();
    auto sink = std::make_shared<RecordingSink>(pixel_format::k420YpCbCr8BiPlanarFullRange);
    ASSERT_EQ(driver->startStreaming(sink), nullptr);

    driver->handleVideoFrame(QVideoFrame());  // an empty frame is no frame
    for (int i = 0; i < 2; ++i) {
        driver->handleVideoFrame(greyNv12Frame(static_cast<std::uint8_t>(10 + i), 1000 * i));
        ASSERT_TRUE(sink->waitFor(i + 1u));
    }
    // While the consumer holds the queue, one more frame may wait; the next
    // is dropped rather than queued.
    sink->hold();
    driver->handleVideoFrame(greyNv12Frame(12, 2000));
    ASSERT_TRUE(sink->waitFor(3));
    driver->handleVideoFrame(greyNv12Frame(13, 3000));
    driver->handleVideoFrame(greyNv12Frame(14, 4000));
    sink->release();
    ASSERT_TRUE(sink->waitFor(4));

    driver->handleCameraError(QStringLiteral("Camera unplugged"));
    driver->handleVideoFrame(greyNv12Frame(15, 5000));
    driver->stopStreaming();

    const auto samples = sink->samples();
    ASSERT_EQ(samples.size(), 4u);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(samples[i]->presentationTimeStamp().value, static_cast<qint64>(1000 * i));
        EXPECT_EQ(samples[i]->imageBuffer()->pixelFormatType(),
                  pixel_format::k420YpCbCr8BiPlanarFullRange)
            << "NV12 frames are handed on as they came";
        EXPECT_EQ(firstByte(samples[i]), 10 + i);
    }
}

TEST(QtCameraDriver, Nv12FramesAreConvertedWhenTheOutputWantsBgra) {
    const auto driver = webcam();
    auto sink = std::make_shared<RecordingSink>(pixel_format::k32BGRA);
    ASSERT_EQ(driver->startStreaming(sink), nullptr);
    driver->handleVideoFrame(greyNv12Frame(200, 0));
    ASSERT_TRUE(sink->waitFor(1));
    driver->stopStreaming();

    const auto& buffer = sink->samples()[0]->imageBuffer();
    EXPECT_EQ(buffer->pixelFormatType(), pixel_format::k32BGRA);
    EXPECT_EQ(buffer->width(), 32);
    ASSERT_EQ(buffer->lockBaseAddress(kPixelBufferLockReadOnly), cv_return::kSuccess);
    const auto* pixels = static_cast<const std::uint8_t*>(buffer->baseAddress());
    const std::size_t last = buffer->bytesPerRow() * 15 + 4 * 31;
    EXPECT_EQ((Bgra{pixels[last], pixels[last + 1], pixels[last + 2], pixels[last + 3]}),
              (Bgra{200, 200, 200, 255}));
    buffer->unlockBaseAddress(kPixelBufferLockReadOnly);
}
