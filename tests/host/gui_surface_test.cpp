// android::Surface through its ANativeWindow entries, as the library drives it: queries,
// perform requests, the values recorded with each queued buffer, buffer counts, fault points
// and the call record, fences and descriptor hygiene.

#include <gtest/gtest.h>
#include <gui/BufferItemConsumer.h>
#include <gui/BufferQueue.h>
#include <gui/Surface.h>
#include <ui/HostGrallocLayout.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <chrono>
#include <thread>

#include "ui_test_support.h"

using namespace android;

namespace {

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
    }

    void TearDown() override { host::resetFaultsAndCalls(); }

    void connect() { ASSERT_EQ(OK, native_window_api_connect(mWindow, NATIVE_WINDOW_API_CPU)); }

    // Dequeues (waiting for the fence), optionally fills, and queues one buffer.
    sp<GraphicBuffer> produceOne(const std::vector<uint8_t>* contents = nullptr) {
        ANativeWindowBuffer* anb = nullptr;
        EXPECT_EQ(OK, native_window_dequeue_buffer_and_wait(mWindow, &anb));
        if (anb == nullptr) return nullptr;
        sp<GraphicBuffer> buffer = GraphicBuffer::from(anb);
        if (contents != nullptr) {
            EXPECT_TRUE(host::writeBufferContents(*buffer, contents->data(), contents->size()));
        }
        EXPECT_EQ(OK, mWindow->queueBuffer(mWindow, anb, -1));
        return buffer;
    }

    BufferItem acquire() {
        BufferItem item;
        EXPECT_EQ(OK, mConsumer->acquireBuffer(&item, 0));
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

TEST_F(SurfaceTest, QueriesAnswerFromTheQueueOrTheSurface) {
    ASSERT_EQ(OK, mConsumer->setDefaultBufferDataSpace(HAL_DATASPACE_V0_JFIF));
    ASSERT_EQ(OK,
              mConsumer->setConsumerUsageBits(GRALLOC_USAGE_SW_READ_OFTEN | (uint64_t{1} << 40)));
    EXPECT_EQ(64, query(NATIVE_WINDOW_WIDTH));
    EXPECT_EQ(48, query(NATIVE_WINDOW_HEIGHT));
    EXPECT_EQ(HAL_PIXEL_FORMAT_RGBA_8888, query(NATIVE_WINDOW_FORMAT));
    EXPECT_EQ(2, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    EXPECT_EQ(GRALLOC_USAGE_SW_READ_OFTEN, query(NATIVE_WINDOW_CONSUMER_USAGE_BITS));
    EXPECT_EQ(HAL_DATASPACE_V0_JFIF, query(NATIVE_WINDOW_DEFAULT_DATASPACE));
    EXPECT_EQ(NATIVE_WINDOW_SURFACE, query(NATIVE_WINDOW_CONCRETE_TYPE));
    int value = 0;
    EXPECT_EQ(BAD_VALUE, mWindow->query(mWindow, 1000, &value));

    uint64_t usage = 0;
    ASSERT_EQ(OK, native_window_get_consumer_usage(mWindow, &usage));
    EXPECT_EQ(GRALLOC_USAGE_SW_READ_OFTEN | (uint64_t{1} << 40), usage);

    // A format set by the producer is the Surface's answer, even once the queue is gone.
    ASSERT_EQ(OK, native_window_set_buffers_format(mWindow, HAL_PIXEL_FORMAT_YV12));
    EXPECT_EQ(HAL_PIXEL_FORMAT_YV12, query(NATIVE_WINDOW_FORMAT));
    mConsumer->abandon();
    EXPECT_EQ(NO_INIT, mWindow->query(mWindow, NATIVE_WINDOW_WIDTH, &value));
    EXPECT_EQ(NO_INIT, mWindow->query(mWindow, NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS, &value));
    EXPECT_EQ(HAL_PIXEL_FORMAT_YV12, query(NATIVE_WINDOW_FORMAT));
}

TEST_F(SurfaceTest, PerformValidatesAndRefusesUnknownRequests) {
    EXPECT_EQ(NAME_NOT_FOUND, mWindow->perform(mWindow, NATIVE_WINDOW_LOCK, nullptr, nullptr));
    EXPECT_EQ(NAME_NOT_FOUND, mWindow->perform(mWindow, 1000));
    EXPECT_EQ(BAD_VALUE, native_window_set_scaling_mode(mWindow, 4));
    EXPECT_EQ(BAD_VALUE, native_window_set_buffers_dimensions(mWindow, 10, 0));
    EXPECT_EQ(BAD_VALUE, native_window_set_buffers_user_dimensions(mWindow, 0, 10));
    EXPECT_EQ(OK,
              native_window_set_scaling_mode(mWindow, NATIVE_WINDOW_SCALING_MODE_NO_SCALE_CROP));
    // Deprecated connect/disconnect requests do nothing and succeed.
    EXPECT_EQ(OK, mWindow->perform(mWindow, NATIVE_WINDOW_CONNECT, NATIVE_WINDOW_API_CPU));
}

TEST_F(SurfaceTest, ConnectAndDisconnectPerApi) {
    EXPECT_EQ(NO_INIT, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CAMERA));
    ASSERT_EQ(OK, mSurface->connect(NATIVE_WINDOW_API_CAMERA, nullptr, false));
    EXPECT_EQ(BAD_VALUE, mSurface->connect(NATIVE_WINDOW_API_CAMERA, nullptr, false));
    EXPECT_EQ(BAD_VALUE, native_window_api_connect(mWindow, NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(BAD_VALUE, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));

    // Disconnecting forgets what the producer asked for.
    ASSERT_EQ(OK, native_window_set_buffers_format(mWindow, HAL_PIXEL_FORMAT_YV12));
    ASSERT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CAMERA));
    EXPECT_EQ(HAL_PIXEL_FORMAT_RGBA_8888, query(NATIVE_WINDOW_FORMAT));
    ANativeWindowBuffer* anb = nullptr;
    int fenceFd = -1;
    EXPECT_EQ(NO_INIT, mWindow->dequeueBuffer(mWindow, &anb, &fenceFd));

    // After the consumer abandons the queue every request fails, but disconnect is a no-op.
    connect();
    mConsumer->abandon();
    EXPECT_EQ(NO_INIT, mWindow->dequeueBuffer(mWindow, &anb, &fenceFd));
    EXPECT_EQ(NO_INIT, native_window_api_connect(mWindow, NATIVE_WINDOW_API_CAMERA));
    EXPECT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));
}

