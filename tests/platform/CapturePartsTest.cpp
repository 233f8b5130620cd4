// The capture parts on their own: pixel buffers and their pools, what a
// connection and a still output accept, and what they refuse.
#include "platform/capture/CaptureConnection.h"
#include "platform/capture/CaptureDevice.h"
#include "platform/capture/CaptureInput.h"
#include "platform/capture/CaptureSession.h"
#include "platform/capture/PixelBuffer.h"
#include "platform/capture/StillImageOutput.h"
#include "platform/capture/VideoDataOutput.h"
#include "platform/capture/VirtualCamera.h"
#include "platform/foundation/Log.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <memory>
#include <vector>

namespace {

using namespace platform;

TEST(PixelBufferTest, EachFormatHasItsPlanesAndBadSizesOrFormatsAreRefused) {
    const auto bgra = PixelBuffer::create(6, 4, pixel_format::k32BGRA);
    ASSERT_TRUE(bgra);
    EXPECT_FALSE(bgra->isPlanar());
    EXPECT_EQ(bgra->planeCount(), 0u) << "a packed buffer counts no planes";
    EXPECT_GE(bgra->bytesPerRow(), 24u);
    EXPECT_GE(bgra->dataSize(), bgra->bytesPerRow() * 4);

    const auto yuv = PixelBuffer::create(6, 4, pixel_format::k420YpCbCr8BiPlanarFullRange);
    ASSERT_TRUE(yuv);
    EXPECT_EQ(yuv->planeCount(), 2u);
    EXPECT_EQ(yuv->widthOfPlane(0), 6);
    EXPECT_EQ(yuv->widthOfPlane(1), 3);
    EXPECT_EQ(yuv->heightOfPlane(1), 2);
    EXPECT_GE(yuv->bytesPerRowOfPlane(1), 6u) << "CbCr pairs";
    EXPECT_GE(yuv->dataSize(), yuv->bytesPerRowOfPlane(0) * 4 + yuv->bytesPerRowOfPlane(1) * 2);

    EXPECT_FALSE(PixelBuffer::create(5, 4, pixel_format::k420YpCbCr8BiPlanarFullRange));
    EXPECT_FALSE(PixelBuffer::create(0, 4, pixel_format::k32BGRA));
    EXPECT_FALSE(PixelBuffer::create(4, 4, 0x41424344));
    EXPECT_FALSE(PixelBufferPool::create({4, 4, 0x41424344, 0}));
}

TEST(PixelBufferTest, PixelsAreReachableOnlyWhileLockedAndLocksCount) {
    const auto buffer = PixelBuffer::create(4, 4, pixel_format::k420YpCbCr8BiPlanarFullRange);
    ASSERT_TRUE(buffer);
    EXPECT_EQ(buffer->baseAddress(), nullptr);
    EXPECT_EQ(buffer->unlockBaseAddress(0), cv_return::kError) << "not locked";

    ASSERT_EQ(buffer->lockBaseAddress(kPixelBufferLockReadOnly), cv_return::kSuccess);
    ASSERT_EQ(buffer->lockBaseAddress(0), cv_return::kSuccess);
    EXPECT_NE(buffer->baseAddressOfPlane(1), nullptr);
    EXPECT_EQ(buffer->baseAddressOfPlane(2), nullptr) << "no third plane";
    buffer->unlockBaseAddress(0);
    EXPECT_NE(buffer->baseAddress(), nullptr) << "one lock still held";
    buffer->unlockBaseAddress(kPixelBufferLockReadOnly);
    EXPECT_EQ(buffer->baseAddress(), nullptr);
    EXPECT_FALSE(buffer->isLocked());

    buffer->setRefusesLock(true);
    EXPECT_EQ(buffer->lockBaseAddress(0), cv_return::kError);
    EXPECT_EQ(buffer->baseAddress(), nullptr);
    EXPECT_FALSE(buffer->isLocked());
}

TEST(PixelBufferTest, WrappedMemoryLivesAsLongAsTheBufferOrItsHandles) {
    auto memory = std::make_shared<std::vector<unsigned char>>(4 * 4 * 4, 0x7F);
    std::weak_ptr<std::vector<unsigned char>> watch = memory;
    const PixelBuffer::ExternalPlane plane{memory->data(), 16};
    EXPECT_FALSE(PixelBuffer::wrapExternal(4, 4, pixel_format::k32BGRA, {}, memory)) << "no plane";
    EXPECT_FALSE(PixelBuffer::wrapExternal(4, 4, pixel_format::k32BGRA, {{nullptr, 16}}, memory));
    EXPECT_FALSE(PixelBuffer::wrapExternal(4, 4, pixel_format::k420YpCbCr8BiPlanarFullRange,
                                           {plane}, memory))
        << "bi-planar needs two planes";

    auto buffer = PixelBuffer::wrapExternal(4, 4, pixel_format::k32BGRA, {plane}, memory);
    ASSERT_TRUE(buffer);
    memory.reset();
    ASSERT_EQ(buffer->lockBaseAddress(0), cv_return::kSuccess);
    EXPECT_EQ(buffer->baseAddress(), static_cast<void*>(plane.data)) << "not copied";
    EXPECT_EQ(static_cast<const unsigned char*>(buffer->baseAddress())[5], 0x7F);
    buffer->unlockBaseAddress(0);

    auto handle = buffer->owner();
    buffer.reset();
    EXPECT_FALSE(watch.expired()) << "an image may still use the pixels";
    handle.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(PixelBufferPoolTest, ABoundedPoolLendsAtMostItsCountAndOutlivesNothing) {
    auto pool = PixelBufferPool::create({8, 8, pixel_format::k32BGRA, 2});
    ASSERT_TRUE(pool);
    auto first = pool->createPixelBuffer();
    auto second = pool->createPixelBuffer();
    ASSERT_TRUE(first && second);
    EXPECT_FALSE(pool->createPixelBuffer()) << "both buffers are out";
    unsigned char* const memory = first->planeData(0);
    first.reset();
    EXPECT_EQ(pool->freeBufferCount(), 1u);
    const auto again = pool->createPixelBuffer();
    ASSERT_TRUE(again);
    EXPECT_EQ(again->planeData(0), memory) << "the returned memory is reused";
    EXPECT_EQ(pool->allocatedBufferCount(), 2u);

    // The pool may go first; its buffers stay usable and then free their memory.
    pool.reset();
    ASSERT_EQ(second->lockBaseAddress(0), cv_return::kSuccess);
    static_cast<unsigned char*>(second->baseAddress())[0] = 1;
    second->unlockBaseAddress(0);
}

// A session joining a back camera to a video output and a still output.
struct Assembly {
    Assembly() {
        camera = VirtualCamera::create(VirtualCameraConfiguration::back());
        device = CaptureDevice::create(camera);
        session->addInput(CaptureDeviceInput::create(device, nullptr));
        session->addOutput(video);
        session->addOutput(still);
    }

    std::shared_ptr<VirtualCamera> camera;
    std::shared_ptr<CaptureDevice> device;
    std::shared_ptr<CaptureSession> session = CaptureSession::create();
    std::shared_ptr<VideoDataOutput> video = VideoDataOutput::create();
    std::shared_ptr<StillImageOutput> still = StillImageOutput::create();
};

TEST(CaptureConnectionTest, ValuesOutsideWhatTheLinkSupportsAreLoggedAndIgnored) {
    Assembly assembly;
    const auto connection = assembly.video->connectionWithMediaType(kMediaTypeVideo);
    ASSERT_TRUE(connection);
    QStringList lines;
    log::ScopedSink sink([&](const QString& line) { lines << line; });

    const int orientation = connection->videoOrientation();
    connection->setVideoOrientation(0);
    connection->setVideoOrientation(5);
    EXPECT_EQ(connection->videoOrientation(), orientation);
    connection->setVideoOrientation(video_orientation::kPortrait);
    EXPECT_EQ(connection->videoOrientation(), video_orientation::kPortrait);

    // Stills may be cropped up to the device's factor; live frames not at all.
    EXPECT_EQ(connection->videoMaxScaleAndCropFactor(), 1.0);
    const auto stillLink = assembly.still->connectionWithMediaType(kMediaTypeVideo);
    ASSERT_TRUE(stillLink);
    EXPECT_EQ(stillLink->videoMaxScaleAndCropFactor(), 4.0);
    stillLink->setVideoScaleAndCropFactor(0.5);
    stillLink->setVideoScaleAndCropFactor(4.5);
    EXPECT_EQ(stillLink->videoScaleAndCropFactor(), 1.0);
    stillLink->setVideoScaleAndCropFactor(2.0);
    EXPECT_EQ(stillLink->videoScaleAndCropFactor(), 2.0);
    EXPECT_EQ(lines.filter(QStringLiteral("ignored")).size(), 4);

    // A stabilisation mode the source lacks is kept as preferred but not run.
    ASSERT_TRUE(connection->isVideoStabilizationSupported());
    connection->setPreferredVideoStabilizationMode(3);
    EXPECT_EQ(connection->preferredVideoStabilizationMode(), 3);
    EXPECT_EQ(connection->activeVideoStabilizationMode(), video_stabilization_mode::kOff);
    connection->setPreferredVideoStabilizationMode(video_stabilization_mode::kStandard);
    EXPECT_EQ(connection->activeVideoStabilizationMode(), video_stabilization_mode::kStandard);

    EXPECT_TRUE(connection->isActive());
    connection->setEnabled(false);
    EXPECT_FALSE(connection->isActive());
    connection->setEnabled(true);
    assembly.camera->disconnect();
    EXPECT_FALSE(connection->isActive()) << "its source is gone";
}

TEST(StillImageOutputTest, SettingsTakeOnlyAvailableFormatsAndSupportedStabilization) {
    Assembly assembly;
    auto& still = *assembly.still;
    QStringList lines;
    log::ScopedSink sink([&](const QString& line) { lines << line; });

    still.setOutputSettings(
        {{kPixelBufferPixelFormatTypeKey,
          QVariant::fromValue<uint>(pixel_format::k420YpCbCr8BiPlanarFullRange)}});
    EXPECT_EQ(still.pixelFormat(), pixel_format::k420YpCbCr8BiPlanarFullRange);
    still.setOutputSettings({{kPixelBufferPixelFormatTypeKey,
                              QVariant::fromValue<uint>(pixel_format::k422YpCbCr8_yuvs)}});
    still.setOutputSettings({{kPixelBufferPixelFormatTypeKey, QStringLiteral("BGRA")}});
    EXPECT_EQ(still.pixelFormat(), pixel_format::k420YpCbCr8BiPlanarFullRange) << "both ignored";
    EXPECT_EQ(lines.filter(QStringLiteral("not supported")).size(), 2);
    still.setOutputSettings({});
    EXPECT_EQ(still.pixelFormat(), pixel_format::k32BGRA) << "an empty map restores BGRA";

    // Live frames take the same formats.
    auto& video = *assembly.video;
    video.setVideoSettings({{kPixelBufferPixelFormatTypeKey,
                             QVariant::fromValue<uint>(pixel_format::k422YpCbCr8_yuvs)}});
    EXPECT_EQ(video.pixelFormat(), pixel_format::k32BGRA);
    video.setVideoSettings(
        {{kPixelBufferPixelFormatTypeKey,
          QVariant::fromValue<uint>(pixel_format::k420YpCbCr8BiPlanarVideoRange)}});
    EXPECT_EQ(video.pixelFormat(), pixel_format::k420YpCbCr8BiPlanarVideoRange);
    EXPECT_EQ(lines.filter(QStringLiteral("video settings")).size(), 1);

    EXPECT_TRUE(still.isStillImageStabilizationSupported());
    still.setAutomaticallyEnablesStillImageStabilizationWhenAvailable(true);
    EXPECT_TRUE(still.automaticallyEnablesStillImageStabilizationWhenAvailable());

    // Out of the session it has no device, so nothing to stabilise.
    auto loose = StillImageOutput::create();
    EXPECT_FALSE(loose->isStillImageStabilizationSupported());
    loose->setAutomaticallyEnablesStillImageStabilizationWhenAvailable(true);
    EXPECT_FALSE(loose->automaticallyEnablesStillImageStabilizationWhenAvailable());
}

}  // namespace
