#include "platform/graphics/Blur.h"

#include "platform/graphics/PixelMath.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

// The loops over whole rows work on bytes (one channel each) so that the
// compiler can vectorise them; pixels are 32-bit words of four channels in
// any order. Reading a word's channels as bytes assumes a little-endian host.
static_assert(std::endian::native == std::endian::little);

namespace platform {
namespace {

constexpr int kPasses = 3;
// Widest box a pass uses on the reduced copy, so its sums fit 16 bits.
constexpr int kMaxBoxRadius = 64;
// Most a copy is reduced, so a block's sums fit 16 bits and the weights of
// scaling back up are multiples of 8 / 256.
constexpr int kMaxFactor = 16;

#if defined(__SSE2__)
inline __m128i load(const void* at) {
    return _mm_loadu_si128(static_cast<const __m128i*>(at));
}

inline void store(void* at, __m128i v) {
    _mm_storeu_si128(static_cast<__m128i*>(at), v);
}
#endif

// One box pass: the 2 * radius + 1 samples around a pixel weigh `inner`
// each, the next one on either side `edge` (a fraction of a sample, so the
// box can have any width), in 0.16 fixed point. Sums are shifted up by
// `shift` bits first, as far as 16 bits allow, so that the 16-bit products
// keep fractional bits.
struct BoxPass {
    int radius = 0;
    std::uint16_t inner = 0;
    std::uint16_t edge = 0;
    int shift = 0;
};

// The box whose variance is `variance` (in squared pixels); nullopt for none.
std::optional<BoxPass> boxWithVariance(double variance) {
    if (!(variance > 0.0)) {
        return std::nullopt;
    }
    // A plain box of radius r has variance r (r + 1) / 3; take the widest
    // one not above the target and make up the rest with the edge weights.
    int r = static_cast<int>(std::floor((std::sqrt(1.0 + 12.0 * variance) - 1.0) / 2.0));
    r = std::clamp(r, 0, kMaxBoxRadius);
    const double squares = r * (r + 1.0) * (2.0 * r + 1.0) / 6.0;
    double fraction = ((2.0 * r + 1.0) * variance - 2.0 * squares) /
                      (2.0 * (r + 1.0) * (r + 1.0) - 2.0 * variance);
    fraction = r == kMaxBoxRadius ? 0.0 : std::clamp(fraction, 0.0, 1.0);
    const double total = 2.0 * r + 1.0 + 2.0 * fraction;
    BoxPass pass;
    pass.radius = r;
    const long edge = std::lround(fraction / total * 65536.0);
    pass.edge = static_cast<std::uint16_t>(std::min(edge, 65535L));
    pass.inner = static_cast<std::uint16_t>(std::min((65536L - 2 * edge) / (2L * r + 1), 65535L));
    pass.shift = 0;
    while ((255L * (2 * r + 1) << (pass.shift + 1)) <= 65535L) {
        ++pass.shift;
    }
    return pass;
}

// The high half of a 16 x 16-bit product.
inline std::uint16_t mulHigh(std::uint16_t a, std::uint16_t b) {
    return static_cast<std::uint16_t>((std::uint32_t{a} * std::uint32_t{b}) >> 16);
}

// A vertical box pass over a width x height image, rows read in order, with
// the top and bottom rows repeated beyond the edges.
void boxColumns(const std::uint32_t* in, std::uint32_t* out, int width, int height,
                const BoxPass& pass, std::vector<std::uint16_t>& sums) {
    const int r = pass.radius;
    const auto row = [&](int y) {
        return reinterpret_cast<const std::uint8_t*>(
            in + static_cast<std::ptrdiff_t>(std::clamp(y, 0, height - 1)) * width);
    };
    const auto channels = static_cast<std::size_t>(width) * 4;
    sums.assign(channels, 0);
    std::uint16_t* sum = sums.data();
    for (int k = -r; k <= r; ++k) {
        const std::uint8_t* bytes = row(k);
        for (std::size_t i = 0; i < channels; ++i) {
            sum[i] = static_cast<std::uint16_t>(sum[i] + bytes[i]);
        }
    }
    const std::uint16_t inner = pass.inner;
    const std::uint16_t edge = pass.edge;
    const int shift = pass.shift;
    const auto half = static_cast<std::uint16_t>((1 << shift) >> 1);
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* before = row(y - r - 1);
        const std::uint8_t* after = row(y + r + 1);
        const std::uint8_t* leaving = row(y - r);
        auto* target =
            reinterpret_cast<std::uint8_t*>(out + static_cast<std::ptrdiff_t>(y) * width);
        std::size_t i = 0;
#if defined(__SSE2__)
        // Compilers do not find the 16-bit high multiply on their own.
        const __m128i zero = _mm_setzero_si128();
        const __m128i innerLanes = _mm_set1_epi16(static_cast<short>(inner));
        const __m128i edgeLanes = _mm_set1_epi16(static_cast<short>(edge));
        const __m128i halfLanes = _mm_set1_epi16(static_cast<short>(half));
        const __m128i count = _mm_cvtsi32_si128(shift);
        for (; i + 16 <= channels; i += 16) {
            const __m128i b = load(before + i);
            const __m128i a = load(after + i);
            const __m128i l = load(leaving + i);
            __m128i halves[2];
            for (int h = 0; h < 2; ++h) {
                const __m128i b16 =
                    h == 0 ? _mm_unpacklo_epi8(b, zero) : _mm_unpackhi_epi8(b, zero);
                const __m128i a16 =
                    h == 0 ? _mm_unpacklo_epi8(a, zero) : _mm_unpackhi_epi8(a, zero);
                const __m128i l16 =
                    h == 0 ? _mm_unpacklo_epi8(l, zero) : _mm_unpackhi_epi8(l, zero);
                std::uint16_t* sumLanes = sum + i + 8 * h;
                const __m128i s16 = load(sumLanes);
                const __m128i weighed = _mm_add_epi16(
                    _mm_add_epi16(
                        _mm_mulhi_epu16(_mm_sll_epi16(s16, count), innerLanes),
                        _mm_mulhi_epu16(_mm_sll_epi16(_mm_add_epi16(b16, a16), count), edgeLanes)),
                    halfLanes);
                halves[h] = _mm_srl_epi16(weighed, count);
                store(sumLanes, _mm_sub_epi16(_mm_add_epi16(s16, a16), l16));
            }
            store(target + i, _mm_packus_epi16(halves[0], halves[1]));
        }
#endif
        for (; i < channels; ++i) {
            const auto inside = static_cast<std::uint16_t>(sum[i] << shift);
            const auto edges = static_cast<std::uint16_t>((before[i] + after[i]) << shift);
            const auto weighed =
                static_cast<std::uint16_t>(mulHigh(inside, inner) + mulHigh(edges, edge) + half);
            target[i] = static_cast<std::uint8_t>(weighed >> shift);
            sum[i] = static_cast<std::uint16_t>(sum[i] + after[i] - leaving[i]);
        }
    }
}

// in is width x height; out becomes height x width.
void transpose(const std::uint32_t* in, std::uint32_t* out, int width, int height) {
    constexpr int kBlock = 32;
    for (int by = 0; by < height; by += kBlock) {
        for (int bx = 0; bx < width; bx += kBlock) {
            const int yEnd = std::min(by + kBlock, height);
            const int xEnd = std::min(bx + kBlock, width);
            for (int y = by; y < yEnd; ++y) {
                for (int x = bx; x < xEnd; ++x) {
                    out[static_cast<std::ptrdiff_t>(x) * height + y] =
                        in[static_cast<std::ptrdiff_t>(y) * width + x];
                }
            }
        }
    }
}

// Block averages: each small pixel is the mean of its factor x factor block
// of the area (fewer at the right and bottom edges).
void reduce(const QImage& image, const QRect& area, int factor, std::uint32_t* small,
            int smallWidth, int smallHeight) {
    const int width = area.width();
    const auto channels = static_cast<std::size_t>(width) * 4;
    // Column sums of up to factor rows, one 16-bit lane a channel: four
    // lanes are one pixel, which a 64-bit word adds all at once.
    std::vector<std::uint16_t> columns(channels);
    const auto pixelSum = [&columns](int x) {
        std::uint64_t lanes = 0;
        std::memcpy(&lanes, columns.data() + static_cast<std::size_t>(x) * 4, sizeof lanes);
        return lanes;
    };
    std::array<const std::uint8_t*, kMaxFactor> lines{};
    for (int sy = 0; sy < smallHeight; ++sy) {
        const int rows = std::min(factor, area.height() - sy * factor);
        for (int r = 0; r < rows; ++r) {
            lines[static_cast<std::size_t>(r)] =
                image.constScanLine(area.y() + sy * factor + r) + std::ptrdiff_t{area.x()} * 4;
        }
        std::uint16_t* sum = columns.data();
        std::size_t i = 0;
#if defined(__SSE2__)
        // All the block's rows at once, so the sums are stored once.
        const __m128i zero = _mm_setzero_si128();
        for (; i + 16 <= channels; i += 16) {
            __m128i low = zero;
            __m128i high = zero;
            for (int r = 0; r < rows; ++r) {
                const __m128i bytes = load(lines[static_cast<std::size_t>(r)] + i);
                low = _mm_add_epi16(low, _mm_unpacklo_epi8(bytes, zero));
                high = _mm_add_epi16(high, _mm_unpackhi_epi8(bytes, zero));
            }
            store(sum + i, low);
            store(sum + i + 8, high);
        }
#endif
        std::fill(sum + i, sum + channels, std::uint16_t{0});
        for (int r = 0; r < rows; ++r) {
            const std::uint8_t* bytes = lines[static_cast<std::size_t>(r)];
            for (std::size_t j = i; j < channels; ++j) {
                sum[j] = static_cast<std::uint16_t>(sum[j] + bytes[j]);
            }
        }
        std::uint32_t* out = small + static_cast<std::ptrdiff_t>(sy) * smallWidth;
        int sx = 0;
#if defined(__SSE2__)
        // Whole blocks two at a time: a vector holds two pixels' sums.
        if (factor > 1 && rows == factor) {
            const int fullBlocks = width / factor;
            const __m128i half = _mm_set1_epi16(static_cast<short>(factor * factor / 2));
            const __m128i shift =
                _mm_cvtsi32_si128(2 * std::countr_zero(static_cast<unsigned>(factor)));
            const auto blockSum = [&](int block) {
                const std::uint16_t* at = sum + static_cast<std::ptrdiff_t>(block) * factor * 4;
                __m128i pairs = load(at);
                for (int j = 8; j < factor * 4; j += 8) {
                    pairs = _mm_add_epi16(pairs, load(at + j));
                }
                return pairs;
            };
            for (; sx + 2 <= fullBlocks; sx += 2) {
                const __m128i a = blockSum(sx);
                const __m128i b = blockSum(sx + 1);
                const __m128i total =
                    _mm_add_epi16(_mm_unpacklo_epi64(a, b), _mm_unpackhi_epi64(a, b));
                const __m128i mean = _mm_srl_epi16(_mm_add_epi16(total, half), shift);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out + sx),
                                 _mm_packus_epi16(mean, mean));
            }
        }
#endif
        for (; sx < smallWidth; ++sx) {
            const int cols = std::min(factor, width - sx * factor);
            std::uint64_t lanes = 0;
            for (int k = 0; k < cols; ++k) {
                lanes += pixelSum(sx * factor + k);
            }
            const auto count = static_cast<std::uint32_t>(rows * cols);
            std::uint32_t pixel = 0;
            if ((count & (count - 1)) == 0) {
                const int shift = std::countr_zero(count);
                lanes = ((lanes + (count >> 1) * 0x0001000100010001ull) >> shift) &
                        0x00FF00FF00FF00FFull;
                pixel = static_cast<std::uint32_t>(lanes & 0xFF) |
                        static_cast<std::uint32_t>((lanes >> 8) & 0xFF00) |
                        static_cast<std::uint32_t>((lanes >> 16) & 0xFF0000) |
                        static_cast<std::uint32_t>((lanes >> 24) & 0xFF000000);
            } else {
                for (int c = 0; c < 4; ++c) {
                    const auto lane = static_cast<std::uint32_t>((lanes >> (16 * c)) & 0xFFFF);
                    pixel |= ((lane + count / 2) / count) << (8 * c);
                }
            }
            out[sx] = pixel;
        }
    }
}

