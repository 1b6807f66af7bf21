// The buffer queue through its producer and consumer faces: slot states and status codes,
// buffer counts, connection per API, abandonment, time-outs and the consumers.

#include <gtest/gtest.h>
#include <gui/BufferItemConsumer.h>
#include <gui/BufferQueue.h>
#include <gui/CpuConsumer.h>
#include <gui/IProducerListener.h>
#include <ui/HostGrallocLayout.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "ui_test_support.h"

using namespace android;

namespace {

constexpr uint64_t kCpuUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

struct CountingConsumerListener : public BnConsumerListener {
    void onFrameAvailable(const BufferItem&) override { frames++; }
    void onFrameReplaced(const BufferItem&) override { replaced++; }
    void onBuffersReleased() override { released++; }
    void onSidebandStreamChanged() override {}
    void onDisconnect() override { disconnects++; }
    std::atomic<int> frames{0}, replaced{0}, released{0}, disconnects{0};
};

struct CountingProducerListener : public BnProducerListener {
    void onBufferReleased() override { released++; }
    std::atomic<int> released{0};
};

class BufferQueueTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::resetFaultsAndCalls();
        BufferQueue::createBufferQueue(&mProducer, &mConsumer);
        mListener = new CountingConsumerListener();
    }

    void connectConsumer(bool controlledByApp = false) {
        ASSERT_EQ(OK, mConsumer->consumerConnect(mListener, controlledByApp));
    }

    void connectProducer(int api = NATIVE_WINDOW_API_CPU, bool controlledByApp = false,
                         const sp<IProducerListener>& listener = nullptr) {
        IGraphicBufferProducer::QueueBufferOutput output;
        ASSERT_EQ(OK, mProducer->connect(listener, api, controlledByApp, &output));
    }

    // Dequeues (default size and format) and fetches the slot's buffer.
    int dequeue(sp<GraphicBuffer>* buffer = nullptr, uint32_t w = 0, uint32_t h = 0,
                PixelFormat format = 0) {
        int slot = -1;
        sp<Fence> fence;
        status_t result =
                mProducer->dequeueBuffer(&slot, &fence, w, h, format, kCpuUsage, nullptr, nullptr);
        EXPECT_GE(result, 0);
        if (result < 0) return result;
        sp<GraphicBuffer> requested;
        EXPECT_EQ(OK, mProducer->requestBuffer(slot, &requested));
        if (buffer != nullptr) *buffer = requested;
        return slot;
    }

    static IGraphicBufferProducer::QueueBufferInput input(int64_t timestamp = 1) {
        return IGraphicBufferProducer::QueueBufferInput(
                timestamp, false, HAL_DATASPACE_UNKNOWN, Rect::EMPTY_RECT,
                NATIVE_WINDOW_SCALING_MODE_FREEZE, 0, Fence::NO_FENCE);
    }

    status_t queue(int slot, int64_t timestamp = 1) {
        IGraphicBufferProducer::QueueBufferOutput output;
        return mProducer->queueBuffer(slot, input(timestamp), &output);
    }

    sp<IGraphicBufferProducer> mProducer;
    sp<IGraphicBufferConsumer> mConsumer;
    sp<CountingConsumerListener> mListener;
};