TEST_F(SurfaceTest, ProducerSettingsShapeAndTravelWithEachBuffer) {
    connect();
    const uint64_t usage = GRALLOC_USAGE_SW_WRITE_OFTEN | (uint64_t{1} << 33);
    ASSERT_EQ(OK, native_window_set_buffers_dimensions(mWindow, 320, 240));
    ASSERT_EQ(OK, native_window_set_buffers_format(mWindow, HAL_PIXEL_FORMAT_YCrCb_420_SP));
    ASSERT_EQ(OK, native_window_set_usage(mWindow, usage));
    ASSERT_EQ(OK, native_window_set_buffers_transform(mWindow, NATIVE_WINDOW_TRANSFORM_ROT_270));
    ASSERT_EQ(OK, native_window_set_scaling_mode(mWindow, NATIVE_WINDOW_SCALING_MODE_SCALE_CROP));
    ASSERT_EQ(OK, native_window_set_buffers_timestamp(mWindow, 123456789));
    ASSERT_EQ(OK, native_window_set_buffers_data_space(mWindow, HAL_DATASPACE_V0_JFIF));
    android_native_rect_t crop = {10, 20, 300, 200};
    ASSERT_EQ(OK, native_window_set_crop(mWindow, &crop));

    sp<GraphicBuffer> buffer = produceOne();
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(320u, buffer->getWidth());
    EXPECT_EQ(240u, buffer->getHeight());
    EXPECT_EQ(HAL_PIXEL_FORMAT_YCrCb_420_SP, buffer->getPixelFormat());
    EXPECT_EQ(usage | GRALLOC_USAGE_SW_READ_OFTEN, buffer->getUsage());  // with the consumer's

    BufferItem item = acquire();
    EXPECT_EQ(buffer.get(), item.mGraphicBuffer.get());
    EXPECT_EQ(static_cast<uint32_t>(NATIVE_WINDOW_TRANSFORM_ROT_270), item.mTransform);
    EXPECT_EQ(static_cast<uint32_t>(NATIVE_WINDOW_SCALING_MODE_SCALE_CROP), item.mScalingMode);
    EXPECT_EQ(123456789, item.mTimestamp);
    EXPECT_FALSE(item.mIsAutoTimestamp);
    EXPECT_EQ(HAL_DATASPACE_V0_JFIF, item.mDataSpace);
    EXPECT_EQ(Rect(10, 20, 300, 200), item.mCrop);
    EXPECT_EQ(NATIVE_WINDOW_API_CPU, item.mApi);
    ASSERT_EQ(OK, mConsumer->releaseBuffer(item));

    // The timestamp stays until changed; AUTO stamps each buffer at its queue.
    produceOne();
    item = acquire();
    EXPECT_EQ(123456789, item.mTimestamp);
    ASSERT_EQ(OK, mConsumer->releaseBuffer(item));
    ASSERT_EQ(OK, native_window_set_buffers_timestamp(mWindow, NATIVE_WINDOW_TIMESTAMP_AUTO));
    const nsecs_t before = systemTime(SYSTEM_TIME_MONOTONIC);
    produceOne();
    const nsecs_t after = systemTime(SYSTEM_TIME_MONOTONIC);
    item = acquire();
    EXPECT_TRUE(item.mIsAutoTimestamp);
    EXPECT_GE(item.mTimestamp, before);
    EXPECT_LE(item.mTimestamp, after);
    ASSERT_EQ(OK, mConsumer->releaseBuffer(item));
}

