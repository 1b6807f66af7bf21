// The producer face of a buffer queue (see IGraphicBufferProducer.h).
#pragma once

#include <gui/BufferQueueCore.h>
#include <gui/IGraphicBufferProducer.h>

namespace android {

class BufferQueueProducer : public IGraphicBufferProducer {
public:
    explicit BufferQueueProducer(const sp<BufferQueueCore>& core);
    ~BufferQueueProducer() override;

    status_t requestBuffer(int slot, sp<GraphicBuffer>* buf) override;
    status_t setMaxDequeuedBufferCount(int maxDequeuedBuffers) override;
    status_t setAsyncMode(bool async) override;
    status_t dequeueBuffer(int* outSlot, sp<Fence>* outFence, uint32_t width, uint32_t height,
                           PixelFormat format, uint64_t usage, uint64_t* outBufferAge,
                           FrameEventHistoryDelta* outTimestamps) override;
    status_t queueBuffer(int slot, const QueueBufferInput& input,
                         QueueBufferOutput* output) override;
    status_t cancelBuffer(int slot, const sp<Fence>& fence) override;
    int query(int what, int* outValue) override;
    status_t connect(const sp<IProducerListener>& listener, int api, bool producerControlledByApp,
                     QueueBufferOutput* output) override;
    status_t disconnect(int api, DisconnectMode mode = DisconnectMode::Api) override;
    status_t allowAllocation(bool allow) override;
    status_t setGenerationNumber(uint32_t generationNumber) override;
    String8 getConsumerName() const override;
    status_t setDequeueTimeout(nsecs_t timeout) override;
    status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                 float outTransformMatrix[16]) override;
    status_t getUniqueId(uint64_t* outId) const override;
    status_t getConsumerUsage(uint64_t* outUsage) const override;

    // The texture transform of a buffer, as GLConsumer computes it: the crop, the transform
    // flags and the flip from the GL convention to the buffer's memory order, column-major.
    static void computeTransformMatrix(float outTransform[16], const sp<GraphicBuffer>& buf,
                                       const Rect& cropRect, uint32_t transform, bool filtering);

private:
    enum class FreeSlotCaller { Dequeue, Attach };

    // Returns the slot of the next free buffer if one is available or
    // BufferQueueCore::INVALID_BUFFER_SLOT otherwise
    int getFreeBufferLocked() const;

    // Returns the next free slot if one is available or BufferQueueCore::INVALID_BUFFER_SLOT
    // otherwise
    int getFreeSlotLocked() const;

    // waitForFreeSlotThenRelock finds the oldest slot in the FREE state. It may block if
    // there are no available slots and we are not in non-blocking mode (producer and consumer
    // controlled by the application). If it blocks, it will release mCore->mMutex while
    // blocked so that other operations on the BufferQueue may succeed.
    status_t waitForFreeSlotThenRelock(FreeSlotCaller caller, std::unique_lock<std::mutex>& lock,
                                       int* found) const;

    sp<BufferQueueCore> mCore;

    // This references mCore->mSlots. Lock mCore->mMutex while accessing.
    BufferQueueDefs::SlotsType& mSlots;

    // This is a cached copy of the name stored in the BufferQueueCore. It's updated during
    // connect and dequeueBuffer (which should catch most updates).
    String8 mConsumerName;

    uint32_t mStickyTransform;

    // This saves the fence from the last queueBuffer, such that the next queueBuffer call can
    // throttle buffer production without blocking the caller.
    sp<Fence> mLastQueueFence;

    // Take-a-ticket system for ensuring that onFrame* callbacks are called in the order that
    // frames are queued.
    std::mutex mCallbackMutex;
    int mNextCallbackTicket;     // Protected by mCore->mMutex
    int mCurrentCallbackTicket;  // Protected by mCallbackMutex
    std::condition_variable mCallbackCondition;

    // Sets how long dequeueBuffer or attachBuffer will block if a buffer or slot is not
    // available. Negative: forever.
    nsecs_t mDequeueTimeout;

    // The crop, transform and fence of the last queued buffer (getLastQueuedBuffer).
    Rect mLastQueuedCrop;
    uint32_t mLastQueuedTransform;
    sp<Fence> mLastQueueBufferFence;
};

}  // namespace android
