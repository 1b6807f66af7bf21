// AVX2 rows: the SSSE3 arithmetic (see RowFunctions_SSE.cpp) on 32 pixels at a time. Each function
// carries the avx2 target attribute, so the file builds for the baseline x86-64 and these rows run
// only where the dispatcher found AVX2.
//
// AVX2 packs, unpacks and horizontal adds work within each 128-bit lane; the comments give the
// pixel order in the two lanes as "lane 0 | lane 1", and the dword permutation kLaneOrder puts
// the results back into memory order.
#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include "surface/kernels/RowFunctions.h"

#define NUVRA_AVX2 __attribute__((target("avx2")))

namespace nuvra::kernels::detail {
namespace {

enum class Chroma { VU, UV, Planar };

NUVRA_AVX2 inline __m256i pair16(int16_t lo, int16_t hi) {
    return _mm256_set1_epi32(static_cast<int>(
            static_cast<uint16_t>(lo) | (static_cast<uint32_t>(static_cast<uint16_t>(hi)) << 16)));
}

// Dwords [0, 4, 1, 5, 2, 6, 3, 7]: undoes the lane split of a pack of two in-lane results.
NUVRA_AVX2 inline __m256i laneOrder(__m256i v) {
    return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

NUVRA_AVX2 inline __m256i bias8() {
    return _mm256_set1_epi8(static_cast<char>(0x80));
}

// 32 RGBA pixels: p0 holds pixels 0-7, p1 8-15, p2 16-23, p3 24-31. Kept in named registers
// rather than an array, which the compiler would spill.
struct Pixels32 {
    __m256i p0, p1, p2, p3;
};

NUVRA_AVX2 inline Pixels32 load32(const uint8_t* rgba) {
    prefetchAhead(rgba, kPrefetchDistance);
    prefetchAhead(rgba, kPrefetchDistance + 64);
    const __m256i* src = reinterpret_cast<const __m256i*>(rgba);
    return {_mm256_loadu_si256(src), _mm256_loadu_si256(src + 1), _mm256_loadu_si256(src + 2),
            _mm256_loadu_si256(src + 3)};
}

// Y of 32 pixels.
NUVRA_AVX2 inline __m256i yOf32(const Pixels32& p) {
    const __m256i bias = bias8();
    const __m256i weights = _mm256_set1_epi32(77 | (150 << 8) | (29 << 16));
    const __m256i s0 = _mm256_maddubs_epi16(weights, _mm256_xor_si256(p.p0, bias));
    const __m256i s1 = _mm256_maddubs_epi16(weights, _mm256_xor_si256(p.p1, bias));
    const __m256i s2 = _mm256_maddubs_epi16(weights, _mm256_xor_si256(p.p2, bias));
    const __m256i s3 = _mm256_maddubs_epi16(weights, _mm256_xor_si256(p.p3, bias));
    // Pixels 0-3, 8-11 | 4-7, 12-15, and 16-19, 24-27 | 20-23, 28-31.
    const __m256i y01 = _mm256_srli_epi16(_mm256_hadd_epi16(s0, s1), 8);
    const __m256i y23 = _mm256_srli_epi16(_mm256_hadd_epi16(s2, s3), 8);
    return _mm256_xor_si256(laneOrder(_mm256_packus_epi16(y01, y23)), bias);
}

// Cb and Cr sums shifted by 8 (before the +128) of 8 pixels, in 32-bit lanes.
NUVRA_AVX2 inline void chromaOf8(__m256i px, __m256i* cb, __m256i* cr) {
    const __m256i rb = _mm256_and_si256(px, _mm256_set1_epi16(0x00FF));
    const __m256i ga = _mm256_srli_epi16(px, 8);
    *cb = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(rb, pair16(-43, 128)),
                                             _mm256_madd_epi16(ga, pair16(-85, 0))),
                            8);
    *cr = _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(rb, pair16(128, -21)),
                                             _mm256_madd_epi16(ga, pair16(-107, 0))),
                            8);
}

