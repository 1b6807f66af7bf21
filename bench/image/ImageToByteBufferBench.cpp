// nativePutByteBufferFromImage of an NV21 camera frame end to end: the reader's acquire of the
// Java image, the library's lock, copy and unlock, and the image's close, beside memcpy of the
// same bytes. The producer's queueing of the next frame is not timed. The 64x48 frame shows the
// fixed cost of the cycle.

#include <android_runtime/android_view_Surface.h>
#include <benchmark/benchmark.h>
#include <gui/Surface.h>
#include <hostcontrol/LogCapture.h>
#include <hostjvm/Jvm.h>
#include <system/graphics.h>
#include <system/window.h>
#include <ui/GraphicBuffer.h>

#include <cstring>
#include <vector>

#include "surface/SurfaceNativeUtil.h"

namespace {

constexpr int kJavaYuv420 = 0x23;  // ImageFormat.YUV_420_888: NV21 buffers are accepted

JNIEnv* jvm() {
    static JNIEnv* env = [] {
        host::setLogEcho(false);
        host::JvmOptions options;
        options.checkJni = false;
        return host::startJvm(options);
    }();
    return env;
}

// Bytes of an NV21 frame as the library copies it from a packed buffer.
size_t nv21Bytes(int width, int height) {
    return static_cast<size_t>(width) * height * 3 / 2;
}

void putByteBufferFromImage(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    JNIEnv* env = jvm();
    env->PushLocalFrame(64);
    jclass readerClass = env->FindClass("android/media/ImageReader");
    jobject reader = env->CallStaticObjectMethod(
            readerClass,
            env->GetStaticMethodID(readerClass, "newInstance", "(IIII)Landroid/media/ImageReader;"),
            width, height, kJavaYuv420, 2);
    jobject javaSurface = env->CallObjectMethod(
            reader, env->GetMethodID(readerClass, "getSurface", "()Landroid/view/Surface;"));
    jmethodID acquire =
            env->GetMethodID(readerClass, "acquireNextImage", "()Landroid/media/Image;");
    jmethodID close = env->GetMethodID(env->FindClass("android/media/Image"), "close", "()V");
    android::sp<android::Surface> producer =
            android::android_view_Surface_getSurface(env, javaSurface);
    ANativeWindow* anw = producer.get();
    native_window_api_connect(anw, NATIVE_WINDOW_API_CPU);
    native_window_set_buffers_format(anw, HAL_PIXEL_FORMAT_YCrCb_420_SP);

    std::vector<uint8_t> out(nv21Bytes(width, height));
    jobject dst = env->NewDirectByteBuffer(out.data(), static_cast<jlong>(out.size()));
    SurfaceNativeUtil* util = SurfaceNativeUtil_Get();
    for (auto _ : state) {
        state.PauseTiming();
        ANativeWindowBuffer* anb = nullptr;
        if (native_window_dequeue_buffer_and_wait(anw, &anb) != 0 ||
            anw->queueBuffer(anw, anb, -1) != 0) {
            state.SkipWithError("queueing the frame failed");
            break;
        }
        state.ResumeTiming();
        jobject image = env->CallObjectMethod(reader, acquire);
        int status = util->nativePutByteBufferFromImage(env, image, dst);
        env->CallVoidMethod(image, close);
        env->DeleteLocalRef(image);
        if (status != 0) {
            state.SkipWithError("nativePutByteBufferFromImage failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(out.size()));
    native_window_api_disconnect(anw, NATIVE_WINDOW_API_CPU);
    env->CallVoidMethod(reader, env->GetMethodID(readerClass, "close", "()V"));
    env->PopLocalFrame(nullptr);
}

// The copy alone: the same bytes from a gralloc buffer of the frame's size and format (the same
// kind of memory the camera's buffers are) into the same kind of destination.
void memcpyOfTheFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    const size_t bytes = nv21Bytes(width, height);
    android::sp<android::GraphicBuffer> frame = new android::GraphicBuffer(
            width, height, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1,
            GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN, "bench");
    void* mapped = nullptr;
    if (frame->lock(GRALLOC_USAGE_SW_READ_OFTEN, &mapped) != 0) {
        state.SkipWithError("locking the frame failed");
        return;
    }
    const uint8_t* s = static_cast<const uint8_t*>(mapped);
    std::vector<uint8_t> out(bytes);
    uint8_t* d = out.data();
    for (auto _ : state) {
        memcpy(d, s, bytes);
        benchmark::DoNotOptimize(d);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
    frame->unlock();
}

}  // namespace

BENCHMARK(putByteBufferFromImage)
        ->Name("NV21 image to byte buffer/end to end")
        ->Args({64, 48})
        ->Args({1920, 1080})
        ->Args({4032, 3024})
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
BENCHMARK(memcpyOfTheFrame)
        ->Name("NV21 image to byte buffer/memcpy")
        ->Args({64, 48})
        ->Args({1920, 1080})
        ->Args({4032, 3024})
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
