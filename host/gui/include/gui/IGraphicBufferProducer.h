/*
 * IGraphicBufferProducer: the producer face of a buffer queue, with Android's methods and
 * codes, called in-process (there is no binder on the host; the interface is a plain
 * reference-counted C++ interface).
 *
 * The producer connects with an API (NATIVE_WINDOW_API_*), dequeues a slot (allocating its
 * buffer when the slot has none or one of another description, which the result flag
 * BUFFER_NEEDS_REALLOCATION reports), fetches the slot's buffer with requestBuffer, fills it,
 * and queues or cancels it. Every call after the consumer abandoned the queue returns NO_INIT.
 */
#pragma once

#include <gui/BufferQueueDefs.h>
#include <gui/IProducerListener.h>
#include <stdint.h>
#include <sys/types.h>
#include <system/graphics.h>
#include <system/window.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <ui/PixelFormat.h>
#include <ui/Rect.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/Timers.h>

namespace android {

class FrameEventHistoryDelta;

class IGraphicBufferProducer : public virtual RefBase {
public:
    enum {
        // A flag returned by dequeueBuffer when the client needs to call requestBuffer
        // immediately thereafter.
        BUFFER_NEEDS_REALLOCATION = 0x1,
        // A flag returned by dequeueBuffer when all mirrored slots should be released by the
        // client. This flag should always be processed first.
        RELEASE_ALL_BUFFERS = 0x2,
    };

    enum {
        // A parcelable magic indicates using Stub API in earlier Android; unused here.
        USE_BUFFER_QUEUE = 0x62717565,
    };

    enum class DisconnectMode {
        // Disconnect only the given API.
        Api,
        // Disconnect any API originally connected from the process calling disconnect.
        AllLocal
    };

    // requestBuffer requests a new buffer for the given index. The server (i.e. the
    // IGraphicBufferProducer implementation) assigns the newly created buffer to the given
    // slot index, and the client is expected to mirror the slot->buffer mapping so that it's
    // not necessary to transfer a GraphicBuffer for every dequeue operation.
    //
    // The slot must be in the range of [0, NUM_BUFFER_SLOTS).
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - the buffer queue has been abandoned or the producer is not connected.
    // * BAD_VALUE - one of the two conditions occurred:
    //              * slot was out of range (see above)
    //              * buffer given by the slot is not dequeued
    virtual status_t requestBuffer(int slot, sp<GraphicBuffer>* buf) = 0;

    // setMaxDequeuedBufferCount sets the maximum number of buffers that can be dequeued by
    // the producer at one time. If this method succeeds, any new buffer slots will be both
    // unallocated and owned by the BufferQueue object (i.e. they are not owned by the
    // producer or consumer). Calling this may also cause some buffer slots to be emptied. If
    // the caller is caching the contents of the buffer slots, it should empty that cache
    // after calling this method.
    //
    // This function should not be called with a value of maxDequeuedBuffers that is less than
    // the number of currently dequeued buffer slots. Doing so will result in a BAD_VALUE
    // error.
    //
    // The buffer count should be at least 1 (inclusive), but at most
    // (NUM_BUFFER_SLOTS - the minimum undequeued buffer count) (exclusive). The minimum
    // undequeued buffer count can be obtained by calling
    // query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS).
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - the buffer queue has been abandoned.
    // * BAD_VALUE - one of the below conditions occurred:
    //     * bufferCount was out of range (see above).
    //     * client would have more than the requested number of dequeued buffers after this
    //       call.
    //     * this call would cause the maxBufferCount value to be exceeded.
    //     * failure to adjust the number of available slots.
    virtual status_t setMaxDequeuedBufferCount(int maxDequeuedBuffers) = 0;

    // Set the async flag if the producer intends to asynchronously queue buffers without
    // blocking. Typically this is used for triple-buffering and/or when the swap interval is
    // set to zero.
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - the buffer queue has been abandoned.
    // * BAD_VALUE - one of the following has occurred:
    //             * this call would cause the maxBufferCount value to be exceeded
    //             * failure to adjust the number of available slots.
    virtual status_t setAsyncMode(bool async) = 0;

