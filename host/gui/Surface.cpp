// android::Surface: the ANativeWindow that produces into a buffer queue.

#include <gui/Surface.h>

#include <hostcontrol/FaultInjection.h>
#include <inttypes.h>
#include <log/log.h>
#include <stdarg.h>
#include <string.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <limits>
#include <string>

#undef LOG_TAG
#define LOG_TAG "Surface"

namespace android {

namespace {

const char* queryName(int what) {
    switch (what) {
        case NATIVE_WINDOW_WIDTH:
            return "WIDTH";
        case NATIVE_WINDOW_HEIGHT:
            return "HEIGHT";
        case NATIVE_WINDOW_FORMAT:
            return "FORMAT";
        case NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS:
            return "MIN_UNDEQUEUED_BUFFERS";
        case NATIVE_WINDOW_QUEUES_TO_WINDOW_COMPOSER:
            return "QUEUES_TO_WINDOW_COMPOSER";
        case NATIVE_WINDOW_CONCRETE_TYPE:
            return "CONCRETE_TYPE";
        case NATIVE_WINDOW_DEFAULT_WIDTH:
            return "DEFAULT_WIDTH";
        case NATIVE_WINDOW_DEFAULT_HEIGHT:
            return "DEFAULT_HEIGHT";
        case NATIVE_WINDOW_TRANSFORM_HINT:
            return "TRANSFORM_HINT";
        case NATIVE_WINDOW_CONSUMER_RUNNING_BEHIND:
            return "CONSUMER_RUNNING_BEHIND";
        case NATIVE_WINDOW_CONSUMER_USAGE_BITS:
            return "CONSUMER_USAGE_BITS";
        case NATIVE_WINDOW_STICKY_TRANSFORM:
            return "STICKY_TRANSFORM";
        case NATIVE_WINDOW_DEFAULT_DATASPACE:
            return "DEFAULT_DATASPACE";
        case NATIVE_WINDOW_BUFFER_AGE:
            return "BUFFER_AGE";
        case NATIVE_WINDOW_LAST_DEQUEUE_DURATION:
            return "LAST_DEQUEUE_DURATION";
        case NATIVE_WINDOW_LAST_QUEUE_DURATION:
            return "LAST_QUEUE_DURATION";
        case NATIVE_WINDOW_LAYER_COUNT:
            return "LAYER_COUNT";
        case NATIVE_WINDOW_IS_VALID:
            return "IS_VALID";
        case NATIVE_WINDOW_FRAME_TIMESTAMPS_SUPPORTS_PRESENT:
            return "FRAME_TIMESTAMPS_SUPPORTS_PRESENT";
        case NATIVE_WINDOW_CONSUMER_IS_PROTECTED:
            return "CONSUMER_IS_PROTECTED";
        case NATIVE_WINDOW_DATASPACE:
            return "DATASPACE";
        case NATIVE_WINDOW_MAX_BUFFER_COUNT:
            return "MAX_BUFFER_COUNT";
    }
    return nullptr;
}

const char* performName(int operation) {
    static const char* const kNames[] = {
            "SET_USAGE",
            "CONNECT",
            "DISCONNECT",
            "SET_CROP",
            "SET_BUFFER_COUNT",
            "SET_BUFFERS_GEOMETRY",
            "SET_BUFFERS_TRANSFORM",
            "SET_BUFFERS_TIMESTAMP",
            "SET_BUFFERS_DIMENSIONS",
            "SET_BUFFERS_FORMAT",
            "SET_SCALING_MODE",
            "LOCK",
            "UNLOCK_AND_POST",
            "API_CONNECT",
            "API_DISCONNECT",
            "SET_BUFFERS_USER_DIMENSIONS",
            "SET_POST_TRANSFORM_CROP",
            "SET_BUFFERS_STICKY_TRANSFORM",
            "SET_SIDEBAND_STREAM",
            "SET_BUFFERS_DATASPACE",
            "SET_SURFACE_DAMAGE",
            "SET_SHARED_BUFFER_MODE",
            "SET_AUTO_REFRESH",
            "GET_REFRESH_CYCLE_DURATION",
            "GET_NEXT_FRAME_ID",
            "ENABLE_FRAME_TIMESTAMPS",
            "GET_COMPOSITOR_TIMING",
            "GET_FRAME_TIMESTAMPS",
            "GET_WIDE_COLOR_SUPPORT",
            "GET_HDR_SUPPORT",
            "SET_USAGE64",
            "GET_CONSUMER_USAGE64",
            "SET_BUFFERS_SMPTE2086_METADATA",
            "SET_BUFFERS_CTA861_3_METADATA",
            "SET_BUFFERS_HDR10_PLUS_METADATA",
            "SET_AUTO_PREROTATION",
            "GET_LAST_DEQUEUE_START",
            "SET_DEQUEUE_TIMEOUT",
            "GET_LAST_DEQUEUE_DURATION",
            "GET_LAST_QUEUE_DURATION",
            "SET_FRAME_RATE",
            "SET_CANCEL_INTERCEPTOR",
            "SET_DEQUEUE_INTERCEPTOR",
            "SET_PERFORM_INTERCEPTOR",
            "SET_QUEUE_INTERCEPTOR",
            "ALLOCATE_BUFFERS",
            "GET_LAST_QUEUED_BUFFER",
            "SET_QUERY_INTERCEPTOR",
            "SET_FRAME_TIMELINE_INFO",
            "GET_LAST_QUEUED_BUFFER2",
    };
    if (operation < 0 || operation >= static_cast<int>(sizeof(kNames) / sizeof(kNames[0]))) {
        return nullptr;
    }
    return kNames[operation];
}

// The fault point of a window request: "<prefix>.<constant name>" or "<prefix>.<number>".
std::string requestPoint(const char* prefix, const char* name, int code) {
    std::string point(prefix);
    point += '.';
    point += name != nullptr ? name : std::to_string(code);
    return point;
}

void closeFence(int fenceFd) {
    if (fenceFd >= 0) close(fenceFd);
}

// The listener of connect(api): one that wants no release notifications.
const sp<IProducerListener>& stubProducerListener() {
    static const sp<IProducerListener>* listener =
            new sp<IProducerListener>(new StubProducerListener());
    return *listener;
}

}  // namespace

Surface::Surface(const sp<IGraphicBufferProducer>& bufferProducer, bool controlledByApp)
    : mGraphicBufferProducer(bufferProducer) {
    // Initialize the ANativeWindow function pointers.
    ANativeWindow::setSwapInterval = hook_setSwapInterval;
    ANativeWindow::dequeueBuffer = hook_dequeueBuffer;
    ANativeWindow::cancelBuffer = hook_cancelBuffer;
    ANativeWindow::queueBuffer = hook_queueBuffer;
    ANativeWindow::query = hook_query;
    ANativeWindow::perform = hook_perform;

    ANativeWindow::dequeueBuffer_DEPRECATED = hook_dequeueBuffer_DEPRECATED;
    ANativeWindow::cancelBuffer_DEPRECATED = hook_cancelBuffer_DEPRECATED;
    ANativeWindow::lockBuffer_DEPRECATED = hook_lockBuffer_DEPRECATED;
    ANativeWindow::queueBuffer_DEPRECATED = hook_queueBuffer_DEPRECATED;

    const_cast<int&>(ANativeWindow::minSwapInterval) = 0;
    const_cast<int&>(ANativeWindow::maxSwapInterval) = 1;

    mReqWidth = 0;
    mReqHeight = 0;
    mReqFormat = 0;
    mReqUsage = 0;
    mTimestamp = NATIVE_WINDOW_TIMESTAMP_AUTO;
    mDataSpace = HAL_DATASPACE_UNKNOWN;
    mCrop.clear();
    mScalingMode = NATIVE_WINDOW_SCALING_MODE_FREEZE;
    mTransform = 0;
    mStickyTransform = 0;
    mDefaultWidth = 0;
    mDefaultHeight = 0;
    mUserWidth = 0;
    mUserHeight = 0;
    mTransformHint = 0;
    mConsumerRunningBehind = false;
    mConnectedToCpu = false;
    mProducerControlledByApp = controlledByApp;
    mSwapIntervalZero = false;
    mBufferAge = 0;
    mNextFrameNumber = 1;
    mLastDequeueDuration = 0;
    mLastQueueDuration = 0;
    mLastDequeueStartTime = 0;
    mMaxBufferCount = NUM_BUFFER_SLOTS;
    mReportRemovedBuffers = false;
}

Surface::~Surface() {
    if (mConnectedToCpu) {
        disconnectImpl(NATIVE_WINDOW_API_CPU, IGraphicBufferProducer::DisconnectMode::Api);
    }
}

sp<IGraphicBufferProducer> Surface::getIGraphicBufferProducer() const {
    return mGraphicBufferProducer;
}

status_t Surface::setGenerationNumber(uint32_t generation) {
    return mGraphicBufferProducer->setGenerationNumber(generation);
}

uint64_t Surface::getNextFrameNumber() const {
    Mutex::Autolock lock(mMutex);
    return mNextFrameNumber;
}

status_t Surface::setDequeueTimeout(nsecs_t timeout) {
    if (int32_t fault = host::checkpoint("surface.setDequeueTimeout")) return fault;
    return mGraphicBufferProducer->setDequeueTimeout(timeout);
}

status_t Surface::getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                      float outTransformMatrix[16]) {
    if (int32_t fault = host::checkpoint("surface.getLastQueuedBuffer")) return fault;
    return mGraphicBufferProducer->getLastQueuedBuffer(outBuffer, outFence, outTransformMatrix);
}

