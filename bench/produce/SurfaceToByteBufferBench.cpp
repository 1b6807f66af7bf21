// nativePutByteBufferFromSurface on the phone profile: the last frame queued to a Surface copied
// into a direct Java buffer. An NV21 frame (the library's lock, copy and unlock) beside memcpy of
// the same bytes between two gralloc buffers, and a compressed NV12 frame queued by the host
// camera and decompressed on the host's OpenCL driver. The frame is queued once, before the
// timing; every call reads the same last queued buffer. For compressed NV12 the call builds and
// destroys the format converter itself, so each iteration includes the OpenCL load, the context,
// the program build (PoCL's cache warmed by one call before the timing) and the conversion.

#include <android_runtime/android_view_Surface.h>
#include <benchmark/benchmark.h>
#include <gui/BufferItemConsumer.h>
#include <gui/BufferQueue.h>
#include <gui/Surface.h>
#include <hostcamera/CameraSource.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/LogCapture.h>
#include <hostjvm/Jvm.h>
#include <hostvndksupport/SphalNamespace.h>
#include <system/graphics.h>
#include <system/window.h>
#include <ui/GraphicBuffer.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "PhoneBench.h"
#include "surface/SurfaceNativeUtil.h"

namespace {

using namespace nuvra::bench;
using android::GraphicBuffer;
using android::sp;

constexpr int kCompressedNv12 = 0x7FA30C06;
constexpr uint8_t kUntouched = 0xA5;

// A buffer queue of `format` with its consumer and the Java Surface of its producer face.
struct QueuedSurface {
    QueuedSurface(JNIEnv* e, int width, int height, int format, uint64_t consumerUsage) : env(e) {
        android::BufferQueue::createBufferQueue(&producerEnd, &consumerEnd);
        consumer = new android::BufferItemConsumer(consumerEnd, consumerUsage, 1);
        consumerEnd->setDefaultBufferSize(width, height);
        consumerEnd->setDefaultBufferFormat(format);
        surface = new android::Surface(producerEnd, true);
        javaSurface = android::android_view_Surface_createFromSurface(env, surface);
    }
    ~QueuedSurface() {
        consumer->abandon();
        if (javaSurface != nullptr) env->DeleteLocalRef(javaSurface);
    }
    JNIEnv* env;
    sp<android::IGraphicBufferProducer> producerEnd;
    sp<android::IGraphicBufferConsumer> consumerEnd;
    sp<android::BufferItemConsumer> consumer;
    sp<android::Surface> surface;
    jobject javaSurface = nullptr;
};

// Times the call into a direct buffer of width * height * 3 / 2 bytes; one call before the timing
// must succeed and write both planes.
void timePutByteBuffer(benchmark::State& state, JNIEnv* env, jobject javaSurface, int width,
                       int height) {
    SurfaceNativeUtil* util = SurfaceNativeUtil_Get();
    std::vector<uint8_t> out(frameBytes(width, height), kUntouched);
    jobject dst = env->NewDirectByteBuffer(out.data(), static_cast<jlong>(out.size()));
    const size_t luma = static_cast<size_t>(width) * height;
    auto written = [&](size_t from, size_t to) {
        return std::any_of(out.begin() + static_cast<std::ptrdiff_t>(from),
                           out.begin() + static_cast<std::ptrdiff_t>(to),
                           [](uint8_t b) { return b != kUntouched; });
    };
    if (util->nativePutByteBufferFromSurface(env, javaSurface, dst) != 0) {
        state.SkipWithError("nativePutByteBufferFromSurface failed");
    } else if (!written(0, luma) || !written(luma, out.size())) {
        state.SkipWithError("nativePutByteBufferFromSurface left the buffer unwritten");
    } else {
        for (auto _ : state) {
            if (util->nativePutByteBufferFromSurface(env, javaSurface, dst) != 0) {
                state.SkipWithError("nativePutByteBufferFromSurface failed");
                break;
            }
            benchmark::ClobberMemory();
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(out.size()));
    env->DeleteLocalRef(dst);
}

// An NV21 frame queued once by a CPU producer.
void nv21Frame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    PhoneProfile profile;
    JNIEnv* env = jvm();
    env->PushLocalFrame(64);
    {
        QueuedSurface qs(env, width, height, HAL_PIXEL_FORMAT_YCrCb_420_SP,
                         GRALLOC_USAGE_SW_READ_OFTEN);
        ANativeWindow* anw = qs.surface.get();
        ANativeWindowBuffer* anb = nullptr;
        if (native_window_api_connect(anw, NATIVE_WINDOW_API_CPU) != 0 ||
            native_window_set_usage(anw, kCpuReadWrite) != 0 ||
            native_window_dequeue_buffer_and_wait(anw, &anb) != 0 ||
            anw->queueBuffer(anw, anb, -1) != 0) {
            state.SkipWithError("queueing the frame failed");
        } else {
            timePutByteBuffer(state, env, qs.javaSurface, width, height);
        }
        native_window_api_disconnect(anw, NATIVE_WINDOW_API_CPU);
    }
    env->PopLocalFrame(nullptr);
}

// A compressed NV12 frame queued once by the host camera.
void compressedNv12Frame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    PhoneProfile profile;
    JNIEnv* env = jvm();
    const std::vector<std::string> saved = host::sphalSearchPath();
    host::setSphalSearchPath({NUVRA_OPENCL_VENDOR_DIR});
    env->PushLocalFrame(64);
    {
        QueuedSurface qs(env, width, height, kCompressedNv12,
                         GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_HW_TEXTURE);
        host::CameraSourceConfig config;
        config.format = kCompressedNv12;
        config.width = static_cast<uint32_t>(width);
        config.height = static_cast<uint32_t>(height);
        std::unique_ptr<host::CameraSource> camera =
                host::CameraSource::connect(qs.producerEnd, config);
        if (camera == nullptr ||
            camera->queueFrame(host::makeTestCard(config.width, config.height), 1) != android::OK) {
            state.SkipWithError("the camera could not queue a compressed frame");
        } else {
            timePutByteBuffer(state, env, qs.javaSurface, width, height);
        }
        camera.reset();
    }
    env->PopLocalFrame(nullptr);
    host::setSphalSearchPath(saved);
}

}  // namespace

BENCHMARK(nv21Frame)->Name("Surface to byte buffer/NV21")->Apply(frameSizes);
BENCHMARK(memcpyOfTheFrame)->Name("Surface to byte buffer/memcpy")->Apply(frameSizes);
BENCHMARK(compressedNv12Frame)
        ->Name("Surface to byte buffer/compressed NV12 on the GPU")
        ->Apply(frameSizes);
