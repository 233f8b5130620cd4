#include "platform/capture/CameraChoice.h"

#include "platform/capture/CaptureDevice.h"
#include "platform/capture/QtCameraDriver.h"
#include "platform/foundation/Log.h"

#include <QByteArray>

#include <mutex>

namespace platform {
namespace {

const QString kVirtual = QStringLiteral("virtual");
const QString kNone = QStringLiteral("none");
const QString kReplay = QStringLiteral("replay:");

struct SelectionState {
    std::mutex mutex;
    std::optional<CameraChoice> hostChoice;
    QString reportedBadText;  // QXD_CAMERA text already reported as unusable
};

SelectionState& selection() {
    static SelectionState state;
    return state;
}

QString positionName(int position) {
    switch (position) {
        case device_position::kBack:
            return QStringLiteral("back");
        case device_position::kFront:
            return QStringLiteral("front");
        default:
            return QStringLiteral("unused");
    }
}

}  // namespace

CameraChoice CameraChoice::camera(const QString& backID, const QString& frontID) {
    return {Kind::Camera, backID, frontID, {}};
}

std::optional<CameraChoice> CameraChoice::parse(const QString& raw, QString* error) {
    const auto fail = [error](const QString& why) -> std::optional<CameraChoice> {
        if (error != nullptr) {
            *error = why;
        }
        return std::nullopt;
    };
    const QString text = raw.trimmed();
    if (text.isEmpty()) {
        return CameraChoice{};
    }
    if (text.compare(kVirtual, Qt::CaseInsensitive) == 0) {
        return virtualCameras();
    }
    if (text.compare(kNone, Qt::CaseInsensitive) == 0) {
        return none();
    }
    if (text.startsWith(kReplay, Qt::CaseInsensitive)) {
        const QString folder = text.mid(kReplay.size());
        if (folder.isEmpty()) {
            return fail(QStringLiteral("\"replay:\" needs the folder of a recording"));
        }
        return replay(folder);
    }
    const QStringList ids = text.split(u',');
    if (ids.size() > 2) {
        return fail(QStringLiteral("at most two camera IDs (back,front), got \"%1\"").arg(text));
    }
    const QString back = ids[0].trimmed();
    const QString front = ids.size() == 2 ? ids[1].trimmed() : QString();
    if (back.isEmpty() || (ids.size() == 2 && front.isEmpty())) {
        return fail(QStringLiteral("an empty camera ID in \"%1\"").arg(text));
    }
    if (back == front) {
        return fail(QStringLiteral("one camera cannot be both back and front: \"%1\"").arg(text));
    }
    return camera(back, front);
}

QString CameraChoice::toString() const {
    switch (kind) {
        case Kind::Automatic:
            return {};
        case Kind::Virtual:
            return kVirtual;
        case Kind::None:
            return kNone;
        case Kind::Replay:
            return kReplay + replayFolder;
        case Kind::Camera:
            break;
    }
    return frontID.isEmpty() ? backID : backID + u',' + frontID;
}

void CameraSelection::setChoice(std::optional<CameraChoice> choice) {
    std::lock_guard lock(selection().mutex);
    selection().hostChoice = std::move(choice);
}

CameraChoice CameraSelection::current() {
    {
        std::lock_guard lock(selection().mutex);
        if (selection().hostChoice) {
            return *selection().hostChoice;
        }
    }
    const QString text = QString::fromLocal8Bit(qgetenv("QXD_CAMERA"));
    QString why;
    if (auto choice = CameraChoice::parse(text, &why)) {
        return *choice;
    }
    bool report = false;
    {
        std::lock_guard lock(selection().mutex);
        report = selection().reportedBadText != text;
        selection().reportedBadText = text;
    }
    if (report) {
        log::write(QStringLiteral("QXD_CAMERA ignored: ") + why);
    }
    return {};
}

std::vector<CameraListing> CameraSelection::list() {
    std::vector<CameraListing> cameras;
    for (const auto& device : DeviceDiscovery::allDevices()) {
        CameraListing camera;
        camera.uniqueID = device->uniqueID();
        camera.localizedName = device->localizedName();
        camera.position = device->position();
        if (const auto* qt = dynamic_cast<const QtCameraDriver*>(&device->driver())) {
            camera.isVirtual = false;
            for (const QtCameraFormat& format : qt->description().videoFormats) {
                camera.formats.push_back({format.resolution,
                                          qt_camera::pixelFormatName(format.pixelFormat),
                                          format.maxFrameRate});
            }
        } else {
            const auto& caps = device->capabilities();
            for (const QString& preset : caps.sessionPresets) {
                camera.formats.push_back({caps.videoSizeForPreset(preset), {}, 0.0});
            }
        }
        cameras.push_back(std::move(camera));
    }
    return cameras;
}

QString CameraSelection::describe(const CameraListing& camera) {
    QStringList formats;
    for (const CameraFormat& format : camera.formats) {
        QString text = QStringLiteral("%1x%2").arg(format.size.width()).arg(format.size.height());
        if (!format.pixelFormat.isEmpty()) {
            text += u' ' + format.pixelFormat;
        }
        if (format.maxFrameRate > 0.0) {
            text += QStringLiteral(" %1fps").arg(format.maxFrameRate, 0, 'g', 3);
        }
        formats.append(text);
    }
    formats.removeDuplicates();
    return QStringLiteral("%1 \"%2\" (%3%4): %5")
        .arg(camera.uniqueID, camera.localizedName, positionName(camera.position),
             camera.isVirtual ? QStringLiteral(", virtual") : QString(),
             formats.isEmpty() ? QStringLiteral("no formats") : formats.join(QStringLiteral(", ")));
}

}  // namespace platform
