// GraphicBuffer CPU access (gralloc 4 rules), injected faults, fences, reallocation and the
// AHardwareBuffer view of a buffer.

#include <android/hardware_buffer.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <hardware/gralloc_qcom.h>
#include <hostcontrol/LogCapture.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <ui/HostGrallocLayout.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "ui_test_support.h"

using android::Fence;
using android::GraphicBuffer;
using android::Rect;
using android::sp;

namespace {

constexpr uint64_t kCpuUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

class GraphicBufferTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::setLogEcho(false);
        host::resetFaultsAndCalls();
    }
    void TearDown() override { host::resetFaultsAndCalls(); }

    static sp<GraphicBuffer> make(int32_t format, uint32_t w = 64, uint32_t h = 16) {
        sp<GraphicBuffer> buffer = new GraphicBuffer(w, h, format, 1, kCpuUsage);
        EXPECT_EQ(android::OK, buffer->initCheck());
        return buffer;
    }
};

// The mapper's error lines for unlocks of buffers that were not locked.
size_t mapperUnlockErrors() {
    size_t count = 0;
    for (const host::LogLine& line : host::capturedLogs()) {
        if (line.tag == "Gralloc4" && line.priority == ANDROID_LOG_ERROR &&
            line.text.find(") failed with 2") != std::string::npos) {
            ++count;
        }
    }
    return count;
}

TEST_F(GraphicBufferTest, LockYCbCrDescribesOnlyEightBitYuvComponents) {
    enum Outcome { kPlanes, kLumaOnly, kNoPlanes, kRefused };
    const struct {
        int32_t format;
        uint32_t height;
        Outcome outcome;
    } cases[] = {
            {HAL_PIXEL_FORMAT_YCrCb_420_SP, 16, kPlanes},
            {HAL_PIXEL_FORMAT_YV12, 16, kPlanes},
            {HAL_PIXEL_FORMAT_Y8, 16, kLumaOnly},
            {HAL_PIXEL_FORMAT_RGBA_8888, 16, kNoPlanes},
            {HAL_PIXEL_FORMAT_RGB_565, 16, kNoPlanes},
            {HAL_PIXEL_FORMAT_RAW16, 16, kNoPlanes},
            {HAL_PIXEL_FORMAT_RAW10, 16, kNoPlanes},
            {HAL_PIXEL_FORMAT_BLOB, 1, kNoPlanes},
            {HAL_PIXEL_FORMAT_YCBCR_P010, 16, kRefused},
            {HAL_PIXEL_FORMAT_Y16, 16, kRefused},
            {HAL_PIXEL_FORMAT_YCbCr_420_SP_16BIT, 16, kRefused},
            {HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC, 16, kRefused},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(host::grallocFormatName(c.format));
        sp<GraphicBuffer> buffer = make(c.format, 64, c.height);
        void* base = nullptr;
        ASSERT_EQ(android::OK, buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &base));
        ASSERT_EQ(android::OK, buffer->unlock());
        host::clearCapturedLogs();

        android_ycbcr ycbcr;
        memset(&ycbcr, 0xA5, sizeof(ycbcr));
        const int status = buffer->lockYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, &ycbcr);
        EXPECT_EQ(c.outcome == kRefused ? android::BAD_VALUE : android::OK, status);
        if (c.outcome == kRefused) {
            // Unlocked again before the refusal: the next unlock finds nothing locked.
            EXPECT_EQ(android::OK, buffer->unlock());
            EXPECT_EQ(1u, mapperUnlockErrors());
            continue;
        }
        EXPECT_EQ(c.outcome == kNoPlanes ? nullptr : base, ycbcr.y);
        EXPECT_EQ(c.outcome == kPlanes, ycbcr.cb != nullptr);
        EXPECT_EQ(c.outcome == kPlanes, ycbcr.cr != nullptr);
        if (c.outcome != kPlanes) {
            EXPECT_EQ(0u, ycbcr.cstride);
            EXPECT_EQ(0u, ycbcr.chroma_step);
            EXPECT_EQ(c.outcome == kLumaOnly ? buffer->getStride() : 0u, ycbcr.ystride);
        }
        // The buffer stays locked whatever was described.
        EXPECT_EQ(android::OK, buffer->unlock());
        EXPECT_EQ(0u, mapperUnlockErrors());
    }
}