TEST_F(SurfaceTest, UserDimensionsApplyOnlyWithoutBufferDimensions) {
    connect();
    ASSERT_EQ(OK, native_window_set_buffers_user_dimensions(mWindow, 100, 50));
    EXPECT_EQ(100, query(NATIVE_WINDOW_DEFAULT_WIDTH));
    sp<GraphicBuffer> buffer = produceOne();
    EXPECT_EQ(100u, buffer->getWidth());
    ASSERT_EQ(OK, mConsumer->releaseBuffer(acquire()));

    ASSERT_EQ(OK, native_window_set_buffers_dimensions(mWindow, 30, 20));
    buffer = produceOne();
    EXPECT_EQ(30u, buffer->getWidth());
    ASSERT_EQ(OK, mConsumer->releaseBuffer(acquire()));

    ASSERT_EQ(OK, native_window_set_buffers_dimensions(mWindow, 0, 0));
    ASSERT_EQ(OK, native_window_set_buffers_user_dimensions(mWindow, 0, 0));
    buffer = produceOne();
    EXPECT_EQ(64u, buffer->getWidth());  // the consumer's default
}

TEST_F(SurfaceTest, BufferCountIsSetThroughTheMaximumDequeuedCount) {
    connect();
    ASSERT_EQ(2, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    // count - minUndequeued must be at least 1 and fit the 64 slots.
    EXPECT_EQ(BAD_VALUE, native_window_set_buffer_count(mWindow, 2));
    EXPECT_EQ(BAD_VALUE, native_window_set_buffer_count(mWindow, 67));
    ASSERT_EQ(OK, native_window_set_buffer_count(mWindow, 6));

    // Four may be dequeued at once; once one has been queued, a fifth is refused.
    std::vector<ANativeWindowBuffer*> dequeued;
    for (int i = 0; i < 4; i++) {
        ANativeWindowBuffer* anb = nullptr;
        ASSERT_EQ(OK, native_window_dequeue_buffer_and_wait(mWindow, &anb));
        dequeued.push_back(anb);
    }
    EXPECT_EQ(BAD_VALUE, native_window_set_buffer_count(mWindow, 5));  // below the dequeued 4
    ASSERT_EQ(OK, mWindow->queueBuffer(mWindow, dequeued[0], -1));
    ANativeWindowBuffer* first = nullptr;
    ASSERT_EQ(OK, native_window_dequeue_buffer_and_wait(mWindow, &first));
    ANativeWindowBuffer* extra = nullptr;
    EXPECT_EQ(INVALID_OPERATION, native_window_dequeue_buffer_and_wait(mWindow, &extra));
    for (size_t i = 1; i < dequeued.size(); i++) {
        EXPECT_EQ(OK, mWindow->cancelBuffer(mWindow, dequeued[i], -1));
    }
    EXPECT_EQ(OK, mWindow->cancelBuffer(mWindow, first, -1));
}

TEST_F(SurfaceTest, QueuedBytesReachTheConsumerExactly) {
    hosttest::ScopedProfile phone("phone-qcom");
    connect();
    ASSERT_EQ(OK, native_window_set_buffers_dimensions(mWindow, 100, 10));
    ASSERT_EQ(OK, native_window_set_buffers_format(mWindow, HAL_PIXEL_FORMAT_YCbCr_420_888));
    ASSERT_EQ(OK, native_window_set_usage(mWindow, GRALLOC_USAGE_SW_WRITE_OFTEN));

    ANativeWindowBuffer* anb = nullptr;
    ASSERT_EQ(OK, native_window_dequeue_buffer_and_wait(mWindow, &anb));
    sp<GraphicBuffer> buffer = GraphicBuffer::from(anb);
    android_ycbcr ycbcr{};
    ASSERT_EQ(OK, buffer->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr));
    ASSERT_EQ(128u, ycbcr.ystride);
    for (int row = 0; row < 10; row++) {
        memset(static_cast<uint8_t*>(ycbcr.y) + row * ycbcr.ystride, row, 100);
    }
    for (int row = 0; row < 5; row++) {
        uint8_t* chroma = static_cast<uint8_t*>(ycbcr.cb) + row * ycbcr.cstride;
        for (int i = 0; i < 50; i++) {
            chroma[2 * i] = static_cast<uint8_t>(0x80 + row);      // Cb
            chroma[2 * i + 1] = static_cast<uint8_t>(0x40 + row);  // Cr
        }
    }
    ASSERT_EQ(OK, buffer->unlock());
    ASSERT_EQ(OK, mWindow->queueBuffer(mWindow, anb, -1));

    BufferItem item = acquire();
    const std::vector<uint8_t> contents = host::readBufferContents(*item.mGraphicBuffer);
    ASSERT_EQ(1500u, contents.size());
    EXPECT_EQ(7, contents[7 * 100 + 99]);
    EXPECT_EQ(0x83, contents[1000 + 3 * 100 + 10]);  // NV12 order on this profile
    EXPECT_EQ(0x43, contents[1000 + 3 * 100 + 11]);
}