// Where output column x samples a row scaled up factor times, small pixel
// centres on block centres: the small pixel on its left and the weight (of
// 256) of the one after it. With a power-of-two factor the weights are odd
// multiples of 128 / factor.
struct Tap {
    int index;
    unsigned weight;
};

Tap tapFor(int x, int factor, int smallCount) {
    const int twice = 2 * x + 1 - factor;  // 2 * factor * u, u the small coordinate
    if (twice < 0) {
        return {0, 0};
    }
    const int index = twice / (2 * factor);
    if (index >= smallCount - 1) {
        return {smallCount - 1, 0};
    }
    return {index, static_cast<unsigned>((twice % (2 * factor)) * 128 / factor)};
}

// Blends p towards q by weight / 256 (not 0) with halvings, one a bit of the
// weight from the lowest set one up: exact for equal inputs, and one
// instruction a step on vectors. The halvings round up and down in turn, the
// last one up when LastUp, so that their bias mostly cancels, and the two
// passes of scaling up (rows, then columns) take opposite turns.
constexpr bool roundsUp(int bit, bool lastUp) {
    return ((7 - bit) % 2 == 0) == lastUp;
}

template <bool LastUp>
inline std::uint8_t blendByte(std::uint8_t p, std::uint8_t q, unsigned weight) {
    const int first = std::countr_zero(weight);
    unsigned v = (p + q + (roundsUp(first, LastUp) ? 1u : 0u)) >> 1;
    for (int bit = first + 1; bit < 8; ++bit) {
        v = (v + ((weight >> bit) & 1u ? q : p) + (roundsUp(bit, LastUp) ? 1u : 0u)) >> 1;
    }
    return static_cast<std::uint8_t>(v);
}

