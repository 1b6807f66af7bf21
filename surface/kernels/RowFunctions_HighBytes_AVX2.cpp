// AVX2 row of the high-byte extraction: shift and pack as in the SSE2 row. The 256-bit pack works
// per 128-bit lane, so the loads put samples 0-7 and 16-23 in one register and 8-15 and 24-31 in
// the other: the packed result is then in order without a cross-lane permute. Per-function target
// attributes keep the file buildable for baseline x86-64.
#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include "surface/kernels/HighByteRowFunctions.h"
#include "surface/kernels/RowFunctions.h"

#define NUVRA_AVX2 __attribute__((target("avx2")))

namespace nuvra::kernels::detail {
namespace {

NUVRA_AVX2 inline __m256i highBytesOf32(const uint8_t* s) {
    const __m128i* in = reinterpret_cast<const __m128i*>(s);
    const __m256i a = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(in)),
                                              _mm_loadu_si128(in + 2), 1);
    const __m256i b = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(in + 1)),
                                              _mm_loadu_si128(in + 3), 1);
    return _mm256_packus_epi16(_mm256_srli_epi16(a, 8), _mm256_srli_epi16(b, 8));
}

// 64 samples into d (64 bytes), with ordinary or with non-temporal stores (d 32-byte aligned).
template <bool kStream>
NUVRA_AVX2 inline void highBytesOf64(uint8_t* d, const uint8_t* s) {
    prefetchAhead(s, kPrefetchDistance);
    prefetchAhead(s, kPrefetchDistance + 64);
    __m256i* out = reinterpret_cast<__m256i*>(d);
    if constexpr (kStream) {
        _mm256_stream_si256(out, highBytesOf32(s));
        _mm256_stream_si256(out + 1, highBytesOf32(s + 64));
    } else {
        _mm256_storeu_si256(out, highBytesOf32(s));
        _mm256_storeu_si256(out + 1, highBytesOf32(s + 64));
    }
}

}  // namespace

// 64 samples at a time (runs whose output reaches kStreamingSwapBytes first bring dst to a 32-byte
// boundary and write with non-temporal stores: the output of a frame that large does not stay in
// cache, and bypassing it saves reading every destination line before it is written), then 32,
// then 16 (SSE2), then single samples.
NUVRA_AVX2 void HighBytesRow_AVX2(uint8_t* dst, const uint8_t* samples, size_t count) {
    size_t j = 0;
    if (count >= kStreamingSwapBytes) {
        j = (32 - (reinterpret_cast<uintptr_t>(dst) & 31)) & 31;
        HighBytesRow_C(dst, samples, j);
        for (; j + 64 <= count; j += 64) highBytesOf64<true>(dst + j, samples + 2 * j);
        // Non-temporal stores are weakly ordered: make them visible before whatever the caller
        // does next.
        _mm_sfence();
    }
    for (; j + 64 <= count; j += 64) highBytesOf64<false>(dst + j, samples + 2 * j);
    for (; j + 32 <= count; j += 32) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + j), highBytesOf32(samples + 2 * j));
    }
    if (j + 16 <= count) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(samples + 2 * j));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(samples + 2 * j + 16));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + j),
                         _mm_packus_epi16(_mm_srli_epi16(a, 8), _mm_srli_epi16(b, 8)));
        j += 16;
    }
    HighBytesRow_C(dst + j, samples + 2 * j, count - j);
}

}  // namespace nuvra::kernels::detail

#endif
