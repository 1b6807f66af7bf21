/*
 * IGraphicBufferConsumer: the consumer face of a buffer queue, with Android's methods and
 * codes, called in-process.
 */
#pragma once

#include <gui/BufferItem.h>
#include <gui/IConsumerListener.h>
#include <stdint.h>
#include <system/graphics.h>
#include <ui/Fence.h>
#include <ui/PixelFormat.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/Timers.h>

namespace android {

class IGraphicBufferConsumer : public virtual RefBase {
public:
    enum {
        // Returned by releaseBuffer, after which the consumer must free any references to the
        // just-released buffer that it might have.
        STALE_BUFFER_SLOT = 1,
        // Returned by dequeueBuffer if there are no pending buffers available.
        NO_BUFFER_AVAILABLE,
        // Returned by dequeueBuffer if it's too early for the buffer to be acquired.
        PRESENT_LATER,
    };

    // acquireBuffer attempts to acquire ownership of the next pending buffer in the
    // BufferQueue. If no buffer is pending then it returns NO_BUFFER_AVAILABLE. If a buffer
    // is successfully acquired, the information about the buffer is returned in BufferItem.
    //
    // If the buffer returned had previously been acquired then the BufferItem::mGraphicBuffer
    // field of buffer is set to NULL and it is assumed that the consumer still holds a
    // reference to the buffer.
    //
    // If presentWhen is non-zero, it indicates the time when the buffer will be displayed on
    // screen. If the buffer's timestamp is farther in the future, the buffer won't be
    // acquired, and PRESENT_LATER will be returned. The presentation time is in nanoseconds,
    // and the time base is CLOCK_MONOTONIC.
    //
    // If maxFrameNumber is non-zero, it indicates that acquireBuffer should only return a
    // buffer with a frame number less than or equal to maxFrameNumber. If no such frame is
    // available (such as when a buffer has been replaced but the consumer has not received
    // the onFrameReplaced callback), then PRESENT_LATER will be returned.
    //
    // Return of NO_ERROR means the operation completed as normal.
    //
    // Return of a positive value means the operation could not be completed successfully, but
    // no critical failure occurred (a NO_BUFFER_AVAILABLE or PRESENT_LATER).
    //
    // Return of a negative value means an error has occurred:
    // * INVALID_OPERATION - too many buffers have been acquired
    virtual status_t acquireBuffer(BufferItem* buffer, nsecs_t presentWhen,
                                   uint64_t maxFrameNumber = 0) = 0;

    // releaseBuffer releases a buffer slot from the consumer back to the BufferQueue. This
    // may be done while the buffer's contents are still being accessed. The fence will signal
    // when the buffer is no longer in use. frameNumber is used to identify the exact buffer
    // returned.
    //
    // Return of NO_ERROR means the operation completed as normal.
    //
    // Return of a positive value means the operation could not be completed successfully, but
    // no critical failure occurred (STALE_BUFFER_SLOT: the slot was reallocated or freed
    // since the buffer was acquired).
    //
    // Return of a negative value means an error has occurred:
    // * BAD_VALUE - one of the following could've happened:
    //               * the buffer slot was invalid
    //               * the fence was NULL
    //               * the buffer slot given is not in the acquired state
    virtual status_t releaseBuffer(int buf, uint64_t frameNumber,
                                   const sp<Fence>& releaseFence) = 0;

    // consumerConnect connects a consumer to the BufferQueue. Only one consumer may be
    // connected, and when that consumer disconnects the BufferQueue is placed into the
    // "abandoned" state, causing most interactions with the BufferQueue by the producer to
    // fail. controlledByApp indicates whether the consumer is controlled by the application.
    //
    // consumer may not be NULL.
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - the BufferQueue has been abandoned
    // * BAD_VALUE - a NULL consumer was provided
    virtual status_t consumerConnect(const sp<IConsumerListener>& consumer,
                                     bool controlledByApp) = 0;

    // consumerDisconnect disconnects a consumer from the BufferQueue. All buffers will be
    // freed and the BufferQueue is placed in the "abandoned" state, causing most interactions
    // with the BufferQueue by the producer to fail.
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * BAD_VALUE - no consumer is currently connected
    virtual status_t consumerDisconnect() = 0;

