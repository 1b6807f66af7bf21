/*
 * BufferItem: one queued buffer and what the producer recorded with it, as the consumer
 * acquires it.
 */
#pragma once

#include <system/graphics.h>
#include <system/window.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <ui/Rect.h>
#include <utils/StrongPointer.h>

namespace android {

class BufferItem {
public:
    enum { INVALID_BUFFER_SLOT = -1 };

    BufferItem();
    ~BufferItem();
    BufferItem(const BufferItem&) = default;
    BufferItem& operator=(const BufferItem&) = default;

    static const char* scalingModeName(uint32_t scalingMode);

    // mGraphicBuffer points to the buffer allocated for this slot, or is NULL if the buffer in
    // this slot has been acquired in the past (see BufferSlot.mAcquireCalled).
    sp<GraphicBuffer> mGraphicBuffer;

    // mFence is a fence that will signal when the buffer is idle.
    sp<Fence> mFence;

    // mCrop is the current crop rectangle for this buffer slot.
    Rect mCrop;

    // mTransform is the current transform flags for this buffer slot. refer to
    // NATIVE_WINDOW_TRANSFORM_* in <window.h>
    uint32_t mTransform;

    // mScalingMode is the current scaling mode for this buffer slot. refer to
    // NATIVE_WINDOW_SCALING_* in <window.h>
    uint32_t mScalingMode;

    // mTimestamp is the current timestamp for this buffer slot. This gets set by
    // queueBuffer each time this slot is queued. This value is guaranteed to be monotonically
    // increasing for each newly acquired buffer.
    int64_t mTimestamp;

    // mIsAutoTimestamp indicates whether mTimestamp was generated automatically when the
    // buffer was queued.
    bool mIsAutoTimestamp;

    // mDataSpace is the current dataSpace value for this buffer slot. This gets set by
    // queueBuffer each time this slot is queued. The meaning of the dataSpace is
    // format-dependent.
    android_dataspace mDataSpace;

    // mFrameNumber is the number of the queued frame for this slot.
    uint64_t mFrameNumber;

    // mSlot is the slot index of this buffer (default INVALID_BUFFER_SLOT).
    int mSlot;

    // mIsDroppable whether this buffer was queued with the property that it can be replaced
    // by a new buffer for the purpose of making sure dequeueBuffer() won't block. i.e.: was
    // the BufferQueue in "mDequeueBufferCannotBlock" when this buffer was queued.
    bool mIsDroppable;

    // Indicates whether this buffer has been seen by a consumer yet
    bool mAcquireCalled;

    // Indicates this buffer must be transformed by the inverse transform of the screen it is
    // displayed onto. This is applied after mTransform.
    bool mTransformToDisplayInverse;

    // Indicates whether this BufferItem contains an auto-refreshing buffer
    bool mAutoRefresh;

    // Indicates whether this buffer was queued (false for a shared buffer that was not).
    bool mQueuedBuffer;

    // Indicates that this BufferItem contains a stale buffer which has already been released
    // by the BufferQueue.
    bool mIsStale;

    // Indicates the API (NATIVE_WINDOW_API_xxx) that queues the buffer.
    int mApi;
};

}  // namespace android
