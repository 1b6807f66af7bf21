// Variant dispatch of the high-byte extraction.
#include "surface/kernels/HighBytes.h"

#include "surface/kernels/HighByteRowFunctions.h"

namespace nuvra::kernels {

namespace detail {

HighBytesRow highBytesRow(KernelVariant variant) {
    if (!variantSupported(variant)) return HighBytesRow_C;
    switch (variant) {
#if defined(__x86_64__) || defined(__i386__)
        case KernelVariant::SSE2:
        case KernelVariant::SSSE3:
            // A shift and a saturating pack are all it takes: SSSE3 adds nothing.
            return HighBytesRow_SSE2;
        case KernelVariant::AVX2:
            return HighBytesRow_AVX2;
#endif
#if defined(__aarch64__)
        case KernelVariant::NEON:
            return HighBytesRow_NEON;
#endif
        default:
            return HighBytesRow_C;
    }
}

}  // namespace detail

void extractHighBytes(uint8_t* dst, const uint8_t* samples, size_t count) {
    extractHighBytes(bestVariant(), dst, samples, count);
}

void extractHighBytes(KernelVariant variant, uint8_t* dst, const uint8_t* samples, size_t count) {
    detail::highBytesRow(variant)(dst, samples, count);
}

void extractHighByteFrame(uint8_t* dst, const uint8_t* luma, const uint8_t* chroma, size_t pixels) {
    extractHighByteFrame(bestVariant(), dst, luma, chroma, pixels);
}

void extractHighByteFrame(KernelVariant variant, uint8_t* dst, const uint8_t* luma,
                          const uint8_t* chroma, size_t pixels) {
    const detail::HighBytesRow row = detail::highBytesRow(variant);
    row(dst, luma, pixels);
    row(dst + pixels, chroma, pixels / 2);
}

}  // namespace nuvra::kernels
