/*
 * android::GraphicBuffer: a gralloc buffer, reference counted, seen by C code as the
 * ANativeWindowBuffer it derives from. The host gralloc backs every buffer with shared memory
 * (a memfd) whose descriptor travels in the buffer's native handle together with ints that
 * describe its layout (see <ui/HostGrallocLayout.h>).
 *
 * CPU access follows a gralloc 4 mapper on a phone:
 *  - lock() maps any format and returns the buffer's base address (for YUV formats too); the
 *    rectangle must lie inside the buffer and only says which part will be touched.
 *  - lockYCbCr() describes 8-bit YUV formats only; any other format gives BAD_VALUE.
 *  - unlock() of a buffer that is not locked gives BAD_VALUE.
 *  - the usage of a lock must name CPU access (SW_READ / SW_WRITE bits) and nothing else.
 *  - lockAsync*() take ownership of the acquire fence descriptor: it is waited on and closed,
 *    on failure too. unlockAsync() returns -1: CPU access ends synchronously.
 *
 * Fault points (host::checkpoint):
 *   buffer.allocate         allocation fails with the armed status (in the constructor, then
 *                           initCheck() reports it; in reallocate; in a queue's dequeue). Not
 *                           a call of its own: consulted without being recorded.
 *   buffer.reallocate       reallocate() fails with the armed status before doing anything
 *   buffer.lock, buffer.lockYCbCr, buffer.lockAsync, buffer.lockAsyncYCbCr,
 *   buffer.unlock, buffer.unlockAsync
 *                           the call fails with the armed status
 *   buffer.lock.nullAddress, buffer.lockAsync.nullAddress
 *                           armed with any non-zero status: the lock succeeds (the buffer is
 *                           locked) but yields a null address
 *   buffer.lockYCbCr.nullY, buffer.lockYCbCr.nullCb, buffer.lockYCbCr.nullCr,
 *   buffer.lockAsyncYCbCr.nullY, .nullCb, .nullCr
 *                           likewise for one plane address of the YCbCr description
 * The null-address points are consulted only after the call's own point let it through.
 */
#pragma once

#include <android/hardware_buffer.h>
#include <hardware/gralloc.h>
#include <nativebase/nativebase.h>
#include <stdint.h>
#include <sys/types.h>
#include <system/graphics.h>
#include <ui/ANativeObjectBase.h>
#include <ui/PixelFormat.h>
#include <ui/Rect.h>
#include <utils/RefBase.h>

#include <string>

namespace host {
class GrallocMapping;
}

namespace android {

class GraphicBuffer : public ANativeObjectBase<ANativeWindowBuffer, GraphicBuffer, RefBase> {
public:
    enum {
        USAGE_SW_READ_NEVER = GRALLOC_USAGE_SW_READ_NEVER,
        USAGE_SW_READ_RARELY = GRALLOC_USAGE_SW_READ_RARELY,
        USAGE_SW_READ_OFTEN = GRALLOC_USAGE_SW_READ_OFTEN,
        USAGE_SW_READ_MASK = GRALLOC_USAGE_SW_READ_MASK,

        USAGE_SW_WRITE_NEVER = GRALLOC_USAGE_SW_WRITE_NEVER,
        USAGE_SW_WRITE_RARELY = GRALLOC_USAGE_SW_WRITE_RARELY,
        USAGE_SW_WRITE_OFTEN = GRALLOC_USAGE_SW_WRITE_OFTEN,
        USAGE_SW_WRITE_MASK = GRALLOC_USAGE_SW_WRITE_MASK,

        USAGE_SOFTWARE_MASK = USAGE_SW_READ_MASK | USAGE_SW_WRITE_MASK,

        USAGE_PROTECTED = GRALLOC_USAGE_PROTECTED,

        USAGE_HW_TEXTURE = GRALLOC_USAGE_HW_TEXTURE,
        USAGE_HW_RENDER = GRALLOC_USAGE_HW_RENDER,
        USAGE_HW_2D = GRALLOC_USAGE_HW_2D,
        USAGE_HW_COMPOSER = GRALLOC_USAGE_HW_COMPOSER,
        USAGE_HW_VIDEO_ENCODER = GRALLOC_USAGE_HW_VIDEO_ENCODER,
        USAGE_HW_MASK = GRALLOC_USAGE_HW_MASK,

        USAGE_CURSOR = GRALLOC_USAGE_CURSOR,
    };

    static sp<GraphicBuffer> from(ANativeWindowBuffer*);

    static GraphicBuffer* fromAHardwareBuffer(AHardwareBuffer*);
    static GraphicBuffer const* fromAHardwareBuffer(AHardwareBuffer const*);
    AHardwareBuffer* toAHardwareBuffer();
    AHardwareBuffer const* toAHardwareBuffer() const;

    // Create a GraphicBuffer to be reallocated.
    GraphicBuffer();

    // Create a GraphicBuffer by allocating and managing a buffer internally.
    GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat, uint32_t inLayerCount,
                  uint64_t inUsage, std::string requestorName = "<Unknown>");

    // Create a GraphicBuffer from an existing handle.
    enum HandleWrapMethod : uint8_t {
        // Wrap and use the handle directly. It assumes the handle has been registered and
        // should not be closed. The handle must have a longer lifetime than this wrapping
        // GraphicBuffer.
        WRAP_HANDLE,

