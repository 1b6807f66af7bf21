// The NDK's AHardwareBuffer functions. An AHardwareBuffer is a GraphicBuffer; its references
// are the GraphicBuffer's strong references.

#include <android/hardware_buffer.h>
#include <errno.h>
#include <log/log.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

#include <string>

#undef LOG_TAG
#define LOG_TAG "AHardwareBuffer"

using android::GraphicBuffer;
using android::Rect;
using android::sp;

namespace {

constexpr uint64_t kCpuUsageMask =
        AHARDWAREBUFFER_USAGE_CPU_READ_MASK | AHARDWAREBUFFER_USAGE_CPU_WRITE_MASK;

Rect lockRect(const AHardwareBuffer_Desc& desc, const ARect* rect) {
    if (rect == nullptr) return Rect(desc.width, desc.height);
    return Rect(rect->left, rect->top, rect->right, rect->bottom);
}

bool isYuv420(uint32_t format) {
    return format == AHARDWAREBUFFER_FORMAT_Y8Cb8Cr8_420;
}

}  // namespace

int AHardwareBuffer_allocate(const AHardwareBuffer_Desc* desc, AHardwareBuffer** outBuffer) {
    if (desc == nullptr || outBuffer == nullptr) return -EINVAL;
    if (desc->format == AHARDWAREBUFFER_FORMAT_BLOB && (desc->height != 1 || desc->layers != 1)) {
        ALOGE("Height and layer count must be 1 for AHARDWAREBUFFER_FORMAT_BLOB");
        return -EINVAL;
    }
    std::string name = "AHardwareBuffer pid [" + std::to_string(getpid()) + "]";
    sp<GraphicBuffer> gbuffer(new GraphicBuffer(desc->width, desc->height,
                                                static_cast<int32_t>(desc->format), desc->layers,
                                                desc->usage, name));
    android::status_t err = gbuffer->initCheck();
    if (err != 0 || gbuffer->handle == nullptr) {
        ALOGE("GraphicBuffer(w=%u, h=%u, lc=%u) failed (%s), handle=%p", desc->width, desc->height,
              desc->layers, strerror(-err), gbuffer->handle);
        return err == 0 ? -EINVAL : err;
    }
    *outBuffer = gbuffer->toAHardwareBuffer();
    // Ensure the buffer doesn't get destroyed when the sp<> goes away.
    gbuffer->incStrong(reinterpret_cast<void*>(AHardwareBuffer_acquire));
    return 0;
}

void AHardwareBuffer_acquire(AHardwareBuffer* buffer) {
    // incStrong/decStrong track a single id; any pointer will do.
    GraphicBuffer::fromAHardwareBuffer(buffer)->incStrong(
            reinterpret_cast<void*>(AHardwareBuffer_acquire));
}

void AHardwareBuffer_release(AHardwareBuffer* buffer) {
    GraphicBuffer::fromAHardwareBuffer(buffer)->decStrong(
            reinterpret_cast<void*>(AHardwareBuffer_acquire));
}

void AHardwareBuffer_describe(const AHardwareBuffer* buffer, AHardwareBuffer_Desc* outDesc) {
    if (buffer == nullptr || outDesc == nullptr) return;
    const GraphicBuffer* gbuffer = GraphicBuffer::fromAHardwareBuffer(buffer);
    outDesc->width = gbuffer->getWidth();
    outDesc->height = gbuffer->getHeight();
    outDesc->layers = gbuffer->getLayerCount();
    outDesc->format = static_cast<uint32_t>(gbuffer->getPixelFormat());
    outDesc->usage = gbuffer->getUsage();
    outDesc->stride = gbuffer->getStride();
    outDesc->rfu0 = 0;
    outDesc->rfu1 = 0;
}

int AHardwareBuffer_lock(AHardwareBuffer* buffer, uint64_t usage, int32_t fence, const ARect* rect,
                         void** outVirtualAddress) {
    if (outVirtualAddress == nullptr || buffer == nullptr) {
        if (fence >= 0) close(fence);
        return -EINVAL;
    }
    if ((usage & ~kCpuUsageMask) != 0 || (usage & kCpuUsageMask) == 0) {
        ALOGE("Invalid usage flags passed to AHardwareBuffer_lock; only CPU flags are allowed");
        if (fence >= 0) close(fence);
        return -EINVAL;
    }
    AHardwareBuffer_Desc desc;
    AHardwareBuffer_describe(buffer, &desc);
    GraphicBuffer* gbuffer = GraphicBuffer::fromAHardwareBuffer(buffer);
    return gbuffer->lockAsync(static_cast<uint32_t>(usage), lockRect(desc, rect), outVirtualAddress,
                              fence);
}

int AHardwareBuffer_lockPlanes(AHardwareBuffer* buffer, uint64_t usage, int32_t fence,
                               const ARect* rect, AHardwareBuffer_Planes* outPlanes) {
    if (outPlanes == nullptr || buffer == nullptr) {
        if (fence >= 0) close(fence);
        return -EINVAL;
    }
    if ((usage & ~kCpuUsageMask) != 0 || (usage & kCpuUsageMask) == 0) {
        if (fence >= 0) close(fence);
        return -EINVAL;
    }
    AHardwareBuffer_Desc desc;
    AHardwareBuffer_describe(buffer, &desc);
    GraphicBuffer* gbuffer = GraphicBuffer::fromAHardwareBuffer(buffer);
    if (!isYuv420(desc.format)) {
        int32_t bytesPerPixel = -1;
        int32_t bytesPerStride = -1;
        void* data = nullptr;
        int err = gbuffer->lockAsync(static_cast<uint32_t>(usage), lockRect(desc, rect), &data,
                                     fence, &bytesPerPixel, &bytesPerStride);
        if (err != 0) return err;
        outPlanes->planeCount = 1;
        outPlanes->planes[0].data = data;
        outPlanes->planes[0].pixelStride = static_cast<uint32_t>(bytesPerPixel);
        outPlanes->planes[0].rowStride = static_cast<uint32_t>(bytesPerStride);
        return 0;
    }
    android_ycbcr ycbcr;
    int err = gbuffer->lockAsyncYCbCr(static_cast<uint32_t>(usage), lockRect(desc, rect), &ycbcr,
                                      fence);
    if (err != 0) return err;
    outPlanes->planeCount = 3;
    outPlanes->planes[0].data = ycbcr.y;
    outPlanes->planes[0].pixelStride = 1;
    outPlanes->planes[0].rowStride = static_cast<uint32_t>(ycbcr.ystride);
    outPlanes->planes[1].data = ycbcr.cb;
    outPlanes->planes[1].pixelStride = static_cast<uint32_t>(ycbcr.chroma_step);
    outPlanes->planes[1].rowStride = static_cast<uint32_t>(ycbcr.cstride);
    outPlanes->planes[2].data = ycbcr.cr;
    outPlanes->planes[2].pixelStride = static_cast<uint32_t>(ycbcr.chroma_step);
    outPlanes->planes[2].rowStride = static_cast<uint32_t>(ycbcr.cstride);
    return 0;
}

int AHardwareBuffer_unlock(AHardwareBuffer* buffer, int32_t* fence) {
    if (buffer == nullptr) return -EINVAL;
    GraphicBuffer* gbuffer = GraphicBuffer::fromAHardwareBuffer(buffer);
    int releaseFence = -1;
    int err = gbuffer->unlockAsync(&releaseFence);
    if (err != 0) return err;
    if (fence != nullptr) {
        *fence = releaseFence;
    } else if (releaseFence >= 0) {
        close(releaseFence);
    }
    return 0;
}
