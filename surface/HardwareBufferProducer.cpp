// Copying the frame of a camera image into a Java HardwareBuffer that the application owns: the
// plane copy of the Surface producer, aimed at an already allocated buffer (no dequeue, no queue).

#define ATRACE_TAG ATRACE_TAG_NEVER  // a scope that is never traced

#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <gui/BufferItem.h>
#include <gui/CpuConsumer.h>
#include <string.h>
#include <system/graphics.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/Trace.h>

#include "ImageSupport.h"
#include "SurfaceLog.h"
#include "SurfaceNativeUtilImpl.h"
#include "YuvPlaneWriter.h"

using android::BufferItem;
using android::CpuConsumer;
using android::GraphicBuffer;
using android::sp;

namespace {

constexpr const char* kOperation = "nativeProduceFrameToHardwareBuffer";
constexpr const char* kName = "produceFrameToGraphicBuffer";

int produceFrameToGraphicBuffer(const sp<GraphicBuffer>& buf,
                                const CpuConsumer::LockedBuffer& locked) {
    ATRACE_NAME(kName);
    Yuv420Source src{locked.data,
                     locked.dataCb,
                     locked.dataCr,
                     static_cast<int>(locked.width),
                     static_cast<int>(locked.height),
                     static_cast<int>(locked.stride),
                     chromaBytesReadableFromCr(locked)};
    NLOGV("%s: buffer %dx%d (fmt=%x, stride=%d)", kName, src.width, src.height,
          static_cast<unsigned>(locked.format), src.stride);
    if (buf == nullptr) {
        NLOGE("%s: buf must not be nullptr", kName);
        return android::BAD_VALUE;
    }
    if (yuv420SourceRefused(kName, src)) return android::BAD_VALUE;
    if (buf->getWidth() != locked.width || buf->getHeight() != locked.height) {
        NLOGE("%s: Received gralloc buffer with bad dimensions %ux%u, expecting dimensions %zu x "
              "%zu",
              kName, buf->getWidth(), buf->getHeight(), static_cast<size_t>(src.width),
              static_cast<size_t>(src.height));
        return android::BAD_VALUE;
    }
    int bufFmt = buf->getPixelFormat();
    NLOGV("%s: Pixel format chosen: %x", kName, static_cast<unsigned>(locked.format));
    NLOGV("%s: bufFmt : %x", kName, static_cast<unsigned>(bufFmt));
    NLOGV("%s: y = %p, cb = %p, cr = %p", kName, src.y, src.cb, src.cr);
    if (locked.format != HAL_PIXEL_FORMAT_YCbCr_420_888) {
        NLOGE("%s: Invalid pixel format: %x", kName, static_cast<unsigned>(locked.format));
        return android::BAD_VALUE;
    }
    const PlaneWriterTexts texts{kName, /*hardwareBufferTarget=*/true, buf.get()};
    int err = writeYuv420Planes(buf, bufFmt, src, texts);
    if (err != 0) return err;
    NLOGV("%s: Unlock buffer (%p)", kName, buf.get());
    return buf->unlock();  // an unlock failure is the status, with no line of its own
}

// The dispatch table passes the image first and the HardwareBuffer second. A caller built with
// the two the other way round would hand the HardwareBuffer to the image lookup (a long field
// read from an object that has no such field), so the classes are checked once per call and the
// two objects taken in whichever order they came.
void orderArguments(JNIEnv* env, jobject* image, jobject* hardwareBuffer) {
    jclass hardwareBufferClass = env->FindClass("android/hardware/HardwareBuffer");
    if (hardwareBufferClass == nullptr) {
        env->ExceptionClear();
        return;
    }
    if (*image != nullptr && env->IsInstanceOf(*image, hardwareBufferClass) &&
        (*hardwareBuffer == nullptr || !env->IsInstanceOf(*hardwareBuffer, hardwareBufferClass))) {
        std::swap(*image, *hardwareBuffer);
    }
    env->DeleteLocalRef(hardwareBufferClass);
}

}  // namespace

int SurfaceNativeUtilImpl::nativeProduceFrameToHardwareBuffer(JNIEnv* env, jobject image,
                                                              jobject hardwareBuffer) {
    ATRACE_NAME(kOperation);
    NLOGV("nativeProduceFrameToHardwareBuffer");
    orderArguments(env, &image, &hardwareBuffer);
    AHardwareBuffer* ahb =
            hardwareBuffer == nullptr
                    ? nullptr
                    : android::android_hardware_HardwareBuffer_getNativeHardwareBuffer(
                              env, hardwareBuffer);
    if (ahb == nullptr) {
        NLOGW("%s: HardwareBuffer already released!!!", kOperation);
        return android::BAD_VALUE;
    }
    sp<GraphicBuffer> target(GraphicBuffer::fromAHardwareBuffer(ahb));
    BufferItem* item = Image_getLockedBuffer(env, image);
    if (item == nullptr) {
        NLOGW("%s: Image already released!!!", kOperation);
        return android::BAD_VALUE;
    }
    CpuConsumer::LockedBuffer locked;
    int err = lockImageFromBuffer(item, GRALLOC_USAGE_SW_READ_OFTEN, item->mFence->dup(), &locked);
    if (err != 0) {
        NLOGE("%s: fail to lock image %s (%d)", kOperation, strerror(-err), err);
        return err;
    }
    int status = produceFrameToGraphicBuffer(target, locked);
    target.clear();
    if (status == 0) {
        err = unlockImageFromBuffer(item);
        if (err != 0) {
            NLOGE("%s: fail to unlock image %s (%d)", kOperation, strerror(-err), err);
            return err;
        }
        return 0;
    }
    NLOGE("%s: Error while producing frame %s (%d).", kOperation, strerror(-status), status);
    unlockImageFromBuffer(item);
    return status;
}
