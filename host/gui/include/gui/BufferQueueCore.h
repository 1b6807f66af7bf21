/*
 * The state of one buffer queue, shared by its producer and consumer faces. All members are
 * guarded by mMutex.
 *
 * Slot sets (every slot index is in exactly one of them, or is DEQUEUED/QUEUED/ACQUIRED and
 * then in mActiveBuffers):
 *   mFreeSlots      FREE slots without a buffer, within the current maximum buffer count
 *   mFreeBuffers    FREE slots holding a buffer, least recently freed first
 *   mUnusedSlots    slots beyond the current maximum buffer count
 *   mActiveBuffers  slots that are DEQUEUED, QUEUED or ACQUIRED
 */
#pragma once

#include <gui/BufferItem.h>
#include <gui/BufferQueueDefs.h>
#include <gui/BufferSlot.h>
#include <gui/IConsumerListener.h>
#include <gui/IProducerListener.h>
#include <ui/PixelFormat.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

#include <condition_variable>
#include <list>
#include <mutex>
#include <set>
#include <vector>

namespace android {

class BufferQueueCore : public virtual RefBase {
    friend class BufferQueueProducer;
    friend class BufferQueueConsumer;

public:
    // Used as a placeholder slot number when the value isn't pointing to an existing buffer.
    enum { INVALID_BUFFER_SLOT = BufferItem::INVALID_BUFFER_SLOT };

    // We reserve two slots in order to guarantee that the producer and consumer can run
    // asynchronously.
    enum { MAX_MAX_ACQUIRED_BUFFERS = BufferQueueDefs::NUM_BUFFER_SLOTS - 2 };

    enum {
        // The API number used to indicate the currently connected producer
        CURRENTLY_CONNECTED_API = -1,

        // The API number used to indicate that no producer is connected
        NO_CONNECTED_API = 0,
    };

    typedef std::vector<BufferItem> Fifo;

    BufferQueueCore();
    ~BufferQueueCore() override;

private:
    // getMinUndequeuedBufferCountLocked returns the minimum number of buffers that must remain
    // in a state other than DEQUEUED. The async parameter tells whether we're in asynchronous
    // mode.
    int getMinUndequeuedBufferCountLocked() const;

    // getMinMaxBufferCountLocked returns the minimum number of buffers allowed given the
    // current BufferQueue state. The async parameter tells whether we're in asynchronous
    // mode.
    int getMinMaxBufferCountLocked() const;

    // getMaxBufferCountLocked returns the maximum number of buffers that can be allocated at
    // once. This value depends on the consumer's maxAcquired count, the producer's
    // maxDequeued count and whether dequeueBuffer may fail instead of blocking.
    int getMaxBufferCountLocked(bool asyncMode, bool dequeueBufferCannotBlock,
                                int maxBufferCount) const;
    int getMaxBufferCountLocked() const;

    // clearBufferSlotLocked frees the GraphicBuffer and sync resources for the given slot.
    void clearBufferSlotLocked(int slot);

    // freeAllBuffersLocked frees the GraphicBuffer and sync resources for all slots, even if
    // they're currently in the acquired state.
    void freeAllBuffersLocked();

    // discardFreeBuffersLocked releases all currently-free buffers held by the BufferQueue,
    // in order to reduce the memory consumption of the BufferQueue to the minimum possible
    // without discarding data.
    void discardFreeBuffersLocked();

    // If delta is positive, makes more slots available. If negative, takes away slots.
    // Returns false if the request can't be met.
    bool adjustAvailableSlotsLocked(int delta);

    // waitWhileAllocatingLocked blocks until mIsAllocating is false.
    void waitWhileAllocatingLocked(std::unique_lock<std::mutex>& lock) const;

    // Checks the invariants of the slot sets (debug builds log every violation).
    void validateConsistencyLocked() const;

    mutable std::mutex mMutex;

    // mIsAbandoned indicates that the BufferQueue will no longer be used to consume image
    // buffers pushed to it using the IGraphicBufferProducer interface. It is initialized to
    // false, and set to true in the consumerDisconnect method. A BufferQueue that is
    // abandoned will return the NO_INIT error from all IGraphicBufferProducer methods
    // capable of returning an error.
    bool mIsAbandoned;

    // mConsumerControlledByApp indicates whether the connected consumer is controlled by the
    // application.
    bool mConsumerControlledByApp;

    // mConsumerName is a string used to identify the BufferQueue in log messages.
    String8 mConsumerName;

    // mConsumerListener is used to notify the connected consumer of asynchronous events that
    // it may wish to react to. It is initially set to NULL and is written by consumerConnect
    // and consumerDisconnect.
    sp<IConsumerListener> mConsumerListener;

    // mConsumerUsageBits contains flags that the consumer wants for GraphicBuffers.
    uint64_t mConsumerUsageBits;

    // mConnectedApi indicates the producer API that is currently connected to this
    // BufferQueue. It defaults to NO_CONNECTED_API, and gets updated by the connect and
    // disconnect methods.
    int mConnectedApi;