TEST_F(GraphicBufferTest, CpuLocksMustFitTheAllocationUsage) {
    constexpr uint64_t kRead = GRALLOC_USAGE_SW_READ_OFTEN, kWrite = GRALLOC_USAGE_SW_WRITE_OFTEN;
    const struct {
        uint64_t allocated, locked;
        bool allowed;
    } cases[] = {
            {kRead | kWrite, kRead, true},
            {kRead | kWrite, kRead | kWrite, true},
            {kRead, kRead, true},
            {GRALLOC_USAGE_SW_READ_RARELY, kRead, true},  // any CPU-read bit allows reading
            {GRALLOC_USAGE_SW_WRITE_RARELY | GRALLOC_USAGE_HW_TEXTURE, kWrite, true},
            {kRead, kWrite, false},
            {kRead, kRead | kWrite, false},
            {kWrite, kRead, false},
            {GRALLOC_USAGE_HW_TEXTURE, kRead, false},
            {kRead | kWrite, GRALLOC_USAGE_HW_TEXTURE, false},  // no CPU access asked for
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << std::hex << c.allocated << " locked " << c.locked);
        sp<GraphicBuffer> buffer =
                new GraphicBuffer(64, 16, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1, c.allocated);
        ASSERT_EQ(android::OK, buffer->initCheck());
        const int expected = c.allowed ? android::OK : android::BAD_VALUE;
        void* data = nullptr;
        android_ycbcr ycbcr{};
        EXPECT_EQ(expected, buffer->lock(c.locked, &data));
        EXPECT_EQ(expected, buffer->lockYCbCr(c.locked, &ycbcr));
        EXPECT_EQ(expected, buffer->lockAsync(c.locked, &data, -1));
        host::clearCapturedLogs();
        for (int i = 0; i < 3; ++i) buffer->unlock();
        EXPECT_EQ(c.allowed ? 0u : 3u, mapperUnlockErrors());
    }
}

TEST_F(GraphicBufferTest, LockArgumentsAreRefusedAndUnlockingNothingOnlyLogs) {
    sp<GraphicBuffer> buffer = make(HAL_PIXEL_FORMAT_RGBA_8888);
    void* data = nullptr;
    EXPECT_EQ(android::BAD_VALUE,
              buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, Rect(0, 0, 65, 16), &data));
    EXPECT_EQ(android::BAD_VALUE,
              buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, Rect(-1, 0, 10, 10), &data));

    // Locks nest; each needs its unlock. One more unlock, as GraphicBufferMapper::unlockAsync
    // does with the mapper's error, is logged and answered NO_ERROR.
    ASSERT_EQ(android::OK, buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, Rect(8, 2, 16, 4), &data));
    void* again = nullptr;
    ASSERT_EQ(android::OK, buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &again));
    EXPECT_EQ(data, again);  // the base address, whatever the rectangle
    host::clearCapturedLogs();
    EXPECT_EQ(android::OK, buffer->unlock());
    EXPECT_EQ(android::OK, buffer->unlock());
    EXPECT_EQ(0u, mapperUnlockErrors());
    EXPECT_EQ(android::OK, buffer->unlock());
    int fence = 0;
    EXPECT_EQ(android::OK, buffer->unlockAsync(&fence));
    EXPECT_EQ(-1, fence);
    EXPECT_EQ(2u, mapperUnlockErrors());
    // ...and the buffer is no more locked than before: one lock needs one unlock.
    ASSERT_EQ(android::OK, buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &data));
    EXPECT_EQ(android::OK, buffer->unlock());
    EXPECT_EQ(2u, mapperUnlockErrors());

    // A buffer without memory cannot be locked.
    sp<GraphicBuffer> empty = new GraphicBuffer();
    EXPECT_EQ(android::OK, empty->initCheck());
    EXPECT_EQ(android::BAD_VALUE, empty->lock(GRALLOC_USAGE_SW_READ_OFTEN, &data));
}

