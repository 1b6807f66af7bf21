// libgui on the host: the buffer queue (slots, codes, counts, APIs, abandonment, time-outs, the
// consumers) and android::Surface as the library drives it (queries, faults, fences, leaks).

#include <gtest/gtest.h>
#include <gui/BufferItemConsumer.h>
#include <gui/BufferQueue.h>
#include <gui/CpuConsumer.h>
#include <gui/IProducerListener.h>
#include <gui/Surface.h>
#include <ui/HostGrallocLayout.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <tuple>

#include "ui_test_support.h"

using namespace android;

namespace {

constexpr uint64_t kCpuUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

struct CountingConsumerListener : public BnConsumerListener {
    void onFrameAvailable(const BufferItem&) override { frames++; }
    void onBuffersReleased() override {}
    void onSidebandStreamChanged() override {}
    void onDisconnect() override { disconnects++; }
    std::atomic<int> frames{0}, disconnects{0};
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

    status_t connect(int api = NATIVE_WINDOW_API_CPU, bool controlledByApp = false,
                     const sp<IProducerListener>& listener = nullptr) {
        IGraphicBufferProducer::QueueBufferOutput output;
        return mProducer->connect(listener, api, controlledByApp, &output);
    }

    // The status of a dequeue of the given size and format (zero: the consumer's defaults).
    status_t tryDequeue(int* slot = nullptr, uint32_t w = 0, uint32_t h = 0, PixelFormat format = 0,
                        sp<Fence>* fence = nullptr) {
        int ignoredSlot = -1;
        sp<Fence> ignoredFence;
        return mProducer->dequeueBuffer(slot ? slot : &ignoredSlot, fence ? fence : &ignoredFence,
                                        w, h, format, kCpuUsage, nullptr, nullptr);
    }

    // Dequeues (default size and format) and fetches the slot's buffer.
    int dequeue(sp<GraphicBuffer>* buffer = nullptr) {
        int slot = -1;
        EXPECT_GE(tryDequeue(&slot), 0);
        sp<GraphicBuffer> requested;
        EXPECT_EQ(OK, mProducer->requestBuffer(slot, buffer ? buffer : &requested));
        return slot;
    }

    status_t queue(int slot, int64_t timestamp = 1, Rect crop = Rect::EMPTY_RECT,
                   int scalingMode = NATIVE_WINDOW_SCALING_MODE_FREEZE) {
        IGraphicBufferProducer::QueueBufferInput input(timestamp, false, HAL_DATASPACE_UNKNOWN,
                                                       crop, scalingMode, 0, Fence::NO_FENCE);
        IGraphicBufferProducer::QueueBufferOutput output;
        return mProducer->queueBuffer(slot, input, &output);
    }

    int query(int what) {
        int value = -1;
        EXPECT_EQ(OK, mProducer->query(what, &value)) << what;
        return value;
    }

    status_t release(const BufferItem& item) {
        return mConsumer->releaseBuffer(item.mSlot, item.mFrameNumber, Fence::NO_FENCE);
    }

    sp<GraphicBuffer> produce(int64_t timestamp, const std::vector<uint8_t>& contents = {}) {
        sp<GraphicBuffer> buffer;
        const int slot = dequeue(&buffer);
        if (!contents.empty()) {
            EXPECT_TRUE(host::writeBufferContents(*buffer, contents.data(), contents.size()));
        }
        EXPECT_EQ(OK,
                  queue(slot, timestamp, Rect(2, 2, 8, 6), NATIVE_WINDOW_SCALING_MODE_SCALE_CROP));
        return buffer;
    }

    sp<IGraphicBufferProducer> mProducer;
    sp<IGraphicBufferConsumer> mConsumer;
    sp<CountingConsumerListener> mListener;
};

TEST_F(BufferQueueTest, ConnectionIsPerApiAndAnAbandonedQueueAnswersNoInit) {
    EXPECT_EQ(NO_INIT, connect());  // no consumer yet
    connectConsumer();
    for (int api : {0, 5}) EXPECT_EQ(BAD_VALUE, connect(api));
    EXPECT_EQ(BAD_VALUE, mProducer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, nullptr));

