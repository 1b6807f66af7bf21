// Writing one frame held in memory into the next free buffer of a Surface, converting the pixels
// when the buffer's format differs from the frame's.

#define ATRACE_TAG ATRACE_TAG_NEVER  // a scope that is never traced

#include <log/log.h>
#include <string.h>
#include <system/graphics.h>
#include <system/window.h>
#include <ui/GraphicBuffer.h>
#include <utils/Trace.h>

#include "OperationSupport.h"
#include "PixelConversion.h"
#include "SurfaceNativeUtilImpl.h"
#include "kernels/PixelKernels.h"
#include "platform/PlatformUtil.h"

using android::GraphicBuffer;
using android::sp;

namespace {

constexpr const char* kName = "produceFrame";

// Vendor buffer formats written here.
constexpr int PIXEL_FORMAT_YCrCb_420_SP_M = 0x11D;
constexpr int HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS = 0x114;
constexpr int HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS = 0x7FA30C04;

constexpr uint32_t kWriteUsage = GRALLOC_USAGE_SW_WRITE_OFTEN;

// The BLOB trailer: marker 0x00FF, 16 zero bits, then the JPEG size, little-endian.
constexpr size_t kBlobFooterSize = 8;

// One dequeued buffer on its way to being queued or cancelled.
struct Frame {
    ANativeWindow* anw;
    ANativeWindowBuffer* anb;
    sp<GraphicBuffer> buf;
    const uint8_t* pixels;
    int width;
    int height;
    int bufSize;
    uint32_t stride;  // the buffer's, in pixels
    // Sizes are computed in 64 bits: a 32-bit product of huge dimensions would wrap and let a
    // short input through the size checks.
    uint64_t bufferLength;
    size_t lumaSize() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
};

enum class LockFailure { Plain, RgbaToNv21, RgbaToYv12 };

// Locks the whole buffer for CPU writes, with the line announcing it when `announce` is set.
int lockForWrite(const Frame& f, uint8_t** img, LockFailure failure, bool announce = true) {
    if (announce) NLOGV("%s: Lock buffer from %p for write", kName, f.buf.get());
    void* vaddr = nullptr;
    int err = f.buf->lock(kWriteUsage, &vaddr);
    if (err != 0) {
        switch (failure) {
            case LockFailure::Plain:
                NLOGE("%s: Failed to lock buffer, error %s (%d).", kName, strerror(-err), err);
                break;
            case LockFailure::RgbaToNv21:
                NLOGE("%s: Error %s (%d) while locking buffer for write.", kName, strerror(-err),
                      err);
                break;
            case LockFailure::RgbaToYv12:
                NLOGE("%s: Error %s (%d) while locking gralloc buffer for write.", kName,
                      strerror(-err), err);
                break;
        }
        return err;
    }
    *img = static_cast<uint8_t*>(vaddr);
    return 0;
}

// A lock that succeeded without an address: the buffer is unlocked again and the frame refused.
int refuseNullAddress(const Frame& f) {
    f.buf->unlock();
    return android::BAD_VALUE;
}

// lockForWrite that also refuses a lock yielding no address: *img is then valid on success.
int lockWithAddress(const Frame& f, uint8_t** img, LockFailure failure, bool announce = true) {
    int err = lockForWrite(f, img, failure, announce);
    if (err != 0) return err;
    if (*img == nullptr) {
        NLOGE("%s: nullptr after locking buffer for write.", kName);
        return refuseNullAddress(f);
    }
    return 0;
}

// The level-2 line that some rows write right after lockYCbCr returns, before any failure line.
enum class YCbCrProgress { None, YCr, YCbStrides };

int lockYCbCrForWrite(const Frame& f, android_ycbcr* ycbcr,
                      YCbCrProgress progress = YCbCrProgress::None) {
    memset(ycbcr, 0, sizeof(*ycbcr));
    int err = f.buf->lockYCbCr(kWriteUsage, ycbcr);
    if (progress == YCbCrProgress::YCr) {
        NLOGV("%s: y = %p, cr = %p, error(%d)", kName, ycbcr->y, ycbcr->cr, err);
    } else if (progress == YCbCrProgress::YCbStrides) {
        NLOGV("%s: y = %p, cb = %p error(%d), yStride(%d), cStride(%d)", kName, ycbcr->y, ycbcr->cb,
              err, static_cast<int>(ycbcr->ystride), static_cast<int>(ycbcr->cstride));
    }
    if (err != 0) {
        NLOGE("%s: Failed to lock ycbcr buffer, error %s (%d).", kName, strerror(-err), err);
    }
    return err;
}

bool inputTooSmall(const Frame& f, int level) {
    if (static_cast<uint64_t>(static_cast<uint32_t>(f.bufSize)) >= f.bufferLength) return false;
    NLOG(level, "%s: PixelBuffer size %zu too small for given dimensions", kName,
         static_cast<size_t>(f.bufSize));
    return true;
}

// Copies `rows` rows of `rowBytes` from a packed source into a plane of pitch `pitch`.
void copyRows(uint8_t* dst, size_t pitch, const uint8_t* src, size_t rowBytes, size_t rows) {
    nuvra::kernels::copyPlane(dst, pitch, src, rowBytes, rowBytes, rows);
}

// The end of the chroma plane that lockYCbCr described: ceil(height / 2) rows at the chroma
// stride from the plane's first byte (the lower of cb and cr).
const uint8_t* chromaPlaneEnd(const Frame& f, const android_ycbcr& ycbcr) {
    auto* cb = static_cast<const uint8_t*>(ycbcr.cb);
    auto* cr = static_cast<const uint8_t*>(ycbcr.cr);
    const uint8_t* start = cb == nullptr ? cr : (cr == nullptr || cb < cr ? cb : cr);
    return start + ((static_cast<size_t>(f.height) + 1) / 2) * ycbcr.cstride;
}

// The bytes of a `bytes`-long write at dst that lie before `end`.
size_t bytesBefore(const uint8_t* dst, size_t bytes, const uint8_t* end) {
    if (dst >= end) return 0;
    size_t room = static_cast<size_t>(end - dst);
    return bytes < room ? bytes : room;
}

// ---- RGBA input ----

int writeRgbaToYv12(const Frame& f) {
    if ((f.width & 1) != 0 || (f.height & 1) != 0) {
        NLOGE("%s: Dimens %zu x %zu are not divisible by 2.", kName, static_cast<size_t>(f.width),
              static_cast<size_t>(f.height));
        return android::BAD_VALUE;
    }
    uint8_t* img = nullptr;
    int err = lockWithAddress(f, &img, LockFailure::RgbaToYv12);
    if (err != 0) return err;
    uint32_t stride = f.stride;
    NLOGV("%s: stride is: %u", kName, stride);
    LOG_ALWAYS_FATAL_IF(stride % 16, "Stride is not 16 pixel aligned %d", stride);

    size_t cStride = ((stride / 2) + 15) & ~static_cast<size_t>(15);
    uint8_t* crPlane = img + static_cast<size_t>(stride) * f.height;
    uint8_t* cbPlane = crPlane + (cStride * f.height) / 2;
    rgbToYuv420(f.pixels, f.width, f.height, img, crPlane, cbPlane, 1, stride, cStride);
    return 0;
}

int writeRgbaToFlexibleYuv(const Frame& f) {
    NLOGV("%s: Lock buffer from %p for write", kName, f.buf.get());
    android_ycbcr ycbcr;
    int err = lockYCbCrForWrite(f, &ycbcr);
    if (err != 0) return err;
    if (ycbcr.y == nullptr || ycbcr.cb == nullptr || ycbcr.cr == nullptr) {
        NLOGE("%s: nullptr after locking buffer for write, y = %p, cb = %p, cr = %p", kName,
              ycbcr.y, ycbcr.cb, ycbcr.cr);
        return refuseNullAddress(f);
    }
    rgbToYuv420(f.pixels, f.width, f.height, &ycbcr);
    return 0;
}

int writeRgbaToNv21(const Frame& f) {
    uint8_t* img = nullptr;
    int err = lockWithAddress(f, &img, LockFailure::RgbaToNv21);
    if (err != 0) return err;
    size_t luma = f.lumaSize();
    rgbToYuv420(f.pixels, f.width, f.height, img, img + luma, img + luma + 1, 2, f.width, f.width);
    return 0;
}

// ---- NV21 input ----

// Luma to `y`, the interleaved chroma to `chroma`, whole planes when the buffer is packed and
// row by row at the buffer's stride otherwise. Chroma bytes that would land at or past
// `chromaEnd`, the end of the chroma plane as the lock described it, are left out: a chroma
// pointer one byte into the plane (cr of an NV12-ordered plane, cb of an NV21 one) would
// otherwise put the last byte one past the plane.
void copyNv21Planes(const Frame& f, uint8_t* y, uint8_t* chroma, const uint8_t* chromaEnd) {
    size_t luma = f.lumaSize();
    if (f.stride == static_cast<uint32_t>(f.width)) {
        memcpy(y, f.pixels, luma);
        memcpy(chroma, f.pixels + luma, bytesBefore(chroma, luma / 2, chromaEnd));
        return;
    }
    NLOGV("%s: Stride != Width", kName);
    copyRows(y, f.stride, f.pixels, f.width, f.height);
    if (f.height <= 1) return;
    for (size_t r = 0; r < static_cast<size_t>(f.height) / 2; ++r) {
        uint8_t* row = chroma + r * f.stride;
        memcpy(row, f.pixels + luma + r * f.width, bytesBefore(row, f.width, chromaEnd));
    }
}

// The lockYCbCr form: luma to `y`, chroma to `cr`.
int writeNv21ThroughYCbCr(const Frame& f) {
    NLOGV("%s: lockYCbCr buffer from %p for write", kName, f.buf.get());
    android_ycbcr ycbcr;
    int err = lockYCbCrForWrite(f, &ycbcr, YCbCrProgress::YCr);
    if (err != 0) return err;
    if (ycbcr.y == nullptr || ycbcr.cr == nullptr) {
        NLOGE("%s: nullptr after locking buffer for write, y = %p, cr = %p", kName, ycbcr.y,
              ycbcr.cr);
        return refuseNullAddress(f);
    }
    copyNv21Planes(f, static_cast<uint8_t*>(ycbcr.y), static_cast<uint8_t*>(ycbcr.cr),
                   chromaPlaneEnd(f, ycbcr));
    return 0;
}

// The plain-lock form: the chroma follows the luma in one plane; a buffer that cannot be locked
// that way is locked again through lockYCbCr.
int writeNv21ThroughLock(const Frame& f) {
    uint8_t* img[3] = {nullptr, nullptr, nullptr};
    const uint8_t* chromaEnd = nullptr;
    NLOGV("%s: Lock buffer from %p for write", kName, f.buf.get());
    void* vaddr = nullptr;
    int err = f.buf->lock(kWriteUsage, &vaddr);
    img[0] = static_cast<uint8_t*>(vaddr);
    NLOGV("%s: img[0] = %p", kName, img[0]);
    if (err != 0) {
        NLOGV("%s: lock again with lockYCbCr", kName);
        android_ycbcr ycbcr;
        memset(&ycbcr, 0, sizeof(ycbcr));
        err = f.buf->lockYCbCr(kWriteUsage, &ycbcr);
        if (err != 0) {
            NLOGE("%s: Failed to lock buffer, error %s (%d).", kName, strerror(-err), err);
            return err;
        }
        img[0] = static_cast<uint8_t*>(ycbcr.y);
        img[1] = static_cast<uint8_t*>(ycbcr.cb);
        if (img[1] != nullptr) chromaEnd = chromaPlaneEnd(f, ycbcr);
    }
    if (img[0] == nullptr) {
        NLOGE("%s: nullptr after locking buffer for write, img[0] = %p", kName, img[0]);
        return refuseNullAddress(f);
    }
    if (img[1] != nullptr) {
        copyNv21Planes(f, img[0], img[1], chromaEnd);
        return 0;
    }
    size_t luma = f.lumaSize();
    if (f.stride == static_cast<uint32_t>(f.width)) {
        memcpy(img[0], f.pixels, luma * 3 / 2);
    } else {
        copyRows(img[0], f.stride, f.pixels, f.width, f.height + f.height / 2);
    }
    return 0;
}

int writeNv21ToNv21(const Frame& f) {
    if (PlatformUtil::getCurrentVendor() == VENDOR_K_ORB) {
        NLOGV("%s: K.ORB", kName);
        return writeNv21ThroughYCbCr(f);
    }
    return writeNv21ThroughLock(f);
}

int writeNv21ToRgb565(const Frame& f) {
    uint8_t* img = nullptr;
    int err = lockWithAddress(f, &img, LockFailure::Plain);
    if (err != 0) return err;
    YuvToRGB565(f.pixels, static_cast<uint32_t>(f.bufSize), f.width, f.height, img);
    return 0;
}

bool venusNeedsQcom(int bufFmt) {
    if (PlatformUtil::getCurrentVendor() == VENDOR_QCOM) return false;
    NLOGE("%s: Convert 420sp to venus is working with qcom only (0x%x)", kName,
          static_cast<unsigned>(bufFmt));
    return true;
}

// The Venus rows check the input's size as the NV21 row does (a guard: a direct buffer shorter
// than the frame would otherwise be read past its end).
int writeNv21ToVenusNv21(const Frame& f, int bufFmt) {
    if (venusNeedsQcom(bufFmt)) return android::INVALID_OPERATION;
    if (inputTooSmall(f, ANDROID_LOG_ERROR)) return android::BAD_VALUE;
    NLOGV("%s: HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS ", kName);
    uint8_t* img = nullptr;
    int err = lockForWrite(f, &img, LockFailure::Plain);
    if (err != 0) return err;
    NLOGV("%s: img = %p", kName, img);
    if (img == nullptr) {
        NLOGE("%s: nullptr after locking buffer for write.", kName);
        return refuseNullAddress(f);
    }
    // Row pitch `width`; the chroma starts after the luma rows rounded up to 32.
    size_t luma = f.lumaSize();
    size_t alignedRows = (static_cast<size_t>(f.height) + 31) & ~static_cast<size_t>(31);
    memcpy(img, f.pixels, luma);
    memcpy(img + alignedRows * f.width, f.pixels + luma, luma / 2);
    return 0;
}

int writeNv21ToVenusNv12(const Frame& f, int bufFmt) {
    if (venusNeedsQcom(bufFmt)) return android::INVALID_OPERATION;
    if (inputTooSmall(f, ANDROID_LOG_ERROR)) return android::BAD_VALUE;
    NLOGV("%s: HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS ", kName);
    NLOGV("%s: lockYCbCr buffer from %p for write", kName, f.buf.get());
    android_ycbcr ycbcr;
    int err = lockYCbCrForWrite(f, &ycbcr, YCbCrProgress::YCbStrides);
    if (err != 0) return err;
    if (ycbcr.y == nullptr || ycbcr.cb == nullptr) {
        NLOGE("%s: nullptr after locking buffer for write, y = %p, cb = %p", kName, ycbcr.y,
              ycbcr.cb);
        return refuseNullAddress(f);
    }
    uint8_t* y = static_cast<uint8_t*>(ycbcr.y);
    uint8_t* cb = static_cast<uint8_t*>(ycbcr.cb);
    size_t luma = f.lumaSize();
    // The target holds Cb before Cr: every chroma pair is swapped on the way.
    if (ycbcr.ystride == static_cast<size_t>(f.width)) {
        memcpy(y, f.pixels, luma);
        if (luma >= 2) nuvra::kernels::copySwapChromaPairs(cb, f.pixels + luma, luma / 2);
        return 0;
    }
    NLOGV("%s: yStride != width", kName);
    copyRows(y, ycbcr.ystride, f.pixels, f.width, f.height);
    if (f.height > 1) {
        nuvra::kernels::copyPlaneSwapPairs(cb, ycbcr.cstride, f.pixels + luma, f.width, f.width,
                                           f.height / 2);
    }
    return 0;
}

// ---- BLOB input ----

int writeBlob(const Frame& f) {
    NLOGV("%s: HAL_PIXEL_FORMAT_BLOB", kName);
    uint64_t needed =
            (static_cast<uint64_t>(static_cast<uint32_t>(f.bufSize)) + kBlobFooterSize + 3) &
            ~static_cast<uint64_t>(3);
    if (needed > f.bufferLength) {
        NLOGE("%s: Pixel buffer needs size %zu, cannot fit in gralloc buffer of size %zu", kName,
              static_cast<size_t>(needed), static_cast<size_t>(f.bufferLength));
        return android::BAD_VALUE;
    }
    uint8_t* img = nullptr;
    int err = lockWithAddress(f, &img, LockFailure::Plain, /*announce=*/false);
    if (err != 0) return err;
    memcpy(img, f.pixels, static_cast<size_t>(f.bufSize));
    uint8_t* footer = img + f.bufferLength - kBlobFooterSize;
    uint32_t jpegSize = static_cast<uint32_t>(f.bufSize);
    const uint8_t trailer[kBlobFooterSize] = {0xFF,
                                              0x00,
                                              0x00,
                                              0x00,
                                              static_cast<uint8_t>(jpegSize),
                                              static_cast<uint8_t>(jpegSize >> 8),
                                              static_cast<uint8_t>(jpegSize >> 16),
                                              static_cast<uint8_t>(jpegSize >> 24)};
    memcpy(footer, trailer, kBlobFooterSize);
    return 0;
}

// Writes the frame by input and buffer format. 0 goes on to unlock and queue; anything else is
// returned after the buffer is cancelled.
int writeFrame(const Frame& f, int pixelFmt, int bufFmt) {
    switch (pixelFmt) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
            if (bufFmt == HAL_PIXEL_FORMAT_YV12) {
                if (inputTooSmall(f, ANDROID_LOG_ERROR)) return android::BAD_VALUE;
                return writeRgbaToYv12(f);
            }
            if (bufFmt == HAL_PIXEL_FORMAT_YCbCr_420_888) {
                if (inputTooSmall(f, ANDROID_LOG_ERROR)) return android::BAD_VALUE;
                return writeRgbaToFlexibleYuv(f);
            }
            if (bufFmt == HAL_PIXEL_FORMAT_YCrCb_420_SP) {
                if (inputTooSmall(f, ANDROID_LOG_ERROR)) return android::BAD_VALUE;
                return writeRgbaToNv21(f);
            }
            return 0;  // nothing to write; the unlock decides

        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
            switch (bufFmt) {
                case HAL_PIXEL_FORMAT_YCrCb_420_SP:
                case PIXEL_FORMAT_YCrCb_420_SP_M:
                    if (inputTooSmall(f, ANDROID_LOG_ERROR)) return android::BAD_VALUE;
                    return writeNv21ToNv21(f);
                case HAL_PIXEL_FORMAT_YCbCr_420_888:
                    // A guard: the direct buffer's capacity is known, so a short one is refused
                    // here as in the NV21 row rather than read past its end.
                    if (inputTooSmall(f, ANDROID_LOG_ERROR)) return android::BAD_VALUE;
                    return writeNv21ThroughYCbCr(f);
                case HAL_PIXEL_FORMAT_RGB_565:
                    if (inputTooSmall(f, ANDROID_LOG_WARN)) return android::BAD_VALUE;
                    return writeNv21ToRgb565(f);
                case HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS:
                    return writeNv21ToVenusNv21(f, bufFmt);
                case HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS:
                    return writeNv21ToVenusNv12(f, bufFmt);
                default:
                    NLOGE("%s: Convert 420sp to other format(%x) is not supported yet.", kName,
                          static_cast<unsigned>(bufFmt));
                    return android::INVALID_OPERATION;
            }

        case HAL_PIXEL_FORMAT_BLOB:
            return writeBlob(f);

        case HAL_PIXEL_FORMAT_YCbCr_420_888:
            if (bufFmt == HAL_PIXEL_FORMAT_RGB_565) {
                if (inputTooSmall(f, ANDROID_LOG_WARN)) return android::BAD_VALUE;
                return writeNv21ToRgb565(f);
            }
            return 0;  // nothing to write; the unlock decides

        default:
            NLOGE("%s: Invalid pixel format in produceFrame: %x", kName,
                  static_cast<unsigned>(pixelFmt));
            return android::BAD_VALUE;
    }
}