TEST_F(GraphicBufferTest, LockReportsBytesPerPixelAndStrideOfSinglePlaneFormats) {
    hosttest::ScopedProfile phone("phone-nv21");
    struct Case {
        int32_t format;
        int32_t bytesPerPixel, bytesPerStride;
    };
    const Case cases[] = {{HAL_PIXEL_FORMAT_RGBA_8888, 4, 128 * 4},
                          {HAL_PIXEL_FORMAT_RGB_565, 2, 128 * 2},
                          {HAL_PIXEL_FORMAT_YCrCb_420_SP, -1, -1},
                          {HAL_PIXEL_FORMAT_RAW10, -1, 128}};
    for (const Case& c : cases) {
        SCOPED_TRACE(host::grallocFormatName(c.format));
        sp<GraphicBuffer> buffer = make(c.format, 100, 10);
        void* data = nullptr;
        int32_t bytesPerPixel = 0, bytesPerStride = 0;
        ASSERT_EQ(android::OK, buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &data, &bytesPerPixel,
                                            &bytesPerStride));
        EXPECT_EQ(c.bytesPerPixel, bytesPerPixel);
        EXPECT_EQ(c.bytesPerStride, bytesPerStride);
        EXPECT_EQ(android::OK, buffer->unlock());
    }
}

TEST_F(GraphicBufferTest, InjectedFaultsFailTheNamedCallsAndAreRecordedInOrder) {
    sp<GraphicBuffer> buffer = make(HAL_PIXEL_FORMAT_YCrCb_420_SP);
    host::clearRecordedCalls();
    void* data = nullptr;
    android_ycbcr ycbcr{};

    host::injectFault("buffer.lock", -5);
    EXPECT_EQ(-5, buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &data));
    host::clearCapturedLogs();
    EXPECT_EQ(android::OK, buffer->unlock());
    EXPECT_EQ(1u, mapperUnlockErrors());  // the failed lock locked nothing

    host::injectFault("buffer.lockYCbCr", android::NO_MEMORY, 2);
    EXPECT_EQ(android::NO_MEMORY, buffer->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr));
    EXPECT_EQ(android::NO_MEMORY, buffer->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr));
    EXPECT_EQ(android::OK, buffer->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr));

    host::injectFault("buffer.unlock", android::INVALID_OPERATION);
    EXPECT_EQ(android::INVALID_OPERATION, buffer->unlock());
    EXPECT_EQ(android::OK, buffer->unlock());

    const std::vector<std::string> expected = {
            "buffer.lock",      "buffer.unlock", "buffer.lockYCbCr", "buffer.lockYCbCr",
            "buffer.lockYCbCr", "buffer.unlock", "buffer.unlock"};
    EXPECT_EQ(expected, host::recordedCalls());
}

TEST_F(GraphicBufferTest, NullAddressFaultsLockButYieldNull) {
    sp<GraphicBuffer> buffer = make(HAL_PIXEL_FORMAT_YCrCb_420_SP);
    host::clearRecordedCalls();
    host::injectFault("buffer.lock.nullAddress", 1);
    void* data = reinterpret_cast<void*>(0x1);
    ASSERT_EQ(android::OK, buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &data));
    EXPECT_EQ(nullptr, data);
    EXPECT_EQ(android::OK, buffer->unlock());  // it was locked

    host::injectFault("buffer.lockYCbCr.nullCb", 1);
    android_ycbcr ycbcr{};
    ASSERT_EQ(android::OK, buffer->lockYCbCr(GRALLOC_USAGE_SW_WRITE_OFTEN, &ycbcr));
    EXPECT_NE(nullptr, ycbcr.y);
    EXPECT_NE(nullptr, ycbcr.cr);
    EXPECT_EQ(nullptr, ycbcr.cb);
    EXPECT_EQ(android::OK, buffer->unlock());

    host::injectFault("buffer.lockAsyncYCbCr.nullY", 1);
    ASSERT_EQ(android::OK, buffer->lockAsyncYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, &ycbcr, -1));
    EXPECT_EQ(nullptr, ycbcr.y);
    EXPECT_NE(nullptr, ycbcr.cb);
    EXPECT_EQ(android::OK, buffer->unlock());

    // The call record lists the calls, not the null-address points.
    const std::vector<std::string> expected = {"buffer.lock",           "buffer.unlock",
                                               "buffer.lockYCbCr",      "buffer.unlock",
                                               "buffer.lockAsyncYCbCr", "buffer.unlock"};
    EXPECT_EQ(expected, host::recordedCalls());
}

