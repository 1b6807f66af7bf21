// Pixel kernels of the frame producer: RGBA to 4:2:0 YUV, NV21 to RGB565, and the plane copies
// (plain, and with the chroma byte pairs swapped for NV12 targets).
//
// Every kernel has one scalar reference (the arithmetic below, row by row) and SIMD variants beside
// it that write exactly the same bytes for every input: SSE2, SSSE3 and AVX2 on x86-64, NEON on
// arm64. The functions without a KernelVariant argument use the best variant of the CPU
// they run on (detected once and cached); the overloads taking one force it, for tests and
// benchmarks, and run the scalar reference when the CPU or the build lacks the requested variant.
//
// No kernel allocates, logs, locks or fails. Nothing is read or written outside the bytes that
// each function's comment names, whatever the width; the source must not overlap the
// destinations.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nuvra::kernels {

enum class KernelVariant { Scalar, SSE2, SSSE3, AVX2, NEON };

// Whether `variant` is compiled into this build and runs on this CPU. Scalar always does.
bool variantSupported(KernelVariant variant);

// The variant that the functions without a KernelVariant argument use.
KernelVariant bestVariant();

// "Scalar", "SSE2", "SSSE3", "AVX2" or "NEON".
const char* variantName(KernelVariant variant);

// RGBA (4 bytes a pixel: R, G, B, A; A ignored; rows packed at width * 4 bytes) to 4:2:0 YUV:
//   Y  = (77 R + 150 G + 29 B) >> 8                   for every pixel,
//   Cb = ((-43 R - 85 G + 128 B) >> 8) + 128          for the top-left pixel of each 2x2 block,
//   Cr = ((128 R - 107 G - 21 B) >> 8) + 128          (>> is floor division by 256).
// Y row r is written at yPlane + r * yStride (width bytes). The chroma of even row r and even
// column x goes to crPlane / cbPlane + (r / 2) * chromaStride + (x / 2) * chromaStep. No other byte
// is written. The layouts the frame producer uses run vectorised: NV21 (chromaStep 2, cbPlane ==
// crPlane + 1), NV12 (chromaStep 2, crPlane == cbPlane + 1) and planar (chromaStep 1), at any
// strides, as long as the Y and chroma planes do not overlap; anything else runs the scalar walk,
// which gives the same bytes as the vectorised one wherever both apply.
void rgbaToYuv420(const uint8_t* rgba, size_t width, size_t height, uint8_t* yPlane,
                  uint8_t* crPlane, uint8_t* cbPlane, size_t chromaStep, size_t yStride,
                  size_t chromaStride);
void rgbaToYuv420(KernelVariant variant, const uint8_t* rgba, size_t width, size_t height,
                  uint8_t* yPlane, uint8_t* crPlane, uint8_t* cbPlane, size_t chromaStep,
                  size_t yStride, size_t chromaStride);

// NV21 (width * height luma bytes, then one chroma row of width bytes for every two luma rows,
// each pair V then U) to RGB565, rows packed at width * 2 bytes, each pixel a little-endian
// 16-bit (R >> 3) << 11 | (G >> 2) << 5 | (B >> 3) with, for V, U = byte - 128,
//   R = Y + ((359 V) >> 8),  G = Y - ((88 U + 183 V) >> 8),  B = Y + ((454 U) >> 8),
// each clamped to [0, 255]. Pixels go in horizontal pairs sharing the chroma pair at the same
// column of chroma row r / 2 (for the last row of an odd height, row height / 2).
// Nothing is read outside the nv21Bytes input bytes, nor written outside the width * height * 2
// output bytes:
// - odd width: each row converts its first width - 1 pixels; the last pixel of every row is left
//   unwritten (it has no chroma pair of its own);
// - an input that ends inside chroma row r / 2 (an NV21 frame of exactly width * height * 3 / 2
//   bytes with an odd height ends half-way through its last chroma row): the row takes the last
//   chroma row that the input holds in full, the one of the rows above it; when the input holds
//   no whole chroma row (a single row), the row is converted with neutral chroma (V = U = 128),
//   that is as the grey of its luma;
// - rows whose luma the input does not hold, and widths or heights of zero or less: nothing is
//   done.
void nv21ToRgb565(const uint8_t* nv21, size_t nv21Bytes, int width, int height, uint8_t* rgb565);
void nv21ToRgb565(KernelVariant variant, const uint8_t* nv21, size_t nv21Bytes, int width,
                  int height, uint8_t* rgb565);

// NV21 chroma to NV12 chroma: dst[2k] = src[2k + 1], dst[2k + 1] = src[2k] for every whole pair
// of the `bytes` bytes. An odd last byte has no partner and is copied unchanged. dst may equal src
// (swap in place); otherwise the two must not overlap.
void copySwapChromaPairs(uint8_t* dst, const uint8_t* src, size_t bytes);
void copySwapChromaPairs(KernelVariant variant, uint8_t* dst, const uint8_t* src, size_t bytes);

// Copies `rows` rows of `rowBytes` bytes, src rows srcPitch apart and dst rows dstPitch apart:
// one memcpy of the whole plane when both pitches equal rowBytes, one per row otherwise. The planes
// must not overlap.
void copyPlane(uint8_t* dst, size_t dstPitch, const uint8_t* src, size_t srcPitch, size_t rowBytes,
               size_t rows);

// copyPlane with the byte pairs of every row swapped as by copySwapChromaPairs (the NV21 chroma
// plane into an NV12 one). Packed planes of even rowBytes go as one run.
void copyPlaneSwapPairs(uint8_t* dst, size_t dstPitch, const uint8_t* src, size_t srcPitch,
                        size_t rowBytes, size_t rows);
void copyPlaneSwapPairs(KernelVariant variant, uint8_t* dst, size_t dstPitch, const uint8_t* src,
                        size_t srcPitch, size_t rowBytes, size_t rows);

}  // namespace nuvra::kernels