TEST_F(BufferQueueTest, ConnectionIsPerApiWithAndroidsCodes) {
    IGraphicBufferProducer::QueueBufferOutput output;
    // No consumer yet.
    EXPECT_EQ(NO_INIT, mProducer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output));
    connectConsumer();
    EXPECT_EQ(BAD_VALUE, mProducer->connect(nullptr, 0, false, &output));
    EXPECT_EQ(BAD_VALUE, mProducer->connect(nullptr, 5, false, &output));
    EXPECT_EQ(BAD_VALUE, mProducer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, nullptr));

    EXPECT_EQ(NO_INIT, mProducer->disconnect(NATIVE_WINDOW_API_CAMERA));  // not connected
    ASSERT_EQ(OK, mProducer->connect(nullptr, NATIVE_WINDOW_API_CAMERA, false, &output));
    EXPECT_EQ(1u, output.width);
    EXPECT_EQ(1u, output.nextFrameNumber);
    // Already connected, by any API.
    EXPECT_EQ(BAD_VALUE, mProducer->connect(nullptr, NATIVE_WINDOW_API_CAMERA, false, &output));
    EXPECT_EQ(BAD_VALUE, mProducer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output));
    // Another API than the connected one.
    EXPECT_EQ(BAD_VALUE, mProducer->disconnect(NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(BAD_VALUE, mProducer->disconnect(7));

    int slot = dequeue();
    EXPECT_EQ(OK, mProducer->disconnect(NATIVE_WINDOW_API_CAMERA));
    EXPECT_EQ(1, mListener->disconnects.load());
    // Disconnecting freed the dequeued slot; nothing works until the next connect.
    EXPECT_EQ(NO_INIT, queue(slot));
    int dummy;
    sp<Fence> fence;
    EXPECT_EQ(NO_INIT, mProducer->dequeueBuffer(&dummy, &fence, 0, 0, 0, 0, nullptr, nullptr));
    EXPECT_EQ(OK, mProducer->connect(nullptr, NATIVE_WINDOW_API_EGL, false, &output));
}

TEST_F(BufferQueueTest, AbandonedQueueAnswersNoInitToTheProducer) {
    connectConsumer();
    connectProducer();
    sp<GraphicBuffer> buffer;
    int slot = dequeue(&buffer);
    ASSERT_EQ(OK, mConsumer->consumerDisconnect());
    EXPECT_EQ(BAD_VALUE, mConsumer->consumerDisconnect());  // no consumer any more

    IGraphicBufferProducer::QueueBufferOutput output;
    int value = 0;
    int otherSlot;
    sp<Fence> fence;
    sp<GraphicBuffer> requested;
    EXPECT_EQ(NO_INIT, queue(slot));
    EXPECT_EQ(NO_INIT, mProducer->cancelBuffer(slot, Fence::NO_FENCE));
    EXPECT_EQ(NO_INIT, mProducer->requestBuffer(slot, &requested));
    EXPECT_EQ(NO_INIT, mProducer->dequeueBuffer(&otherSlot, &fence, 0, 0, 0, 0, nullptr, nullptr));
    EXPECT_EQ(NO_INIT, mProducer->query(NATIVE_WINDOW_WIDTH, &value));
    EXPECT_EQ(NO_INIT, mProducer->setMaxDequeuedBufferCount(2));
    EXPECT_EQ(NO_INIT, mProducer->setAsyncMode(true));
    EXPECT_EQ(NO_INIT, mProducer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output));
    EXPECT_EQ(NO_INIT, mConsumer->consumerConnect(mListener, false));
    // Disconnecting from an abandoned queue is a no-op.
    EXPECT_EQ(OK, mProducer->disconnect(NATIVE_WINDOW_API_CPU));
    // The producer's reference keeps the buffer valid.
    EXPECT_EQ(1, buffer->getStrongCount());
}

