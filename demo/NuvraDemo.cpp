// A camera pipeline run of libnuvranativeutil on the host platform: a real JVM, buffer queues
// with consumers, and Java Surfaces, driven through the library's one object as the app's JNI
// layer drives it.
//
//   nuvra_demo [--out DIR] [picture.png]
//
// It queries a Surface, configures one as a camera producer, then produces a picture (a drawn
// test card, or the PNG given) into Surfaces of every supported buffer format and writes what
// each consumer received as a PNG preview into DIR (default: nuvra-demo-out). Then the host
// camera queues the picture into ImageReaders of every camera format and the library reads each
// image back (CameraPipeline.cpp).

#include <android_runtime/android_view_Surface.h>
#include <gui/BufferItem.h>
#include <gui/BufferItemConsumer.h>
#include <gui/BufferQueue.h>
#include <gui/Surface.h>
#include <hostcontrol/LogCapture.h>
#include <hostjvm/Jvm.h>
#include <hostproperties/HostProperties.h>
#include <sys/stat.h>
#include <system/graphics.h>
#include <system/window.h>
#include <ui/GraphicBuffer.h>
#include <ui/HostGrallocLayout.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "CameraPipeline.h"
#include "DemoImages.h"
#include "surface/SurfaceNativeUtil.h"

using android::BufferItem;
using android::BufferItemConsumer;
using android::BufferQueue;
using android::GraphicBuffer;
using android::sp;

namespace {

JNIEnv* gEnv = nullptr;
SurfaceNativeUtil* gUtil = nullptr;

// A buffer queue with a consumer, and the Java Surface an app would hand the library.
struct DemoQueue {
    sp<android::IGraphicBufferProducer> producer;
    sp<android::IGraphicBufferConsumer> consumerEnd;
    sp<BufferItemConsumer> consumer;
    sp<android::Surface> surface;
    jobject javaSurface = nullptr;

    DemoQueue(uint32_t width, uint32_t height, int format, uint64_t usage) {
        BufferQueue::createBufferQueue(&producer, &consumerEnd);
        consumer = new BufferItemConsumer(consumerEnd, usage, 1);
        consumerEnd->setDefaultBufferSize(width, height);
        consumerEnd->setDefaultBufferFormat(format);
        surface = new android::Surface(producer, true);
        javaSurface =
                gEnv->NewGlobalRef(android::android_view_Surface_createFromSurface(gEnv, surface));
    }
    ~DemoQueue() {
        jclass cls = gEnv->GetObjectClass(javaSurface);
        gEnv->CallVoidMethod(javaSurface, gEnv->GetMethodID(cls, "release", "()V"));
        if (gEnv->ExceptionCheck()) gEnv->ExceptionClear();
        gEnv->DeleteLocalRef(cls);
        gEnv->DeleteGlobalRef(javaSurface);
        consumer->abandon();
    }
};

// Prints the library's log lines written since the last call.
void printLogLines() {
    static const char kLetters[] = "??VDIWEFS";
    for (const host::LogLine& line : host::capturedLogs()) {
        printf("      %c/%s: %s\n", kLetters[line.priority & 7], line.tag.c_str(),
               line.text.c_str());
    }
    host::clearCapturedLogs();
}

// Prints and clears a Java exception the call left.
void printException() {
    if (!gEnv->ExceptionCheck()) return;
    jthrowable e = gEnv->ExceptionOccurred();
    gEnv->ExceptionClear();
    jclass cls = gEnv->FindClass("java/lang/Throwable");
    jstring text = static_cast<jstring>(
            gEnv->CallObjectMethod(e, gEnv->GetMethodID(cls, "toString", "()Ljava/lang/String;")));
    if (gEnv->ExceptionCheck() || text == nullptr) {
        gEnv->ExceptionClear();
        return;
    }
    const char* chars = gEnv->GetStringUTFChars(text, nullptr);
    printf("      Java exception pending: %s\n", chars);
    gEnv->ReleaseStringUTFChars(text, chars);
}

double millisSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count();
}

// Runs one library call, printing its result, time, log lines and exception.
void step(const char* what, const std::function<long long()>& call) {
    auto start = std::chrono::steady_clock::now();
    long long result = call();
    printf("  %-52s -> %lld (%.3f ms)\n", what, result, millisSince(start));
    printLogLines();
    printException();
}

