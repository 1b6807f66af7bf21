// The high-byte extraction of a frame of 16-bit samples (w * h luma words, then w * h / 2 chroma
// words) at 1920x1080 and 4032x3024: the scalar reference, the dispatched kernel, and memcpy of the
// bytes it writes. Counters: bytes = bytes written.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "surface/kernels/HighBytes.h"

namespace {

using nuvra::kernels::KernelVariant;

struct FrameSize {
    int w, h;
};
constexpr FrameSize kSizes[] = {{1920, 1080}, {4032, 3024}};

// Page-aligned random bytes, as the locked graphic buffers are.
struct Buffer {
    explicit Buffer(size_t n)
        : bytes(static_cast<uint8_t*>(aligned_alloc(4096, (n + 4095) & ~size_t{4095})), free) {
        std::mt19937 rng(static_cast<uint32_t>(n));
        for (size_t i = 0; i < n; ++i) bytes.get()[i] = static_cast<uint8_t>(rng());
    }
    uint8_t* data() const { return bytes.get(); }
    std::unique_ptr<uint8_t, decltype(&free)> bytes;
};

void extract(benchmark::State& state, FrameSize s, bool dispatched) {
    const size_t pixels = size_t(s.w) * s.h;
    const Buffer luma(2 * pixels), chroma(pixels);
    Buffer out(pixels * 3 / 2);
    for (auto _ : state) {
        if (dispatched) {
            nuvra::kernels::extractHighByteFrame(out.data(), luma.data(), chroma.data(), pixels);
        } else {
            nuvra::kernels::extractHighByteFrame(KernelVariant::Scalar, out.data(), luma.data(),
                                                 chroma.data(), pixels);
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(pixels * 3 / 2));
}

void memcpyOutput(benchmark::State& state, FrameSize s) {
    const size_t bytes = size_t(s.w) * s.h * 3 / 2;
    const Buffer src(bytes);
    Buffer dst(bytes);
    for (auto _ : state) {
        memcpy(dst.data(), src.data(), bytes);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
}

const bool gRegistered = [] {
    const std::string best = nuvra::kernels::variantName(nuvra::kernels::bestVariant());
    for (FrameSize s : kSizes) {
        const std::string group =
                "HighByteFrame/" + std::to_string(s.w) + "x" + std::to_string(s.h) + "/";
        benchmark::RegisterBenchmark((group + "Scalar").c_str(), extract, s, false);
        benchmark::RegisterBenchmark((group + "Dispatched_" + best).c_str(), extract, s, true);
        benchmark::RegisterBenchmark((group + "memcpy").c_str(), memcpyOutput, s);
    }
    return true;
}();

}  // namespace
