// The pixel kernels, every variant this CPU runs, beside libyuv's nearest routines and memcpy, at
// 1920x1080 and 4032x3024. Counters: items = pixels of the frame, bytes = bytes read from the
// source (so a copy's bytes/s is directly its memcpy-comparable throughput).
#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "surface/kernels/PixelKernels.h"

namespace {

using nuvra::kernels::KernelVariant;

struct FrameSize {
    int w, h;
};
constexpr FrameSize kSizes[] = {{1920, 1080}, {4032, 3024}};

// Frames start on page boundaries, as gralloc buffers do.
template <typename T>
struct PageAligned {
    using value_type = T;
    PageAligned() = default;
    template <typename U>
    PageAligned(const PageAligned<U>&) {}
    T* allocate(size_t n) {
        void* p = aligned_alloc(4096, (n * sizeof(T) + 4095) / 4096 * 4096);
        if (p == nullptr) throw std::bad_alloc();
        return static_cast<T*>(p);
    }
    void deallocate(T* p, size_t) { free(p); }
    bool operator==(const PageAligned&) const { return true; }
    bool operator!=(const PageAligned&) const { return false; }
};
using Bytes = std::vector<uint8_t, PageAligned<uint8_t>>;

Bytes randomBytes(size_t n) {
    Bytes v(n);
    std::mt19937 rng(42);
    for (auto& b : v) b = static_cast<uint8_t>(rng());
    return v;
}

void setCounters(benchmark::State& state, const FrameSize& s, size_t sourceBytes) {
    state.SetItemsProcessed(state.iterations() * int64_t{s.w} * s.h);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(sourceBytes));
}

// RGBA to NV21 -----------------------------------------------------------------------------------

void rgbaToNv21(benchmark::State& state, KernelVariant v, FrameSize s) {
    const size_t w = s.w, h = s.h;
    const Bytes rgba = randomBytes(w * h * 4);
    Bytes out(w * h * 3 / 2);
    for (auto _ : state) {
        uint8_t* vu = out.data() + w * h;
        nuvra::kernels::rgbaToYuv420(v, rgba.data(), w, h, out.data(), vu, vu + 1, 2, w, w);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, s, rgba.size());
}

// libyuv's "ABGR" is R, G, B, A in memory, as our RGBA. Its arithmetic differs (BT.601 limited
// range, 2x2 averaged chroma); the work is of the same kind.
void libyuvAbgrToNv21(benchmark::State& state, FrameSize s) {
    const Bytes rgba = randomBytes(size_t(s.w) * s.h * 4);
    Bytes out(size_t(s.w) * s.h * 3 / 2);
    for (auto _ : state) {
        libyuv::ABGRToNV21(rgba.data(), s.w * 4, out.data(), s.w, out.data() + s.w * s.h, s.w, s.w,
                           s.h);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, s, rgba.size());
}

// NV21 to RGB565 ---------------------------------------------------------------------------------

