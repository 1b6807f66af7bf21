// Flexible 4:2:0 YUV (three planes, each with its own row and pixel stride, as an ImageReader
// hands them to Java) packed into NV21: the luma rows, then V,U pairs.
//
// The chroma gather follows one rule, which the scalar rows implement literally and every SIMD
// row reproduces byte for byte:
//   for each of height / 2 chroma rows r and each of width / 2 columns k (none unless width >= 2
//   and height >= 2), write the byte at V, then the byte at U, and advance V by vPixelStride and
//   U by uPixelStride; at the end of each row advance both U and V by
//   uRowStride - (width / 2) * uPixelStride.
// The V plane walks with the U plane's row geometry: its own row stride plays no part, and when its
// pixel stride differs from U's its rows drift by (width / 2) * (vPixelStride - uPixelStride) per
// row. Strides are signed byte offsets (bottom-up planes, mirrored rows); the output rows are
// packed at (width / 2) * 2 bytes.
//
// The layouts that cameras deliver run vectorised: planar chroma (both pixel strides 1) and
// interleaved chroma in Cb, Cr order (both pixel strides 2, V == U + 1). Every other layout runs
// the scalar rows. Only the bytes the rule reads are read and only the output bytes named below
// are written, whatever the variant; the planes must not overlap the output (the planes may
// overlap each other).
#pragma once

#include <cstddef>
#include <cstdint>

#include "surface/kernels/PixelKernels.h"

namespace nuvra::kernels {

// The chroma gather above into vu ((height / 2) * (width / 2) * 2 bytes).
void gatherFlexibleChroma(uint8_t* vu, const uint8_t* u, const uint8_t* v, int32_t uRowStride,
                          int32_t uPixelStride, int32_t vPixelStride, int width, int height);
void gatherFlexibleChroma(KernelVariant variant, uint8_t* vu, const uint8_t* u, const uint8_t* v,
                          int32_t uRowStride, int32_t uPixelStride, int32_t vPixelStride, int width,
                          int height);

// `rows` rows of `rowBytes` bytes from src, rows srcStride bytes apart (negative: upwards), into
// dst packed at rowBytes per row: one memcpy when srcStride equals rowBytes, one per row otherwise.
// The luma copy of the conversion.
void copyRowsPacked(uint8_t* dst, const uint8_t* src, ptrdiff_t srcStride, size_t rowBytes,
                    size_t rows);

// The whole conversion that takes the gather: `height` luma rows of `width` bytes from y (rows
// yRowStride apart) packed at the start of nv21, then the chroma gather at nv21 + width * height.
// Nothing is done when width or height is zero or negative.
void flexibleToNv21(uint8_t* nv21, const uint8_t* y, const uint8_t* u, const uint8_t* v,
                    int32_t yRowStride, int32_t uRowStride, int32_t uPixelStride,
                    int32_t vPixelStride, int width, int height);
void flexibleToNv21(KernelVariant variant, uint8_t* nv21, const uint8_t* y, const uint8_t* u,
                    const uint8_t* v, int32_t yRowStride, int32_t uRowStride, int32_t uPixelStride,
                    int32_t vPixelStride, int width, int height);

}  // namespace nuvra::kernels
