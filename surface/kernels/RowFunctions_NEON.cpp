// NEON rows (arm64, where NEON is always present), 16 pixels at a time.
//
// The arithmetic is exact:
// - Y: widening multiply-accumulate of the de-interleaved R, G, B bytes into 16 unsigned bits
//   (the weights sum to 256, so the sum fits), narrowed by >> 8.
// - Cb, Cr: the even pixels' R, G, B are the low bytes of the 16-bit lanes of the de-interleaved
//   planes; the sums are formed in wrapping 16-bit arithmetic, which is exact because the final
//   sums lie in [-32640, 32640], then arithmetically shifted and narrowed.
// - RGB565: with a centred chroma value c in [-128, 127], vqdmulh(c << 7, k) = (2 (c << 7) k) >> 16
//   = floor(k c / 256) exactly (R and B offsets). The G offset uses
//   floor((88 U + 183 V) / 256) = (44 U + 91 V + (V >> 1)) >> 7, whose inner sum fits 16 bits.
#if defined(__aarch64__)

#include <arm_neon.h>

#include "surface/kernels/RowFunctions.h"

namespace nuvra::kernels::detail {
namespace {

enum class Chroma { VU, UV, Planar };

inline uint8x16_t yOf16(uint8x16x4_t px) {
    uint16x8_t lo = vmull_u8(vget_low_u8(px.val[0]), vdup_n_u8(77));
    lo = vmlal_u8(lo, vget_low_u8(px.val[1]), vdup_n_u8(150));
    lo = vmlal_u8(lo, vget_low_u8(px.val[2]), vdup_n_u8(29));
    uint16x8_t hi = vmull_u8(vget_high_u8(px.val[0]), vdup_n_u8(77));
    hi = vmlal_u8(hi, vget_high_u8(px.val[1]), vdup_n_u8(150));
    hi = vmlal_u8(hi, vget_high_u8(px.val[2]), vdup_n_u8(29));
    return vcombine_u8(vshrn_n_u16(lo, 8), vshrn_n_u16(hi, 8));
}

// Cb and Cr of the 8 even pixels of px.
inline void chromaOf16(uint8x16x4_t px, uint8x8_t* cb, uint8x8_t* cr) {
    const uint16x8_t lowBytes = vdupq_n_u16(0x00FF);
    const int16x8_t r = vreinterpretq_s16_u16(vandq_u16(vreinterpretq_u16_u8(px.val[0]), lowBytes));
    const int16x8_t g = vreinterpretq_s16_u16(vandq_u16(vreinterpretq_u16_u8(px.val[1]), lowBytes));
    const int16x8_t b = vreinterpretq_s16_u16(vandq_u16(vreinterpretq_u16_u8(px.val[2]), lowBytes));
    int16x8_t cbSum = vshlq_n_s16(b, 7);
    cbSum = vmlaq_n_s16(cbSum, r, -43);
    cbSum = vmlaq_n_s16(cbSum, g, -85);
    int16x8_t crSum = vshlq_n_s16(r, 7);
    crSum = vmlaq_n_s16(crSum, g, -107);
    crSum = vmlaq_n_s16(crSum, b, -21);
    const uint8x8_t bias = vdup_n_u8(0x80);
    *cb = veor_u8(vreinterpret_u8_s8(vshrn_n_s16(cbSum, 8)), bias);
    *cr = veor_u8(vreinterpret_u8_s8(vshrn_n_s16(crSum, 8)), bias);
}

void rgbaToYRow_NEON(const uint8_t* rgba, uint8_t* y, size_t width) {
    size_t x = 0;
    for (; x + 16 <= width; x += 16) vst1q_u8(y + x, yOf16(vld4q_u8(rgba + 4 * x)));
    RgbaToYRow_C(rgba + 4 * x, y + x, width - x);
}

template <Chroma kLayout>
void rgbaToYuvRow_NEON(const uint8_t* rgba, uint8_t* y, uint8_t* c0, uint8_t* c1, size_t width) {
    size_t x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8x16x4_t px = vld4q_u8(rgba + 4 * x);
        vst1q_u8(y + x, yOf16(px));
        uint8x8_t cb, cr;
        chromaOf16(px, &cb, &cr);
        if constexpr (kLayout == Chroma::VU) {
            vst2_u8(c0 + x, (uint8x8x2_t{{cr, cb}}));
        } else if constexpr (kLayout == Chroma::UV) {
            vst2_u8(c0 + x, (uint8x8x2_t{{cb, cr}}));
        } else {
            vst1_u8(c0 + x / 2, cr);
            vst1_u8(c1 + x / 2, cb);
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

void rgbaToYuvVU_NEON(const uint8_t* rgba, uint8_t* y, uint8_t* vu, size_t width) {
    rgbaToYuvRow_NEON<Chroma::VU>(rgba, y, vu, vu, width);
}
void rgbaToYuvUV_NEON(const uint8_t* rgba, uint8_t* y, uint8_t* uv, size_t width) {
    rgbaToYuvRow_NEON<Chroma::UV>(rgba, y, uv, uv, width);
}
void rgbaToYuvPlanar_NEON(const uint8_t* rgba, uint8_t* y, uint8_t* cr, uint8_t* cb, size_t width) {
    rgbaToYuvRow_NEON<Chroma::Planar>(rgba, y, cr, cb, width);
}

// RGB565 of 8 pixels (luma y8) from their chroma offsets, each [o0, o0, o1, o1, ...].
inline uint16x8_t rgb565Of8(uint8x8_t y8, int16x8_t rOffset, int16x8_t gOffset, int16x8_t bOffset) {
    const int16x8_t y = vreinterpretq_s16_u16(vmovl_u8(y8));
    const uint8x8_t r = vqmovun_s16(vaddq_s16(y, rOffset));
    const uint8x8_t g = vqmovun_s16(vsubq_s16(y, gOffset));
    const uint8x8_t b = vqmovun_s16(vaddq_s16(y, bOffset));
    uint16x8_t out = vshll_n_u8(vand_u8(r, vdup_n_u8(0xF8)), 8);
    out = vorrq_u16(out, vshlq_n_u16(vmovl_u8(vshr_n_u8(g, 2)), 5));
    return vorrq_u16(out, vmovl_u8(vshr_n_u8(b, 3)));
}

void nv21ToRgb565Row_NEON(const uint8_t* y, const uint8_t* vu, uint8_t* rgb565, size_t width) {
    size_t x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8x8x2_t c = vld2_u8(vu + x);  // V, U of 8 pairs
        const int16x8_t v = vreinterpretq_s16_u16(vsubl_u8(c.val[0], vdup_n_u8(128)));
        const int16x8_t u = vreinterpretq_s16_u16(vsubl_u8(c.val[1], vdup_n_u8(128)));
        const int16x8_t rOffset = vqdmulhq_n_s16(vshlq_n_s16(v, 7), 359);
        const int16x8_t bOffset = vqdmulhq_n_s16(vshlq_n_s16(u, 7), 454);
        int16x8_t gSum = vmulq_n_s16(u, 44);
        gSum = vmlaq_n_s16(gSum, v, 91);
        gSum = vsraq_n_s16(gSum, v, 1);
        const int16x8_t gOffset = vshrq_n_s16(gSum, 7);
        // Each pair's offsets serve two pixels.
        const int16x8x2_t r2 = vzipq_s16(rOffset, rOffset);
        const int16x8x2_t g2 = vzipq_s16(gOffset, gOffset);
        const int16x8x2_t b2 = vzipq_s16(bOffset, bOffset);
        const uint8x16_t luma = vld1q_u8(y + x);
        uint8_t* dst = rgb565 + 2 * x;
        vst1q_u8(dst, vreinterpretq_u8_u16(
                              rgb565Of8(vget_low_u8(luma), r2.val[0], g2.val[0], b2.val[0])));
        vst1q_u8(dst + 16, vreinterpretq_u8_u16(
                                   rgb565Of8(vget_high_u8(luma), r2.val[1], g2.val[1], b2.val[1])));
    }
    nv21PairsToRgb565(y + x, vu + x, rgb565 + 2 * x, (width - x) / 2);
}

// 32 pairs at a time, then 8, then single pairs; each block is loaded whole before it is stored,
// so dst == src works.
void swapPairsRow_NEON(uint8_t* dst, const uint8_t* src, size_t pairs) {
    size_t k = 0;
    for (; k + 32 <= pairs; k += 32) {
        const uint8x16_t v0 = vld1q_u8(src + 2 * k), v1 = vld1q_u8(src + 2 * k + 16);
        const uint8x16_t v2 = vld1q_u8(src + 2 * k + 32), v3 = vld1q_u8(src + 2 * k + 48);
        vst1q_u8(dst + 2 * k, vrev16q_u8(v0));
        vst1q_u8(dst + 2 * k + 16, vrev16q_u8(v1));
        vst1q_u8(dst + 2 * k + 32, vrev16q_u8(v2));
        vst1q_u8(dst + 2 * k + 48, vrev16q_u8(v3));
    }
    for (; k + 8 <= pairs; k += 8) vst1q_u8(dst + 2 * k, vrev16q_u8(vld1q_u8(src + 2 * k)));
    SwapPairsRow_C(dst + 2 * k, src + 2 * k, pairs - k);
}

}  // namespace

const RowFunctions kRowFunctions_NEON = {
        rgbaToYRow_NEON,      rgbaToYuvVU_NEON,     rgbaToYuvUV_NEON,
        rgbaToYuvPlanar_NEON, nv21ToRgb565Row_NEON, swapPairsRow_NEON,
};

}  // namespace nuvra::kernels::detail

#endif
