#include "platform/capture/CaptureOutput.h"

namespace platform {

CaptureOutput::~CaptureOutput() = default;

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