    EXPECT_EQ(NO_INIT, mProducer->disconnect(NATIVE_WINDOW_API_CAMERA));  // not connected
    IGraphicBufferProducer::QueueBufferOutput output;
    ASSERT_EQ(OK, mProducer->connect(nullptr, NATIVE_WINDOW_API_CAMERA, false, &output));
    EXPECT_EQ(1u, output.width);
    EXPECT_EQ(1u, output.nextFrameNumber);
    // Connected: again by any API, or disconnecting another API than the connected one.
    EXPECT_EQ(BAD_VALUE, connect(NATIVE_WINDOW_API_CAMERA));
    EXPECT_EQ(BAD_VALUE, connect(NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(BAD_VALUE, mProducer->disconnect(NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(BAD_VALUE, mProducer->disconnect(7));

    int slot = dequeue();
    EXPECT_EQ(OK, mProducer->disconnect(NATIVE_WINDOW_API_CAMERA));
    EXPECT_EQ(1, mListener->disconnects.load());
    // Disconnecting freed the dequeued slot; nothing works until the next connect.
    EXPECT_EQ(NO_INIT, queue(slot));
    EXPECT_EQ(NO_INIT, tryDequeue());
    ASSERT_EQ(OK, connect(NATIVE_WINDOW_API_EGL));

    // The consumer abandons the queue with a buffer dequeued.
    sp<GraphicBuffer> buffer, requested;
    slot = dequeue(&buffer);
    ASSERT_EQ(OK, mConsumer->consumerDisconnect());
    EXPECT_EQ(BAD_VALUE, mConsumer->consumerDisconnect());  // no consumer any more
    int value = 0;
    EXPECT_EQ(NO_INIT, queue(slot));
    EXPECT_EQ(NO_INIT, mProducer->cancelBuffer(slot, Fence::NO_FENCE));
    EXPECT_EQ(NO_INIT, mProducer->requestBuffer(slot, &requested));
    EXPECT_EQ(NO_INIT, tryDequeue());
    EXPECT_EQ(NO_INIT, mProducer->query(NATIVE_WINDOW_WIDTH, &value));
    EXPECT_EQ(NO_INIT, mProducer->setMaxDequeuedBufferCount(2));
    EXPECT_EQ(NO_INIT, mProducer->setAsyncMode(true));
    EXPECT_EQ(NO_INIT, connect());
    EXPECT_EQ(NO_INIT, mConsumer->consumerConnect(mListener, false));
    // Disconnecting from an abandoned queue is a no-op.
    EXPECT_EQ(OK, mProducer->disconnect(NATIVE_WINDOW_API_EGL));
    // The producer's reference keeps the buffer valid.
    EXPECT_EQ(1, buffer->getStrongCount());
}

// The consumer's settings shape the buffers; slots go dequeued, queued, acquired and free.
TEST_F(BufferQueueTest, ConsumerSettingsShapeBuffersThatMoveThroughTheSlotStates) {
    connectConsumer();
    EXPECT_EQ(BAD_VALUE, mConsumer->setDefaultBufferSize(0, 10));
    ASSERT_EQ(OK, mConsumer->setDefaultBufferSize(320, 240));
    ASSERT_EQ(OK, mConsumer->setDefaultBufferFormat(HAL_PIXEL_FORMAT_YCbCr_420_888));
    ASSERT_EQ(OK, mConsumer->setDefaultBufferDataSpace(HAL_DATASPACE_V0_JFIF));
    const uint64_t consumerUsage = GRALLOC_USAGE_HW_TEXTURE | (uint64_t{1} << 40);
    ASSERT_EQ(OK, mConsumer->setConsumerUsageBits(consumerUsage));
    ASSERT_EQ(OK, connect());
    // 64-bit usage: SurfaceConfigurationTest.QueriesReturnTheConsumersValuesAndRefuseBadArrays.
    EXPECT_EQ(320, query(NATIVE_WINDOW_WIDTH));
    EXPECT_EQ(HAL_PIXEL_FORMAT_YCbCr_420_888, query(NATIVE_WINDOW_FORMAT));
    EXPECT_EQ(HAL_DATASPACE_V0_JFIF, query(NATIVE_WINDOW_DEFAULT_DATASPACE));
    EXPECT_EQ(GRALLOC_USAGE_HW_TEXTURE, query(NATIVE_WINDOW_CONSUMER_USAGE_BITS));  // low 32 bits
    int value = 0;
    EXPECT_EQ(BAD_VALUE, mProducer->query(1000, &value));
    EXPECT_EQ(BAD_VALUE, tryDequeue(nullptr, 10, 0));  // sizes are both zero or both set

    int slot = -1;
    sp<Fence> fence;
    ASSERT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION,
              tryDequeue(&slot, 0, 0, 0, &fence));
    ASSERT_NE(nullptr, fence);
    EXPECT_EQ(BAD_VALUE, queue(slot));  // not requested yet
    sp<GraphicBuffer> buffer;
    ASSERT_EQ(OK, mProducer->requestBuffer(slot, &buffer));
    EXPECT_EQ(Rect(320, 240), buffer->getBounds());
    EXPECT_EQ(HAL_PIXEL_FORMAT_YCbCr_420_888, buffer->getPixelFormat());
    EXPECT_EQ(kCpuUsage | consumerUsage, buffer->getUsage());

    EXPECT_EQ(BAD_VALUE, queue(slot + 1));  // a slot the producer does not own
    EXPECT_EQ(BAD_VALUE, queue(-1));
    EXPECT_EQ(BAD_VALUE, queue(slot, 1, Rect(0, 0, 321, 240)));  // crop outside the buffer
    ASSERT_EQ(OK, queue(slot, 42));
    EXPECT_EQ(1, mListener->frames.load());
    EXPECT_EQ(BAD_VALUE, mProducer->cancelBuffer(slot, Fence::NO_FENCE));  // now queued

    BufferItem item;
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&item, 0));
    EXPECT_EQ(std::make_tuple(slot, uint64_t{1}, int64_t{42}, HAL_DATASPACE_V0_JFIF, buffer.get()),
              std::make_tuple(item.mSlot, item.mFrameNumber, item.mTimestamp, item.mDataSpace,
                              item.mGraphicBuffer.get()));  // queued UNKNOWN: the default space
    EXPECT_EQ(IGraphicBufferConsumer::NO_BUFFER_AVAILABLE, mConsumer->acquireBuffer(&item, 0));

    EXPECT_EQ(BAD_VALUE, mConsumer->releaseBuffer(slot, 1, nullptr));
    EXPECT_EQ(IGraphicBufferConsumer::STALE_BUFFER_SLOT,
              mConsumer->releaseBuffer(slot, 2, Fence::NO_FENCE));
    ASSERT_EQ(OK, mConsumer->releaseBuffer(slot, 1, Fence::NO_FENCE));
    EXPECT_EQ(BAD_VALUE, mConsumer->releaseBuffer(slot, 1, Fence::NO_FENCE));  // already free

    // The same description reuses the buffer, which the consumer is not handed again.
    int again = -1;
    EXPECT_EQ(0, tryDequeue(&again));
    EXPECT_EQ(slot, again);
    ASSERT_EQ(OK, queue(again));
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&item, 0));
    EXPECT_EQ(nullptr, item.mGraphicBuffer);
    ASSERT_EQ(OK, release(item));

    // Another format needs a new buffer; a cancelled slot is free again.
    constexpr PixelFormat kRgba = HAL_PIXEL_FORMAT_RGBA_8888;
    EXPECT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION, tryDequeue(&again, 0, 0, kRgba));
    EXPECT_EQ(OK, mProducer->cancelBuffer(again, Fence::NO_FENCE));
    EXPECT_EQ(BAD_VALUE, mProducer->cancelBuffer(again, Fence::NO_FENCE));

    // Discarded buffers are allocated again; a failed allocation gives its slot back.
    ASSERT_EQ(OK, mConsumer->discardFreeBuffers());
    uint64_t released = 0;
    ASSERT_EQ(OK, mConsumer->getReleasedBuffers(&released));
    EXPECT_NE(0u, released & (uint64_t{1} << again));
    host::injectFault("buffer.allocate", NO_MEMORY);
    EXPECT_EQ(NO_MEMORY, tryDequeue(nullptr, 0, 0, kRgba));
    EXPECT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION, tryDequeue(nullptr, 0, 0, kRgba));
}

