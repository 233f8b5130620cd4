#pragma once

// Frames of the virtual camera as the scanner sees them, with the page's
// true corners: the material of the detection tests.
#include "platform/capture/PixelBuffer.h"
#include "platform/capture/SampleBuffer.h"
#include "platform/capture/VirtualCamera.h"

#include "Quad.h"

#include <QImage>

#include <optional>
#include <string>
#include <vector>

namespace scanner_test {

/// A frame's picture as the engine hands it on: RGB32 for BGRA frames, the
/// luma plane as Grayscale8 for 420f ones.
inline QImage pictureOf(const platform::SampleBufferPtr& sample) {
    using namespace platform;
    const auto buffer = sample->imageBuffer();
    buffer->lockBaseAddress(kPixelBufferLockReadOnly);
    const bool bgra = buffer->pixelFormatType() == pixel_format::k32BGRA;
    const QImage view(static_cast<const uchar*>(buffer->baseAddressOfPlane(0)), buffer->width(),
                      buffer->height(), qsizetype(buffer->bytesPerRowOfPlane(0)),
                      bgra ? QImage::Format_RGB32 : QImage::Format_Grayscale8);
    QImage copy = view.copy();
    buffer->unlockBaseAddress(kPixelBufferLockReadOnly);
    return copy;
}

struct VirtualFrame {
    QImage picture;
    std::optional<scanner::Quad> truth;  ///< none: no page in the picture
    std::string scene;                   ///< what the scene's knobs were
};

/// Frames at ticks of one camera (the scene is drawn once for all).
inline std::vector<VirtualFrame> renderVirtualFrames(
    const platform::VirtualCameraConfiguration& config, const platform::FrameLayout& layout,
    const std::vector<std::uint64_t>& ticks, const std::string& scene) {
    auto camera = platform::VirtualCamera::create(config);
    std::vector<VirtualFrame> frames;
    for (const std::uint64_t tick : ticks) {
        VirtualFrame frame;
        frame.picture = pictureOf(camera->renderFrame(tick, layout));
        const QPolygonF corners = camera->pageCorners(tick, layout);
        if (corners.size() == 4) {
            frame.truth = scanner::fromPolygon(corners);
        }
        frame.scene = scene;
        frames.push_back(std::move(frame));
    }
    return frames;
}

}  // namespace scanner_test