void printQueueState(DemoQueue& q) {
    int width = 0, height = 0, format = 0, dataSpace = 0;
    ANativeWindow* anw = q.surface.get();
    anw->query(anw, NATIVE_WINDOW_WIDTH, &width);
    anw->query(anw, NATIVE_WINDOW_HEIGHT, &height);
    anw->query(anw, NATIVE_WINDOW_FORMAT, &format);
    anw->query(anw, NATIVE_WINDOW_DEFAULT_DATASPACE, &dataSpace);
    printf("      queue: default %dx%d format 0x%x dataspace 0x%x\n", width, height, format,
           dataSpace);
}

// Dequeues and queues one empty buffer as the connected producer, and shows what the consumer
// receives with it: the configuration the library left on the Surface.
void printQueuedBuffer(DemoQueue& q) {
    ANativeWindowBuffer* anb = nullptr;
    if (native_window_dequeue_buffer_and_wait(q.surface.get(), &anb) != 0) return;
    ANativeWindow* anw = q.surface.get();
    anw->queueBuffer(anw, anb, -1);
    BufferItem item;
    if (q.consumer->acquireBuffer(&item, 0) != android::OK) return;
    const sp<GraphicBuffer>& gb = item.mGraphicBuffer;
    printf("      queued buffer: %ux%u stride %u format 0x%x usage 0x%llx transform %u%s scaling "
           "%u timestamp %lld dataspace 0x%x\n",
           gb->getWidth(), gb->getHeight(), gb->getStride(), gb->getPixelFormat(),
           static_cast<unsigned long long>(gb->getUsage()), item.mTransform,
           item.mTransformToDisplayInverse ? " (+inverse display)" : "", item.mScalingMode,
           static_cast<long long>(item.mTimestamp), static_cast<unsigned>(item.mDataSpace));
    q.consumer->releaseBuffer(item);
}

void demoQueries() {
    printf("\n== Surface queries\n");
    DemoQueue q(640, 480, HAL_PIXEL_FORMAT_YCrCb_420_SP,
                GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_HW_TEXTURE);
    jintArray dimens = gEnv->NewIntArray(2);
    step("nativeDetectSurfaceDimens", [&] {
        int status = gUtil->nativeDetectSurfaceDimens(gEnv, q.javaSurface, dimens);
        jint v[2] = {0, 0};
        gEnv->GetIntArrayRegion(dimens, 0, 2, v);
        printf("      dimens = %d x %d\n", v[0], v[1]);
        return status;
    });
    step("nativeDetectSurfaceType",
         [&] { return gUtil->nativeDetectSurfaceType(gEnv, q.javaSurface); });
    step("nativeDetectSurfaceDataspace",
         [&] { return gUtil->nativeDetectSurfaceDataspace(gEnv, q.javaSurface); });
    step("nativeDetectSurfaceUsageFlags",
         [&] { return gUtil->nativeDetectSurfaceUsageFlags(gEnv, q.javaSurface); });
    step("nativeDetectSurfaceType(null surface)",
         [&] { return gUtil->nativeDetectSurfaceType(gEnv, nullptr); });
    gEnv->DeleteLocalRef(dimens);
}

