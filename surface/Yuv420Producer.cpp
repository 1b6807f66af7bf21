// Writing a three-plane YUV 4:2:0 frame (a camera image, or an NV21 frame with padded rows in a
// Java buffer) into the next free buffer of a Surface.

#define ATRACE_TAG ATRACE_TAG_NEVER  // a scope that is never traced

#include <gui/BufferItem.h>
#include <gui/CpuConsumer.h>
#include <string.h>
#include <system/graphics.h>
#include <system/window.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/Trace.h>

#include <algorithm>

#include "ImageSupport.h"
#include "OperationSupport.h"
#include "SurfaceNativeUtilImpl.h"
#include "YuvPlaneWriter.h"

using android::BufferItem;
using android::CpuConsumer;
using android::GraphicBuffer;
using android::sp;

namespace {

constexpr const char* kName = "produceFrameWithYuv420";

// Dequeue, check, lock, copy, unlock, queue; every failure after the dequeue cancels the buffer.
int produceFrameWithYuv420(const sp<ANativeWindow>& anw, int pixelFmt, const Yuv420Source& src) {
    ATRACE_CALL();
    NLOGV("%s: buffer %dx%d (fmt=%x, stride=%d)", kName, src.width, src.height,
          static_cast<unsigned>(pixelFmt), src.stride);
    if (anw == nullptr) {
        NLOGE("%s: anw must not be nullptr", kName);
        return android::BAD_VALUE;
    }
    if (yuv420SourceRefused(kName, src)) return android::BAD_VALUE;

    ANativeWindow* window = anw.get();
    ANativeWindowBuffer* anb = nullptr;
    int err = native_window_dequeue_buffer_and_wait(window, &anb);
    if (err != 0) return err;
    auto cancel = [&](int status) {
        window->cancelBuffer(window, anb, -1);
        return status;
    };

    sp<GraphicBuffer> buf(GraphicBuffer::from(anb));
    if (buf->getWidth() != static_cast<uint32_t>(src.width) ||
        buf->getHeight() != static_cast<uint32_t>(src.height)) {
        NLOGE("%s: Received gralloc buffer with bad dimensions %ux%u, expecting dimensions %zu x "
              "%zu",
              kName, buf->getWidth(), buf->getHeight(), static_cast<size_t>(src.width),
              static_cast<size_t>(src.height));
        return cancel(android::BAD_VALUE);
    }

    int bufFmt = 0;
    err = window->query(window, NATIVE_WINDOW_FORMAT, &bufFmt);
    if (err != 0) {
        NLOGE("%s: Error while querying surface pixel format %s (%d).", kName, strerror(-err), err);
        return cancel(err);
    }
    NLOGV("%s: Pixel format chosen: %x", kName, static_cast<unsigned>(pixelFmt));
    NLOGV("%s: bufFmt : %x", kName, static_cast<unsigned>(bufFmt));
    NLOGV("%s: y = %p, cb = %p, cr = %p", kName, src.y, src.cb, src.cr);
    if (pixelFmt != HAL_PIXEL_FORMAT_YCbCr_420_888) {
        NLOGE("%s: Invalid pixel format in produceFrameWithYuv420: %x", kName,
              static_cast<unsigned>(pixelFmt));
        return cancel(android::BAD_VALUE);
    }

    const PlaneWriterTexts texts{kName, /*hardwareBufferTarget=*/false, window};
    err = writeYuv420Planes(buf, bufFmt, src, texts);
    if (err != 0) return cancel(err);

    NLOGV("%s: Unlock buffer from %p", kName, buf.get());
    err = buf->unlock();
    if (err != 0) return cancel(err);  // no line of its own
    NLOGV("%s: Queue buffer to %p", kName, window);
    err = window->queueBuffer(window, buf->getNativeBuffer(), -1);
    if (err != 0) {
        NLOGE("%s: Failed to queue buffer, error %s (%d).", kName, strerror(-err), err);
        return cancel(err);  // deliberately cancelled as well
    }
    return 0;
}

// A source buffer whose bytes the copy would leave: `offset` bytes in and `length` long.
bool outside(int64_t offset, int64_t length, int64_t capacity) {
    return offset < 0 || length > capacity - offset;
}

}  // namespace