NUVRA_AVX2 inline __m256i evenPixels(__m256i a, __m256i b) {
    return _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b),
                                                 _MM_SHUFFLE(2, 0, 2, 0)));
}

// The chroma of the 16 even pixels of p, stored by layout: 32 interleaved bytes at c0, or
// 16 Cr bytes at c0 and 16 Cb bytes at c1.
template <Chroma kLayout>
NUVRA_AVX2 inline void storeChromaOf32(const Pixels32& p, uint8_t* c0, uint8_t* c1) {
    // Pixels 0, 2, 8, 10 | 4, 6, 12, 14 and 16, 18, 24, 26 | 20, 22, 28, 30; as chroma samples
    // (pixel / 2) the packs below hold 0, 1, 4, 5, 8, 9, 12, 13 | 2, 3, 6, 7, 10, 11, 14, 15.
    __m256i cbA, crA, cbB, crB;
    chromaOf8(evenPixels(p.p0, p.p1), &cbA, &crA);
    chromaOf8(evenPixels(p.p2, p.p3), &cbB, &crB);
    const __m256i cb = _mm256_packs_epi32(cbA, cbB);
    const __m256i cr = _mm256_packs_epi32(crA, crB);
    if constexpr (kLayout == Chroma::Planar) {
        // Cr 0, 1, 4, 5, 8, 9, 12, 13, Cb (same) | Cr 2, 3, 6, 7, ..., Cb (same); dwords of 4
        // samples into Cr | Cb, then the samples of each lane into order.
        const __m256i both = laneOrder(_mm256_packs_epi16(cr, cb));
        const __m256i order =
                _mm256_setr_epi8(0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15, 0, 1, 4, 5,
                                 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15);
        const __m256i planes = _mm256_xor_si256(_mm256_shuffle_epi8(both, order), bias8());
        _mm_storeu_si128(reinterpret_cast<__m128i*>(c0), _mm256_castsi256_si128(planes));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(c1), _mm256_extracti128_si256(planes, 1));
    } else {
        const __m256i first = kLayout == Chroma::VU ? cr : cb;
        const __m256i second = kLayout == Chroma::VU ? cb : cr;
        // Pairs of samples 0, 1, 4, 5 | 2, 3, 6, 7 and 8, 9, 12, 13 | 10, 11, 14, 15; a dword
        // holds two pairs.
        const __m256i lo = _mm256_unpacklo_epi16(first, second);
        const __m256i hi = _mm256_unpackhi_epi16(first, second);
        const __m256i pairs = laneOrder(_mm256_packs_epi16(lo, hi));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(c0), _mm256_xor_si256(pairs, bias8()));
    }
}

NUVRA_AVX2 void rgbaToYRow_AVX2(const uint8_t* rgba, uint8_t* y, size_t width) {
    size_t x = 0;
    for (; x + 32 <= width; x += 32) {
        const Pixels32 p = load32(rgba + 4 * x);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(y + x), yOf32(p));
    }
    RgbaToYRow_C(rgba + 4 * x, y + x, width - x);
}

template <Chroma kLayout>
NUVRA_AVX2 void rgbaToYuvRow_AVX2(const uint8_t* rgba, uint8_t* y, uint8_t* c0, uint8_t* c1,
                                  size_t width) {
    size_t x = 0;
    for (; x + 32 <= width; x += 32) {
        const Pixels32 p = load32(rgba + 4 * x);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(y + x), yOf32(p));
        if constexpr (kLayout == Chroma::Planar) {
            storeChromaOf32<kLayout>(p, c0 + x / 2, c1 + x / 2);
        } else {
            storeChromaOf32<kLayout>(p, c0 + x, c0 + x);
        }
    }
    if (x >= width) return;
    if constexpr (kLayout == Chroma::VU) {
        RgbaToYuvRow_C(rgba + 4 * x, y + x, c0 + x, c0 + x + 1, 2, width - x);
    } else if constexpr (kLayout == Chroma::UV) {
        RgbaToYuvRow_C(rgba + 4 * x, y + x, c0 + x + 1, c0 + x, 2, width - x);
    } else {
        RgbaToYuvRow_C(rgba + 4 * x, y + x, c0 + x / 2, c1 + x / 2, 1, width - x);
    }
}