TEST_F(BufferQueueTest, BufferCountsFollowAndroidsRules) {
    connectConsumer();
    EXPECT_EQ(1, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    ASSERT_EQ(OK, mConsumer->setMaxAcquiredBufferCount(2));
    EXPECT_EQ(BAD_VALUE, mConsumer->setMaxAcquiredBufferCount(0));
    EXPECT_EQ(BAD_VALUE, mConsumer->setMaxAcquiredBufferCount(63));
    EXPECT_EQ(2, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    ASSERT_EQ(OK, mProducer->setAsyncMode(true));
    EXPECT_EQ(3, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    ASSERT_EQ(OK, mProducer->setAsyncMode(false));

    ASSERT_EQ(OK, connect());
    EXPECT_EQ(INVALID_OPERATION, mConsumer->setMaxAcquiredBufferCount(3));  // connected
    EXPECT_EQ(BAD_VALUE, mProducer->setMaxDequeuedBufferCount(0));
    EXPECT_EQ(BAD_VALUE, mProducer->setMaxDequeuedBufferCount(63));  // 2 + 63 > 64 slots
    ASSERT_EQ(OK, mProducer->setMaxDequeuedBufferCount(62));
    ASSERT_EQ(OK, mProducer->setMaxDequeuedBufferCount(3));

    // Three dequeued at once; before anything was queued nothing counts them.
    int slots[3];
    for (int& slot : slots) slot = dequeue();
    EXPECT_EQ(BAD_VALUE, mProducer->setMaxDequeuedBufferCount(2));  // fewer than dequeued
    ASSERT_EQ(OK, queue(slots[0]));
    slots[0] = dequeue();
    // Once a buffer has been queued, a fourth dequeue exceeds the maximum.
    EXPECT_EQ(INVALID_OPERATION, tryDequeue());

    // The consumer may acquire one buffer beyond its maximum of two.
    for (int slot : slots) ASSERT_EQ(OK, queue(slot));
    BufferItem items[4];
    for (int i = 0; i < 3; i++) ASSERT_EQ(OK, mConsumer->acquireBuffer(&items[i], 0));
    EXPECT_EQ(INVALID_OPERATION, mConsumer->acquireBuffer(&items[3], 0));
    ASSERT_EQ(OK, release(items[0]));
    EXPECT_EQ(OK, mConsumer->acquireBuffer(&items[3], 0));
    EXPECT_EQ(4u, items[3].mFrameNumber);

    // A present time in the future holds the frame back.
    ASSERT_EQ(OK, release(items[1]));
    const nsecs_t now = systemTime();
    ASSERT_EQ(OK, queue(dequeue(), now + ms2ns(500)));
    EXPECT_EQ(IGraphicBufferConsumer::PRESENT_LATER, mConsumer->acquireBuffer(&items[0], now));
    EXPECT_EQ(OK, mConsumer->acquireBuffer(&items[0], now + ms2ns(600)));
}

TEST_F(BufferQueueTest, DequeueWaitsForAReleaseTimesOutOrRefusesToBlock) {
    connectConsumer();
    sp<CountingProducerListener> producerListener = new CountingProducerListener();
    ASSERT_EQ(OK, connect(NATIVE_WINDOW_API_CPU, false, producerListener));
    ASSERT_EQ(OK, mProducer->setMaxDequeuedBufferCount(2));  // three buffers
    const int first = dequeue();
    ASSERT_EQ(OK, queue(first));
    ASSERT_EQ(OK, queue(dequeue()));
    BufferItem item, second;
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&item, 0));
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&second, 0));
    dequeue();  // the third buffer; none is free now
    ASSERT_EQ(OK, mProducer->setDequeueTimeout(ms2ns(20)));
    nsecs_t start = systemTime();
    EXPECT_EQ(TIMED_OUT, tryDequeue());
    EXPECT_GE(systemTime() - start, ms2ns(15));

    ASSERT_EQ(OK, mProducer->setDequeueTimeout(-1));  // no time-out: wait for the release
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(OK, release(item));
    });
    int slot = -1;
    start = systemTime();
    EXPECT_EQ(0, tryDequeue(&slot));
    EXPECT_GE(systemTime() - start, ms2ns(20));
    releaser.join();
    EXPECT_EQ(first, slot);
    EXPECT_EQ(1, producerListener->released.load());

    // Producer and consumer both controlled by the app, no time-out: WOULD_BLOCK.
    BufferQueue::createBufferQueue(&mProducer, &mConsumer);
    connectConsumer(true);
    ASSERT_EQ(OK, connect(NATIVE_WINDOW_API_CPU, true));
    EXPECT_EQ(2, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));  // one more: dequeue cannot block
    for (int i = 0; i < 3; i++) dequeue();
    EXPECT_EQ(WOULD_BLOCK, tryDequeue());
}

