// The consumer face of a buffer queue.

#include <gui/BufferQueueConsumer.h>
#include <inttypes.h>
#include <log/log.h>
#include <string.h>

#undef LOG_TAG
#define LOG_TAG "BufferQueueConsumer"

#define BQ_LOGV(x, ...) ALOGV("[%s] " x, mConsumerName.string(), ##__VA_ARGS__)
#define BQ_LOGE(x, ...) ALOGE("[%s] " x, mConsumerName.string(), ##__VA_ARGS__)

namespace android {

namespace {
// Buffers with a desired present time more than this far from the expected one are acquired
// at once rather than held back (their timestamps are taken to be unrelated to display time).
constexpr nsecs_t MAX_REASONABLE_NSEC = 1000000000LL;  // 1 second
}  // namespace

BufferQueueConsumer::BufferQueueConsumer(const sp<BufferQueueCore>& core)
    : mCore(core), mSlots(core->mSlots), mConsumerName() {}

BufferQueueConsumer::~BufferQueueConsumer() {}

status_t BufferQueueConsumer::acquireBuffer(BufferItem* outBuffer, nsecs_t expectedPresent,
                                            uint64_t maxFrameNumber) {
    if (outBuffer == nullptr) return BAD_VALUE;

    int numDroppedBuffers = 0;
    sp<IProducerListener> listener;
    {
        std::unique_lock<std::mutex> lock(mCore->mMutex);

        // Check that the consumer doesn't currently have the maximum number of buffers
        // acquired. We allow the max buffer count to be exceeded by one buffer so that the
        // consumer can successfully set up the newly acquired buffer before releasing the old
        // one.
        int numAcquiredBuffers = 0;
        for (int s : mCore->mActiveBuffers) {
            if (mSlots[s].mBufferState.isAcquired()) {
                ++numAcquiredBuffers;
            }
        }
        if (numAcquiredBuffers >= mCore->mMaxAcquiredBufferCount + 1) {
            BQ_LOGE("acquireBuffer: max acquired buffer count reached: %d (max %d)",
                    numAcquiredBuffers, mCore->mMaxAcquiredBufferCount);
            return INVALID_OPERATION;
        }

        // In asynchronous mode the list is guaranteed to be one buffer deep, while in
        // synchronous mode we use the oldest buffer.
        if (mCore->mQueue.empty()) {
            return NO_BUFFER_AVAILABLE;
        }

        auto front = mCore->mQueue.begin();

        // If expectedPresent is given, we may not want to return a buffer yet. If it's
        // given and there's more than one buffer queued, we may want to drop a buffer.
        if (expectedPresent != 0) {
            // The 'expectedPresent' argument indicates when the buffer is expected to be
            // presented on-screen. If the buffer's desired present time is earlier (less) than
            // expectedPresent -- meaning it will be displayed on time or possibly late if we
            // show it as soon as possible -- we acquire and return it. If we don't want to
            // display it until after the expectedPresent time, we return PRESENT_LATER
            // without acquiring it.
            //
            // If we are dropping buffers, we want to drop the ones that are late as long as a
            // later one is due.
            while (mCore->mQueue.size() > 1 && !mCore->mQueue[0].mIsAutoTimestamp) {
                const BufferItem& bufferItem(mCore->mQueue[1]);

                // If dropping entry[0] would leave us with a buffer that the consumer is not
                // yet ready for, don't drop it.
                if (maxFrameNumber && bufferItem.mFrameNumber > maxFrameNumber) {
                    break;
                }

                // If entry[1] is timely, drop entry[0] (and repeat). We apply an additional
                // criterion here: we only drop the earlier buffer if our desiredPresent falls
                // within +/- 1 second of the expected present. Otherwise, bogus desiredPresent
                // times (e.g., 0 or a small relative timestamp), which normally mean "ignore
                // the timestamp and acquire immediately", would cause us to drop frames.
                nsecs_t desiredPresent = bufferItem.mTimestamp;
                if (desiredPresent < expectedPresent - MAX_REASONABLE_NSEC ||
                    desiredPresent > expectedPresent) {
                    // This buffer is set to display in the near future, or desiredPresent is
                    // garbage. Either way we don't want to drop the previous buffer just to
                    // get this on the screen sooner.
                    BQ_LOGV("acquireBuffer: nodrop desire=%" PRId64 " expect=%" PRId64,
                            desiredPresent, expectedPresent);
                    break;
                }

                BQ_LOGV("acquireBuffer: drop desire=%" PRId64 " expect=%" PRId64 " size=%zu",
                        desiredPresent, expectedPresent, mCore->mQueue.size());

                if (!front->mIsStale) {
                    // Front buffer is still in mSlots, so mark the slot as free
                    mSlots[front->mSlot].mBufferState.freeQueued();
                    mCore->mActiveBuffers.erase(front->mSlot);
                    mCore->mFreeBuffers.push_back(front->mSlot);
                    if (mCore->mBufferReleasedCbEnabled) {
                        listener = mCore->mConnectedProducerListener;
                    }
                    ++numDroppedBuffers;
                }

                mCore->mQueue.erase(front);
                front = mCore->mQueue.begin();
            }

            // See if the front buffer is ready to be acquired
            nsecs_t desiredPresent = front->mTimestamp;
            bool bufferIsDue = desiredPresent <= expectedPresent ||
                               desiredPresent > expectedPresent + MAX_REASONABLE_NSEC;
            bool consumerIsReady =
                    maxFrameNumber > 0 ? front->mFrameNumber <= maxFrameNumber : true;
            if (!bufferIsDue || !consumerIsReady) {
                BQ_LOGV("acquireBuffer: defer desire=%" PRId64 " expect=%" PRId64 " frame=%" PRIu64
                        " consumer=%" PRIu64,
                        desiredPresent, expectedPresent, front->mFrameNumber, maxFrameNumber);
                mCore->mDequeueCondition.notify_all();
                if (listener != nullptr) {
                    lock.unlock();
                    for (int i = 0; i < numDroppedBuffers; ++i) listener->onBufferReleased();
                }
                return PRESENT_LATER;
            }

            BQ_LOGV("acquireBuffer: accept desire=%" PRId64 " expect=%" PRId64, desiredPresent,
                    expectedPresent);
        }

        int slot = front->mSlot;
        *outBuffer = *front;

        BQ_LOGV("acquireBuffer: acquiring { slot=%d/%" PRIu64 " buffer=%p }", slot,
                outBuffer->mFrameNumber, outBuffer->mGraphicBuffer.get());

        if (!outBuffer->mIsStale) {
            mSlots[slot].mAcquireCalled = true;
            mSlots[slot].mBufferState.acquire();
            mSlots[slot].mFence = Fence::NO_FENCE;
        }

        // If the buffer has previously been acquired by the consumer, set mGraphicBuffer to
        // NULL to avoid unnecessarily remapping this buffer on the consumer side
        if (outBuffer->mAcquireCalled) {
            outBuffer->mGraphicBuffer = nullptr;
        }

        mCore->mQueue.erase(front);

        // We might have freed a slot while dropping old buffers, or the producer may be
        // blocked waiting for the number of buffers in the queue to decrease.
        mCore->mDequeueCondition.notify_all();

        mCore->validateConsistencyLocked();
    }

    if (listener != nullptr) {
        for (int i = 0; i < numDroppedBuffers; ++i) {
            listener->onBufferReleased();
        }
    }

    return NO_ERROR;
}

status_t BufferQueueConsumer::releaseBuffer(int slot, uint64_t frameNumber,
                                            const sp<Fence>& releaseFence) {
    if (slot < 0 || slot >= BufferQueueDefs::NUM_BUFFER_SLOTS || releaseFence == nullptr) {
        BQ_LOGE("releaseBuffer: slot %d out of range or fence %p NULL", slot, releaseFence.get());
        return BAD_VALUE;
    }

    sp<IProducerListener> listener;
    {  // Autolock scope
        std::lock_guard<std::mutex> lock(mCore->mMutex);

        // If the frame number has changed because the buffer has been reallocated, we can
        // ignore this releaseBuffer for the old buffer.
        if (frameNumber != mSlots[slot].mFrameNumber) {
            return STALE_BUFFER_SLOT;
        }

        if (!mSlots[slot].mBufferState.isAcquired()) {
            BQ_LOGE("releaseBuffer: attempted to release buffer slot %d but its state was %s", slot,
                    mSlots[slot].mBufferState.string());
            return BAD_VALUE;
        }

        mSlots[slot].mFence = releaseFence;
        mSlots[slot].mBufferState.release();
        mCore->mActiveBuffers.erase(slot);
        mCore->mFreeBuffers.push_back(slot);

        if (mCore->mBufferReleasedCbEnabled) {
            listener = mCore->mConnectedProducerListener;
        }
        BQ_LOGV("releaseBuffer: releasing slot %d", slot);

        mCore->mDequeueCondition.notify_all();
        mCore->validateConsistencyLocked();
    }  // Autolock scope

    // Call back without lock held
    if (listener != nullptr) {
        listener->onBufferReleased();
    }

    return NO_ERROR;
}

status_t BufferQueueConsumer::connect(const sp<IConsumerListener>& consumerListener,
                                      bool controlledByApp) {
    if (consumerListener == nullptr) {
        BQ_LOGE("connect: consumerListener may not be NULL");
        return BAD_VALUE;
    }

    BQ_LOGV("connect: controlledByApp=%s", controlledByApp ? "true" : "false");

    std::lock_guard<std::mutex> lock(mCore->mMutex);

    if (mCore->mIsAbandoned) {
        BQ_LOGE("connect: BufferQueue has been abandoned");
        return NO_INIT;
    }

    mCore->mConsumerListener = consumerListener;
    mCore->mConsumerControlledByApp = controlledByApp;

    return NO_ERROR;
}

status_t BufferQueueConsumer::disconnect() {
    BQ_LOGV("disconnect");

    std::lock_guard<std::mutex> lock(mCore->mMutex);

    if (mCore->mConsumerListener == nullptr) {
        BQ_LOGE("disconnect: no consumer is connected");
        return BAD_VALUE;
    }

    mCore->mIsAbandoned = true;
    mCore->mConsumerListener = nullptr;
    mCore->mQueue.clear();
    mCore->freeAllBuffersLocked();
    mCore->mDequeueCondition.notify_all();
    return NO_ERROR;
}

status_t BufferQueueConsumer::getReleasedBuffers(uint64_t* outSlotMask) {
    BQ_LOGV("getReleasedBuffers");

    if (outSlotMask == nullptr) {
        BQ_LOGE("getReleasedBuffers: outSlotMask may not be NULL");
        return BAD_VALUE;
    }

    std::lock_guard<std::mutex> lock(mCore->mMutex);

    if (mCore->mIsAbandoned) {
        BQ_LOGE("getReleasedBuffers: BufferQueue has been abandoned");
        return NO_INIT;
    }

    uint64_t mask = 0;
    for (int s = 0; s < BufferQueueDefs::NUM_BUFFER_SLOTS; ++s) {
        if (!mSlots[s].mAcquireCalled) {
            mask |= (1ULL << s);
        }
    }

    // Remove from the mask queued buffers for which acquire has been called, since the
    // consumer will not receive their buffer addresses and so must retain their cached
    // information
    for (const BufferItem& item : mCore->mQueue) {
        if (item.mAcquireCalled) {
            mask &= ~(1ULL << item.mSlot);
        }
    }

    BQ_LOGV("getReleasedBuffers: returning mask %#" PRIx64, mask);
    *outSlotMask = mask;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setDefaultBufferSize(uint32_t width, uint32_t height) {
    if (width == 0 || height == 0) {
        BQ_LOGV("setDefaultBufferSize: dimensions cannot be 0 (width=%u height=%u)", width, height);
        return BAD_VALUE;
    }

    BQ_LOGV("setDefaultBufferSize: width=%u height=%u", width, height);

    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mDefaultWidth = width;
    mCore->mDefaultHeight = height;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setMaxBufferCount(int bufferCount) {
    if (bufferCount < 1 || bufferCount > BufferQueueDefs::NUM_BUFFER_SLOTS) {
        BQ_LOGE("setMaxBufferCount: invalid count %d", bufferCount);
        return BAD_VALUE;
    }

    std::lock_guard<std::mutex> lock(mCore->mMutex);

    if (mCore->mConnectedApi != BufferQueueCore::NO_CONNECTED_API) {
        BQ_LOGE("setMaxBufferCount: producer is already connected");
        return INVALID_OPERATION;
    }

    if (bufferCount < mCore->mMaxAcquiredBufferCount) {
        BQ_LOGE("setMaxBufferCount: invalid buffer count (%d) less than maxAcquiredBuffers %d",
                bufferCount, mCore->mMaxAcquiredBufferCount);
        return BAD_VALUE;
    }

    int delta = mCore->getMaxBufferCountLocked(mCore->mAsyncMode, mCore->mDequeueBufferCannotBlock,
                                               bufferCount) -
                mCore->getMaxBufferCountLocked();
    if (!mCore->adjustAvailableSlotsLocked(delta)) {
        BQ_LOGE("setMaxBufferCount: BufferQueue failed to adjust the number of available "
                "slots. Delta = %d",
                delta);
        return BAD_VALUE;
    }

    mCore->mMaxBufferCount = bufferCount;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setMaxAcquiredBufferCount(int maxAcquiredBuffers) {
    if (maxAcquiredBuffers < 1 || maxAcquiredBuffers > BufferQueueCore::MAX_MAX_ACQUIRED_BUFFERS) {
        BQ_LOGE("setMaxAcquiredBufferCount: invalid count %d", maxAcquiredBuffers);
        return BAD_VALUE;
    }

    sp<IConsumerListener> listener;
    {  // Autolock scope
        std::unique_lock<std::mutex> lock(mCore->mMutex);
        mCore->waitWhileAllocatingLocked(lock);

        if (mCore->mIsAbandoned) {
            BQ_LOGE("setMaxAcquiredBufferCount: consumer is abandoned");
            return NO_INIT;
        }

        if (maxAcquiredBuffers == mCore->mMaxAcquiredBufferCount) {
            return NO_ERROR;
        }

        // The new maxAcquiredBuffers count should not be violated by the number of currently
        // acquired buffers
        int acquiredCount = 0;
        for (int slot : mCore->mActiveBuffers) {
            if (mSlots[slot].mBufferState.isAcquired()) {
                acquiredCount++;
            }
        }
        if (acquiredCount > maxAcquiredBuffers) {
            BQ_LOGE("setMaxAcquiredBufferCount: the requested maxAcquiredBuffer count (%d) "
                    "exceeds the current acquired buffer count (%d)",
                    maxAcquiredBuffers, acquiredCount);
            return BAD_VALUE;
        }

        if ((maxAcquiredBuffers + mCore->mMaxDequeuedBufferCount +
             (mCore->mAsyncMode || mCore->mDequeueBufferCannotBlock ? 1 : 0)) >
            mCore->mMaxBufferCount) {
            BQ_LOGE("setMaxAcquiredBufferCount: %d acquired buffers would exceed the "
                    "maxBufferCount (%d) (maxDequeued %d async %d)",
                    maxAcquiredBuffers, mCore->mMaxBufferCount, mCore->mMaxDequeuedBufferCount,
                    mCore->mAsyncMode || mCore->mDequeueBufferCannotBlock);
            return BAD_VALUE;
        }

        if (mCore->mConnectedApi != BufferQueueCore::NO_CONNECTED_API) {
            BQ_LOGE("setMaxAcquiredBufferCount: producer is already connected");
            return INVALID_OPERATION;
        }

        const int oldMaxAcquired = mCore->mMaxAcquiredBufferCount;
        const int oldCount = mCore->getMaxBufferCountLocked();
        mCore->mMaxAcquiredBufferCount = maxAcquiredBuffers;
        const int delta = mCore->getMaxBufferCountLocked() - oldCount;
        if (!mCore->adjustAvailableSlotsLocked(delta)) {
            mCore->mMaxAcquiredBufferCount = oldMaxAcquired;
            BQ_LOGE("setMaxAcquiredBufferCount: BufferQueue failed to adjust the number of "
                    "available slots. Delta = %d",
                    delta);
            return BAD_VALUE;
        }

        BQ_LOGV("setMaxAcquiredBufferCount: %d", maxAcquiredBuffers);
        mCore->validateConsistencyLocked();
        if (delta < 0 && mCore->mBufferReleasedCbEnabled) {
            listener = mCore->mConsumerListener;
        }
    }
    // Call back without lock held
    if (listener != nullptr) {
        listener->onBuffersReleased();
    }

    return NO_ERROR;
}

status_t BufferQueueConsumer::setConsumerName(const String8& name) {
    BQ_LOGV("setConsumerName: '%s'", name.string());
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mConsumerName = name;
    mConsumerName = name;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setDefaultBufferFormat(PixelFormat defaultFormat) {
    BQ_LOGV("setDefaultBufferFormat: %u", defaultFormat);
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mDefaultBufferFormat = defaultFormat;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setDefaultBufferDataSpace(android_dataspace defaultDataSpace) {
    BQ_LOGV("setDefaultBufferDataSpace: %u", defaultDataSpace);
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mDefaultBufferDataSpace = defaultDataSpace;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setConsumerUsageBits(uint64_t usage) {
    BQ_LOGV("setConsumerUsageBits: %#" PRIx64, usage);
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mConsumerUsageBits = usage;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setTransformHint(uint32_t hint) {
    BQ_LOGV("setTransformHint: %#x", hint);
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mTransformHint = hint;
    return NO_ERROR;
}

status_t BufferQueueConsumer::discardFreeBuffers() {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    if (mCore->mIsAbandoned) {
        BQ_LOGE("discardFreeBuffers: BufferQueue has been abandoned");
        return NO_INIT;
    }
    mCore->discardFreeBuffersLocked();
    return NO_ERROR;
}

BufferQueueConsumer::SlotCounts BufferQueueConsumer::getSlotCounts() const {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    SlotCounts counts;
    counts.free = static_cast<int>(mCore->mFreeBuffers.size());
    for (int slot : mCore->mActiveBuffers) {
        const BufferState& state = mSlots[slot].mBufferState;
        if (state.isDequeued()) counts.dequeued++;
        if (state.isQueued()) counts.queued++;
        if (state.isAcquired()) counts.acquired++;
    }
    return counts;
}

}  // namespace android