TEST_F(SurfaceTest, EveryWindowRequestIsRecordedAndInjectable) {
    connect();
    ASSERT_EQ(OK, native_window_set_usage(mWindow, GRALLOC_USAGE_SW_WRITE_OFTEN));
    host::clearRecordedCalls();

    // A frame as the library produces it.
    ANativeWindowBuffer* anb = nullptr;
    ASSERT_EQ(OK, native_window_dequeue_buffer_and_wait(mWindow, &anb));
    int format = 0;
    ASSERT_EQ(OK, mWindow->query(mWindow, NATIVE_WINDOW_FORMAT, &format));
    sp<GraphicBuffer> buffer = GraphicBuffer::from(anb);
    void* data = nullptr;
    ASSERT_EQ(OK, buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &data));
    ASSERT_EQ(OK, buffer->unlock());
    ASSERT_EQ(OK, mWindow->queueBuffer(mWindow, anb, -1));
    const std::vector<std::string> expected = {"window.dequeueBuffer", "window.query.FORMAT",
                                               "buffer.lock", "buffer.unlock",
                                               "window.queueBuffer"};
    EXPECT_EQ(expected, host::recordedCalls());

    host::injectFault("window.query.WIDTH", NO_INIT);
    int value = 0;
    EXPECT_EQ(NO_INIT, mWindow->query(mWindow, NATIVE_WINDOW_WIDTH, &value));
    EXPECT_EQ(64, query(NATIVE_WINDOW_WIDTH));  // once only

    host::injectFault("window.perform.SET_BUFFERS_DATASPACE", BAD_VALUE, 2);
    EXPECT_EQ(BAD_VALUE, native_window_set_buffers_data_space(mWindow, HAL_DATASPACE_V0_JFIF));
    EXPECT_EQ(BAD_VALUE, native_window_set_buffers_data_space(mWindow, HAL_DATASPACE_V0_JFIF));
    EXPECT_EQ(OK, native_window_set_buffers_data_space(mWindow, HAL_DATASPACE_V0_JFIF));

    host::injectFault("window.perform.GET_CONSUMER_USAGE64", -1, -1);
    uint64_t usage = 0;
    EXPECT_EQ(-1, native_window_get_consumer_usage(mWindow, &usage));
    EXPECT_EQ(-1, native_window_get_consumer_usage(mWindow, &usage));
    host::clearFaults();

    host::clearRecordedCalls();
    EXPECT_EQ(NAME_NOT_FOUND, mWindow->perform(mWindow, 1000));
    ASSERT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(OK, mSurface->connect(NATIVE_WINDOW_API_CAMERA, nullptr, false));
    ASSERT_EQ(OK, mSurface->setDequeueTimeout(0));
    const std::vector<std::string> requests = {"window.perform.1000",
                                               "window.perform.API_DISCONNECT", "surface.connect",
                                               "surface.setDequeueTimeout"};
    EXPECT_EQ(requests, host::recordedCalls());

    host::injectFault("surface.connect", -1);
    ASSERT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CAMERA));
    EXPECT_EQ(-1, mSurface->connect(NATIVE_WINDOW_API_CAMERA, nullptr, false));
    EXPECT_EQ(OK, mSurface->connect(NATIVE_WINDOW_API_CAMERA, nullptr, false));
}

