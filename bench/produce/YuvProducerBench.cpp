// A camera frame passed on through the library on the phone profile (padded strides): one image
// acquired from an ImageReader produced into a Surface (NV21 and Venus NV12 buffers; the library's
// whole cycle of image lock, dequeue, lock, copy, unlock and queue, and the consumer's acquire and
// release) and into an NV21 HardwareBuffer, beside memcpy of the same bytes between two gralloc
// buffers.

#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <android_runtime/android_view_Surface.h>
#include <benchmark/benchmark.h>
#include <gui/BufferItem.h>
#include <gui/BufferItemConsumer.h>
#include <gui/BufferQueue.h>
#include <gui/Surface.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/LogCapture.h>
#include <hostjvm/Jvm.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>

#include <cstring>
#include <string>

#include "PhoneBench.h"
#include "surface/SurfaceNativeUtil.h"

namespace {

using namespace nuvra::bench;
using android::GraphicBuffer;
using android::sp;

constexpr int kVenusNv12 = 0x7FA30C04;

// One flexible YUV camera frame held by the application as a Java image.
struct CameraFrame {
    CameraFrame(JNIEnv* e, int width, int height) : env(e) {
        jclass cls = env->FindClass("android/media/ImageReader");
        reader = env->CallStaticObjectMethod(
                cls,
                env->GetStaticMethodID(cls, "newInstance", "(IIII)Landroid/media/ImageReader;"),
                width, height, HAL_PIXEL_FORMAT_YCbCr_420_888, 1);
        jobject javaSurface = env->CallObjectMethod(
                reader, env->GetMethodID(cls, "getSurface", "()Landroid/view/Surface;"));
        producer = android::android_view_Surface_getSurface(env, javaSurface);
        ANativeWindow* anw = producer.get();
        native_window_api_connect(anw, NATIVE_WINDOW_API_CPU);
        ANativeWindowBuffer* anb = nullptr;
        if (native_window_dequeue_buffer_and_wait(anw, &anb) == 0) {
            anw->queueBuffer(anw, anb, -1);
            image = env->CallObjectMethod(
                    reader, env->GetMethodID(cls, "acquireNextImage", "()Landroid/media/Image;"));
        }
    }
    ~CameraFrame() {
        if (image != nullptr) {
            env->CallVoidMethod(
                    image, env->GetMethodID(env->FindClass("android/media/Image"), "close", "()V"));
        }
        native_window_api_disconnect(producer.get(), NATIVE_WINDOW_API_CPU);
        env->CallVoidMethod(reader, env->GetMethodID(env->GetObjectClass(reader), "close", "()V"));
    }
    JNIEnv* env;
    jobject reader = nullptr;
    jobject image = nullptr;
    sp<android::Surface> producer;
};

void produceIntoSurface(benchmark::State& state, int bufferFormat) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    PhoneProfile profile;
    JNIEnv* env = jvm();
    env->PushLocalFrame(64);
    CameraFrame frame(env, width, height);

    sp<android::IGraphicBufferProducer> producerEnd;
    sp<android::IGraphicBufferConsumer> consumerEnd;
    android::BufferQueue::createBufferQueue(&producerEnd, &consumerEnd);
    sp<android::BufferItemConsumer> consumer =
            new android::BufferItemConsumer(consumerEnd, GRALLOC_USAGE_SW_READ_OFTEN, 1);
    consumerEnd->setDefaultBufferSize(width, height);
    consumerEnd->setDefaultBufferFormat(bufferFormat);
    sp<android::Surface> surface = new android::Surface(producerEnd, true);
    jobject javaSurface = android::android_view_Surface_createFromSurface(env, surface);
    SurfaceNativeUtil* util = SurfaceNativeUtil_Get();
    util->nativeConnectSurface(env, javaSurface);
    native_window_set_usage(surface.get(), GRALLOC_USAGE_SW_WRITE_OFTEN);

    for (auto _ : state) {
        if (frame.image == nullptr ||
            util->nativeProduceFrameWithYuv420(env, javaSurface, frame.image) != 0) {
            state.SkipWithError("nativeProduceFrameWithYuv420 failed");
            break;
        }
        android::BufferItem item;
        consumer->acquireBuffer(&item, 0);
        consumer->releaseBuffer(item);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(frameBytes(width, height)));
    util->nativeDisconnectSurface(env, javaSurface);
    consumer->abandon();
    env->PopLocalFrame(nullptr);
}

void produceIntoHardwareBuffer(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    PhoneProfile profile;
    JNIEnv* env = jvm();
    env->PushLocalFrame(64);
    CameraFrame frame(env, width, height);
    jclass cls = env->FindClass("android/hardware/HardwareBuffer");
    jobject hardwareBuffer = env->CallStaticObjectMethod(
            cls, env->GetStaticMethodID(cls, "create", "(IIIIJ)Landroid/hardware/HardwareBuffer;"),
            width, height, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1, static_cast<jlong>(kCpuReadWrite));
    SurfaceNativeUtil* util = SurfaceNativeUtil_Get();
    for (auto _ : state) {
        if (frame.image == nullptr || hardwareBuffer == nullptr ||
            util->nativeProduceFrameToHardwareBuffer(env, frame.image, hardwareBuffer) != 0) {
            state.SkipWithError("nativeProduceFrameToHardwareBuffer failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(frameBytes(width, height)));
    env->CallVoidMethod(hardwareBuffer, env->GetMethodID(cls, "close", "()V"));
    env->PopLocalFrame(nullptr);
}

}  // namespace

BENCHMARK_CAPTURE(produceIntoSurface, nv21, HAL_PIXEL_FORMAT_YCrCb_420_SP)
        ->Name("Camera frame produced/into NV21 Surface")
        ->Apply(frameSizes);
BENCHMARK_CAPTURE(produceIntoSurface, venusNv12, kVenusNv12)
        ->Name("Camera frame produced/into Venus NV12 Surface")
        ->Apply(frameSizes);
BENCHMARK(produceIntoHardwareBuffer)
        ->Name("Camera frame produced/into NV21 HardwareBuffer")
        ->Apply(frameSizes);
BENCHMARK(memcpyOfTheFrame)->Name("Camera frame produced/memcpy")->Apply(frameSizes);
