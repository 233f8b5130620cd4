// The mapping between Qt's camera vocabulary and the capture framework's, and
// the making of pixel buffers from Qt's frames.
#include "platform/capture/PixelConversion.h"
#include "platform/capture/QtCameraDriver.h"

#include <QImage>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace platform {
namespace {

qint64 area(const QSize& size) {
    return static_cast<qint64>(size.width()) * size.height();
}

QSize largest(const QList<QSize>& sizes) {
    QSize best;
    for (const QSize& size : sizes) {
        if (area(size) > area(best)) {
            best = size;
        }
    }
    return best;
}

template <typename T>
bool has(const QList<T>& list, T value) {
    return list.contains(value);
}

// Keeps a frame mapped for as long as buffers wrap its memory.
struct MappedFrame {
    QVideoFrame frame;
    explicit MappedFrame(const QVideoFrame& source) : frame(source) {}
    ~MappedFrame() {
        if (frame.isMapped()) {
            frame.unmap();
        }
    }
    MappedFrame(const MappedFrame&) = delete;
    MappedFrame& operator=(const MappedFrame&) = delete;
};

// How much work a camera format costs to reach an output format: lower is
// better.
int conversionCost(QVideoFrameFormat::PixelFormat format, std::uint32_t wanted) {
    const bool grey = wanted == pixel_format::k420YpCbCr8BiPlanarFullRange;
    switch (format) {
        case QVideoFrameFormat::Format_BGRA8888:
        case QVideoFrameFormat::Format_BGRX8888:
            return grey ? 3 : 0;
        case QVideoFrameFormat::Format_NV12:
            return grey ? 0 : 1;
        case QVideoFrameFormat::Format_YUYV:
        case QVideoFrameFormat::Format_YUV420P:
        case QVideoFrameFormat::Format_YV12:
            return grey ? 1 : 2;
        case QVideoFrameFormat::Format_Jpeg:
            return 5;  // decoded on the CPU
        default:
            return 4;  // through QImage
    }
}

Turn turnFor(const FrameLayout& layout) {
    Turn turn;
    turn.mirrored = layout.mirrored;
    switch (layout.orientation) {
        case video_orientation::kPortrait:
            turn.quarterTurns = 1;
            break;
        case video_orientation::kPortraitUpsideDown:
            turn.quarterTurns = 3;
            break;
        case video_orientation::kLandscapeLeft:
            turn.quarterTurns = 2;
            break;
        default:  // the sensor's own orientation, or none given
            break;
    }
    return turn;
}

QSize turnedSize(const QSize& size, const Turn& turn) {
    return turn.quarterTurns % 2 == 1 ? size.transposed() : size;
}

}  // namespace

std::shared_ptr<PixelBuffer> QtFramePools::take(const QSize& size, std::uint32_t format) {
    if (!pool || pool->attributes().width != size.width() ||
        pool->attributes().height != size.height() || pool->attributes().pixelFormat != format) {
        pool = PixelBufferPool::create({size.width(), size.height(), format, 8});
    }
    return pool ? pool->createPixelBuffer() : nullptr;
}

