// SSE2 and SSSE3 rows. Each function carries its own target attribute, so this file builds for the
// baseline x86-64 and the SSSE3 rows run only where the dispatcher found SSSE3.
//
// The arithmetic is exact, not approximated:
// - Y: the weighted sum 77 R + 150 G + 29 B needs 16 unsigned bits. SSE2 forms it in 32-bit lanes
//   with pmaddwd. SSSE3 uses pmaddubsw with the weights as the unsigned operand and the pixel bytes
//   biased by -128 (x ^ 0x80) as the signed one: the two partial sums per pixel then stay within
//   int16 and add up to sum - 32768, whose high byte is (sum >> 8) ^ 0x80.
// - Cb, Cr: pmaddwd on the (R, B) and (G, A) 16-bit lanes of the even pixels gives the exact
//   32-bit sums, arithmetically shifted by 8.
// - RGB565: for a centred chroma value c in [-128, 127], c << 8 fits int16 and pmulhw by k gives
//   floor(k c / 256) exactly (R and B offsets); the G offset needs the exact sum 88 U + 183 V and
//   comes from pmaddwd. Clamping to [0, 255] is packuswb's saturation.
#if defined(__x86_64__) || defined(__i386__)

#include <emmintrin.h>
#include <tmmintrin.h>
#include <xmmintrin.h>

#include "surface/kernels/RowFunctions.h"

#define NUVRA_SSE2 __attribute__((target("sse2")))
#define NUVRA_SSSE3 __attribute__((target("ssse3")))

namespace nuvra::kernels::detail {
namespace {

enum class Chroma { VU, UV, Planar };

// A 32-bit lane holding the 16-bit values lo (low half) and hi (high half).
NUVRA_SSE2 inline __m128i pair16(int16_t lo, int16_t hi) {
    return _mm_set1_epi32(static_cast<int>(
            static_cast<uint16_t>(lo) | (static_cast<uint32_t>(static_cast<uint16_t>(hi)) << 16)));
}

// Pixels 0 and 2 of a and of b: [a0, a2, b0, b2].
NUVRA_SSE2 inline __m128i evenPixels(__m128i a, __m128i b) {
    return _mm_castps_si128(
            _mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), _MM_SHUFFLE(2, 0, 2, 0)));
}

// Y of 4 pixels in 32-bit lanes (SSE2).
NUVRA_SSE2 inline __m128i yOf4_SSE2(__m128i px) {
    const __m128i rb = _mm_and_si128(px, _mm_set1_epi16(0x00FF));
    const __m128i ga = _mm_srli_epi16(px, 8);
    const __m128i sum =
            _mm_add_epi32(_mm_madd_epi16(rb, pair16(77, 29)), _mm_madd_epi16(ga, pair16(150, 0)));
    return _mm_srli_epi32(sum, 8);
}

// Y of 16 pixels (SSE2).
NUVRA_SSE2 inline __m128i yOf16_SSE2(__m128i p0, __m128i p1, __m128i p2, __m128i p3) {
    const __m128i y01 = _mm_packs_epi32(yOf4_SSE2(p0), yOf4_SSE2(p1));
    const __m128i y23 = _mm_packs_epi32(yOf4_SSE2(p2), yOf4_SSE2(p3));
    return _mm_packus_epi16(y01, y23);
}

// Y of 16 pixels (SSSE3, see the file comment).
NUVRA_SSSE3 inline __m128i yOf16_SSSE3(__m128i p0, __m128i p1, __m128i p2, __m128i p3) {
    const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
    const __m128i weights = _mm_set1_epi32(77 | (150 << 8) | (29 << 16));
    const __m128i s0 = _mm_maddubs_epi16(weights, _mm_xor_si128(p0, bias));
    const __m128i s1 = _mm_maddubs_epi16(weights, _mm_xor_si128(p1, bias));
    const __m128i s2 = _mm_maddubs_epi16(weights, _mm_xor_si128(p2, bias));
    const __m128i s3 = _mm_maddubs_epi16(weights, _mm_xor_si128(p3, bias));
    const __m128i y01 = _mm_srli_epi16(_mm_hadd_epi16(s0, s1), 8);
    const __m128i y23 = _mm_srli_epi16(_mm_hadd_epi16(s2, s3), 8);
    return _mm_xor_si128(_mm_packus_epi16(y01, y23), bias);
}

