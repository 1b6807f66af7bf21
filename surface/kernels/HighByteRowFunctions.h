// Row functions of the high-byte extraction (HighBytes.h): the scalar reference and one row per
// SIMD variant. HighBytes.cpp picks the row; the tests reach the rows through here.
#pragma once

#include <cstddef>
#include <cstdint>

#include "surface/kernels/PixelKernels.h"

namespace nuvra::kernels::detail {

// The scalar reference: dst[j] = samples[2 * j + 1] for j < count.
void HighBytesRow_C(uint8_t* dst, const uint8_t* samples, size_t count);

using HighBytesRow = void (*)(uint8_t* dst, const uint8_t* samples, size_t count);

// The row of `variant`; the scalar one when the variant is not supported here.
HighBytesRow highBytesRow(KernelVariant variant);

#if defined(__x86_64__) || defined(__i386__)
void HighBytesRow_SSE2(uint8_t* dst, const uint8_t* samples, size_t count);
void HighBytesRow_AVX2(uint8_t* dst, const uint8_t* samples, size_t count);
#endif
#if defined(__aarch64__)
void HighBytesRow_NEON(uint8_t* dst, const uint8_t* samples, size_t count);
#endif

}  // namespace nuvra::kernels::detail
