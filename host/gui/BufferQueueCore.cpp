// The shared state of a buffer queue and its slot bookkeeping.

#include <gui/BufferQueueCore.h>
#include <log/log.h>
#include <unistd.h>

#include <atomic>

#undef LOG_TAG
#define LOG_TAG "BufferQueueCore"

namespace android {
namespace {

uint64_t getUniqueId() {
    static std::atomic<uint32_t> counter{0};
    static uint64_t id = static_cast<uint64_t>(getpid()) << 32;
    return id | counter++;
}

}  // namespace

const char* BufferState::string() const {
    switch (mState) {
        case FREE:
            return "FREE";
        case DEQUEUED:
            return "DEQUEUED";
        case QUEUED:
            return "QUEUED";
        case ACQUIRED:
            return "ACQUIRED";
    }
    return "UNKNOWN";
}

BufferQueueCore::BufferQueueCore()
    : mIsAbandoned(false),
      mConsumerControlledByApp(false),
      mConsumerName(),
      mConsumerListener(),
      mConsumerUsageBits(0),
      mConnectedApi(NO_CONNECTED_API),
      mConnectedProducerListener(),
      mBufferReleasedCbEnabled(false),
      mSlots(),
      mQueue(),
      mFreeSlots(),
      mFreeBuffers(),
      mUnusedSlots(),
      mActiveBuffers(),
      mDequeueBufferCannotBlock(false),
      mQueueBufferCanDrop(false),
      mLegacyBufferDrop(true),
      mDefaultBufferFormat(PIXEL_FORMAT_RGBA_8888),
      mDefaultWidth(1),
      mDefaultHeight(1),
      mDefaultBufferDataSpace(HAL_DATASPACE_UNKNOWN),
      mMaxBufferCount(BufferQueueDefs::NUM_BUFFER_SLOTS),
      mMaxAcquiredBufferCount(1),
      mMaxDequeuedBufferCount(1),
      mBufferHasBeenQueued(false),
      mFrameCounter(0),
      mTransformHint(0),
      mIsAllocating(false),
      mAllowAllocation(true),
      mBufferAge(0),
      mGenerationNumber(0),
      mAsyncMode(false),
      mLastQueuedSlot(INVALID_BUFFER_SLOT),
      mUniqueId(getUniqueId()) {
    int numStartingBuffers = getMaxBufferCountLocked();
    for (int s = 0; s < numStartingBuffers; s++) {
        mFreeSlots.insert(s);
    }
    for (int s = numStartingBuffers; s < BufferQueueDefs::NUM_BUFFER_SLOTS; s++) {
        mUnusedSlots.push_front(s);
    }
}

BufferQueueCore::~BufferQueueCore() {}

int BufferQueueCore::getMinUndequeuedBufferCountLocked() const {
    // If dequeueBuffer is allowed to error out, we don't have to add an extra buffer.
    if (mAsyncMode || mDequeueBufferCannotBlock) {
        return mMaxAcquiredBufferCount + 1;
    }
    return mMaxAcquiredBufferCount;
}

int BufferQueueCore::getMinMaxBufferCountLocked() const {
    return getMinUndequeuedBufferCountLocked() + 1;
}

int BufferQueueCore::getMaxBufferCountLocked(bool asyncMode, bool dequeueBufferCannotBlock,
                                             int maxBufferCount) const {
    int maxCount = mMaxAcquiredBufferCount + mMaxDequeuedBufferCount +
                   ((asyncMode || dequeueBufferCannotBlock) ? 1 : 0);
    maxCount = std::min(maxBufferCount, maxCount);
    return maxCount;
}

int BufferQueueCore::getMaxBufferCountLocked() const {
    int maxBufferCount = mMaxAcquiredBufferCount + mMaxDequeuedBufferCount +
                         ((mAsyncMode || mDequeueBufferCannotBlock) ? 1 : 0);

    // limit maxBufferCount by mMaxBufferCount always
    maxBufferCount = std::min(mMaxBufferCount, maxBufferCount);

    return maxBufferCount;
}

void BufferQueueCore::clearBufferSlotLocked(int slot) {
    ALOGV("clearBufferSlotLocked: slot %d", slot);

    mSlots[slot].mGraphicBuffer.clear();
    mSlots[slot].mBufferState.reset();
    mSlots[slot].mRequestBufferCalled = false;
    mSlots[slot].mFrameNumber = 0;
    mSlots[slot].mAcquireCalled = false;
    mSlots[slot].mNeedsReallocation = true;
    mSlots[slot].mFence = Fence::NO_FENCE;

    if (mLastQueuedSlot == slot) {
        mLastQueuedSlot = INVALID_BUFFER_SLOT;
    }
}

void BufferQueueCore::freeAllBuffersLocked() {
    for (int s : mFreeSlots) {
        clearBufferSlotLocked(s);
    }

    for (int s : mFreeBuffers) {
        mFreeSlots.insert(s);
        clearBufferSlotLocked(s);
    }
    mFreeBuffers.clear();

    for (int s : mActiveBuffers) {
        mFreeSlots.insert(s);
        clearBufferSlotLocked(s);
    }
    mActiveBuffers.clear();

    for (auto& b : mQueue) {
        b.mIsStale = true;

        // We set this to false to force the BufferQueue to resend the buffer handle upon
        // acquire.
        b.mAcquireCalled = false;
    }

    validateConsistencyLocked();
}

void BufferQueueCore::discardFreeBuffersLocked() {
    // Notify producer about the discarded buffers.
    if (mConnectedProducerListener != nullptr && !mFreeBuffers.empty()) {
        std::vector<int32_t> freeBuffers(mFreeBuffers.begin(), mFreeBuffers.end());
        mConnectedProducerListener->onBuffersDiscarded(freeBuffers);
    }

    for (int s : mFreeBuffers) {
        mFreeSlots.insert(s);
        clearBufferSlotLocked(s);
    }
    mFreeBuffers.clear();

    validateConsistencyLocked();
}

bool BufferQueueCore::adjustAvailableSlotsLocked(int delta) {
    if (delta >= 0) {
        // If we're going to fail, do so before modifying anything
        if (delta > static_cast<int>(mUnusedSlots.size())) {
            return false;
        }
        while (delta > 0) {
            if (mUnusedSlots.empty()) {
                return false;
            }
            int slot = mUnusedSlots.back();
            mUnusedSlots.pop_back();
            mFreeSlots.insert(slot);
            delta--;
        }
    } else {
        // If we're going to fail, do so before modifying anything
        if (-delta > static_cast<int>(mFreeSlots.size() + mFreeBuffers.size())) {
            return false;
        }
        while (delta < 0) {
            if (!mFreeSlots.empty()) {
                auto slot = mFreeSlots.begin();
                clearBufferSlotLocked(*slot);
                mUnusedSlots.push_back(*slot);
                mFreeSlots.erase(slot);
            } else if (!mFreeBuffers.empty()) {
                int slot = mFreeBuffers.back();
                clearBufferSlotLocked(slot);
                mUnusedSlots.push_back(slot);
                mFreeBuffers.pop_back();
            } else {
                return false;
            }
            delta++;
        }
    }
    return true;
}

void BufferQueueCore::waitWhileAllocatingLocked(std::unique_lock<std::mutex>& lock) const {
    while (mIsAllocating) {
        mIsAllocatingCondition.wait(lock);
    }
}

void BufferQueueCore::validateConsistencyLocked() const {
#ifndef NDEBUG
    for (int slot = 0; slot < BufferQueueDefs::NUM_BUFFER_SLOTS; ++slot) {
        const bool isFreeSlot = mFreeSlots.count(slot) != 0;
        const bool isFreeBuffer =
                std::find(mFreeBuffers.begin(), mFreeBuffers.end(), slot) != mFreeBuffers.end();
        const bool isUnused =
                std::find(mUnusedSlots.begin(), mUnusedSlots.end(), slot) != mUnusedSlots.end();
        const bool isActive = mActiveBuffers.count(slot) != 0;
        const int sets = isFreeSlot + isFreeBuffer + isUnused + isActive;
        if (sets != 1) {
            ALOGE("slot %d is in %d slot sets (free slot %d, free buffer %d, unused %d, "
                  "active %d)",
                  slot, sets, isFreeSlot, isFreeBuffer, isUnused, isActive);
            continue;
        }
        const BufferSlot& s = mSlots[slot];
        if ((isFreeSlot || isUnused) && (s.mGraphicBuffer != nullptr || !s.mBufferState.isFree())) {
            ALOGE("slot %d is free or unused but holds a buffer or is %s", slot,
                  s.mBufferState.string());
        }
        if (isFreeBuffer && (s.mGraphicBuffer == nullptr || !s.mBufferState.isFree())) {
            ALOGE("slot %d is a free buffer but has none or is %s", slot, s.mBufferState.string());
        }
        if (isActive && s.mBufferState.isFree()) {
            ALOGE("slot %d is active but FREE", slot);
        }
    }
#endif
}

}  // namespace android
