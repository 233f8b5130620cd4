#pragma once

#include "platform/capture/CaptureConnection.h"
#include "platform/layers/Layer.h"

#include <QPointF>
#include <QString>

#include <memory>

namespace platform {

class CaptureSession;

/// Shows a session's live video: its contents are the latest frame of the
/// session's video input, placed by the video gravity and turned as the
/// layer's connection says.
///
/// Main thread only, like every layer. Frames arrive on the stream thread and
/// are handed over without blocking it; the layer picks up the newest one on
/// the next turn of the main run loop (older ones are skipped).
class VideoPreviewLayer : public Layer {
    struct Key {};

public:
    static std::shared_ptr<VideoPreviewLayer> create();
    explicit VideoPreviewLayer(Key);
    ~VideoPreviewLayer() override;

    std::shared_ptr<CaptureSession> session() const { return _session; }
    /// Shows session's video (held strongly; null shows nothing). The session
    /// forms the layer's connection while it has a video input.
    void setSession(const std::shared_ptr<CaptureSession>& session);
    /// null without a session or while the session has no video input.
    std::shared_ptr<CaptureConnection> connection() const;

    /// A video_gravity string; resize-aspect unless set.
    const QString& videoGravity() const { return _videoGravity; }
    void setVideoGravity(const QString& gravity);

    /// A point in the layer's coordinates to device coordinates (unit
    /// square, see video_geometry), through the gravity (aspect fill crops),
    /// the connection's orientation and mirroring. Points outside the video
    /// clamp to its edge. Without a connection the layer's bounds stand for
    /// an unturned video.
    QPointF captureDevicePointOfInterestForPoint(const QPointF& layerPoint) const;
    /// The inverse: a device point to layer coordinates.
    QPointF pointForCaptureDevicePointOfInterest(const QPointF& devicePoint) const;

protected:
    QString typeName() const override;

private:
    class FrameSlot;
    struct Placement {
        QRectF videoRect;
        int orientation;
        bool mirrored;
    };

    Placement placement() const;
    void showLatestFrame();

    std::shared_ptr<CaptureSession> _session;
    std::shared_ptr<FrameSlot> _slot;
    QString _videoGravity;
};

}  // namespace platform
