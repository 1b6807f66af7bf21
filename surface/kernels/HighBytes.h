// 16-bit samples reduced to 8 bits by keeping their high bytes: for a frame whose luma and chroma
// are stored as little-endian 16-bit words, the high byte of each word (the odd-indexed bytes)
// gives the 8-bit image, luma then chroma, packed.
//
// The scalar rows are the reference; the SSE2 (also used for SSSE3), AVX2 and NEON rows write the
// same bytes. The rows read the samples as whole words: `count` samples are the 2 * count bytes
// from the start pointer, nothing beyond them. The output must not overlap the input.
#pragma once

#include <cstddef>
#include <cstdint>

#include "surface/kernels/PixelKernels.h"

namespace nuvra::kernels {

// dst[j] = samples[2 * j + 1] for j < count.
void extractHighBytes(uint8_t* dst, const uint8_t* samples, size_t count);
void extractHighBytes(KernelVariant variant, uint8_t* dst, const uint8_t* samples, size_t count);

// A frame of `pixels` luma samples at luma and pixels / 2 chroma samples at chroma (4:2:0): their
// high bytes into dst, the luma's `pixels` bytes followed by the chroma's pixels / 2 bytes.
void extractHighByteFrame(uint8_t* dst, const uint8_t* luma, const uint8_t* chroma, size_t pixels);
void extractHighByteFrame(KernelVariant variant, uint8_t* dst, const uint8_t* luma,
                          const uint8_t* chroma, size_t pixels);

}  // namespace nuvra::kernels