#if defined(__SSE2__)
// The vector form of blendByte. The instruction only rounds up; a halving
// that rounds down works on complements (~avg(~a, ~b)), so v is kept
// complemented while the turns go down.
template <unsigned Weight, bool LastUp>
inline __m128i blendVector(__m128i p, __m128i q) {
    constexpr int kFirst = std::countr_zero(Weight);
    const __m128i ones = _mm_set1_epi8(-1);
    const __m128i notP = _mm_xor_si128(p, ones);
    const __m128i notQ = _mm_xor_si128(q, ones);
    bool complemented = !roundsUp(kFirst, LastUp);
    __m128i v = complemented ? _mm_avg_epu8(notP, notQ) : _mm_avg_epu8(p, q);
    for (int bit = kFirst + 1; bit < 8; ++bit) {
        const bool takeQ = (Weight >> bit) & 1u;
        const bool up = roundsUp(bit, LastUp);
        if (up == complemented) {
            v = _mm_xor_si128(v, ones);
            complemented = !up;
        }
        v = up ? _mm_avg_epu8(v, takeQ ? q : p) : _mm_avg_epu8(v, takeQ ? notQ : notP);
    }
    return complemented ? _mm_xor_si128(v, ones) : v;
}
#endif

// out = p blended towards q by Weight / 256, over count bytes.
template <unsigned Weight, bool LastUp>
void blendRow(const std::uint8_t* p, const std::uint8_t* q, std::uint8_t* out, std::size_t count) {
    if constexpr (Weight == 0) {
        std::memcpy(out, p, count);
    } else {
        std::size_t i = 0;
#if defined(__SSE2__)
        for (; i + 16 <= count; i += 16) {
            store(out + i, blendVector<Weight, LastUp>(load(p + i), load(q + i)));
        }
#endif
        for (; i < count; ++i) {
            out[i] = blendByte<LastUp>(p[i], q[i], Weight);
        }
    }
}