void demoConfiguration() {
    printf("\n== A Surface configured as a camera producer\n");
    DemoQueue q(640, 480, HAL_PIXEL_FORMAT_RGBA_8888, GRALLOC_USAGE_SW_READ_OFTEN);
    jobject s = q.javaSurface;
    step("nativeConnectSurface", [&] { return gUtil->nativeConnectSurface(gEnv, s); });
    step("nativeSetSurfaceFormat(NV21, display)", [&] {
        return gUtil->nativeSetSurfaceFormat(gEnv, s, HAL_PIXEL_FORMAT_YCrCb_420_SP, true);
    });
    step("nativeSetSurfaceDimens(1280, 720)",
         [&] { return gUtil->nativeSetSurfaceDimens(gEnv, s, 1280, 720); });
    step("nativeSetSurfaceOrientation(back, 90)",
         [&] { return gUtil->nativeSetSurfaceOrientation(gEnv, s, 1, 90); });
    step("nativeSetSurfaceMirror(front, 270, auto)",
         [&] { return gUtil->nativeSetSurfaceMirror(gEnv, s, 0, 270, 0); });
    step("nativeSetScalingMode(SCALE_CROP)", [&] {
        return gUtil->nativeSetScalingMode(gEnv, s, NATIVE_WINDOW_SCALING_MODE_SCALE_CROP);
    });
    step("nativeSetDataSpaceToSurface(JFIF)",
         [&] { return gUtil->nativeSetDataSpaceToSurface(gEnv, s, HAL_DATASPACE_V0_JFIF); });
    step("nativeSetNextTimestamp(123456789)",
         [&] { return gUtil->nativeSetNextTimestamp(gEnv, s, 123456789); });
    step("nativeSetDequeueTimeout(100 ms)",
         [&] { return gUtil->nativeSetDequeueTimeout(gEnv, s, 100000000); });
    printQueueState(q);
    printQueuedBuffer(q);
    step("nativeSetSurfaceOrientation(back, 45)",
         [&] { return gUtil->nativeSetSurfaceOrientation(gEnv, s, 1, 45); });
    step("nativeDisconnectSurface", [&] { return gUtil->nativeDisconnectSurface(gEnv, s); });
}

// The consumer's buffer as a picture; false for formats without one (BLOB).
bool decode(const BufferItem& item, RgbaImage* image) {
    const sp<GraphicBuffer>& gb = item.mGraphicBuffer;
    int w = static_cast<int>(gb->getWidth()), h = static_cast<int>(gb->getHeight());
    if (gb->getPixelFormat() == HAL_PIXEL_FORMAT_RGB_565) {
        void* data = nullptr;
        if (gb->lock(GRALLOC_USAGE_SW_READ_OFTEN, &data) != 0) return false;
        // The producer packs RGB565 rows at 2 x width bytes.
        *image = fromRgb565(w, h, static_cast<const uint8_t*>(data), static_cast<size_t>(w) * 2);
        gb->unlock();
        return true;
    }
    android_ycbcr ycbcr{};
    if (gb->lockYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, &ycbcr) != 0) return false;
    *image = fromYuv(w, h, static_cast<const uint8_t*>(ycbcr.y), ycbcr.ystride,
                     static_cast<const uint8_t*>(ycbcr.cb), static_cast<const uint8_t*>(ycbcr.cr),
                     ycbcr.cstride, ycbcr.chroma_step);
    gb->unlock();
    return true;
}