status_t Surface::getConsumerUsage(uint64_t* outUsage) const {
    Mutex::Autolock lock(mMutex);
    return mGraphicBufferProducer->getConsumerUsage(outUsage);
}

status_t Surface::getUniqueId(uint64_t* outId) const {
    Mutex::Autolock lock(mMutex);
    return mGraphicBufferProducer->getUniqueId(outId);
}

int Surface::hook_setSwapInterval(ANativeWindow* window, int interval) {
    if (int32_t fault = host::checkpoint("window.setSwapInterval")) return fault;
    Surface* c = getSelf(window);
    return c->setSwapInterval(interval);
}

int Surface::hook_dequeueBuffer(ANativeWindow* window, ANativeWindowBuffer** buffer, int* fenceFd) {
    if (int32_t fault = host::checkpoint("window.dequeueBuffer")) return fault;
    Surface* c = getSelf(window);
    return c->dequeueBuffer(buffer, fenceFd);
}

int Surface::hook_cancelBuffer(ANativeWindow* window, ANativeWindowBuffer* buffer, int fenceFd) {
    if (int32_t fault = host::checkpoint("window.cancelBuffer")) {
        closeFence(fenceFd);
        return fault;
    }
    Surface* c = getSelf(window);
    return c->cancelBuffer(buffer, fenceFd);
}