// The consumer classes on the queue of BufferQueueTest (whose listener stays unconnected).
using ConsumerClassesTest = BufferQueueTest;

TEST_F(ConsumerClassesTest, CpuConsumerLocksFrameAsFlexibleYuv) {
    hosttest::ScopedProfile phone("phone-nv21");
    sp<CpuConsumer> consumer = new CpuConsumer(mConsumer, 1);
    ASSERT_EQ(OK, consumer->setDefaultBufferSize(100, 10));
    ASSERT_EQ(OK, consumer->setDefaultBufferFormat(HAL_PIXEL_FORMAT_YCrCb_420_SP));
    ASSERT_EQ(OK, connect());

    std::vector<uint8_t> nv21(1500);
    for (size_t i = 0; i < nv21.size(); i++) nv21[i] = static_cast<uint8_t>(i % 251);
    produce(77, nv21);

    CpuConsumer::LockedBuffer locked;
    ASSERT_EQ(OK, consumer->lockNextBuffer(&locked));
    EXPECT_EQ(std::make_tuple(HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_YCbCr_420_888, 128u,
                              2u, locked.dataCr + 1, Rect(2, 2, 8, 6),
                              uint32_t{NATIVE_WINDOW_SCALING_MODE_SCALE_CROP}, int64_t{77}),
              std::make_tuple(locked.format, locked.flexFormat, locked.stride, locked.chromaStep,
                              locked.dataCb, locked.crop, locked.scalingMode, locked.timestamp));
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
    ASSERT_EQ(OK, consumer->setDefaultBufferSize(10, 10));  // room for the crop
    ASSERT_EQ(OK, connect());
    const sp<GraphicBuffer> firstBuffer = produce(1);
    produce(2);
    BufferItem first, second;
    ASSERT_EQ(OK, consumer->acquireBuffer(&first, 0));
    ASSERT_EQ(OK, consumer->acquireBuffer(&second, 0));
    EXPECT_EQ(firstBuffer.get(), first.mGraphicBuffer.get());
    EXPECT_EQ(2, second.mTimestamp);
    ASSERT_EQ(OK, consumer->releaseBuffer(first));

    // Produced again into the slot the consumer saw: the item still carries the buffer.
    produce(3);
    ASSERT_EQ(OK, consumer->acquireBuffer(&first, 0));
    EXPECT_EQ(firstBuffer.get(), first.mGraphicBuffer.get());

    consumer.clear();  // the last reference abandons the queue
    EXPECT_EQ(NO_INIT, tryDequeue());
}

class SurfaceTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::resetFaultsAndCalls();
        BufferQueue::createBufferQueue(&mProducer, &mQueueConsumer);
        mConsumer = new BufferItemConsumer(mQueueConsumer, GRALLOC_USAGE_SW_READ_OFTEN, 2);
        ASSERT_EQ(OK, mConsumer->setDefaultBufferSize(64, 48));
        ASSERT_EQ(OK, mConsumer->setDefaultBufferFormat(HAL_PIXEL_FORMAT_RGBA_8888));
        mSurface = new Surface(mProducer);
        mWindow = mSurface.get();
        ASSERT_EQ(OK, native_window_api_connect(mWindow, NATIVE_WINDOW_API_CPU));
    }

    // Dequeues one buffer, waiting for its fence.
    ANativeWindowBuffer* dequeue(status_t expected = OK) {
        ANativeWindowBuffer* anb = nullptr;
        EXPECT_EQ(expected, native_window_dequeue_buffer_and_wait(mWindow, &anb));
        return anb;
    }

    BufferItem acquire() {
        BufferItem item;
        EXPECT_EQ(OK, mConsumer->acquireBuffer(&item, 0));
        return item;
    }

    // Produces one buffer, then acquires and releases it; returns what the consumer got.
    BufferItem cycle() {
        EXPECT_EQ(OK, mWindow->queueBuffer(mWindow, dequeue(), -1));
        BufferItem item = acquire();
        EXPECT_EQ(OK, mConsumer->releaseBuffer(item));
        return item;
    }

    int query(int what) {
        int value = -12345;
        EXPECT_EQ(OK, mWindow->query(mWindow, what, &value)) << what;
        return value;
    }

    sp<IGraphicBufferProducer> mProducer;
    sp<IGraphicBufferConsumer> mQueueConsumer;
    sp<BufferItemConsumer> mConsumer;
    sp<Surface> mSurface;
    ANativeWindow* mWindow = nullptr;
};

