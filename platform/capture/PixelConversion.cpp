#include "platform/capture/PixelConversion.h"

#include "platform/capture/PixelTurning.h"

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

// Sixteen chroma bytes (eight U,V pairs) for pixels x to x + 15.
struct Nv12Chroma {
    const std::uint8_t* uv;
    __m128i at(int x) const { return load(uv + x); }
};

struct I420Chroma {
    const std::uint8_t* u;
    const std::uint8_t* v;
    __m128i at(int x) const {
        return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(u + x / 2)),
                                 _mm_loadl_epi64(reinterpret_cast<const __m128i*>(v + x / 2)));
    }
};

// Two luma rows share one chroma row, so its terms are computed once for
// both; lumaBelow and outBelow are null for a last, unpaired row.
template <typename Chroma>
int yuv420Blocks(const std::uint8_t* luma, const std::uint8_t* lumaBelow, Chroma chroma,
                 std::uint8_t* out, std::uint8_t* outBelow, int width) {
    const __m128i zero = _mm_setzero_si128();
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i uv = chroma.at(x);
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

// The luma of sixteen YUYV pixels at a time; returns the pixels done.
int yuyvLumaBlocks(const std::uint8_t* in, std::uint8_t* out, int width) {
    const __m128i lowBytes = _mm_set1_epi16(0x00FF);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i a = _mm_and_si128(load(in + 2 * x), lowBytes);
        const __m128i b = _mm_and_si128(load(in + 2 * x + 16), lowBytes);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), _mm_packus_epi16(a, b));
    }
    return x;
}

// Eight chroma pairs at a time, the average of two YUYV rows; returns the
// pairs done.
int yuyvChromaBlocks(const std::uint8_t* above, const std::uint8_t* below, std::uint8_t* out,
                     int pairs) {
    int p = 0;
    for (; p + 8 <= pairs; p += 8) {
        const __m128i a0 = _mm_srli_epi16(load(above + 4 * p), 8);
        const __m128i a1 = _mm_srli_epi16(load(above + 4 * p + 16), 8);
        const __m128i b0 = _mm_srli_epi16(load(below + 4 * p), 8);
        const __m128i b1 = _mm_srli_epi16(load(below + 4 * p + 16), 8);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * p),
                         _mm_packus_epi16(_mm_avg_epu16(a0, b0), _mm_avg_epu16(a1, b1)));
    }
    return p;
}

// Sixteen U and V samples into sixteen pairs at a time; returns the pairs done.
int interleaveBlocks(const std::uint8_t* u, const std::uint8_t* v, std::uint8_t* out, int pairs) {
    int p = 0;
    for (; p + 16 <= pairs; p += 16) {
        const __m128i us = load(u + p);
        const __m128i vs = load(v + p);
        auto* dst = reinterpret_cast<__m128i*>(out + 2 * p);
        _mm_storeu_si128(dst, _mm_unpacklo_epi8(us, vs));
        _mm_storeu_si128(dst + 1, _mm_unpackhi_epi8(us, vs));
    }
    return p;
}

// Four BGRA pixels at a time, alpha set; returns the pixels done.
int opaqueBlocks(const std::uint8_t* in, std::uint8_t* out, int width) {
    const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * x),
                         _mm_or_si128(load(in + 4 * x), alpha));
    }
    return x;
}

#else

int yuyvBlocks(const std::uint8_t*, std::uint8_t*, int) {
    return 0;
}

struct Nv12Chroma {
    const std::uint8_t* uv;
};

struct I420Chroma {
    const std::uint8_t* u;
    const std::uint8_t* v;
};

template <typename Chroma>
int yuv420Blocks(const std::uint8_t*, const std::uint8_t*, Chroma, std::uint8_t*, std::uint8_t*,
                 int) {
    return 0;
}

int yuyvLumaBlocks(const std::uint8_t*, std::uint8_t*, int) {
    return 0;
}

int yuyvChromaBlocks(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, int) {
    return 0;
}

int interleaveBlocks(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, int) {
    return 0;
}

int opaqueBlocks(const std::uint8_t*, std::uint8_t*, int) {
    return 0;
}

#endif

struct ChromaPair {
    int u, v;
};

inline ChromaPair chromaOf(const Nv12Chroma& c, int pair) {
    return {c.uv[2 * pair], c.uv[2 * pair + 1]};
}

inline ChromaPair chromaOf(const I420Chroma& c, int pair) {
    return {c.u[pair], c.v[pair]};
}

void yuyvRow(const std::uint8_t* in, std::uint8_t* out, int width) {
    const int done = yuyvBlocks(in, out, width);
    scalarTail(
        done, width, out, [in](int x) { return in[2 * x]; },
        [in](int pair) {
            return ChromaPair{in[4 * pair + 1], in[4 * pair + 3]};
        });
}

