// Camera frames passed on through the shipped library and the real JVM: an image acquired from a
// real android.media.ImageReader produced into Surfaces and into HardwareBuffers of every NV21,
// flexible and Venus format, and padded NV21 frames from a Java buffer. The expected picture
// follows from the source's gralloc layout alone: its luma rows, then the chroma read as NV21
// pairs from its Cr address at the luma pitch, swapped for Cb-first targets.

#include <android/log.h>
#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <gtest/gtest.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>

#include <algorithm>
#include <random>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"
#include "tests/host/media_test_support.h"

namespace nuvra::test {
namespace {

using android::GraphicBuffer;
using android::sp;

constexpr int kVenusNv21 = 0x114, kVenusNv12 = 0x7FA30C04, kNv21M = 0x11D;
constexpr int kNv21 = HAL_PIXEL_FORMAT_YCrCb_420_SP, kFlexible = HAL_PIXEL_FORMAT_YCbCr_420_888;
constexpr uint64_t kCpuReadWrite = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

// A frame's planes as the producers read them: luma rows and NV21 chroma rows from the Cr
// address, both at `pitch`; chroma reads stay within `crReadable` bytes (the chroma plane's end).
struct SourcePlanes {
    const uint8_t* y;
    const uint8_t* cr;
    size_t pitch;
    size_t crReadable;
};

// Compares the target's picture (its contents without padding: w x h luma, then h / 2 rows of
// interleaved chroma; `w` x `h` even) with the source, the chroma pairs swapped for Cb-first
// targets. Positions whose byte lies past the source's chroma plane are not compared.
void expectPlanesCopied(const GraphicBuffer& target, const SourcePlanes& src, uint32_t w,
                        uint32_t h) {
    host::GrallocLayout l;
    ASSERT_TRUE(host::grallocLayoutOf(target, &l));
    const std::vector<uint8_t> got = host::readBufferContents(target);
    ASSERT_EQ(got.size(), size_t{w} * h * 3 / 2);
    std::vector<uint8_t> want = got;
    for (size_t r = 0; r < h; ++r) std::copy_n(src.y + r * src.pitch, w, &want[r * w]);
    for (size_t k = 0; k < h / 2; ++k) {
        for (size_t j = 0; j < w; ++j) {
            const size_t read = k * src.pitch + j;  // the byte the run reads for this position
            const size_t from = k * src.pitch + (l.cbOffset < l.crOffset ? j ^ 1u : j);
            if (std::max(read, from) < src.crReadable) want[w * h + k * w + j] = src.cr[from];
        }
    }
    EXPECT_EQ(got, want);
}

class YuvProducerTest : public hosttest::ImageReaderTest {
protected:
    void TearDown() override {
        // An unclosed HardwareBuffer is only freed once the JVM collects it: close them all.
        for (jobject hb : hardwareBuffers) close(hb);
        target.reset();
        ImageReaderTest::TearDown();
    }

    // A camera frame of random bytes in `halFormat`, acquired from a new flexible YUV reader (NV21
    // frames arrive in one, as a camera delivers them). Returns the Java image; `source`
    // describes what the library will read from it.
    jobject acquireCameraFrame(int halFormat, uint32_t w, uint32_t h) {
        openReader(w, h, kFlexible);
        camera = queueAndAcquire(halFormat, 7);
        const host::GrallocLayout& l = camera.layout;
        const uint8_t* base = camera.bytes.data();
        const size_t chromaEnd =
                std::min(l.cbOffset, l.crOffset) + (h + 1) / 2 * l.cStride - l.cStride + w;
        source = {base + l.yOffset, base + l.crOffset, l.yStride, chromaEnd - l.crOffset};
        return camera.image;
    }
    // Whether the operation left the image unlocked (restoring that state either way).
    bool imageUnlocked() { return !wasLeftLocked(camera.item->mGraphicBuffer); }

    void makeTarget(int format, uint32_t w, uint32_t h) {
        target = makeTestSurface(env, {w, h, format});
        ASSERT_EQ(util()->nativeConnectSurface(env, target.javaSurface), 0);
        freeBuffers = dequeuableBuffers(target);
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
    }
    int intoSurface(jobject image) {
        return util()->nativeProduceFrameWithYuv420(env, target.javaSurface, image);
    }
    int intoBuffer(jobject a, jobject b) {
        return util()->nativeProduceFrameToHardwareBuffer(env, a, b);
    }
    sp<GraphicBuffer> receive() {
        android::BufferItem item;
        if (target.consumer->acquireBuffer(&item, 0) != android::OK) return nullptr;
        target.consumer->releaseBuffer(item);
        return item.mGraphicBuffer;
    }
    void expectCancelled() {
        EXPECT_EQ(host::callCount("window.cancelBuffer"), 1u);
        EXPECT_EQ(receive(), nullptr);
        EXPECT_EQ(dequeuableBuffers(target), freeBuffers);
    }