// Queries other than the Surface's own, and connections, reach the queue (BufferQueueTest's).
TEST_F(SurfaceTest, QueriesPerformAndConnectAnswerFromTheSurfaceOrTheQueue) {
    EXPECT_EQ(NATIVE_WINDOW_SURFACE, query(NATIVE_WINDOW_CONCRETE_TYPE));
    EXPECT_EQ(NAME_NOT_FOUND, mWindow->perform(mWindow, NATIVE_WINDOW_LOCK, nullptr, nullptr));
    EXPECT_EQ(BAD_VALUE, native_window_set_scaling_mode(mWindow, 4));
    EXPECT_EQ(BAD_VALUE, native_window_set_buffers_dimensions(mWindow, 10, 0));
    EXPECT_EQ(BAD_VALUE, native_window_set_buffers_user_dimensions(mWindow, 0, 10));
    // The deprecated connect request does nothing (connected, a connect fails) and succeeds.
    EXPECT_EQ(OK, mWindow->perform(mWindow, NATIVE_WINDOW_CONNECT, NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(BAD_VALUE, mSurface->connect(NATIVE_WINDOW_API_CAMERA, nullptr, false));

    // A format set by the producer is the Surface's answer until it disconnects.
    ASSERT_EQ(OK, native_window_set_buffers_format(mWindow, HAL_PIXEL_FORMAT_YV12));
    EXPECT_EQ(HAL_PIXEL_FORMAT_YV12, query(NATIVE_WINDOW_FORMAT));
    ASSERT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(HAL_PIXEL_FORMAT_RGBA_8888, query(NATIVE_WINDOW_FORMAT));
}

// Size, format, transform, scaling, explicit timestamp and data space: SurfaceConfigurationTest.
TEST_F(SurfaceTest, ProducerSettingsShapeAndTravelWithEachBuffer) {
    const uint64_t usage = GRALLOC_USAGE_SW_WRITE_OFTEN | (uint64_t{1} << 33);
    ASSERT_EQ(OK, native_window_set_usage(mWindow, usage));
    ASSERT_EQ(OK, native_window_set_buffers_timestamp(mWindow, 123456789));
    android_native_rect_t crop = {10, 20, 30, 40};
    ASSERT_EQ(OK, native_window_set_crop(mWindow, &crop));
    BufferItem item = cycle();
    EXPECT_EQ(std::make_tuple(usage | GRALLOC_USAGE_SW_READ_OFTEN, int64_t{123456789}, false,
                              Rect(10, 20, 30, 40), NATIVE_WINDOW_API_CPU),
              std::make_tuple(item.mGraphicBuffer->getUsage(), item.mTimestamp,
                              item.mIsAutoTimestamp, item.mCrop, item.mApi));

    // The timestamp stays until changed; AUTO stamps each buffer at its queue.
    EXPECT_EQ(123456789, cycle().mTimestamp);
    ASSERT_EQ(OK, native_window_set_buffers_timestamp(mWindow, NATIVE_WINDOW_TIMESTAMP_AUTO));
    const nsecs_t before = systemTime(SYSTEM_TIME_MONOTONIC);
    item = cycle();
    EXPECT_TRUE(item.mIsAutoTimestamp);
    EXPECT_GE(item.mTimestamp, before);
    EXPECT_LE(item.mTimestamp, systemTime(SYSTEM_TIME_MONOTONIC));

    // User dimensions apply only without buffer dimensions; with neither, the consumer's default.
    const struct {
        int bufferW, userW;
        uint32_t width;
    } steps[] = {{0, 100, 100}, {30, 100, 30}, {0, 0, 64}};
    for (const auto& c : steps) {
        ASSERT_EQ(OK, native_window_set_buffers_dimensions(mWindow, c.bufferW, c.bufferW));
        ASSERT_EQ(OK, native_window_set_buffers_user_dimensions(mWindow, c.userW, c.userW));
        EXPECT_EQ(c.userW ? c.userW : 64, query(NATIVE_WINDOW_DEFAULT_WIDTH));
        EXPECT_EQ(c.width, cycle().mGraphicBuffer->getWidth()) << c.bufferW << "/" << c.userW;
    }
}

// The connect fault: SurfaceConnectionTest.EachFailingStepStopsTheSequenceWithBothLines.
TEST_F(SurfaceTest, EveryWindowRequestIsRecordedAndInjectable) {
    host::clearRecordedCalls();
    ANativeWindowBuffer* anb = dequeue();
    query(NATIVE_WINDOW_FORMAT);
    ASSERT_EQ(OK, mWindow->queueBuffer(mWindow, anb, -1));
    EXPECT_EQ(NAME_NOT_FOUND, mWindow->perform(mWindow, 1000));
    // A perform request that leads to a Surface method is recorded as the request only.
    ASSERT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(OK, mSurface->connect(NATIVE_WINDOW_API_CPU, nullptr, false));
    ASSERT_EQ(OK, mSurface->setDequeueTimeout(0));
    const std::vector<std::string> requests = {
            "window.dequeueBuffer",     "window.query.FORMAT",           "window.queueBuffer",
            "window.perform.1000",      "window.perform.API_DISCONNECT", "surface.connect",
            "surface.setDequeueTimeout"};
    EXPECT_EQ(requests, host::recordedCalls());

    // Faults armed once, twice and until cleared.
    host::injectFault("window.query.WIDTH", NO_INIT);
    int value = 0;
    EXPECT_EQ(NO_INIT, mWindow->query(mWindow, NATIVE_WINDOW_WIDTH, &value));
    EXPECT_EQ(64, query(NATIVE_WINDOW_WIDTH));
    host::injectFault("window.perform.SET_BUFFERS_DATASPACE", BAD_VALUE, 2);
    for (status_t expected : {BAD_VALUE, BAD_VALUE, OK}) {
        EXPECT_EQ(expected, native_window_set_buffers_data_space(mWindow, HAL_DATASPACE_V0_JFIF));
    }
    host::injectFault("window.perform.GET_CONSUMER_USAGE64", -1, -1);
    uint64_t usage = 0;
    for (int i = 0; i < 3; i++) EXPECT_EQ(-1, native_window_get_consumer_usage(mWindow, &usage));
    host::clearFaults();
    EXPECT_EQ(OK, native_window_get_consumer_usage(mWindow, &usage));
}

TEST_F(SurfaceTest, FailedOrAbandonedQueueLeavesACancelThatSucceeds) {
    ANativeWindowBuffer* anb = dequeue();
    const int fdsBefore = hosttest::openFdCount();
    host::injectFault("window.queueBuffer", NO_MEMORY);
    EXPECT_EQ(NO_MEMORY, mWindow->queueBuffer(mWindow, anb, dup(STDERR_FILENO)));
    EXPECT_EQ(fdsBefore, hosttest::openFdCount());  // the fence was taken
    EXPECT_EQ(OK, mWindow->cancelBuffer(mWindow, anb, -1));

    // Abandoned: requests fail, but cancel and disconnect succeed; the Surface's format stays.
    ASSERT_EQ(OK, native_window_set_buffers_format(mWindow, HAL_PIXEL_FORMAT_YV12));
    anb = dequeue();
    mConsumer->abandon();
    EXPECT_EQ(NO_INIT, mWindow->queueBuffer(mWindow, anb, -1));
    EXPECT_EQ(OK, mWindow->cancelBuffer(mWindow, anb, -1));
    int value = 0, fenceFd = -1;
    EXPECT_EQ(NO_INIT, mWindow->query(mWindow, NATIVE_WINDOW_WIDTH, &value));
    EXPECT_EQ(HAL_PIXEL_FORMAT_YV12, query(NATIVE_WINDOW_FORMAT));
    EXPECT_EQ(NO_INIT, mWindow->dequeueBuffer(mWindow, &anb, &fenceFd));
    EXPECT_EQ(NO_INIT, native_window_api_connect(mWindow, NATIVE_WINDOW_API_CAMERA));
    EXPECT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));
    // A buffer the Surface never handed out is refused.
    sp<GraphicBuffer> stranger =
            new GraphicBuffer(8, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1, GRALLOC_USAGE_SW_READ_OFTEN);
    EXPECT_EQ(BAD_VALUE, mWindow->cancelBuffer(mWindow, stranger->getNativeBuffer(), -1));
}

