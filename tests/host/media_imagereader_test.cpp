// android.media.ImageReader and its native side (libmedia_jni) through the real JVM.

#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <hostmedia/ImageReaderState.h>

#include <cstring>

#include "media_test_support.h"

namespace {

using android::BufferItem;
using android::OK;
using android::sp;
using android::Surface;
using hosttest::ImageReaderTest;
using nuvra::test::JavaException;
using nuvra::test::takePendingException;

constexpr jint kYuv420888 = 0x23;
constexpr jint kJpeg = 0x100;

// An acquired image holds the acquired BufferItem in mNativeBuffer until close(); a second close
// does nothing. (That close() releases the buffer, returns the item to the pool and zeroes the
// field, the library's ImageReadTest.ClosedImagesReleaseTheirBufferAndWarn sees through it.)
TEST_F(ImageReaderTest, ImagesHoldTheirBufferItemUntilClosed) {
    jobject reader = newReader(64, 48, kYuv420888, 2);
    ASSERT_NE(reader, nullptr);
    sp<Surface> surface = producerOf(reader);
    EXPECT_EQ(acquireNext(reader), nullptr);  // nothing queued yet

    produce(surface, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1111);
    EXPECT_EQ(host::imageReaderSlotCounts(env, reader).queued, 1);
    jobject image = acquireNext(reader);
    ASSERT_NE(image, nullptr);
    BufferItem* item = itemOf(image);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->mTimestamp, 1111);
    EXPECT_EQ(item->mGraphicBuffer->getPixelFormat(), HAL_PIXEL_FORMAT_YCrCb_420_SP);
    EXPECT_EQ(callInt(image, "getFormat"), HAL_PIXEL_FORMAT_YCrCb_420_SP);
    EXPECT_EQ(callInt(image, "getWidth"), 64);
    EXPECT_EQ(callInt(image, "getHeight"), 48);
    jobject hardwareBuffer =
            callObject(image, "getHardwareBuffer", "()Landroid/hardware/HardwareBuffer;");
    EXPECT_EQ(android::android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, hardwareBuffer),
              item->mGraphicBuffer->toAHardwareBuffer());
    android::BufferQueueConsumer::SlotCounts counts = host::imageReaderSlotCounts(env, reader);
    EXPECT_EQ(counts.acquired, 1);
    EXPECT_EQ(counts.queued, 0);
    EXPECT_EQ(host::imageReaderFreeItemCount(env, reader), 1);

    close(image);
    close(image);
    EXPECT_EQ(callInt(image, "getWidth"), 0);
    std::optional<JavaException> thrown = takePendingException(env);
    ASSERT_TRUE(thrown);
    EXPECT_EQ(describe(*thrown), "java.lang.IllegalStateException: Image is already closed");

    close(reader);
    EXPECT_EQ(host::imageReaderFreeItemCount(env, reader), -1);
    // The reader's close abandons the queue.
    ANativeWindowBuffer* anwb = nullptr;
    EXPECT_EQ(native_window_dequeue_buffer_and_wait(surface.get(), &anwb), android::NO_INIT);
}

// maxImages open images are the limit: one more throws as on Android until one is closed;
// acquireLatestImage skips to the newest frame, closing the ones before it.
TEST_F(ImageReaderTest, MaxImagesLimitsOpenImagesAndLatestSkipsAhead) {
    jobject reader = newReader(32, 16, kYuv420888, 2);
    sp<Surface> surface = producerOf(reader);
    for (int i = 1; i <= 3; i++) produce(surface, kYuv420888, i * 100);

    jobject first = acquireNext(reader);
    jobject second = acquireNext(reader);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(itemOf(second)->mTimestamp, 200);
    EXPECT_EQ(acquireNext(reader), nullptr);
    std::optional<JavaException> thrown = takePendingException(env);
    ASSERT_TRUE(thrown);
    EXPECT_EQ(describe(*thrown),
              "java.lang.IllegalStateException: maxImages (2) has already been acquired, call "
              "#close before acquiring more.");
    EXPECT_EQ(host::imageReaderSlotCounts(env, reader).queued, 1);

    close(first);
    jobject third = acquireNext(reader);
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(itemOf(third)->mTimestamp, 300);
    close(second);
    close(third);

    for (int i = 4; i <= 6; i++) produce(surface, kYuv420888, i * 100);
    jobject latest = callObject(reader, "acquireLatestImage", "()Landroid/media/Image;");
    ASSERT_NE(latest, nullptr);
    EXPECT_EQ(itemOf(latest)->mTimestamp, 600);
    android::BufferQueueConsumer::SlotCounts counts = host::imageReaderSlotCounts(env, reader);
    EXPECT_EQ(counts.acquired, 1);
    EXPECT_EQ(counts.queued, 0);
    // Closing the reader closes its open images.
    close(reader);
    EXPECT_EQ(itemOf(latest), nullptr);
}

// The reader refuses what Android's refuses: NV21 readers, and buffers whose format does not
// match the reader's (flexible YUV readers take any YUV buffer).
TEST_F(ImageReaderTest, RefusesNv21ReadersAndMismatchedBuffers) {
    EXPECT_EQ(newReader(64, 48, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1), nullptr);
    std::optional<JavaException> thrown = takePendingException(env);
    ASSERT_TRUE(thrown);
    EXPECT_EQ(describe(*thrown),
              "java.lang.IllegalArgumentException: NV21 format is not supported");

    jobject reader = newReader(64, 48, HAL_PIXEL_FORMAT_RAW10, 1);
    sp<Surface> surface = producerOf(reader);
    produce(surface, HAL_PIXEL_FORMAT_RAW12, 1);
    EXPECT_EQ(acquireNext(reader), nullptr);
    thrown = takePendingException(env);
    ASSERT_TRUE(thrown);
    EXPECT_EQ(describe(*thrown),
              "java.lang.UnsupportedOperationException: The producer output buffer format 0x26 "
              "doesn't match the ImageReader's configured buffer format 0x25.");
    EXPECT_EQ(host::imageReaderSlotCounts(env, reader).acquired, 0);
    EXPECT_EQ(host::imageReaderFreeItemCount(env, reader), 1);
    close(reader);

    // A JPEG reader asks for BLOB buffers in the JFIF data space and reports the reader's size.
    reader = newReader(4096, 1, kJpeg, 1);
    surface = producerOf(reader);
    ASSERT_EQ(native_window_set_buffers_dimensions(surface.get(), 4096, 1), OK);
    produce(surface, HAL_PIXEL_FORMAT_BLOB, 1);
    jobject image = acquireNext(reader);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(itemOf(image)->mDataSpace, HAL_DATASPACE_V0_JFIF);
    EXPECT_EQ(callInt(image, "getFormat"), kJpeg);
    EXPECT_EQ(callInt(image, "getDataSpace"), HAL_DATASPACE_V0_JFIF);
    close(reader);
}

}  // namespace
