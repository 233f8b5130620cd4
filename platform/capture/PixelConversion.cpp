#include "platform/capture/PixelConversion.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#define QXD_HAVE_SSE2 1
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

inline std::uint32_t onePixel(int y, int u, int v) {
    u -= 128;
    v -= 128;
    const int r = (kRv * v + kHalf) >> kShift;
    const int g = (-kGu * u - kGv * v + kHalf) >> kShift;
    const int b = (kBu * u + kHalf) >> kShift;
    return clampByte(y + b) | (clampByte(y + g) << 8) | (clampByte(y + r) << 16) | 0xFF000000u;
}

inline void store(std::uint8_t* dst, std::uint32_t pixel) {
    std::memcpy(dst, &pixel, sizeof pixel);
}

// Pixels [from, width) of one row, one at a time; lumaAt(x) and the chroma
// pair of x's macropixel come from the callbacks.
template <typename Luma, typename Chroma>
void scalarTail(int from, int width, std::uint8_t* out, Luma lumaAt, Chroma chromaAt) {
    for (int x = from; x < width; ++x) {
        const auto [u, v] = chromaAt(x / 2);
        store(out + 4 * x, onePixel(lumaAt(x), u, v));
    }
}

#if QXD_HAVE_SSE2

// Sixteen pixels at a time in 16-bit lanes. The chroma terms are computed with
// the same 14-bit products as onePixel (pmaddwd on interleaved U,V pairs), and
// the final clamp is the saturating pack, so the result is bit-identical to
// the scalar path.
struct ChromaTerms {
    __m128i r, g, b;  // eight chroma pairs each, int16
};

inline __m128i chromaTerm(__m128i uvLow, __m128i uvHigh, __m128i coefficients) {
    const __m128i half = _mm_set1_epi32(kHalf);
    const __m128i low =
        _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(uvLow, coefficients), half), kShift);
    const __m128i high =
        _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(uvHigh, coefficients), half), kShift);
    return _mm_packs_epi32(low, high);
}

// uvLow and uvHigh hold four (U, V) pairs each as unsigned 16-bit values.
inline ChromaTerms chromaTerms(__m128i uvLow, __m128i uvHigh) {
    const __m128i bias = _mm_set1_epi16(128);
    uvLow = _mm_sub_epi16(uvLow, bias);
    uvHigh = _mm_sub_epi16(uvHigh, bias);
    const __m128i rCoefficients = _mm_set1_epi32(kRv << 16);
    const __m128i gCoefficients = _mm_set1_epi32(static_cast<int>(
        (static_cast<unsigned>(-kGv) << 16) | (static_cast<unsigned>(-kGu) & 0xFFFFu)));
    const __m128i bCoefficients = _mm_set1_epi32(kBu);
    return {chromaTerm(uvLow, uvHigh, rCoefficients), chromaTerm(uvLow, uvHigh, gCoefficients),
            chromaTerm(uvLow, uvHigh, bCoefficients)};
}

// One channel of sixteen pixels: each chroma term serves two luma samples.
inline __m128i channel(__m128i lumaLow, __m128i lumaHigh, __m128i term) {
    const __m128i low = _mm_add_epi16(lumaLow, _mm_unpacklo_epi16(term, term));
    const __m128i high = _mm_add_epi16(lumaHigh, _mm_unpackhi_epi16(term, term));
    return _mm_packus_epi16(low, high);
}

inline void storePixels(__m128i r, __m128i g, __m128i b, std::uint8_t* out) {
    const __m128i opaque = _mm_set1_epi8(static_cast<char>(0xFF));
    const __m128i bgLow = _mm_unpacklo_epi8(b, g);
    const __m128i bgHigh = _mm_unpackhi_epi8(b, g);
    const __m128i raLow = _mm_unpacklo_epi8(r, opaque);
    const __m128i raHigh = _mm_unpackhi_epi8(r, opaque);
    auto* dst = reinterpret_cast<__m128i*>(out);
    _mm_storeu_si128(dst, _mm_unpacklo_epi16(bgLow, raLow));
    _mm_storeu_si128(dst + 1, _mm_unpackhi_epi16(bgLow, raLow));
    _mm_storeu_si128(dst + 2, _mm_unpacklo_epi16(bgHigh, raHigh));
    _mm_storeu_si128(dst + 3, _mm_unpackhi_epi16(bgHigh, raHigh));
}