TEST_F(SurfaceTest, BufferCountAndTheWaitForTheReleaseFence) {
    // The count less the minimum undequeued (2) is the maximum dequeued: 1 to 64 less it.
    EXPECT_EQ(BAD_VALUE, native_window_set_buffer_count(mWindow, 2));
    EXPECT_EQ(BAD_VALUE, native_window_set_buffer_count(mWindow, 67));
    ASSERT_EQ(OK, native_window_set_buffer_count(mWindow, 4));
    ANativeWindowBuffer* anb = dequeue();
    ASSERT_EQ(OK, mWindow->queueBuffer(mWindow, anb, -1));

    // The consumer releases with a fence that signals later.
    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    ASSERT_EQ(OK, mConsumer->releaseBuffer(acquire(), new Fence(pipeFds[0])));
    std::thread signaller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        char byte = 1;
        EXPECT_EQ(1, write(pipeFds[1], &byte, 1));
    });
    const int fdsBefore = hosttest::openFdCount();
    const nsecs_t start = systemTime();
    ANativeWindowBuffer* again = dequeue();
    EXPECT_GE(systemTime() - start, ms2ns(30));
    signaller.join();
    EXPECT_EQ(anb, again);
    // The duplicate of the fence handed to the producer was closed after the wait.
    EXPECT_EQ(fdsBefore, hosttest::openFdCount());
    close(pipeFds[1]);

    // Two may be dequeued at once; once a buffer has been queued, a third is refused.
    dequeue();
    dequeue(INVALID_OPERATION);
}

