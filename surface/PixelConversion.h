/*
 * The producer's pixel conversions: RGBA to 4:2:0 YUV and NV21 to RGB565, over the kernels in
 * surface/kernels (scalar reference and SIMD variants chosen at run time).
 */
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <system/graphics.h>

// RGBA (rows of width x 4 bytes) to Y at yPlane (pitch yStride) and Cr/Cb from the top-left
// pixel of every 2x2 block at crPlane/cbPlane, chromaStep bytes apart, rows chromaStride apart.
void rgbToYuv420(const uint8_t* rgbBuf, size_t width, size_t height, uint8_t* yPlane,
                 uint8_t* crPlane, uint8_t* cbPlane, size_t chromaStep, size_t yStride,
                 size_t chromaStride);

// The same, into the layout that lockYCbCr described.
void rgbToYuv420(const uint8_t* rgbBuf, size_t width, size_t height, const android_ycbcr* ycbcr);

// NV21 to RGB565, rows packed at 2 x width bytes, from the yuvBytes bytes of input at yuvBuf.
// With an odd width the last pixel of each row is left as it was; luma row r takes chroma row
// r / 2 wherever the input holds it (see nuvra::kernels::nv21ToRgb565 for an input that ends
// before it). Nothing is read or written outside the two frames.
void YuvToRGB565(const uint8_t* yuvBuf, size_t yuvBytes, int width, int height, uint8_t* rgbBuf);
