// Frame walk and variant dispatch of the flexible YUV to NV21 conversion. Each chroma row of the
// gather starts at a position fixed by the rule (U at r * uRowStride, V at r times U's row advance
// plus its own drift), so the rows can be handed to vectorised row functions independently.
#include "surface/kernels/FlexibleYuv.h"

#include <cstring>

#include "surface/kernels/GatherRowFunctions.h"
#include "surface/kernels/RowFunctions.h"

namespace nuvra::kernels {

namespace detail {

const GatherRowFunctions& gatherRowFunctions(KernelVariant variant) {
    if (!variantSupported(variant)) return kGatherRows_C;
    switch (variant) {
#if defined(__x86_64__) || defined(__i386__)
        case KernelVariant::SSE2:
        case KernelVariant::SSSE3:
            // Interleaving needs nothing beyond SSE2's unpacks.
            return kGatherRows_SSE2;
        case KernelVariant::AVX2:
            return kGatherRows_AVX2;
#endif
#if defined(__aarch64__)
        case KernelVariant::NEON:
            return kGatherRows_NEON;
#endif
        default:
            return kGatherRows_C;
    }
}

}  // namespace detail

void gatherFlexibleChroma(uint8_t* vu, const uint8_t* u, const uint8_t* v, int32_t uRowStride,
                          int32_t uPixelStride, int32_t vPixelStride, int width, int height) {
    gatherFlexibleChroma(bestVariant(), vu, u, v, uRowStride, uPixelStride, vPixelStride, width,
                         height);
}

void gatherFlexibleChroma(KernelVariant variant, uint8_t* vu, const uint8_t* u, const uint8_t* v,
                          int32_t uRowStride, int32_t uPixelStride, int32_t vPixelStride, int width,
                          int height) {
    if (width < 2 || height < 2) return;
    const size_t pairs = static_cast<size_t>(width / 2);
    const size_t rows = static_cast<size_t>(height / 2);
    const size_t outRow = 2 * pairs;
    const ptrdiff_t uStep = uPixelStride;
    const ptrdiff_t vStep = vPixelStride;
    // Both planes advance by uRowStride - pairs * uStep at the end of a row, after moving
    // pairs * their own step along it. The sums are formed in ptrdiff_t: only the rows actually
    // read are ever addressed.
    const ptrdiff_t uRow = uRowStride;
    const ptrdiff_t vRow = uRow + static_cast<ptrdiff_t>(pairs) * (vStep - uStep);

    if (variant != KernelVariant::Scalar && uStep == 1 && vStep == 1) {
        const auto interleave = detail::gatherRowFunctions(variant).interleave;
        for (size_t r = 0; r < rows; ++r) {
            const ptrdiff_t at = static_cast<ptrdiff_t>(r) * uRow;
            interleave(vu + r * outRow, v + at, u + at, pairs);
        }
        return;
    }
    if (variant != KernelVariant::Scalar && uStep == 2 && vStep == 2 &&
        reinterpret_cast<uintptr_t>(v) == reinterpret_cast<uintptr_t>(u) + 1) {
        // Cb, Cr pairs in the source: each output row is the U row with its pairs swapped. Row by
        // row even when the rows are packed: rows of camera widths stay far below the length from
        // which the swap switches to non-temporal stores, which would push the NV21 frame out of
        // the cache its consumer reads it from.
        const auto swapPairs = detail::rowFunctions(variant).swapPairs;
        for (size_t r = 0; r < rows; ++r) {
            swapPairs(vu + r * outRow, u + static_cast<ptrdiff_t>(r) * uRow, pairs);
        }
        return;
    }
    for (size_t r = 0; r < rows; ++r) {
        const ptrdiff_t i = static_cast<ptrdiff_t>(r);
        detail::GatherChromaRow_C(vu + r * outRow, v + i * vRow, u + i * uRow, vStep, uStep, pairs);
    }
}

void copyRowsPacked(uint8_t* dst, const uint8_t* src, ptrdiff_t srcStride, size_t rowBytes,
                    size_t rows) {
    if (rowBytes == 0 || rows == 0) return;
    if (srcStride == static_cast<ptrdiff_t>(rowBytes)) {
        memcpy(dst, src, rowBytes * rows);
        return;
    }
    for (size_t r = 0; r < rows; ++r) {
        memcpy(dst + r * rowBytes, src + static_cast<ptrdiff_t>(r) * srcStride, rowBytes);
    }
}

void flexibleToNv21(uint8_t* nv21, const uint8_t* y, const uint8_t* u, const uint8_t* v,
                    int32_t yRowStride, int32_t uRowStride, int32_t uPixelStride,
                    int32_t vPixelStride, int width, int height) {
    flexibleToNv21(bestVariant(), nv21, y, u, v, yRowStride, uRowStride, uPixelStride, vPixelStride,
                   width, height);
}

void flexibleToNv21(KernelVariant variant, uint8_t* nv21, const uint8_t* y, const uint8_t* u,
                    const uint8_t* v, int32_t yRowStride, int32_t uRowStride, int32_t uPixelStride,
                    int32_t vPixelStride, int width, int height) {
    if (width <= 0 || height <= 0) return;
    const size_t w = static_cast<size_t>(width);
    const size_t h = static_cast<size_t>(height);
    copyRowsPacked(nv21, y, yRowStride, w, h);
    gatherFlexibleChroma(variant, nv21 + w * h, u, v, uRowStride, uPixelStride, vPixelStride, width,
                         height);
}

}  // namespace nuvra::kernels
