// The pixels of an acquired image handed to Java, wrapped in a new direct byte buffer or copied
// into one that Java supplies, and the image's data space.

#include <string.h>
#include <system/graphics.h>

#include "ImageSupport.h"
#include "SurfaceLog.h"
#include "SurfaceNativeUtilImpl.h"

using android::BufferItem;

namespace {

// Rows from the start of the luma plane to `chroma`; 0 for a zero stride or a missing plane.
uint32_t rowsBefore(const LockedBuffer& b, const uint8_t* chroma) {
    if (b.stride == 0 || chroma == nullptr) return 0;
    return static_cast<uint32_t>((chroma - b.data) / static_cast<int64_t>(b.stride));
}

bool isSupported(int flexFormat) {
    switch (flexFormat) {
        case HAL_PIXEL_FORMAT_RAW16:
        case HAL_PIXEL_FORMAT_Y16:
        case HAL_PIXEL_FORMAT_BLOB:
        case HAL_PIXEL_FORMAT_YCbCr_420_888:
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW12:
        case HAL_PIXEL_FORMAT_YCBCR_P010:
            return true;
        default:
            return false;
    }
}

bool hasP010Chroma(const LockedBuffer& b) {
    return b.dataCb != nullptr && b.dataCr != nullptr;
}

// The bytes that make up the image, in unsigned 32-bit arithmetic. The luma-plus-chroma sizes
// take the interleaved chroma plane to follow the luma plane in one allocation: it begins at
// dataCr for flexible YUV (Cr first, as NV21) and at dataCb for P010. Guard: a flexible image
// locked whole after a failed YCbCr lock has no Cr address, and the rows up to address 0 would
// reach far outside the buffer; it is the luma plane alone.
uint32_t imageSize(LockedBuffer& b) {
    switch (b.flexFormat) {
        case HAL_PIXEL_FORMAT_RAW16:
        case HAL_PIXEL_FORMAT_Y16:
            return b.stride * b.height * 2;
        case HAL_PIXEL_FORMAT_BLOB:
            return Image_getJpegSize(&b, false);
        case HAL_PIXEL_FORMAT_YCbCr_420_888:
            if (b.dataCr == nullptr) return b.stride * b.height;
            return (rowsBefore(b, b.dataCr) + b.height / 2) * b.stride;
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW12:
            return b.stride * b.height;
        case HAL_PIXEL_FORMAT_YCBCR_P010:
            if (hasP010Chroma(b)) {
                return static_cast<uint32_t>(b.dataCb - b.data) + (b.height / 2) * b.chromaStride;
            } else {
                uint32_t luma = b.stride * b.height * 2;
                return luma + luma / 2;
            }
        default:
            return 0;
    }
}

// The smallest buffer that Java may supply; it counts the visible width, not the stride.
uint32_t minimumCapacity(LockedBuffer& b) {
    switch (b.flexFormat) {
        case HAL_PIXEL_FORMAT_RAW16:
        case HAL_PIXEL_FORMAT_Y16:
            return b.width * b.height * 2;
        case HAL_PIXEL_FORMAT_BLOB:
            return Image_getJpegSize(&b, false);
        case HAL_PIXEL_FORMAT_YCbCr_420_888:
            return b.width * b.height * 3 / 2;
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW12:
            return b.width * b.height;
        default:  // P010
            return b.width * b.height * 3;
    }
}

// The geometry line of the planar formats.
void logGeometry(const char* name, const LockedBuffer& b) {
    if (b.flexFormat == HAL_PIXEL_FORMAT_YCbCr_420_888) {
        NLOGV("%s: format %d, size(width %d height %d), buffer(stride %d heightSlice %d)", name,
              b.flexFormat, b.width, b.height, b.stride, rowsBefore(b, b.dataCr));
    } else if (b.flexFormat == HAL_PIXEL_FORMAT_YCBCR_P010) {
        if (hasP010Chroma(b)) {
            NLOGV("%s: format %d, size(width %d height %d), buffer(stride %d chromaStride %d "
                  "heightSlice %d)",
                  name, b.flexFormat, b.width, b.height, b.stride, b.chromaStride,
                  rowsBefore(b, b.dataCb));
        } else {
            NLOGD("%s: format %d, size(width %d height %d), buffer(stride %d heightSlice %d)", name,
                  b.flexFormat, b.width, b.height, b.stride * 2, b.height);
        }
    }
}

}  // namespace

jobject SurfaceNativeUtilImpl::nativeGetBufferfromImage(JNIEnv* env, jobject image) {
    constexpr const char* kName = "nativeGetBufferfromImage";
    NLOGV("nativeGetBufferfromImage");
    BufferItem* item = Image_getLockedBuffer(env, image);
    if (item == nullptr) {
        NLOGW("%s: Image already released!!!", kName);
        return nullptr;
    }
    // A failed lock leaves flexFormat 0, which ends as an unsupported format.
    LockedBuffer locked;
    lockImageFromBuffer(item, GRALLOC_USAGE_SW_READ_OFTEN, item->mFence->dup(), &locked);
    jobject buffer = nullptr;
    if (isSupported(locked.flexFormat)) {
        uint32_t size = imageSize(locked);
        logGeometry(kName, locked);
        buffer = env->NewDirectByteBuffer(locked.data, size);
    } else {
        NLOGE("%s: No support format %d", kName, locked.flexFormat);
    }
    if (buffer == nullptr) NLOGE("%s: nativeGetBufferfromImage is failed", kName);
    // The Java buffer addresses the pixels after the unlock: it is used while the image is open.
    unlockImageFromBuffer(item);
    return buffer;
}

int SurfaceNativeUtilImpl::nativePutByteBufferFromImage(JNIEnv* env, jobject image,
                                                        jobject byteBuffer) {
    constexpr const char* kName = "nativePutByteBufferFromImage";
    NLOGV("nativePutByteBufferFromImage");
    BufferItem* item = Image_getLockedBuffer(env, image);
    if (item == nullptr) {
        NLOGW("%s: Image already released!!!", kName);
        return 0;
    }
    LockedBuffer locked;
    lockImageFromBuffer(item, GRALLOC_USAGE_SW_READ_OFTEN, item->mFence->dup(), &locked);
    void* dst = env->GetDirectBufferAddress(byteBuffer);
    jlong capacity = env->GetDirectBufferCapacity(byteBuffer);
    if (!isSupported(locked.flexFormat)) {
        NLOGE("%s: No support format %d", kName, locked.flexFormat);
        unlockImageFromBuffer(item);
        return 0;
    }
    // The minimum counts the visible width while the copy counts padded rows. Guard: a buffer
    // that passes the minimum but cannot hold the copy is refused the same way rather than
    // written past its end. Either refusal leaves the image locked: the Java side closes it.
    const uint32_t minimum = minimumCapacity(locked);
    const uint32_t size = capacity < static_cast<jlong>(minimum) ? minimum : imageSize(locked);
    if (capacity < static_cast<jlong>(size)) {
        NLOGW("%s: Buffer size(%ld) is smaller than image size(%u)", kName,
              static_cast<long>(capacity), size);
        return android::BAD_VALUE;
    }
    logGeometry(kName, locked);
    memcpy(dst, locked.data, size);
    unlockImageFromBuffer(item);
    return 0;
}

int SurfaceNativeUtilImpl::nativeGetDataSpaceFromImage(JNIEnv* env, jobject image) {
    NLOGV("nativeGetDataSpaceFromImage");
    BufferItem* item = Image_getLockedBuffer(env, image);
    if (item == nullptr) {
        NLOGW("Image already released!!!");
        return 0;
    }
    return item->mDataSpace;
}