using BlendRow = void (*)(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::size_t);

template <bool LastUp, std::size_t... Eighths>
constexpr std::array<BlendRow, sizeof...(Eighths)> blendRows(std::index_sequence<Eighths...>) {
    return {&blendRow<static_cast<unsigned>(Eighths * 8), LastUp>...};
}

// blendRow for each weight, by weight / 8: the weights are constants in the
// loops, so each blend compiles to its few halvings. Rows are widened with
// the last halving rounding up, columns blended with it rounding down.
constexpr auto kWidenBlends = blendRows<true>(std::make_index_sequence<32>{});
constexpr auto kRowBlends = blendRows<false>(std::make_index_sequence<32>{});

// One row scaled up Factor times: out has width pixels, small has smallWidth
// and then copies of its last pixel (four at least).
template <int Factor>
void widenRow(const std::uint32_t* small, int smallWidth, std::uint32_t* out, int width) {
    // Left of the first small centre the first pixel repeats; after that,
    // small pixel i and the next one make outputs Factor * i + Factor / 2 + k.
    constexpr int kLead = Factor / 2;
    const int lead = std::min(kLead, width);
    std::fill(out, out + lead, small[0]);
    int i = 0;
#if defined(__SSE2__)
    // Four small pixels at a time, each phase k a vector of four outputs,
    // interleaved back into pixel order.
    constexpr auto weightOf = [](int k) {
        return static_cast<unsigned>((2 * k + 1) * 128 / Factor);
    };
    for (; i + 4 <= smallWidth && Factor * (i + 4) + kLead <= width; i += 4) {
        const __m128i p = load(small + i);
        const __m128i q = load(small + i + 1);
        std::uint32_t* base = out + Factor * i + kLead;
        if constexpr (Factor == 2) {
            const __m128i o0 = blendVector<weightOf(0), true>(p, q);
            const __m128i o1 = blendVector<weightOf(1), true>(p, q);
            store(base, _mm_unpacklo_epi32(o0, o1));
            store(base + 4, _mm_unpackhi_epi32(o0, o1));
        } else {
            [&]<int... Group>(std::integer_sequence<int, Group...>) {
                (
                    [&] {
                        constexpr int k = 4 * Group;
                        const __m128i o0 = blendVector<weightOf(k), true>(p, q);
                        const __m128i o1 = blendVector<weightOf(k + 1), true>(p, q);
                        const __m128i o2 = blendVector<weightOf(k + 2), true>(p, q);
                        const __m128i o3 = blendVector<weightOf(k + 3), true>(p, q);
                        const __m128i t0 = _mm_unpacklo_epi32(o0, o1);
                        const __m128i t1 = _mm_unpacklo_epi32(o2, o3);
                        const __m128i t2 = _mm_unpackhi_epi32(o0, o1);
                        const __m128i t3 = _mm_unpackhi_epi32(o2, o3);
                        store(base + k, _mm_unpacklo_epi64(t0, t1));
                        store(base + Factor + k, _mm_unpackhi_epi64(t0, t1));
                        store(base + 2 * Factor + k, _mm_unpacklo_epi64(t2, t3));
                        store(base + 3 * Factor + k, _mm_unpackhi_epi64(t2, t3));
                    }(),
                    ...);
            }
            (std::make_integer_sequence<int, Factor / 4>{});
        }
    }
#endif
    for (int x = Factor * i + lead; x < width; ++x) {
        const Tap tap = tapFor(x, Factor, smallWidth);
        kWidenBlends[tap.weight / 8](reinterpret_cast<const std::uint8_t*>(small + tap.index),
                                     reinterpret_cast<const std::uint8_t*>(small + tap.index + 1),
                                     reinterpret_cast<std::uint8_t*>(out + x), 4);
    }
}

