// Row functions behind the pixel kernels: the scalar reference of each row (the *_C functions) and,
// per SIMD variant, a table of rows that write the same bytes. PixelKernels.cpp walks the frames
// and picks the table; the tests reach the rows through here.
#pragma once

#include <cstddef>
#include <cstdint>

#include "surface/kernels/PixelKernels.h"

namespace nuvra::kernels::detail {

// The floor shifts below rely on >> of a negative int being arithmetic, as on every compiler the
// library builds with.
static_assert((-1 >> 1) == -1, "arithmetic right shift required");

inline uint8_t rgbToY(int r, int g, int b) {
    return static_cast<uint8_t>((77 * r + 150 * g + 29 * b) >> 8);
}
inline uint8_t rgbToCb(int r, int g, int b) {
    return static_cast<uint8_t>(((-43 * r - 85 * g + 128 * b) >> 8) + 128);
}
inline uint8_t rgbToCr(int r, int g, int b) {
    return static_cast<uint8_t>(((128 * r - 107 * g - 21 * b) >> 8) + 128);
}

inline uint8_t clampToByte(int v) {
    return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

// One RGB565 pixel, written little-endian at dst, from a luma value and the three chroma offsets
// of its pair.
inline void storeRgb565(uint8_t* dst, int y, int rOffset, int gOffset, int bOffset) {
    const int r = clampToByte(y + rOffset);
    const int g = clampToByte(y - gOffset);
    const int b = clampToByte(y + bOffset);
    dst[0] = static_cast<uint8_t>(((g << 3) & 0xE0) | (b >> 3));
    dst[1] = static_cast<uint8_t>((r & 0xF8) | (g >> 5));
}

// Converts `pairs` pixel pairs: luma y[2k], y[2k + 1] with the chroma pair vu[2k] (V), vu[2k + 1]
// (U), into 4 bytes at dst + 4k.
inline void nv21PairsToRgb565(const uint8_t* y, const uint8_t* vu, uint8_t* dst, size_t pairs) {
    for (size_t k = 0; k < pairs; ++k) {
        const int v = vu[2 * k] - 128;
        const int u = vu[2 * k + 1] - 128;
        const int rOffset = (359 * v) >> 8;
        const int gOffset = (88 * u + 183 * v) >> 8;
        const int bOffset = (454 * u) >> 8;
        storeRgb565(dst + 4 * k, y[2 * k], rOffset, gOffset, bOffset);
        storeRgb565(dst + 4 * k + 2, y[2 * k + 1], rOffset, gOffset, bOffset);
    }
}

// How many leading pairs (at most `pairs`) bring dst to an `alignment`-byte boundary, so that the
// vector stores after them never split a cache line; 0 when dst is odd and whole pairs cannot get
// there.
inline size_t pairsToAlign(const uint8_t* dst, size_t alignment, size_t pairs) {
    const size_t misalignment = reinterpret_cast<uintptr_t>(dst) & (alignment - 1);
    if (misalignment & 1) return 0;
    const size_t head = ((alignment - misalignment) & (alignment - 1)) / 2;
    return head < pairs ? head : pairs;
}

// How far ahead of the current position the streaming rows ask for the source, in bytes. A
// single core's memory-level parallelism otherwise limits the large frames.
constexpr size_t kPrefetchDistance = 2048;

// Asks for the cache line `ahead` bytes past p. A prefetch never faults, so it may reach past the
// end of the source; the address is formed as an integer for that reason.
inline void prefetchAhead(const uint8_t* p, size_t ahead) {
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(p) + ahead));
}

// Pair swaps of at least this many bytes write with non-temporal stores. A run that large will not
// stay in cache for its consumer (in the frame producer a buffer queued to another process or to
// hardware), and bypassing the cache saves reading every destination line before it is written:
// a third of the memory traffic of the copy.
constexpr size_t kStreamingSwapBytes = size_t{4} << 20;

// Scalar reference rows.
//
// Y of `width` RGBA pixels (an odd row of the frame).
void RgbaToYRow_C(const uint8_t* rgba, uint8_t* y, size_t width);
// An even row: Y of every pixel, and Cb, Cr of every even pixel x at cb / cr + (x / 2) * step
// (Cb written first, then Cr).
void RgbaToYuvRow_C(const uint8_t* rgba, uint8_t* y, uint8_t* cr, uint8_t* cb, size_t step,
                    size_t width);
// `width` NV21 pixels (even) into RGB565: luma row y, chroma row vu.
void Nv21ToRgb565Row_C(const uint8_t* y, const uint8_t* vu, uint8_t* rgb565, size_t width);
// Swaps the bytes of `pairs` pairs from src into dst (dst may equal src).
void SwapPairsRow_C(uint8_t* dst, const uint8_t* src, size_t pairs);

// The rows of one variant.
struct RowFunctions {
    // Y of `width` pixels.
    void (*rgbaToY)(const uint8_t* rgba, uint8_t* y, size_t width);
    // An even row with the chroma interleaved at `chroma`: as Cr, Cb pairs (NV21) ...
    void (*rgbaToYuvVU)(const uint8_t* rgba, uint8_t* y, uint8_t* vu, size_t width);
    // ... or as Cb, Cr pairs (NV12).
    void (*rgbaToYuvUV)(const uint8_t* rgba, uint8_t* y, uint8_t* uv, size_t width);
    // An even row with separate chroma planes (step 1).
    void (*rgbaToYuvPlanar)(const uint8_t* rgba, uint8_t* y, uint8_t* cr, uint8_t* cb,
                            size_t width);
    // `width` (even) NV21 pixels to RGB565.
    void (*nv21ToRgb565)(const uint8_t* y, const uint8_t* vu, uint8_t* rgb565, size_t width);
    void (*swapPairs)(uint8_t* dst, const uint8_t* src, size_t pairs);
};

// The rows of `variant`; the scalar ones when the variant is not supported here.
const RowFunctions& rowFunctions(KernelVariant variant);

// Per-variant tables, each defined in its own file (compiled for its own instruction set) and
// present only on the architecture it serves.
extern const RowFunctions kRowFunctions_C;
#if defined(__x86_64__) || defined(__i386__)
extern const RowFunctions kRowFunctions_SSE2;
extern const RowFunctions kRowFunctions_SSSE3;
extern const RowFunctions kRowFunctions_AVX2;
#endif
#if defined(__aarch64__)
extern const RowFunctions kRowFunctions_NEON;
#endif

}  // namespace nuvra::kernels::detail