int Surface::hook_queueBuffer(ANativeWindow* window, ANativeWindowBuffer* buffer, int fenceFd) {
    if (int32_t fault = host::checkpoint("window.queueBuffer")) {
        closeFence(fenceFd);
        return fault;
    }
    Surface* c = getSelf(window);
    return c->queueBuffer(buffer, fenceFd);
}

int Surface::hook_dequeueBuffer_DEPRECATED(ANativeWindow* window, ANativeWindowBuffer** buffer) {
    if (int32_t fault = host::checkpoint("window.dequeueBuffer")) return fault;
    Surface* c = getSelf(window);
    ANativeWindowBuffer* buf;
    int fenceFd = -1;
    int result = c->dequeueBuffer(&buf, &fenceFd);
    if (result != OK) {
        return result;
    }
    sp<Fence> fence(new Fence(fenceFd));
    int waitResult = fence->waitForever("dequeueBuffer_DEPRECATED");
    if (waitResult != OK) {
        ALOGE("dequeueBuffer_DEPRECATED: Fence::wait returned an error: %d", waitResult);
        c->cancelBuffer(buf, -1);
        return waitResult;
    }
    *buffer = buf;
    return result;
}

int Surface::hook_cancelBuffer_DEPRECATED(ANativeWindow* window, ANativeWindowBuffer* buffer) {
    if (int32_t fault = host::checkpoint("window.cancelBuffer")) return fault;
    Surface* c = getSelf(window);
    return c->cancelBuffer(buffer, -1);
}

int Surface::hook_lockBuffer_DEPRECATED(ANativeWindow* window, ANativeWindowBuffer* buffer) {
    Surface* c = getSelf(window);
    return c->lockBuffer_DEPRECATED(buffer);
}

int Surface::hook_queueBuffer_DEPRECATED(ANativeWindow* window, ANativeWindowBuffer* buffer) {
    if (int32_t fault = host::checkpoint("window.queueBuffer")) return fault;
    Surface* c = getSelf(window);
    return c->queueBuffer(buffer, -1);
}

int Surface::hook_query(const ANativeWindow* window, int what, int* value) {
    const std::string point = requestPoint("window.query", queryName(what), what);
    if (int32_t fault = host::checkpoint(point.c_str())) return fault;
    const Surface* c = getSelf(window);
    return c->query(what, value);
}

int Surface::hook_perform(ANativeWindow* window, int operation, ...) {
    const std::string point = requestPoint("window.perform", performName(operation), operation);
    if (int32_t fault = host::checkpoint(point.c_str())) return fault;
    va_list args;
    va_start(args, operation);
    Surface* c = getSelf(window);
    int result = c->perform(operation, args);
    va_end(args);
    return result;
}

int Surface::setSwapInterval(int interval) {
    // EGL requires:
    //  interval is silently clamped to minimum and maximum implementation dependent values
    //  before being stored.
    if (interval < minSwapInterval) interval = minSwapInterval;
    if (interval > maxSwapInterval) interval = maxSwapInterval;

    const bool wasSwapIntervalZero = mSwapIntervalZero;
    mSwapIntervalZero = (interval == 0);

    if (mSwapIntervalZero != wasSwapIntervalZero) {
        mGraphicBufferProducer->setAsyncMode(mSwapIntervalZero);
    }

    return NO_ERROR;
}

