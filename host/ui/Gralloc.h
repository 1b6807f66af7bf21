/*
 * The host gralloc: allocation of shared-memory buffers, their native handles, and the mapping
 * through which a GraphicBuffer is locked.
 *
 * A buffer is one memfd, sized and sealed at allocation. Its native_handle_t carries the memfd
 * and kHandleInts ints: a magic number, the description (format, width, height, layer count,
 * stride, usage), the size, the profile flags the layout was computed with, and the planes
 * (offset, stride in bytes, rows). Importing a handle recomputes the layout from the
 * description and refuses a handle whose planes disagree with it.
 */
#pragma once

#include <cutils/native_handle.h>
#include <ui/HostGrallocLayout.h>
#include <utils/Errors.h>

#include <mutex>

namespace host {

using android::status_t;

// Allocates a buffer laid out for the current device profile. On success *outHandle owns the
// new memfd; *outStride is the stride GraphicBuffer reports.
status_t grallocAllocate(int32_t format, uint32_t width, uint32_t height, uint32_t layerCount,
                         uint64_t usage, const char* requestorName, native_handle_t** outHandle,
                         uint32_t* outStride);

// Reads the layout recorded in a host gralloc handle; false for any other handle.
bool grallocHandleLayout(const native_handle_t* handle, GrallocLayout* out);

// Duplicates the handle's descriptors into a new handle after checking that it is a host
// gralloc handle of the given description (BAD_VALUE otherwise).
status_t grallocImport(const native_handle_t* handle, uint32_t width, uint32_t height,
                       uint32_t layerCount, int32_t format, uint64_t usage, uint32_t stride,
                       native_handle_t** outHandle);

// Closes and deletes a handle made by grallocAllocate or grallocImport.
void grallocFree(native_handle_t* handle);

// What a gralloc 4 mapper's lock with an android_ycbcr gives for a layout, from the format's
// plane layout components:
enum class YCbCrLock {
    kPlanes,    // 8-bit Y, Cb and Cr: all three described
    kLumaOnly,  // an 8-bit Y component alone (Y8): y and ystride, the rest null
    kNoPlanes,  // no Y, Cb or Cr component (RGB, RAW, BLOB): locked, everything null
    kRefused,   // components that are not 8-bit samples (P010, 16-bit, compressed): BAD_VALUE
                // after unlocking again
};
YCbCrLock grallocYCbCrLock(const GrallocLayout& layout);

// The CPU mapping of one buffer and its lock count. The mapping does not own the handle's
// descriptors: it maps the memfd (mmap keeps its own reference) and unmaps when destroyed.
class GrallocMapping {
public:
    // Maps the buffer of a host gralloc handle; null for any other handle or a failed mmap.
    static GrallocMapping* map(const native_handle_t* handle);
    ~GrallocMapping();

    GrallocMapping(const GrallocMapping&) = delete;
    GrallocMapping& operator=(const GrallocMapping&) = delete;

    const GrallocLayout& layout() const { return mLayout; }
    uint8_t* base() const { return mBase; }

    // Counts a lock; locks may nest.
    void lock();
    // Ends one lock; false when the buffer is not locked.
    bool unlock();
    int lockCount() const;

private:
    GrallocMapping(const GrallocLayout& layout, uint8_t* base, void* region, size_t regionSize)
        : mLayout(layout), mBase(base), mRegion(region), mRegionSize(regionSize) {}

    GrallocLayout mLayout;
    uint8_t* mBase;  // the buffer's first byte
    void* mRegion;   // the whole mapping, guard page included
    size_t mRegionSize;
    mutable std::mutex mMutex;
    int mLockCount = 0;
};

}  // namespace host
