#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// How a converter lays the picture down: turned clockwise by quarter turns,
/// then mirrored left to right. The output of an odd number of quarter turns
/// is height wide and width high. Turned output is written in place, with no
/// intermediate image.
struct Turn {
    int quarterTurns = 0;  ///< 0 to 3
    bool mirrored = false;
};

/// Colour conversions of camera frames. YUV to BGRA (alpha 255) is BT.601
/// full range in 14-bit fixed point, rounded to nearest:
///   R = Y + 1.402 (V - 128)
///   G = Y - 0.344136 (U - 128) - 0.714136 (V - 128)
///   B = Y + 1.772 (U - 128)
/// Strides are in bytes; width and height are the source's. Odd sizes are
/// allowed for BGRA output: the last chroma sample of a row (and, for 4:2:0,
/// the last chroma row) serves a single pixel. 420f output (a luma plane and
/// an interleaved CbCr plane of width / 2 pairs by height / 2 rows) needs
/// even sizes; its chroma is the average of the two rows it covers where the
/// source has more chroma rows than the output.
///
/// Thread-safe; no function allocates memory.

/// Packed 4:2:2 Y0 U Y1 V (YUYV); a row holds (width + 1) / 2 macropixels.
void convertYuyvToBgra(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* dst,
                       std::size_t dstStride, int width, int height, Turn turn = {});

/// Bi-planar 4:2:0 (NV12, 420f): a luma plane and an interleaved CbCr plane
/// of (width + 1) / 2 pairs by (height + 1) / 2 rows.
void convertNv12ToBgra(const std::uint8_t* luma, std::size_t lumaStride, const std::uint8_t* chroma,
                       std::size_t chromaStride, std::uint8_t* dst, std::size_t dstStride,
                       int width, int height, Turn turn = {});

/// Planar 4:2:0 (I420; YV12 with u and v swapped): Cb and Cr planes of
/// (width + 1) / 2 by (height + 1) / 2 samples.
void convertI420ToBgra(const std::uint8_t* luma, std::size_t lumaStride, const std::uint8_t* u,
                       std::size_t uStride, const std::uint8_t* v, std::size_t vStride,
                       std::uint8_t* dst, std::size_t dstStride, int width, int height,
                       Turn turn = {});

/// BGRA or BGRX to BGRA; opaque sets every alpha to 255 (BGRX padding).
void copyBgra(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* dst,
              std::size_t dstStride, int width, int height, Turn turn = {}, bool opaque = false);

/// YUYV to 420f.
void convertYuyvTo420f(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* luma,
                       std::size_t lumaStride, std::uint8_t* chroma, std::size_t chromaStride,
                       int width, int height, Turn turn = {});

/// I420 to 420f.
void convertI420To420f(const std::uint8_t* srcLuma, std::size_t srcLumaStride,
                       const std::uint8_t* u, std::size_t uStride, const std::uint8_t* v,
                       std::size_t vStride, std::uint8_t* luma, std::size_t lumaStride,
                       std::uint8_t* chroma, std::size_t chromaStride, int width, int height,
                       Turn turn = {});

/// NV12 to 420f: the same layout, turned.
void copyNv12(const std::uint8_t* srcLuma, std::size_t srcLumaStride, const std::uint8_t* srcChroma,
              std::size_t srcChromaStride, std::uint8_t* luma, std::size_t lumaStride,
              std::uint8_t* chroma, std::size_t chromaStride, int width, int height,
              Turn turn = {});

/// BGRA to 420f, BT.601 full range; alpha is ignored.
void convertBgraTo420f(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* luma,
                       std::size_t lumaStride, std::uint8_t* chroma, std::size_t chromaStride,
                       int width, int height, Turn turn = {});

}  // namespace platform