// Cb and Cr of 4 pixels before the + 128 (the sums shifted by 8), in 32-bit lanes.
NUVRA_SSE2 inline void chromaOf4(__m128i px, __m128i* cb, __m128i* cr) {
    const __m128i rb = _mm_and_si128(px, _mm_set1_epi16(0x00FF));
    const __m128i ga = _mm_srli_epi16(px, 8);
    *cb = _mm_srai_epi32(
            _mm_add_epi32(_mm_madd_epi16(rb, pair16(-43, 128)), _mm_madd_epi16(ga, pair16(-85, 0))),
            8);
    *cr = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(rb, pair16(128, -21)),
                                       _mm_madd_epi16(ga, pair16(-107, 0))),
                         8);
}

// The chroma of the 8 even pixels among p0..p3 (16 pixels), stored by layout: 16 interleaved
// bytes at c0, or 8 Cr bytes at c0 and 8 Cb bytes at c1.
template <Chroma kLayout>
NUVRA_SSE2 inline void storeChromaOf16(__m128i p0, __m128i p1, __m128i p2, __m128i p3, uint8_t* c0,
                                       uint8_t* c1) {
    __m128i cbA, crA, cbB, crB;
    chromaOf4(evenPixels(p0, p1), &cbA, &crA);
    chromaOf4(evenPixels(p2, p3), &cbB, &crB);
    const __m128i cb = _mm_packs_epi32(cbA, cbB);
    const __m128i cr = _mm_packs_epi32(crA, crB);
    const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
    if constexpr (kLayout == Chroma::Planar) {
        const __m128i both = _mm_xor_si128(_mm_packs_epi16(cr, cb), bias);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(c0), both);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(c1), _mm_srli_si128(both, 8));
    } else {
        const __m128i first = kLayout == Chroma::VU ? cr : cb;
        const __m128i second = kLayout == Chroma::VU ? cb : cr;
        const __m128i lo = _mm_unpacklo_epi16(first, second);
        const __m128i hi = _mm_unpackhi_epi16(first, second);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(c0),
                         _mm_xor_si128(_mm_packs_epi16(lo, hi), bias));
    }
}

// The scalar rest of an even row from pixel x (even) on.
template <Chroma kLayout>
inline void chromaRowTail(const uint8_t* rgba, uint8_t* y, uint8_t* c0, uint8_t* c1, size_t x,
                          size_t width) {
    if (x >= width) return;
    if constexpr (kLayout == Chroma::VU) {
        RgbaToYuvRow_C(rgba + 4 * x, y + x, c0 + x, c0 + x + 1, 2, width - x);
    } else if constexpr (kLayout == Chroma::UV) {
        RgbaToYuvRow_C(rgba + 4 * x, y + x, c0 + x + 1, c0 + x, 2, width - x);
    } else {
        RgbaToYuvRow_C(rgba + 4 * x, y + x, c0 + x / 2, c1 + x / 2, 1, width - x);
    }
}

// Where the chroma of 16-pixel block x goes.
template <Chroma kLayout>
inline size_t chromaOffset(size_t x) {
    return kLayout == Chroma::Planar ? x / 2 : x;
}

// 16 RGBA pixels, 4 in each register; named registers rather than an array, which the compiler
// would spill.
struct Pixels16 {
    __m128i p0, p1, p2, p3;
};

NUVRA_SSE2 inline Pixels16 load16(const uint8_t* rgba) {
    const __m128i* src = reinterpret_cast<const __m128i*>(rgba);
    return {_mm_loadu_si128(src), _mm_loadu_si128(src + 1), _mm_loadu_si128(src + 2),
            _mm_loadu_si128(src + 3)};
}

NUVRA_SSE2 void rgbaToYRow_SSE2(const uint8_t* rgba, uint8_t* y, size_t width) {
    size_t x = 0;
    for (; x + 16 <= width; x += 16) {
        const Pixels16 p = load16(rgba + 4 * x);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(y + x), yOf16_SSE2(p.p0, p.p1, p.p2, p.p3));
    }
    RgbaToYRow_C(rgba + 4 * x, y + x, width - x);
}

template <Chroma kLayout>
NUVRA_SSE2 void rgbaToYuvRow_SSE2(const uint8_t* rgba, uint8_t* y, uint8_t* c0, uint8_t* c1,
                                  size_t width) {
    size_t x = 0;
    for (; x + 16 <= width; x += 16) {
        const Pixels16 p = load16(rgba + 4 * x);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(y + x), yOf16_SSE2(p.p0, p.p1, p.p2, p.p3));
        const size_t at = chromaOffset<kLayout>(x);
        storeChromaOf16<kLayout>(p.p0, p.p1, p.p2, p.p3, c0 + at, c1 + at);
    }
    chromaRowTail<kLayout>(rgba, y, c0, c1, x, width);
}