// Dequeue, check, lock, convert or copy, unlock, queue; every failure after the dequeue cancels
// the buffer.
int produceFrame(const sp<ANativeWindow>& anw, const uint8_t* pixelBuffer, int width, int height,
                 int pixelFmt, int bufSize) {
    ATRACE_CALL();
    NLOGV("%s: Dequeue buffer from %p %dx%d (fmt=%x, size=%x)", kName, anw.get(), width, height,
          static_cast<unsigned>(pixelFmt), static_cast<unsigned>(bufSize));
    if (anw == nullptr) {
        NLOGE("%s: anw must not be NULL", kName);
        return android::BAD_VALUE;
    }
    if (width < 0) {
        NLOGE("%s: width must be non-negative", kName);
        return android::BAD_VALUE;
    }
    if (height < 0) {
        NLOGE("%s: height must be non-negative", kName);
        return android::BAD_VALUE;
    }
    if (bufSize < 0) {
        NLOGE("%s: bufSize must be non-negative", kName);
        return android::BAD_VALUE;
    }

    ANativeWindow* window = anw.get();
    ANativeWindowBuffer* anb = nullptr;
    int err = native_window_dequeue_buffer_and_wait(window, &anb);
    if (err != 0) return err;

    auto cancel = [&](int status) {
        window->cancelBuffer(window, anb, -1);
        return status;
    };

    sp<GraphicBuffer> buf(GraphicBuffer::from(anb));
    if (buf->getWidth() != static_cast<uint32_t>(width) ||
        buf->getHeight() != static_cast<uint32_t>(height)) {
        NLOGE("%s: Received gralloc buffer with bad dimensions %ux%u, expecting dimensions %zu x "
              "%zu",
              kName, buf->getWidth(), buf->getHeight(), static_cast<size_t>(width),
              static_cast<size_t>(height));
        return cancel(android::BAD_VALUE);
    }
    Frame f{window, anb, buf, pixelBuffer, width, height, bufSize, buf->getStride(), 0};

    int bufFmt = 0;
    err = window->query(window, NATIVE_WINDOW_FORMAT, &bufFmt);
    if (err != 0) {
        NLOGE("%s: Error while querying surface pixel format %s (%d).", kName, strerror(-err), err);
        return cancel(err);
    }

    uint64_t w = static_cast<uint32_t>(width), h = static_cast<uint32_t>(height);
    if (pixelFmt == HAL_PIXEL_FORMAT_BLOB) {
        f.bufferLength = w;  // a BLOB buffer's width is its size in bytes
    } else if (pixelFmt == HAL_PIXEL_FORMAT_YCrCb_420_SP) {
        f.bufferLength = (w * h * 3) >> 1;
    } else {
        f.bufferLength = w * h * 4;
    }
    if (bufFmt != pixelFmt) {
        if (pixelFmt == HAL_PIXEL_FORMAT_BLOB && bufFmt == HAL_PIXEL_FORMAT_RGBA_8888) {
            NLOGV("%s: Using BLOB to RGBA format override.", kName);
            f.bufferLength = h == 0 ? 0 : (w + static_cast<uint64_t>(f.stride) * (h - 1)) * 4;
        } else {
            NLOGV("%s: Format mismatch in produceFrame: expecting format %#x, but received buffer "
                  "with format %#x",
                  kName, static_cast<unsigned>(pixelFmt), static_cast<unsigned>(bufFmt));
        }
    }
    NLOGV("%s: Pixel format chosen: %x", kName, static_cast<unsigned>(pixelFmt));
    NLOGV("%s: bufFmt : %x", kName, static_cast<unsigned>(bufFmt));

    err = writeFrame(f, pixelFmt, bufFmt);
    if (err != 0) return cancel(err);

    NLOGV("%s: Unlock buffer from %p", kName, buf.get());
    err = buf->unlock();
    if (err != 0) {
        NLOGE("%s: Failed to unlock buffer, error %s (%d).", kName, strerror(-err), err);
        return cancel(err);
    }
    NLOGV("%s: Queue buffer to %p", kName, window);
    err = window->queueBuffer(window, buf->getNativeBuffer(), -1);
    if (err != 0) {
        NLOGE("%s: Failed to queue buffer, error %s (%d).", kName, strerror(-err), err);
        return cancel(err);  // deliberately cancelled as well
    }
    return 0;
}

}  // namespace

