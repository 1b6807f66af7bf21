// GraphicBuffer over the host gralloc.

#include <ui/GraphicBuffer.h>

#include <hostcontrol/FaultInjection.h>
#include <log/log.h>
#include <ui/Fence.h>
#include <unistd.h>

#include <atomic>
#include <cinttypes>
#include <cstring>
#include <string>

#include "Gralloc.h"

#undef LOG_TAG
#define LOG_TAG "GraphicBuffer"

namespace android {
namespace {

uint64_t getUniqueId() {
    static std::atomic<uint32_t> nextId{0};
    uint64_t id = static_cast<uint64_t>(getpid()) << 32;
    id |= nextId++;
    return id;
}

constexpr uint64_t kCpuUsageMask = GRALLOC_USAGE_SW_READ_MASK | GRALLOC_USAGE_SW_WRITE_MASK;

// Whether a CPU lock of `lockUsage` is compatible with a buffer allocated with `allocUsage`:
// reading needs a CPU-read bit at allocation, writing a CPU-write bit, as gralloc 4 mappers
// check. A lock asking for no CPU access at all is refused too.
bool cpuUsageCompatible(uint64_t lockUsage, uint64_t allocUsage) {
    if ((lockUsage & kCpuUsageMask) == 0) return false;
    if ((lockUsage & GRALLOC_USAGE_SW_READ_MASK) != 0 &&
        (allocUsage & GRALLOC_USAGE_SW_READ_MASK) == 0) {
        return false;
    }
    return (lockUsage & GRALLOC_USAGE_SW_WRITE_MASK) == 0 ||
           (allocUsage & GRALLOC_USAGE_SW_WRITE_MASK) != 0;
}

// Gralloc4Mapper::unlock's line for a buffer that is not locked (IMapper's Error::BAD_BUFFER).
void logMapperUnlockFailure(const native_handle_t* handle) {
    constexpr int kErrorBadBuffer = 2;
    __android_log_print(ANDROID_LOG_ERROR, "Gralloc4", "unlock(%p) failed with %d", handle,
                        kErrorBadBuffer);
}

// Takes ownership of an acquire fence descriptor and waits for it (nothing for -1).
status_t waitAndCloseFence(int fenceFd, const char* caller) {
    if (fenceFd < 0) return NO_ERROR;
    sp<Fence> fence(new Fence(fenceFd));
    return fence->waitForever(caller);
}

void closeFence(int fenceFd) {
    if (fenceFd >= 0) close(fenceFd);
}

}  // namespace

sp<GraphicBuffer> GraphicBuffer::from(ANativeWindowBuffer* anwb) {
    return static_cast<GraphicBuffer*>(anwb);
}

GraphicBuffer* GraphicBuffer::fromAHardwareBuffer(AHardwareBuffer* buffer) {
    return reinterpret_cast<GraphicBuffer*>(buffer);
}

GraphicBuffer const* GraphicBuffer::fromAHardwareBuffer(AHardwareBuffer const* buffer) {
    return reinterpret_cast<GraphicBuffer const*>(buffer);
}

AHardwareBuffer* GraphicBuffer::toAHardwareBuffer() {
    return reinterpret_cast<AHardwareBuffer*>(this);
}

AHardwareBuffer const* GraphicBuffer::toAHardwareBuffer() const {
    return reinterpret_cast<AHardwareBuffer const*>(this);
}

GraphicBuffer::GraphicBuffer()
    : BASE(),
      mOwner(ownData),
      mInitCheck(NO_ERROR),
      mId(getUniqueId()),
      mGenerationNumber(0),
      mTransportNumFds(0),
      mTransportNumInts(0),
      mMapping(nullptr) {
    width = height = stride = format = usage_deprecated = 0;
    layerCount = 0;
    usage = 0;
    handle = nullptr;
}

GraphicBuffer::GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint32_t inLayerCount, uint64_t inUsage, std::string requestorName)
    : GraphicBuffer() {
    mInitCheck = initWithSize(inWidth, inHeight, inFormat, inLayerCount, inUsage,
                              std::move(requestorName));
}

GraphicBuffer::GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method,
                             uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint32_t inLayerCount, uint64_t inUsage, uint32_t inStride)
    : GraphicBuffer() {
    mInitCheck = initWithHandle(inHandle, method, inWidth, inHeight, inFormat, inLayerCount,
                                inUsage, inStride);
}

GraphicBuffer::~GraphicBuffer() {
    free_handle();
}

void GraphicBuffer::free_handle() {
    delete mMapping;
    mMapping = nullptr;
    if (handle != nullptr && (mOwner == ownHandle || mOwner == ownData)) {
        host::grallocFree(const_cast<native_handle_t*>(handle));
    }
    handle = nullptr;
}

