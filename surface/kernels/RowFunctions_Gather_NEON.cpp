// NEON rows of the flexible chroma gather (arm64: NEON is always present).
#if defined(__aarch64__)

#include <arm_neon.h>

#include "surface/kernels/GatherRowFunctions.h"

namespace nuvra::kernels::detail {
namespace {

// 32 pairs at a time (two interleaving stores), then 16, then 8, then single pairs. Only
// v[0, pairs) and u[0, pairs) are read.
void interleaveRow_NEON(uint8_t* vu, const uint8_t* v, const uint8_t* u, size_t pairs) {
    size_t k = 0;
    for (; k + 32 <= pairs; k += 32) {
        const uint8x16x2_t a = {{vld1q_u8(v + k), vld1q_u8(u + k)}};
        const uint8x16x2_t b = {{vld1q_u8(v + k + 16), vld1q_u8(u + k + 16)}};
        vst2q_u8(vu + 2 * k, a);
        vst2q_u8(vu + 2 * k + 32, b);
    }
    for (; k + 16 <= pairs; k += 16) {
        const uint8x16x2_t a = {{vld1q_u8(v + k), vld1q_u8(u + k)}};
        vst2q_u8(vu + 2 * k, a);
    }
    for (; k + 8 <= pairs; k += 8) {
        const uint8x8x2_t a = {{vld1_u8(v + k), vld1_u8(u + k)}};
        vst2_u8(vu + 2 * k, a);
    }
    GatherChromaRow_C(vu + 2 * k, v + k, u + k, 1, 1, pairs - k);
}

}  // namespace

const GatherRowFunctions kGatherRows_NEON = {interleaveRow_NEON};

}  // namespace nuvra::kernels::detail

#endif
