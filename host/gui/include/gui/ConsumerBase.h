/*
 * ConsumerBase: the common part of buffer queue consumers. It connects to the queue's consumer
 * face, mirrors the queue's slots (the queue hands a slot's buffer over only on its first
 * acquire), forwards frame-available notifications to a FrameAvailableListener, and abandons
 * the queue when the consumer goes away or abandon() is called.
 */
#pragma once

#include <gui/BufferItem.h>
#include <gui/BufferQueueDefs.h>
#include <gui/IConsumerListener.h>
#include <gui/IGraphicBufferConsumer.h>
#include <ui/PixelFormat.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

class ConsumerBase : public virtual RefBase, protected ConsumerListener {
public:
    struct FrameAvailableListener : public virtual RefBase {
        // See IConsumerListener::onFrame{Available,Replaced}
        virtual void onFrameAvailable(const BufferItem& item) = 0;
        virtual void onFrameReplaced(const BufferItem& /* item */) {}
        virtual void onFrameDequeued(const uint64_t) {}
        virtual void onFrameCancelled(const uint64_t) {}
        virtual void onFrameDetached(const uint64_t) {}
    };

    ~ConsumerBase() override;

    // abandon frees all the buffers and puts the ConsumerBase into the 'abandoned' state.
    // Once put in this state the ConsumerBase can never leave it. When in the 'abandoned'
    // state, all methods of the IGraphicBufferProducer interface will fail with the NO_INIT
    // error.
    //
    // Note that while calling this method causes all the buffers to be freed from the
    // perspective of the the ConsumerBase, if there are additional references on the
    // buffers (e.g. if a buffer is referenced by a client or by OpenGL ES as a texture) then
    // those buffer will remain allocated.
    void abandon();

    // Returns true if the ConsumerBase is in the 'abandoned' state
    bool isAbandoned();

    // set the name of the ConsumerBase that will be used to identify it in log messages.
    void setName(const String8& name);

    // setFrameAvailableListener sets the listener object that will be notified when a new
    // frame becomes available.
    void setFrameAvailableListener(const wp<FrameAvailableListener>& listener);

    // See IGraphicBufferConsumer::setDefaultBufferSize
    status_t setDefaultBufferSize(uint32_t width, uint32_t height);

    // See IGraphicBufferConsumer::setDefaultBufferFormat
    status_t setDefaultBufferFormat(PixelFormat defaultFormat);

    // See IGraphicBufferConsumer::setDefaultBufferDataSpace
    status_t setDefaultBufferDataSpace(android_dataspace defaultDataSpace);

    // See IGraphicBufferConsumer::setConsumerUsageBits
    status_t setConsumerUsageBits(uint64_t usage);

    // See IGraphicBufferConsumer::setTransformHint
    status_t setTransformHint(uint32_t hint);

    // See IGraphicBufferConsumer::setMaxAcquiredBufferCount
    status_t setMaxAcquiredBufferCount(int maxAcquiredBuffers);

    // See IGraphicBufferConsumer::discardFreeBuffers
    status_t discardFreeBuffers();

private:
    ConsumerBase(const ConsumerBase&) = delete;
    void operator=(const ConsumerBase&) = delete;

protected:
    // ConsumerBase constructs a new ConsumerBase object to consume image buffers from the
    // given IGraphicBufferConsumer. The controlledByApp flag indicates that this consumer is
    // under the application's control.
    explicit ConsumerBase(const sp<IGraphicBufferConsumer>& consumer, bool controlledByApp = false);

    // onLastStrongRef gets called by RefBase just before the dtor of the most derived class.
    // It is used to abandon the queue.
    void onLastStrongRef(const void* id) override;

    // Implementation of the IConsumerListener interface. These calls are used to notify the
    // ConsumerBase of asynchronous events in the BufferQueue. The onFrameAvailable,
    // onFrameReplaced, and onBuffersReleased methods should not need to be overridden by
    // derived classes, but if they are overridden the ConsumerBase implementation must be
    // called from the derived class.
    void onFrameAvailable(const BufferItem& item) override;
    void onFrameReplaced(const BufferItem& item) override;
    void onBuffersReleased() override;
    void onSidebandStreamChanged() override;

    // freeBufferLocked frees up the given buffer slot. If the slot has been initialized this
    // will release the reference to the GraphicBuffer in that slot. Otherwise it has no
    // effect.
    //
    // Derived classes should override this method to clean up any state they keep per slot.
    // If it is overridden, the derived class's implementation must call
    // ConsumerBase::freeBufferLocked.
    //
    // This method must be called with mMutex locked.
    virtual void freeBufferLocked(int slotIndex);

