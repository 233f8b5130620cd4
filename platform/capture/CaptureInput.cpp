#include "platform/capture/CaptureInput.h"

#include "platform/capture/CaptureDevice.h"

namespace platform {

std::shared_ptr<CaptureDeviceInput> CaptureDeviceInput::create(
    const std::shared_ptr<CaptureDevice>& device, ErrorPtr* error) {
    ErrorPtr refusal;
    if (!device) {
        refusal = Error::withDescription(kAVFoundationErrorDomain, av_error::kDeviceNotConnected,
                                         QStringLiteral("No capture device."));
    } else if (!device->isConnected()) {
        refusal = Error::withDescription(kAVFoundationErrorDomain, av_error::kDeviceNotConnected,
                                         QStringLiteral("Cannot Record"));
    } else {
        refusal = device->driver().openInput();
    }
    if (refusal) {
        if (error != nullptr) {
            *error = refusal;
        }
        return nullptr;
    }
    auto input = std::make_shared<CaptureDeviceInput>(Key{}, device);
    input->_ports.push_back(std::make_shared<CaptureInputPort>(kMediaTypeVideo, input));
    return input;
}

CaptureDeviceInput::CaptureDeviceInput(Key, std::shared_ptr<CaptureDevice> device)
    : _device(std::move(device)) {}

std::shared_ptr<CaptureInputPort> CaptureDeviceInput::portWithMediaType(
    const QString& mediaType) const {
    for (const auto& port : _ports) {
        if (port->mediaType() == mediaType) {
            return port;
        }
    }
    return nullptr;
}

}  // namespace platform
