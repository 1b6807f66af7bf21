// android.media.ImageReader and its native side (libmedia_jni) through the real JVM, and the host
// camera source feeding it: every camera format on both kinds of device, and acquire fences that
// hold back whoever reads the frame.

#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <hardware/gralloc_qcom.h>
#include <hostcamera/CameraSource.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostmedia/ImageReaderState.h>
#include <hostproperties/HostProperties.h>
#include <ui/GraphicBufferMapper.h>
#include <ui/HostCompressedNv12.h>
#include <ui/HostGrallocGuard.h>

#include <chrono>
#include <cmath>

#include "media_test_support.h"

namespace {

using namespace hosttest;
using host::CameraSource;
using host::RgbPicture;
using nuvra::test::expectPending;

constexpr jint kYuv420888 = 0x23, kJpeg = 0x100;  // the readers' public formats
constexpr uint32_t kWidth = 37, kHeight = 21;

// An image holds its BufferItem in mNativeBuffer until close() (which releases the buffer, returns
// the item and zeroes the field: ImageReadTest.ClosedImagesReleaseTheirBufferAndWarn); a second
// close does nothing. One image over maxImages throws as on Android; acquireLatestImage skips to
// the newest frame, closing the ones before it.
TEST_F(ImageReaderTest, ImagesHoldTheirBufferItemUntilClosedUpToMaxImages) {
    openReader(64, 48, kYuv420888, 2);
    EXPECT_EQ(acquireNext(mReader), nullptr);  // nothing queued yet
    for (int i = 1; i <= 3; i++) produce(mProducer, HAL_PIXEL_FORMAT_YCrCb_420_SP, i * 100);
    jobject image = acquireNext(mReader);
    ASSERT_NE(image, nullptr);
    BufferItem* item = itemOf(image);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->mTimestamp, 100);
    EXPECT_EQ(item->mGraphicBuffer->getPixelFormat(), HAL_PIXEL_FORMAT_YCrCb_420_SP);
    EXPECT_EQ(callInt(image, "getFormat"), HAL_PIXEL_FORMAT_YCrCb_420_SP);
    EXPECT_EQ(callInt(image, "getWidth"), 64);
    EXPECT_EQ(callInt(image, "getHeight"), 48);
    jobject hardwareBuffer =
            callObject(image, "getHardwareBuffer", "()Landroid/hardware/HardwareBuffer;");
    EXPECT_EQ(android::android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, hardwareBuffer),
              item->mGraphicBuffer->toAHardwareBuffer());
    close(hardwareBuffer);  // it holds a reference on the buffer of its own
    android::BufferQueueConsumer::SlotCounts counts = host::imageReaderSlotCounts(env, mReader);
    EXPECT_EQ(counts.acquired, 1);
    EXPECT_EQ(counts.queued, 2);
    EXPECT_EQ(host::imageReaderFreeItemCount(env, mReader), 1);

    jobject second = acquireNext(mReader);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(itemOf(second)->mTimestamp, 200);
    EXPECT_EQ(acquireNext(mReader), nullptr);
    expectPending(env,
                  "java.lang.IllegalStateException: maxImages (2) has already been acquired, "
                  "call #close before acquiring more.");
    EXPECT_EQ(host::imageReaderSlotCounts(env, mReader).queued, 1);

    close(image);
    close(image);
    EXPECT_EQ(callInt(image, "getWidth"), 0);
    expectPending(env, "java.lang.IllegalStateException: Image is already closed");
    jobject third = acquireNext(mReader);
    ASSERT_NE(third, nullptr);
    EXPECT_EQ(itemOf(third)->mTimestamp, 300);
    close(second);
    close(third);
    EXPECT_EQ(host::imageReaderFreeItemCount(env, mReader), 2);

    for (int i = 4; i <= 6; i++) produce(mProducer, kYuv420888, i * 100);
    jobject latest = callObject(mReader, "acquireLatestImage", "()Landroid/media/Image;");
    ASSERT_NE(latest, nullptr);
    EXPECT_EQ(itemOf(latest)->mTimestamp, 600);
    counts = host::imageReaderSlotCounts(env, mReader);
    EXPECT_EQ(counts.acquired, 1);
    EXPECT_EQ(counts.queued, 0);

    // Closing the reader closes its open images and abandons the queue.
    close(mReader);
    EXPECT_EQ(itemOf(latest), nullptr);
    EXPECT_EQ(host::imageReaderFreeItemCount(env, mReader), -1);
    ANativeWindowBuffer* anwb = nullptr;
    EXPECT_EQ(native_window_dequeue_buffer_and_wait(mProducer.get(), &anwb), android::NO_INIT);
}

