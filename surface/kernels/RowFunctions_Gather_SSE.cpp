// SSE2 rows of the flexible chroma gather (the SSSE3 variant uses them too: interleaving needs
// only unpacks). Per-function target attributes keep the file buildable for baseline x86-64.
#if defined(__x86_64__) || defined(__i386__)

#include <emmintrin.h>

#include "surface/kernels/GatherRowFunctions.h"

#define NUVRA_SSE2 __attribute__((target("sse2")))

namespace nuvra::kernels::detail {
namespace {

// 32 pairs at a time, then 16, then single pairs. Only v[0, pairs) and u[0, pairs) are read.
NUVRA_SSE2 void interleaveRow_SSE2(uint8_t* vu, const uint8_t* v, const uint8_t* u, size_t pairs) {
    size_t k = 0;
    for (; k + 32 <= pairs; k += 32) {
        const __m128i v0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(v + k));
        const __m128i v1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(v + k + 16));
        const __m128i u0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(u + k));
        const __m128i u1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(u + k + 16));
        __m128i* out = reinterpret_cast<__m128i*>(vu + 2 * k);
        _mm_storeu_si128(out, _mm_unpacklo_epi8(v0, u0));
        _mm_storeu_si128(out + 1, _mm_unpackhi_epi8(v0, u0));
        _mm_storeu_si128(out + 2, _mm_unpacklo_epi8(v1, u1));
        _mm_storeu_si128(out + 3, _mm_unpackhi_epi8(v1, u1));
    }
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

const GatherRowFunctions kGatherRows_SSE2 = {interleaveRow_SSE2};

}  // namespace nuvra::kernels::detail

#endif
