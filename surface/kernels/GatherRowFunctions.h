// Row functions of the flexible chroma gather (FlexibleYuv.h): the scalar reference row and, per
// SIMD variant, the vectorised rows of the layouts cameras deliver. FlexibleYuv.cpp walks the
// frame and picks the rows; the tests reach them through here.
#pragma once

#include <cstddef>
#include <cstdint>

#include "surface/kernels/PixelKernels.h"

namespace nuvra::kernels::detail {

// The scalar reference: `pairs` V,U pairs into vu, pair k from v[k * vStep] and u[k * uStep].
void GatherChromaRow_C(uint8_t* vu, const uint8_t* v, const uint8_t* u, ptrdiff_t vStep,
                       ptrdiff_t uStep, size_t pairs);

// The gather rows of one variant.
struct GatherRowFunctions {
    // Planar chroma: vu[2k] = v[k], vu[2k + 1] = u[k] for k < pairs.
    void (*interleave)(uint8_t* vu, const uint8_t* v, const uint8_t* u, size_t pairs);
    // Cb, Cr interleaved chroma (V == U + 1) is a pair swap of the U row: the variant's swapPairs
    // row of RowFunctions serves it.
};

// The gather rows of `variant`; the scalar ones when the variant is not supported here.
const GatherRowFunctions& gatherRowFunctions(KernelVariant variant);

extern const GatherRowFunctions kGatherRows_C;
#if defined(__x86_64__) || defined(__i386__)
extern const GatherRowFunctions kGatherRows_SSE2;
extern const GatherRowFunctions kGatherRows_AVX2;
#endif
#if defined(__aarch64__)
extern const GatherRowFunctions kGatherRows_NEON;
#endif

}  // namespace nuvra::kernels::detail
