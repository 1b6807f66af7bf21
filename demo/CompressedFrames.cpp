// Compressed NV12 frames read back through the GPU: the host camera queues the picture in
// Qualcomm's compressed NV12 format (0x7FA30C06) into a Surface's queue, and
// nativePutByteBufferFromSurface decompresses the last queued frame on the host's OpenCL driver
// into NV21.

#include "CompressedFrames.h"

#include <android_runtime/android_view_Surface.h>
#include <gui/BufferItemConsumer.h>
#include <gui/BufferQueue.h>
#include <gui/Surface.h>
#include <hostcamera/CameraSource.h>
#include <hostvndksupport/SphalNamespace.h>

#include <cstdio>
#include <memory>

void demoCompressedFrames(JNIEnv* env, SurfaceNativeUtil* util, const host::RgbPicture& picture,
                          const std::string& outDir, const DemoStep& step) {
    const int w = static_cast<int>(picture.width), h = static_cast<int>(picture.height);
    printf("\n== The host camera queues the picture as compressed NV12; the library decompresses "
           "it on the GPU\n");
    // The vendor partition of this build, where the OpenCL driver is.
    host::setSphalSearchPath({NUVRA_OPENCL_VENDOR_DIR});
    android::sp<android::IGraphicBufferProducer> producer;
    android::sp<android::IGraphicBufferConsumer> consumerEnd;
    android::BufferQueue::createBufferQueue(&producer, &consumerEnd);
    android::sp<android::BufferItemConsumer> consumer = new android::BufferItemConsumer(
            consumerEnd, GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_HW_TEXTURE, 1);
    android::sp<android::Surface> surface = new android::Surface(producer, true);
    jobject javaSurface = android::android_view_Surface_createFromSurface(env, surface);

    host::CameraSourceConfig config;
    config.format = 0x7FA30C06;
    config.width = static_cast<uint32_t>(w);
    config.height = static_cast<uint32_t>(h);
    std::unique_ptr<host::CameraSource> camera = host::CameraSource::connect(producer, config);
    if (camera == nullptr || camera->queueFrame(picture, 1000000) != android::OK) {
        printf("  the camera could not deliver a compressed frame\n");
    } else {
        std::vector<uint8_t> nv21(static_cast<size_t>(w) * h * 3 / 2);
        jobject dst = env->NewDirectByteBuffer(nv21.data(), static_cast<jlong>(nv21.size()));
        step("nativePutByteBufferFromSurface",
             [&] { return util->nativePutByteBufferFromSurface(env, javaSurface, dst); });
        const uint8_t* vu = nv21.data() + static_cast<size_t>(w) * h;
        const std::string path = outDir + "/camera-compressed-nv12-gpu.png";
        if (writePng(path, fromYuv(w, h, nv21.data(), w, vu + 1, vu, w, 2))) {
            printf("      wrote %s\n", path.c_str());
        }
        env->DeleteLocalRef(dst);
    }
    camera.reset();
    consumer->abandon();
    env->DeleteLocalRef(javaSurface);
}