TEST_F(BufferQueueTest, SlotsMoveThroughDequeuedQueuedAcquiredAndFree) {
    connectConsumer();
    ASSERT_EQ(OK, mConsumer->setDefaultBufferSize(64, 32));
    ASSERT_EQ(OK, mConsumer->setDefaultBufferFormat(HAL_PIXEL_FORMAT_YCrCb_420_SP));
    connectProducer();

    int slot = -1;
    sp<Fence> fence;
    status_t result = mProducer->dequeueBuffer(&slot, &fence, 0, 0, 0, kCpuUsage, nullptr, nullptr);
    ASSERT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION, result);
    ASSERT_NE(nullptr, fence);
    // Not requested yet: the queue refuses it.
    EXPECT_EQ(BAD_VALUE, queue(slot));
    sp<GraphicBuffer> buffer;
    ASSERT_EQ(OK, mProducer->requestBuffer(slot, &buffer));
    EXPECT_EQ(64u, buffer->getWidth());
    EXPECT_EQ(HAL_PIXEL_FORMAT_YCrCb_420_SP, buffer->getPixelFormat());

    EXPECT_EQ(BAD_VALUE, queue(slot + 1));  // a slot the producer does not own
    EXPECT_EQ(BAD_VALUE, queue(-1));
    IGraphicBufferProducer::QueueBufferOutput output;
    EXPECT_EQ(BAD_VALUE,
              mProducer->queueBuffer(slot,
                                     IGraphicBufferProducer::QueueBufferInput(
                                             1, false, HAL_DATASPACE_UNKNOWN, Rect(0, 0, 65, 32),
                                             NATIVE_WINDOW_SCALING_MODE_FREEZE, 0, Fence::NO_FENCE),
                                     &output));  // crop outside the buffer
    ASSERT_EQ(OK, queue(slot, 42));
    EXPECT_EQ(1, mListener->frames.load());
    EXPECT_EQ(BAD_VALUE, mProducer->cancelBuffer(slot, Fence::NO_FENCE));  // now queued

    BufferItem item;
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&item, 0));
    EXPECT_EQ(slot, item.mSlot);
    EXPECT_EQ(1u, item.mFrameNumber);
    EXPECT_EQ(42, item.mTimestamp);
    EXPECT_EQ(buffer.get(), item.mGraphicBuffer.get());
    EXPECT_EQ(IGraphicBufferConsumer::NO_BUFFER_AVAILABLE, mConsumer->acquireBuffer(&item, 0));

    EXPECT_EQ(BAD_VALUE, mConsumer->releaseBuffer(slot, 1, nullptr));
    EXPECT_EQ(IGraphicBufferConsumer::STALE_BUFFER_SLOT,
              mConsumer->releaseBuffer(slot, 2, Fence::NO_FENCE));
    ASSERT_EQ(OK, mConsumer->releaseBuffer(slot, 1, Fence::NO_FENCE));
    EXPECT_EQ(BAD_VALUE, mConsumer->releaseBuffer(slot, 1, Fence::NO_FENCE));  // already free

    // The same description reuses the buffer without reallocation; the consumer gets no
    // buffer pointer for a slot it has seen.
    int again = -1;
    EXPECT_EQ(0, mProducer->dequeueBuffer(&again, &fence, 0, 0, 0, kCpuUsage, nullptr, nullptr));
    EXPECT_EQ(slot, again);
    ASSERT_EQ(OK, queue(again));
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&item, 0));
    EXPECT_EQ(nullptr, item.mGraphicBuffer);
    ASSERT_EQ(OK, mConsumer->releaseBuffer(item.mSlot, item.mFrameNumber, Fence::NO_FENCE));

    // Another format needs a new buffer; a cancelled slot is free again.
    EXPECT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION,
              mProducer->dequeueBuffer(&again, &fence, 0, 0, HAL_PIXEL_FORMAT_RGBA_8888, kCpuUsage,
                                       nullptr, nullptr));
    EXPECT_EQ(OK, mProducer->cancelBuffer(again, Fence::NO_FENCE));
    EXPECT_EQ(BAD_VALUE, mProducer->cancelBuffer(again, Fence::NO_FENCE));
}

TEST_F(BufferQueueTest, BufferCountsFollowAndroidsRules) {
    connectConsumer();
    int value = 0;
    ASSERT_EQ(OK, mProducer->query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS, &value));
    EXPECT_EQ(1, value);
    ASSERT_EQ(OK, mConsumer->setMaxAcquiredBufferCount(2));
    EXPECT_EQ(BAD_VALUE, mConsumer->setMaxAcquiredBufferCount(0));
    EXPECT_EQ(BAD_VALUE, mConsumer->setMaxAcquiredBufferCount(63));
    ASSERT_EQ(OK, mProducer->query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS, &value));
    EXPECT_EQ(2, value);
    ASSERT_EQ(OK, mProducer->setAsyncMode(true));
    ASSERT_EQ(OK, mProducer->query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS, &value));
    EXPECT_EQ(3, value);
    ASSERT_EQ(OK, mProducer->setAsyncMode(false));

    connectProducer();
    EXPECT_EQ(INVALID_OPERATION, mConsumer->setMaxAcquiredBufferCount(3));  // connected
    EXPECT_EQ(BAD_VALUE, mProducer->setMaxDequeuedBufferCount(0));
    EXPECT_EQ(BAD_VALUE, mProducer->setMaxDequeuedBufferCount(63));  // 2 + 63 > 64 slots
    ASSERT_EQ(OK, mProducer->setMaxDequeuedBufferCount(62));
    ASSERT_EQ(OK, mProducer->setMaxDequeuedBufferCount(3));

    // Three dequeued at once; before anything was queued nothing counts them.
    int slots[4];
    for (int i = 0; i < 3; i++) slots[i] = dequeue();
    EXPECT_EQ(BAD_VALUE, mProducer->setMaxDequeuedBufferCount(2));  // fewer than dequeued
    ASSERT_EQ(OK, queue(slots[0]));
    slots[3] = dequeue();
    // Once a buffer has been queued, a fourth dequeue exceeds the maximum.
    int extra;
    sp<Fence> fence;
    EXPECT_EQ(INVALID_OPERATION,
              mProducer->dequeueBuffer(&extra, &fence, 0, 0, 0, kCpuUsage, nullptr, nullptr));
}