NUVRA_SSSE3 void rgbaToYRow_SSSE3(const uint8_t* rgba, uint8_t* y, size_t width) {
    size_t x = 0;
    for (; x + 16 <= width; x += 16) {
        const Pixels16 p = load16(rgba + 4 * x);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(y + x), yOf16_SSSE3(p.p0, p.p1, p.p2, p.p3));
    }
    RgbaToYRow_C(rgba + 4 * x, y + x, width - x);
}

template <Chroma kLayout>
NUVRA_SSSE3 void rgbaToYuvRow_SSSE3(const uint8_t* rgba, uint8_t* y, uint8_t* c0, uint8_t* c1,
                                    size_t width) {
    size_t x = 0;
    for (; x + 16 <= width; x += 16) {
        const Pixels16 p = load16(rgba + 4 * x);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(y + x), yOf16_SSSE3(p.p0, p.p1, p.p2, p.p3));
        const size_t at = chromaOffset<kLayout>(x);
        storeChromaOf16<kLayout>(p.p0, p.p1, p.p2, p.p3, c0 + at, c1 + at);
    }
    chromaRowTail<kLayout>(rgba, y, c0, c1, x, width);
}

// The R, G and B offsets of 8 pixels, one per pixel: r = [R0, R0, R1, R1, ...] for the 4 chroma
// pairs that the pixels share, and so on.
struct Offsets8 {
    __m128i r, g, b;
};

// The offsets of 4 chroma pairs, from the centred pairs [V0, U0, V1, U1, ...] of vu16:
// rb = [R0, B0, R1, B1, ...], and G in the low half of each 32-bit lane of g.
NUVRA_SSE2 inline void pairOffsets(__m128i vu16, __m128i* rb, __m128i* g) {
    *rb = _mm_mulhi_epi16(_mm_slli_epi16(vu16, 8), pair16(359, 454));
    *g = _mm_srai_epi32(_mm_madd_epi16(vu16, pair16(183, 88)), 8);
}

NUVRA_SSE2 inline Offsets8 offsets8_SSE2(__m128i vu16) {
    __m128i rb, g;
    pairOffsets(vu16, &rb, &g);
    constexpr int kLowDup = _MM_SHUFFLE(2, 2, 0, 0);
    constexpr int kHighDup = _MM_SHUFFLE(3, 3, 1, 1);
    return {_mm_shufflehi_epi16(_mm_shufflelo_epi16(rb, kLowDup), kLowDup),
            _mm_shufflehi_epi16(_mm_shufflelo_epi16(g, kLowDup), kLowDup),
            _mm_shufflehi_epi16(_mm_shufflelo_epi16(rb, kHighDup), kHighDup)};
}

NUVRA_SSSE3 inline Offsets8 offsets8_SSSE3(__m128i vu16) {
    __m128i rb, g;
    pairOffsets(vu16, &rb, &g);
    const __m128i dupEven = _mm_setr_epi8(0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13);
    const __m128i dupOdd = _mm_setr_epi8(2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15);
    return {_mm_shuffle_epi8(rb, dupEven), _mm_shuffle_epi8(g, dupEven),
            _mm_shuffle_epi8(rb, dupOdd)};
}

// Packs clamped R, G, B bytes of 16 pixels into RGB565 and stores the 32 bytes.
NUVRA_SSE2 inline void storeRgb565Of16(__m128i r, __m128i g, __m128i b, uint8_t* dst) {
    const __m128i low = _mm_or_si128(
            _mm_and_si128(_mm_slli_epi16(g, 3), _mm_set1_epi8(static_cast<char>(0xE0))),
            _mm_and_si128(_mm_srli_epi16(b, 3), _mm_set1_epi8(0x1F)));
    const __m128i high = _mm_or_si128(_mm_and_si128(r, _mm_set1_epi8(static_cast<char>(0xF8))),
                                      _mm_and_si128(_mm_srli_epi16(g, 5), _mm_set1_epi8(0x07)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_unpacklo_epi8(low, high));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst) + 1, _mm_unpackhi_epi8(low, high));
}

