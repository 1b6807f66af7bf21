/*
 * One slot of a buffer queue: the buffer it holds and the state it is in.
 *
 *   FREE      owned by the queue; may be dequeued (with or without a buffer attached)
 *   DEQUEUED  owned by the producer, which may fill it, then queue or cancel it
 *   QUEUED    filled, waiting in the queue for the consumer
 *   ACQUIRED  owned by the consumer until it releases it
 */
#pragma once

#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

namespace android {

struct BufferState {
    enum State { FREE, DEQUEUED, QUEUED, ACQUIRED };

    State mState = FREE;

    bool isFree() const { return mState == FREE; }
    bool isDequeued() const { return mState == DEQUEUED; }
    bool isQueued() const { return mState == QUEUED; }
    bool isAcquired() const { return mState == ACQUIRED; }

    void reset() { mState = FREE; }
    void dequeue() { mState = DEQUEUED; }
    void queue() { mState = QUEUED; }
    void cancel() { mState = FREE; }
    void freeQueued() { mState = FREE; }
    void acquire() { mState = ACQUIRED; }
    void release() { mState = FREE; }

    const char* string() const;
};

struct BufferSlot {
    BufferSlot()
        : mGraphicBuffer(),
          mBufferState(),
          mRequestBufferCalled(false),
          mFrameNumber(0),
          mFence(Fence::NO_FENCE),
          mAcquireCalled(false),
          mNeedsReallocation(false) {}

    // mGraphicBuffer points to the buffer allocated for this slot or is NULL if no buffer has
    // been allocated.
    sp<GraphicBuffer> mGraphicBuffer;

    // mBufferState is the current state of this buffer slot.
    BufferState mBufferState;

    // mRequestBufferCalled is used for validating that the producer did call requestBuffer()
    // when told to do so. Technically this is not needed but useful for debugging and
    // catching producer bugs.
    bool mRequestBufferCalled;

    // mFrameNumber is the number of the queued frame for this slot. This is used to dequeue
    // buffers in LRU order and to tell stale releases apart.
    uint64_t mFrameNumber;

    // mFence is a fence which will signal when work initiated by the previous owner of the
    // buffer is finished. When the buffer is FREE, the fence indicates when the consumer has
    // finished reading from the buffer, or when the producer has finished writing if it
    // called cancelBuffer after queueing some writes. When the buffer is QUEUED, it indicates
    // when the producer has finished filling the buffer. When the buffer is DEQUEUED or
    // ACQUIRED, the fence has been passed to the consumer or producer along with ownership of
    // the buffer, and mFence is set to NO_FENCE.
    sp<Fence> mFence;

    // Indicates whether this buffer has been seen by a consumer yet
    bool mAcquireCalled;

    // Indicates whether the buffer was re-allocated without notifying the producer. If so, it
    // needs to set the BUFFER_NEEDS_REALLOCATION flag when dequeued to prevent the producer
    // from using a stale cached buffer.
    bool mNeedsReallocation;
};

}  // namespace android
