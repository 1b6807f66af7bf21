// The length of the JPEG picture inside a camera BLOB buffer. The camera writes an 8-byte trailer
// at the very end of the buffer, little-endian: id 0x00FF, 16 zero bits, the JPEG size in bytes.

#include <log/log.h>
#include <string.h>

#include "ImageSupport.h"
#include "SurfaceLog.h"
#include "SurfaceNativeUtilImpl.h"

using android::BufferItem;

namespace {

constexpr int kJpegFooterSize = 8;
// The id and the padding read as one word: the padding must be zero too.
constexpr uint32_t kJpegBlobIdWord = 0x000000FF;

uint32_t readLittleEndian32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

}  // namespace

uint32_t Image_getJpegSize(LockedBuffer* buffer, bool usingRGBAOverride) {
    NLOGV("%s", "Image_getJpegSize");
    LOG_ALWAYS_FATAL_IF(buffer == nullptr, "Input buffer is nullptr!!!");
    // The searched span is the buffer's width in bytes whatever the override says.
    const uint32_t width = buffer->width;
    const uint8_t* footer = buffer->data + width - kJpegFooterSize;
    if (readLittleEndian32(footer) == kJpegBlobIdWord) {
        uint32_t size = readLittleEndian32(footer + 4);
        NLOGV("%s: Jpeg size = %d", "Image_getJpegSize", size);
        if (size != 0) return size;
    }
    NLOGW("%s: No JPEG header detected, defaulting to size=width=%d", "Image_getJpegSize", width);
    return width;
}

int SurfaceNativeUtilImpl::nativeGetJpegFooterSize(JNIEnv*) {
    NLOGV("nativeGetJpegFooterSize");
    return kJpegFooterSize;
}

int SurfaceNativeUtilImpl::nativeGetJpegSize(JNIEnv* env, jobject image) {
    NLOGV("getNativeContext");
    BufferItem* item = Image_getLockedBuffer(env, image);
    if (item == nullptr) {
        NLOGW("Image already released!!!");
        return 0;
    }
    LockedBuffer locked;
    android::status_t err =
            lockImageFromBuffer(item, GRALLOC_USAGE_SW_READ_OFTEN, item->mFence->dup(), &locked);
    unlockImageFromBuffer(item);
    if (err != 0) return 0;
    // The trailer is read through the address taken while locked; the image is still open.
    return static_cast<int>(Image_getJpegSize(&locked, false));
}