TEST_F(SurfaceTest, FailedQueueLeavesACancelThatSucceeds) {
    connect();
    ANativeWindowBuffer* anb = nullptr;
    ASSERT_EQ(OK, native_window_dequeue_buffer_and_wait(mWindow, &anb));
    const int fdsBefore = hosttest::openFdCount();
    host::injectFault("window.queueBuffer", NO_MEMORY);
    EXPECT_EQ(NO_MEMORY, mWindow->queueBuffer(mWindow, anb, dup(STDERR_FILENO)));
    EXPECT_EQ(fdsBefore, hosttest::openFdCount());  // the fence was taken
    EXPECT_EQ(OK, mWindow->cancelBuffer(mWindow, anb, -1));

    // On an abandoned queue the queue fails and the cancel still answers OK.
    ASSERT_EQ(OK, native_window_dequeue_buffer_and_wait(mWindow, &anb));
    mConsumer->abandon();
    EXPECT_EQ(NO_INIT, mWindow->queueBuffer(mWindow, anb, -1));
    EXPECT_EQ(OK, mWindow->cancelBuffer(mWindow, anb, -1));
    // A buffer the Surface never handed out is refused.
    sp<GraphicBuffer> stranger =
            new GraphicBuffer(8, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1, GRALLOC_USAGE_SW_READ_OFTEN);
    EXPECT_EQ(BAD_VALUE, mWindow->cancelBuffer(mWindow, stranger->getNativeBuffer(), -1));
}

TEST_F(SurfaceTest, DequeueAndWaitWaitsForTheReleaseFence) {
    connect();
    ASSERT_EQ(OK, native_window_set_buffer_count(mWindow, 3));  // one buffer to dequeue
    ANativeWindowBuffer* anb = nullptr;
    ASSERT_EQ(OK, native_window_dequeue_buffer_and_wait(mWindow, &anb));
    ASSERT_EQ(OK, mWindow->queueBuffer(mWindow, anb, -1));

    // The consumer releases with a fence that signals later.
    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    BufferItem item = acquire();
    ASSERT_EQ(OK, mConsumer->releaseBuffer(item, new Fence(pipeFds[0])));
    std::thread signaller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        char byte = 1;
        EXPECT_EQ(1, write(pipeFds[1], &byte, 1));
    });
    const int fdsBefore = hosttest::openFdCount();
    const nsecs_t start = systemTime();
    ANativeWindowBuffer* again = nullptr;
    ASSERT_EQ(OK, native_window_dequeue_buffer_and_wait(mWindow, &again));
    EXPECT_GE(systemTime() - start, ms2ns(30));
    signaller.join();
    EXPECT_EQ(anb, again);
    // The duplicate of the fence handed to the producer was closed after the wait.
    EXPECT_EQ(fdsBefore, hosttest::openFdCount());
    close(pipeFds[1]);
    EXPECT_EQ(OK, mWindow->cancelBuffer(mWindow, again, -1));
}

