#pragma once

#include "platform/capture/CaptureConnection.h"

#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace platform {

class CaptureDevice;
class CaptureSession;

/// The base of session outputs: the connections the session formed for it.
/// Thread-safe.
class CaptureOutput : public std::enable_shared_from_this<CaptureOutput> {
public:
    virtual ~CaptureOutput();
    CaptureOutput(const CaptureOutput&) = delete;
    CaptureOutput& operator=(const CaptureOutput&) = delete;

    /// Empty until the output and a video input are in one session.
    std::vector<std::shared_ptr<CaptureConnection>> connections() const;
    /// The first connection with a port of mediaType, or null.
    std::shared_ptr<CaptureConnection> connectionWithMediaType(const QString& mediaType) const;
    /// The session the output is in (held weakly), or null.
    std::shared_ptr<CaptureSession> session() const;

protected:
    CaptureOutput() = default;

    /// The pixel formats outputs deliver: 420v, 420f and BGRA.
    static std::vector<std::uint32_t> deliverablePixelFormats();
    /// The pixel format a settings dictionary asks for: BGRA for an empty
    /// one; nothing when the format is missing or not deliverable, which is
    /// logged as "<what> with pixel format ... are not supported; ignored".
    static std::optional<std::uint32_t> pixelFormatFromSettings(const QVariantMap& settings,
                                                                const QString& what);

private:
    friend class CaptureSession;
    /// What a connection from device to this kind of output supports.
    virtual CaptureConnection::Traits connectionTraits(const CaptureDevice& device) const = 0;
    void attach(const std::shared_ptr<CaptureSession>& session);
    void setConnections(std::vector<std::shared_ptr<CaptureConnection>> connections);
    void detach();

    mutable std::mutex _mutex;
    std::weak_ptr<CaptureSession> _session;
    std::vector<std::shared_ptr<CaptureConnection>> _connections;
};

}  // namespace platform