void nv21ToRgb565(benchmark::State& state, KernelVariant v, FrameSize s) {
    const Bytes nv21 = randomBytes(size_t(s.w) * s.h * 3 / 2);
    Bytes out(size_t(s.w) * s.h * 2);
    for (auto _ : state) {
        nuvra::kernels::nv21ToRgb565(v, nv21.data(), nv21.size(), s.w, s.h, out.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, s, nv21.size());
}

// libyuv has no NV21ToRGB565; NV12ToRGB565 is the same work with the other chroma order.
void libyuvNv12ToRgb565(benchmark::State& state, FrameSize s) {
    const Bytes nv12 = randomBytes(size_t(s.w) * s.h * 3 / 2);
    Bytes out(size_t(s.w) * s.h * 2);
    for (auto _ : state) {
        libyuv::NV12ToRGB565(nv12.data(), s.w, nv12.data() + s.w * s.h, s.w, out.data(), s.w * 2,
                             s.w, s.h);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, s, nv12.size());
}

// Plane copies -----------------------------------------------------------------------------------

// The NV21 into NV21 path: the whole frame as one plane.
void copyNv21Frame(benchmark::State& state, FrameSize s) {
    const size_t bytes = size_t(s.w) * s.h * 3 / 2;
    const Bytes src = randomBytes(bytes);
    Bytes dst(bytes);
    for (auto _ : state) {
        nuvra::kernels::copyPlane(dst.data(), s.w, src.data(), s.w, s.w, size_t(s.h) * 3 / 2);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, s, bytes);
}

void memcpyBytes(benchmark::State& state, FrameSize s, size_t bytes) {
    const Bytes src = randomBytes(bytes);
    Bytes dst(bytes);
    for (auto _ : state) {
        memcpy(dst.data(), src.data(), bytes);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, s, bytes);
}

// The Venus NV12 chroma: w * h / 2 bytes with every pair swapped.
void swapChroma(benchmark::State& state, KernelVariant v, FrameSize s) {
    const size_t bytes = size_t(s.w) * s.h / 2;
    const Bytes src = randomBytes(bytes);
    Bytes dst(bytes);
    for (auto _ : state) {
        nuvra::kernels::copySwapChromaPairs(v, dst.data(), src.data(), bytes);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, s, bytes);
}

void libyuvSwapUvPlane(benchmark::State& state, FrameSize s) {
    const size_t bytes = size_t(s.w) * s.h / 2;
    const Bytes src = randomBytes(bytes);
    Bytes dst(bytes);
    for (auto _ : state) {
        libyuv::SwapUVPlane(src.data(), s.w, dst.data(), s.w, s.w / 2, s.h / 2);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, s, bytes);
}

// The whole Venus NV12 frame: luma copied, chroma pair-swapped.
void nv21ToVenusNv12(benchmark::State& state, KernelVariant v, FrameSize s) {
    const size_t luma = size_t(s.w) * s.h;
    const Bytes src = randomBytes(luma * 3 / 2);
    Bytes dst(luma * 3 / 2);
    for (auto _ : state) {
        nuvra::kernels::copyPlane(dst.data(), s.w, src.data(), s.w, s.w, s.h);
        nuvra::kernels::copySwapChromaPairs(v, dst.data() + luma, src.data() + luma, luma / 2);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, s, src.size());
}

void libyuvNv21ToNv12(benchmark::State& state, FrameSize s) {
    const size_t luma = size_t(s.w) * s.h;
    const Bytes src = randomBytes(luma * 3 / 2);
    Bytes dst(luma * 3 / 2);
    for (auto _ : state) {
        libyuv::NV21ToNV12(src.data(), s.w, src.data() + luma, s.w, dst.data(), s.w,
                           dst.data() + luma, s.w, s.w, s.h);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    setCounters(state, s, src.size());
}

std::string sizeName(FrameSize s) {
    return std::to_string(s.w) + "x" + std::to_string(s.h);
}

std::vector<KernelVariant> supportedVariants() {
    std::vector<KernelVariant> out;
    for (KernelVariant v : {KernelVariant::Scalar, KernelVariant::SSE2, KernelVariant::SSSE3,
                            KernelVariant::AVX2, KernelVariant::NEON}) {
        if (nuvra::kernels::variantSupported(v)) out.push_back(v);
    }
    return out;
}

// Registered in groups, each kernel beside its comparisons, per frame size.
const bool gRegistered = [] {
    const std::vector<KernelVariant> variants = supportedVariants();
    auto name = [](const char* group, FrameSize s, const std::string& who) {
        return std::string(group) + "/" + sizeName(s) + "/" + who;
    };
    for (FrameSize s : kSizes) {
        for (KernelVariant v : variants) {
            benchmark::RegisterBenchmark(
                    name("RgbaToNV21", s, nuvra::kernels::variantName(v)).c_str(), rgbaToNv21, v,
                    s);
        }
        benchmark::RegisterBenchmark(name("RgbaToNV21", s, "libyuv_ABGRToNV21").c_str(),
                                     libyuvAbgrToNv21, s);
    }
    for (FrameSize s : kSizes) {
        for (KernelVariant v : variants) {
            benchmark::RegisterBenchmark(
                    name("NV21ToRGB565", s, nuvra::kernels::variantName(v)).c_str(), nv21ToRgb565,
                    v, s);
        }
        benchmark::RegisterBenchmark(name("NV21ToRGB565", s, "libyuv_NV12ToRGB565").c_str(),
                                     libyuvNv12ToRgb565, s);
    }
    for (FrameSize s : kSizes) {
        benchmark::RegisterBenchmark(name("CopyNV21Frame", s, "copyPlane").c_str(), copyNv21Frame,
                                     s);
        benchmark::RegisterBenchmark(name("CopyNV21Frame", s, "memcpy").c_str(), memcpyBytes, s,
                                     size_t(s.w) * s.h * 3 / 2);
    }
    for (FrameSize s : kSizes) {
        for (KernelVariant v : variants) {
            benchmark::RegisterBenchmark(
                    name("SwapChroma", s, nuvra::kernels::variantName(v)).c_str(), swapChroma, v,
                    s);
        }
        benchmark::RegisterBenchmark(name("SwapChroma", s, "libyuv_SwapUVPlane").c_str(),
                                     libyuvSwapUvPlane, s);
        benchmark::RegisterBenchmark(name("SwapChroma", s, "memcpy").c_str(), memcpyBytes, s,
                                     size_t(s.w) * s.h / 2);
    }
    for (FrameSize s : kSizes) {
        for (KernelVariant v : variants) {
            benchmark::RegisterBenchmark(
                    name("NV21ToVenusNV12", s, nuvra::kernels::variantName(v)).c_str(),
                    nv21ToVenusNv12, v, s);
        }
        benchmark::RegisterBenchmark(name("NV21ToVenusNV12", s, "libyuv_NV21ToNV12").c_str(),
                                     libyuvNv21ToNv12, s);
        benchmark::RegisterBenchmark(name("NV21ToVenusNV12", s, "memcpy").c_str(), memcpyBytes, s,
                                     size_t(s.w) * s.h * 3 / 2);
    }
    return true;
}();

}  // namespace
