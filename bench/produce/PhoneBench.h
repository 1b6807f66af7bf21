/*
 * What the benchmarks of whole library calls on the phone profile share: the JVM, the profile
 * for one benchmark, the frame sizes, and memcpy of a frame's bytes between two gralloc buffers
 * of that profile as the baseline.
 */
#pragma once

#include <benchmark/benchmark.h>
#include <hardware/gralloc.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/LogCapture.h>
#include <hostjvm/Jvm.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>

#include <cstring>
#include <string>

namespace nuvra::bench {

inline constexpr uint64_t kCpuReadWrite =
        GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

inline JNIEnv* jvm() {
    host::setLogEcho(false);
    host::JvmOptions options;
    options.checkJni = false;
    return host::startJvm(options);
}

// The phone profile for one benchmark, the previous one restored after it.
class PhoneProfile {
public:
    PhoneProfile() : mPrevious(host::currentDeviceProfile().name) {
        host::selectDeviceProfile("phone-qcom");
    }
    ~PhoneProfile() { host::selectDeviceProfile(mPrevious); }

private:
    std::string mPrevious;
};

inline size_t frameBytes(int width, int height) {
    return static_cast<size_t>(width) * height * 3 / 2;
}

// The frame's bytes copied between two gralloc buffers of the phone profile.
inline void memcpyOfTheFrame(benchmark::State& state) {
    PhoneProfile profile;
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    const size_t bytes = frameBytes(width, height);
    android::sp<android::GraphicBuffer> from = new android::GraphicBuffer(
            width, height, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1, kCpuReadWrite, "bench-source");
    android::sp<android::GraphicBuffer> to = new android::GraphicBuffer(
            width, height, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1, kCpuReadWrite, "bench-target");
    void* s = nullptr;
    void* d = nullptr;
    if (from->lock(GRALLOC_USAGE_SW_READ_OFTEN, &s) != 0 ||
        to->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &d) != 0) {
        state.SkipWithError("locking the buffers failed");
        return;
    }
    for (auto _ : state) {
        memcpy(d, s, bytes);
        benchmark::DoNotOptimize(d);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
    from->unlock();
    to->unlock();
}

// 1080p and 12 MP frames, wall time in microseconds.
inline void frameSizes(benchmark::internal::Benchmark* b) {
    b->Args({1920, 1080})->Args({4032, 3024})->Unit(benchmark::kMicrosecond)->UseRealTime();
}

}  // namespace nuvra::bench