void widenRow(const std::uint32_t* small, int smallWidth, std::uint32_t* out, int width,
              int factor) {
    switch (factor) {
        case 2:
            widenRow<2>(small, smallWidth, out, width);
            break;
        case 4:
            widenRow<4>(small, smallWidth, out, width);
            break;
        case 8:
            widenRow<8>(small, smallWidth, out, width);
            break;
        case 16:
            widenRow<16>(small, smallWidth, out, width);
            break;
        default:
            std::copy(small, small + width, out);
            break;
    }
}

enum class Layout { None, Argb, Rgba };

Layout layoutOf(QImage::Format format) {
    switch (format) {
        case QImage::Format_RGB32:
        case QImage::Format_ARGB32_Premultiplied:
            return Layout::Argb;
        case QImage::Format_RGBX8888:
        case QImage::Format_RGBA8888_Premultiplied:
            return Layout::Rgba;
        default:
            return Layout::None;
    }
}

// The tint, premultiplied, in the image's word layout.
std::uint32_t packedTint(const QColor& tint, Layout layout) {
    const QRgb argb = qPremultiply(tint.rgba());
    if (layout == Layout::Argb) {
        return argb;
    }
    return (argb & 0xFF00FF00u) | ((argb >> 16) & 0xFFu) | ((argb & 0xFFu) << 16);
}