status_t GraphicBuffer::initCheck() const {
    return mInitCheck;
}

status_t GraphicBuffer::reallocate(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                   uint32_t inLayerCount, uint64_t inUsage) {
    if (int32_t fault = host::checkpoint("buffer.reallocate")) return fault;
    if (mOwner != ownData) return INVALID_OPERATION;

    if (handle != nullptr && static_cast<int>(inWidth) == width &&
        static_cast<int>(inHeight) == height && inFormat == format && inLayerCount == layerCount &&
        inUsage == usage) {
        return NO_ERROR;
    }

    if (handle != nullptr) free_handle();
    return initWithSize(inWidth, inHeight, inFormat, inLayerCount, inUsage, "[Reallocation]");
}

bool GraphicBuffer::needsReallocation(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                      uint32_t inLayerCount, uint64_t inUsage) {
    if (static_cast<int>(inWidth) != width) return true;
    if (static_cast<int>(inHeight) != height) return true;
    if (inFormat != format) return true;
    if (inLayerCount != layerCount) return true;
    if ((usage & inUsage) != inUsage) return true;
    if ((usage & USAGE_PROTECTED) != (inUsage & USAGE_PROTECTED)) return true;
    return false;
}

status_t GraphicBuffer::initWithSize(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                     uint32_t inLayerCount, uint64_t inUsage,
                                     std::string requestorName) {
    // Allocation happens inside other calls (construction, reallocate, a queue's dequeue), so
    // its fault point is consulted without recording a call of its own.
    if (int32_t fault = host::takeFault("buffer.allocate")) return fault;

    native_handle_t* newHandle = nullptr;
    uint32_t outStride = 0;
    status_t err = host::grallocAllocate(inFormat, inWidth, inHeight, inLayerCount, inUsage,
                                         requestorName.c_str(), &newHandle, &outStride);
    if (err != NO_ERROR) return err;

    mMapping = host::GrallocMapping::map(newHandle);
    if (mMapping == nullptr) {
        host::grallocFree(newHandle);
        return NO_MEMORY;
    }
    handle = newHandle;
    mTransportNumFds = static_cast<size_t>(newHandle->numFds);
    mTransportNumInts = static_cast<size_t>(newHandle->numInts);
    width = static_cast<int>(inWidth);
    height = static_cast<int>(inHeight);
    format = inFormat;
    layerCount = inLayerCount;
    usage = inUsage;
    usage_deprecated = static_cast<int>(usage);
    stride = static_cast<int>(outStride);
    return NO_ERROR;
}

status_t GraphicBuffer::initWithHandle(const native_handle_t* inHandle, HandleWrapMethod method,
                                       uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                       uint32_t inLayerCount, uint64_t inUsage, uint32_t inStride) {
    width = static_cast<int>(inWidth);
    height = static_cast<int>(inHeight);
    stride = static_cast<int>(inStride);
    format = inFormat;
    usage = inUsage;
    usage_deprecated = static_cast<int>(inUsage);
    layerCount = inLayerCount;

    mOwner = (method == WRAP_HANDLE) ? ownNone : ownHandle;

    if (method == TAKE_UNREGISTERED_HANDLE || method == CLONE_HANDLE) {
        native_handle_t* importedHandle = nullptr;
        status_t err = host::grallocImport(inHandle, inWidth, inHeight, inLayerCount, inFormat,
                                           inUsage, inStride, &importedHandle);
        if (err != NO_ERROR) {
            initWithHandle(nullptr, WRAP_HANDLE, 0, 0, 0, 0, 0, 0);
            return err;
        }
        if (method == TAKE_UNREGISTERED_HANDLE) {
            native_handle_close(inHandle);
            native_handle_delete(const_cast<native_handle_t*>(inHandle));
        }
        inHandle = importedHandle;
    }

    handle = inHandle;
    if (inHandle != nullptr) {
        mTransportNumFds = static_cast<size_t>(inHandle->numFds);
        mTransportNumInts = static_cast<size_t>(inHandle->numInts);
        // A handle of another allocator stays usable as a handle; only CPU access needs the
        // host gralloc's layout.
        mMapping = host::GrallocMapping::map(inHandle);
    }
    return NO_ERROR;
}

ANativeWindowBuffer* GraphicBuffer::getNativeBuffer() const {
    return static_cast<ANativeWindowBuffer*>(const_cast<GraphicBuffer*>(this));
}

size_t GraphicBuffer::getFdCount() const {
    return static_cast<size_t>(handle ? mTransportNumFds : 0);
}