int Surface::dequeueBuffer(ANativeWindowBuffer** buffer, int* fenceFd) {
    ALOGV("Surface::dequeueBuffer");

    uint32_t reqWidth;
    uint32_t reqHeight;
    PixelFormat reqFormat;
    uint64_t reqUsage;

    {
        Mutex::Autolock lock(mMutex);
        if (mReportRemovedBuffers) {
            mRemovedBuffers.clear();
        }

        reqWidth = mReqWidth ? mReqWidth : mUserWidth;
        reqHeight = mReqHeight ? mReqHeight : mUserHeight;

        reqFormat = mReqFormat;
        reqUsage = mReqUsage;
    }  // Drop the lock so that we can still touch the Surface while blocking in IGBP::dequeueBuffer

    int buf = -1;
    sp<Fence> fence;
    nsecs_t startTime = systemTime();

    status_t result = mGraphicBufferProducer->dequeueBuffer(
            &buf, &fence, reqWidth, reqHeight, reqFormat, reqUsage, &mBufferAge, nullptr);
    mLastDequeueDuration = systemTime() - startTime;

    if (result < 0) {
        ALOGV("dequeueBuffer: IGraphicBufferProducer::dequeueBuffer(%d, %d, %d, %#" PRIx64
              ") failed: %d",
              reqWidth, reqHeight, reqFormat, reqUsage, result);
        return result;
    }

    if (buf < 0 || buf >= NUM_BUFFER_SLOTS) {
        ALOGE("dequeueBuffer: IGraphicBufferProducer returned invalid slot number %d", buf);
        return FAILED_TRANSACTION;
    }

    Mutex::Autolock lock(mMutex);

    // Write this while holding the mutex
    mLastDequeueStartTime = startTime;

    sp<GraphicBuffer>& gbuf(mSlots[buf].buffer);

    // this should never happen
    ALOGE_IF(fence == nullptr, "Surface::dequeueBuffer: received null Fence! buf=%d", buf);

    if (result & IGraphicBufferProducer::RELEASE_ALL_BUFFERS) {
        if (mReportRemovedBuffers && (gbuf != nullptr)) {
            mRemovedBuffers.push_back(gbuf);
        }
        freeAllBuffers();
    }

    if ((result & IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION) || gbuf == nullptr) {
        if (mReportRemovedBuffers && (gbuf != nullptr)) {
            mRemovedBuffers.push_back(gbuf);
        }
        result = mGraphicBufferProducer->requestBuffer(buf, &gbuf);
        if (result != NO_ERROR) {
            ALOGE("dequeueBuffer: IGraphicBufferProducer::requestBuffer failed: %d", result);
            mGraphicBufferProducer->cancelBuffer(buf, fence);
            return result;
        }
    }

    if (fence != nullptr && fence->isValid()) {
        *fenceFd = fence->dup();
        if (*fenceFd == -1) {
            ALOGE("dequeueBuffer: error duping fence: %d", errno);
            // dup() should never fail; something is badly wrong. Soldier on and hope for the
            // best; the worst that should happen is some visible corruption that lasts until
            // the next frame.
        }
    } else {
        *fenceFd = -1;
    }

    *buffer = gbuf.get();
    mDequeuedSlots.insert(buf);

    return OK;
}

int Surface::cancelBuffer(ANativeWindowBuffer* buffer, int fenceFd) {
    ALOGV("Surface::cancelBuffer");
    Mutex::Autolock lock(mMutex);
    int i = getSlotFromBufferLocked(buffer);
    if (i < 0) {
        closeFence(fenceFd);
        return i;
    }
    sp<Fence> fence(fenceFd >= 0 ? new Fence(fenceFd) : Fence::NO_FENCE);
    mGraphicBufferProducer->cancelBuffer(i, fence);

    mDequeuedSlots.erase(i);
    return OK;
}

int Surface::getSlotFromBufferLocked(ANativeWindowBuffer* buffer) const {
    if (buffer == nullptr) {
        ALOGE("%s: input buffer is null!", __FUNCTION__);
        return BAD_VALUE;
    }

    for (int i = 0; i < NUM_BUFFER_SLOTS; i++) {
        if (mSlots[i].buffer != nullptr && mSlots[i].buffer->handle == buffer->handle) {
            return i;
        }
    }
    ALOGE("%s: unknown buffer: %p", __FUNCTION__, buffer->handle);
    return BAD_VALUE;
}

int Surface::lockBuffer_DEPRECATED(ANativeWindowBuffer* /*buffer*/) {
    ALOGV("Surface::lockBuffer");
    Mutex::Autolock lock(mMutex);
    return OK;
}

