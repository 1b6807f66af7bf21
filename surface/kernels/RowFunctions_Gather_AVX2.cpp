// AVX2 rows of the flexible chroma gather. Per-function target attributes keep the file buildable
// for baseline x86-64; the dispatcher calls them only where the CPU has AVX2.
#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include "surface/kernels/GatherRowFunctions.h"

#define NUVRA_AVX2 __attribute__((target("avx2")))

namespace nuvra::kernels::detail {
namespace {

// 32 V and 32 U bytes into 64 output bytes. The 256-bit unpacks work per 128-bit lane, giving
// pairs 0-7 and 16-23 (lo) and 8-15 and 24-31 (hi); the lane permutes put them back in order.
NUVRA_AVX2 inline void interleave32(uint8_t* vu, const uint8_t* v, const uint8_t* u) {
    const __m256i vv = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(v));
    const __m256i uu = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(u));
    const __m256i lo = _mm256_unpacklo_epi8(vv, uu);
    const __m256i hi = _mm256_unpackhi_epi8(vv, uu);
    __m256i* out = reinterpret_cast<__m256i*>(vu);
    _mm256_storeu_si256(out, _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256(out + 1, _mm256_permute2x128_si256(lo, hi, 0x31));
}

// 64 pairs at a time, then 32, then 16 (SSE), then single pairs. Only v[0, pairs) and
// u[0, pairs) are read.
NUVRA_AVX2 void interleaveRow_AVX2(uint8_t* vu, const uint8_t* v, const uint8_t* u, size_t pairs) {
    size_t k = 0;
    for (; k + 64 <= pairs; k += 64) {
        interleave32(vu + 2 * k, v + k, u + k);
        interleave32(vu + 2 * k + 64, v + k + 32, u + k + 32);
    }
    for (; k + 32 <= pairs; k += 32) interleave32(vu + 2 * k, v + k, u + k);
    for (; k + 16 <= pairs; k += 16) {
        const __m128i v0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(v + k));
        const __m128i u0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(u + k));
        __m128i* out = reinterpret_cast<__m128i*>(vu + 2 * k);
        _mm_storeu_si128(out, _mm_unpacklo_epi8(v0, u0));
        _mm_storeu_si128(out + 1, _mm_unpackhi_epi8(v0, u0));
    }
    GatherChromaRow_C(vu + 2 * k, v + k, u + k, 1, 1, pairs - k);
}

}  // namespace

const GatherRowFunctions kGatherRows_AVX2 = {interleaveRow_AVX2};

}  // namespace nuvra::kernels::detail

#endif