NUVRA_SSE2 inline void nv21ToRgb565Of16_SSE2(const uint8_t* y, const uint8_t* vu, uint8_t* dst) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i centre = _mm_set1_epi16(128);
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(vu));
    const __m128i luma = _mm_loadu_si128(reinterpret_cast<const __m128i*>(y));
    const Offsets8 lo = offsets8_SSE2(_mm_sub_epi16(_mm_unpacklo_epi8(c, zero), centre));
    const Offsets8 hi = offsets8_SSE2(_mm_sub_epi16(_mm_unpackhi_epi8(c, zero), centre));
    const __m128i yLo = _mm_unpacklo_epi8(luma, zero);
    const __m128i yHi = _mm_unpackhi_epi8(luma, zero);
    const __m128i r = _mm_packus_epi16(_mm_add_epi16(yLo, lo.r), _mm_add_epi16(yHi, hi.r));
    const __m128i g = _mm_packus_epi16(_mm_sub_epi16(yLo, lo.g), _mm_sub_epi16(yHi, hi.g));
    const __m128i b = _mm_packus_epi16(_mm_add_epi16(yLo, lo.b), _mm_add_epi16(yHi, hi.b));
    storeRgb565Of16(r, g, b, dst);
}

NUVRA_SSSE3 inline void nv21ToRgb565Of16_SSSE3(const uint8_t* y, const uint8_t* vu, uint8_t* dst) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i centre = _mm_set1_epi16(128);
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(vu));
    const __m128i luma = _mm_loadu_si128(reinterpret_cast<const __m128i*>(y));
    const Offsets8 lo = offsets8_SSSE3(_mm_sub_epi16(_mm_unpacklo_epi8(c, zero), centre));
    const Offsets8 hi = offsets8_SSSE3(_mm_sub_epi16(_mm_unpackhi_epi8(c, zero), centre));
    const __m128i yLo = _mm_unpacklo_epi8(luma, zero);
    const __m128i yHi = _mm_unpackhi_epi8(luma, zero);
    const __m128i r = _mm_packus_epi16(_mm_add_epi16(yLo, lo.r), _mm_add_epi16(yHi, hi.r));
    const __m128i g = _mm_packus_epi16(_mm_sub_epi16(yLo, lo.g), _mm_sub_epi16(yHi, hi.g));
    const __m128i b = _mm_packus_epi16(_mm_add_epi16(yLo, lo.b), _mm_add_epi16(yHi, hi.b));
    storeRgb565Of16(r, g, b, dst);
}

NUVRA_SSE2 void nv21ToRgb565Row_SSE2(const uint8_t* y, const uint8_t* vu, uint8_t* rgb565,
                                     size_t width) {
    size_t x = 0;
    for (; x + 16 <= width; x += 16) nv21ToRgb565Of16_SSE2(y + x, vu + x, rgb565 + 2 * x);
    nv21PairsToRgb565(y + x, vu + x, rgb565 + 2 * x, (width - x) / 2);
}

NUVRA_SSSE3 void nv21ToRgb565Row_SSSE3(const uint8_t* y, const uint8_t* vu, uint8_t* rgb565,
                                       size_t width) {
    size_t x = 0;
    for (; x + 16 <= width; x += 16) nv21ToRgb565Of16_SSSE3(y + x, vu + x, rgb565 + 2 * x);
    nv21PairsToRgb565(y + x, vu + x, rgb565 + 2 * x, (width - x) / 2);
}

NUVRA_SSE2 inline __m128i swap16_SSE2(__m128i v) {
    return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}

NUVRA_SSSE3 inline __m128i swap16_SSSE3(__m128i v) {
    return _mm_shuffle_epi8(v, _mm_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14));
}

// 32 pairs from src + 2k to dst + 2k, stored by `store` (_mm_storeu_si128 or, dst aligned,
// _mm_stream_si128).
#define NUVRA_SWAP_32_PAIRS(swap16, store)                                      \
    do {                                                                        \
        prefetchAhead(src + 2 * k, kPrefetchDistance);                          \
        const __m128i* s = reinterpret_cast<const __m128i*>(src + 2 * k);       \
        __m128i* d = reinterpret_cast<__m128i*>(dst + 2 * k);                   \
        const __m128i v0 = _mm_loadu_si128(s), v1 = _mm_loadu_si128(s + 1);     \
        const __m128i v2 = _mm_loadu_si128(s + 2), v3 = _mm_loadu_si128(s + 3); \
        store(d, swap16(v0));                                                   \
        store(d + 1, swap16(v1));                                               \
        store(d + 2, swap16(v2));                                               \
        store(d + 3, swap16(v3));                                               \
    } while (0)