TEST_F(SurfaceTest, LastQueuedBufferIsTheSurfacesLatestFrame) {
    connect();
    sp<GraphicBuffer> last;
    sp<Fence> fence;
    float matrix[16];
    ASSERT_EQ(OK, mSurface->getLastQueuedBuffer(&last, &fence, matrix));
    EXPECT_EQ(nullptr, last);

    produceOne();
    sp<GraphicBuffer> latest = produceOne();
    ASSERT_EQ(OK, mSurface->getLastQueuedBuffer(&last, &fence, matrix));
    EXPECT_EQ(latest.get(), last.get());
    ASSERT_NE(nullptr, fence);
    EXPECT_FALSE(fence->isValid());

    host::injectFault("surface.getLastQueuedBuffer", INVALID_OPERATION);
    EXPECT_EQ(INVALID_OPERATION, mSurface->getLastQueuedBuffer(&last, &fence, matrix));

    // A second Surface on the same producer sees the same frame.
    sp<Surface> twin = new Surface(mSurface->getIGraphicBufferProducer());
    ASSERT_EQ(OK, twin->getLastQueuedBuffer(&last, &fence, matrix));
    EXPECT_EQ(latest.get(), last.get());
}

TEST_F(SurfaceTest, ThousandsOfFramesLeakNoDescriptor) {
    connect();
    ASSERT_EQ(OK, native_window_set_buffers_format(mWindow, HAL_PIXEL_FORMAT_YCrCb_420_SP));
    const int fdsBefore = hosttest::openFdCount();
    const size_t liveBefore = host::grallocLiveBufferCount();
    for (int i = 0; i < 2000; i++) {
        if (i % 500 == 0) {
            // Reconnect now and then, so buffers are freed and allocated again.
            ASSERT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));
            ASSERT_EQ(OK, native_window_api_connect(mWindow, NATIVE_WINDOW_API_CPU));
            ASSERT_EQ(OK, native_window_set_buffers_format(mWindow, HAL_PIXEL_FORMAT_YCrCb_420_SP));
            ASSERT_EQ(OK, native_window_set_usage(mWindow, GRALLOC_USAGE_SW_WRITE_OFTEN));
        }
        // Alternate sizes so that buffers are reallocated as well as reused.
        ASSERT_EQ(OK, native_window_set_buffers_dimensions(mWindow, (i / 100) % 2 ? 32 : 48, 8));
        ANativeWindowBuffer* anb = nullptr;
        ASSERT_EQ(OK, native_window_dequeue_buffer_and_wait(mWindow, &anb));
        sp<GraphicBuffer> buffer = GraphicBuffer::from(anb);
        android_ycbcr ycbcr{};
        ASSERT_EQ(OK, buffer->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr));
        ASSERT_EQ(OK, buffer->unlock());
        if (i % 3 == 0) {
            ASSERT_EQ(OK, mWindow->cancelBuffer(mWindow, anb, -1));
            continue;
        }
        ASSERT_EQ(OK, mWindow->queueBuffer(mWindow, anb, -1));
        BufferItem item = acquire();
        ASSERT_EQ(OK, mConsumer->releaseBuffer(item));
    }
    ASSERT_EQ(OK, native_window_api_disconnect(mWindow, NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(fdsBefore, hosttest::openFdCount());
    EXPECT_EQ(liveBefore, host::grallocLiveBufferCount());
}

}  // namespace