    // A Java HardwareBuffer over a new buffer (kept in `buffer`) that the CPU reads and writes.
    jobject newHardwareBuffer(uint32_t w, uint32_t h, int format,
                              sp<GraphicBuffer>* buffer = nullptr) {
        sp<GraphicBuffer> gb = new GraphicBuffer(w, h, format, 1, kCpuReadWrite, "test");
        if (buffer != nullptr) *buffer = gb;
        jobject hb = android::android_hardware_HardwareBuffer_createFromAHardwareBuffer(
                env, gb->toAHardwareBuffer());
        if (hb != nullptr) hardwareBuffers.push_back(hb);
        return hb;
    }

    hosttest::AcquiredImage camera;
    SourcePlanes source{};
    TestSurface target;
    int freeBuffers = 0;
    std::vector<jobject> hardwareBuffers;
};

const int kTargets[] = {kNv21, kVenusNv21, kNv21M, kFlexible, kVenusNv12};

// Into a hardware buffer the image may be either argument.
TEST_F(YuvProducerTest, CameraFrameIntoEverySurfaceAndHardwareBufferFormatOnBothProfiles) {
    setLogLevel("V");
    for (const char* profile : {"packed-nv21", "phone-qcom"}) {
        ASSERT_TRUE(host::selectDeviceProfile(profile));
        for (int format : kTargets) {
            for (auto [w, h] : {std::pair<uint32_t, uint32_t>{64, 48}, {100, 30}}) {
                SCOPED_TRACE(testing::Message() << profile << " " << host::grallocFormatName(format)
                                                << " " << w << "x" << h);
                jobject image = acquireCameraFrame(kFlexible, w, h);
                ASSERT_NE(image, nullptr);
                makeTarget(format, w, h);
                ASSERT_EQ(intoSurface(image), 0);
                // The image was locked and unlocked again before the copy.
                EXPECT_TRUE(imageUnlocked());
                sp<GraphicBuffer> got = receive();
                ASSERT_NE(got, nullptr);
                expectPlanesCopied(*got, source, w, h);
                for (bool imageFirst : {true, false}) {
                    SCOPED_TRACE(imageFirst ? "image first" : "buffer first");
                    sp<GraphicBuffer> buffer;
                    jobject hb = newHardwareBuffer(w, h, format, &buffer);
                    ASSERT_EQ(imageFirst ? intoBuffer(image, hb) : intoBuffer(hb, image), 0);
                    EXPECT_TRUE(imageUnlocked());
                    expectPlanesCopied(*buffer, source, w, h);
                }
                EXPECT_TRUE(logTexts(kSurfaceTag, ANDROID_LOG_ERROR).empty());
            }
        }
    }
}

// The row case and its pitches: the source's stride is taken for luma and chroma rows alike,
// the target's stride (when wider than the frame) even when the source is packed.
TEST_F(YuvProducerTest, PaddedNv21BufferRowsAndChromaOffset) {
    setLogLevel("V");
    ASSERT_TRUE(host::selectDeviceProfile("phone-nv21"));
    struct Case {
        int width, height, stride, heightSlice;
    };
    for (const Case& c :
         {Case{1000, 8, 1024, 8}, Case{1000, 8, 1000, 8}, Case{1000, 6, 1088, 1088}}) {
        SCOPED_TRACE(std::to_string(c.width) + " stride " + std::to_string(c.stride));
        makeTarget(kNv21, c.width, c.height);
        const size_t chromaOffset = static_cast<size_t>(c.heightSlice) * c.stride;
        std::vector<uint8_t> in(chromaOffset + c.height / 2 * c.stride);
        std::generate(in.begin(), in.end(), std::mt19937(3));
        auto fromBuffer = [&](size_t capacity) {
            jobject buffer = env->NewDirectByteBuffer(in.data(), static_cast<jlong>(capacity));
            return util()->nativeProduceFrameWithNV21FromBuffer(
                    env, target.javaSurface, buffer, c.width, c.height, c.stride, c.heightSlice);
        };
        ASSERT_EQ(fromBuffer(in.size()), 0);
        sp<GraphicBuffer> got = receive();
        ASSERT_NE(got, nullptr);
        ASSERT_GT(got->getStride(), static_cast<uint32_t>(c.width));  // a wider buffer
        expectPlanesCopied(*got, {in.data(), in.data() + chromaOffset, size_t(c.stride), SIZE_MAX},
                           c.width, c.height);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_VERBOSE,
                           "produceFrameWithYuv420: Stride != Width"));
        // One byte short of the last chroma row: refused before anything is dequeued.
        host::resetFaultsAndCalls();
        const size_t shortBy1 = in.size() - 1 - (c.stride - c.width);
        EXPECT_EQ(fromBuffer(shortBy1), android::BAD_VALUE);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                           "nativeProduceFrameWithNV21FromBuffer: PixelBuffer size " +
                                   std::to_string(shortBy1) + " too small for given dimensions"));
        EXPECT_EQ(host::callCount("window.dequeueBuffer"), 0u);
    }
}