TEST_F(BufferQueueTest, DequeueTimesOutOrRefusesToBlock) {
    connectConsumer();
    connectProducer();
    ASSERT_EQ(OK, mProducer->setDequeueTimeout(ms2ns(20)));
    // maxAcquired 1 + maxDequeued 1: two buffers, both dequeued.
    dequeue();
    dequeue();
    int slot;
    sp<Fence> fence;
    const nsecs_t start = systemTime();
    EXPECT_EQ(TIMED_OUT,
              mProducer->dequeueBuffer(&slot, &fence, 0, 0, 0, kCpuUsage, nullptr, nullptr));
    EXPECT_GE(systemTime() - start, ms2ns(15));

    // Producer and consumer both controlled by the app, no time-out: WOULD_BLOCK.
    BufferQueue::createBufferQueue(&mProducer, &mConsumer);
    connectConsumer(true);
    connectProducer(NATIVE_WINDOW_API_CPU, true);
    int value = 0;
    ASSERT_EQ(OK, mProducer->query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS, &value));
    EXPECT_EQ(2, value);  // a buffer more because dequeue cannot block
    for (int i = 0; i < 3; i++) dequeue();
    EXPECT_EQ(WOULD_BLOCK,
              mProducer->dequeueBuffer(&slot, &fence, 0, 0, 0, kCpuUsage, nullptr, nullptr));
}

TEST_F(BufferQueueTest, BlockedDequeueResumesWhenTheConsumerReleases) {
    connectConsumer();
    sp<CountingProducerListener> producerListener = new CountingProducerListener();
    connectProducer(NATIVE_WINDOW_API_CPU, false, producerListener);
    ASSERT_EQ(OK, mProducer->setMaxDequeuedBufferCount(2));  // three buffers
    const int a = dequeue();
    ASSERT_EQ(OK, queue(a));
    ASSERT_EQ(OK, queue(dequeue()));
    BufferItem first, second;
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&first, 0));
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&second, 0));
    dequeue();  // the third buffer; none is free now

    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(OK, mConsumer->releaseBuffer(first.mSlot, first.mFrameNumber, Fence::NO_FENCE));
    });
    int slot = -1;
    sp<Fence> fence;
    const nsecs_t start = systemTime();
    EXPECT_EQ(0, mProducer->dequeueBuffer(&slot, &fence, 0, 0, 0, kCpuUsage, nullptr, nullptr));
    EXPECT_GE(systemTime() - start, ms2ns(20));
    releaser.join();
    EXPECT_EQ(a, slot);
    EXPECT_EQ(1, producerListener->released.load());
}

TEST_F(BufferQueueTest, ConsumerMayAcquireOneBufferBeyondItsMaximum) {
    connectConsumer();
    connectProducer();
    ASSERT_EQ(OK, mProducer->setMaxDequeuedBufferCount(3));
    for (int i = 0; i < 3; i++) ASSERT_EQ(OK, queue(dequeue()));
    BufferItem first, second, third;
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&first, 0));
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&second, 0));
    EXPECT_EQ(INVALID_OPERATION, mConsumer->acquireBuffer(&third, 0));
    ASSERT_EQ(OK, mConsumer->releaseBuffer(first.mSlot, first.mFrameNumber, Fence::NO_FENCE));
    EXPECT_EQ(OK, mConsumer->acquireBuffer(&third, 0));
    EXPECT_EQ(3u, third.mFrameNumber);
}

