// A camera image passed on through the library: nativeProduceFrameWithYuv420 into a buffer queue
// as a display Surface would take it, and nativeProduceFrameToHardwareBuffer into Java
// HardwareBuffers, each target's picture decoded back to a PNG preview.

#include "CameraPassOn.h"

#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <android_runtime/android_view_Surface.h>
#include <gui/BufferItem.h>
#include <gui/BufferItemConsumer.h>
#include <gui/BufferQueue.h>
#include <gui/Surface.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>

#include <cstdio>

namespace {

using android::GraphicBuffer;
using android::sp;

struct Target {
    const char* name;
    int format;
};

const Target kTargets[] = {
        {"nv21", HAL_PIXEL_FORMAT_YCrCb_420_SP},
        {"venus-nv21", 0x114},
        {"nv21-m", 0x11D},
        {"ycbcr420888", HAL_PIXEL_FORMAT_YCbCr_420_888},
        {"venus-nv12", 0x7FA30C04},
};

// The buffer's picture through its YCbCr description; false when it has none.
bool decodeYuv(const sp<GraphicBuffer>& gb, RgbaImage* image) {
    android_ycbcr ycbcr{};
    if (gb->lockYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, &ycbcr) != 0) return false;
    *image = fromYuv(static_cast<int>(gb->getWidth()), static_cast<int>(gb->getHeight()),
                     static_cast<const uint8_t*>(ycbcr.y), ycbcr.ystride,
                     static_cast<const uint8_t*>(ycbcr.cb), static_cast<const uint8_t*>(ycbcr.cr),
                     ycbcr.cstride, ycbcr.chroma_step);
    gb->unlock();
    return true;
}

void writePreview(const sp<GraphicBuffer>& gb, const std::string& path) {
    RgbaImage preview;
    if (decodeYuv(gb, &preview) && writePng(path, preview))
        printf("      wrote %s\n", path.c_str());
}

void intoSurface(JNIEnv* env, SurfaceNativeUtil* util, jobject image, int w, int h, const Target& t,
                 const std::string& outDir, const DemoStep& step) {
    sp<android::IGraphicBufferProducer> producer;
    sp<android::IGraphicBufferConsumer> consumerEnd;
    android::BufferQueue::createBufferQueue(&producer, &consumerEnd);
    sp<android::BufferItemConsumer> consumer =
            new android::BufferItemConsumer(consumerEnd, GRALLOC_USAGE_SW_READ_OFTEN, 1);
    consumerEnd->setDefaultBufferSize(static_cast<uint32_t>(w), static_cast<uint32_t>(h));
    consumerEnd->setDefaultBufferFormat(t.format);
    sp<android::Surface> surface = new android::Surface(producer, true);
    jobject javaSurface = android::android_view_Surface_createFromSurface(env, surface);
    util->nativeConnectSurface(env, javaSurface);
    native_window_set_usage(surface.get(), GRALLOC_USAGE_SW_WRITE_OFTEN);  // a CPU producer
    printf("    into a %s Surface\n", t.name);
    step("nativeProduceFrameWithYuv420",
         [&] { return util->nativeProduceFrameWithYuv420(env, javaSurface, image); });
    android::BufferItem item;
    if (consumer->acquireBuffer(&item, 0) == android::OK) {
        writePreview(item.mGraphicBuffer, outDir + "/camera-to-surface-" + t.name + ".png");
        consumer->releaseBuffer(item);
    }
    util->nativeDisconnectSurface(env, javaSurface);
    consumer->abandon();
    env->DeleteLocalRef(javaSurface);
}

void intoHardwareBuffer(JNIEnv* env, SurfaceNativeUtil* util, jobject image, int w, int h,
                        const Target& t, const std::string& outDir, const DemoStep& step) {
    jclass cls = env->FindClass("android/hardware/HardwareBuffer");
    jobject buffer = env->CallStaticObjectMethod(
            cls, env->GetStaticMethodID(cls, "create", "(IIIIJ)Landroid/hardware/HardwareBuffer;"),
            w, h, t.format, 1,
            static_cast<jlong>(GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN));
    if (env->ExceptionCheck() || buffer == nullptr) {
        env->ExceptionDescribe();
        return;
    }
    printf("    into a %s HardwareBuffer\n", t.name);
    step("nativeProduceFrameToHardwareBuffer",
         [&] { return util->nativeProduceFrameToHardwareBuffer(env, image, buffer); });
    writePreview(
            GraphicBuffer::fromAHardwareBuffer(
                    android::android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, buffer)),
            outDir + "/camera-to-hardwarebuffer-" + t.name + ".png");
    env->CallVoidMethod(buffer, env->GetMethodID(cls, "close", "()V"));
    if (env->ExceptionCheck()) env->ExceptionDescribe();
    env->DeleteLocalRef(buffer);
    env->DeleteLocalRef(cls);
}

}  // namespace

void demoPassOnCameraImage(JNIEnv* env, SurfaceNativeUtil* util, jobject image, int width,
                           int height, const std::string& outDir, const DemoStep& step) {
    printf("\n  -- the camera image passed on through the library\n");
    for (const Target& t : kTargets) {
        intoSurface(env, util, image, width, height, t, outDir, step);
        intoHardwareBuffer(env, util, image, width, height, t, outDir, step);
    }
}
