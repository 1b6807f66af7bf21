// Flexible YUV to NV21 at 1920x1080 and 4032x3024, in the two layouts cameras deliver (planar
// chroma, and Cb-first interleaved chroma in one buffer): the scalar rule, the dispatched kernel,
// libyuv's nearest routines and memcpy of the same bytes. The chroma gather alone beside libyuv's
// MergeUVPlane (planar) and SwapUVPlane (interleaved). Counters: bytes = bytes written.
#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "surface/kernels/FlexibleYuv.h"

namespace {

using nuvra::kernels::KernelVariant;

struct FrameSize {
    int w, h;
};
constexpr FrameSize kSizes[] = {{1920, 1080}, {4032, 3024}};

// Page-aligned random bytes, as gralloc buffers and the Java direct buffers over them are.
struct Buffer {
    explicit Buffer(size_t n)
        : bytes(static_cast<uint8_t*>(aligned_alloc(4096, (n + 4095) & ~size_t{4095})), free) {
        std::mt19937 rng(static_cast<uint32_t>(n));
        for (size_t i = 0; i < n; ++i) bytes.get()[i] = static_cast<uint8_t>(rng());
    }
    uint8_t* data() const { return bytes.get(); }
    std::unique_ptr<uint8_t, decltype(&free)> bytes;
};

enum class Chroma { Planar, CbFirst };

// The three planes of a camera frame as an ImageReader hands them over: luma rows of width bytes,
// and either two planar chroma planes of width / 2 bytes a row, or one buffer of Cb, Cr pairs with
// V one byte after U (row stride width).
struct Flexible {
    Flexible(FrameSize s, Chroma c)
        : w(s.w), h(s.h), chroma(c), y(size_t(w) * h), u(size_t(w) * h / 2), v(size_t(w) * h / 4) {}
    const uint8_t* uPlane() const { return u.data(); }
    const uint8_t* vPlane() const { return chroma == Chroma::Planar ? v.data() : u.data() + 1; }
    int uRowStride() const { return chroma == Chroma::Planar ? w / 2 : w; }
    int pixelStride() const { return chroma == Chroma::Planar ? 1 : 2; }
    size_t nv21Bytes() const { return size_t(w) * h * 3 / 2; }
    int w, h;
    Chroma chroma;
    Buffer y, u, v;
};

void setBytes(benchmark::State& state, size_t bytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
}

// Our conversion; `dispatched` takes the overload without a variant (the CPU's best).
void ours(benchmark::State& state, FrameSize s, Chroma c, bool dispatched) {
    const Flexible f(s, c);
    Buffer out(f.nv21Bytes());
    for (auto _ : state) {
        if (dispatched) {
            nuvra::kernels::flexibleToNv21(out.data(), f.y.data(), f.uPlane(), f.vPlane(), f.w,
                                           f.uRowStride(), f.pixelStride(), f.pixelStride(), f.w,
                                           f.h);
        } else {
            nuvra::kernels::flexibleToNv21(KernelVariant::Scalar, out.data(), f.y.data(),
                                           f.uPlane(), f.vPlane(), f.w, f.uRowStride(),
                                           f.pixelStride(), f.pixelStride(), f.w, f.h);
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setBytes(state, f.nv21Bytes());
}

// libyuv's route for the same planes: Android420ToI420 into I420, then I420ToNV21.
void libyuvAndroid420(benchmark::State& state, FrameSize s, Chroma c) {
    const Flexible f(s, c);
    Buffer i420(f.nv21Bytes()), out(f.nv21Bytes());
    const int cw = f.w / 2;
    uint8_t* iu = i420.data() + size_t(f.w) * f.h;
    uint8_t* iv = iu + size_t(cw) * (f.h / 2);
    for (auto _ : state) {
        libyuv::Android420ToI420(f.y.data(), f.w, f.uPlane(), f.uRowStride(), f.vPlane(),
                                 f.uRowStride(), f.pixelStride(), i420.data(), f.w, iu, cw, iv, cw,
                                 f.w, f.h);
        libyuv::I420ToNV21(i420.data(), f.w, iu, cw, iv, cw, out.data(), f.w,
                           out.data() + size_t(f.w) * f.h, f.w, f.w, f.h);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setBytes(state, f.nv21Bytes());
}

// libyuv's one-pass routine where the layout has one: I420ToNV21 (planar), NV21ToNV12 (Cb-first).
void libyuvOnePass(benchmark::State& state, FrameSize s, Chroma c) {
    const Flexible f(s, c);
    Buffer out(f.nv21Bytes());
    uint8_t* vu = out.data() + size_t(f.w) * f.h;
    for (auto _ : state) {
        if (c == Chroma::Planar) {
            libyuv::I420ToNV21(f.y.data(), f.w, f.uPlane(), f.w / 2, f.vPlane(), f.w / 2,
                               out.data(), f.w, vu, f.w, f.w, f.h);
        } else {
            // The pair swap is its own inverse: NV21ToNV12 does NV12 to NV21 as well.
            libyuv::NV21ToNV12(f.y.data(), f.w, f.uPlane(), f.w, out.data(), f.w, vu, f.w, f.w,
                               f.h);
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setBytes(state, f.nv21Bytes());
}

// The chroma alone: our gather, and libyuv's MergeUVPlane (V first) or SwapUVPlane.
void chromaOurs(benchmark::State& state, FrameSize s, Chroma c, KernelVariant v) {
    const Flexible f(s, c);
    Buffer out(size_t(f.w) * f.h / 2);
    for (auto _ : state) {
        nuvra::kernels::gatherFlexibleChroma(v, out.data(), f.uPlane(), f.vPlane(), f.uRowStride(),
                                             f.pixelStride(), f.pixelStride(), f.w, f.h);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setBytes(state, size_t(f.w) * f.h / 2);
}

void chromaLibyuv(benchmark::State& state, FrameSize s, Chroma c) {
    const Flexible f(s, c);
    Buffer out(size_t(f.w) * f.h / 2);
    for (auto _ : state) {
        if (c == Chroma::Planar) {
            libyuv::MergeUVPlane(f.vPlane(), f.w / 2, f.uPlane(), f.w / 2, out.data(), f.w, f.w / 2,
                                 f.h / 2);
        } else {
            libyuv::SwapUVPlane(f.uPlane(), f.w, out.data(), f.w, f.w / 2, f.h / 2);
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setBytes(state, size_t(f.w) * f.h / 2);
}

void memcpyBytes(benchmark::State& state, size_t bytes) {
    const Buffer src(bytes);
    Buffer dst(bytes);
    for (auto _ : state) {
        memcpy(dst.data(), src.data(), bytes);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    setBytes(state, bytes);
}

const bool gRegistered = [] {
    const std::string best = nuvra::kernels::variantName(nuvra::kernels::bestVariant());
    for (Chroma c : {Chroma::Planar, Chroma::CbFirst}) {
        const std::string layout = c == Chroma::Planar ? "Planar" : "CbFirst";
        for (FrameSize s : kSizes) {
            const std::string group = "FlexibleToNV21" + layout + "/" + std::to_string(s.w) + "x" +
                                      std::to_string(s.h) + "/";
            const size_t bytes = size_t(s.w) * s.h * 3 / 2;
            benchmark::RegisterBenchmark((group + "Scalar").c_str(), ours, s, c, false);
            benchmark::RegisterBenchmark((group + "Dispatched_" + best).c_str(), ours, s, c, true);
            benchmark::RegisterBenchmark((group + "libyuv_Android420ToI420+I420ToNV21").c_str(),
                                         libyuvAndroid420, s, c);
            benchmark::RegisterBenchmark(
                    (group + (c == Chroma::Planar ? "libyuv_I420ToNV21" : "libyuv_NV21ToNV12"))
                            .c_str(),
                    libyuvOnePass, s, c);
            benchmark::RegisterBenchmark((group + "memcpy").c_str(), memcpyBytes, bytes);
        }
        for (FrameSize s : kSizes) {
            const std::string group = "FlexibleChroma" + layout + "/" + std::to_string(s.w) + "x" +
                                      std::to_string(s.h) + "/";
            for (KernelVariant v : {KernelVariant::Scalar, KernelVariant::SSE2, KernelVariant::AVX2,
                                    KernelVariant::NEON}) {
                if (!nuvra::kernels::variantSupported(v)) continue;
                benchmark::RegisterBenchmark((group + nuvra::kernels::variantName(v)).c_str(),
                                             chromaOurs, s, c, v);
            }
            benchmark::RegisterBenchmark(
                    (group + (c == Chroma::Planar ? "libyuv_MergeUVPlane" : "libyuv_SwapUVPlane"))
                            .c_str(),
                    chromaLibyuv, s, c);
            benchmark::RegisterBenchmark((group + "memcpy").c_str(), memcpyBytes,
                                         size_t(s.w) * s.h / 2);
        }
    }
    return true;
}();

}  // namespace