    // dequeueBuffer requests a new buffer slot for the client to use. Ownership of the slot
    // is transfered to the client, meaning that the server will not use the contents of the
    // buffer associated with that slot.
    //
    // The slot index returned may or may not contain a buffer (client-side). If the slot is
    // empty the client should call requestBuffer to assign a buffer to that slot.
    //
    // The width and height parameters must be no greater than the minimum of
    // GL_MAX_VIEWPORT_DIMS and GL_MAX_TEXTURE_SIZE (see: glGetIntegerv). An error due to
    // invalid dimensions might not be reported until updateTexImage() is called. If width
    // and height are both zero, the default values given by setDefaultBufferSize() are
    // used instead.
    //
    // If the format is 0, the default format will be used.
    //
    // The usage argument specifies gralloc buffer usage flags. The values are enumerated in
    // <hardware/gralloc.h>, e.g. GRALLOC_USAGE_HW_RENDER. These will be merged with the
    // usage flags given by IGraphicBufferConsumer::setConsumerUsageBits.
    //
    // This call will block until a buffer is available to be dequeued. If both the producer
    // and consumer are controlled by the app, then this call can never block and will return
    // WOULD_BLOCK if no buffer is available.
    //
    // A non-negative value with flags set (see above) will be returned upon success.
    //
    // Return of a negative means an error has occurred:
    // * NO_INIT - the buffer queue has been abandoned or the producer is not connected.
    // * BAD_VALUE - both in async mode and buffer count was less than the max numbers of
    //               buffers that can be allocated at once.
    // * INVALID_OPERATION - cannot attach the buffer because it would cause too many buffers
    //                       to be dequeued, either because the producer already has a single
    //                       buffer dequeued and did not set a buffer count, or because a
    //                       buffer count was set and this call would cause it to be exceeded.
    // * WOULD_BLOCK - no buffer is currently available, and blocking is disabled since both
    //                 the producer/consumer are controlled by app
    // * NO_MEMORY - out of memory, cannot allocate the graphics buffer.
    // * TIMED_OUT - the timeout set by setDequeueTimeout was exceeded while waiting for a
    //               buffer to become available.
    //
    // All other negative values are an unknown error returned downstream from the graphics
    // allocator (typically errno).
    virtual status_t dequeueBuffer(int* slot, sp<Fence>* fence, uint32_t w, uint32_t h,
                                   PixelFormat format, uint64_t usage, uint64_t* outBufferAge,
                                   FrameEventHistoryDelta* outTimestamps) = 0;

    struct QueueBufferInput {
        // timestamp - a monotonically increasing value in nanoseconds
        // isAutoTimestamp - if the timestamp was synthesized at queue time
        // dataSpace - description of the contents, interpretation depends on format
        // crop - a crop rectangle that's used as a hint to the consumer
        // scalingMode - a set of flags from NATIVE_WINDOW_SCALING_* in <window.h>
        // transform - a set of flags from NATIVE_WINDOW_TRANSFORM_* in <window.h>
        // fence - a fence that the consumer must wait on before reading the buffer, set this
        //         to Fence::NO_FENCE if the buffer is ready immediately
        // sticky - the sticky transform set in Surface (only used by the LEGACY camera mode).
        // getFrameTimestamps - whether or not the latest frame timestamps should be retrieved
        //                      from the consumer.
        inline QueueBufferInput(int64_t _timestamp, bool _isAutoTimestamp,
                                android_dataspace _dataSpace, const Rect& _crop, int _scalingMode,
                                uint32_t _transform, const sp<Fence>& _fence, uint32_t _sticky = 0,
                                bool _getFrameTimestamps = false)
            : timestamp(_timestamp),
              isAutoTimestamp(_isAutoTimestamp),
              dataSpace(_dataSpace),
              crop(_crop),
              scalingMode(_scalingMode),
              transform(_transform),
              stickyTransform(_sticky),
              fence(_fence),
              getFrameTimestamps(_getFrameTimestamps) {}

        QueueBufferInput() = default;