    // mConnectedProducerListener is used to handle the onBufferReleased notification.
    sp<IProducerListener> mConnectedProducerListener;
    // mBufferReleasedCbEnabled is used to indicate whether onBufferReleased() callback is
    // registered by the connected producer.
    bool mBufferReleasedCbEnabled;

    // mSlots is an array of buffer slots that must be mirrored on the producer side. This
    // allows buffer ownership to be transferred between the producer and consumer without
    // sending a GraphicBuffer over Binder. The entire array is initialized to NULL at
    // construction time, and buffers are allocated for a slot when requestBuffer is called
    // with that slot's index.
    BufferQueueDefs::SlotsType mSlots;

    // mQueue is a FIFO of queued buffers used in synchronous mode.
    Fifo mQueue;

    // See the comment at the top of this file.
    std::set<int> mFreeSlots;
    std::list<int> mFreeBuffers;
    std::list<int> mUnusedSlots;
    std::set<int> mActiveBuffers;

    // mDequeueCondition is a condition variable used for dequeueBuffer in synchronous mode.
    mutable std::condition_variable mDequeueCondition;

    // mDequeueBufferCannotBlock indicates whether dequeueBuffer is allowed to block. This
    // flag is set during connect when both the producer and consumer are controlled by the
    // application.
    bool mDequeueBufferCannotBlock;

    // mQueueBufferCanDrop indicates whether queueBuffer is allowed to drop buffers in the
    // queue if the queue is full when new buffer is queued.
    bool mQueueBufferCanDrop;

    // mLegacyBufferDrop indicates whether mQueueBufferCanDrop is applied to consumers other
    // than SurfaceFlinger.
    bool mLegacyBufferDrop;

    // mDefaultBufferFormat can be set so it will override the buffer format when it isn't
    // given in dequeueBuffer.
    PixelFormat mDefaultBufferFormat;

    // mDefaultWidth holds the default width of allocated buffers. It is used in
    // dequeueBuffer if a width and height of 0 are given.
    uint32_t mDefaultWidth;

    // mDefaultHeight holds the default height of allocated buffers. It is used in
    // dequeueBuffer if a width and height of 0 are given.
    uint32_t mDefaultHeight;

    // mDefaultBufferDataSpace holds the default dataSpace of queued buffers. It is used in
    // queueBuffer if a dataspace of 0 (HAL_DATASPACE_UNKNOWN) is given.
    android_dataspace mDefaultBufferDataSpace;

    // mMaxBufferCount is the limit on the number of buffers that will be allocated at one
    // time. This limit can be set by the consumer.
    int mMaxBufferCount;

    // mMaxAcquiredBufferCount is the number of buffers that the consumer may acquire at one
    // time. It defaults to 1, and can be changed by the consumer via
    // setMaxAcquiredBufferCount, but this may only be done while no producer is connected to
    // the BufferQueue. This value is used to derive the value returned for the
    // MIN_UNDEQUEUED_BUFFERS query to the producer.
    int mMaxAcquiredBufferCount;

    // mMaxDequeuedBufferCount is the number of buffers that the producer may dequeue at one
    // time. It defaults to 1, and can be changed by the producer via
    // setMaxDequeuedBufferCount.
    int mMaxDequeuedBufferCount;

    // mBufferHasBeenQueued is true once a buffer has been queued. It is reset when something
    // causes all buffers to be freed (e.g., changing the buffer count).
    bool mBufferHasBeenQueued;

    // mFrameCounter is the free running counter, incremented on every successful queueBuffer
    // call and buffer allocation.
    uint64_t mFrameCounter;

    // mTransformHint is used to optimize for screen rotations.
    uint32_t mTransformHint;

    // mIsAllocating indicates whether a producer is currently trying to allocate buffers
    // (which releases mMutex while doing the allocation proper). Producers should not modify
    // any of the FREE slots while this is true. mIsAllocatingCondition is signaled when this
    // value changes to false.
    bool mIsAllocating;

    // mIsAllocatingCondition is a condition variable used by producers to wait until mIsAllocating
    // becomes false.
    mutable std::condition_variable mIsAllocatingCondition;

    // mAllowAllocation determines whether dequeueBuffer is allowed to allocate new buffers
    bool mAllowAllocation;

    // mBufferAge tracks the age of the contents of the most recently dequeued buffer as the
    // number of frames that have elapsed since it was last queued
    uint64_t mBufferAge;

    // mGenerationNumber stores the current generation number of the attached producer. Any
    // attempt to attach a buffer with a different generation number will fail.
    uint32_t mGenerationNumber;

    // mAsyncMode indicates whether or not async mode is enabled. In async mode an extra
    // buffer will be allocated to allow the producer to enqueue buffers without blocking.
    bool mAsyncMode;

    // mLastQueuedSlot is the slot of the most recently queued buffer, INVALID_BUFFER_SLOT
    // when there is none (or its buffer has been freed since).
    int mLastQueuedSlot;

    // mUniqueId is a unique id for this BufferQueue.
    const uint64_t mUniqueId;
};

}  // namespace android
