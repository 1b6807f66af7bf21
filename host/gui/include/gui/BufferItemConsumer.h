/*
 * BufferItemConsumer: a consumer that hands out whole BufferItems (buffer, fence and what the
 * producer recorded with it). The ImageReader of the platform is built on it.
 */
#pragma once

#include <gui/BufferQueue.h>
#include <gui/ConsumerBase.h>

namespace android {

class BufferItemConsumer : public ConsumerBase {
public:
    typedef ConsumerBase::FrameAvailableListener FrameAvailableListener;

    struct BufferFreedListener : public virtual RefBase {
        virtual void onBufferFreed(const wp<GraphicBuffer>& graphicBuffer) = 0;
    };

    enum { DEFAULT_MAX_BUFFERS = -1 };
    enum { INVALID_BUFFER_SLOT = BufferQueue::INVALID_BUFFER_SLOT };
    enum { NO_BUFFER_AVAILABLE = BufferQueue::NO_BUFFER_AVAILABLE };

    // Create a new buffer item consumer. The consumerUsage parameter determines the consumer
    // usage flags passed to the graphics allocator. The bufferCount parameter specifies how
    // many buffers can be locked for user access at the same time (the consumer's maximum
    // acquired buffer count).
    // controlledByApp tells whether this consumer is controlled by the application.
    BufferItemConsumer(const sp<IGraphicBufferConsumer>& consumer, uint64_t consumerUsage,
                       int bufferCount = DEFAULT_MAX_BUFFERS, bool controlledByApp = false);

    ~BufferItemConsumer() override;

    // setBufferFreedListener sets a listener object that will be notified when an old buffer
    // is being freed.
    void setBufferFreedListener(const wp<BufferFreedListener>& listener);

    // Gets the next graphics buffer from the producer, filling out the passed-in BufferItem
    // structure. Returns NO_BUFFER_AVAILABLE if the queue is empty.
    //
    // If waitForFence is true, and the acquired BufferItem has a valid fence object,
    // acquireBuffer will wait on the fence with no timeout before returning.
    status_t acquireBuffer(BufferItem* item, nsecs_t presentWhen, bool waitForFence = true);

    // Returns an acquired buffer to the queue, allowing it to be reused. Since only a fixed
    // number of buffers may be acquired at a time, old buffers must be released by calling
    // releaseBuffer to ensure new buffers can be acquired by acquireBuffer. Once this method
    // is called, the caller must not access any of the buffers that were acquired with the
    // buffer item.
    status_t releaseBuffer(const BufferItem& item, const sp<Fence>& releaseFence = Fence::NO_FENCE);

private:
    void freeBufferLocked(int slotIndex) override;

    // mBufferFreedListener is the listener object that will be called when an old buffer is
    // being freed. If it is not NULL it will be called from freeBufferLocked.
    wp<BufferFreedListener> mBufferFreedListener;
};

}  // namespace android
