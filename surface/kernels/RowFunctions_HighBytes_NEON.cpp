// NEON row of the high-byte extraction: the de-interleaving load puts the odd bytes in one
// register (arm64: NEON is always present).
#if defined(__aarch64__)

#include <arm_neon.h>

#include "surface/kernels/HighByteRowFunctions.h"

namespace nuvra::kernels::detail {

// 32 samples at a time, then 16, then 8, then single samples.
void HighBytesRow_NEON(uint8_t* dst, const uint8_t* samples, size_t count) {
    size_t j = 0;
    for (; j + 32 <= count; j += 32) {
        vst1q_u8(dst + j, vld2q_u8(samples + 2 * j).val[1]);
        vst1q_u8(dst + j + 16, vld2q_u8(samples + 2 * j + 32).val[1]);
    }
    for (; j + 16 <= count; j += 16) vst1q_u8(dst + j, vld2q_u8(samples + 2 * j).val[1]);
    for (; j + 8 <= count; j += 8) vst1_u8(dst + j, vld2_u8(samples + 2 * j).val[1]);
    HighBytesRow_C(dst + j, samples + 2 * j, count - j);
}

}  // namespace nuvra::kernels::detail

#endif
