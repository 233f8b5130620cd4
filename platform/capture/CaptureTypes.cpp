#include "platform/capture/CaptureTypes.h"

namespace platform::pixel_format {

QString name(std::uint32_t format) {
    QString text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto c = static_cast<char>((format >> shift) & 0xFF);
        text += (c >= 0x20 && c < 0x7F) ? QChar(c) : QChar('?');
    }
    return text;
}

}  // namespace platform::pixel_format
