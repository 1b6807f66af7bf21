// The consumer face of a buffer queue (see IGraphicBufferConsumer.h).
#pragma once

#include <gui/BufferQueueCore.h>
#include <gui/IGraphicBufferConsumer.h>

namespace android {

class BufferQueueConsumer : public IGraphicBufferConsumer {
public:
    explicit BufferQueueConsumer(const sp<BufferQueueCore>& core);
    ~BufferQueueConsumer() override;

    status_t acquireBuffer(BufferItem* outBuffer, nsecs_t expectedPresent,
                           uint64_t maxFrameNumber = 0) override;
    status_t releaseBuffer(int slot, uint64_t frameNumber, const sp<Fence>& releaseFence) override;
    status_t consumerConnect(const sp<IConsumerListener>& consumer, bool controlledByApp) override {
        return connect(consumer, controlledByApp);
    }
    status_t consumerDisconnect() override { return disconnect(); }
    status_t getReleasedBuffers(uint64_t* outSlotMask) override;
    status_t setDefaultBufferSize(uint32_t width, uint32_t height) override;
    status_t setMaxBufferCount(int bufferCount) override;
    status_t setMaxAcquiredBufferCount(int maxAcquiredBuffers) override;
    status_t setConsumerName(const String8& name) override;
    status_t setDefaultBufferFormat(PixelFormat defaultFormat) override;
    status_t setDefaultBufferDataSpace(android_dataspace defaultDataSpace) override;
    status_t setConsumerUsageBits(uint64_t usage) override;
    status_t setTransformHint(uint32_t hint) override;
    status_t discardFreeBuffers() override;

    // connect connects a consumer to the BufferQueue. Only one consumer may be connected, and
    // when that consumer disconnects the BufferQueue is placed into the "abandoned" state,
    // causing most interactions with the BufferQueue by the producer to fail.
    virtual status_t connect(const sp<IConsumerListener>& consumerListener, bool controlledByApp);

    // disconnect disconnects a consumer from the BufferQueue. All buffers will be freed and
    // the BufferQueue is placed in the "abandoned" state, causing most interactions with the
    // BufferQueue by the producer to fail.
    virtual status_t disconnect();

    // Host: how many slots hold a buffer in each state, for tests' leak checks.
    struct SlotCounts {
        int free = 0;  // FREE slots that hold a buffer
        int dequeued = 0;
        int queued = 0;
        int acquired = 0;
    };
    SlotCounts getSlotCounts() const;

private:
    sp<BufferQueueCore> mCore;

    // This references mCore->mSlots. Lock mCore->mMutex while accessing.
    BufferQueueDefs::SlotsType& mSlots;

    // This is a cached copy of the name stored in the BufferQueueCore. It's updated during
    // setConsumerName.
    String8 mConsumerName;
};

}  // namespace android