// Single pairs up to a 16-byte boundary of dst, then 32 pairs at a time (with non-temporal stores
// for long runs, see kStreamingSwapBytes), then 8, then single pairs. Each block is loaded whole
// before it is stored, so dst == src works.
#define NUVRA_SWAP_PAIRS_BODY(swap16)                                                     \
    size_t k = pairsToAlign(dst, 16, pairs);                                              \
    SwapPairsRow_C(dst, src, k);                                                          \
    if (pairs >= kStreamingSwapBytes / 2 &&                                               \
        (reinterpret_cast<uintptr_t>(dst + 2 * k) & 15) == 0) {                           \
        for (; k + 32 <= pairs; k += 32) NUVRA_SWAP_32_PAIRS(swap16, _mm_stream_si128);   \
        /* Non-temporal stores are weakly ordered: make them visible before whatever the  \
           caller does next (such as handing the buffer to its consumer). */              \
        _mm_sfence();                                                                     \
    }                                                                                     \
    for (; k + 32 <= pairs; k += 32) NUVRA_SWAP_32_PAIRS(swap16, _mm_storeu_si128);       \
    for (; k + 8 <= pairs; k += 8) {                                                      \
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * k)); \
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * k), swap16(v));             \
    }                                                                                     \
    SwapPairsRow_C(dst + 2 * k, src + 2 * k, pairs - k)

NUVRA_SSE2 void swapPairsRow_SSE2(uint8_t* dst, const uint8_t* src, size_t pairs) {
    NUVRA_SWAP_PAIRS_BODY(swap16_SSE2);
}

NUVRA_SSSE3 void swapPairsRow_SSSE3(uint8_t* dst, const uint8_t* src, size_t pairs) {
    NUVRA_SWAP_PAIRS_BODY(swap16_SSSE3);
}

#undef NUVRA_SWAP_PAIRS_BODY
#undef NUVRA_SWAP_32_PAIRS

NUVRA_SSE2 void rgbaToYuvVU_SSE2(const uint8_t* rgba, uint8_t* y, uint8_t* vu, size_t width) {
    rgbaToYuvRow_SSE2<Chroma::VU>(rgba, y, vu, vu, width);
}
NUVRA_SSE2 void rgbaToYuvUV_SSE2(const uint8_t* rgba, uint8_t* y, uint8_t* uv, size_t width) {
    rgbaToYuvRow_SSE2<Chroma::UV>(rgba, y, uv, uv, width);
}
NUVRA_SSE2 void rgbaToYuvPlanar_SSE2(const uint8_t* rgba, uint8_t* y, uint8_t* cr, uint8_t* cb,
                                     size_t width) {
    rgbaToYuvRow_SSE2<Chroma::Planar>(rgba, y, cr, cb, width);
}

NUVRA_SSSE3 void rgbaToYuvVU_SSSE3(const uint8_t* rgba, uint8_t* y, uint8_t* vu, size_t width) {
    rgbaToYuvRow_SSSE3<Chroma::VU>(rgba, y, vu, vu, width);
}
NUVRA_SSSE3 void rgbaToYuvUV_SSSE3(const uint8_t* rgba, uint8_t* y, uint8_t* uv, size_t width) {
    rgbaToYuvRow_SSSE3<Chroma::UV>(rgba, y, uv, uv, width);
}
NUVRA_SSSE3 void rgbaToYuvPlanar_SSSE3(const uint8_t* rgba, uint8_t* y, uint8_t* cr, uint8_t* cb,
                                       size_t width) {
    rgbaToYuvRow_SSSE3<Chroma::Planar>(rgba, y, cr, cb, width);
}

}  // namespace

const RowFunctions kRowFunctions_SSE2 = {
        rgbaToYRow_SSE2,      rgbaToYuvVU_SSE2,     rgbaToYuvUV_SSE2,
        rgbaToYuvPlanar_SSE2, nv21ToRgb565Row_SSE2, swapPairsRow_SSE2,
};

const RowFunctions kRowFunctions_SSSE3 = {
        rgbaToYRow_SSSE3,      rgbaToYuvVU_SSSE3,     rgbaToYuvUV_SSSE3,
        rgbaToYuvPlanar_SSSE3, nv21ToRgb565Row_SSSE3, swapPairsRow_SSSE3,
};

}  // namespace nuvra::kernels::detail

#endif
