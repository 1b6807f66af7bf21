// SSE2 row of the high-byte extraction: each 16-bit lane shifted right by 8, two registers packed
// (the values are below 256, so the saturating pack is exact). Per-function target attributes keep
// the file buildable for baseline x86-64.
#if defined(__x86_64__) || defined(__i386__)

#include <emmintrin.h>

#include "surface/kernels/HighByteRowFunctions.h"
#include "surface/kernels/RowFunctions.h"

#define NUVRA_SSE2 __attribute__((target("sse2")))

namespace nuvra::kernels::detail {
namespace {

NUVRA_SSE2 inline __m128i highBytesOf16(const uint8_t* s) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 16));
    return _mm_packus_epi16(_mm_srli_epi16(a, 8), _mm_srli_epi16(b, 8));
}

}  // namespace

// 64 samples at a time, then 16, then single samples.
NUVRA_SSE2 void HighBytesRow_SSE2(uint8_t* dst, const uint8_t* samples, size_t count) {
    size_t j = 0;
    for (; j + 64 <= count; j += 64) {
        prefetchAhead(samples + 2 * j, kPrefetchDistance);
        prefetchAhead(samples + 2 * j, kPrefetchDistance + 64);
        __m128i* out = reinterpret_cast<__m128i*>(dst + j);
        _mm_storeu_si128(out, highBytesOf16(samples + 2 * j));
        _mm_storeu_si128(out + 1, highBytesOf16(samples + 2 * j + 32));
        _mm_storeu_si128(out + 2, highBytesOf16(samples + 2 * j + 64));
        _mm_storeu_si128(out + 3, highBytesOf16(samples + 2 * j + 96));
    }
    for (; j + 16 <= count; j += 16) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + j), highBytesOf16(samples + 2 * j));
    }
    HighBytesRow_C(dst + j, samples + 2 * j, count - j);
}

}  // namespace nuvra::kernels::detail

#endif
