// produceFrame end to end at 1080p, RGBA into NV21: the library's whole buffer cycle (Java Surface
// lookup, dequeue, lock, convert, unlock, queue) and the consumer's acquire and release, beside
// the same conversion alone on the same bytes. The difference is the buffer cycle's own cost.

#include <android_runtime/android_view_Surface.h>
#include <benchmark/benchmark.h>
#include <gui/BufferItem.h>
#include <gui/BufferItemConsumer.h>
#include <gui/BufferQueue.h>
#include <gui/Surface.h>
#include <hostcontrol/LogCapture.h>
#include <hostjvm/Jvm.h>
#include <system/graphics.h>

#include <vector>

#include "surface/SurfaceNativeUtil.h"
#include "surface/kernels/PixelKernels.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

std::vector<uint8_t> testFrame() {
    std::vector<uint8_t> rgba(static_cast<size_t>(kWidth) * kHeight * 4);
    for (size_t i = 0; i < rgba.size(); ++i) rgba[i] = static_cast<uint8_t>(i * 31 + (i >> 12));
    return rgba;
}

void produceFrameEndToEnd(benchmark::State& state) {
    host::setLogEcho(false);
    host::JvmOptions options;
    options.checkJni = false;
    JNIEnv* env = host::startJvm(options);

    android::sp<android::IGraphicBufferProducer> producer;
    android::sp<android::IGraphicBufferConsumer> consumerEnd;
    android::BufferQueue::createBufferQueue(&producer, &consumerEnd);
    android::sp<android::BufferItemConsumer> consumer =
            new android::BufferItemConsumer(consumerEnd, GRALLOC_USAGE_SW_READ_OFTEN, 1);
    consumerEnd->setDefaultBufferSize(kWidth, kHeight);
    consumerEnd->setDefaultBufferFormat(HAL_PIXEL_FORMAT_YCrCb_420_SP);
    android::sp<android::Surface> surface = new android::Surface(producer, true);
    jobject javaSurface = android::android_view_Surface_createFromSurface(env, surface);

    SurfaceNativeUtil* util = SurfaceNativeUtil_Get();
    util->nativeConnectSurface(env, javaSurface);
    native_window_set_usage(surface.get(), GRALLOC_USAGE_SW_WRITE_OFTEN);  // a CPU producer
    std::vector<uint8_t> rgba = testFrame();
    jobject pixels = env->NewDirectByteBuffer(rgba.data(), static_cast<jlong>(rgba.size()));

    for (auto _ : state) {
        if (util->nativeProduceFrame(env, javaSurface, pixels, kWidth, kHeight,
                                     HAL_PIXEL_FORMAT_RGBA_8888) != 0) {
            state.SkipWithError("nativeProduceFrame failed");
            break;
        }
        android::BufferItem item;
        consumer->acquireBuffer(&item, 0);
        consumer->releaseBuffer(item);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * rgba.size());

    util->nativeDisconnectSurface(env, javaSurface);
    consumer->abandon();
    env->DeleteLocalRef(pixels);
    env->DeleteLocalRef(javaSurface);
}

// The conversion that produceFrame runs for this row, into a buffer of the same size.
void conversionAlone(benchmark::State& state) {
    std::vector<uint8_t> rgba = testFrame();
    std::vector<uint8_t> nv21(static_cast<size_t>(kWidth) * kHeight * 3 / 2);
    uint8_t* y = nv21.data();
    uint8_t* cr = y + static_cast<size_t>(kWidth) * kHeight;
    for (auto _ : state) {
        nuvra::kernels::rgbaToYuv420(rgba.data(), kWidth, kHeight, y, cr, cr + 1, 2, kWidth,
                                     kWidth);
        benchmark::DoNotOptimize(nv21.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * rgba.size());
}

BENCHMARK(conversionAlone)->Name("ProduceFrame/1920x1080/RgbaToNV21/conversion_only");
BENCHMARK(produceFrameEndToEnd)->Name("ProduceFrame/1920x1080/RgbaToNV21/produceFrame_end_to_end");

}  // namespace
