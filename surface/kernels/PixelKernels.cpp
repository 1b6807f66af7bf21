// Frame walks and variant dispatch of the pixel kernels. The per-row work lives in the row tables
// (RowFunctions_*.cpp); a frame picks its table once and walks the rows.
#include "surface/kernels/PixelKernels.h"

#include <atomic>
#include <cstring>
#include <initializer_list>

#include "surface/kernels/RowFunctions.h"

namespace nuvra::kernels {

namespace {

KernelVariant detectBestVariant() {
    for (KernelVariant v :
         {KernelVariant::AVX2, KernelVariant::SSSE3, KernelVariant::SSE2, KernelVariant::NEON}) {
        if (variantSupported(v)) return v;
    }
    return KernelVariant::Scalar;
}

// The CPU's answer, cached on first use. Racing first calls compute the same value, so a relaxed
// atomic is all the caching needs (no lock).
std::atomic<int> gBestVariant{-1};

// A byte range [begin, end) of a plane; `valid` is false when its size overflows.
struct Extent {
    uintptr_t begin = 0;
    uintptr_t end = 0;
    bool valid = false;
};

// The bytes of `rows` rows of `rowBytes` bytes, `pitch` apart, starting at p.
Extent planeExtent(const uint8_t* p, size_t rows, size_t pitch, size_t rowBytes) {
    Extent e;
    size_t span = 0;
    e.begin = reinterpret_cast<uintptr_t>(p);
    if (__builtin_mul_overflow(rows - 1, pitch, &span) ||
        __builtin_add_overflow(span, rowBytes, &span) ||
        __builtin_add_overflow(e.begin, span, &e.end)) {
        return e;
    }
    e.valid = true;
    return e;
}

bool disjoint(const Extent& a, const Extent& b) {
    return a.valid && b.valid && (a.end <= b.begin || b.end <= a.begin);
}

enum class ChromaLayout { Generic, VU, UV, Planar };

// Which vectorised row form reproduces the scalar walk for these planes. The row forms write a
// row's Y and chroma in a different order than the pixel-by-pixel walk, so they are used only
// when the Y plane and the chroma planes cannot overlap.
ChromaLayout chooseLayout(const uint8_t* yPlane, const uint8_t* crPlane, const uint8_t* cbPlane,
                          size_t chromaStep, size_t width, size_t height, size_t yStride,
                          size_t chromaStride) {
    const size_t chromaRows = (height + 1) / 2;
    const size_t chromaCols = (width + 1) / 2;
    const Extent y = planeExtent(yPlane, height, yStride, width);
    const uintptr_t cr = reinterpret_cast<uintptr_t>(crPlane);
    const uintptr_t cb = reinterpret_cast<uintptr_t>(cbPlane);
    if (chromaStep == 2 && (cb == cr + 1 || cr == cb + 1)) {
        const bool vu = cb == cr + 1;
        const Extent chroma =
                planeExtent(vu ? crPlane : cbPlane, chromaRows, chromaStride, 2 * chromaCols);
        if (disjoint(y, chroma)) return vu ? ChromaLayout::VU : ChromaLayout::UV;
    } else if (chromaStep == 1) {
        const Extent crExtent = planeExtent(crPlane, chromaRows, chromaStride, chromaCols);
        const Extent cbExtent = planeExtent(cbPlane, chromaRows, chromaStride, chromaCols);
        if (disjoint(y, crExtent) && disjoint(y, cbExtent) && disjoint(crExtent, cbExtent)) {
            return ChromaLayout::Planar;
        }
    }
    return ChromaLayout::Generic;
}

// Neutral chroma (V = U = 128) for kNeutralPixels pixels, for a row that the input holds no
// chroma row for.
constexpr size_t kNeutralPixels = 256;
struct NeutralChroma {
    uint8_t vu[kNeutralPixels];
};
constexpr NeutralChroma makeNeutralChroma() {
    NeutralChroma n{};
    for (uint8_t& b : n.vu) b = 128;
    return n;
}
constexpr NeutralChroma kNeutralChroma = makeNeutralChroma();

}  // namespace

namespace detail {

const RowFunctions& rowFunctions(KernelVariant variant) {
    if (!variantSupported(variant)) return kRowFunctions_C;
    switch (variant) {
#if defined(__x86_64__) || defined(__i386__)
        case KernelVariant::SSE2:
            return kRowFunctions_SSE2;
        case KernelVariant::SSSE3:
            return kRowFunctions_SSSE3;
        case KernelVariant::AVX2:
            return kRowFunctions_AVX2;
#endif
#if defined(__aarch64__)
        case KernelVariant::NEON:
            return kRowFunctions_NEON;
#endif
        default:
            return kRowFunctions_C;
    }
}

}  // namespace detail

bool variantSupported(KernelVariant variant) {
    switch (variant) {
        case KernelVariant::Scalar:
            return true;
#if defined(__x86_64__) || defined(__i386__)
        case KernelVariant::SSE2:
            __builtin_cpu_init();
            return __builtin_cpu_supports("sse2");
        case KernelVariant::SSSE3:
            __builtin_cpu_init();
            return __builtin_cpu_supports("ssse3");
        case KernelVariant::AVX2:
            __builtin_cpu_init();
            return __builtin_cpu_supports("avx2");
#endif
#if defined(__aarch64__)
        case KernelVariant::NEON:
            return true;
#endif
        default:
            return false;
    }
}

KernelVariant bestVariant() {
    int best = gBestVariant.load(std::memory_order_relaxed);
    if (best < 0) {
        best = static_cast<int>(detectBestVariant());
        gBestVariant.store(best, std::memory_order_relaxed);
    }
    return static_cast<KernelVariant>(best);
}

const char* variantName(KernelVariant variant) {
    switch (variant) {
        case KernelVariant::Scalar:
            return "Scalar";
        case KernelVariant::SSE2:
            return "SSE2";
        case KernelVariant::SSSE3:
            return "SSSE3";
        case KernelVariant::AVX2:
            return "AVX2";
        case KernelVariant::NEON:
            return "NEON";
    }
    return "?";
}

void rgbaToYuv420(const uint8_t* rgba, size_t width, size_t height, uint8_t* yPlane,
                  uint8_t* crPlane, uint8_t* cbPlane, size_t chromaStep, size_t yStride,
                  size_t chromaStride) {
    rgbaToYuv420(bestVariant(), rgba, width, height, yPlane, crPlane, cbPlane, chromaStep, yStride,
                 chromaStride);
}

void rgbaToYuv420(KernelVariant variant, const uint8_t* rgba, size_t width, size_t height,
                  uint8_t* yPlane, uint8_t* crPlane, uint8_t* cbPlane, size_t chromaStep,
                  size_t yStride, size_t chromaStride) {
    if (width == 0 || height == 0) return;
    const detail::RowFunctions& rows = detail::rowFunctions(variant);
    const ChromaLayout layout = chooseLayout(yPlane, crPlane, cbPlane, chromaStep, width, height,
                                             yStride, chromaStride);
    const size_t rgbaStride = width * 4;
    for (size_t r = 0; r < height; ++r) {
        const uint8_t* src = rgba + r * rgbaStride;
        uint8_t* y = yPlane + r * yStride;
        if (r & 1) {
            // Odd rows carry luma only. The generic walk keeps to the scalar rows throughout.
            if (layout == ChromaLayout::Generic) {
                detail::RgbaToYRow_C(src, y, width);
            } else {
                rows.rgbaToY(src, y, width);
            }
            continue;
        }
        const size_t chromaRow = (r / 2) * chromaStride;
        uint8_t* cr = crPlane + chromaRow;
        uint8_t* cb = cbPlane + chromaRow;
        switch (layout) {
            case ChromaLayout::VU:
                rows.rgbaToYuvVU(src, y, cr, width);
                break;
            case ChromaLayout::UV:
                rows.rgbaToYuvUV(src, y, cb, width);
                break;
            case ChromaLayout::Planar:
                rows.rgbaToYuvPlanar(src, y, cr, cb, width);
                break;
            case ChromaLayout::Generic:
                detail::RgbaToYuvRow_C(src, y, cr, cb, chromaStep, width);
                break;
        }
    }
}

void nv21ToRgb565(const uint8_t* nv21, size_t nv21Bytes, int width, int height, uint8_t* rgb565) {
    nv21ToRgb565(bestVariant(), nv21, nv21Bytes, width, height, rgb565);
}

void nv21ToRgb565(KernelVariant variant, const uint8_t* nv21, size_t nv21Bytes, int width,
                  int height, uint8_t* rgb565) {
    if (width <= 0 || height <= 0) return;
    const size_t w = static_cast<size_t>(width);
    const size_t h = static_cast<size_t>(height);
    const size_t pairWidth = w & ~size_t{1};
    if (pairWidth == 0) return;
    const detail::RowFunctions& rows = detail::rowFunctions(variant);
    const size_t lumaBytes = w * h;
    // The chroma rows whose pairWidth bytes the input holds in full.
    const size_t fullChromaRows =
            nv21Bytes >= lumaBytes + pairWidth ? (nv21Bytes - lumaBytes - pairWidth) / w + 1 : 0;
    const uint8_t* chroma = nv21 + lumaBytes;
    for (size_t r = 0; r < h; ++r) {
        const uint8_t* y = nv21 + r * w;
        uint8_t* out = rgb565 + r * 2 * w;
        if (r * w + pairWidth > nv21Bytes) return;  // the input ends before this luma row
        if (fullChromaRows == 0) {
            for (size_t x = 0; x < pairWidth; x += kNeutralPixels) {
                const size_t n = pairWidth - x < kNeutralPixels ? pairWidth - x : kNeutralPixels;
                rows.nv21ToRgb565(y + x, kNeutralChroma.vu, out + 2 * x, n);
            }
            continue;
        }
        // Chroma row r / 2, or the last one the input holds in full when it ends before that.
        const size_t chromaRow = r / 2 < fullChromaRows ? r / 2 : fullChromaRows - 1;
        rows.nv21ToRgb565(y, chroma + chromaRow * w, out, pairWidth);
    }
}

void copySwapChromaPairs(uint8_t* dst, const uint8_t* src, size_t bytes) {
    copySwapChromaPairs(bestVariant(), dst, src, bytes);
}

void copySwapChromaPairs(KernelVariant variant, uint8_t* dst, const uint8_t* src, size_t bytes) {
    detail::rowFunctions(variant).swapPairs(dst, src, bytes / 2);
    if (bytes & 1) dst[bytes - 1] = src[bytes - 1];
}

void copyPlane(uint8_t* dst, size_t dstPitch, const uint8_t* src, size_t srcPitch, size_t rowBytes,
               size_t rows) {
    if (rowBytes == 0 || rows == 0) return;
    if (dstPitch == rowBytes && srcPitch == rowBytes) {
        memcpy(dst, src, rowBytes * rows);
        return;
    }
    for (size_t r = 0; r < rows; ++r) memcpy(dst + r * dstPitch, src + r * srcPitch, rowBytes);
}

void copyPlaneSwapPairs(uint8_t* dst, size_t dstPitch, const uint8_t* src, size_t srcPitch,
                        size_t rowBytes, size_t rows) {
    copyPlaneSwapPairs(bestVariant(), dst, dstPitch, src, srcPitch, rowBytes, rows);
}

void copyPlaneSwapPairs(KernelVariant variant, uint8_t* dst, size_t dstPitch, const uint8_t* src,
                        size_t srcPitch, size_t rowBytes, size_t rows) {
    if (rowBytes == 0 || rows == 0) return;
    // A packed plane is one run, unless odd rows would put pairs across row ends.
    if (dstPitch == rowBytes && srcPitch == rowBytes && (rowBytes % 2 == 0 || rows == 1)) {
        copySwapChromaPairs(variant, dst, src, rowBytes * rows);
        return;
    }
    for (size_t r = 0; r < rows; ++r) {
        copySwapChromaPairs(variant, dst + r * dstPitch, src + r * srcPitch, rowBytes);
    }
}

}  // namespace nuvra::kernels