void blurInPlace(QImage& image, const QRect& area, const BlurStyle& style, Layout layout) {
    const double radius = std::max(0.0, style.radius * style.scale);
    // Reduced so that the box passes stay a few small pixels wide: four
    // times for the usual radius at scale 1, less for small blurs (which
    // would lose their shape), more for large ones.
    const int factor = static_cast<int>(
        std::bit_floor(static_cast<unsigned>(std::clamp(radius / 5.0, 1.0, 1.0 * kMaxFactor))));
    const int width = area.width();
    const int height = area.height();
    const int smallWidth = (width + factor - 1) / factor;
    const int smallHeight = (height + factor - 1) / factor;
    const auto smallCount = static_cast<std::size_t>(smallWidth) * smallHeight;
    // Every element is written before it is read.
    auto small = std::make_unique_for_overwrite<std::uint32_t[]>(smallCount);
    auto scratch = std::make_unique_for_overwrite<std::uint32_t[]>(smallCount);
    reduce(image, area, factor, small.get(), smallWidth, smallHeight);

    // Reducing and scaling back up smooth a little on their own (a block
    // average, then a tent one small pixel wide); the box passes make up the
    // rest of a box blur of the full radius. Horizontal passes run as
    // vertical ones on the transposed copy.
    const double fullVariance = radius * (radius + 1.0) / 3.0;
    const double f2 = static_cast<double>(factor) * factor;
    const double ownVariance = factor > 1 ? (f2 - 1.0) / 12.0 / f2 + 1.0 / 6.0 : 0.0;
    const auto pass = boxWithVariance(std::max(0.0, fullVariance / f2 - ownVariance) / kPasses);
    if (pass) {
        std::vector<std::uint16_t> sums;
        const auto passes = [&](int w, int h) {
            for (int i = 0; i < kPasses; ++i) {
                boxColumns(small.get(), scratch.get(), w, h, *pass, sums);
                std::swap(small, scratch);
            }
        };
        passes(smallWidth, smallHeight);
        transpose(small.get(), scratch.get(), smallWidth, smallHeight);
        std::swap(small, scratch);
        passes(smallHeight, smallWidth);
        transpose(small.get(), scratch.get(), smallHeight, smallWidth);
        std::swap(small, scratch);
    }

    // Tint the small copy: laying a colour over is linear, so it commutes
    // with scaling back up and costs nothing at full size. Opaque formats
    // keep their alpha byte set whatever the rounding.
    const std::uint32_t tint = packedTint(style.tint, layout);
    const std::uint32_t keep = 255u - static_cast<std::uint32_t>(style.tint.alpha());
    const std::uint32_t alphaBits = image.hasAlphaChannel() ? 0u : 0xFF000000u;
    for (std::size_t i = 0; i < smallCount; ++i) {
        small[i] = (pixel::byteMul(small[i], keep) + tint) | alphaBits;
    }

    // Scale back up: each small row is widened once (two kept at a time),
    // then every output row is a blend of two wide rows.
    std::vector<std::uint32_t> padded(static_cast<std::size_t>(smallWidth) + 4);
    std::vector<std::uint32_t> wide[2] = {
        std::vector<std::uint32_t>(static_cast<std::size_t>(width)),
        std::vector<std::uint32_t>(static_cast<std::size_t>(width))};
    int wideRow[2] = {-1, -1};
    const auto widened = [&](int sy) -> const std::uint8_t* {
        const int slot = sy & 1;
        if (wideRow[slot] != sy) {
            const std::uint32_t* row = small.get() + static_cast<std::ptrdiff_t>(sy) * smallWidth;
            std::copy(row, row + smallWidth, padded.begin());
            std::fill(padded.begin() + smallWidth, padded.end(), row[smallWidth - 1]);
            widenRow(padded.data(), smallWidth, wide[slot].data(), width, factor);
            wideRow[slot] = sy;
        }
        return reinterpret_cast<const std::uint8_t*>(wide[slot].data());
    };
    const auto channels = static_cast<std::size_t>(width) * 4;
    for (int y = 0; y < height; ++y) {
        const Tap tap = tapFor(y, factor, smallHeight);
        auto* out = image.scanLine(area.y() + y) + std::ptrdiff_t{area.x()} * 4;
        const std::uint8_t* top = widened(tap.index);
        const std::uint8_t* bottom = tap.weight == 0 ? top : widened(tap.index + 1);
        kRowBlends[tap.weight / 8](top, bottom, out, channels);
    }
}

}  // namespace

void applyDarkBlur(QImage& image, const QRect& region, const BlurStyle& style) {
    const QRect area = region.intersected(image.rect());
    if (image.isNull() || area.isEmpty()) {
        return;
    }
    if (image.depth() < 8 || image.format() == QImage::Format_Indexed8) {
        image.convertTo(QImage::Format_ARGB32_Premultiplied);
    }
    const Layout layout = layoutOf(image.format());
    if (layout != Layout::None) {
        blurInPlace(image, area, style, layout);
        return;
    }
    // Any other format: blur a premultiplied copy of the region and copy it
    // back row by row in the image's own format.
    QImage work = image.copy(area).convertToFormat(QImage::Format_ARGB32_Premultiplied);
    blurInPlace(work, work.rect(), style, Layout::Argb);
    work.convertTo(image.format());
    const qsizetype bytesPerPixel = image.depth() / 8;
    const qsizetype rowBytes = area.width() * bytesPerPixel;
    for (int y = 0; y < area.height(); ++y) {
        std::memcpy(image.scanLine(area.y() + y) + area.x() * bytesPerPixel, work.constScanLine(y),
                    static_cast<std::size_t>(rowBytes));
    }
}

}  // namespace platform