TEST_F(GraphicBufferTest, AsyncLocksWaitOnTheFenceAndCloseIt) {
    sp<GraphicBuffer> buffer = make(HAL_PIXEL_FORMAT_YCbCr_420_888);
    const int fdsBefore = hosttest::openFdCount();

    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    std::thread signaller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        char byte = 1;
        EXPECT_EQ(1, write(pipeFds[1], &byte, 1));
    });
    const nsecs_t start = systemTime();
    android_ycbcr ycbcr{};
    ASSERT_EQ(android::OK, buffer->lockAsyncYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, Rect(0, 0, 64, 16),
                                                  &ycbcr, pipeFds[0]));
    EXPECT_GE(systemTime() - start, ms2ns(50));
    signaller.join();
    close(pipeFds[1]);
    int fenceFd = 0;
    EXPECT_EQ(android::OK, buffer->unlockAsync(&fenceFd));
    EXPECT_EQ(-1, fenceFd);
    EXPECT_EQ(fdsBefore, hosttest::openFdCount());  // the fence descriptor was closed

    // Failing calls take the fence too.
    host::injectFault("buffer.lockAsync", android::NO_MEMORY);
    void* data = nullptr;
    EXPECT_EQ(android::NO_MEMORY,
              buffer->lockAsync(GRALLOC_USAGE_SW_READ_OFTEN, &data, dup(STDERR_FILENO)));
    EXPECT_EQ(android::BAD_VALUE, buffer->lockAsyncYCbCr(0, &ycbcr, dup(STDERR_FILENO)));
    EXPECT_EQ(fdsBefore, hosttest::openFdCount());
}

TEST_F(GraphicBufferTest, FenceWaitsForItsDescriptor) {
    EXPECT_FALSE(Fence::NO_FENCE->isValid());
    EXPECT_EQ(android::OK, Fence::NO_FENCE->wait(0));
    EXPECT_EQ(-1, Fence::NO_FENCE->dup());
    EXPECT_EQ(Fence::Status::Invalid, Fence::NO_FENCE->getStatus());

    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    sp<Fence> fence = new Fence(pipeFds[0]);
    EXPECT_TRUE(fence->isValid());
    EXPECT_EQ(Fence::Status::Unsignaled, fence->getStatus());
    EXPECT_EQ(-ETIME, fence->wait(10));
    int copy = fence->dup();
    EXPECT_GE(copy, 0);
    EXPECT_NE(pipeFds[0], copy);
    close(copy);
    char byte = 1;
    ASSERT_EQ(1, write(pipeFds[1], &byte, 1));
    EXPECT_EQ(android::OK, fence->wait(Fence::TIMEOUT_NEVER));
    EXPECT_EQ(android::OK, fence->waitForever("test"));
    EXPECT_EQ(Fence::Status::Signaled, fence->getStatus());
    close(pipeFds[1]);
}

