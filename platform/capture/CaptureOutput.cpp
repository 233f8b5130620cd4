#include "platform/capture/CaptureOutput.h"

#include "platform/foundation/Log.h"
#include "platform/foundation/Value.h"

#include <algorithm>

namespace platform {

CaptureOutput::~CaptureOutput() = default;

std::vector<std::uint32_t> CaptureOutput::deliverablePixelFormats() {
    return {pixel_format::k420YpCbCr8BiPlanarVideoRange, pixel_format::k420YpCbCr8BiPlanarFullRange,
            pixel_format::k32BGRA};
}

std::optional<std::uint32_t> CaptureOutput::pixelFormatFromSettings(const QVariantMap& settings,
                                                                    const QString& what) {
    if (settings.isEmpty()) {
        return pixel_format::k32BGRA;
    }
    const QVariant value = settings.value(kPixelBufferPixelFormatTypeKey);
    const auto formats = deliverablePixelFormats();
    const auto format = static_cast<std::uint32_t>(value::integerValue(value));
    if (!value::isNumber(value) ||
        std::find(formats.begin(), formats.end(), format) == formats.end()) {
        log::write(QStringLiteral("[capture] %1 with pixel format %2 (%3) are not supported; "
                                  "ignored")
                       .arg(what, value.toString(), pixel_format::name(format)));
        return std::nullopt;
    }
    return format;
}

std::vector<std::shared_ptr<CaptureConnection>> CaptureOutput::connections() const {
    std::lock_guard lock(_mutex);
    return _connections;
}

std::shared_ptr<CaptureConnection> CaptureOutput::connectionWithMediaType(
    const QString& mediaType) const {
    for (const auto& connection : connections()) {
        if (connection->hasMediaType(mediaType)) {
            return connection;
        }
    }
    return nullptr;
}

std::shared_ptr<CaptureSession> CaptureOutput::session() const {
    std::lock_guard lock(_mutex);
    return _session.lock();
}

void CaptureOutput::attach(const std::shared_ptr<CaptureSession>& session) {
    std::lock_guard lock(_mutex);
    _session = session;
}

void CaptureOutput::setConnections(std::vector<std::shared_ptr<CaptureConnection>> connections) {
    std::lock_guard lock(_mutex);
    _connections = std::move(connections);
}

void CaptureOutput::detach() {
    std::lock_guard lock(_mutex);
    _session.reset();
    _connections.clear();
}

}  // namespace platform