int SurfaceNativeUtilImpl::nativeProduceFrame(JNIEnv* env, jobject surface, jobject pixelBuffer,
                                              int width, int height, int pixelFormat) {
    static const char* const kOperation = "nativeProduceFrame";
    NLOGV("nativeProduceFrame");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kOperation);
    if (anw == nullptr) return android::BAD_VALUE;
    if (pixelBuffer == nullptr) {
        jniThrowNullPointerException(env, "pixelBuffer");
        return 0;
    }
    int bufSize = static_cast<int>(env->GetDirectBufferCapacity(pixelBuffer));
    auto* pixels = static_cast<uint8_t*>(env->GetDirectBufferAddress(pixelBuffer));
    if (pixels == nullptr) {
        jniThrowNullPointerException(env, "pixels");
        return 0;
    }
    int err = produceFrame(anw, pixels, width, height, pixelFormat, bufSize);
    if (err != 0) {
        NLOGE("%s: Error while producing frame %s (%d).", kOperation, strerror(-err), err);
    }
    return err;
}

int SurfaceNativeUtilImpl::nativeProduceFrameWithNV21(JNIEnv* env, jobject surface, jlong pixel,
                                                      int width, int height) {
    static const char* const kOperation = "nativeProduceFrameWithNV21";
    NLOGV("nativeProduceFrame");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kOperation);
    if (anw == nullptr) return android::BAD_VALUE;
    if (pixel == 0) {
        jniThrowNullPointerException(env, "pixel");
        return 0;
    }
    // The frame's size as the signed 32-bit product (w x h x 3) / 2 gives it. Where that product
    // wrapped, the value is not the real size: a negative one is passed on as it is and a
    // non-negative one as -1; produceFrame refuses both before touching the window.
    int64_t size = static_cast<int64_t>(width) * height * 3 / 2;
    int32_t product =
            static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(height) * 3u);
    int bufSize = product / 2;
    if (bufSize >= 0 && bufSize != size) bufSize = -1;
    int err = produceFrame(anw, reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(pixel)),
                           width, height, HAL_PIXEL_FORMAT_YCrCb_420_SP, bufSize);
    if (err != 0) {
        NLOGE("%s: Error while producing frame %s (%d).", kOperation, strerror(-err), err);
    }
    return err;
}