TEST_F(SurfaceTest, LastQueuedBufferComesWithItsFenceAndTransform) {
    sp<GraphicBuffer> last;
    sp<Fence> fence;
    float matrix[16];
    ASSERT_EQ(OK, mSurface->getLastQueuedBuffer(&last, &fence, matrix));
    EXPECT_EQ(nullptr, last);
    EXPECT_EQ(Fence::NO_FENCE, fence);

    ASSERT_EQ(OK, mWindow->queueBuffer(mWindow, dequeue(), -1));
    ANativeWindowBuffer* latest = dequeue();
    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    ASSERT_EQ(OK, mWindow->queueBuffer(mWindow, latest, pipeFds[0]));
    ASSERT_EQ(OK, mSurface->getLastQueuedBuffer(&last, &fence, matrix));
    EXPECT_EQ(GraphicBuffer::from(latest).get(), last.get());
    EXPECT_EQ(Fence::Status::Unsignaled, fence->getStatus());  // the acquire fence queued
    // No crop, no transform: the GL-to-memory vertical flip only.
    const float flipV[16] = {1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1};
    for (int i = 0; i < 16; i++) EXPECT_FLOAT_EQ(flipV[i], matrix[i]) << i;
    close(pipeFds[1]);

    host::injectFault("surface.getLastQueuedBuffer", INVALID_OPERATION);
    EXPECT_EQ(INVALID_OPERATION, mSurface->getLastQueuedBuffer(&last, &fence, matrix));

    // A second Surface on the producer sees the same frame, until a disconnect frees the slots.
    sp<Surface> twin = new Surface(mSurface->getIGraphicBufferProducer());
    ASSERT_EQ(OK, twin->getLastQueuedBuffer(&last, &fence, matrix));
    EXPECT_EQ(GraphicBuffer::from(latest).get(), last.get());
    ASSERT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(OK, twin->getLastQueuedBuffer(&last, &fence, matrix));
    EXPECT_EQ(nullptr, last);
}

// Allocation, reuse, reallocation, locks, imports of the handle and freeing, 2000 times over.
TEST_F(SurfaceTest, ThousandsOfFramesLeakNoDescriptorOrMapping) {
    const int fdsBefore = hosttest::openFdCount();
    const size_t liveBefore = host::grallocLiveBufferCount();
    const int32_t formats[] = {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_RGBA_8888,
                               HAL_PIXEL_FORMAT_YV12};
    for (int i = 0; i < 2000; i++) {
        if (i % 500 == 0) {
            // Reconnect now and then, so buffers are freed and allocated again.
            ASSERT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));
            ASSERT_EQ(OK, native_window_api_connect(mWindow, NATIVE_WINDOW_API_CPU));
            ASSERT_EQ(OK, native_window_set_usage(mWindow, GRALLOC_USAGE_SW_WRITE_OFTEN));
        }
        // Change the format now and then, so that buffers are reallocated as well as reused.
        ASSERT_EQ(OK, native_window_set_buffers_format(mWindow, formats[(i / 100) % 3]));
        ANativeWindowBuffer* anb = dequeue();
        ASSERT_NE(nullptr, anb);
        sp<GraphicBuffer> buffer = GraphicBuffer::from(anb);
        android_ycbcr ycbcr{};
        ASSERT_EQ(OK, buffer->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr));
        ASSERT_EQ(OK, buffer->unlock());
        if (i % 10 == 0) {
            sp<GraphicBuffer> clone = new GraphicBuffer(buffer->handle, GraphicBuffer::CLONE_HANDLE,
                                                        buffer->getWidth(), buffer->getHeight(),
                                                        buffer->getPixelFormat(), 1,
                                                        buffer->getUsage(), buffer->getStride());
            ASSERT_EQ(OK, clone->initCheck());
        }
        if (i % 3 == 0) {
            ASSERT_EQ(OK, mWindow->cancelBuffer(mWindow, anb, -1));
            continue;
        }
        ASSERT_EQ(OK, mWindow->queueBuffer(mWindow, anb, -1));
        ASSERT_EQ(OK, mConsumer->releaseBuffer(acquire()));
    }
    ASSERT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(fdsBefore, hosttest::openFdCount());
    EXPECT_EQ(liveBefore, host::grallocLiveBufferCount());
}

}  // namespace
