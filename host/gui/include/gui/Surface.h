/*
 * android::Surface: the ANativeWindow that produces into a buffer queue. It mirrors the
 * queue's slots, keeps what the producer asked for (buffer size, format, usage, crop,
 * transform, scaling mode, timestamp, data space) and applies it to every buffer it dequeues
 * and records it with every buffer it queues.
 *
 * Window requests dispatch as Android's Surface does: query() answers a few properties itself
 * (FORMAT once one is set, CONCRETE_TYPE, DEFAULT_WIDTH/HEIGHT, TRANSFORM_HINT, ...) and asks
 * the queue for the rest; perform() with a code it does not handle returns NAME_NOT_FOUND.
 *
 * Fault points (host::checkpoint), each at the entry of the request, named by its constant:
 *   window.query.<NAME>        query(), e.g. window.query.WIDTH, window.query.FORMAT,
 *                              window.query.MIN_UNDEQUEUED_BUFFERS,
 *                              window.query.CONSUMER_USAGE_BITS,
 *                              window.query.DEFAULT_DATASPACE (unknown codes: window.query.<n>)
 *   window.perform.<NAME>      perform(), e.g. window.perform.SET_BUFFER_COUNT,
 *                              window.perform.SET_BUFFERS_FORMAT, window.perform.SET_USAGE64,
 *                              window.perform.GET_CONSUMER_USAGE64,
 *                              window.perform.API_CONNECT, window.perform.API_DISCONNECT
 *                              (unknown codes: window.perform.<n>)
 *   window.dequeueBuffer       dequeueBuffer (and the dequeue-and-wait entry)
 *   window.queueBuffer         queueBuffer (and its deprecated form)
 *   window.cancelBuffer        cancelBuffer (and its deprecated form)
 *   window.setSwapInterval
 *   surface.connect, surface.disconnect, surface.setDequeueTimeout,
 *   surface.getLastQueuedBuffer
 *                              the Surface methods of those names
 * A fault on a window entry returns the armed status without doing anything else; a fault on
 * queueBuffer/cancelBuffer closes the fence descriptor handed in, as the queue would.
 */
#pragma once

#include <gui/BufferQueueDefs.h>
#include <gui/IGraphicBufferProducer.h>
#include <gui/IProducerListener.h>
#include <system/window.h>
#include <ui/ANativeObjectBase.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <ui/Rect.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include <set>
#include <vector>

namespace android {

class Surface : public ANativeObjectBase<ANativeWindow, Surface, RefBase> {
public:
    // creates a Surface from the given IGraphicBufferProducer (which concrete implementation
    // is a BufferQueue).
    //
    // Surface is mainly state-less while it's disconnected, it can be viewed as a glorified
    // IGraphicBufferProducer holder. It's therefore safe to create other Surfaces from the
    // same IGraphicBufferProducer.
    //
    // However, once a Surface is connected, it'll prevent other Surfaces referring to the
    // same IGraphicBufferProducer to become connected and therefore prevent them to be used
    // as actual producers of buffers.
    //
    // the controlledByApp flag indicates that this Surface (producer) is controlled by the
    // application. This flag is used at connect time.
    explicit Surface(const sp<IGraphicBufferProducer>& bufferProducer,
                     bool controlledByApp = false);

    // getIGraphicBufferProducer returns the IGraphicBufferProducer which this Surface uses
    // to produce buffers.
    sp<IGraphicBufferProducer> getIGraphicBufferProducer() const;

    static bool isValid(const sp<Surface>& surface) {
        return surface != nullptr && surface->getIGraphicBufferProducer() != nullptr;
    }

    // See IGraphicBufferProducer::setDequeueTimeout
    status_t setDequeueTimeout(nsecs_t timeout);

    // See IGraphicBufferProducer::getLastQueuedBuffer
    status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                 float outTransformMatrix[16]);

    // See IGraphicBufferProducer::getConsumerUsage
    status_t getConsumerUsage(uint64_t* outUsage) const;

    // See IGraphicBufferProducer::getUniqueId
    status_t getUniqueId(uint64_t* outId) const;

    // See IGraphicBufferProducer::setGenerationNumber
    status_t setGenerationNumber(uint32_t generationNumber);

    // Returns the current frame number (the frame number of the next queued buffer).
    uint64_t getNextFrameNumber() const;

protected:
    ~Surface() override;

private:
    // can't be copied
    Surface& operator=(const Surface& rhs) = delete;
    Surface(const Surface& rhs) = delete;

