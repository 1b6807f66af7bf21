/*
 * BufferQueue: creates a buffer queue and hands out its producer and consumer faces. The
 * producer is typically wrapped in an android::Surface, the consumer in a BufferItemConsumer
 * or CpuConsumer.
 */
#pragma once

#include <gui/BufferItem.h>
#include <gui/BufferQueueDefs.h>
#include <gui/IConsumerListener.h>
#include <gui/IGraphicBufferConsumer.h>
#include <gui/IGraphicBufferProducer.h>

namespace android {

class BufferQueue {
public:
    // BufferQueue will keep track of at most this value of buffers. Attempts at runtime to
    // increase the number of buffers past this will fail.
    enum { NUM_BUFFER_SLOTS = BufferQueueDefs::NUM_BUFFER_SLOTS };
    // Used as a placeholder slot# when the value isn't pointing to an existing buffer.
    enum { INVALID_BUFFER_SLOT = BufferItem::INVALID_BUFFER_SLOT };
    // Alias to -- IGraphicBufferConsumer::NO_BUFFER_AVAILABLE / PRESENT_LATER.
    enum {
        NO_BUFFER_AVAILABLE = IGraphicBufferConsumer::NO_BUFFER_AVAILABLE,
        PRESENT_LATER = IGraphicBufferConsumer::PRESENT_LATER,
    };

    // When in async mode we reserve two slots in order to guarantee that the producer and
    // consumer can run asynchronously.
    enum { MAX_MAX_ACQUIRED_BUFFERS = BufferQueueDefs::NUM_BUFFER_SLOTS - 2 };

    typedef ::android::ConsumerListener ConsumerListener;

    // ProxyConsumerListener is a ConsumerListener implementation that keeps a weak reference
    // to the actual consumer object. It forwards all calls to that consumer object so long as
    // it exists.
    //
    // This class exists to avoid having a circular reference between the BufferQueue object
    // and the consumer object. The reason this can't be a weak reference in the BufferQueue
    // class is because we're planning to expose the consumer side of a BufferQueue as a binder
    // interface, which doesn't support weak references.
    class ProxyConsumerListener : public BnConsumerListener {
    public:
        explicit ProxyConsumerListener(const wp<ConsumerListener>& consumerListener);
        ~ProxyConsumerListener() override;
        void onDisconnect() override;
        void onFrameAvailable(const BufferItem& item) override;
        void onFrameReplaced(const BufferItem& item) override;
        void onBuffersReleased() override;
        void onSidebandStreamChanged() override;
        void onFrameDequeued(const uint64_t bufferId) override;
        void onFrameCancelled(const uint64_t bufferId) override;
        void onFrameDetached(const uint64_t bufferID) override;

    private:
        // mConsumerListener is a weak reference to the IConsumerListener. This is the raison
        // d'etre of ProxyConsumerListener.
        wp<ConsumerListener> mConsumerListener;
    };

    // BufferQueue manages a pool of gralloc memory slots to be used by producers and
    // consumers.
    static void createBufferQueue(sp<IGraphicBufferProducer>* outProducer,
                                  sp<IGraphicBufferConsumer>* outConsumer,
                                  bool consumerIsSurfaceFlinger = false);

    BufferQueue() = delete;  // Create through createBufferQueue
};

}  // namespace android