// The reader refuses what Android's refuses: NV21 readers, and buffers whose format does not
// match the reader's (flexible YUV readers take any YUV buffer).
TEST_F(ImageReaderTest, RefusesNv21ReadersAndMismatchedBuffers) {
    EXPECT_EQ(newReader(64, 48, HAL_PIXEL_FORMAT_YCrCb_420_SP, 1), nullptr);
    expectPending(env, "java.lang.IllegalArgumentException: NV21 format is not supported");

    openReader(64, 48, HAL_PIXEL_FORMAT_RAW10, 1);
    produce(mProducer, HAL_PIXEL_FORMAT_RAW12, 1);
    EXPECT_EQ(acquireNext(mReader), nullptr);
    expectPending(env,
                  "java.lang.UnsupportedOperationException: The producer output buffer format "
                  "0x26 doesn't match the ImageReader's configured buffer format 0x25.");
    EXPECT_EQ(host::imageReaderSlotCounts(env, mReader).acquired, 0);
    EXPECT_EQ(host::imageReaderFreeItemCount(env, mReader), 1);

    // A JPEG reader asks for BLOB buffers in the JFIF data space and reports the reader's size.
    openReader(4096, 1, kJpeg, 1);
    ASSERT_EQ(native_window_set_buffers_dimensions(mProducer.get(), 4096, 1), OK);
    produce(mProducer, HAL_PIXEL_FORMAT_BLOB, 1);
    jobject image = acquireNext(mReader);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(itemOf(image)->mDataSpace, HAL_DATASPACE_V0_JFIF);
    EXPECT_EQ(callInt(image, "getFormat"), kJpeg);
    EXPECT_EQ(callInt(image, "getDataSpace"), HAL_DATASPACE_V0_JFIF);
}

// Solid 2x2 blocks of four colours, so every chroma sample has one exact expected value.
RgbPicture blockPicture(uint32_t width, uint32_t height) {
    static const uint8_t kPalette[4][3] = {
            {200, 100, 50}, {20, 220, 120}, {90, 30, 240}, {255, 255, 255}};
    RgbPicture p{width, height, std::vector<uint8_t>(size_t{width} * height * 3)};
    for (uint32_t y = 0; y < height; y++) {
        for (uint32_t x = 0; x < width; x++) {
            const uint8_t* c = kPalette[((x / 2) * 3 + (y / 2) * 5) % 4];
            std::copy(c, c + 3, &p.rgb[(size_t{y} * width + x) * 3]);
        }
    }
    return p;
}

// The picture's sample at (x, y) in 8-bit units: 0 luma, 1 Cb, 2 Cr (JFIF, unrounded), 3 the
// pixel's channel of the RGGB mosaic (R at even rows and columns, B at odd ones).
double reference(const RgbPicture& p, uint32_t x, uint32_t y, int component) {
    const uint8_t* c = p.pixel(x, y);
    if (component == 3) return c[x % 2 + y % 2];
    const double r = c[0], g = c[1], b = c[2];
    const double v[3] = {0.299 * r + 0.587 * g + 0.114 * b,
                         128 - 0.168736 * r - 0.331264 * g + 0.5 * b,
                         128 + 0.5 * r - 0.418688 * g - 0.081312 * b};
    return std::clamp(v[component], 0.0, 255.0);
}

uint16_t le16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}

// How many of the picture's samples of `components`, as `read(x, y, component)` gives them at
// full scale `max`, are off the reference by more than `tolerance`.
template <typename Read>
int offSamples(const RgbPicture& p, std::vector<int> components, double max, double tolerance,
               Read read) {
    int off = 0;
    for (uint32_t y = 0; y < p.height; y++) {
        for (uint32_t x = 0; x < p.width; x++) {
            for (int c : components) {
                off += std::abs(read(x, y, c) - reference(p, x, y, c) * max / 255) > tolerance;
            }
        }
    }
    return off;
}

// A sample of a single-plane format at pixel x of a row, in Android's packings.
int sampleAt(int32_t format, const uint8_t* row, uint32_t x) {
    switch (format) {
        case HAL_PIXEL_FORMAT_Y8:
            return row[x];
        case HAL_PIXEL_FORMAT_RAW10:
            return row[x / 4 * 5 + x % 4] << 2 | ((row[x / 4 * 5 + 4] >> (2 * (x % 4))) & 3);
        case HAL_PIXEL_FORMAT_RAW12:
            return row[x / 2 * 3 + x % 2] << 4 | ((row[x / 2 * 3 + 2] >> (4 * (x % 2))) & 15);
        default:  // Y16, RAW16
            return le16(row + 2 * x);
    }
}