// One or two luma rows over one chroma row; lumaBelow/outBelow null for one.
template <typename Chroma>
void yuv420Rows(const std::uint8_t* y, const std::uint8_t* yBelow, Chroma chroma, std::uint8_t* out,
                std::uint8_t* outBelow, int width) {
    const int done = yuv420Blocks(y, yBelow, chroma, out, outBelow, width);
    const auto chromaAt = [&chroma](int pair) { return chromaOf(chroma, pair); };
    scalarTail(
        done, width, out, [y](int x) { return y[x]; }, chromaAt);
    if (yBelow != nullptr) {
        scalarTail(
            done, width, outBelow, [yBelow](int x) { return yBelow[x]; }, chromaAt);
    }
}

// Source rows of a 4:2:0 frame in bands: the chroma of luma rows y and y + 1
// is chromaFor(y / 2, x) for columns from x (even).
template <typename ChromaFor>
auto yuv420Producer(const std::uint8_t* luma, std::size_t lumaStride, int height,
                    ChromaFor chromaFor) {
    return [=](int y, int rows, int x, int columns, std::uint8_t* out, std::ptrdiff_t outStride) {
        for (int i = 0; i < rows; i += 2) {
            const int row = y + i;
            const bool paired = row + 1 < height && i + 1 < rows;
            const std::uint8_t* above = luma + row * lumaStride + x;
            std::uint8_t* outAbove = out + i * outStride;
            yuv420Rows(above, paired ? above + lumaStride : nullptr, chromaFor(row / 2, x),
                       outAbove, paired ? outAbove + outStride : nullptr, columns);
        }
    };
}

// A plane copied as it is, Bytes bytes an element.
template <int Bytes>
auto copyProducer(const std::uint8_t* src, std::size_t srcStride) {
    return [=](int y, int rows, int x, int columns, std::uint8_t* out, std::ptrdiff_t outStride) {
        const std::uint8_t* in = src + y * srcStride + Bytes * x;
        if (outStride == static_cast<std::ptrdiff_t>(srcStride)) {
            // Same layout: the band in one go, padding and all.
            std::memcpy(out, in,
                        (rows - 1) * srcStride + static_cast<std::size_t>(Bytes) * columns);
            return;
        }
        for (int i = 0; i < rows; ++i) {
            std::memcpy(out + i * outStride, in + i * srcStride,
                        static_cast<std::size_t>(Bytes) * columns);
        }
    };
}

inline std::uint8_t lumaOf(const std::uint8_t* bgra) {
    return static_cast<std::uint8_t>((29 * bgra[0] + 150 * bgra[1] + 77 * bgra[2] + 128) >> 8);
}

}  // namespace

using pixel_turning::writeTurned;

void convertYuyvToBgra(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* dst,
                       std::size_t dstStride, int width, int height, Turn turn) {
    writeTurned<4>(
        [=](int y, int rows, int x, int columns, std::uint8_t* out, std::ptrdiff_t outStride) {
            for (int i = 0; i < rows; ++i) {
                yuyvRow(src + (y + i) * srcStride + 2 * x, out + i * outStride, columns);
            }
        },
        dst, dstStride, width, height, turn);
}

void convertNv12ToBgra(const std::uint8_t* luma, std::size_t lumaStride, const std::uint8_t* chroma,
                       std::size_t chromaStride, std::uint8_t* dst, std::size_t dstStride,
                       int width, int height, Turn turn) {
    writeTurned<4>(yuv420Producer(luma, lumaStride, height,
                                  [=](int chromaRow, int x) {
                                      return Nv12Chroma{chroma + chromaRow * chromaStride + x};
                                  }),
                   dst, dstStride, width, height, turn);
}

void convertI420ToBgra(const std::uint8_t* luma, std::size_t lumaStride, const std::uint8_t* u,
                       std::size_t uStride, const std::uint8_t* v, std::size_t vStride,
                       std::uint8_t* dst, std::size_t dstStride, int width, int height, Turn turn) {
    writeTurned<4>(
        yuv420Producer(
            luma, lumaStride, height,
            [=](int chromaRow, int x) {
                return I420Chroma{u + chromaRow * uStride + x / 2, v + chromaRow * vStride + x / 2};
            }),
        dst, dstStride, width, height, turn);
}

void copyBgra(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* dst,
              std::size_t dstStride, int width, int height, Turn turn, bool opaque) {
    if (!opaque) {
        writeTurned<4>(copyProducer<4>(src, srcStride), dst, dstStride, width, height, turn);
        return;
    }
    writeTurned<4>(
        [=](int y, int rows, int x, int columns, std::uint8_t* out, std::ptrdiff_t outStride) {
            for (int i = 0; i < rows; ++i) {
                const std::uint8_t* in = src + (y + i) * srcStride + 4 * x;
                std::uint8_t* row = out + i * outStride;
                for (int c = opaqueBlocks(in, row, columns); c < columns; ++c) {
                    std::memcpy(row + 4 * c, in + 4 * c, 3);
                    row[4 * c + 3] = 255;
                }
            }
        },
        dst, dstStride, width, height, turn);
}

