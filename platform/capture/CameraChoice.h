#pragma once

#include <QSize>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace platform {

/// Which cameras the capture system offers: a host's choice, else the
/// environment variable QXD_CAMERA's.
///
/// Automatic: the real cameras, positioned as a person expects on a desktop
/// (a camera Qt calls back or front keeps that; without a back camera the
/// system's default camera serves as back; another unspecified camera serves
/// as front); the virtual cameras only when there is no real camera.
/// Camera: the same, but the camera with backID plays back and, when frontID
/// is set, that one plays front. Virtual: the virtual cameras only. None: no
/// camera at all, as on a machine without one. Replay: a recording played as
/// the back camera (see CameraRecording).
struct CameraChoice {
    enum class Kind { Automatic, Camera, Virtual, None, Replay };

    Kind kind = Kind::Automatic;
    QString backID;        ///< Camera
    QString frontID;       ///< Camera; empty: chosen as in Automatic
    QString replayFolder;  ///< Replay

    static CameraChoice camera(const QString& backID, const QString& frontID = {});
    static CameraChoice virtualCameras() { return {Kind::Virtual, {}, {}, {}}; }
    static CameraChoice none() { return {Kind::None, {}, {}, {}}; }
    static CameraChoice replay(const QString& folder) { return {Kind::Replay, {}, {}, folder}; }

    /// Reads QXD_CAMERA's syntax: empty (automatic), "virtual", "none",
    /// "replay:FOLDER", "ID" (back) or "BACK-ID,FRONT-ID". nullopt, with
    /// *error set when error is non-null, for text it cannot use.
    static std::optional<CameraChoice> parse(const QString& text, QString* error = nullptr);
    /// The text parse() reads back into this choice.
    QString toString() const;

    bool operator==(const CameraChoice&) const = default;
};

/// One video format a camera offers.
struct CameraFormat {
    QSize size;
    QString pixelFormat;  ///< "YUYV", "NV12", "MJPEG", ...; empty when unknown
    double maxFrameRate = 0.0;
};

/// A camera as a host lists it.
struct CameraListing {
    QString uniqueID;
    QString localizedName;
    /// The device_position the engine finds it under (0: neither back nor front).
    int position = 0;
    bool isVirtual = true;
    std::vector<CameraFormat> formats;
};

/// The platform's camera choice and listing. Thread-safe.
class CameraSelection {
public:
    /// The host's choice wins over QXD_CAMERA; nullopt hands back to the
    /// environment. Affects devices discovered from then on.
    static void setChoice(std::optional<CameraChoice> choice);
    /// The host's choice, else QXD_CAMERA's (read at each call), else
    /// Automatic. An unusable QXD_CAMERA is reported once on the log and
    /// treated as Automatic.
    static CameraChoice current();
    /// The cameras on offer under the current choice, in discovery order.
    static std::vector<CameraListing> list();
    /// A listing as one line of text: ID, name, position and formats.
    static QString describe(const CameraListing& camera);
};

}  // namespace platform