status_t GraphicBuffer::lockImpl(uint64_t inUsage, const Rect& rect, void** vaddr, int fenceFd,
                                 int32_t* outBytesPerPixel, int32_t* outBytesPerStride,
                                 const char* nullPoint) {
    if (rect.left < 0 || rect.right > width || rect.top < 0 || rect.bottom > height) {
        ALOGE("locking pixels (%d,%d,%d,%d) outside of buffer (w=%d, h=%d)", rect.left, rect.top,
              rect.right, rect.bottom, width, height);
        closeFence(fenceFd);
        return BAD_VALUE;
    }
    if (mMapping == nullptr || vaddr == nullptr) {
        ALOGE("lock: %s", mMapping == nullptr ? "no gralloc buffer" : "null address out");
        closeFence(fenceFd);
        return BAD_VALUE;
    }
    if (!cpuUsageCompatible(inUsage, usage)) {
        ALOGE("lock: usage %#" PRIx64 " is not compatible with the buffer's usage %#" PRIx64,
              inUsage, usage);
        closeFence(fenceFd);
        return BAD_VALUE;
    }
    status_t err = waitAndCloseFence(fenceFd, "GraphicBuffer::lock");
    if (err != NO_ERROR) return err;

    mMapping->lock();
    const host::GrallocLayout& layout = mMapping->layout();
    *vaddr = host::takeFault(nullPoint) != 0 ? nullptr : mMapping->base();
    if (outBytesPerPixel != nullptr) *outBytesPerPixel = layout.lockBytesPerPixel;
    if (outBytesPerStride != nullptr) *outBytesPerStride = layout.lockBytesPerStride;
    return NO_ERROR;
}

status_t GraphicBuffer::lockYCbCrImpl(uint64_t inUsage, const Rect& rect, android_ycbcr* ycbcr,
                                      int fenceFd, const char* nullPointPrefix) {
    if (rect.left < 0 || rect.right > width || rect.top < 0 || rect.bottom > height) {
        ALOGE("locking pixels (%d,%d,%d,%d) outside of buffer (w=%d, h=%d)", rect.left, rect.top,
              rect.right, rect.bottom, width, height);
        closeFence(fenceFd);
        return BAD_VALUE;
    }
    if (mMapping == nullptr || ycbcr == nullptr) {
        ALOGE("lockYCbCr: %s", mMapping == nullptr ? "no gralloc buffer" : "null ycbcr out");
        closeFence(fenceFd);
        return BAD_VALUE;
    }
    const host::GrallocLayout& layout = mMapping->layout();
    if (!cpuUsageCompatible(inUsage, usage)) {
        ALOGE("lockYCbCr: usage %#" PRIx64 " is not compatible with the buffer's usage %#" PRIx64,
              inUsage, usage);
        closeFence(fenceFd);
        return BAD_VALUE;
    }
    status_t err = waitAndCloseFence(fenceFd, "GraphicBuffer::lockYCbCr");
    if (err != NO_ERROR) return err;

    // As Gralloc4Mapper::lock with an android_ycbcr: the buffer is locked, then its plane
    // layouts' Y, Cb and Cr components are described.
    mMapping->lock();
    const std::string prefix(nullPointPrefix);
    memset(ycbcr, 0, sizeof(*ycbcr));
    uint8_t* base = mMapping->base();
    switch (host::grallocYCbCrLock(layout)) {
        case host::YCbCrLock::kRefused:
            mMapping->unlock();
            ALOGE("lockYCbCr: format %#x has no 8-bit Y, Cb and Cr samples",
                  static_cast<unsigned>(layout.format));
            return BAD_VALUE;
        case host::YCbCrLock::kNoPlanes:
            return NO_ERROR;
        case host::YCbCrLock::kLumaOnly:
            ycbcr->y = host::takeFault((prefix + ".nullY").c_str()) != 0 ? nullptr : base;
            ycbcr->ystride = layout.planes[0].strideBytes;
            return NO_ERROR;
        case host::YCbCrLock::kPlanes:
            break;
    }
    ycbcr->y = host::takeFault((prefix + ".nullY").c_str()) != 0 ? nullptr : base + layout.yOffset;
    ycbcr->cb =
            host::takeFault((prefix + ".nullCb").c_str()) != 0 ? nullptr : base + layout.cbOffset;
    ycbcr->cr =
            host::takeFault((prefix + ".nullCr").c_str()) != 0 ? nullptr : base + layout.crOffset;
    ycbcr->ystride = layout.yStride;
    ycbcr->cstride = layout.cStride;
    ycbcr->chroma_step = layout.chromaStep;
    return NO_ERROR;
}

