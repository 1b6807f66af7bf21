// The Java image's buffer item, and locking and unlocking its graphic buffer for CPU reading.

#include <log/log.h>
#include <system/graphics.h>
#include <utils/Mutex.h>

#include "ImageSupport.h"
#include "SurfaceLog.h"
#include "SurfaceNativeUtilImpl.h"

using android::BufferItem;
using android::GraphicBuffer;
using android::sp;
using android::status_t;

extern android::Mutex gLock;

namespace {

struct SurfaceImageClassInfo {
    jfieldID mNativeBuffer;
};
SurfaceImageClassInfo gSurfaceImageClassInfo;
bool gSurfaceImageClassInfoFilled = false;

constexpr const char* kLockName = "lockImageFromBuffer";

// Formats whose whole-buffer lock is a complete description: anything else locked as one plane
// may carry more planes, which only the gralloc 4 plane layouts can tell.
bool isPlainLockFormat(int format) {
    switch (format) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
        case HAL_PIXEL_FORMAT_RGBX_8888:
        case HAL_PIXEL_FORMAT_RGB_888:
        case HAL_PIXEL_FORMAT_RGB_565:
        case HAL_PIXEL_FORMAT_BGRA_8888:
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
        case HAL_PIXEL_FORMAT_Y8:
        case HAL_PIXEL_FORMAT_Y16:
        case HAL_PIXEL_FORMAT_YV12:
            return true;
        default:
            // RAW16, BLOB, IMPLEMENTATION_DEFINED, YCbCr_420_888, RAW_OPAQUE, RAW10, RAW12
            return format >= HAL_PIXEL_FORMAT_RAW16 && format <= HAL_PIXEL_FORMAT_RAW12;
    }
}

status_t lockFailed(status_t err) {
    NLOGE("%s: Lock graphic buffer failed!(%d)", kLockName, err);
    return err;
}

}  // namespace

bool isSinglePlaneFormat(int format) {
    switch (format) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
        case HAL_PIXEL_FORMAT_RGBX_8888:
        case HAL_PIXEL_FORMAT_RGB_888:
        case HAL_PIXEL_FORMAT_RGB_565:
        case HAL_PIXEL_FORMAT_BGRA_8888:
        case HAL_PIXEL_FORMAT_RAW16:
        case HAL_PIXEL_FORMAT_BLOB:
        case HAL_PIXEL_FORMAT_RAW_OPAQUE:
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW12:
        case HAL_PIXEL_FORMAT_YCBCR_P010:
        case HAL_PIXEL_FORMAT_Y8:
        case HAL_PIXEL_FORMAT_Y16:
            return true;
        default:
            return false;
    }
}

BufferItem* Image_getLockedBuffer(JNIEnv* env, jobject image) {
    android::Mutex::Autolock lock(gLock);
    if (!gSurfaceImageClassInfoFilled) {
        jclass imageClazz = env->FindClass("android/media/ImageReader$SurfaceImage");
        LOG_ALWAYS_FATAL_IF(imageClazz == nullptr,
                            "can't find android/graphics/ImageReader$SurfaceImage");
        gSurfaceImageClassInfo.mNativeBuffer = env->GetFieldID(imageClazz, "mNativeBuffer", "J");
        LOG_ALWAYS_FATAL_IF(gSurfaceImageClassInfo.mNativeBuffer == nullptr,
                            "can't find android/graphics/ImageReader.%s", "mNativeBuffer");
        gSurfaceImageClassInfoFilled = true;
    }
    return reinterpret_cast<BufferItem*>(
            env->GetLongField(image, gSurfaceImageClassInfo.mNativeBuffer));
}