TEST_F(BufferQueueTest, PresentTimeHoldsBackFutureFrames) {
    connectConsumer();
    connectProducer();
    const nsecs_t now = systemTime();
    ASSERT_EQ(OK, queue(dequeue(), now + ms2ns(500)));
    BufferItem item;
    EXPECT_EQ(IGraphicBufferConsumer::PRESENT_LATER, mConsumer->acquireBuffer(&item, now));
    EXPECT_EQ(OK, mConsumer->acquireBuffer(&item, now + ms2ns(600)));
}

TEST_F(BufferQueueTest, ConsumerSettingsShapeTheBuffers) {
    connectConsumer();
    EXPECT_EQ(BAD_VALUE, mConsumer->setDefaultBufferSize(0, 10));
    ASSERT_EQ(OK, mConsumer->setDefaultBufferSize(320, 240));
    ASSERT_EQ(OK, mConsumer->setDefaultBufferFormat(HAL_PIXEL_FORMAT_YCbCr_420_888));
    ASSERT_EQ(OK, mConsumer->setDefaultBufferDataSpace(HAL_DATASPACE_V0_JFIF));
    const uint64_t consumerUsage = GRALLOC_USAGE_HW_TEXTURE | (uint64_t{1} << 40);
    ASSERT_EQ(OK, mConsumer->setConsumerUsageBits(consumerUsage));
    connectProducer();

    int value = 0;
    ASSERT_EQ(OK, mProducer->query(NATIVE_WINDOW_WIDTH, &value));
    EXPECT_EQ(320, value);
    ASSERT_EQ(OK, mProducer->query(NATIVE_WINDOW_FORMAT, &value));
    EXPECT_EQ(HAL_PIXEL_FORMAT_YCbCr_420_888, value);
    ASSERT_EQ(OK, mProducer->query(NATIVE_WINDOW_DEFAULT_DATASPACE, &value));
    EXPECT_EQ(HAL_DATASPACE_V0_JFIF, value);
    ASSERT_EQ(OK, mProducer->query(NATIVE_WINDOW_CONSUMER_USAGE_BITS, &value));
    EXPECT_EQ(GRALLOC_USAGE_HW_TEXTURE, value);  // the low 32 bits only
    uint64_t usage = 0;
    ASSERT_EQ(OK, mProducer->getConsumerUsage(&usage));
    EXPECT_EQ(consumerUsage, usage);
    EXPECT_EQ(BAD_VALUE, mProducer->query(1000, &value));

    sp<GraphicBuffer> buffer;
    int slot = dequeue(&buffer);
    EXPECT_EQ(320u, buffer->getWidth());
    EXPECT_EQ(240u, buffer->getHeight());
    EXPECT_EQ(kCpuUsage | consumerUsage, buffer->getUsage());
    ASSERT_EQ(OK, queue(slot));
    BufferItem item;
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&item, 0));
    EXPECT_EQ(HAL_DATASPACE_V0_JFIF, item.mDataSpace);  // UNKNOWN takes the default

    // Sizes must be both zero or both set.
    sp<Fence> fence;
    EXPECT_EQ(BAD_VALUE,
              mProducer->dequeueBuffer(&slot, &fence, 10, 0, 0, kCpuUsage, nullptr, nullptr));
}

