#include "platform/capture/CameraRecording.h"

#include "platform/foundation/Dispatch.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstring>

namespace platform {
namespace {

const QString kIndex = QStringLiteral("recording.jsonl");
const QString kData = QStringLiteral("frames.bin");
constexpr int kVersion = 1;

QJsonArray sizes(const QList<QSize>& list) {
    QJsonArray array;
    for (const QSize& size : list) {
        array.append(QJsonArray{size.width(), size.height()});
    }
    return array;
}

QList<QSize> sizesFrom(const QJsonArray& array) {
    QList<QSize> list;
    for (const auto& value : array) {
        const QJsonArray pair = value.toArray();
        list.append({pair.at(0).toInt(), pair.at(1).toInt()});
    }
    return list;
}

template <typename Enum>
QJsonArray numbers(const QList<Enum>& list) {
    QJsonArray array;
    for (Enum value : list) {
        array.append(static_cast<int>(value));
    }
    return array;
}

template <typename Enum>
QList<Enum> enumsFrom(const QJsonArray& array) {
    QList<Enum> list;
    for (const auto& value : array) {
        list.append(static_cast<Enum>(value.toInt()));
    }
    return list;
}

bool validPixelFormat(int format) {
    return format > QVideoFrameFormat::Format_Invalid && format < QVideoFrameFormat::NPixelFormats;
}

QJsonObject describe(const QtCameraDescription& d) {
    QJsonArray formats;
    for (const QtCameraFormat& f : d.videoFormats) {
        formats.append(
            QJsonObject{{"size", QJsonArray{f.resolution.width(), f.resolution.height()}},
                        {"pixelFormat", static_cast<int>(f.pixelFormat)},
                        {"name", qt_camera::pixelFormatName(f.pixelFormat)},
                        {"maxFrameRate", f.maxFrameRate}});
    }
    return {{"id", d.id},
            {"name", d.name},
            {"position", static_cast<int>(d.position)},
            {"videoFormats", formats},
            {"photoResolutions", sizes(d.photoResolutions)},
            {"focusModes", numbers(d.focusModes)},
            {"exposureModes", numbers(d.exposureModes)},
            {"flashModes", numbers(d.flashModes)},
            {"torchModes", numbers(d.torchModes)},
            {"whiteBalanceAuto", d.whiteBalanceAuto},
            {"features", static_cast<int>(d.features.toInt())}};
}

QtCameraDescription descriptionFrom(const QJsonObject& o) {
    QtCameraDescription d;
    d.id = o.value("id").toString();
    d.name = o.value("name").toString();
    d.position = static_cast<QCameraDevice::Position>(o.value("position").toInt());
    for (const auto& value : o.value("videoFormats").toArray()) {
        const QJsonObject f = value.toObject();
        const QJsonArray size = f.value("size").toArray();
        const int format = f.value("pixelFormat").toInt();
        d.videoFormats.append({{size.at(0).toInt(), size.at(1).toInt()},
                               validPixelFormat(format)
                                   ? static_cast<QVideoFrameFormat::PixelFormat>(format)
                                   : QVideoFrameFormat::Format_Invalid,
                               static_cast<float>(f.value("maxFrameRate").toDouble())});
    }
    d.photoResolutions = sizesFrom(o.value("photoResolutions").toArray());
    d.focusModes = enumsFrom<QCamera::FocusMode>(o.value("focusModes").toArray());
    d.exposureModes = enumsFrom<QCamera::ExposureMode>(o.value("exposureModes").toArray());
    d.flashModes = enumsFrom<QCamera::FlashMode>(o.value("flashModes").toArray());
    d.torchModes = enumsFrom<QCamera::TorchMode>(o.value("torchModes").toArray());
    d.whiteBalanceAuto = o.value("whiteBalanceAuto").toBool();
    d.features = QCamera::Features::fromInt(o.value("features").toInt());
    return d;
}

// A frame of the recorded format and size holding the recorded planes; rows
// are copied one by one, as Qt may lay its planes out with other strides.
std::optional<QVideoFrame> rebuild(const QJsonObject& entry, const QByteArray& data) {
    const int format = entry.value("pixelFormat").toInt();
    const QSize size(entry.value("width").toInt(), entry.value("height").toInt());
    if (!validPixelFormat(format) || size.isEmpty()) {
        return std::nullopt;
    }
    QVideoFrame frame(QVideoFrameFormat(size, static_cast<QVideoFrameFormat::PixelFormat>(format)));
    if (!frame.map(QVideoFrame::WriteOnly)) {
        return std::nullopt;
    }
    const QJsonArray planes = entry.value("planes").toArray();
    bool ok = planes.size() == frame.planeCount();
    for (int p = 0; ok && p < planes.size(); ++p) {
        const QJsonObject plane = planes.at(p).toObject();
        const qint64 offset = plane.value("offset").toInteger();
        const qint64 length = plane.value("length").toInteger();
        const qint64 stride = plane.value("bytesPerLine").toInteger();
        ok = offset >= 0 && length >= 0 && stride > 0 && offset + length <= data.size();
        if (!ok) {
            break;
        }
        const qint64 ownStride = frame.bytesPerLine(p);
        const qint64 rows =
            std::min(length / stride, ownStride > 0 ? frame.mappedBytes(p) / ownStride : 0);
        const qint64 rowBytes = std::min(stride, ownStride);
        for (qint64 row = 0; row < rows; ++row) {
            std::memcpy(frame.bits(p) + row * ownStride, data.constData() + offset + row * stride,
                        static_cast<std::size_t>(rowBytes));
        }
    }
    frame.unmap();
    if (!ok) {
        return std::nullopt;
    }
    frame.setStartTime(entry.value("startTime").toInteger());
    return frame;
}

}  // namespace

std::optional<CameraRecording> CameraRecording::load(const QString& folder, QString* error) {
    const auto fail = [error](const QString& why) -> std::optional<CameraRecording> {
        if (error != nullptr) {
            *error = why;
        }
        return std::nullopt;
    };
    QFile index(QDir(folder).filePath(kIndex));
    QFile dataFile(QDir(folder).filePath(kData));
    if (!index.open(QIODevice::ReadOnly) || !dataFile.open(QIODevice::ReadOnly)) {
        return fail(QStringLiteral("no camera recording in %1").arg(folder));
    }
    const QByteArray data = dataFile.readAll();
    CameraRecording recording;
    bool header = false;
    int lineNumber = 0;
    while (!index.atEnd()) {
        const QByteArray line = index.readLine().trimmed();
        ++lineNumber;
        if (line.isEmpty()) {
            continue;
        }
        const QJsonObject entry = QJsonDocument::fromJson(line).object();
        const auto damaged = [&] {
            return fail(
                QStringLiteral("%1 line %2 is damaged").arg(index.fileName()).arg(lineNumber));
        };
        if (!header) {
            if (entry.value("version").toInt() != kVersion || !entry.contains("camera")) {
                return damaged();
            }
            recording.camera = descriptionFrom(entry.value("camera").toObject());
            header = true;
            continue;
        }
        const std::chrono::microseconds arrival{entry.value("arrival").toInteger()};
        if (entry.contains("event")) {
            if (entry.value("event").toString() == QStringLiteral("disconnected")) {
                recording.disconnection = Event{arrival, entry.value("message").toString()};
            }
            continue;
        }
        auto frame = rebuild(entry, data);
        if (!frame) {
            return damaged();
        }
        recording.frames.push_back({arrival, frame->startTime(), *frame});
    }
    if (!header) {
        return fail(QStringLiteral("%1 is empty").arg(index.fileName()));
    }
    return recording;
}

std::shared_ptr<CameraRecorder> CameraRecorder::create(const QString& folder,
                                                       const QtCameraDescription& camera,
                                                       QString* error, Clock clock) {
    auto recorder = std::make_shared<CameraRecorder>(Key{}, folder, std::move(clock));
    const auto fail = [error](const QString& why) -> std::shared_ptr<CameraRecorder> {
        if (error != nullptr) {
            *error = why;
        }
        return nullptr;
    };
    if (!QDir().mkpath(folder)) {
        return fail(QStringLiteral("cannot create %1").arg(folder));
    }
    if (!recorder->_index.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        !recorder->_data.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return fail(QStringLiteral("cannot write a recording in %1").arg(folder));
    }
    const QJsonObject header{
        {"format", "qxd-camera-recording"}, {"version", kVersion}, {"camera", describe(camera)}};
    recorder->writeLine(QJsonDocument(header).toJson(QJsonDocument::Compact));
    return recorder;
}

CameraRecorder::CameraRecorder(Key, const QString& folder, Clock clock)
    : _clock(clock ? std::move(clock) : Clock([] { return std::chrono::steady_clock::now(); })),
      _queue(DispatchQueue::createSerial("qxd.camera.recorder")),
      _index(QDir(folder).filePath(kIndex)),
      _data(QDir(folder).filePath(kData)) {}

// Queued writes refer to the recorder without owning it: waiting for them
// here keeps them from outliving it.
CameraRecorder::~CameraRecorder() {
    flush();
}

bool CameraRecorder::flush() {
    bool ok = true;
    _queue->sync([&] {
        _index.flush();
        _data.flush();
        ok = !_failed;
    });
    return ok;
}

std::size_t CameraRecorder::frameCount() const {
    std::lock_guard lock(_mutex);
    return _frames;
}

std::chrono::microseconds CameraRecorder::sinceFirstFrame() {
    const auto now = _clock();
    std::lock_guard lock(_mutex);
    if (!_firstFrame) {
        _firstFrame = now;
    }
    return std::chrono::duration_cast<std::chrono::microseconds>(now - *_firstFrame);
}

// On the queue.
void CameraRecorder::writeLine(const QByteArray& line) {
    if (_index.write(line + '\n') != line.size() + 1) {
        _failed = true;
    }
}

void CameraRecorder::cameraDidDeliverFrame(const QVideoFrame& source) {
    const auto arrival = sinceFirstFrame();
    QVideoFrame frame = source;
    if (!frame.map(QVideoFrame::ReadOnly)) {
        return;
    }
    QByteArray bytes;
    struct Plane {
        qint64 bytesPerLine, length;
    };
    std::vector<Plane> planes;
    for (int p = 0; p < frame.planeCount(); ++p) {
        bytes.append(reinterpret_cast<const char*>(frame.bits(p)), frame.mappedBytes(p));
        planes.push_back({frame.bytesPerLine(p), frame.mappedBytes(p)});
    }
    frame.unmap();
    {
        std::lock_guard lock(_mutex);
        ++_frames;
    }
    _queue->async([this, bytes = std::move(bytes), planes = std::move(planes), arrival,
                   startTime = frame.startTime(), format = frame.pixelFormat(),
                   size = frame.size()] {
        qint64 offset = _data.pos();
        if (_data.write(bytes) != bytes.size()) {
            _failed = true;
            return;
        }
        QJsonArray planeEntries;
        for (const Plane& plane : planes) {
            planeEntries.append(QJsonObject{{"bytesPerLine", plane.bytesPerLine},
                                            {"offset", offset},
                                            {"length", plane.length}});
            offset += plane.length;
        }
        const QJsonObject entry{{"arrival", static_cast<qint64>(arrival.count())},
                                {"startTime", startTime},
                                {"pixelFormat", static_cast<int>(format)},
                                {"name", qt_camera::pixelFormatName(format)},
                                {"width", size.width()},
                                {"height", size.height()},
                                {"planes", planeEntries}};
        writeLine(QJsonDocument(entry).toJson(QJsonDocument::Compact));
    });
}

void CameraRecorder::cameraDidFail(const QString& message) {
    const auto arrival = sinceFirstFrame();
    _queue->async([this, arrival, message] {
        const QJsonObject entry{{"arrival", static_cast<qint64>(arrival.count())},
                                {"event", "disconnected"},
                                {"message", message}};
        writeLine(QJsonDocument(entry).toJson(QJsonDocument::Compact));
    });
}

}  // namespace platform
