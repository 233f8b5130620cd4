#include "platform/capture/PixelConversion.h"

#include <algorithm>
#include <cstring>

// The row loops are plain integer arithmetic on independent pixel pairs so the
// compiler vectorises them; target_clones adds an AVX2 version picked at load
// time, as the baseline x86-64 target only has SSE2.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define QXD_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define QXD_VECTOR_CLONES
#endif

namespace platform {
namespace {

constexpr int kShift = 14;
constexpr int kHalf = 1 << (kShift - 1);
constexpr int kRv = 22970;  // 1.402 << 14
constexpr int kGu = 5638;   // 0.344136 << 14
constexpr int kGv = 11700;  // 0.714136 << 14
constexpr int kBu = 29032;  // 1.772 << 14

inline std::uint32_t clampByte(int value) {
    return static_cast<std::uint32_t>(std::clamp(value, 0, 255));
}

inline std::uint32_t bgra(int y, int r, int g, int b) {
    return clampByte(y + b) | (clampByte(y + g) << 8) | (clampByte(y + r) << 16) | 0xFF000000u;
}

// One row: count pixel pairs from separate luma and chroma streams, chroma
// step bytes between pairs (U at u[i * step], V at v[i * step]).
QXD_VECTOR_CLONES
void pairsToBgra(const std::uint8_t* __restrict y0s, const std::uint8_t* __restrict y1s,
                 std::size_t yStep, const std::uint8_t* __restrict us,
                 const std::uint8_t* __restrict vs, std::size_t cStep,
                 std::uint32_t* __restrict out, int count) {
    for (int i = 0; i < count; ++i) {
        const int u = us[i * cStep] - 128;
        const int v = vs[i * cStep] - 128;
        const int r = (kRv * v + kHalf) >> kShift;
        const int g = (-kGu * u - kGv * v + kHalf) >> kShift;
        const int b = (kBu * u + kHalf) >> kShift;
        out[2 * i] = bgra(y0s[i * yStep], r, g, b);
        out[2 * i + 1] = bgra(y1s[i * yStep], r, g, b);
    }
}

std::uint32_t onePixel(int y, int u, int v) {
    u -= 128;
    v -= 128;
    return bgra(y, (kRv * v + kHalf) >> kShift, (-kGu * u - kGv * v + kHalf) >> kShift,
                (kBu * u + kHalf) >> kShift);
}

void store(std::uint8_t* dst, std::uint32_t pixel) {
    std::memcpy(dst, &pixel, sizeof pixel);
}

}  // namespace

void convertYuyvToBgra(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* dst,
                       std::size_t dstStride, int width, int height) {
    const int pairs = width / 2;
    for (int row = 0; row < height; ++row) {
        const std::uint8_t* in = src + row * srcStride;
        std::uint8_t* outBytes = dst + row * dstStride;
        // dst rows of the pools and frames are 4-byte aligned.
        auto* out = reinterpret_cast<std::uint32_t*>(outBytes);
        pairsToBgra(in, in + 2, 4, in + 1, in + 3, 4, out, pairs);
        if (width % 2 != 0) {
            const std::uint8_t* last = in + 4 * pairs;
            store(outBytes + 8 * pairs, onePixel(last[0], last[1], last[3]));
        }
    }
}

void convertNv12ToBgra(const std::uint8_t* luma, std::size_t lumaStride, const std::uint8_t* chroma,
                       std::size_t chromaStride, std::uint8_t* dst, std::size_t dstStride,
                       int width, int height) {
    const int pairs = width / 2;
    for (int row = 0; row < height; ++row) {
        const std::uint8_t* y = luma + row * lumaStride;
        const std::uint8_t* uv = chroma + (row / 2) * chromaStride;
        std::uint8_t* outBytes = dst + row * dstStride;
        auto* out = reinterpret_cast<std::uint32_t*>(outBytes);
        pairsToBgra(y, y + 1, 2, uv, uv + 1, 2, out, pairs);
        if (width % 2 != 0) {
            store(outBytes + 8 * pairs, onePixel(y[2 * pairs], uv[2 * pairs], uv[2 * pairs + 1]));
        }
    }
}

}  // namespace platform