        inline void deflate(int64_t* outTimestamp, bool* outIsAutoTimestamp,
                            android_dataspace* outDataSpace, Rect* outCrop, int* outScalingMode,
                            uint32_t* outTransform, sp<Fence>* outFence,
                            uint32_t* outStickyTransform = nullptr,
                            bool* outGetFrameTimestamps = nullptr) const {
            *outTimestamp = timestamp;
            *outIsAutoTimestamp = bool(isAutoTimestamp);
            *outDataSpace = dataSpace;
            *outCrop = crop;
            *outScalingMode = scalingMode;
            *outTransform = transform;
            *outFence = fence;
            if (outStickyTransform != nullptr) *outStickyTransform = stickyTransform;
            if (outGetFrameTimestamps) *outGetFrameTimestamps = getFrameTimestamps;
        }

        int64_t timestamp{0};
        int isAutoTimestamp{0};
        android_dataspace dataSpace{HAL_DATASPACE_UNKNOWN};
        Rect crop;
        int scalingMode{0};
        uint32_t transform{0};
        uint32_t stickyTransform{0};
        sp<Fence> fence;
        bool getFrameTimestamps{false};
    };

    struct QueueBufferOutput {
        QueueBufferOutput() = default;

        uint32_t width{0};
        uint32_t height{0};
        uint32_t transformHint{0};
        uint32_t numPendingBuffers{0};
        uint64_t nextFrameNumber{0};
        bool bufferReplaced{false};
        int maxBufferCount{BufferQueueDefs::NUM_BUFFER_SLOTS};
        status_t result{OK};
    };

    // queueBuffer indicates that the client has finished filling in the contents of the
    // buffer associated with slot and transfers ownership of that slot back to the server.
    //
    // It is not valid to call queueBuffer on a slot that is not owned by the client or one
    // for which a buffer associated via requestBuffer (an attempt to do so will fail with a
    // return value of BAD_VALUE).
    //
    // In addition, the input must be described by the client (as documented below). Any
    // other properties (zero point, etc) are client-dependent, and should be documented by
    // the client.
    //
    // The slot must be in the range of [0, NUM_BUFFER_SLOTS).
    //
    // Upon success, the output will be filled with meaningful values (refer to the
    // documentation below).
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - the buffer queue has been abandoned or the producer is not connected.
    // * BAD_VALUE - one of the below conditions occurred:
    //              * fence was NULL
    //              * scaling mode was unknown
    //              * both in async mode and buffer count was less than the max numbers of
    //                buffers that can be allocated at once
    //              * slot index was out of range (see above).
    //              * the slot was not in the dequeued state
    //              * the slot was enqueued without requesting a buffer
    //              * crop rect is out of bounds of the buffer dimensions
    virtual status_t queueBuffer(int slot, const QueueBufferInput& input,
                                 QueueBufferOutput* output) = 0;

    // cancelBuffer indicates that the client does not wish to fill in the buffer associated
    // with slot and transfers ownership of the slot back to the server.
    //
    // The buffer is not queued for use by the consumer.
    //
    // The slot must be in the range of [0, NUM_BUFFER_SLOTS).
    //
    // The buffer will not be overwritten until the fence signals. The fence will usually be
    // the one obtained from dequeueBuffer.
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - the buffer queue has been abandoned or the producer is not connected.
    // * BAD_VALUE - one of the below conditions occurred:
    //              * fence was NULL
    //              * slot index was out of range (see above).
    //              * the slot was not in the dequeued state
    virtual status_t cancelBuffer(int slot, const sp<Fence>& fence) = 0;

    // query retrieves some information for this surface 'what' tokens allowed are that of
    // NATIVE_WINDOW_* in <window.h>
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - the buffer queue has been abandoned.
    // * BAD_VALUE - what was out of range
    virtual int query(int what, int* value) = 0;