TEST_F(GraphicBufferTest, ReallocateReplacesTheBufferOnlyWhenItMust) {
    sp<GraphicBuffer> buffer = new GraphicBuffer();
    EXPECT_EQ(nullptr, buffer->handle);
    EXPECT_EQ(0u, buffer->getFdCount());

    const uint64_t usage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN |
                           GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_HW_RENDER;
    ASSERT_EQ(android::OK,
              buffer->reallocate(640, 480, HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS, 1, usage));
    EXPECT_EQ(android::OK, buffer->initCheck());
    ASSERT_NE(nullptr, buffer->handle);
    EXPECT_EQ(640u, buffer->getWidth());
    EXPECT_EQ(HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS, buffer->getPixelFormat());
    EXPECT_EQ(usage, buffer->getUsage());
    const native_handle_t* first = buffer->handle;

    EXPECT_EQ(android::OK,
              buffer->reallocate(640, 480, HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS, 1, usage));
    EXPECT_EQ(first, buffer->handle);

    // A refused size leaves no buffer, with initCheck still that of the object.
    EXPECT_EQ(android::BAD_VALUE,
              buffer->reallocate(0, 480, HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS, 1, usage));
    EXPECT_EQ(nullptr, buffer->handle);
    EXPECT_EQ(android::OK, buffer->initCheck());

    sp<GraphicBuffer> owner = make(HAL_PIXEL_FORMAT_RGBA_8888);
    sp<GraphicBuffer> wrapper =
            new GraphicBuffer(owner->handle, GraphicBuffer::WRAP_HANDLE, 64, 16,
                              HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage, owner->getStride());
    EXPECT_EQ(android::INVALID_OPERATION,
              wrapper->reallocate(32, 16, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage));

    host::injectFault("buffer.allocate", android::NO_MEMORY);
    EXPECT_EQ(android::NO_MEMORY,
              buffer->reallocate(64, 64, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage));
    EXPECT_EQ(nullptr, buffer->handle);
    host::injectFault("buffer.reallocate", android::BAD_VALUE);
    EXPECT_EQ(android::BAD_VALUE,
              buffer->reallocate(64, 64, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage));
    EXPECT_EQ(android::OK, buffer->reallocate(64, 64, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage));
    EXPECT_EQ(7u, host::callCount("buffer.reallocate"));

    EXPECT_FALSE(owner->needsReallocation(64, 16, HAL_PIXEL_FORMAT_RGBA_8888, 1,
                                          GRALLOC_USAGE_SW_READ_OFTEN));
    EXPECT_TRUE(owner->needsReallocation(64, 16, HAL_PIXEL_FORMAT_RGBA_8888, 1,
                                         GRALLOC_USAGE_HW_TEXTURE));
    EXPECT_TRUE(owner->needsReallocation(64, 17, HAL_PIXEL_FORMAT_RGBA_8888, 1, kCpuUsage));
}

TEST_F(GraphicBufferTest, NativeBufferLeadsBackToTheSameObject) {
    sp<GraphicBuffer> buffer = make(HAL_PIXEL_FORMAT_RGB_565, 20, 10);
    ANativeWindowBuffer* native = buffer->getNativeBuffer();
    EXPECT_EQ(ANDROID_NATIVE_BUFFER_MAGIC, static_cast<unsigned>(native->common.magic));
    EXPECT_EQ(20, native->width);
    EXPECT_EQ(HAL_PIXEL_FORMAT_RGB_565, native->format);

    sp<GraphicBuffer> again = GraphicBuffer::from(native);
    EXPECT_EQ(buffer.get(), again.get());
    // The native object's reference hooks keep the buffer alive.
    sp<ANativeWindowBuffer> nativeRef = native;
    buffer.clear();
    again.clear();
    EXPECT_EQ(20, nativeRef->width);
}

TEST_F(GraphicBufferTest, HardwareBufferIsTheGraphicBuffer) {
    AHardwareBuffer_Desc desc = {};
    desc.width = 48;
    desc.height = 8;
    desc.layers = 1;
    desc.format = AHARDWAREBUFFER_FORMAT_Y8Cb8Cr8_420;
    desc.usage = AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN | AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN;
    AHardwareBuffer* hardwareBuffer = nullptr;
    ASSERT_EQ(0, AHardwareBuffer_allocate(&desc, &hardwareBuffer));

    AHardwareBuffer_Desc described = {};
    AHardwareBuffer_describe(hardwareBuffer, &described);
    EXPECT_EQ(48u, described.width);
    EXPECT_EQ(static_cast<uint32_t>(HAL_PIXEL_FORMAT_YCbCr_420_888), described.format);

    GraphicBuffer* buffer = GraphicBuffer::fromAHardwareBuffer(hardwareBuffer);
    EXPECT_EQ(hardwareBuffer, buffer->toAHardwareBuffer());
    AHardwareBuffer_Planes planes = {};
    ASSERT_EQ(0, AHardwareBuffer_lockPlanes(hardwareBuffer, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN,
                                            -1, nullptr, &planes));
    EXPECT_EQ(3u, planes.planeCount);
    EXPECT_EQ(2u, planes.planes[1].pixelStride);
    EXPECT_EQ(0, AHardwareBuffer_unlock(hardwareBuffer, nullptr));

    void* data = nullptr;
    EXPECT_EQ(-EINVAL, AHardwareBuffer_lock(hardwareBuffer, AHARDWAREBUFFER_USAGE_GPU_SAMPLED_IMAGE,
                                            -1, nullptr, &data));
    AHardwareBuffer_release(hardwareBuffer);
}

}  // namespace