TEST_F(BufferQueueTest, LastQueuedBufferComesWithItsFenceAndTransform) {
    connectConsumer();
    connectProducer();
    sp<GraphicBuffer> last;
    sp<Fence> fence;
    float matrix[16];
    ASSERT_EQ(OK, mProducer->getLastQueuedBuffer(&last, &fence, matrix));
    EXPECT_EQ(nullptr, last);
    EXPECT_EQ(Fence::NO_FENCE, fence);

    sp<GraphicBuffer> buffer;
    int slot = dequeue(&buffer);
    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    sp<Fence> acquireFence = new Fence(pipeFds[0]);
    IGraphicBufferProducer::QueueBufferOutput output;
    ASSERT_EQ(OK,
              mProducer->queueBuffer(slot,
                                     IGraphicBufferProducer::QueueBufferInput(
                                             5, false, HAL_DATASPACE_UNKNOWN, Rect::EMPTY_RECT,
                                             NATIVE_WINDOW_SCALING_MODE_FREEZE, 0, acquireFence),
                                     &output));
    ASSERT_EQ(OK, mProducer->getLastQueuedBuffer(&last, &fence, matrix));
    EXPECT_EQ(buffer.get(), last.get());
    EXPECT_EQ(acquireFence.get(), fence.get());
    // No crop, no transform: the GL-to-memory vertical flip only.
    const float flipV[16] = {1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1};
    for (int i = 0; i < 16; i++) EXPECT_FLOAT_EQ(flipV[i], matrix[i]) << i;
    close(pipeFds[1]);

    // Disconnecting frees the slot: there is no last buffer any more.
    ASSERT_EQ(OK, mProducer->disconnect(NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(OK, mProducer->getLastQueuedBuffer(&last, &fence, matrix));
    EXPECT_EQ(nullptr, last);
}

TEST_F(BufferQueueTest, DiscardedFreeBuffersAreAllocatedAgain) {
    connectConsumer();
    connectProducer();
    int slot = dequeue();
    ASSERT_EQ(OK, mProducer->cancelBuffer(slot, Fence::NO_FENCE));
    ASSERT_EQ(OK, mConsumer->discardFreeBuffers());
    uint64_t released = 0;
    ASSERT_EQ(OK, mConsumer->getReleasedBuffers(&released));
    EXPECT_NE(0u, released & (uint64_t{1} << slot));
    int again;
    sp<Fence> fence;
    EXPECT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION,
              mProducer->dequeueBuffer(&again, &fence, 0, 0, 0, kCpuUsage, nullptr, nullptr));
}

TEST_F(BufferQueueTest, AllocationFailureFreesTheSlot) {
    connectConsumer();
    connectProducer();
    host::injectFault("buffer.allocate", NO_MEMORY);
    int slot;
    sp<Fence> fence;
    EXPECT_EQ(NO_MEMORY,
              mProducer->dequeueBuffer(&slot, &fence, 0, 0, 0, kCpuUsage, nullptr, nullptr));
    // The slot went back: both buffers of the queue can still be dequeued.
    dequeue();
    dequeue();
}

class ConsumerClassesTest : public ::testing::Test {
protected:
    void SetUp() override { BufferQueue::createBufferQueue(&mProducer, &mConsumer); }

    void produce(const std::vector<uint8_t>& contents, int64_t timestamp) {
        int slot;
        sp<Fence> fence;
        ASSERT_GE(mProducer->dequeueBuffer(&slot, &fence, 0, 0, 0, GRALLOC_USAGE_SW_WRITE_OFTEN,
                                           nullptr, nullptr),
                  0);
        sp<GraphicBuffer> buffer;
        ASSERT_EQ(OK, mProducer->requestBuffer(slot, &buffer));
        ASSERT_TRUE(host::writeBufferContents(*buffer, contents.data(), contents.size()));
        IGraphicBufferProducer::QueueBufferOutput output;
        ASSERT_EQ(OK, mProducer->queueBuffer(
                              slot,
                              IGraphicBufferProducer::QueueBufferInput(
                                      timestamp, false, HAL_DATASPACE_UNKNOWN, Rect(2, 2, 8, 6),
                                      NATIVE_WINDOW_SCALING_MODE_SCALE_CROP, 0, Fence::NO_FENCE),
                              &output));
    }

    sp<IGraphicBufferProducer> mProducer;
    sp<IGraphicBufferConsumer> mConsumer;
};

TEST_F(ConsumerClassesTest, CpuConsumerLocksFrameAsFlexibleYuv) {
    hosttest::ScopedProfile phone("phone-nv21");
    sp<CpuConsumer> consumer = new CpuConsumer(mConsumer, 1);
    ASSERT_EQ(OK, consumer->setDefaultBufferSize(100, 10));
    ASSERT_EQ(OK, consumer->setDefaultBufferFormat(HAL_PIXEL_FORMAT_YCrCb_420_SP));
    IGraphicBufferProducer::QueueBufferOutput output;
    ASSERT_EQ(OK, mProducer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output));

    std::vector<uint8_t> nv21(1500);
    for (size_t i = 0; i < nv21.size(); i++) nv21[i] = static_cast<uint8_t>(i % 251);
    produce(nv21, 77);

    CpuConsumer::LockedBuffer locked;
    ASSERT_EQ(OK, consumer->lockNextBuffer(&locked));
    EXPECT_EQ(HAL_PIXEL_FORMAT_YCrCb_420_SP, locked.format);
    EXPECT_EQ(HAL_PIXEL_FORMAT_YCbCr_420_888, locked.flexFormat);
    EXPECT_EQ(128u, locked.stride);
    EXPECT_EQ(2u, locked.chromaStep);
    EXPECT_EQ(locked.dataCr + 1, locked.dataCb);
    EXPECT_EQ(Rect(2, 2, 8, 6), locked.crop);
    EXPECT_EQ(NATIVE_WINDOW_SCALING_MODE_SCALE_CROP, static_cast<int>(locked.scalingMode));
    EXPECT_EQ(77, locked.timestamp);
    for (uint32_t row = 0; row < 10; row++) {
        EXPECT_EQ(0, memcmp(&nv21[row * 100], locked.data + row * locked.stride, 100)) << row;
    }
    EXPECT_EQ(0, memcmp(&nv21[1000 + 4 * 100], locked.dataCr + 4 * locked.chromaStride, 100));

    CpuConsumer::LockedBuffer second;
    EXPECT_EQ(NOT_ENOUGH_DATA, consumer->lockNextBuffer(&second));  // one locked at a time
    ASSERT_EQ(OK, consumer->unlockBuffer(locked));
    EXPECT_EQ(BAD_VALUE, consumer->unlockBuffer(locked));
    EXPECT_EQ(BAD_VALUE, consumer->lockNextBuffer(&second));  // nothing queued
}

