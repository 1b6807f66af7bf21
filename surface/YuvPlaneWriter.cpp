// Writing a three-plane YUV 4:2:0 frame into a graphic buffer: NV21 targets (plain and Venus),
// the flexible YUV format in either chroma order, and Venus NV12.

#include "YuvPlaneWriter.h"

#include <string.h>
#include <system/graphics.h>

#include <algorithm>

#include "SurfaceLog.h"
#include "kernels/PixelKernels.h"

using android::CpuConsumer;
using android::GraphicBuffer;
using android::sp;

namespace {

// Vendor buffer formats written here.
constexpr int PIXEL_FORMAT_YCrCb_420_SP_M = 0x11D;
constexpr int HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS = 0x114;
constexpr int HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS = 0x7FA30C04;

constexpr uint32_t kWriteUsage = GRALLOC_USAGE_SW_WRITE_OFTEN;

// One frame on its way into one locked buffer.
struct Copy {
    const Yuv420Source& src;
    size_t width;
    size_t height;
    size_t srcPitch;
    size_t dstPitch;  // the larger of the buffer's stride and its width
    bool packed;      // source pitch == width and width >= the buffer's stride

    size_t lumaSize() const { return width * height; }

    void luma(uint8_t* dst) const {
        if (packed) {
            memcpy(dst, src.y, lumaSize());
        } else {
            nuvra::kernels::copyPlane(dst, dstPitch, src.y, srcPitch, width, height);
        }
    }

    // The chroma read from cr: (width * height) / 2 bytes as one run when packed, height / 2
    // rows of width bytes otherwise; swapped pairwise for Cb-first targets. Nothing is read past
    // the source's chroma plane: a last run or row that would is cut where the plane ends.
    void chroma(uint8_t* dst, bool swap) const {
        size_t readable = src.crReadable;
        if (packed) {
            size_t bytes = std::min(lumaSize() / 2, readable);
            if (swap) {
                nuvra::kernels::copySwapChromaPairs(dst, src.cr, bytes);
            } else {
                memcpy(dst, src.cr, bytes);
            }
            return;
        }
        size_t rows = height / 2;
        if (rows == 0) return;
        size_t whole = rows;
        size_t lastBytes = width;
        if ((rows - 1) * srcPitch + width > readable) {
            whole = rows - 1;
            lastBytes = readable > whole * srcPitch ? readable - whole * srcPitch : 0;
        }
        using RowsFn = void (*)(uint8_t*, size_t, const uint8_t*, size_t, size_t, size_t);
        RowsFn rowsOut = swap ? static_cast<RowsFn>(nuvra::kernels::copyPlaneSwapPairs)
                              : static_cast<RowsFn>(nuvra::kernels::copyPlane);
        rowsOut(dst, dstPitch, src.cr, srcPitch, width, whole);
        if (whole < rows && lastBytes > 0) {
            rowsOut(dst + whole * dstPitch, dstPitch, src.cr + whole * srcPitch, srcPitch,
                    std::min(lastBytes, width), 1);
        }
    }

