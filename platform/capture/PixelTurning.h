#pragma once

// For the converters only: laying converted rows down turned and mirrored.
//
// A converter is split in two: a producer that converts a block of source
// rows and columns into plain rows, and writeTurned, which decides where
// those rows go. Unturned (and half-turned) output is produced straight into
// the destination rows; quarter-turned output goes through a small tile on
// the stack that is then transposed into place, so a frame is converted in
// one pass without an intermediate image.

#include "platform/capture/PixelConversion.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace platform::pixel_turning {

/// Rows a producer is asked for at once; a multiple of two, so 4:2:0 sources
/// always start a band on a chroma row.
inline constexpr int kBandRows = 16;
/// Columns of a transposing tile; a multiple of two for 4:2:2 sources.
inline constexpr int kTileColumns = 128;

/// Reverses the order of count elements of Bytes bytes each.
template <int Bytes>
inline void reverseRow(std::uint8_t* row, int count) {
    int left = 0;
    int right = count - 1;
#if defined(__SSE2__)
    if constexpr (Bytes == 4) {
        for (; right - left + 1 >= 8; left += 4, right -= 4) {
            auto* a = reinterpret_cast<__m128i*>(row + 4 * left);
            auto* b = reinterpret_cast<__m128i*>(row + 4 * (right - 3));
            const __m128i x = _mm_shuffle_epi32(_mm_loadu_si128(a), 0x1B);
            const __m128i y = _mm_shuffle_epi32(_mm_loadu_si128(b), 0x1B);
            _mm_storeu_si128(a, y);
            _mm_storeu_si128(b, x);
        }
    }
#endif
    for (; left < right; ++left, --right) {
        std::uint8_t tmp[Bytes];
        std::memcpy(tmp, row + Bytes * left, Bytes);
        std::memcpy(row + Bytes * left, row + Bytes * right, Bytes);
        std::memcpy(row + Bytes * right, tmp, Bytes);
    }
}

/// Places a tile of rows x columns elements (tile rows tileStride bytes apart)
/// whose top-left element is source (x0, y0) into the quarter-turned
/// destination. dyReversed: source column X lands on destination row
/// width - 1 - X (else X); dxReversed: source row Y lands on destination
/// column height - 1 - Y (else Y).
template <int Bytes>
inline void placeTransposed(const std::uint8_t* tile, std::size_t tileStride, int rows, int columns,
                            int x0, int y0, int width, int height, bool dyReversed, bool dxReversed,
                            std::uint8_t* dst, std::size_t dstStride) {
    const auto rowOf = [&](int x) {
        const int dy = dyReversed ? width - 1 - (x0 + x) : x0 + x;
        return dst + static_cast<std::size_t>(dy) * dstStride;
    };
    const auto columnOf = [&](int y) { return dxReversed ? height - 1 - (y0 + y) : y0 + y; };
    int r = 0;
#if defined(__SSE2__)
    if constexpr (Bytes == 4) {
        for (; r + 4 <= rows; r += 4) {
            const std::uint8_t* in = tile + static_cast<std::size_t>(r) * tileStride;
            // Four destination pixels of a column start here; reversed, the
            // block's last row comes first.
            const int dx = dxReversed ? columnOf(r + 3) : columnOf(r);
            int c = 0;
            for (; c + 4 <= columns; c += 4) {
                const auto load = [&](int k) {
                    return _mm_loadu_si128(
                        reinterpret_cast<const __m128i*>(in + k * tileStride + 4 * c));
                };
                const __m128i a0 = load(0), a1 = load(1), a2 = load(2), a3 = load(3);
                const __m128i t0 = _mm_unpacklo_epi32(a0, a1);
                const __m128i t1 = _mm_unpacklo_epi32(a2, a3);
                const __m128i t2 = _mm_unpackhi_epi32(a0, a1);
                const __m128i t3 = _mm_unpackhi_epi32(a2, a3);
                __m128i columnPixels[4] = {_mm_unpacklo_epi64(t0, t1), _mm_unpackhi_epi64(t0, t1),
                                           _mm_unpacklo_epi64(t2, t3), _mm_unpackhi_epi64(t2, t3)};
                for (int k = 0; k < 4; ++k) {
                    __m128i p = columnPixels[k];
                    if (dxReversed) {
                        p = _mm_shuffle_epi32(p, 0x1B);
                    }
                    _mm_storeu_si128(reinterpret_cast<__m128i*>(rowOf(c + k) + 4 * dx), p);
                }
            }
            for (; c < columns; ++c) {
                for (int k = 0; k < 4; ++k) {
                    std::memcpy(rowOf(c) + 4 * columnOf(r + k), in + k * tileStride + 4 * c, 4);
                }
            }
        }
    }
#endif
    for (; r < rows; ++r) {
        const std::uint8_t* in = tile + static_cast<std::size_t>(r) * tileStride;
        const int dx = columnOf(r);
        for (int c = 0; c < columns; ++c) {
            std::memcpy(rowOf(c) + Bytes * dx, in + Bytes * c, Bytes);
        }
    }
}

/// Writes a width x height plane of Bytes-byte elements, turned. produce(y,
/// rows, x, columns, out, outStride) converts source rows [y, y + rows) and
/// columns [x, x + columns) into out, whose rows lie outStride bytes apart
/// (possibly negative); y is a multiple of kBandRows and x of kTileColumns.
template <int Bytes, typename Produce>
void writeTurned(Produce produce, std::uint8_t* dst, std::size_t dstStride, int width, int height,
                 Turn turn) {
    const int quarters = ((turn.quarterTurns % 4) + 4) % 4;
    if (quarters % 2 == 0) {
        const bool flipped = quarters == 2;
        const bool reversed = flipped != turn.mirrored;
        const auto stride = static_cast<std::ptrdiff_t>(dstStride);
        for (int y = 0; y < height; y += kBandRows) {
            const int rows = std::min(kBandRows, height - y);
            std::uint8_t* out = dst + (flipped ? height - 1 - y : y) * stride;
            const std::ptrdiff_t outStride = flipped ? -stride : stride;
            produce(y, rows, 0, width, out, outStride);
            if (reversed) {
                for (int i = 0; i < rows; ++i) {
                    reverseRow<Bytes>(out + i * outStride, width);
                }
            }
        }
        return;
    }
    // A quarter turn clockwise puts source row Y on destination column
    // height - 1 - Y; three quarters put column X on row width - 1 - X.
    const bool dyReversed = quarters == 3;
    const bool dxReversed = (quarters == 1) != turn.mirrored;
    alignas(16) std::uint8_t tile[kBandRows * kTileColumns * Bytes];
    constexpr std::size_t tileStride = kTileColumns * Bytes;
    for (int y = 0; y < height; y += kBandRows) {
        const int rows = std::min(kBandRows, height - y);
        for (int x = 0; x < width; x += kTileColumns) {
            const int columns = std::min(kTileColumns, width - x);
            produce(y, rows, x, columns, tile, static_cast<std::ptrdiff_t>(tileStride));
            placeTransposed<Bytes>(tile, tileStride, rows, columns, x, y, width, height, dyReversed,
                                   dxReversed, dst, dstStride);
        }
    }
}

}  // namespace platform::pixel_turning