status_t lockImageFromBuffer(BufferItem* item, uint32_t usage, int fenceFd, LockedBuffer* out) {
    NLOGV("%s: Try to lock the BufferItem", kLockName);
    if (out == nullptr) {
        NLOGE("%s: Input BufferItem or output LockedImage is nullptr!", kLockName);
        return android::BAD_VALUE;
    }
    sp<GraphicBuffer> buffer = item->mGraphicBuffer;
    NLOGV("%s: Try to lock the GraphicBuffer", kLockName);
    if (buffer == nullptr) {
        NLOGE("%s: Input BufferItem or output LockedImage is nullptr!", kLockName);
        return lockFailed(android::BAD_VALUE);
    }
    if (buffer->getFdCount() == 0) {
        NLOGE("%s: Input GraphicBuffer is Invalid : No buffer assigned or handle is 0", kLockName);
        return lockFailed(android::BAD_VALUE);
    }
    const int format = buffer->getPixelFormat();
    if (format == HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED) {
        NLOGE("%s: Opaque format buffer is not lockable!", kLockName);
        return lockFailed(android::BAD_VALUE);
    }

    android_ycbcr ycbcr = {};
    void* pData = nullptr;
    int flexFormat = format;
    // Both locks read with this usage; every caller asks for it too.
    constexpr uint32_t kReadUsage = GRALLOC_USAGE_SW_READ_OFTEN;
    if (!isSinglePlaneFormat(format)) {
        flexFormat = HAL_PIXEL_FORMAT_YCbCr_420_888;
        status_t err = buffer->lockAsyncYCbCr(kReadUsage, item->mCrop, &ycbcr, fenceFd);
        if (err != 0) {
            NLOGW("%s: Lock buffer failed with lockAsyncYCbCr!(%d, format %d)", kLockName, err,
                  format);
        }
        pData = ycbcr.y;
    }
    bool described = false;
    if (pData == nullptr) {
        // A single-plane format, or a YUV buffer that the YCbCr lock could not describe: lock
        // the whole buffer. The fence descriptor is the same one the YCbCr lock was given.
        status_t err =
                buffer->lockAsync(kReadUsage, item->mCrop, &pData, fenceFd, nullptr, nullptr);
        if (err != 0) {
            NLOGE("%s: Lock buffer failed with lockAsync!(%d, format %d)", kLockName, err, format);
            return lockFailed(err);
        }
        if (!isPlainLockFormat(format)) {
            if (extractP010Gralloc4PlaneLayout(buffer, pData, format, out) == 0) {
                NLOGV("%s: Successfully extract Gralloc4PlaneLayout for P010 image", kLockName);
                described = true;
            } else {
                NLOGW("%s: Extract Gralloc4PlaneLayout for P010 image failed, only luma info is "
                      "available",
                      kLockName);
            }
        }
    }
    if (!described) {
        out->data = static_cast<uint8_t*>(pData);
        out->width = buffer->getWidth();
        out->height = buffer->getHeight();
        out->format = format;
        out->flexFormat = flexFormat;
        out->stride =
                ycbcr.y != nullptr ? static_cast<uint32_t>(ycbcr.ystride) : buffer->getStride();
        out->dataCb = static_cast<uint8_t*>(ycbcr.cb);
        out->dataCr = static_cast<uint8_t*>(ycbcr.cr);
        out->chromaStride = static_cast<uint32_t>(ycbcr.cstride);
        out->chromaStep = static_cast<uint32_t>(ycbcr.chroma_step);
        NLOGV("%s: Successfully locked the image from the GraphicBuffer", kLockName);
    }
    buffer.clear();

    out->crop = item->mCrop;
    out->transform = item->mTransform;
    out->scalingMode = item->mScalingMode;
    out->timestamp = item->mTimestamp;
    out->dataSpace = item->mDataSpace;
    out->frameNumber = item->mFrameNumber;
    NLOGV("%s: Successfully locked the image from the BufferItem", kLockName);
    return 0;
}

status_t unlockImageFromBuffer(BufferItem* item) {
    NLOGV("unlockImageFromBuffer");
    sp<GraphicBuffer> buffer = item->mGraphicBuffer;
    status_t err = buffer->unlock();
    if (err != 0) NLOGE("%s: Unlock buffer failed!", "unlockImageFromBuffer");
    return err;
}

jlong SurfaceNativeUtilImpl::nativeGetNativeContext(JNIEnv* env, jobject image) {
    NLOGV("getNativeContext");
    BufferItem* item = Image_getLockedBuffer(env, image);
    if (item == nullptr) {
        NLOGW("Image already released!!!");
        return 0;
    }
    LockedBuffer locked;
    status_t err =
            lockImageFromBuffer(item, GRALLOC_USAGE_SW_READ_OFTEN, item->mFence->dup(), &locked);
    unlockImageFromBuffer(item);
    // The address outlives the lock: the caller reads it while the image is still open.
    return err == 0 ? reinterpret_cast<jlong>(locked.data) : 0;
}