void demoProduction(const RgbaImage& picture, const std::string& outDir) {
    printf("\n== Producing a %dx%d picture into Surfaces of every buffer format\n", picture.width,
           picture.height);
    std::vector<uint8_t> rgba = picture.pixels;
    std::vector<uint8_t> nv21 = toNv21(picture);
    std::vector<uint8_t> jpeg(4096);
    for (size_t i = 0; i < jpeg.size(); ++i) jpeg[i] = static_cast<uint8_t>(i * 7);
    jpeg[0] = 0xFF, jpeg[1] = 0xD8;  // a JPEG's start marker; the payload is opaque here

    struct Target {
        const char* name;
        int bufferFormat;
        int inputFormat;
    };
    const Target targets[] = {
            {"rgba-to-nv21", HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_RGBA_8888},
            {"rgba-to-yv12", HAL_PIXEL_FORMAT_YV12, HAL_PIXEL_FORMAT_RGBA_8888},
            {"rgba-to-ycbcr420888", HAL_PIXEL_FORMAT_YCbCr_420_888, HAL_PIXEL_FORMAT_RGBA_8888},
            {"nv21-to-nv21", HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_YCrCb_420_SP},
            {"nv21-to-ycbcr420888", HAL_PIXEL_FORMAT_YCbCr_420_888, HAL_PIXEL_FORMAT_YCrCb_420_SP},
            {"nv21-to-rgb565", HAL_PIXEL_FORMAT_RGB_565, HAL_PIXEL_FORMAT_YCrCb_420_SP},
            {"nv21-to-venus-nv21", 0x114, HAL_PIXEL_FORMAT_YCrCb_420_SP},
            {"nv21-to-venus-nv12", 0x7FA30C04, HAL_PIXEL_FORMAT_YCrCb_420_SP},
            {"jpeg-to-blob", HAL_PIXEL_FORMAT_BLOB, HAL_PIXEL_FORMAT_BLOB},
    };
    host::setProperty("log.tag.VANTORA_CAMERA", "D");  // errors only from here on
    for (const Target& t : targets) {
        bool blob = t.bufferFormat == HAL_PIXEL_FORMAT_BLOB;
        uint32_t width = blob ? 8192 : static_cast<uint32_t>(picture.width);
        uint32_t height = blob ? 1 : static_cast<uint32_t>(picture.height);
        DemoQueue q(width, height, t.bufferFormat, GRALLOC_USAGE_SW_READ_OFTEN);
        gUtil->nativeConnectSurface(gEnv, q.javaSurface);
        // The producer writes with the CPU: its buffers must be allocated for that.
        native_window_set_usage(q.surface.get(), GRALLOC_USAGE_SW_WRITE_OFTEN);
        std::vector<uint8_t>& input =
                blob ? jpeg : (t.inputFormat == HAL_PIXEL_FORMAT_RGBA_8888 ? rgba : nv21);
        jobject pixels = gEnv->NewDirectByteBuffer(input.data(), static_cast<jlong>(input.size()));
        auto start = std::chrono::steady_clock::now();
        int status = gUtil->nativeProduceFrame(gEnv, q.javaSurface, pixels, static_cast<int>(width),
                                               static_cast<int>(height), t.inputFormat);
        double produceMs = millisSince(start);
        gEnv->DeleteLocalRef(pixels);
        printf("  %-22s nativeProduceFrame -> %d (%.3f ms)", t.name, status, produceMs);
        BufferItem item;
        if (status != 0 || q.consumer->acquireBuffer(&item, 0) != android::OK) {
            printf("\n");
            printLogLines();
            continue;
        }
        if (blob) {
            void* data = nullptr;
            item.mGraphicBuffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &data);
            const uint8_t* f = static_cast<const uint8_t*>(data) + width - 8;
            printf(", footer id 0x%02x%02x size %u\n", f[1], f[0],
                   f[4] | f[5] << 8 | f[6] << 16 | static_cast<unsigned>(f[7]) << 24);
            item.mGraphicBuffer->unlock();
        } else {
            RgbaImage preview;
            start = std::chrono::steady_clock::now();
            bool decoded = decode(item, &preview);
            std::string path = outDir + "/" + t.name + ".png";
            bool written = decoded && writePng(path, preview);
            printf(", stride %u, preview %s (%.1f ms)\n", item.mGraphicBuffer->getStride(),
                   written ? path.c_str() : "not written", millisSince(start));
        }
        q.consumer->releaseBuffer(item);
        printLogLines();
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string outDir = "nuvra-demo-out";
    std::string picturePath;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--out") == 0 && i + 1 < argc) {
            outDir = argv[++i];
        } else {
            picturePath = argv[i];
        }
    }
    mkdir(outDir.c_str(), 0755);

    host::setLogEcho(false);
    host::setProperty("log.tag.VANTORA_CAMERA", "V");
    gEnv = host::startJvm();
    printf("JVM started with:");
    for (const std::string& option : host::jvmOptionStrings()) printf(" %s", option.c_str());
    printf("\n");
    printLogLines();

    gUtil = SurfaceNativeUtil_Get();
    printf("SurfaceNativeUtil_Get() = %p, SurfaceNativeUtil_GetVersion() = %d\n",
           static_cast<void*>(gUtil), SurfaceNativeUtil_GetVersion());

    RgbaImage picture;
    if (!picturePath.empty()) {
        if (!readPng(picturePath, &picture)) {
            fprintf(stderr, "cannot read %s as PNG\n", picturePath.c_str());
            return 1;
        }
    } else {
        picture = drawTestCard(640, 480);
    }
    writePng(outDir + "/input.png", picture);

    demoQueries();
    demoConfiguration();
    demoProduction(picture, outDir);
    host::setProperty("log.tag.VANTORA_CAMERA", "D");
    demoCameraPipeline(gEnv, gUtil, picture, outDir, step);
    printf("\nPreviews are in %s/\n", outDir.c_str());
    return 0;
}