    // ANativeWindow hooks
    static int hook_cancelBuffer(ANativeWindow* window, ANativeWindowBuffer* buffer, int fenceFd);
    static int hook_dequeueBuffer(ANativeWindow* window, ANativeWindowBuffer** buffer,
                                  int* fenceFd);
    static int hook_perform(ANativeWindow* window, int operation, ...);
    static int hook_query(const ANativeWindow* window, int what, int* value);
    static int hook_queueBuffer(ANativeWindow* window, ANativeWindowBuffer* buffer, int fenceFd);
    static int hook_setSwapInterval(ANativeWindow* window, int interval);

    static int hook_cancelBuffer_DEPRECATED(ANativeWindow* window, ANativeWindowBuffer* buffer);
    static int hook_dequeueBuffer_DEPRECATED(ANativeWindow* window, ANativeWindowBuffer** buffer);
    static int hook_lockBuffer_DEPRECATED(ANativeWindow* window, ANativeWindowBuffer* buffer);
    static int hook_queueBuffer_DEPRECATED(ANativeWindow* window, ANativeWindowBuffer* buffer);

    int dispatchConnect(va_list args);
    int dispatchDisconnect(va_list args);
    int dispatchSetBufferCount(va_list args);
    int dispatchSetBuffersGeometry(va_list args);
    int dispatchSetBuffersDimensions(va_list args);
    int dispatchSetBuffersUserDimensions(va_list args);
    int dispatchSetBuffersFormat(va_list args);
    int dispatchSetScalingMode(va_list args);
    int dispatchSetBuffersTransform(va_list args);
    int dispatchSetBuffersStickyTransform(va_list args);
    int dispatchSetBuffersTimestamp(va_list args);
    int dispatchSetCrop(va_list args);
    int dispatchSetUsage(va_list args);
    int dispatchSetUsage64(va_list args);
    int dispatchSetBuffersDataSpace(va_list args);
    int dispatchGetConsumerUsage64(va_list args);
    int dispatchSetDequeueTimeout(va_list args);

    // connect/disconnect without their fault points, for the window requests that lead to
    // them (API_CONNECT, API_DISCONNECT) and the destructor.
    int connectImpl(int api, const sp<IProducerListener>& listener, bool reportBufferRemoval);
    int disconnectImpl(int api, IGraphicBufferProducer::DisconnectMode mode);

protected:
    virtual int dequeueBuffer(ANativeWindowBuffer** buffer, int* fenceFd);
    virtual int cancelBuffer(ANativeWindowBuffer* buffer, int fenceFd);
    virtual int queueBuffer(ANativeWindowBuffer* buffer, int fenceFd);
    virtual int perform(int operation, va_list args);
    virtual int setSwapInterval(int interval);

    virtual int lockBuffer_DEPRECATED(ANativeWindowBuffer* buffer);

public:
    virtual int connect(int api);
    virtual int setBufferCount(int bufferCount);
    virtual int setBuffersUserDimensions(uint32_t width, uint32_t height);
    virtual int setBuffersFormat(PixelFormat format);
    virtual int setBuffersTransform(uint32_t transform);
    virtual int setBuffersStickyTransform(uint32_t transform);
    virtual int setBuffersTimestamp(int64_t timestamp);
    virtual int setBuffersDataSpace(android_dataspace dataSpace);
    virtual int setCrop(Rect const* rect);
    virtual int setUsage(uint64_t reqUsage);

    virtual int disconnect(int api, IGraphicBufferProducer::DisconnectMode mode =
                                            IGraphicBufferProducer::DisconnectMode::Api);

    virtual int setMaxDequeuedBufferCount(int maxDequeuedBuffers);
    virtual int setAsyncMode(bool async);
    virtual int setBuffersDimensions(uint32_t width, uint32_t height);
    virtual int setScalingMode(int mode);

    virtual int query(int what, int* value) const;

    virtual int connect(int api, const sp<IProducerListener>& listener);

    // When reportBufferRemoval is true, clients must call getAndFlushRemovedBuffers to fetch
    // GraphicBuffers removed from this surface after a dequeueBuffer, detachNextBuffer or
    // attachBuffer call. This allows clients with their own buffer caches to free up buffers
    // no longer in use by this surface.
    virtual int connect(int api, const sp<IProducerListener>& listener, bool reportBufferRemoval);

    // Returns the buffers this Surface dropped from its slots since the last call (only
    // tracked when connected with reportBufferRemoval).
    status_t getAndFlushRemovedBuffers(std::vector<sp<GraphicBuffer>>* out);

protected:
    enum { NUM_BUFFER_SLOTS = BufferQueueDefs::NUM_BUFFER_SLOTS };
    enum { DEFAULT_FORMAT = PIXEL_FORMAT_RGBA_8888 };

    void freeAllBuffers();
    int getSlotFromBufferLocked(ANativeWindowBuffer* buffer) const;
    void onBufferQueuedLocked(int slot, const IGraphicBufferProducer::QueueBufferOutput& output);