status_t GraphicBuffer::lock(uint32_t inUsage, void** vaddr, int32_t* outBytesPerPixel,
                             int32_t* outBytesPerStride) {
    if (int32_t fault = host::checkpoint("buffer.lock")) return fault;
    return lockImpl(inUsage, getBounds(), vaddr, -1, outBytesPerPixel, outBytesPerStride,
                    "buffer.lock.nullAddress");
}

status_t GraphicBuffer::lock(uint32_t inUsage, const Rect& rect, void** vaddr,
                             int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    if (int32_t fault = host::checkpoint("buffer.lock")) return fault;
    return lockImpl(inUsage, rect, vaddr, -1, outBytesPerPixel, outBytesPerStride,
                    "buffer.lock.nullAddress");
}

status_t GraphicBuffer::lockYCbCr(uint32_t inUsage, android_ycbcr* ycbcr) {
    if (int32_t fault = host::checkpoint("buffer.lockYCbCr")) return fault;
    return lockYCbCrImpl(inUsage, getBounds(), ycbcr, -1, "buffer.lockYCbCr");
}

status_t GraphicBuffer::lockYCbCr(uint32_t inUsage, const Rect& rect, android_ycbcr* ycbcr) {
    if (int32_t fault = host::checkpoint("buffer.lockYCbCr")) return fault;
    return lockYCbCrImpl(inUsage, rect, ycbcr, -1, "buffer.lockYCbCr");
}

status_t GraphicBuffer::unlock() {
    if (int32_t fault = host::checkpoint("buffer.unlock")) return fault;
    // GraphicBufferMapper::unlockAsync only logs the mapper's error: unlocking a buffer that is
    // not locked succeeds.
    if (mMapping == nullptr || !mMapping->unlock()) logMapperUnlockFailure(handle);
    return NO_ERROR;
}

status_t GraphicBuffer::lockAsync(uint32_t inUsage, void** vaddr, int fenceFd,
                                  int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    if (int32_t fault = host::checkpoint("buffer.lockAsync")) {
        closeFence(fenceFd);
        return fault;
    }
    return lockImpl(inUsage, getBounds(), vaddr, fenceFd, outBytesPerPixel, outBytesPerStride,
                    "buffer.lockAsync.nullAddress");
}

status_t GraphicBuffer::lockAsync(uint32_t inUsage, const Rect& rect, void** vaddr, int fenceFd,
                                  int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    if (int32_t fault = host::checkpoint("buffer.lockAsync")) {
        closeFence(fenceFd);
        return fault;
    }
    return lockImpl(inUsage, rect, vaddr, fenceFd, outBytesPerPixel, outBytesPerStride,
                    "buffer.lockAsync.nullAddress");
}

status_t GraphicBuffer::lockAsync(uint64_t inProducerUsage, uint64_t inConsumerUsage,
                                  const Rect& rect, void** vaddr, int fenceFd,
                                  int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    if (int32_t fault = host::checkpoint("buffer.lockAsync")) {
        closeFence(fenceFd);
        return fault;
    }
    return lockImpl(inProducerUsage | inConsumerUsage, rect, vaddr, fenceFd, outBytesPerPixel,
                    outBytesPerStride, "buffer.lockAsync.nullAddress");
}

status_t GraphicBuffer::lockAsyncYCbCr(uint32_t inUsage, android_ycbcr* ycbcr, int fenceFd) {
    if (int32_t fault = host::checkpoint("buffer.lockAsyncYCbCr")) {
        closeFence(fenceFd);
        return fault;
    }
    return lockYCbCrImpl(inUsage, getBounds(), ycbcr, fenceFd, "buffer.lockAsyncYCbCr");
}

status_t GraphicBuffer::lockAsyncYCbCr(uint32_t inUsage, const Rect& rect, android_ycbcr* ycbcr,
                                       int fenceFd) {
    if (int32_t fault = host::checkpoint("buffer.lockAsyncYCbCr")) {
        closeFence(fenceFd);
        return fault;
    }
    return lockYCbCrImpl(inUsage, rect, ycbcr, fenceFd, "buffer.lockAsyncYCbCr");
}

status_t GraphicBuffer::unlockAsync(int* fenceFd) {
    if (int32_t fault = host::checkpoint("buffer.unlockAsync")) return fault;
    if (fenceFd == nullptr) return BAD_VALUE;
    if (mMapping == nullptr || !mMapping->unlock()) logMapperUnlockFailure(handle);
    // CPU access ends here; there is nothing to wait for.
    *fenceFd = -1;
    return NO_ERROR;
}

}  // namespace android