int Surface::queueBuffer(ANativeWindowBuffer* buffer, int fenceFd) {
    ALOGV("Surface::queueBuffer");
    Mutex::Autolock lock(mMutex);
    int64_t timestamp;
    bool isAutoTimestamp = false;

    if (mTimestamp == NATIVE_WINDOW_TIMESTAMP_AUTO) {
        timestamp = systemTime(SYSTEM_TIME_MONOTONIC);
        isAutoTimestamp = true;
        ALOGV("Surface::queueBuffer making up timestamp: %.2f ms", timestamp / 1000000.0);
    } else {
        timestamp = mTimestamp;
    }
    int i = getSlotFromBufferLocked(buffer);
    if (i < 0) {
        closeFence(fenceFd);
        return i;
    }

    // Make sure the crop rectangle is entirely inside the buffer.
    Rect crop(Rect::EMPTY_RECT);
    mCrop.intersect(Rect(buffer->width, buffer->height), &crop);

    sp<Fence> fence(fenceFd >= 0 ? new Fence(fenceFd) : Fence::NO_FENCE);
    IGraphicBufferProducer::QueueBufferOutput output;
    IGraphicBufferProducer::QueueBufferInput input(timestamp, isAutoTimestamp, mDataSpace, crop,
                                                   mScalingMode, mTransform ^ mStickyTransform,
                                                   fence, mStickyTransform, false);

    nsecs_t now = systemTime();
    status_t err = mGraphicBufferProducer->queueBuffer(i, input, &output);
    mLastQueueDuration = systemTime() - now;
    if (err != OK) {
        ALOGE("queueBuffer: error queuing buffer to SurfaceTexture, %d", err);
    }

    mDequeuedSlots.erase(i);

    onBufferQueuedLocked(i, output);
    return err;
}

void Surface::onBufferQueuedLocked(int /*slot*/,
                                   const IGraphicBufferProducer::QueueBufferOutput& output) {
    mDefaultWidth = output.width;
    mDefaultHeight = output.height;
    mNextFrameNumber = output.nextFrameNumber;

    // Ignore transform hint if sticky transform is set or transform to display inverse flag is
    // set.
    if (mStickyTransform == 0 && !(mTransform & NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY)) {
        mTransformHint = output.transformHint;
    }

    mConsumerRunningBehind = (output.numPendingBuffers >= 2);
}

int Surface::query(int what, int* value) const {
    ALOGV("Surface::query");
    {  // scope for the lock
        Mutex::Autolock lock(mMutex);
        switch (what) {
            case NATIVE_WINDOW_FORMAT:
                if (mReqFormat) {
                    *value = static_cast<int>(mReqFormat);
                    return NO_ERROR;
                }
                break;
            case NATIVE_WINDOW_QUEUES_TO_WINDOW_COMPOSER:
                // No composer on the host: buffers go to the consumer that created the queue.
                *value = 0;
                return NO_ERROR;
            case NATIVE_WINDOW_CONCRETE_TYPE:
                *value = NATIVE_WINDOW_SURFACE;
                return NO_ERROR;
            case NATIVE_WINDOW_DEFAULT_WIDTH:
                *value = static_cast<int>(mUserWidth ? mUserWidth : mDefaultWidth);
                return NO_ERROR;
            case NATIVE_WINDOW_DEFAULT_HEIGHT:
                *value = static_cast<int>(mUserHeight ? mUserHeight : mDefaultHeight);
                return NO_ERROR;
            case NATIVE_WINDOW_TRANSFORM_HINT:
                *value = static_cast<int>(mTransformHint);
                return NO_ERROR;
            case NATIVE_WINDOW_CONSUMER_RUNNING_BEHIND: {
                status_t err = NO_ERROR;
                if (!mConsumerRunningBehind) {
                    *value = 0;
                } else {
                    err = mGraphicBufferProducer->query(what, value);
                    if (err == NO_ERROR) {
                        mConsumerRunningBehind = *value;
                    }
                }
                return err;
            }
            case NATIVE_WINDOW_LAST_DEQUEUE_DURATION: {
                int64_t durationUs = mLastDequeueDuration / 1000;
                *value = durationUs > std::numeric_limits<int>::max()
                                 ? std::numeric_limits<int>::max()
                                 : static_cast<int>(durationUs);
                return NO_ERROR;
            }
            case NATIVE_WINDOW_LAST_QUEUE_DURATION: {
                int64_t durationUs = mLastQueueDuration / 1000;
                *value = durationUs > std::numeric_limits<int>::max()
                                 ? std::numeric_limits<int>::max()
                                 : static_cast<int>(durationUs);
                return NO_ERROR;
            }
            case NATIVE_WINDOW_IS_VALID: {
                *value = mGraphicBufferProducer != nullptr ? 1 : 0;
                return NO_ERROR;
            }
            case NATIVE_WINDOW_DATASPACE: {
                *value = static_cast<int>(mDataSpace);
                return NO_ERROR;
            }
            case NATIVE_WINDOW_MAX_BUFFER_COUNT: {
                *value = mMaxBufferCount;
                return NO_ERROR;
            }
        }
    }
    return mGraphicBufferProducer->query(what, value);
}