void convertYuyvTo420f(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* luma,
                       std::size_t lumaStride, std::uint8_t* chroma, std::size_t chromaStride,
                       int width, int height, Turn turn) {
    writeTurned<1>(
        [=](int y, int rows, int x, int columns, std::uint8_t* out, std::ptrdiff_t outStride) {
            for (int i = 0; i < rows; ++i) {
                const std::uint8_t* in = src + (y + i) * srcStride + 2 * x;
                std::uint8_t* row = out + i * outStride;
                for (int c = yuyvLumaBlocks(in, row, columns); c < columns; ++c) {
                    row[c] = in[2 * c];
                }
            }
        },
        luma, lumaStride, width, height, turn);
    writeTurned<2>(
        [=](int y, int rows, int x, int pairs, std::uint8_t* out, std::ptrdiff_t outStride) {
            for (int i = 0; i < rows; ++i) {
                const std::uint8_t* above = src + 2 * (y + i) * srcStride + 4 * x;
                const std::uint8_t* below = above + srcStride;
                std::uint8_t* row = out + i * outStride;
                for (int p = yuyvChromaBlocks(above, below, row, pairs); p < pairs; ++p) {
                    row[2 * p] =
                        static_cast<std::uint8_t>((above[4 * p + 1] + below[4 * p + 1] + 1) / 2);
                    row[2 * p + 1] =
                        static_cast<std::uint8_t>((above[4 * p + 3] + below[4 * p + 3] + 1) / 2);
                }
            }
        },
        chroma, chromaStride, width / 2, height / 2, turn);
}

void convertI420To420f(const std::uint8_t* srcLuma, std::size_t srcLumaStride,
                       const std::uint8_t* u, std::size_t uStride, const std::uint8_t* v,
                       std::size_t vStride, std::uint8_t* luma, std::size_t lumaStride,
                       std::uint8_t* chroma, std::size_t chromaStride, int width, int height,
                       Turn turn) {
    writeTurned<1>(copyProducer<1>(srcLuma, srcLumaStride), luma, lumaStride, width, height, turn);
    writeTurned<2>(
        [=](int y, int rows, int x, int pairs, std::uint8_t* out, std::ptrdiff_t outStride) {
            for (int i = 0; i < rows; ++i) {
                const std::uint8_t* us = u + (y + i) * uStride + x;
                const std::uint8_t* vs = v + (y + i) * vStride + x;
                std::uint8_t* row = out + i * outStride;
                for (int p = interleaveBlocks(us, vs, row, pairs); p < pairs; ++p) {
                    row[2 * p] = us[p];
                    row[2 * p + 1] = vs[p];
                }
            }
        },
        chroma, chromaStride, width / 2, height / 2, turn);
}

void copyNv12(const std::uint8_t* srcLuma, std::size_t srcLumaStride, const std::uint8_t* srcChroma,
              std::size_t srcChromaStride, std::uint8_t* luma, std::size_t lumaStride,
              std::uint8_t* chroma, std::size_t chromaStride, int width, int height, Turn turn) {
    writeTurned<1>(copyProducer<1>(srcLuma, srcLumaStride), luma, lumaStride, width, height, turn);
    writeTurned<2>(copyProducer<2>(srcChroma, srcChromaStride), chroma, chromaStride, width / 2,
                   height / 2, turn);
}

void convertBgraTo420f(const std::uint8_t* src, std::size_t srcStride, std::uint8_t* luma,
                       std::size_t lumaStride, std::uint8_t* chroma, std::size_t chromaStride,
                       int width, int height, Turn turn) {
    writeTurned<1>(
        [=](int y, int rows, int x, int columns, std::uint8_t* out, std::ptrdiff_t outStride) {
            for (int i = 0; i < rows; ++i) {
                const std::uint8_t* in = src + (y + i) * srcStride + 4 * x;
                for (int c = 0; c < columns; ++c) {
                    out[i * outStride + c] = lumaOf(in + 4 * c);
                }
            }
        },
        luma, lumaStride, width, height, turn);
    writeTurned<2>(
        [=](int y, int rows, int x, int pairs, std::uint8_t* out, std::ptrdiff_t outStride) {
            for (int i = 0; i < rows; ++i) {
                const std::uint8_t* above = src + 2 * (y + i) * srcStride + 8 * x;
                const std::uint8_t* below = above + srcStride;
                std::uint8_t* row = out + i * outStride;
                for (int p = 0; p < pairs; ++p) {
                    int sum[3] = {0, 0, 0};
                    for (const std::uint8_t* px :
                         {above + 8 * p, above + 8 * p + 4, below + 8 * p, below + 8 * p + 4}) {
                        for (int k = 0; k < 3; ++k) {
                            sum[k] += px[k];
                        }
                    }
                    const int b = sum[0], g = sum[1], r = sum[2];  // four pixels' worth
                    const auto clamp = [](int value) {
                        return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
                    };
                    row[2 * p] = clamp(((-43 * r - 85 * g + 128 * b + 512) >> 10) + 128);
                    row[2 * p + 1] = clamp(((128 * r - 107 * g - 21 * b + 512) >> 10) + 128);
                }
            }
        },
        chroma, chromaStride, width / 2, height / 2, turn);
}

}  // namespace platform