    struct BufferSlot {
        sp<GraphicBuffer> buffer;
    };

    // mSurfaceTexture is the interface to the surface texture server. All operations on the
    // surface texture client ultimately translate into interactions with the server using
    // this interface.
    sp<IGraphicBufferProducer> mGraphicBufferProducer;

    // mSlots stores the buffers that have been allocated for each buffer slot. It is
    // initialized to null pointers, and gets filled in with the result of
    // IGraphicBufferProducer::requestBuffer when the client dequeues a buffer from a slot that
    // has not yet been used. The buffer allocated to a slot will also be replaced if the
    // requested buffer usage or geometry differs from that of the buffer allocated to a slot.
    BufferSlot mSlots[NUM_BUFFER_SLOTS];

    // mReqWidth is the buffer width that will be requested at the next dequeue operation. It
    // is initialized to 1.
    uint32_t mReqWidth;

    // mReqHeight is the buffer height that will be requested at the next dequeue operation.
    // It is initialized to 1.
    uint32_t mReqHeight;

    // mReqFormat is the buffer pixel format that will be requested at the next dequeue
    // operation. It is initialized to PIXEL_FORMAT_RGBA_8888.
    PixelFormat mReqFormat;

    // mReqUsage is the set of buffer usage flags that will be requested at the next deuque
    // operation. It is initialized to 0.
    uint64_t mReqUsage;

    // mTimestamp is the timestamp that will be used for the next buffer queue operation. It
    // defaults to NATIVE_WINDOW_TIMESTAMP_AUTO, which means that a timestamp is auto-generated
    // when queueBuffer is called.
    int64_t mTimestamp;

    // mDataSpace is the buffer dataSpace that will be used for the next buffer queue
    // operation. It defaults to HAL_DATASPACE_UNKNOWN, which means that the buffer contains
    // some default (format-dependent) data space.
    android_dataspace mDataSpace;

    // mCrop is the crop rectangle that will be used for the next buffer that gets queued. It
    // is set by calling setCrop.
    Rect mCrop;

    // mScalingMode is the scaling mode that will be used for the next buffers that get
    // queued. It is set by calling setScalingMode.
    int mScalingMode;

    // mTransform is the transform identifier that will be used for the next buffer that gets
    // queued. It is set by calling setTransform.
    uint32_t mTransform;

    // mStickyTransform is a transform that is applied on top of mTransform in each buffer
    // that is queued. This is typically used to force the compositor to apply a transform,
    // and will prevent the transform hint from being set by the compositor.
    uint32_t mStickyTransform;

    // mDefaultWidth is default width of the buffers, regardless of the
    // native_window_set_buffers_dimensions call.
    uint32_t mDefaultWidth;

    // mDefaultHeight is default height of the buffers, regardless of the
    // native_window_set_buffers_dimensions call.
    uint32_t mDefaultHeight;

    // mUserWidth, if non-zero, is an application-given override of mDefaultWidth. This is
    // lower priority than the width set by native_window_set_buffers_dimensions.
    uint32_t mUserWidth;

    // mUserHeight, if non-zero, is an application-given override of mDefaultHeight. This
    // is lower priority than the height set by native_window_set_buffers_dimensions.
    uint32_t mUserHeight;

    // mTransformHint is the transform probably applied to buffers of this window. this is
    // only a hint, actual transform may differ.
    uint32_t mTransformHint;

    // mProducerControlledByApp whether this buffer producer is controlled by the application
    bool mProducerControlledByApp;

    // mSwapIntervalZero set if we should drop buffers at queue() time to achieve an
    // asynchronous swapInterval(0) behaviour.
    bool mSwapIntervalZero;

    // mConsumerRunningBehind whether the consumer is running more than one buffer behind the
    // producer.
    mutable bool mConsumerRunningBehind;

    // mMutex is the mutex used to prevent concurrent access to the member variables of
    // Surface objects. It must be locked whenever the member variables are accessed.
    mutable Mutex mMutex;

    // Buffer age of the most recently dequeued buffer.
    uint64_t mBufferAge;

    // The frame number of the next buffer to be queued.
    uint64_t mNextFrameNumber;

    // Durations of the last dequeue and queue, in nanoseconds.
    nsecs_t mLastDequeueDuration;
    nsecs_t mLastQueueDuration;
    nsecs_t mLastDequeueStartTime;

    // The maximum buffer count the queue reported at connect.
    int mMaxBufferCount;

    // Whether the Surface reports the buffers it drops (connect(..., reportBufferRemoval)).
    bool mReportRemovedBuffers;
    std::vector<sp<GraphicBuffer>> mRemovedBuffers;

    // The slots currently dequeued through this Surface.
    std::set<int> mDequeuedSlots;

    bool mConnectedToCpu;
};

}  // namespace android