int Surface::perform(int operation, va_list args) {
    int res = NO_ERROR;
    switch (operation) {
        case NATIVE_WINDOW_CONNECT:
            // deprecated. must return NO_ERROR.
            break;
        case NATIVE_WINDOW_DISCONNECT:
            // deprecated. must return NO_ERROR.
            break;
        case NATIVE_WINDOW_SET_USAGE:
            res = dispatchSetUsage(args);
            break;
        case NATIVE_WINDOW_SET_CROP:
            res = dispatchSetCrop(args);
            break;
        case NATIVE_WINDOW_SET_BUFFER_COUNT:
            res = dispatchSetBufferCount(args);
            break;
        case NATIVE_WINDOW_SET_BUFFERS_GEOMETRY:
            res = dispatchSetBuffersGeometry(args);
            break;
        case NATIVE_WINDOW_SET_BUFFERS_TRANSFORM:
            res = dispatchSetBuffersTransform(args);
            break;
        case NATIVE_WINDOW_SET_BUFFERS_STICKY_TRANSFORM:
            res = dispatchSetBuffersStickyTransform(args);
            break;
        case NATIVE_WINDOW_SET_BUFFERS_TIMESTAMP:
            res = dispatchSetBuffersTimestamp(args);
            break;
        case NATIVE_WINDOW_SET_BUFFERS_DIMENSIONS:
            res = dispatchSetBuffersDimensions(args);
            break;
        case NATIVE_WINDOW_SET_BUFFERS_USER_DIMENSIONS:
            res = dispatchSetBuffersUserDimensions(args);
            break;
        case NATIVE_WINDOW_SET_BUFFERS_FORMAT:
            res = dispatchSetBuffersFormat(args);
            break;
        case NATIVE_WINDOW_SET_SCALING_MODE:
            res = dispatchSetScalingMode(args);
            break;
        case NATIVE_WINDOW_API_CONNECT:
            res = dispatchConnect(args);
            break;
        case NATIVE_WINDOW_API_DISCONNECT:
            res = dispatchDisconnect(args);
            break;
        case NATIVE_WINDOW_SET_BUFFERS_DATASPACE:
            res = dispatchSetBuffersDataSpace(args);
            break;
        case NATIVE_WINDOW_SET_USAGE64:
            res = dispatchSetUsage64(args);
            break;
        case NATIVE_WINDOW_GET_CONSUMER_USAGE64:
            res = dispatchGetConsumerUsage64(args);
            break;
        case NATIVE_WINDOW_SET_DEQUEUE_TIMEOUT:
            res = dispatchSetDequeueTimeout(args);
            break;
        default:
            res = NAME_NOT_FOUND;
            break;
    }
    return res;
}

int Surface::dispatchConnect(va_list args) {
    int api = va_arg(args, int);
    return connectImpl(api, stubProducerListener(), false);
}

int Surface::dispatchDisconnect(va_list args) {
    int api = va_arg(args, int);
    return disconnectImpl(api, IGraphicBufferProducer::DisconnectMode::Api);
}

int Surface::dispatchSetUsage(va_list args) {
    uint64_t usage = va_arg(args, uint32_t);
    return setUsage(usage);
}

int Surface::dispatchSetUsage64(va_list args) {
    uint64_t usage = va_arg(args, uint64_t);
    return setUsage(usage);
}

int Surface::dispatchSetCrop(va_list args) {
    android_native_rect_t const* rect = va_arg(args, android_native_rect_t*);
    if (rect == nullptr) return setCrop(nullptr);
    Rect crop(rect->left, rect->top, rect->right, rect->bottom);
    return setCrop(&crop);
}

int Surface::dispatchSetBufferCount(va_list args) {
    size_t bufferCount = va_arg(args, size_t);
    return setBufferCount(static_cast<int32_t>(bufferCount));
}

int Surface::dispatchSetBuffersGeometry(va_list args) {
    uint32_t width = va_arg(args, uint32_t);
    uint32_t height = va_arg(args, uint32_t);
    PixelFormat format = va_arg(args, PixelFormat);
    int err = setBuffersDimensions(width, height);
    if (err != 0) {
        return err;
    }
    return setBuffersFormat(format);
}

int Surface::dispatchSetBuffersDimensions(va_list args) {
    uint32_t width = va_arg(args, uint32_t);
    uint32_t height = va_arg(args, uint32_t);
    return setBuffersDimensions(width, height);
}

int Surface::dispatchSetBuffersUserDimensions(va_list args) {
    uint32_t width = va_arg(args, uint32_t);
    uint32_t height = va_arg(args, uint32_t);
    return setBuffersUserDimensions(width, height);
}

int Surface::dispatchSetBuffersFormat(va_list args) {
    PixelFormat format = va_arg(args, PixelFormat);
    return setBuffersFormat(format);
}

int Surface::dispatchSetScalingMode(va_list args) {
    int mode = va_arg(args, int);
    return setScalingMode(mode);
}

int Surface::dispatchSetBuffersTransform(va_list args) {
    uint32_t transform = va_arg(args, uint32_t);
    return setBuffersTransform(transform);
}