    // connect attempts to connect a client API to the IGraphicBufferProducer. This must be
    // called before any other IGraphicBufferProducer methods are called except for
    // getAllocator. A consumer must be already connected.
    //
    // This method will fail if the connect was previously called on the
    // IGraphicBufferProducer and no corresponding disconnect call was made.
    //
    // The listener is an optional binder callback object that can be used if the producer
    // wants to be notified when the consumer releases a buffer back to the BufferQueue. It is
    // also used to detect the death of the producer. If only the latter functionality is
    // desired, there is a StubProducerListener class in IProducerListener.h that can be
    // used.
    //
    // The api should be one of the NATIVE_WINDOW_API_* values in <window.h>
    //
    // The producerControlledByApp should be set to true if the producer is hosted by an
    // untrusted process (typically app_process-forked processes). If both the producer and
    // the consumer are app-controlled then all buffer queues will operate in async mode
    // regardless of the async flag.
    //
    // Upon success, the output will be filled with meaningful data (refer to QueueBufferOutput
    // documentation above).
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - one of the following occurred:
    //             * the buffer queue was abandoned
    //             * no consumer has yet connected
    // * BAD_VALUE - one of the following has occurred:
    //             * the producer is already connected
    //             * api was out of range (see above).
    //             * output was NULL.
    //             * Failure to adjust the number of available slots. This can happen because
    //               of trying to allocate/deallocate the async buffer in response to the value
    //               of producerControlledByApp.
    virtual status_t connect(const sp<IProducerListener>& listener, int api,
                             bool producerControlledByApp, QueueBufferOutput* output) = 0;

    // disconnect attempts to disconnect a client API from the IGraphicBufferProducer.
    // Calling this method will cause any subsequent calls to other IGraphicBufferProducer
    // methods to fail except for getAllocator and connect. Successfully calling connect after
    // this will allow the other methods to succeed again.
    //
    // The api should be one of the NATIVE_WINDOW_API_* values in <window.h>
    //
    // Alternatively if mode is AllLocal, then the API value is ignored, and any API connected
    // from the same PID calling disconnect will be disconnected.
    //
    // Disconnecting from an abandoned IGraphicBufferProducer is legal and is considered a
    // no-op.
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * NO_INIT - the producer is not connected
    // * BAD_VALUE - one of the following has occurred:
    //             * the api given does not match the one that was connected
    //             * api was out of range (see above).
    virtual status_t disconnect(int api, DisconnectMode mode = DisconnectMode::Api) = 0;

    // Allow/disallow the queue to allocate buffers in dequeueBuffer. When disallowed,
    // dequeueBuffer hands out only slots that already hold a matching buffer.
    virtual status_t allowAllocation(bool allow) = 0;

    // Sets the current generation number of the BufferQueue. Buffers allocated from now on
    // carry it.
    virtual status_t setGenerationNumber(uint32_t generationNumber) = 0;

    // Returns the name of the connected consumer.
    virtual String8 getConsumerName() const = 0;

    // Sets how long dequeueBuffer will wait for a buffer to become available before
    // returning an error (TIMED_OUT). A negative timeout waits forever. This also allows
    // dequeueBuffer to block when producer and consumer are both controlled by the app.
    //
    // Return of a value other than NO_ERROR means an error has occurred:
    // * BAD_VALUE - Failure to adjust the number of available slots.
    virtual status_t setDequeueTimeout(nsecs_t timeout) = 0;

    // Returns the last queued buffer along with a fence which must signal before the contents
    // of the buffer are read. If there are no buffers in the queue, outBuffer will be
    // populated with nullptr and outFence will be populated with Fence::NO_FENCE
    //
    // outTransformMatrix is not modified if outBuffer is null.
    //
    // Returns NO_ERROR or the status of the Binder transaction
    virtual status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                         float outTransformMatrix[16]) = 0;

    // Returns a unique id for this BufferQueue
    virtual status_t getUniqueId(uint64_t* outId) const = 0;

    // Returns the consumer usage flags for this BufferQueue. This returns the full 64-bit
    // usage flags, rather than the truncated 32-bit usage flags returned by querying the now
    // deprecated NATIVE_WINDOW_CONSUMER_USAGE_BITS attribute.
    virtual status_t getConsumerUsage(uint64_t* outUsage) const = 0;

protected:
    ~IGraphicBufferProducer() override = default;
};

}  // namespace android