    // Where the chroma goes when the lock gave no chroma plane: right after the luma.
    uint8_t* chromaAfterLuma(uint8_t* y) const {
        return y + (packed ? lumaSize() : dstPitch * height);
    }
};

int refuseNullAddress(const sp<GraphicBuffer>& buf) {
    buf->unlock();
    return android::BAD_VALUE;
}

// lockYCbCr, and the plain lock when that fails or gives no luma address. `chromaOf` picks the
// chroma plane of the description. On success img[0] is the luma and img[1] the chroma (null
// after the plain lock).
int lockPlanes(const sp<GraphicBuffer>& buf, const PlaneWriterTexts& t, bool chromaAtCb,
               uint8_t* img[2]) {
    img[0] = img[1] = nullptr;
    NLOGV("%s: android_ycbcr", t.name);
    android_ycbcr ycbcr;
    memset(&ycbcr, 0, sizeof(ycbcr));
    int err = buf->lockYCbCr(kWriteUsage, &ycbcr);
    img[0] = static_cast<uint8_t*>(ycbcr.y);
    img[1] = static_cast<uint8_t*>(chromaAtCb ? ycbcr.cb : ycbcr.cr);
    if (err != 0 || img[0] == nullptr) {
        if (t.hardwareBufferTarget) {
            NLOGV("%s: Lock buffer (%p) for write", t.name, t.lockSubject);
        } else {
            NLOGV("%s: Lock buffer from %p for write", t.name, t.lockSubject);
        }
        void* vaddr = nullptr;
        err = buf->lock(kWriteUsage, &vaddr);
        img[0] = static_cast<uint8_t*>(vaddr);
    }
    NLOGV("%s: img[0] = %p, img[1] = %p", t.name, img[0], img[1]);
    if (err != 0) {
        NLOGE("%s: Failed to lock ycbcr buffer, error %s (%d).", t.name, strerror(-err), err);
        return err;
    }
    if (img[0] == nullptr) {
        NLOGE("%s: nullptr after locking buffer for write, img[0] = %p", t.name, img[0]);
        return refuseNullAddress(buf);
    }
    return 0;
}

int writeNv21Target(const sp<GraphicBuffer>& buf, const Copy& c, const PlaneWriterTexts& t) {
    uint8_t* img[2];
    int err = lockPlanes(buf, t, /*chromaAtCb=*/false, img);
    if (err != 0) return err;
    if (c.packed) {
        NLOGV("%s: Stride == Width", t.name);
        if (img[1] == nullptr) NLOGV("%s: nullptr == img[1]", t.name);
    } else {
        NLOGV("%s: Stride != Width", t.name);
    }
    uint8_t* chroma = img[1] != nullptr ? img[1] : c.chromaAfterLuma(img[0]);
    c.luma(img[0]);
    c.chroma(chroma, /*swap=*/false);
    return 0;
}

int writeVenusNv12Target(const sp<GraphicBuffer>& buf, const Copy& c, const PlaneWriterTexts& t) {
    uint8_t* img[2];
    int err = lockPlanes(buf, t, /*chromaAtCb=*/true, img);
    if (err != 0) return err;
    uint8_t* chroma = img[1] != nullptr ? img[1] : c.chromaAfterLuma(img[0]);
    c.luma(img[0]);
    if (c.packed ? c.lumaSize() >= 2 : c.height >= 2) c.chroma(chroma, /*swap=*/true);
    return 0;
}

int writeFlexibleTarget(const sp<GraphicBuffer>& buf, const Copy& c, const PlaneWriterTexts& t) {
    NLOGV("%s: android_ycbcr", t.name);
    android_ycbcr ycbcr;
    memset(&ycbcr, 0, sizeof(ycbcr));
    int err = buf->lockYCbCr(kWriteUsage, &ycbcr);
    auto* y = static_cast<uint8_t*>(ycbcr.y);
    auto* cb = static_cast<uint8_t*>(ycbcr.cb);
    auto* cr = static_cast<uint8_t*>(ycbcr.cr);
    bool crFirst = cb == cr + 1;
    if (err == 0 && crFirst) NLOGV("%s: YCrCb format", t.name);
    NLOGV("%s: y = %p, cb = %p, cr = %p", t.name, y, cb, cr);
    if (err != 0) {
        NLOGE("%s: Failed to lock ycbcr buffer, error %s (%d).", t.name, strerror(-err), err);
        return err;
    }
    if (y == nullptr || cb == nullptr || cr == nullptr) {
        NLOGE("%s: nullptr after locking buffer for write, y = %p, cb = %p, cr = %p", t.name, y, cb,
              cr);
        return refuseNullAddress(buf);
    }
    if (crFirst) {
        if (c.packed) {
            NLOGV("%s: Stride == Width", t.name);
        } else {
            NLOGV("%s: Stride != Width", t.name);
        }
        c.luma(y);
        c.chroma(cr, /*swap=*/false);
        return 0;
    }
    // Cb first (NV12 order): every source pair is swapped on the way.
    c.luma(y);
    if (c.packed ? c.lumaSize() >= 2 : c.height > 1) c.chroma(cb, /*swap=*/true);
    return 0;
}

}  // namespace

bool yuv420SourceRefused(const char* name, const Yuv420Source& src) {
    if (src.y == nullptr) {
        NLOGE("%s: pixelBuffer must not be nullptr", name);
        return true;
    }
    if (src.width < 0) {
        NLOGE("%s: width must be non-negative", name);
        return true;
    }
    if (src.height < 0) {
        NLOGE("%s: height must be non-negative", name);
        return true;
    }
    return false;
}

int writeYuv420Planes(const sp<GraphicBuffer>& buf, int bufFmt, const Yuv420Source& src,
                      const PlaneWriterTexts& texts) {
    size_t width = static_cast<size_t>(src.width);
    size_t bufStride = buf->getStride();
    Copy c{src,
           width,
           static_cast<size_t>(src.height),
           static_cast<size_t>(static_cast<uint32_t>(src.stride)),
           std::max(bufStride, width),
           static_cast<size_t>(static_cast<uint32_t>(src.stride)) == width && width >= bufStride};
    switch (bufFmt) {
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
        case HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS:
        case PIXEL_FORMAT_YCrCb_420_SP_M:
            return writeNv21Target(buf, c, texts);
        case HAL_PIXEL_FORMAT_YCbCr_420_888:
            return writeFlexibleTarget(buf, c, texts);
        case HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS:
            return writeVenusNv12Target(buf, c, texts);
        default:
            NLOGE("%s: Convert 420sp to other format(%x) is not supported yet.", texts.name,
                  static_cast<unsigned>(bufFmt));
            return android::INVALID_OPERATION;
    }
}

size_t chromaBytesReadable(const uint8_t* cb, const uint8_t* cr, size_t chromaStride,
                           size_t chromaStep, size_t width, size_t height, const uint8_t* from) {
    if (from == nullptr) return 0;
    if (cb == nullptr || cr == nullptr) return SIZE_MAX;
    // The chroma plane as the lock describes it: ceil(height / 2) rows at the chroma stride, each
    // holding ceil(width / 2) samples of Cb and of Cr.
    size_t rows = (height + 1) / 2;
    size_t samples = (width + 1) / 2;
    if (rows == 0 || samples == 0) return 0;
    const uint8_t* end;
    if (chromaStep == 2 && (cb == cr + 1 || cr == cb + 1)) {
        end = std::min(cb, cr) + (rows - 1) * chromaStride + 2 * samples;
    } else {
        end = std::max(cb, cr) + (rows - 1) * chromaStride + (samples - 1) * chromaStep + 1;
    }
    return end > from ? static_cast<size_t>(end - from) : 0;
}

size_t chromaBytesReadableFromCr(const CpuConsumer::LockedBuffer& locked) {
    return chromaBytesReadable(locked.dataCb, locked.dataCr, locked.chromaStride, locked.chromaStep,
                               locked.width, locked.height, locked.dataCr);
}