int Surface::dispatchSetBuffersStickyTransform(va_list args) {
    uint32_t transform = va_arg(args, uint32_t);
    return setBuffersStickyTransform(transform);
}

int Surface::dispatchSetBuffersTimestamp(va_list args) {
    int64_t timestamp = va_arg(args, int64_t);
    return setBuffersTimestamp(timestamp);
}

int Surface::dispatchSetBuffersDataSpace(va_list args) {
    android_dataspace dataspace = static_cast<android_dataspace>(va_arg(args, int));
    return setBuffersDataSpace(dataspace);
}

int Surface::dispatchGetConsumerUsage64(va_list args) {
    uint64_t* usage = va_arg(args, uint64_t*);
    return getConsumerUsage(usage);
}

int Surface::dispatchSetDequeueTimeout(va_list args) {
    nsecs_t timeout = va_arg(args, int64_t);
    return mGraphicBufferProducer->setDequeueTimeout(timeout);
}

int Surface::connect(int api) {
    return connect(api, stubProducerListener(), false);
}

int Surface::connect(int api, const sp<IProducerListener>& listener) {
    return connect(api, listener, false);
}

int Surface::connect(int api, const sp<IProducerListener>& listener, bool reportBufferRemoval) {
    if (int32_t fault = host::checkpoint("surface.connect")) return fault;
    return connectImpl(api, listener, reportBufferRemoval);
}

int Surface::connectImpl(int api, const sp<IProducerListener>& listener, bool reportBufferRemoval) {
    ALOGV("Surface::connect");
    Mutex::Autolock lock(mMutex);
    IGraphicBufferProducer::QueueBufferOutput output;
    mReportRemovedBuffers = reportBufferRemoval;
    int err = mGraphicBufferProducer->connect(listener, api, mProducerControlledByApp, &output);
    if (err == NO_ERROR) {
        mDefaultWidth = output.width;
        mDefaultHeight = output.height;
        mNextFrameNumber = output.nextFrameNumber;
        mMaxBufferCount = output.maxBufferCount;

        // Ignore transform hint if sticky transform is set or transform to display inverse
        // flag is set. Transform hint should be ignored if the client is expected to always
        // submit buffers in the same orientation.
        if (mStickyTransform == 0 && !(mTransform & NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY)) {
            mTransformHint = output.transformHint;
        }

        mConsumerRunningBehind = (output.numPendingBuffers >= 2);
    }
    if (!err && api == NATIVE_WINDOW_API_CPU) {
        mConnectedToCpu = true;
        // Clear the dirty region in case we're switching from a non-CPU API
    } else if (!err) {
        // Initialize the dirty region for tracking surface damage
    }

    return err;
}

int Surface::disconnect(int api, IGraphicBufferProducer::DisconnectMode mode) {
    if (int32_t fault = host::checkpoint("surface.disconnect")) return fault;
    return disconnectImpl(api, mode);
}

int Surface::disconnectImpl(int api, IGraphicBufferProducer::DisconnectMode mode) {
    ALOGV("Surface::disconnect");
    Mutex::Autolock lock(mMutex);
    mRemovedBuffers.clear();
    freeAllBuffers();
    int err = mGraphicBufferProducer->disconnect(api, mode);
    if (!err) {
        mReqFormat = 0;
        mReqWidth = 0;
        mReqHeight = 0;
        mReqUsage = 0;
        mCrop.clear();
        mDataSpace = HAL_DATASPACE_UNKNOWN;
        mScalingMode = NATIVE_WINDOW_SCALING_MODE_FREEZE;
        mTransform = 0;
        mStickyTransform = 0;
        mMaxBufferCount = NUM_BUFFER_SLOTS;

        if (api == NATIVE_WINDOW_API_CPU) {
            mConnectedToCpu = false;
        }
    }
    return err;
}

status_t Surface::getAndFlushRemovedBuffers(std::vector<sp<GraphicBuffer>>* out) {
    if (out == nullptr) {
        ALOGE("%s: out must not be null!", __FUNCTION__);
        return BAD_VALUE;
    }

    Mutex::Autolock lock(mMutex);
    *out = mRemovedBuffers;
    mRemovedBuffers.clear();
    return OK;
}

int Surface::setUsage(uint64_t reqUsage) {
    ALOGV("Surface::setUsage");
    Mutex::Autolock lock(mMutex);
    mReqUsage = reqUsage;
    return OK;
}

int Surface::setCrop(Rect const* rect) {
    Rect realRect(Rect::EMPTY_RECT);
    if (rect == nullptr || rect->isEmpty()) {
        realRect.clear();
    } else {
        realRect = *rect;
    }

    ALOGV("Surface::setCrop rect=[%d %d %d %d]", realRect.left, realRect.top, realRect.right,
          realRect.bottom);

    Mutex::Autolock lock(mMutex);
    mCrop = realRect;
    return NO_ERROR;
}