    // abandonLocked puts the BufferQueue into the abandoned state, causing all future
    // operations on it to fail. This method rather than the public abandon method should be
    // overridden by derived classes to add abandon-time behavior.
    //
    // Derived classes should override this method to clean up any object state they keep
    // (as opposed to per-slot state). If it is overridden, the derived class's implementation
    // must call ConsumerBase::abandonLocked.
    //
    // This method must be called with mMutex locked.
    virtual void abandonLocked();

    // acquireBufferLocked fetches the next buffer from the BufferQueue and updates the
    // buffer slot for the buffer returned.
    //
    // Derived classes should override this method to perform any initialization that must
    // take place the first time a buffer is assigned to a slot. If it is overridden the
    // derived class's implementation must call ConsumerBase::acquireBufferLocked.
    virtual status_t acquireBufferLocked(BufferItem* item, nsecs_t presentWhen,
                                         uint64_t maxFrameNumber = 0);

    // releaseBufferLocked relinquishes control over a buffer, returning that control to the
    // BufferQueue.
    //
    // Derived classes should override this method to perform any cleanup that must take
    // place when a buffer is released back to the BufferQueue. If it is overridden the
    // derived class's implementation must call ConsumerBase::releaseBufferLocked.
    virtual status_t releaseBufferLocked(int slot, const sp<GraphicBuffer> graphicBuffer);

    // returns true iff the slot still has the graphicBuffer in it.
    bool stillTracking(int slot, const sp<GraphicBuffer> graphicBuffer);

    // addReleaseFence* adds the sync points associated with a fence to the set of sync points
    // that must be reached before the buffer in the given slot may be used after the slot has
    // been released. This should be called by derived classes each time some asynchronous
    // work is kicked off that references the buffer.
    status_t addReleaseFence(int slot, const sp<GraphicBuffer> graphicBuffer,
                             const sp<Fence>& fence);
    status_t addReleaseFenceLocked(int slot, const sp<GraphicBuffer> graphicBuffer,
                                   const sp<Fence>& fence);

    // Slot contains the information and object references that ConsumerBase maintains about
    // a BufferQueue buffer slot.
    struct Slot {
        // mGraphicBuffer is the Gralloc buffer store in the slot or NULL if no Gralloc buffer
        // is in the slot.
        sp<GraphicBuffer> mGraphicBuffer;

        // mFence is a fence which will signal when the buffer associated with this buffer
        // slot is no longer being used by the consumer and can be overwritten. The buffer
        // can be dequeued before the fence signals; the producer is responsible for delaying
        // writes until it signals.
        sp<Fence> mFence;

        // the frame number of the last acquired frame for this slot
        uint64_t mFrameNumber;
    };

    // mSlots stores the buffers that have been allocated by the BufferQueue for each buffer
    // slot. It is initialized to null pointers, and gets filled in with the result of
    // BufferQueue::acquire when the client dequeues a buffer from a slot that has not yet
    // been used. The buffer allocated to a slot will also be replaced if the requested
    // buffer usage or geometry differs from that of the buffer allocated to a slot.
    Slot mSlots[BufferQueueDefs::NUM_BUFFER_SLOTS];

    // mAbandoned indicates that the BufferQueue will no longer be used to consume images
    // buffers pushed to it using the IGraphicBufferProducer interface. It is initialized to
    // false, and set to true in the abandon method. A BufferQueue that has been abandoned
    // will return the NO_INIT error from all IConsumerBase methods capable of returning an
    // error.
    bool mAbandoned;

    // mName is a string used to identify the ConsumerBase in log messages. It can be set by
    // the setName method.
    String8 mName;

    // mFrameAvailableListener is the listener object that will be called when a new frame
    // becomes available. If it is not NULL it will be called from queueBuffer. The
    // listener is protected by mFrameAvailableMutex, not mMutex.
    Mutex mFrameAvailableMutex;
    wp<FrameAvailableListener> mFrameAvailableListener;

    // The ConsumerBase has-a BufferQueue and is responsible for creating this object if none
    // is supplied
    sp<IGraphicBufferConsumer> mConsumer;

    // The final release fence of the most recent buffer released by releaseBufferLocked.
    sp<Fence> mPrevFinalReleaseFence;

    // mMutex is the mutex used to prevent concurrent access to the member variables of
    // ConsumerBase objects. It must be locked whenever the member variables are accessed or
    // when any of the *Locked methods are called.
    //
    // This mutex is intended to be locked by derived classes.
    mutable Mutex mMutex;
};

}  // namespace android