// Refused sources and targets, and failing unlocks: the status and lines of each, a Surface's
// buffer cancelled, and the image unlocked again.
TEST_F(YuvProducerTest, RefusalsAndUnlockFailuresCancelTheSurfacesBuffer) {
    setLogLevel("V");
    const uint32_t w = 32, h = 16;
    using Lines = std::vector<std::string>;
    auto errors = [] { return logTexts(kSurfaceTag, ANDROID_LOG_ERROR); };
    const std::string failed = ": Error while producing frame";
    const std::string intoHb = "nativeProduceFrameToHardwareBuffer", intoHbFailed = intoHb + failed;
    // A source image that is not flexible YUV.
    jobject image = acquireCameraFrame(kNv21, w, h);
    ASSERT_NE(image, nullptr);
    makeTarget(kNv21, w, h);
    EXPECT_EQ(intoSurface(image), android::BAD_VALUE);
    EXPECT_TRUE(
            logged(kSurfaceTag, ANDROID_LOG_ERROR,
                   "produceFrameWithYuv420: Invalid pixel format in produceFrameWithYuv420: 11"));
    expectCancelled();
    EXPECT_TRUE(imageUnlocked());
    host::clearCapturedLogs();
    jobject hb = newHardwareBuffer(w, h, kNv21);
    EXPECT_EQ(intoBuffer(image, hb), android::BAD_VALUE);
    EXPECT_EQ(errors(), (Lines{"produceFrameToGraphicBuffer: Invalid pixel format: 11",
                               withError(intoHbFailed, android::BAD_VALUE)}));
    EXPECT_TRUE(imageUnlocked());

    // A flexible image into an RGBA hardware buffer: -38.
    image = acquireCameraFrame(kFlexible, w, h);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(intoBuffer(image, newHardwareBuffer(w, h, HAL_PIXEL_FORMAT_RGBA_8888)),
              android::INVALID_OPERATION);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "produceFrameToGraphicBuffer: Convert 420sp to other format(1) is not "
                       "supported yet."));
    EXPECT_TRUE(imageUnlocked());

    // A target's failing unlock is returned without a line of its own. Into a hardware buffer
    // the target is unlocked before the image.
    host::clearCapturedLogs();
    host::injectFault("buffer.unlock", -EIO);
    EXPECT_EQ(intoBuffer(image, hb), -EIO);
    EXPECT_EQ(errors(), Lines{withError(intoHbFailed, -EIO)});
    EXPECT_TRUE(imageUnlocked());
    // Into a Surface the image is unlocked first (its failure only logged), then the target.
    makeTarget(kNv21, w, h);
    host::injectFault("buffer.unlock", -EIO, 2);
    EXPECT_EQ(intoSurface(image), -EIO);
    EXPECT_EQ(errors(), (Lines{"unlockImageFromBuffer: Unlock buffer failed!",
                               withError("nativeProduceFrameWithYuv420" + failed, -EIO)}));
    expectCancelled();
    EXPECT_FALSE(imageUnlocked());  // the fault kept the image's lock

    // A closed hardware buffer: -22 with the warning, the image not even looked up.
    close(hb);
    host::resetFaultsAndCalls();
    EXPECT_EQ(intoBuffer(image, hb), android::BAD_VALUE);
    EXPECT_TRUE(
            logged(kSurfaceTag, ANDROID_LOG_WARN, intoHb + ": HardwareBuffer already released!!!"));
    EXPECT_EQ(host::callCount("buffer.lockAsyncYCbCr"), 0u);

    // An RGBA Surface: -38 after cancelling.
    makeTarget(HAL_PIXEL_FORMAT_RGBA_8888, w, h);
    EXPECT_EQ(intoSurface(image), android::INVALID_OPERATION);
    expectCancelled();

    // A released image: 0 into a Surface, -22 into a hardware buffer, warnings both.
    close(image);
    host::clearCapturedLogs();
    EXPECT_EQ(intoSurface(image), 0);
    EXPECT_EQ(intoBuffer(image, newHardwareBuffer(w, h, kNv21)), android::BAD_VALUE);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_WARN),
              (Lines{"Image already released!!!", intoHb + ": Image already released!!!"}));
}

}  // namespace
}  // namespace nuvra::test
