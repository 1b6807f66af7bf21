// Shared pieces of the kernel tests: buffers fenced by inaccessible pages, an independent model of
// what each kernel must write (floating-point floors, pixel by pixel), and the variants to run.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "surface/kernels/PixelKernels.h"

namespace nuvra::kernels {

// Parameterised test names and failure messages show the variant by name.
inline void PrintTo(KernelVariant v, std::ostream* os) {
    *os << variantName(v);
}

}  // namespace nuvra::kernels

namespace nuvra::kernels::test {

constexpr uint8_t kCanary = 0xA5;

// `size` bytes placed directly against an inaccessible (PROT_NONE) page, after the data
// (Fence::After) or before it (Fence::Before): one byte of over-run past that side faults.
class GuardedBuffer {
public:
    enum class Fence { After, Before };

    explicit GuardedBuffer(size_t size, Fence fence = Fence::After) : size_(size) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t dataPages = (size + page - 1) / page;
        mappedBytes_ = (dataPages + 2) * page;
        map_ = static_cast<uint8_t*>(mmap(nullptr, mappedBytes_, PROT_READ | PROT_WRITE,
                                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (map_ == MAP_FAILED) throw std::bad_alloc();
        mprotect(map_, page, PROT_NONE);
        mprotect(map_ + (dataPages + 1) * page, page, PROT_NONE);
        data_ = fence == Fence::After ? map_ + (dataPages + 1) * page - size : map_ + page;
        memset(data_, kCanary, size);
    }
    ~GuardedBuffer() { munmap(map_, mappedBytes_); }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    std::vector<uint8_t> bytes() const { return std::vector<uint8_t>(data_, data_ + size_); }

private:
    uint8_t* map_;
    uint8_t* data_;
    size_t size_, mappedBytes_;
};

inline int modelY(int r, int g, int b) {
    return static_cast<int>(std::floor((77 * r + 150 * g + 29 * b) / 256.0));
}
inline int modelCb(int r, int g, int b) {
    return static_cast<int>(std::floor((-43 * r - 85 * g + 128 * b) / 256.0)) + 128;
}
inline int modelCr(int r, int g, int b) {
    return static_cast<int>(std::floor((128 * r - 107 * g - 21 * b) / 256.0)) + 128;
}

inline uint16_t modelRgb565(int y, int u, int v) {
    auto clamp = [](double c) { return c < 0 ? 0 : (c > 255 ? 255 : static_cast<int>(c)); };
    const int r = clamp(y + std::floor(359.0 * (v - 128) / 256.0));
    const int g = clamp(y - std::floor((88.0 * (u - 128) + 183.0 * (v - 128)) / 256.0));
    const int b = clamp(y + std::floor(454.0 * (u - 128) / 256.0));
    return static_cast<uint16_t>((r >> 3) << 11 | (g >> 2) << 5 | (b >> 3));
}

// The pixel walk of rgbaToYuv420 written out directly: Y, then Cb and Cr, pixel by pixel.
inline void modelRgbaToYuv420(const uint8_t* rgba, size_t width, size_t height, uint8_t* y,
                              uint8_t* cr, uint8_t* cb, size_t step, size_t yStride,
                              size_t chromaStride) {
    for (size_t r = 0; r < height; ++r) {
        for (size_t x = 0; x < width; ++x) {
            const uint8_t* p = rgba + (r * width + x) * 4;
            y[r * yStride + x] = static_cast<uint8_t>(modelY(p[0], p[1], p[2]));
            if (r % 2 == 0 && x % 2 == 0) {
                const size_t at = (r / 2) * chromaStride + (x / 2) * step;
                cb[at] = static_cast<uint8_t>(modelCb(p[0], p[1], p[2]));
                cr[at] = static_cast<uint8_t>(modelCr(p[0], p[1], p[2]));
            }
        }
    }
}

// What nv21ToRgb565 must write from `bytes` input bytes: pairs of pixels per row with chroma row
// r / 2; where the input ends before that row's last pair, the nearest chroma row above that it
// holds in full, or V = U = 128 when it holds none; nothing for the odd last column or for rows
// whose luma pairs the input does not hold.
inline void modelNv21ToRgb565(const uint8_t* nv21, size_t bytes, int width, int height,
                              uint8_t* out) {
    if (width <= 0 || height <= 0) return;
    const size_t w = static_cast<size_t>(width), h = static_cast<size_t>(height), even = w / 2 * 2;
    for (size_t r = 0; r < h && r * w + even <= bytes; ++r) {
        long chromaRow = static_cast<long>(r / 2);
        while (chromaRow >= 0 && w * h + chromaRow * w + even > bytes) --chromaRow;
        for (size_t x = 0; x < even; ++x) {
            const uint8_t* vu = chromaRow >= 0 ? nv21 + w * h + chromaRow * w + x / 2 * 2 : nullptr;
            const uint16_t px = modelRgb565(nv21[r * w + x], vu ? vu[1] : 128, vu ? vu[0] : 128);
            out[(r * w + x) * 2] = static_cast<uint8_t>(px & 0xFF);
            out[(r * w + x) * 2 + 1] = static_cast<uint8_t>(px >> 8);
        }
    }
}

inline std::vector<KernelVariant> allVariants() {
    return {KernelVariant::Scalar, KernelVariant::SSE2, KernelVariant::SSSE3, KernelVariant::AVX2,
            KernelVariant::NEON};
}

// Test names of the suites over allVariants(): unsupported variants run the scalar rows and are
// marked as such.
inline std::string variantLabel(const ::testing::TestParamInfo<KernelVariant>& info) {
    return std::string(variantName(info.param)) + (variantSupported(info.param) ? "" : "_Fallback");
}

enum class Fill { Random, Extremes, Black, White };

inline void fillBytes(uint8_t* p, size_t n, Fill fill, std::mt19937& rng) {
    std::uniform_int_distribution<int> byte(0, 255);
    for (size_t i = 0; i < n; ++i) {
        p[i] = static_cast<uint8_t>(fill == Fill::Random     ? byte(rng)
                                    : fill == Fill::Extremes ? (byte(rng) & 1) * 255
                                                             : (fill == Fill::White) * 255);
    }
}

}  // namespace nuvra::kernels::test