NUVRA_AVX2 void rgbaToYuvVU_AVX2(const uint8_t* rgba, uint8_t* y, uint8_t* vu, size_t width) {
    rgbaToYuvRow_AVX2<Chroma::VU>(rgba, y, vu, vu, width);
}
NUVRA_AVX2 void rgbaToYuvUV_AVX2(const uint8_t* rgba, uint8_t* y, uint8_t* uv, size_t width) {
    rgbaToYuvRow_AVX2<Chroma::UV>(rgba, y, uv, uv, width);
}
NUVRA_AVX2 void rgbaToYuvPlanar_AVX2(const uint8_t* rgba, uint8_t* y, uint8_t* cr, uint8_t* cb,
                                     size_t width) {
    rgbaToYuvRow_AVX2<Chroma::Planar>(rgba, y, cr, cb, width);
}

struct Offsets16 {
    __m256i r, g, b;
};

// Per-pixel R, G, B offsets of 16 pixels from the centred chroma pairs [V0, U0, V1, U1, ...] of
// vu16 (8 pairs): r = [R0, R0, R1, R1, ...], and so on.
NUVRA_AVX2 inline Offsets16 offsets16(__m256i vu16) {
    const __m256i rb = _mm256_mulhi_epi16(_mm256_slli_epi16(vu16, 8), pair16(359, 454));
    const __m256i g = _mm256_srai_epi32(_mm256_madd_epi16(vu16, pair16(183, 88)), 8);
    const __m256i dupEven = _mm256_setr_epi8(0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13, 0,
                                             1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13);
    const __m256i dupOdd = _mm256_setr_epi8(2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15,
                                            2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15);
    return {_mm256_shuffle_epi8(rb, dupEven), _mm256_shuffle_epi8(g, dupEven),
            _mm256_shuffle_epi8(rb, dupOdd)};
}

NUVRA_AVX2 inline void nv21ToRgb565Of32(const uint8_t* y, const uint8_t* vu, uint8_t* dst) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i centre = _mm256_set1_epi16(128);
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(vu));
    const __m256i luma = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(y));
    // Chroma pairs 0-3 | 8-11 serve pixels 0-7 | 16-23; pairs 4-7 | 12-15 pixels 8-15 | 24-31.
    const Offsets16 lo = offsets16(_mm256_sub_epi16(_mm256_unpacklo_epi8(c, zero), centre));
    const Offsets16 hi = offsets16(_mm256_sub_epi16(_mm256_unpackhi_epi8(c, zero), centre));
    const __m256i yLo = _mm256_unpacklo_epi8(luma, zero);
    const __m256i yHi = _mm256_unpackhi_epi8(luma, zero);
    // Clamped bytes in memory order: pixels 0-15 | 16-31.
    const __m256i r = _mm256_packus_epi16(_mm256_add_epi16(yLo, lo.r), _mm256_add_epi16(yHi, hi.r));
    const __m256i g = _mm256_packus_epi16(_mm256_sub_epi16(yLo, lo.g), _mm256_sub_epi16(yHi, hi.g));
    const __m256i b = _mm256_packus_epi16(_mm256_add_epi16(yLo, lo.b), _mm256_add_epi16(yHi, hi.b));
    const __m256i low = _mm256_or_si256(
            _mm256_and_si256(_mm256_slli_epi16(g, 3), _mm256_set1_epi8(static_cast<char>(0xE0))),
            _mm256_and_si256(_mm256_srli_epi16(b, 3), _mm256_set1_epi8(0x1F)));
    const __m256i high =
            _mm256_or_si256(_mm256_and_si256(r, _mm256_set1_epi8(static_cast<char>(0xF8))),
                            _mm256_and_si256(_mm256_srli_epi16(g, 5), _mm256_set1_epi8(0x07)));
    // Pixels 0-7 | 16-23 and 8-15 | 24-31.
    const __m256i out0 = _mm256_unpacklo_epi8(low, high);
    const __m256i out1 = _mm256_unpackhi_epi8(low, high);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst),
                        _mm256_permute2x128_si256(out0, out1, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst) + 1,
                        _mm256_permute2x128_si256(out0, out1, 0x31));
}

