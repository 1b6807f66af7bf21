// Copying the last frame queued to a Surface into a Java byte buffer as a packed image, the
// compressed NV12 frames of Qualcomm devices through the GPU converter.

#include <gui/Surface.h>
#include <string.h>
#include <system/graphics.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <ui/Rect.h>

#include <algorithm>

#include "ImageSupport.h"
#include "JniSupport.h"
#include "SurfaceLog.h"
#include "SurfaceNativeUtilImpl.h"
#include "YuvPlaneWriter.h"
#include "kernels/HighBytes.h"
#include "kernels/PixelKernels.h"
#include "platform/PlatformUtil.h"
#include "qcom/FormatConverter.h"

using android::Fence;
using android::GraphicBuffer;
using android::sp;

namespace {

constexpr const char* kName = "nativePutByteBufferFromSurface";

constexpr int PIXEL_FORMAT_YCrCb_420_SP_M = 0x11D;           // vendor NV21 (285)
constexpr int PIXEL_FORMAT_16BIT_SEMIPLANAR = 0x127;         // vendor 16-bit samples (295)
constexpr int HAL_PIXEL_FORMAT_YCbCr_420_UBWC = 0x7FA30C06;  // Qualcomm compressed NV12

// Formats read as flexible YUV once a YCbCr lock has described them.
bool readAsFlexibleYuv(int format) {
    switch (format) {
        case HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED:
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

// The locked frame and where it goes.
struct Planes {
    const uint8_t* p0 = nullptr;  // luma
    const uint8_t* p1 = nullptr;  // first chroma address (Cr)
    const uint8_t* p2 = nullptr;  // Cb
    size_t yStride = 0;
    size_t cStride = 0;
    size_t width = 0;
    size_t height = 0;
    // Bytes readable from p1 inside the buffer's chroma plane; SIZE_MAX when the lock did not
    // describe the plane.
    size_t p1Readable = SIZE_MAX;
    uint8_t* dst = nullptr;
};

// Luma then chroma of a semi-planar frame, packed: one run each when both strides equal the
// width, else `height` rows and `height / 2` chroma rows of `width` bytes.
void copySemiPlanar(const Planes& p, bool contiguous) {
    size_t luma = p.width * p.height;
    // Guard: a whole-buffer lock on a board whose order puts the chroma at the Cb address leaves
    // no Cr address to read from; the chroma is then left out rather than read from null.
    if (contiguous) {
        memcpy(p.dst, p.p0, luma);
        if (p.p1 != nullptr) memcpy(p.dst + luma, p.p1, std::min(luma / 2, p.p1Readable));
        return;
    }
    nuvra::kernels::copyPlane(p.dst, p.width, p.p0, p.yStride, p.width, p.height);
    if (p.height < 2 || p.p1 == nullptr) return;
    size_t rows = p.height / 2;
    // A last chroma row that would read past the plane (the Cr address of an NV12-ordered
    // buffer is one byte into it) is cut where the plane ends.
    size_t whole = rows;
    if ((rows - 1) * p.cStride + p.width > p.p1Readable) whole = rows - 1;
    nuvra::kernels::copyPlane(p.dst + luma, p.width, p.p1, p.cStride, p.width, whole);
    if (whole < rows && p.p1Readable > whole * p.cStride) {
        memcpy(p.dst + luma + whole * p.width, p.p1 + whole * p.cStride,
               std::min(p.width, p.p1Readable - whole * p.cStride));
    }
}

bool stridesEqualWidth(const Planes& p) {
    return p.width == p.yStride && p.width == p.cStride;
}

// The vendor branch of IMPLEMENTATION_DEFINED and vendor NV21 frames.
void copyVendorFrame(const Planes& p) {
    PlatformVendor vendor = PlatformUtil::getCurrentVendor();
    if (vendor == VENDOR_K_ORB || vendor == VENDOR_MT) {
        NLOGV("%s: K.ORB/MT = %d", kName, vendor);
        NLOGV("%s: p0 = %p, p1 = %p, p2 = %p", kName, p.p0, p.p1, p.p2);
        if (stridesEqualWidth(p)) {
            NLOGV("%s: yStride == Width", kName);
            copySemiPlanar(p, true);
        } else {
            NLOGV("%s: yStride != Width", kName);
            copySemiPlanar(p, false);
        }
        return;
    }
    if (vendor != VENDOR_QCOM) return;
    NLOGV("%s: QCOM", kName);
    NLOGV("%s: p0=%p, p1=%p, p2=%p", kName, p.p0, p.p1, p.p2);
    if (PlatformUtil::getCurrentYuvOrder() != YUV_ORDER_NV12) {
        if (stridesEqualWidth(p)) {
            copySemiPlanar(p, true);
        } else {
            NLOGV("%s: yStride != Width", kName);
            copySemiPlanar(p, false);
        }
        return;
    }
    // Cb-first chroma from p2, written Cr first: every byte pair swapped.
    NLOGV("%s: SURFACE FORMAT NV12", kName);
    size_t luma = p.width * p.height;
    if (p.p2 == nullptr) {  // guard, as for p1 above
        nuvra::kernels::copyPlane(p.dst, p.width, p.p0, p.yStride, p.width, p.height);
        return;
    }
    if (stridesEqualWidth(p)) {
        memcpy(p.dst, p.p0, luma);
        nuvra::kernels::copySwapChromaPairs(p.dst + luma, p.p2, luma / 2);
        return;
    }
    nuvra::kernels::copyPlane(p.dst, p.width, p.p0, p.yStride, p.width, p.height);
    nuvra::kernels::copyPlaneSwapPairs(p.dst + luma, p.width, p.p2, p.cStride, p.width,
                                       p.height / 2);
}

// Samples stored in 16-bit words: the high (odd) byte of each, n = width * height luma samples
// from p0 and n / 2 chroma samples from p1.
void copyHighBytes(const Planes& p) {
    NLOGV("%s: p0 = %p, p1 = %p, p2 = %p", kName, p.p0, p.p1, p.p2);
    size_t n = p.width * p.height;
    if (n < 1) return;
    nuvra::kernels::extractHighBytes(p.dst, p.p0, n);
    // Without a chroma address (an NV12-ordered board whose buffer was locked as one plane)
    // there is nothing to read the chroma from: it is left out rather than read from null.
    if (n != 1 && p.p1 != nullptr) nuvra::kernels::extractHighBytes(p.dst + n, p.p1, n / 2);
}

// Decompresses a compressed NV12 frame on the GPU. Neither success nor failure changes the
// operation's result.
void convertOnGpu(const sp<GraphicBuffer>& buffer, const Planes& p) {
    vantora::FormatConverter converter;
    if (PlatformUtil::getCurrentVendor() == VENDOR_QCOM && converter.isInitialized() &&
        converter.isSupportedFormat(HAL_PIXEL_FORMAT_YCbCr_420_UBWC)) {
        bool converted = converter.convert(buffer->getNativeBuffer(), p.width, p.height,
                                           HAL_PIXEL_FORMAT_YCbCr_420_UBWC, p.dst);
        NLOGI("UBWC -> YUV: %s", converted ? "converted" : "convert fail");
    }
}

}  // namespace

int SurfaceNativeUtilImpl::nativePutByteBufferFromSurface(JNIEnv* env, jobject jsurface,
                                                          jobject byteBuffer) {
    NLOGV("%s E", kName);
    sp<android::Surface> surface = getSurface(env, jsurface);
    if (surface == nullptr) {
        NLOGE("%s: Surface is nullptr", kName);
        return android::INVALID_OPERATION;
    }
    sp<GraphicBuffer> buffer;
    sp<Fence> fence = Fence::NO_FENCE;
    float matrix[16];
    surface->getLastQueuedBuffer(&buffer, &fence, matrix);
    if (buffer == nullptr || fence == nullptr) {
        NLOGE("%s: getLastQueuedBuffer failed", kName);
        return android::INVALID_OPERATION;
    }

    Planes p;
    p.width = buffer->getWidth();
    p.height = buffer->getHeight();
    int format = buffer->getPixelFormat();
    NLOGV("%s: format(%d)", kName, format);
    const android::Rect rect(0, 0, static_cast<int32_t>(p.width), static_cast<int32_t>(p.height));

    int workingFormat = format;
    uint8_t* p0 = nullptr;
    if (isSinglePlaneFormat(format)) {
        p.yStride = p.cStride = p.width;
    } else {
        NLOGV("%s: ycbcr", kName);
        android_ycbcr ycbcr;
        memset(&ycbcr, 0, sizeof(ycbcr));
        if (buffer->lockAsyncYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, rect, &ycbcr, fence->dup()) != 0) {
            p.yStride = p.cStride = p.width;
        } else {
            p0 = static_cast<uint8_t*>(ycbcr.y);
            p.p1 = static_cast<const uint8_t*>(ycbcr.cr);
            p.p2 = static_cast<const uint8_t*>(ycbcr.cb);
            p.yStride = ycbcr.ystride;
            p.cStride = ycbcr.cstride;
            p.p1Readable = chromaBytesReadable(static_cast<const uint8_t*>(ycbcr.cb),
                                               static_cast<const uint8_t*>(ycbcr.cr), ycbcr.cstride,
                                               ycbcr.chroma_step, p.width, p.height, p.p1);
            if (readAsFlexibleYuv(format)) workingFormat = HAL_PIXEL_FORMAT_YCbCr_420_888;
        }
    }
    if (p0 == nullptr) {
        NLOGV("%s: lockAsync", kName);
        void* vaddr = nullptr;
        int err = buffer->lockAsync(GRALLOC_USAGE_SW_READ_OFTEN, rect, &vaddr, fence->dup(),
                                    nullptr, nullptr);
        p0 = static_cast<uint8_t*>(vaddr);
        if (err != 0 || p0 == nullptr) {
            NLOGE("%s:Lock buffer failed!(%d)", kName, err);
            return err;
        }
        p.yStride = p.cStride = buffer->getStride();
        // The chroma follows width x height bytes of luma, where the board's order puts it.
        uint8_t* chroma = p0 + p.height * p.width;
        if (PlatformUtil::getCurrentYuvOrder() == YUV_ORDER_NV12) {
            if (p.p2 == nullptr) p.p2 = chroma;
        } else if (p.p1 == nullptr) {
            p.p1 = chroma;
        }
    }
    p.p0 = p0;

    p.dst = static_cast<uint8_t*>(env->GetDirectBufferAddress(byteBuffer));
    int64_t capacity = env->GetDirectBufferCapacity(byteBuffer);
    NLOGV("%s: width(%d) height(%d) yStride(%d) cStride(%d) format(%d)", kName,
          static_cast<int>(p.width), static_cast<int>(p.height), static_cast<int>(p.yStride),
          static_cast<int>(p.cStride), workingFormat);

    // Refuses a Java buffer smaller than `needed`; the graphic buffer stays locked.
    auto tooSmall = [&](int64_t needed) {
        if (capacity >= needed && p.dst != nullptr) return false;
        NLOGE("Buffer size(%ld) is smaller than image size(%d)", static_cast<long>(capacity),
              static_cast<int>(needed));
        return true;
    };
    const int64_t pixels = static_cast<int64_t>(p.width) * static_cast<int64_t>(p.height);
    switch (workingFormat) {
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
        case HAL_PIXEL_FORMAT_YCbCr_420_888:
            if (tooSmall(pixels * 3 / 2)) return android::BAD_VALUE;
            if (stridesEqualWidth(p)) {
                copySemiPlanar(p, true);
            } else {
                NLOGV("%s: Stride != Width", kName);
                copySemiPlanar(p, false);
            }
            break;
        case HAL_PIXEL_FORMAT_RAW16:
        case HAL_PIXEL_FORMAT_Y16:
            if (tooSmall(pixels * 2)) return android::BAD_VALUE;
            memcpy(p.dst, p.p0, static_cast<size_t>(pixels * 2));
            break;
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW12: {
            int64_t bytes = static_cast<int64_t>(p.yStride) * static_cast<int64_t>(p.height);
            if (tooSmall(bytes)) return android::BAD_VALUE;
            memcpy(p.dst, p.p0, static_cast<size_t>(bytes));
            break;
        }
        case HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED:
        case PIXEL_FORMAT_YCrCb_420_SP_M:
            if (tooSmall(pixels * 3 / 2)) return android::BAD_VALUE;
            copyVendorFrame(p);
            break;
        case PIXEL_FORMAT_16BIT_SEMIPLANAR:
            // Guard: the extraction writes n + n / 2 bytes; a shorter Java buffer is refused
            // like the checked formats rather than written past.
            if (tooSmall(pixels + pixels / 2)) return android::BAD_VALUE;
            copyHighBytes(p);
            break;
        case HAL_PIXEL_FORMAT_YCbCr_420_UBWC:
            // Guard: the converter writes width * height * 3 / 2 bytes and is given no capacity.
            if (PlatformUtil::getCurrentVendor() == VENDOR_QCOM && tooSmall(pixels * 3 / 2)) {
                return android::BAD_VALUE;
            }
            convertOnGpu(buffer, p);
            break;
        default:
            NLOGE("No support format");
            break;
    }

    NLOGV("%s outBuffer unlock", kName);
    int err = buffer->unlock();
    if (err != 0) {
        NLOGE("%s: Failed to unlock buffer, error %s (%d).", kName, strerror(-err), err);
        return err;
    }
    NLOGV("%s X", kName);
    return 0;
}