namespace qt_camera {

int positionFrom(QCameraDevice::Position position) {
    switch (position) {
        case QCameraDevice::BackFace:
            return device_position::kBack;
        case QCameraDevice::FrontFace:
            return device_position::kFront;
        case QCameraDevice::UnspecifiedPosition:
            break;
    }
    return device_position::kUnspecified;
}

std::vector<int> positionsFor(const QList<QtCameraDescription>& cameras, const QString& defaultID,
                              const CameraChoice& choice) {
    std::vector<int> positions;
    for (const auto& camera : cameras) {
        positions.push_back(positionFrom(camera.position));
    }
    const auto indexOf = [&](const QString& id) -> int {
        for (int i = 0; i < cameras.size(); ++i) {
            if (cameras[i].id == id) {
                return i;
            }
        }
        return -1;
    };
    const auto give = [&](int index, int position) {
        for (int& p : positions) {
            if (p == position) {
                p = device_position::kUnspecified;
            }
        }
        positions[static_cast<std::size_t>(index)] = position;
    };
    const auto holds = [&](int position) {
        return std::find(positions.begin(), positions.end(), position) != positions.end();
    };
    if (choice.kind == CameraChoice::Kind::Camera) {
        const int back = indexOf(choice.backID);
        const int front = choice.frontID.isEmpty() ? -1 : indexOf(choice.frontID);
        if (back >= 0) {
            give(back, device_position::kBack);
        }
        if (front >= 0) {
            give(front, device_position::kFront);
        }
    }
    // Qt says unspecified for every V4L2 camera: the default camera plays
    // back, the next free one front.
    const auto firstFree = [&](int preferred) {
        if (preferred >= 0 &&
            positions[static_cast<std::size_t>(preferred)] == device_position::kUnspecified) {
            return preferred;
        }
        for (std::size_t i = 0; i < positions.size(); ++i) {
            if (positions[i] == device_position::kUnspecified) {
                return static_cast<int>(i);
            }
        }
        return -1;
    };
    if (!holds(device_position::kBack)) {
        if (const int index = firstFree(indexOf(defaultID)); index >= 0) {
            give(index, device_position::kBack);
        }
    }
    if (!holds(device_position::kFront)) {
        if (const int index = firstFree(-1); index >= 0) {
            give(index, device_position::kFront);
        }
    }
    return positions;
}

QString pixelFormatName(QVideoFrameFormat::PixelFormat format) {
    switch (format) {
        case QVideoFrameFormat::Format_BGRA8888:
            return QStringLiteral("BGRA");
        case QVideoFrameFormat::Format_BGRX8888:
            return QStringLiteral("BGRX");
        case QVideoFrameFormat::Format_NV12:
            return QStringLiteral("NV12");
        case QVideoFrameFormat::Format_NV21:
            return QStringLiteral("NV21");
        case QVideoFrameFormat::Format_YUYV:
            return QStringLiteral("YUYV");
        case QVideoFrameFormat::Format_UYVY:
            return QStringLiteral("UYVY");
        case QVideoFrameFormat::Format_YUV420P:
            return QStringLiteral("I420");
        case QVideoFrameFormat::Format_YV12:
            return QStringLiteral("YV12");
        case QVideoFrameFormat::Format_Jpeg:
            return QStringLiteral("MJPEG");
        case QVideoFrameFormat::Format_Invalid:
            return {};
        default:
            return QStringLiteral("format %1").arg(static_cast<int>(format));
    }
}

QStringList sessionPresetsFor(const QList<QSize>& videoResolutions, const QSize& stillSize) {
    static const std::array<std::pair<QString, QSize>, 4> kFixed = {{
        {session_preset::k3840x2160, QSize(3840, 2160)},
        {session_preset::k1920x1080, QSize(1920, 1080)},
        {session_preset::k1280x720, QSize(1280, 720)},
        {session_preset::kiFrame960x540, QSize(960, 540)},
    }};
    QStringList presets;
    if (!stillSize.isEmpty()) {
        presets.append(session_preset::kPhoto);
    }
    for (const auto& [preset, size] : kFixed) {
        if (videoResolutions.contains(size)) {
            presets.append(preset);
        }
    }
    return presets;
}

QSize stillSizeFor(const QList<QSize>& photoResolutions, const QList<QSize>& videoResolutions) {
    const QSize photo = largest(photoResolutions);
    return photo.isEmpty() ? largest(videoResolutions) : photo;
}

QSize largestLike(const QList<QSize>& sizes, const QSize& like) {
    if (like.isEmpty()) {
        return largest(sizes);
    }
    const double aspect = double(like.width()) / like.height();
    QList<QSize> alike;
    for (const QSize& size : sizes) {
        if (!size.isEmpty() &&
            std::abs(double(size.width()) / size.height() / aspect - 1.0) < 0.01) {
            alike.append(size);
        }
    }
    return alike.isEmpty() ? largest(sizes) : largest(alike);
}

QtCameraFormat formatFor(const QList<QtCameraFormat>& formats, const QSize& size,
                         std::uint32_t wanted) {
    QtCameraFormat best;
    for (const QtCameraFormat& format : formats) {
        if (format.resolution != size) {
            continue;
        }
        // Frame rates within a frame a second count as the same.
        const float rate = std::round(format.maxFrameRate);
        const float bestRate = std::round(best.maxFrameRate);
        if (best.resolution.isEmpty() || rate > bestRate ||
            (rate == bestRate && conversionCost(format.pixelFormat, wanted) <
                                     conversionCost(best.pixelFormat, wanted))) {
            best = format;
        }
    }
    return best;
}

CaptureDeviceCapabilities capabilitiesFor(const QtCameraDescription& d) {
    CaptureDeviceCapabilities caps;
    const QList<QSize> videoResolutions = d.videoResolutions();
    caps.stillImageSize = stillSizeFor(d.photoResolutions, videoResolutions);
    caps.sessionPresets = sessionPresetsFor(videoResolutions, caps.stillImageSize);
    // Qt's automatic focus and exposure are continuous; a single automatic
    // pass is served by the same mode. Without a manual mode the focus and
    // exposure are still fixed, i.e. locked.
    const bool autoFocus = has(d.focusModes, QCamera::FocusModeAuto);
    if (has(d.focusModes, QCamera::FocusModeManual) || !autoFocus) {
        caps.focusModes.push_back(focus_mode::kLocked);
    }
    if (autoFocus) {
        caps.focusModes.push_back(focus_mode::kAutoFocus);
        caps.focusModes.push_back(focus_mode::kContinuousAutoFocus);
    }
    caps.focusPointOfInterest = d.features.testFlag(QCamera::Feature::CustomFocusPoint);
    const bool autoExposure = has(d.exposureModes, QCamera::ExposureAuto);
    if (has(d.exposureModes, QCamera::ExposureManual) || !autoExposure) {
        caps.exposureModes.push_back(exposure_mode::kLocked);
    }
    if (autoExposure) {
        caps.exposureModes.push_back(exposure_mode::kAutoExpose);
        caps.exposureModes.push_back(exposure_mode::kContinuousAutoExposure);
    }
    caps.exposurePointOfInterest = false;  // Qt offers no exposure point
    for (auto [qt, mode] : {std::pair{QCamera::FlashOff, flash_mode::kOff},
                            std::pair{QCamera::FlashOn, flash_mode::kOn},
                            std::pair{QCamera::FlashAuto, flash_mode::kAuto}}) {
        if (has(d.flashModes, qt)) {
            caps.flashModes.push_back(mode);
        }
    }
    caps.hasFlash = has(d.flashModes, QCamera::FlashOn) || has(d.flashModes, QCamera::FlashAuto);
    for (auto [qt, mode] : {std::pair{QCamera::TorchOff, torch_mode::kOff},
                            std::pair{QCamera::TorchOn, torch_mode::kOn},
                            std::pair{QCamera::TorchAuto, torch_mode::kAuto}}) {
        if (has(d.torchModes, qt)) {
            caps.torchModes.push_back(mode);
        }
    }
    caps.hasTorch = has(d.torchModes, QCamera::TorchOn);
    if (d.whiteBalanceAuto) {
        caps.whiteBalanceModes = {white_balance_mode::kContinuousAutoWhiteBalance};
    }
    return caps;
}

QCamera::FocusMode focusModeFor(int focusMode) {
    return focusMode == focus_mode::kLocked ? QCamera::FocusModeManual : QCamera::FocusModeAuto;
}

QCamera::ExposureMode exposureModeFor(int exposureMode) {
    return exposureMode == exposure_mode::kLocked || exposureMode == exposure_mode::kCustom
               ? QCamera::ExposureManual
               : QCamera::ExposureAuto;
}

QCamera::FlashMode flashModeFor(int flashMode) {
    switch (flashMode) {
        case flash_mode::kOn:
            return QCamera::FlashOn;
        case flash_mode::kAuto:
            return QCamera::FlashAuto;
        default:
            return QCamera::FlashOff;
    }
}

QCamera::TorchMode torchModeFor(int torchMode) {
    switch (torchMode) {
        case torch_mode::kOn:
            return QCamera::TorchOn;
        case torch_mode::kAuto:
            return QCamera::TorchAuto;
        default:
            return QCamera::TorchOff;
    }
}

std::shared_ptr<PixelBuffer> pixelBufferFor(const QVideoFrame& frame, const FrameLayout& layout,
                                            QtFramePools& pools) {
    auto mapped = std::make_shared<MappedFrame>(frame);
    if (!mapped->frame.map(QVideoFrame::ReadOnly)) {
        return nullptr;
    }
    const QVideoFrame& f = mapped->frame;
    const int width = f.width();
    const int height = f.height();
    const Turn turn = turnFor(layout);
    const QSize outSize = turnedSize(f.size(), turn);
    // 420f needs even sizes; an odd frame goes out in BGRA.
    const bool grey = layout.pixelFormat == pixel_format::k420YpCbCr8BiPlanarFullRange &&
                      width % 2 == 0 && height % 2 == 0;
    const std::uint32_t out =
        grey ? pixel_format::k420YpCbCr8BiPlanarFullRange : pixel_format::k32BGRA;
    const auto in = [&](int plane) { return f.bits(plane); };
    const auto stride = [&](int plane) { return static_cast<std::size_t>(f.bytesPerLine(plane)); };
    const auto format = f.pixelFormat();
    const bool identity = turn.quarterTurns == 0 && !turn.mirrored;

    // Wrapping only reads: the const_cast does not lead to a write.
    if (identity && format == QVideoFrameFormat::Format_BGRA8888 && !grey) {
        return PixelBuffer::wrapExternal(width, height, out,
                                         {{const_cast<std::uint8_t*>(in(0)), stride(0)}}, mapped);
    }
    if (identity && format == QVideoFrameFormat::Format_NV12 && grey) {
        return PixelBuffer::wrapExternal(width, height, out,
                                         {{const_cast<std::uint8_t*>(in(0)), stride(0)},
                                          {const_cast<std::uint8_t*>(in(1)), stride(1)}},
                                         mapped);
    }

    QImage decoded;  // formats without a converter of their own
    const bool planar =
        format == QVideoFrameFormat::Format_YUV420P || format == QVideoFrameFormat::Format_YV12;
    const bool known = planar || format == QVideoFrameFormat::Format_NV12 ||
                       format == QVideoFrameFormat::Format_YUYV ||
                       format == QVideoFrameFormat::Format_BGRA8888 ||
                       format == QVideoFrameFormat::Format_BGRX8888;
    if (!known) {
        decoded = f.toImage().convertToFormat(QImage::Format_ARGB32);  // B G R A in memory
        if (decoded.size() != f.size()) {
            return nullptr;
        }
    }
    auto buffer = pools.take(outSize, out);
    if (!buffer) {
        return nullptr;
    }
    std::uint8_t* dst = buffer->planeData(0);
    const std::size_t dstStride = buffer->bytesPerRowOfPlane(0);
    std::uint8_t* chroma = grey ? buffer->planeData(1) : nullptr;
    const std::size_t chromaStride = grey ? buffer->bytesPerRowOfPlane(1) : 0;
    // YV12 is I420 with the chroma planes swapped.
    const int u = format == QVideoFrameFormat::Format_YV12 ? 2 : 1;
    const int v = 3 - u;
    if (!known) {
        const auto* bits = decoded.constBits();
        const auto rowBytes = static_cast<std::size_t>(decoded.bytesPerLine());
        if (grey) {
            convertBgraTo420f(bits, rowBytes, dst, dstStride, chroma, chromaStride, width, height,
                              turn);
        } else {
            copyBgra(bits, rowBytes, dst, dstStride, width, height, turn, true);
        }
    } else if (format == QVideoFrameFormat::Format_YUYV) {
        if (grey) {
            convertYuyvTo420f(in(0), stride(0), dst, dstStride, chroma, chromaStride, width, height,
                              turn);
        } else {
            convertYuyvToBgra(in(0), stride(0), dst, dstStride, width, height, turn);
        }
    } else if (format == QVideoFrameFormat::Format_NV12) {
        if (grey) {
            copyNv12(in(0), stride(0), in(1), stride(1), dst, dstStride, chroma, chromaStride,
                     width, height, turn);
        } else {
            convertNv12ToBgra(in(0), stride(0), in(1), stride(1), dst, dstStride, width, height,
                              turn);
        }
    } else if (planar) {
        if (grey) {
            convertI420To420f(in(0), stride(0), in(u), stride(u), in(v), stride(v), dst, dstStride,
                              chroma, chromaStride, width, height, turn);
        } else {
            convertI420ToBgra(in(0), stride(0), in(u), stride(u), in(v), stride(v), dst, dstStride,
                              width, height, turn);
        }
    } else {  // BGRA, BGRX
        const bool opaque = format == QVideoFrameFormat::Format_BGRX8888;
        if (grey) {
            convertBgraTo420f(in(0), stride(0), dst, dstStride, chroma, chromaStride, width, height,
                              turn);
        } else {
            copyBgra(in(0), stride(0), dst, dstStride, width, height, turn, opaque);
        }
    }
    return buffer;
}

std::shared_ptr<PixelBuffer> stillBufferFor(const QImage& image, const FrameLayout& layout) {
    const QImage source = image.convertToFormat(QImage::Format_ARGB32);
    if (source.isNull()) {
        return nullptr;
    }
    const Turn turn = turnFor(layout);
    const QSize outSize = turnedSize(source.size(), turn);
    auto buffer = PixelBuffer::create(outSize.width(), outSize.height(), pixel_format::k32BGRA);
    if (!buffer) {
        return nullptr;
    }
    copyBgra(source.constBits(), static_cast<std::size_t>(source.bytesPerLine()),
             buffer->planeData(0), buffer->bytesPerRow(), source.width(), source.height(), turn,
             true);
    return buffer;
}

}  // namespace qt_camera
}  // namespace platform