// Checks every sample of the picture, read as the format's consumers read it: 8-bit YUV through
// the YCbCr lock (a phone pads rows to 64 bytes at least), compressed NV12 through the reference
// decoder, P010 through the mapper's plane layouts (10 bits high), the rest row by row through a
// plain lock: the luma (Y8, Y16) or the RGGB mosaic (RAW16 and RAW10 10-bit, RAW12 12-bit).
void expectPicture(GraphicBuffer& buffer, const RgbPicture& p, bool padded) {
    const int32_t format = buffer.getPixelFormat();
    const bool compressed = format == HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC;
    const bool singlePlane = format == HAL_PIXEL_FORMAT_Y8 || format == HAL_PIXEL_FORMAT_Y16 ||
                             format == HAL_PIXEL_FORMAT_RAW16 || format == HAL_PIXEL_FORMAT_RAW10 ||
                             format == HAL_PIXEL_FORMAT_RAW12;
    int off = 0;
    void* base = nullptr;
    int32_t bytesPerPixel = 0, stride = 0;
    android_ycbcr ycbcr{};
    std::vector<uint8_t> nv12;
    std::vector<android::ui::PlaneLayout> l;
    if (compressed) {
        host::GrallocLayout layout;
        ASSERT_TRUE(host::grallocLayoutOf(buffer, &layout));
        nv12 = host::decodeCompressedNv12(layout, host::readBufferMemory(buffer).data());
        ASSERT_FALSE(nv12.empty());
        uint8_t* chroma = nv12.data() + size_t{p.width} * p.height;  // (width + 1) / 2 pairs a row
        ycbcr = {nv12.data(), chroma, chroma + 1, p.width, (p.width + 1) / 2 * 2, 2, {}};
    } else if (format == HAL_PIXEL_FORMAT_YCBCR_P010) {
        ASSERT_EQ(android::GraphicBufferMapper::get().getPlaneLayouts(buffer.handle, &l), OK);
        ASSERT_EQ(l.size(), 2u);
        ASSERT_EQ(buffer.lock(GRALLOC_USAGE_SW_READ_OFTEN, &base), OK);
        const auto* b = static_cast<const uint8_t*>(base);
        off = offSamples(p, {0, 1, 2}, 1023, 5, [&](uint32_t x, uint32_t y, int c) {
            const size_t at = c == 0 ? l[0].offsetInBytes + y * l[0].strideInBytes + x * 2
                                     : l[1].offsetInBytes + (y / 2) * l[1].strideInBytes +
                                               (x / 2) * 4 + (c - 1) * 2;
            return le16(b + at) & 63 ? -1e6 : le16(b + at) >> 6;  // low bits set: off
        });
    } else if (singlePlane) {
        ASSERT_EQ(buffer.lock(GRALLOC_USAGE_SW_READ_OFTEN, &base, &bytesPerPixel, &stride), OK);
        const bool luma = format == HAL_PIXEL_FORMAT_Y8 || format == HAL_PIXEL_FORMAT_Y16;
        const double max = format == HAL_PIXEL_FORMAT_Y8      ? 255
                           : format == HAL_PIXEL_FORMAT_Y16   ? 65535
                           : format == HAL_PIXEL_FORMAT_RAW12 ? 4095
                                                              : 1023;
        const double tolerance = format == HAL_PIXEL_FORMAT_Y16 ? 258 : luma ? 1 : 0.5;
        off = offSamples(p, {luma ? 0 : 3}, max, tolerance, [&](uint32_t x, uint32_t y, int) {
            return sampleAt(format, static_cast<const uint8_t*>(base) + size_t{y} * stride, x);
        });
    } else {
        ASSERT_EQ(buffer.lockYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, &ycbcr), OK);
        EXPECT_TRUE(!padded || ycbcr.ystride >= 64u) << ycbcr.ystride;
    }
    if (ycbcr.y != nullptr) {
        const void* planes[3] = {ycbcr.y, ycbcr.cb, ycbcr.cr};
        off = offSamples(p, {0, 1, 2}, 255, 1, [&](uint32_t x, uint32_t y, int c) {
            const size_t at = c == 0 ? y * ycbcr.ystride + x
                                     : (y / 2) * ycbcr.cstride + (x / 2) * ycbcr.chroma_step;
            return static_cast<const uint8_t*>(planes[c])[at];
        });
    }
    EXPECT_EQ(off, 0);
    EXPECT_EQ(compressed ? OK : buffer.unlock(), OK);  // the decoder does not lock
}

