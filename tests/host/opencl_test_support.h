// Compressed NV12 pictures and buffers for the host OpenCL driver's tests and the GPU conversion's,
// and the OpenCL headers at the version both use.
#pragma once

#define CL_TARGET_OPENCL_VERSION 300
#define CL_USE_DEPRECATED_OPENCL_1_1_APIS
#define CL_USE_DEPRECATED_OPENCL_1_2_APIS
#include <CL/cl.h>
#include <CL/cl_ext_qcom.h>
#include <CL/cl_gl.h>
#include <gtest/gtest.h>
#include <hardware/gralloc_qcom.h>
#include <ui/GraphicBuffer.h>
#include <ui/HostCompressedNv12.h>

#include <random>
#include <vector>

namespace hosttest {

// A picture: packed NV12 (width x height luma, then (height+1)/2 rows of (width+1)/2 Cb, Cr
// pairs), random or smooth.
struct Nv12Picture {
    uint32_t width, height;
    std::vector<uint8_t> bytes;
    uint32_t chromaWidth() const { return (width + 1) / 2 * 2; }
    const uint8_t* uv() const { return bytes.data() + size_t{width} * height; }
    uint8_t y(uint32_t x, uint32_t row) const { return bytes[size_t{row} * width + x]; }
    uint8_t cb(uint32_t x, uint32_t row) const {
        return uv()[size_t{row / 2} * chromaWidth() + x / 2 * 2];
    }
    uint8_t cr(uint32_t x, uint32_t row) const {
        return uv()[size_t{row / 2} * chromaWidth() + x / 2 * 2 + 1];
    }
};

inline Nv12Picture makePicture(uint32_t width, uint32_t height, bool smooth, uint32_t seed) {
    Nv12Picture p{width, height, {}};
    const size_t luma = size_t{width} * height;
    p.bytes.resize(luma + size_t{p.chromaWidth()} * ((height + 1) / 2));
    std::mt19937 rng(seed);
    for (size_t i = 0; i < p.bytes.size(); ++i) {
        // Smooth: gentle ramps folded back at 200 with a little noise, as in a camera picture.
        const size_t pitch = i < luma ? width : p.chromaWidth(), at = i < luma ? i : i - luma;
        const size_t t = (at / pitch / 4 + at % pitch / 8) % 400;
        p.bytes[i] = smooth ? uint8_t(20 + (t < 200 ? t : 399 - t) + rng() % 2) : uint8_t(rng());
    }
    return p;
}

// NV21 as the library's kernel gives it from `p`: the luma of every whole 2x2 block, and the
// Cr, Cb of each block's top-left pixel; an odd last column and row are not compared.
inline void expectNv21Of(const Nv12Picture& p, const std::vector<uint8_t>& nv21) {
    const uint32_t w = p.width, h = p.height;
    size_t lumaMismatches = 0, chromaMismatches = 0;
    for (uint32_t r = 0; r < h / 2 * 2; ++r) {
        for (uint32_t x = 0; x < w / 2 * 2; ++x)
            lumaMismatches += nv21[size_t{r} * w + x] != p.y(x, r);
    }
    const uint8_t* vu = nv21.data() + size_t{w} * h;
    for (uint32_t r = 0; r < h / 2; ++r) {
        for (uint32_t k = 0; k < w / 2; ++k) {
            chromaMismatches += vu[size_t{r} * w + 2 * k] != p.cr(2 * k, 2 * r);
            chromaMismatches += vu[size_t{r} * w + 2 * k + 1] != p.cb(2 * k, 2 * r);
        }
    }
    EXPECT_EQ(lumaMismatches, 0u);
    EXPECT_EQ(chromaMismatches, 0u);
}

// A compressed NV12 buffer holding `picture`.
inline android::sp<android::GraphicBuffer> compressedBuffer(const Nv12Picture& picture) {
    android::sp<android::GraphicBuffer> buffer = new android::GraphicBuffer(
            picture.width, picture.height, HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC, 1,
            GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN | GRALLOC_USAGE_HW_TEXTURE,
            "test");
    EXPECT_TRUE(host::encodeCompressedNv12(*buffer, picture.bytes.data(), picture.width,
                                           picture.uv(), picture.chromaWidth()));
    return buffer;
}

}  // namespace hosttest
