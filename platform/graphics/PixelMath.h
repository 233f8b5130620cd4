#pragma once

// Arithmetic on packed 32-bit pixels (four 8-bit channels in one word), two
// channels at a time, with the raster engine's rounding. Internal to the
// graphics code.

#include <cstdint>

namespace platform::pixel {

/// Each channel of x times a / 255, rounded.
inline std::uint32_t byteMul(std::uint32_t x, std::uint32_t a) {
    std::uint32_t t = (x & 0xFF00FFu) * a;
    t = (t + ((t >> 8) & 0xFF00FFu) + 0x800080u) >> 8;
    t &= 0xFF00FFu;
    x = ((x >> 8) & 0xFF00FFu) * a;
    x = (x + ((x >> 8) & 0xFF00FFu) + 0x800080u);
    x &= 0xFF00FF00u;
    return x | t;
}

/// A row of 8-bit grey as 32-bit colour, each channel the grey, opaque:
/// the raster engine's own conversion.
inline void greyRowToRgb32(const std::uint8_t* from, std::uint32_t* to, int count) {
    for (int x = 0; x < count; ++x) {
        to[x] = 0xFF000000u | (static_cast<std::uint32_t>(from[x]) * 0x010101u);
    }
}

}  // namespace platform::pixel