// The JPEG starts the buffer, decodes back to the picture, and its size is in the camera's
// trailer in the last 8 bytes.
void expectJpeg(GraphicBuffer& buffer, const RgbPicture& p, size_t reportedSize) {
    void* base = nullptr;
    ASSERT_EQ(buffer.lock(GRALLOC_USAGE_SW_READ_OFTEN, &base), OK);
    const auto* b = static_cast<const uint8_t*>(base);
    const size_t capacity = buffer.getWidth();
    const size_t size = reportedSize;  // the trailer: blob id 0x00FF, padding, the size
    EXPECT_EQ(std::vector<uint8_t>(b + capacity - 8, b + capacity),
              (std::vector<uint8_t>{0xFF, 0, 0, 0, uint8_t(size), uint8_t(size >> 8),
                                    uint8_t(size >> 16), uint8_t(size >> 24)}));
    ASSERT_GT(size, 4u);
    ASSERT_LE(size, capacity - 8);
    EXPECT_EQ(le16(b), 0xD8FF);             // SOI
    EXPECT_EQ(le16(b + size - 2), 0xD9FF);  // EOI
    RgbPicture decoded = host::decodeJpeg(b, size);
    ASSERT_EQ(decoded.width, p.width);
    ASSERT_EQ(decoded.height, p.height);
    double error = 0;
    for (size_t i = 0; i < p.rgb.size(); i++) error += std::abs(decoded.rgb[i] - p.rgb[i]);
    EXPECT_LT(error / p.rgb.size(), 12);
    EXPECT_EQ(buffer.unlock(), OK);
}

class CameraSourceTest : public ImageReaderTest {
protected:
    void TearDown() override {
        mCamera.reset();
        ImageReaderTest::TearDown();
    }

    // A new reader (the camera and reader before closed) fed by a camera of `format`; false when
    // either is refused.
    bool connectCamera(jint readerFormat, int32_t format, uint32_t width, uint32_t height,
                       int64_t fenceDelayUs = 0) {
        mCamera.reset();
        closeReader();
        mReader = newReader(width, height, readerFormat, 1);
        if (mReader == nullptr) return false;
        mCamera =
                CameraSource::connect(env, surfaceOf(mReader),
                                      {format, width, height, HAL_DATASPACE_UNKNOWN, fenceDelayUs});
        return mCamera != nullptr;
    }

    std::unique_ptr<CameraSource> mCamera;
};

// Every camera format the library reads, on a packed and a padded device, into a reader of the
// matching public format (the reader's, then the camera's format below).
TEST_F(CameraSourceTest, WritesThePictureInEveryCameraFormat) {
    const std::pair<jint, int32_t> cases[] = {
            {0x23, HAL_PIXEL_FORMAT_YCrCb_420_SP},
            {0x23, HAL_PIXEL_FORMAT_YCbCr_420_888},
            {0x23, PIXEL_FORMAT_YCrCb_420_SP_M},
            {0x23, HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS},
            {0x23, HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS},
            {0x22, HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED},
            {0x22, HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC},
            {0x36, HAL_PIXEL_FORMAT_YCBCR_P010},
            {0x25, HAL_PIXEL_FORMAT_RAW10},
            {0x26, HAL_PIXEL_FORMAT_RAW12},
            {0x20, HAL_PIXEL_FORMAT_RAW16},
            {0x20203859, HAL_PIXEL_FORMAT_Y8},
            {0x20363159, HAL_PIXEL_FORMAT_Y16},
            {0x100, HAL_PIXEL_FORMAT_BLOB},
    };
    const RgbPicture blocks = blockPicture(kWidth, kHeight);
    // JPEG's own 4:2:0 blurs 2x2 blocks of saturated colours: it gets a smoother picture.
    const RgbPicture card = host::makeTestCard(160, 120);
    for (const char* profile : {"packed-nv21", "phone-qcom"}) {
        ASSERT_TRUE(host::selectDeviceProfile(profile));
        for (const auto& [readerFormat, format] : cases) {
            SCOPED_TRACE(std::string(profile) + " " + host::grallocFormatName(format));
            const bool blob = format == HAL_PIXEL_FORMAT_BLOB;
            const uint32_t width = blob ? 16384 : kWidth, height = blob ? 1 : kHeight;
            ASSERT_TRUE(connectCamera(readerFormat, format, width, height));
            const RgbPicture& picture = blob ? card : blocks;
            ASSERT_EQ(mCamera->queueFrame(picture, 42), OK);
            jobject image = acquireNext(mReader);
            ASSERT_NE(image, nullptr);
            GraphicBuffer& buffer = *itemOf(image)->mGraphicBuffer;
            EXPECT_EQ(buffer.getPixelFormat(), format);
            EXPECT_EQ(itemOf(image)->mTimestamp, 42);
            EXPECT_EQ(buffer.getUsage() & GRALLOC_USAGE_HW_CAMERA_WRITE,
                      uint64_t{GRALLOC_USAGE_HW_CAMERA_WRITE});
            if (blob) {
                expectJpeg(buffer, picture, mCamera->lastJpegSize());
            } else if (format != HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED) {  // opaque
                expectPicture(buffer, picture, profile[1] == 'h');
            }
        }
    }
}