    // getReleasedBuffers sets the value pointed to by slotMask to a bit set. Each bit index
    // with a 1 corresponds to a released buffer slot with that index value. In particular, a
    // released buffer is one that has been released by the BufferQueue but has not yet been
    // released by the consumer.
    //
    // This should be called from the onBuffersReleased() callback.
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - the BufferQueue has been abandoned.
    virtual status_t getReleasedBuffers(uint64_t* slotMask) = 0;

    // setDefaultBufferSize is used to set the size of buffers returned by dequeueBuffer when a
    // width and height of zero is requested. Default is 1x1.
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * BAD_VALUE - either w or h was zero
    virtual status_t setDefaultBufferSize(uint32_t w, uint32_t h) = 0;

    // setMaxBufferCount sets the maximum value for the number of buffers used in the
    // BufferQueue (the initial default is NUM_BUFFER_SLOTS). If a call to setMaxAcquiredBufferCount
    // (by the consumer), or a call to setAsyncMode or setMaxDequeuedBufferCount (by the
    // producer), would cause this value to be exceeded then that call will fail. This call
    // will fail if a producer is connected to the BufferQueue.
    //
    // The count must be between 1 and NUM_BUFFER_SLOTS, inclusive. The count cannot be less
    // than maxAcquiredBufferCount.
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * BAD_VALUE - one of the below conditions occurred:
    //             * bufferCount was out of range (see above).
    //             * failure to adjust the number of available slots.
    // * INVALID_OPERATION - attempted to call this after a producer connected.
    virtual status_t setMaxBufferCount(int bufferCount) = 0;

    // setMaxAcquiredBufferCount sets the maximum number of buffers that can be acquired by
    // the consumer at one time (default 1). If this method succeeds, any new buffer slots
    // will be both unallocated and owned by the BufferQueue object (i.e. they are not owned
    // by the producer or consumer). Calling this may also cause some buffer slots to be
    // emptied.
    //
    // This function should not be called with a value of maxAcquiredBuffers that is less than
    // the number of currently acquired buffer slots. Doing so will result in a BAD_VALUE
    // error.
    //
    // maxAcquiredBuffers must be (inclusive) between 1 and MAX_MAX_ACQUIRED_BUFFERS. It also
    // cannot cause the maxBufferCount value to be exceeded.
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - the BufferQueue has been abandoned
    // * BAD_VALUE - one of the below conditions occurred:
    //             * maxAcquiredBuffers was out of range (see above).
    //             * failure to adjust the number of available slots.
    //             * client would have more than the requested number of acquired buffers
    //               after this call
    // * INVALID_OPERATION - attempted to call this after a producer connected.
    virtual status_t setMaxAcquiredBufferCount(int maxAcquiredBuffers) = 0;

    // setConsumerName sets the name used in logging
    virtual status_t setConsumerName(const String8& name) = 0;

    // setDefaultBufferFormat allows the BufferQueue to create GraphicBuffers of a defaultFormat
    // if no format is given in dequeueBuffer. The initial default is
    // PIXEL_FORMAT_RGBA_8888.
    virtual status_t setDefaultBufferFormat(PixelFormat defaultFormat) = 0;

    // setDefaultBufferDataSpace is a request to the producer to provide buffers of the
    // indicated dataSpace. The producer may ignore this request. The initial default is
    // HAL_DATASPACE_UNKNOWN.
    virtual status_t setDefaultBufferDataSpace(android_dataspace defaultDataSpace) = 0;

    // setConsumerUsageBits will turn on additional usage bits for dequeueBuffer. These are
    // merged with the bits passed to dequeueBuffer. The values are enumerated in gralloc.h,
    // e.g. GRALLOC_USAGE_HW_RENDER; the default is 0.
    virtual status_t setConsumerUsageBits(uint64_t usage) = 0;

    // setTransformHint bakes in rotation to buffers so overlays can be used. The values are
    // enumerated in window.h, e.g. NATIVE_WINDOW_TRANSFORM_ROT_90. The default is 0 (no
    // transform).
    virtual status_t setTransformHint(uint32_t hint) = 0;

    // discardFreeBuffers releases all currently-free buffers held by the queue, in order to
    // reduce the memory consumption of the queue.
    virtual status_t discardFreeBuffers() = 0;

protected:
    ~IGraphicBufferConsumer() override = default;
};

}  // namespace android