// lumaLow/lumaHigh: pixels 0-7 and 8-15 as 16-bit values.
inline void sixteenPixels(__m128i lumaLow, __m128i lumaHigh, const ChromaTerms& terms,
                          std::uint8_t* out) {
    storePixels(channel(lumaLow, lumaHigh, terms.r), channel(lumaLow, lumaHigh, terms.g),
                channel(lumaLow, lumaHigh, terms.b), out);
}

inline __m128i load(const std::uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// Returns the number of pixels converted (a multiple of 16).
int yuyvBlocks(const std::uint8_t* in, std::uint8_t* out, int width) {
    const __m128i lowBytes = _mm_set1_epi16(0x00FF);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i first = load(in + 2 * x);
        const __m128i second = load(in + 2 * x + 16);
        sixteenPixels(_mm_and_si128(first, lowBytes), _mm_and_si128(second, lowBytes),
                      chromaTerms(_mm_srli_epi16(first, 8), _mm_srli_epi16(second, 8)),
                      out + 4 * x);
    }
    return x;
}

// Two luma rows share one chroma row, so its terms are computed once for
// both; lumaBelow and outBelow are null for a last, unpaired row.
int nv12Blocks(const std::uint8_t* luma, const std::uint8_t* lumaBelow, const std::uint8_t* chroma,
               std::uint8_t* out, std::uint8_t* outBelow, int width) {
    const __m128i zero = _mm_setzero_si128();
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i uv = load(chroma + x);
        const ChromaTerms terms =
            chromaTerms(_mm_unpacklo_epi8(uv, zero), _mm_unpackhi_epi8(uv, zero));
        const __m128i y = load(luma + x);
        sixteenPixels(_mm_unpacklo_epi8(y, zero), _mm_unpackhi_epi8(y, zero), terms, out + 4 * x);
        if (lumaBelow != nullptr) {
            const __m128i below = load(lumaBelow + x);
            sixteenPixels(_mm_unpacklo_epi8(below, zero), _mm_unpackhi_epi8(below, zero), terms,
                          outBelow + 4 * x);
        }
    }
    return x;
}

#else

int yuyvBlocks(const std::uint8_t*, std::uint8_t*, int) {
    return 0;
}

int nv12Blocks(const std::uint8_t*, const std::uint8_t*, const std::uint8_t*, std::uint8_t*,
               std::uint8_t*, int) {
    return 0;
}

#endif

struct ChromaPair {
    int u, v;
};

}  // namespace

void convertYuyvToBgra(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* dst,
                       std::size_t dstStride, int width, int height) {
    for (int row = 0; row < height; ++row) {
        const std::uint8_t* in = src + row * srcStride;
        std::uint8_t* out = dst + row * dstStride;
        const int done = yuyvBlocks(in, out, width);
        scalarTail(
            done, width, out, [in](int x) { return in[2 * x]; },
            [in](int pair) {
                return ChromaPair{in[4 * pair + 1], in[4 * pair + 3]};
            });
    }
}

void convertNv12ToBgra(const std::uint8_t* luma, std::size_t lumaStride, const std::uint8_t* chroma,
                       std::size_t chromaStride, std::uint8_t* dst, std::size_t dstStride,
                       int width, int height) {
    for (int row = 0; row < height; row += 2) {
        const bool paired = row + 1 < height;
        const std::uint8_t* y = luma + row * lumaStride;
        const std::uint8_t* yBelow = paired ? y + lumaStride : nullptr;
        const std::uint8_t* uv = chroma + (row / 2) * chromaStride;
        std::uint8_t* out = dst + row * dstStride;
        std::uint8_t* outBelow = paired ? out + dstStride : nullptr;
        const int done = nv12Blocks(y, yBelow, uv, out, outBelow, width);
        const auto chromaAt = [uv](int pair) { return ChromaPair{uv[2 * pair], uv[2 * pair + 1]}; };
        scalarTail(
            done, width, out, [y](int x) { return y[x]; }, chromaAt);
        if (paired) {
            scalarTail(
                done, width, outBelow, [yBelow](int x) { return yBelow[x]; }, chromaAt);
        }
    }
}

}  // namespace platform