NUVRA_AVX2 void nv21ToRgb565Row_AVX2(const uint8_t* y, const uint8_t* vu, uint8_t* rgb565,
                                     size_t width) {
    size_t x = 0;
    for (; x + 32 <= width; x += 32) nv21ToRgb565Of32(y + x, vu + x, rgb565 + 2 * x);
    nv21PairsToRgb565(y + x, vu + x, rgb565 + 2 * x, (width - x) / 2);
}

NUVRA_AVX2 inline __m256i swap16(__m256i v) {
    const __m256i order = _mm256_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14, 1,
                                           0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14);
    return _mm256_shuffle_epi8(v, order);
}

// Swaps 64 pairs (128 bytes) into d, with ordinary or with non-temporal stores (d 32-byte aligned).
template <bool kStream>
NUVRA_AVX2 inline void swap64Pairs(uint8_t* d, const uint8_t* s) {
    prefetchAhead(s, kPrefetchDistance);
    prefetchAhead(s, kPrefetchDistance + 64);
    const __m256i* in = reinterpret_cast<const __m256i*>(s);
    __m256i* out = reinterpret_cast<__m256i*>(d);
    const __m256i v0 = _mm256_loadu_si256(in), v1 = _mm256_loadu_si256(in + 1);
    const __m256i v2 = _mm256_loadu_si256(in + 2), v3 = _mm256_loadu_si256(in + 3);
    if constexpr (kStream) {
        _mm256_stream_si256(out, swap16(v0));
        _mm256_stream_si256(out + 1, swap16(v1));
        _mm256_stream_si256(out + 2, swap16(v2));
        _mm256_stream_si256(out + 3, swap16(v3));
    } else {
        _mm256_storeu_si256(out, swap16(v0));
        _mm256_storeu_si256(out + 1, swap16(v1));
        _mm256_storeu_si256(out + 2, swap16(v2));
        _mm256_storeu_si256(out + 3, swap16(v3));
    }
}

// Single pairs up to a 32-byte boundary of dst, then 64 pairs at a time (with non-temporal stores
// for long runs, see kStreamingSwapBytes), then 16, then 8, then single pairs. Each block is
// loaded whole before it is stored, so dst == src works.
NUVRA_AVX2 void swapPairsRow_AVX2(uint8_t* dst, const uint8_t* src, size_t pairs) {
    size_t k = pairsToAlign(dst, 32, pairs);
    SwapPairsRow_C(dst, src, k);
    const bool aligned = (reinterpret_cast<uintptr_t>(dst + 2 * k) & 31) == 0;
    if (aligned && pairs >= kStreamingSwapBytes / 2) {
        for (; k + 64 <= pairs; k += 64) swap64Pairs<true>(dst + 2 * k, src + 2 * k);
        // Non-temporal stores are weakly ordered: make them visible before whatever the caller
        // does next (such as handing the buffer to its consumer).
        _mm_sfence();
    }
    for (; k + 64 <= pairs; k += 64) swap64Pairs<false>(dst + 2 * k, src + 2 * k);
    for (; k + 16 <= pairs; k += 16) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * k));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * k), swap16(v));
    }
    for (; k + 8 <= pairs; k += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * k));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * k),
                         _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8)));
    }
    SwapPairsRow_C(dst + 2 * k, src + 2 * k, pairs - k);
}

}  // namespace

const RowFunctions kRowFunctions_AVX2 = {
        rgbaToYRow_AVX2,      rgbaToYuvVU_AVX2,     rgbaToYuvUV_AVX2,
        rgbaToYuvPlanar_AVX2, nv21ToRgb565Row_AVX2, swapPairsRow_AVX2,
};

}  // namespace nuvra::kernels::detail

#endif