        // Take ownership of the handle and use it directly. The handle is closed and deleted
        // when this GraphicBuffer goes away.
        TAKE_HANDLE,

        // Take ownership of an unregistered handle; on the host the same as TAKE_HANDLE.
        TAKE_UNREGISTERED_HANDLE,

        // Make a clone of the handle (its descriptors duplicated) and use the clone.
        CLONE_HANDLE,
    };
    GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method, uint32_t inWidth,
                  uint32_t inHeight, PixelFormat inFormat, uint32_t inLayerCount, uint64_t inUsage,
                  uint32_t inStride);

    // This constructor is deprecated because it only takes 32 bits of usage.
    GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method, uint32_t inWidth,
                  uint32_t inHeight, PixelFormat inFormat, uint32_t inLayerCount, uint32_t inUsage,
                  uint32_t inStride)
        : GraphicBuffer(inHandle, method, inWidth, inHeight, inFormat, inLayerCount,
                        static_cast<uint64_t>(inUsage), inStride) {}

    // return status
    status_t initCheck() const;

    uint32_t getWidth() const { return static_cast<uint32_t>(width); }
    uint32_t getHeight() const { return static_cast<uint32_t>(height); }
    uint32_t getStride() const { return static_cast<uint32_t>(stride); }
    uint64_t getUsage() const { return usage; }
    PixelFormat getPixelFormat() const { return format; }
    uint32_t getLayerCount() const { return static_cast<uint32_t>(layerCount); }
    Rect getBounds() const { return Rect(width, height); }
    uint64_t getId() const { return mId; }

    uint32_t getGenerationNumber() const { return mGenerationNumber; }
    void setGenerationNumber(uint32_t generation) { mGenerationNumber = generation; }

    // Frees the current buffer (if any) and allocates a new one of the given description.
    // NO_ERROR at once when the buffer already has exactly that description;
    // INVALID_OPERATION for a buffer that wraps a handle it does not own.
    status_t reallocate(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                        uint32_t inLayerCount, uint64_t inUsage);

    // Whether a buffer of the given description needs a new allocation rather than this one.
    bool needsReallocation(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                           uint32_t inLayerCount, uint64_t inUsage);

    // For the following two lock functions, if bytesPerStride or bytesPerPixel are unknown or
    // variable, -1 will be returned
    status_t lock(uint32_t inUsage, void** vaddr, int32_t* outBytesPerPixel = nullptr,
                  int32_t* outBytesPerStride = nullptr);
    status_t lock(uint32_t inUsage, const Rect& rect, void** vaddr,
                  int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);
    // For HAL_PIXEL_FORMAT_YCbCr_420_888 and the other 8-bit YUV formats
    status_t lockYCbCr(uint32_t inUsage, android_ycbcr* ycbcr);
    status_t lockYCbCr(uint32_t inUsage, const Rect& rect, android_ycbcr* ycbcr);
    status_t unlock();
    // For the following three lockAsync functions, if bytesPerStride or bytesPerPixel are
    // unknown or variable, -1 will be returned
    status_t lockAsync(uint32_t inUsage, void** vaddr, int fenceFd,
                       int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);
    status_t lockAsync(uint32_t inUsage, const Rect& rect, void** vaddr, int fenceFd,
                       int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);
    status_t lockAsync(uint64_t inProducerUsage, uint64_t inConsumerUsage, const Rect& rect,
                       void** vaddr, int fenceFd, int32_t* outBytesPerPixel = nullptr,
                       int32_t* outBytesPerStride = nullptr);
    status_t lockAsyncYCbCr(uint32_t inUsage, android_ycbcr* ycbcr, int fenceFd);
    status_t lockAsyncYCbCr(uint32_t inUsage, const Rect& rect, android_ycbcr* ycbcr, int fenceFd);
    status_t unlockAsync(int* fenceFd);

    ANativeWindowBuffer* getNativeBuffer() const;

    // Number of file descriptors in the buffer's handle (0 without a handle).
    size_t getFdCount() const;

    // Host: the shared-memory mapping behind this buffer (null without a handle).
    host::GrallocMapping* hostMapping() const { return mMapping; }

private:
    ~GraphicBuffer() override;

    enum {
        ownNone = 0,
        ownHandle = 1,
        ownData = 2,
    };

    GraphicBuffer(const GraphicBuffer&) = delete;
    GraphicBuffer& operator=(const GraphicBuffer&) = delete;

    status_t initWithSize(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                          uint32_t inLayerCount, uint64_t inUsage, std::string requestorName);

    status_t initWithHandle(const native_handle_t* inHandle, HandleWrapMethod method,
                            uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                            uint32_t inLayerCount, uint64_t inUsage, uint32_t inStride);

    void free_handle();

    status_t lockImpl(uint64_t inUsage, const Rect& rect, void** vaddr, int fenceFd,
                      int32_t* outBytesPerPixel, int32_t* outBytesPerStride, const char* nullPoint);
    status_t lockYCbCrImpl(uint64_t inUsage, const Rect& rect, android_ycbcr* ycbcr, int fenceFd,
                           const char* nullPointPrefix);

    uint8_t mOwner;
    status_t mInitCheck;
    uint64_t mId;
    uint32_t mGenerationNumber;
    size_t mTransportNumFds;
    size_t mTransportNumInts;
    host::GrallocMapping* mMapping;
};

}  // namespace android