int Surface::setBufferCount(int bufferCount) {
    ALOGV("Surface::setBufferCount");
    Mutex::Autolock lock(mMutex);

    status_t err = NO_ERROR;
    if (bufferCount == 0) {
        err = mGraphicBufferProducer->setMaxDequeuedBufferCount(1);
    } else {
        int minUndequeuedBuffers = 0;
        err = mGraphicBufferProducer->query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS,
                                            &minUndequeuedBuffers);
        if (err == NO_ERROR) {
            err = mGraphicBufferProducer->setMaxDequeuedBufferCount(bufferCount -
                                                                    minUndequeuedBuffers);
        }
    }

    ALOGE_IF(err, "IGraphicBufferProducer::setBufferCount(%d) returned %s", bufferCount,
             strerror(-err));

    return err;
}

int Surface::setMaxDequeuedBufferCount(int maxDequeuedBuffers) {
    ALOGV("Surface::setMaxDequeuedBufferCount");
    Mutex::Autolock lock(mMutex);

    status_t err = mGraphicBufferProducer->setMaxDequeuedBufferCount(maxDequeuedBuffers);
    ALOGE_IF(err, "IGraphicBufferProducer::setMaxDequeuedBufferCount(%d) returned %s",
             maxDequeuedBuffers, strerror(-err));

    return err;
}

int Surface::setAsyncMode(bool async) {
    ALOGV("Surface::setAsyncMode");
    Mutex::Autolock lock(mMutex);

    status_t err = mGraphicBufferProducer->setAsyncMode(async);
    ALOGE_IF(err, "IGraphicBufferProducer::setAsyncMode(%d) returned %s", async, strerror(-err));

    return err;
}

int Surface::setBuffersDimensions(uint32_t width, uint32_t height) {
    ALOGV("Surface::setBuffersDimensions");

    if ((width && !height) || (!width && height)) return BAD_VALUE;

    Mutex::Autolock lock(mMutex);
    mReqWidth = width;
    mReqHeight = height;
    return NO_ERROR;
}

int Surface::setBuffersUserDimensions(uint32_t width, uint32_t height) {
    ALOGV("Surface::setBuffersUserDimensions");

    if ((width && !height) || (!width && height)) return BAD_VALUE;

    Mutex::Autolock lock(mMutex);
    mUserWidth = width;
    mUserHeight = height;
    return NO_ERROR;
}

int Surface::setBuffersFormat(PixelFormat format) {
    ALOGV("Surface::setBuffersFormat");

    Mutex::Autolock lock(mMutex);
    mReqFormat = format;
    return NO_ERROR;
}

int Surface::setScalingMode(int mode) {
    ALOGV("Surface::setScalingMode(%d)", mode);

    switch (mode) {
        case NATIVE_WINDOW_SCALING_MODE_FREEZE:
        case NATIVE_WINDOW_SCALING_MODE_SCALE_TO_WINDOW:
        case NATIVE_WINDOW_SCALING_MODE_SCALE_CROP:
        case NATIVE_WINDOW_SCALING_MODE_NO_SCALE_CROP:
            break;
        default:
            ALOGE("unknown scaling mode: %d", mode);
            return BAD_VALUE;
    }

    Mutex::Autolock lock(mMutex);
    mScalingMode = mode;
    return NO_ERROR;
}

int Surface::setBuffersTransform(uint32_t transform) {
    ALOGV("Surface::setBuffersTransform");
    Mutex::Autolock lock(mMutex);
    // Ensure NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY is sticky. If the client sets the flag, do
    // not clear it.
    if (mTransform & NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY) {
        transform |= NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY;
    }
    mTransform = transform;
    return NO_ERROR;
}

int Surface::setBuffersStickyTransform(uint32_t transform) {
    ALOGV("Surface::setBuffersStickyTransform");
    Mutex::Autolock lock(mMutex);
    mStickyTransform = transform;
    return NO_ERROR;
}

int Surface::setBuffersTimestamp(int64_t timestamp) {
    ALOGV("Surface::setBuffersTimestamp");
    Mutex::Autolock lock(mMutex);
    mTimestamp = timestamp;
    return NO_ERROR;
}

int Surface::setBuffersDataSpace(android_dataspace dataSpace) {
    ALOGV("Surface::setBuffersDataSpace");
    Mutex::Autolock lock(mMutex);
    mDataSpace = dataSpace;
    return NO_ERROR;
}

void Surface::freeAllBuffers() {
    if (!mDequeuedSlots.empty()) {
        ALOGE("%s: %zu buffers were freed while being dequeued!", __FUNCTION__,
              mDequeuedSlots.size());
    }
    for (int i = 0; i < NUM_BUFFER_SLOTS; i++) {
        mSlots[i].buffer = nullptr;
    }
}

}  // namespace android