// A frame's acquire fence signals fenceDelayUs after the queue. Android's reader waits for it
// when acquiring; with the wait left to the locks, the async locks wait for it (the YCbCr lock's
// wait: ImageReadTest.LocksWaitForTheCamerasAcquireFence, through the library).
TEST_F(CameraSourceTest, AcquireFencesHoldBackTheReader) {
    using Clock = std::chrono::steady_clock;
    constexpr auto kDelay = std::chrono::milliseconds(300);
    for (bool waitInLock : {false, true}) {
        SCOPED_TRACE(waitInLock ? "wait in the lock" : "wait in the acquire");
        // Waiting in the acquire is the default; the property moves the wait to the locks.
        if (waitInLock) host::setProperty("host.imagereader.fence_wait", "lock");
        ASSERT_TRUE(connectCamera(kYuv420888, HAL_PIXEL_FORMAT_YCrCb_420_SP, kWidth + 1,
                                  kHeight + 1, std::chrono::microseconds(kDelay).count()));
        const Clock::time_point queued = Clock::now();
        ASSERT_EQ(mCamera->queueFrame(host::makeTestCard(kWidth + 1, kHeight + 1), 1), OK);
        jobject image = acquireNext(mReader);
        ASSERT_NE(image, nullptr);
        android::BufferItem* item = itemOf(image);
        EXPECT_EQ(item->mFence->getStatus() == android::Fence::Status::Signaled, !waitInLock);
        EXPECT_EQ(Clock::now() - queued >= kDelay, !waitInLock);
        void* data = nullptr;
        EXPECT_EQ(item->mGraphicBuffer->lockAsync(GRALLOC_USAGE_SW_READ_OFTEN, &data,
                                                  item->mFence->dup()),
                  OK);
        EXPECT_GE(Clock::now() - queued, kDelay);
        EXPECT_EQ(item->mGraphicBuffer->unlock(), OK);
    }
}

// Encoders plug in per format and replace the built-in ones; a frame that cannot be written is
// cancelled, so the queue keeps no buffer of it.
TEST_F(CameraSourceTest, PluggedEncodersAndRefusedFrames) {
    constexpr int32_t kRgb565 = HAL_PIXEL_FORMAT_RGB_565;
    // No camera writes RGB_565: it has no built-in encoder.
    ASSERT_TRUE(connectCamera(kYuv420888, kRgb565, 64, 32));
    RgbPicture card = host::makeTestCard(64, 32);
    EXPECT_EQ(mCamera->queueFrame(card, 1), android::BAD_VALUE);
    EXPECT_EQ(host::imageReaderSlotCounts(env, mReader).dequeued, 0);

    int calls = 0;
    host::setCameraFrameEncoder(kRgb565, [&](const RgbPicture& p, GraphicBuffer& buffer) {
        calls++;
        EXPECT_EQ(p.width, 64u);
        EXPECT_EQ(buffer.getPixelFormat(), kRgb565);
        return OK;
    });
    EXPECT_EQ(mCamera->queueFrame(card, 2), OK);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(host::imageReaderSlotCounts(env, mReader).queued, 1);
    host::setCameraFrameEncoder(kRgb565, nullptr);

    // A JPEG that does not fit its BLOB buffer with the trailer is refused.
    ASSERT_TRUE(connectCamera(kJpeg, HAL_PIXEL_FORMAT_BLOB, 200, 1));
    EXPECT_EQ(mCamera->queueFrame(card, 3), android::BAD_VALUE);
    EXPECT_EQ(host::imageReaderSlotCounts(env, mReader).dequeued, 0);
}

}  // namespace