TEST_F(ConsumerClassesTest, BufferItemConsumerHandsOutItemsAndAbandonsOnDestruction) {
    sp<BufferItemConsumer> consumer =
            new BufferItemConsumer(mConsumer, GRALLOC_USAGE_SW_READ_OFTEN, 2);
    ASSERT_EQ(OK, consumer->setDefaultBufferSize(10, 10));
    ASSERT_EQ(OK, consumer->setDefaultBufferFormat(HAL_PIXEL_FORMAT_RGBA_8888));
    IGraphicBufferProducer::QueueBufferOutput output;
    ASSERT_EQ(OK, mProducer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output));
    int value = 0;
    ASSERT_EQ(OK, mProducer->query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS, &value));
    EXPECT_EQ(2, value);

    std::vector<uint8_t> pixels(400, 0xC3);
    produce(pixels, 1);
    produce(pixels, 2);
    BufferItem first, second;
    ASSERT_EQ(OK, consumer->acquireBuffer(&first, 0));
    ASSERT_EQ(OK, consumer->acquireBuffer(&second, 0));
    ASSERT_NE(nullptr, first.mGraphicBuffer);
    EXPECT_EQ(pixels, host::readBufferContents(*first.mGraphicBuffer));
    EXPECT_EQ(2, second.mTimestamp);
    ASSERT_EQ(OK, consumer->releaseBuffer(first));
    ASSERT_EQ(OK, consumer->releaseBuffer(second));

    // Produce into a slot the consumer saw before: the item still carries the buffer.
    produce(pixels, 3);
    BufferItem third;
    ASSERT_EQ(OK, consumer->acquireBuffer(&third, 0));
    EXPECT_NE(nullptr, third.mGraphicBuffer);
    ASSERT_EQ(OK, consumer->releaseBuffer(third));

    consumer.clear();  // the last reference abandons the queue
    EXPECT_EQ(NO_INIT, mProducer->query(NATIVE_WINDOW_WIDTH, &value));
}

}  // namespace
