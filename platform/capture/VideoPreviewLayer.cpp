#include "platform/capture/VideoPreviewLayer.h"

#include "platform/capture/CaptureSession.h"
#include "platform/capture/VideoGeometry.h"
#include "platform/foundation/Log.h"
#include "platform/foundation/RunLoop.h"
#include "platform/graphics/PixelMemory.h"

#include <algorithm>
#include <mutex>

namespace platform {

/// The hand-over point between the stream thread and the main thread: holds
/// the newest frame and keeps at most one pick-up task queued.
class VideoPreviewLayer::FrameSlot final : public PreviewFrameReceiver {
public:
    void setLayer(std::weak_ptr<VideoPreviewLayer> layer) { _layer = std::move(layer); }

    void sessionDidOutputFrame(const SampleBufferPtr& sampleBuffer,
                               const FrameLayout& layout) override {
        bool schedule = false;
        {
            std::lock_guard lock(_mutex);
            _frame = sampleBuffer;
            _layout = layout;
            schedule = !_pickUpQueued;
            _pickUpQueued = true;
        }
        if (schedule) {
            RunLoop::main().post([layer = _layer] {
                if (auto alive = layer.lock()) {
                    alive->showLatestFrame();
                }
            });
        }
    }

    /// The newest frame, once; null when there is none new.
    SampleBufferPtr take(FrameLayout& layout) {
        std::lock_guard lock(_mutex);
        _pickUpQueued = false;
        layout = _layout;
        return std::move(_frame);
    }

private:
    std::weak_ptr<VideoPreviewLayer> _layer;
    std::mutex _mutex;
    SampleBufferPtr _frame;
    FrameLayout _layout;
    bool _pickUpQueued = false;
};

namespace {

ContentsGravity contentsGravityFor(const QString& videoGravity) {
    if (videoGravity == video_gravity::kResize) {
        return ContentsGravity::Resize;
    }
    if (videoGravity == video_gravity::kResizeAspectFill) {
        return ContentsGravity::ResizeAspectFill;
    }
    return ContentsGravity::ResizeAspect;
}

/// The frame's pixels as an image over the buffer's memory (no copy); the
/// image keeps the buffer alive. Bi-planar frames show their luma.
QImage wrapFrame(const std::shared_ptr<PixelBuffer>& buffer) {
    if (!buffer || buffer->lockBaseAddress(kPixelBufferLockReadOnly) != cv_return::kSuccess) {
        return {};
    }
    QImage image;
    const std::uint32_t format = buffer->pixelFormatType();
    if (format == pixel_format::k32BGRA) {
        image = wrapPixels(buffer->baseAddress(), buffer->width(), buffer->height(),
                           static_cast<qsizetype>(buffer->bytesPerRow()), QImage::Format_RGB32,
                           buffer->owner());
    } else if (format == pixel_format::k420YpCbCr8BiPlanarFullRange ||
               format == pixel_format::k420YpCbCr8BiPlanarVideoRange) {
        image = wrapPixels(buffer->baseAddressOfPlane(0), buffer->widthOfPlane(0),
                           buffer->heightOfPlane(0),
                           static_cast<qsizetype>(buffer->bytesPerRowOfPlane(0)),
                           QImage::Format_Grayscale8, buffer->owner());
    }
    // The memory stays mapped while its owner lives; the lock only guards
    // the reading of the addresses.
    buffer->unlockBaseAddress(kPixelBufferLockReadOnly);
    return image;
}

}  // namespace

std::shared_ptr<VideoPreviewLayer> VideoPreviewLayer::create() {
    auto layer = std::make_shared<VideoPreviewLayer>(Key{});
    layer->_slot->setLayer(layer);
    return layer;
}

VideoPreviewLayer::VideoPreviewLayer(Key)
    : _slot(std::make_shared<FrameSlot>()), _videoGravity(video_gravity::kResizeAspect) {
    setContentsGravity(contentsGravityFor(_videoGravity));
}

VideoPreviewLayer::~VideoPreviewLayer() {
    if (_session) {
        _session->detachPreview(_slot.get());
    }
}

void VideoPreviewLayer::setSession(const std::shared_ptr<CaptureSession>& session) {
    if (session == _session) {
        return;
    }
    if (_session) {
        _session->detachPreview(_slot.get());
    }
    _session = session;
    FrameLayout ignored;
    _slot->take(ignored);
    setContents(QImage());
    if (_session) {
        _session->attachPreview(_slot);
    }
}

std::shared_ptr<CaptureConnection> VideoPreviewLayer::connection() const {
    return _session ? _session->previewConnection(_slot.get()) : nullptr;
}

void VideoPreviewLayer::setVideoGravity(const QString& gravity) {
    if (gravity != video_gravity::kResizeAspect && gravity != video_gravity::kResizeAspectFill &&
        gravity != video_gravity::kResize) {
        log::write(QStringLiteral("[capture] VideoPreviewLayer: unknown video gravity %1; ignored")
                       .arg(gravity));
        return;
    }
    _videoGravity = gravity;
    setContentsGravity(contentsGravityFor(gravity));
}

VideoPreviewLayer::Placement VideoPreviewLayer::placement() const {
    const auto link = connection();
    Placement place{bounds(), video_orientation::kLandscapeRight, false};
    if (!link || !_session) {
        return place;
    }
    FrameLayout shown;
    shown.sensorSize = _session->activeVideoSize();
    shown.orientation = link->videoOrientation();
    place.orientation = shown.orientation;
    place.mirrored = link->isVideoMirrored();
    place.videoRect = video_geometry::videoRect(bounds(), QSizeF(shown.size()), _videoGravity);
    return place;
}

QPointF VideoPreviewLayer::captureDevicePointOfInterestForPoint(const QPointF& layerPoint) const {
    const Placement place = placement();
    const QRectF& video = place.videoRect;
    if (video.isEmpty()) {
        return {0.5, 0.5};
    }
    const QPointF shown((layerPoint.x() - video.x()) / video.width(),
                        (layerPoint.y() - video.y()) / video.height());
    const QPointF device = video_geometry::shownToDevice(shown, place.orientation, place.mirrored);
    return {std::clamp(device.x(), 0.0, 1.0), std::clamp(device.y(), 0.0, 1.0)};
}

QPointF VideoPreviewLayer::pointForCaptureDevicePointOfInterest(const QPointF& devicePoint) const {
    const Placement place = placement();
    const QRectF& video = place.videoRect;
    const QPointF shown =
        video_geometry::deviceToShown(devicePoint, place.orientation, place.mirrored);
    return {video.x() + shown.x() * video.width(), video.y() + shown.y() * video.height()};
}

QString VideoPreviewLayer::typeName() const {
    return QStringLiteral("VideoPreviewLayer");
}

void VideoPreviewLayer::showLatestFrame() {
    FrameLayout layout;
    const SampleBufferPtr frame = _slot->take(layout);
    if (!frame) {
        return;
    }
    QImage image = wrapFrame(frame->imageBuffer());
    if (image.isNull()) {
        return;
    }
    if (const auto link = connection()) {
        image = video_geometry::reorient(image, layout.orientation, layout.mirrored,
                                         link->videoOrientation(), link->isVideoMirrored());
    }
    setContents(image);
}

}  // namespace platform