int SurfaceNativeUtilImpl::nativeProduceFrameWithYuv420(JNIEnv* env, jobject surface,
                                                        jobject image) {
    static const char* const kOperation = "nativeProduceFrameWithYuv420";
    NLOGV("nativeProduceFrameWithYuv420");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kOperation);
    if (anw == nullptr) return android::BAD_VALUE;
    BufferItem* item = Image_getLockedBuffer(env, image);
    if (item == nullptr) {
        NLOGW("Image already released!!!");
        return 0;
    }
    CpuConsumer::LockedBuffer locked;
    lockImageFromBuffer(item, GRALLOC_USAGE_SW_READ_OFTEN, item->mFence->dup(), &locked);
    // The image is unlocked before its planes are copied: the mapping stays valid while the image
    // holds its buffer, and the lock is not kept across the producer's dequeue.
    unlockImageFromBuffer(item);
    Yuv420Source src{locked.data,
                     locked.dataCb,
                     locked.dataCr,
                     static_cast<int>(locked.width),
                     static_cast<int>(locked.height),
                     static_cast<int>(locked.stride),
                     chromaBytesReadableFromCr(locked)};
    int err = produceFrameWithYuv420(anw, locked.format, src);
    if (err != 0) {
        NLOGE("%s: Error while producing frame %s (%d).", kOperation, strerror(-err), err);
    }
    return err;
}

int SurfaceNativeUtilImpl::nativeProduceFrameWithNV21FromBuffer(JNIEnv* env, jobject surface,
                                                                jobject buffer, int width,
                                                                int height, int stride,
                                                                int heightSlice) {
    static const char* const kOperation = "nativeProduceFrameWithNV21FromBuffer";
    NLOGV("nativeProduceFrameWithNV21Buffer");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kOperation);
    if (anw == nullptr) return android::BAD_VALUE;
    auto* base = static_cast<uint8_t*>(env->GetDirectBufferAddress(buffer));
    if (base == nullptr) {
        jniThrowNullPointerException(env, "pixels");
        return 0;
    }
    // The chroma offset as a signed 32-bit product, as the Java side computes it.
    int32_t chromaOffset = static_cast<int32_t>(static_cast<uint32_t>(heightSlice) *
                                                static_cast<uint32_t>(stride));
    // Guard: the copy reads (height - 1) * stride + width luma bytes and, from the chroma offset,
    // the larger of the packed run and the padded rows. A Java buffer that ends before those
    // bytes (or a chroma offset outside it) is refused before the dequeue rather than read past.
    if (width >= 0 && height >= 0 && stride >= 0) {
        int64_t capacity = env->GetDirectBufferCapacity(buffer);
        int64_t w = width, h = height, pitch = stride;
        int64_t lumaBytes = h > 0 ? (h - 1) * pitch + w : 0;
        int64_t chromaRows = h / 2;
        int64_t chromaBytes =
                std::max(w * h / 2, chromaRows > 0 ? (chromaRows - 1) * pitch + w : int64_t{0});
        if (outside(0, lumaBytes, capacity) || outside(chromaOffset, chromaBytes, capacity)) {
            NLOGE("%s: PixelBuffer size %zu too small for given dimensions", kOperation,
                  static_cast<size_t>(capacity < 0 ? 0 : capacity));
            return android::BAD_VALUE;
        }
    }
    Yuv420Source src{base,    base + chromaOffset + 1, base + chromaOffset, width, height, stride,
                     SIZE_MAX};
    int err = produceFrameWithYuv420(anw, HAL_PIXEL_FORMAT_YCbCr_420_888, src);
    if (err != 0) {
        NLOGE("%s: Error while producing frame %s (%d).", kOperation, strerror(-err), err);
    }
    return err;
}
