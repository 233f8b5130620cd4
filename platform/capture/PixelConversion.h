#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// Colour conversions of camera frames into BGRA (alpha 255), BT.601 full
/// range in 14-bit fixed point, rounded to nearest:
///   R = Y + 1.402 (V - 128)
///   G = Y - 0.344136 (U - 128) - 0.714136 (V - 128)
///   B = Y + 1.772 (U - 128)
/// Strides are in bytes. Odd sizes are allowed: the last chroma sample of a
/// row (and, for NV12, the last chroma row) serves a single pixel.

/// Packed 4:2:2 Y0 U Y1 V (YUYV); a row holds (width + 1) / 2 macropixels.
void convertYuyvToBgra(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* dst,
                       std::size_t dstStride, int width, int height);

/// Bi-planar 4:2:0: a luma plane and an interleaved CbCr plane of
/// (width + 1) / 2 pairs by (height + 1) / 2 rows.
void convertNv12ToBgra(const std::uint8_t* luma, std::size_t lumaStride, const std::uint8_t* chroma,
                       std::size_t chromaStride, std::uint8_t* dst, std::size_t dstStride,
                       int width, int height);

}  // namespace platform
