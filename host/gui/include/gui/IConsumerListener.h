/*
 * The consumer's listener: the queue tells the consumer about new frames, replaced frames,
 * released buffers and disconnection. Calls are made without the queue's lock held, on the
 * producer's thread.
 */
#pragma once

#include <utils/RefBase.h>

namespace android {

class BufferItem;

class ConsumerListener : public virtual RefBase {
public:
    ConsumerListener() {}
    virtual ~ConsumerListener();

    // onDisconnect is called when a producer disconnects from the BufferQueue.
    virtual void onDisconnect() {}

    // onFrameAvailable is called from queueBuffer each time an additional frame becomes
    // available for consumption. This means that frames that are queued while in
    // asynchronous mode only trigger the callback if no previous frames are pending. Frames
    // queued while in synchronous mode always trigger the callback. The item passed to the
    // callback will contain all of the information about the queued frame except for its
    // GraphicBuffer pointer, which will always be null (except if the consumer is
    // SurfaceFlinger).
    virtual void onFrameAvailable(const BufferItem& item) = 0;

    // onFrameReplaced is called from queueBuffer if the frame being queued is replacing an
    // existing slot in the queue. Any call to queueBuffer that doesn't call onFrameAvailable
    // will call this callback instead. The item passed to the callback will contain all of the
    // information about the queued frame except for its GraphicBuffer pointer, which will
    // always be null.
    virtual void onFrameReplaced(const BufferItem& /* item */) {}

    // onBuffersReleased is called to notify the buffer consumer that the BufferQueue has
    // released its references to one or more GraphicBuffers contained in its slots. The
    // buffer consumer should then call BufferQueue::getReleasedBuffers to retrieve the list
    // of buffers.
    virtual void onBuffersReleased() = 0;

    // onSidebandStreamChanged is called to inform the buffer consumer that the BufferQueue's
    // sideband buffer stream has changed.
    virtual void onSidebandStreamChanged() = 0;

    // Notifies the consumer of a dequeue, cancel or detach of the frame with this number.
    virtual void onFrameDequeued(const uint64_t /* bufferId */) {}
    virtual void onFrameCancelled(const uint64_t /* bufferId */) {}
    virtual void onFrameDetached(const uint64_t /* bufferId */) {}
};

class IConsumerListener : public ConsumerListener {};

class BnConsumerListener : public IConsumerListener {};

}  // namespace android
