// Camera frames passed on through the shipped library and the real JVM: an image acquired from a
// real android.media.ImageReader produced into Surfaces and into HardwareBuffers of every NV21,
// flexible and Venus format, and padded NV21 frames from a Java buffer. The expected bytes follow
// from the two buffers' gralloc layouts alone: luma rows at the target's pitch, the chroma read
// as NV21 pairs from the source's Cr address at the luma pitch, swapped for Cb-first targets.

#include <android/log.h>
#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <android_runtime/android_view_Surface.h>
#include <gtest/gtest.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>
#include <ui/HostGrallocLayout.h>

#include <algorithm>
#include <random>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"

namespace nuvra::test {
namespace {

using android::BufferItem;
using android::GraphicBuffer;
using android::sp;

constexpr int kVenusNv21 = 0x114;
constexpr int kVenusNv12 = 0x7FA30C04;
constexpr int kNv21M = 0x11D;
constexpr int kFlexible = HAL_PIXEL_FORMAT_YCbCr_420_888;
constexpr uint64_t kCpuReadWrite = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

std::vector<uint8_t> randomBytes(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (uint8_t& b : v) b = static_cast<uint8_t>(rng());
    return v;
}

// The bytes of a whole allocation and its layout.
struct Memory {
    host::GrallocLayout layout;
    std::vector<uint8_t> bytes;
};

Memory readMemory(const sp<GraphicBuffer>& gb) {
    Memory m;
    EXPECT_TRUE(host::grallocLayoutOf(*gb, &m.layout));
    void* p = nullptr;
    EXPECT_EQ(gb->lock(GRALLOC_USAGE_SW_READ_OFTEN, &p), 0);
    if (p != nullptr) {
        m.bytes.assign(static_cast<uint8_t*>(p), static_cast<uint8_t*>(p) + m.layout.size);
    }
    gb->unlock();
    return m;
}

// A frame's planes as the producers read them: luma rows and NV21 chroma rows from the Cr
// address, both at `pitch`; reads stop at `crEnd` (the end of the source's chroma plane).
struct SourcePlanes {
    const uint8_t* y;
    const uint8_t* cr;
    size_t pitch;
    size_t crReadable;
};

// Where the target holds luma and chroma, and whether the chroma pairs are swapped on the way.
struct TargetPlanes {
    size_t yOffset;
    size_t chromaOffset;
    size_t pitch;
    bool swap;
};

TargetPlanes targetPlanesOf(const host::GrallocLayout& l, uint32_t width) {
    const size_t pitch = std::max<size_t>(l.stride, width);
    switch (l.format) {
        case kVenusNv12:
            return {l.yOffset, l.cbOffset, pitch, true};
        case kFlexible:
            return l.cbOffset == l.crOffset + 1 ? TargetPlanes{l.yOffset, l.crOffset, pitch, false}
                                                : TargetPlanes{l.yOffset, l.cbOffset, pitch, true};
        default:
            return {l.yOffset, l.crOffset, pitch, false};
    }
}

// Compares every byte of the target's picture with the source; `w` x `h` (even sizes).
void expectPlanesCopied(const Memory& target, const SourcePlanes& src, uint32_t w, uint32_t h) {
    const TargetPlanes t = targetPlanesOf(target.layout, w);
    size_t lumaMismatches = 0, chromaMismatches = 0;
    for (uint32_t r = 0; r < h; ++r) {
        for (uint32_t x = 0; x < w; ++x) {
            lumaMismatches += target.bytes[t.yOffset + r * t.pitch + x] != src.y[r * src.pitch + x];
        }
    }
    for (uint32_t k = 0; k < h / 2; ++k) {
        for (uint32_t j = 0; j < w; ++j) {
            const size_t from = k * src.pitch + (t.swap ? j ^ 1u : j);
            const size_t read = k * src.pitch + j;  // the byte the run reads for this position
            if (read >= src.crReadable || from >= src.crReadable) continue;
            chromaMismatches += target.bytes[t.chromaOffset + k * t.pitch + j] != src.cr[from];
        }
    }
    EXPECT_EQ(lumaMismatches, 0u);
    EXPECT_EQ(chromaMismatches, 0u);
}

class YuvProducerTest : public JniTest {
protected:
    void TearDown() override {
        releaseCamera();
        target.reset();
        JniTest::TearDown();
    }

    // Closes the images and the reader of the last camera frame.
    void releaseCamera() {
        for (jobject image : mImages) closeImage(image);
        mImages.clear();
        if (mSource != nullptr) native_window_api_disconnect(mSource.get(), NATIVE_WINDOW_API_CPU);
        mSource.clear();
        if (mReader != nullptr) {
            jclass cls = env->GetObjectClass(mReader);
            env->CallVoidMethod(mReader, env->GetMethodID(cls, "close", "()V"));
            checkJava("a Java call");
            env->DeleteGlobalRef(mReader);
            mReader = nullptr;
        }
    }

    // A camera frame of random bytes in `halFormat`, acquired from an ImageReader. Returns the
    // Java image; `source` describes what the library will read from it.
    jobject acquireCameraFrame(int halFormat, uint32_t w, uint32_t h, uint32_t seed = 7) {
        releaseCamera();
        // NV21 frames arrive in a flexible reader, as a camera delivers them.
        const int readerFormat = halFormat == HAL_PIXEL_FORMAT_YCrCb_420_SP ? kFlexible : halFormat;
        jclass cls = env->FindClass("android/media/ImageReader");
        jobject reader = env->CallStaticObjectMethod(
                cls,
                env->GetStaticMethodID(cls, "newInstance", "(IIII)Landroid/media/ImageReader;"),
                static_cast<jint>(w), static_cast<jint>(h), readerFormat, 2);
        checkJava("a Java call");
        if (reader == nullptr) return nullptr;
        mReader = env->NewGlobalRef(reader);
        jobject jsurface = env->CallObjectMethod(
                reader, env->GetMethodID(cls, "getSurface", "()Landroid/view/Surface;"));
        checkJava("a Java call");
        mSource = android::android_view_Surface_getSurface(env, jsurface);
        ANativeWindow* anw = mSource.get();
        EXPECT_EQ(native_window_api_connect(anw, NATIVE_WINDOW_API_CPU), 0);
        EXPECT_EQ(native_window_set_usage(anw, GRALLOC_USAGE_SW_WRITE_OFTEN), 0);
        EXPECT_EQ(native_window_set_buffers_format(anw, halFormat), 0);
        EXPECT_EQ(native_window_set_buffers_dimensions(anw, w, h), 0);
        ANativeWindowBuffer* anb = nullptr;
        EXPECT_EQ(native_window_dequeue_buffer_and_wait(anw, &anb), 0);
        if (anb == nullptr) return nullptr;
        sp<GraphicBuffer> gb = GraphicBuffer::from(anb);
        EXPECT_TRUE(host::grallocLayoutOf(*gb, &sourceMemory.layout));
        sourceMemory.bytes = randomBytes(sourceMemory.layout.size, seed);
        void* p = nullptr;
        EXPECT_EQ(gb->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &p), 0);
        memcpy(p, sourceMemory.bytes.data(), sourceMemory.bytes.size());
        EXPECT_EQ(gb->unlock(), 0);
        EXPECT_EQ(anw->queueBuffer(anw, anb, -1), 0);
        jobject image = env->CallObjectMethod(
                reader, env->GetMethodID(cls, "acquireNextImage", "()Landroid/media/Image;"));
        checkJava("a Java call");
        if (image == nullptr) return nullptr;
        mImages.push_back(image);
        const host::GrallocLayout& l = sourceMemory.layout;
        const uint8_t* base = sourceMemory.bytes.data();
        const size_t rows = (h + 1) / 2;
        const size_t chromaEnd = std::min(l.cbOffset, l.crOffset) + (rows - 1) * l.cStride + w;
        source = {base + l.yOffset, base + l.crOffset, l.yStride, chromaEnd - l.crOffset};
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
        return image;
    }

    // Fails the test with the Java exception that the last call left pending, and clears it.
    void checkJava(const char* what) {
        if (std::optional<JavaException> e = takePendingException(env)) {
            ADD_FAILURE() << what << " threw " << describe(*e);
        }
    }

    BufferItem* itemOf(jobject image) {
        jclass cls = env->FindClass("android/media/ImageReader$SurfaceImage");
        return reinterpret_cast<BufferItem*>(
                env->GetLongField(image, env->GetFieldID(cls, "mNativeBuffer", "J")));
    }
    void closeImage(jobject image) {
        jclass cls = env->FindClass("android/media/Image");
        env->CallVoidMethod(image, env->GetMethodID(cls, "close", "()V"));
        checkJava("a Java call");
    }
    // Whether the operation left the image unlocked (restoring that state either way).
    bool imageUnlocked(jobject image) { return !wasLeftLocked(itemOf(image)->mGraphicBuffer); }

    void makeTarget(int format, uint32_t w, uint32_t h) {
        TestSurfaceConfig config;
        config.format = format;
        config.width = w;
        config.height = h;
        target = makeTestSurface(env, config);
        ASSERT_EQ(util()->nativeConnectSurface(env, target.javaSurface), 0);
        freeBuffers = dequeuableBuffers(target);
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
    }
    std::optional<Memory> receive() {
        BufferItem item;
        if (target.consumer->acquireBuffer(&item, 0) != android::OK) return std::nullopt;
        Memory m = readMemory(item.mGraphicBuffer);
        target.consumer->releaseBuffer(item);
        return m;
    }
    void expectCancelled() {
        EXPECT_EQ(host::callCount("window.cancelBuffer"), 1u);
        EXPECT_EQ(host::callCount("window.queueBuffer"), 0u);
        EXPECT_FALSE(receive().has_value());
        EXPECT_EQ(dequeuableBuffers(target), freeBuffers);
    }

    jobject newHardwareBuffer(uint32_t w, uint32_t h, int format) {
        jclass cls = env->FindClass("android/hardware/HardwareBuffer");
        jobject buffer = env->CallStaticObjectMethod(
                cls,
                env->GetStaticMethodID(cls, "create", "(IIIIJ)Landroid/hardware/HardwareBuffer;"),
                static_cast<jint>(w), static_cast<jint>(h), format, 1,
                static_cast<jlong>(kCpuReadWrite));
        checkJava("HardwareBuffer.create");
        return buffer;
    }
    sp<GraphicBuffer> graphicBufferOf(jobject hardwareBuffer) {
        return GraphicBuffer::fromAHardwareBuffer(
                android::android_hardware_HardwareBuffer_getNativeHardwareBuffer(env,
                                                                                 hardwareBuffer));
    }
    void useProfile(const char* name) { ASSERT_TRUE(host::selectDeviceProfile(name)); }

    Memory sourceMemory;
    SourcePlanes source{};
    TestSurface target;
    int freeBuffers = 0;

private:
    jobject mReader = nullptr;
    sp<android::Surface> mSource;
    std::vector<jobject> mImages;
};

const int kTargets[] = {HAL_PIXEL_FORMAT_YCrCb_420_SP, kVenusNv21, kNv21M, kFlexible, kVenusNv12};

TEST_F(YuvProducerTest, CameraFrameIntoEverySurfaceFormatOnBothProfiles) {
    setLogLevel("V");
    for (const char* profile : {"packed-nv21", "phone-qcom"}) {
        useProfile(profile);
        for (int format : kTargets) {
            for (auto [w, h] : {std::pair<uint32_t, uint32_t>{64, 48}, {100, 30}}) {
                SCOPED_TRACE(std::string(profile) + " " + host::grallocFormatName(format) + " " +
                             std::to_string(w) + "x" + std::to_string(h));
                jobject image = acquireCameraFrame(kFlexible, w, h);
                ASSERT_NE(image, nullptr);
                makeTarget(format, w, h);
                ASSERT_EQ(util()->nativeProduceFrameWithYuv420(env, target.javaSurface, image), 0);
                // The image was locked and unlocked again before the copy.
                EXPECT_TRUE(imageUnlocked(image));
                std::optional<Memory> got = receive();
                ASSERT_TRUE(got.has_value());
                expectPlanesCopied(*got, source, w, h);
                EXPECT_EQ(host::callCount("window.queueBuffer"), 1u);
                EXPECT_TRUE(logTexts(kSurfaceTag, ANDROID_LOG_ERROR).empty());
            }
        }
    }
}

TEST_F(YuvProducerTest, CameraFrameIntoEveryHardwareBufferFormatInEitherArgumentOrder) {
    for (const char* profile : {"packed-nv21", "phone-qcom"}) {
        useProfile(profile);
        for (int format : kTargets) {
            for (bool tableOrder : {true, false}) {
                SCOPED_TRACE(std::string(profile) + " " + host::grallocFormatName(format) +
                             (tableOrder ? " image first" : " buffer first"));
                const uint32_t w = 100, h = 30;
                jobject image = acquireCameraFrame(kFlexible, w, h);
                ASSERT_NE(image, nullptr);
                jobject hb = newHardwareBuffer(w, h, format);
                ASSERT_NE(hb, nullptr);
                int err = tableOrder ? util()->nativeProduceFrameToHardwareBuffer(env, image, hb)
                                     : util()->nativeProduceFrameToHardwareBuffer(env, hb, image);
                ASSERT_EQ(err, 0);
                EXPECT_TRUE(imageUnlocked(image));
                expectPlanesCopied(readMemory(graphicBufferOf(hb)), source, w, h);
                EXPECT_TRUE(logTexts(kSurfaceTag, ANDROID_LOG_ERROR).empty());
            }
        }
    }
}

// The row case and its pitches: the source's stride is taken for luma and chroma rows alike,
// the target's stride (when wider than the frame) even when the source is packed.
TEST_F(YuvProducerTest, PaddedNv21BufferRowsAndChromaOffset) {
    setLogLevel("V");
    useProfile("phone-nv21");
    struct Case {
        int width, height, stride, heightSlice;
    };
    for (const Case& c :
         {Case{1000, 8, 1024, 8}, Case{1000, 8, 1000, 8}, Case{1000, 6, 1088, 1088}}) {
        SCOPED_TRACE(std::to_string(c.width) + " stride " + std::to_string(c.stride));
        makeTarget(HAL_PIXEL_FORMAT_YCrCb_420_SP, c.width, c.height);
        const size_t chromaOffset = static_cast<size_t>(c.heightSlice) * c.stride;
        std::vector<uint8_t> in = randomBytes(chromaOffset + c.height / 2 * c.stride, 3);
        jobject buffer = env->NewDirectByteBuffer(in.data(), static_cast<jlong>(in.size()));
        ASSERT_EQ(util()->nativeProduceFrameWithNV21FromBuffer(env, target.javaSurface, buffer,
                                                               c.width, c.height, c.stride,
                                                               c.heightSlice),
                  0);
        std::optional<Memory> got = receive();
        ASSERT_TRUE(got.has_value());
        ASSERT_GT(got->layout.stride, static_cast<uint32_t>(c.width));  // a wider buffer
        expectPlanesCopied(*got, {in.data(), in.data() + chromaOffset, size_t(c.stride), SIZE_MAX},
                           c.width, c.height);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_VERBOSE,
                           "produceFrameWithYuv420: Stride != Width"));
        if (c.heightSlice == 1088) {
            EXPECT_EQ(chromaOffset, 1183744u);
        }
        // One byte short of the last chroma row: refused before anything is dequeued.
        host::resetFaultsAndCalls();
        jobject shortBuffer = env->NewDirectByteBuffer(
                in.data(), static_cast<jlong>(in.size() - 1 - (c.stride - c.width)));
        EXPECT_EQ(util()->nativeProduceFrameWithNV21FromBuffer(env, target.javaSurface, shortBuffer,
                                                               c.width, c.height, c.stride,
                                                               c.heightSlice),
                  android::BAD_VALUE);
        EXPECT_EQ(host::callCount("window.dequeueBuffer"), 0u);
    }
}

TEST_F(YuvProducerTest, RefusalsCancelAndKeepTheImageUnlocked) {
    setLogLevel("V");
    const uint32_t w = 32, h = 16;
    // A source image that is not flexible YUV.
    jobject nv21Image = acquireCameraFrame(HAL_PIXEL_FORMAT_YCrCb_420_SP, w, h);
    ASSERT_NE(nv21Image, nullptr);
    makeTarget(HAL_PIXEL_FORMAT_YCrCb_420_SP, w, h);
    EXPECT_EQ(util()->nativeProduceFrameWithYuv420(env, target.javaSurface, nv21Image),
              android::BAD_VALUE);
    EXPECT_TRUE(
            logged(kSurfaceTag, ANDROID_LOG_ERROR,
                   "produceFrameWithYuv420: Invalid pixel format in produceFrameWithYuv420: 11"));
    expectCancelled();
    EXPECT_TRUE(imageUnlocked(nv21Image));

    host::clearCapturedLogs();
    jobject hb = newHardwareBuffer(w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP);
    EXPECT_EQ(util()->nativeProduceFrameToHardwareBuffer(env, nv21Image, hb), android::BAD_VALUE);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_ERROR),
              (std::vector<std::string>{
                      "produceFrameToGraphicBuffer: Invalid pixel format: 11",
                      withError("nativeProduceFrameToHardwareBuffer: Error while producing frame",
                                android::BAD_VALUE)}));
    EXPECT_TRUE(imageUnlocked(nv21Image));
}

TEST_F(YuvProducerTest, UnsupportedTargetsClosedBuffersAndReleasedImages) {
    setLogLevel("V");
    const uint32_t w = 32, h = 16;
    jobject image = acquireCameraFrame(kFlexible, w, h);
    ASSERT_NE(image, nullptr);

    // An RGBA hardware buffer: -38, and the image is unlocked again.
    jobject rgba = newHardwareBuffer(w, h, HAL_PIXEL_FORMAT_RGBA_8888);
    EXPECT_EQ(util()->nativeProduceFrameToHardwareBuffer(env, image, rgba),
              android::INVALID_OPERATION);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "produceFrameToGraphicBuffer: Convert 420sp to other format(1) is not "
                       "supported yet."));
    EXPECT_TRUE(imageUnlocked(image));

    // A closed hardware buffer: -22 with the warning, the image not even looked up.
    jobject closed = newHardwareBuffer(w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP);
    env->CallVoidMethod(closed, env->GetMethodID(env->GetObjectClass(closed), "close", "()V"));
    checkJava("a Java call");
    host::resetFaultsAndCalls();
    EXPECT_EQ(util()->nativeProduceFrameToHardwareBuffer(env, image, closed), android::BAD_VALUE);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_WARN,
                       "nativeProduceFrameToHardwareBuffer: HardwareBuffer already released!!!"));
    EXPECT_EQ(host::callCount("buffer.lockAsyncYCbCr"), 0u);

    // An RGBA Surface: -38 after cancelling.
    makeTarget(HAL_PIXEL_FORMAT_RGBA_8888, w, h);
    EXPECT_EQ(util()->nativeProduceFrameWithYuv420(env, target.javaSurface, image),
              android::INVALID_OPERATION);
    expectCancelled();

    // A released image: 0 into a Surface, -22 into a hardware buffer, warnings both.
    closeImage(image);
    host::clearCapturedLogs();
    jobject hb = newHardwareBuffer(w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP);
    EXPECT_EQ(util()->nativeProduceFrameWithYuv420(env, target.javaSurface, image), 0);
    EXPECT_EQ(util()->nativeProduceFrameToHardwareBuffer(env, image, hb), android::BAD_VALUE);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_WARN),
              (std::vector<std::string>{
                      "Image already released!!!",
                      "nativeProduceFrameToHardwareBuffer: Image already released!!!"}));
}

TEST_F(YuvProducerTest, UnlockFailureOfTheTargetIsReturnedWithoutALine) {
    setLogLevel("V");
    const uint32_t w = 32, h = 16;
    // Into a hardware buffer the target is unlocked before the image.
    jobject image = acquireCameraFrame(kFlexible, w, h);
    ASSERT_NE(image, nullptr);
    jobject hb = newHardwareBuffer(w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP);
    host::injectFault("buffer.unlock", -EIO);
    EXPECT_EQ(util()->nativeProduceFrameToHardwareBuffer(env, image, hb), -EIO);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_ERROR),
              (std::vector<std::string>{withError(
                      "nativeProduceFrameToHardwareBuffer: Error while producing frame", -EIO)}));
    EXPECT_TRUE(imageUnlocked(image));

    // Into a Surface the image is unlocked first (its failure only logged), then the target.
    makeTarget(HAL_PIXEL_FORMAT_YCrCb_420_SP, w, h);
    host::injectFault("buffer.unlock", -EIO, 2);
    EXPECT_EQ(util()->nativeProduceFrameWithYuv420(env, target.javaSurface, image), -EIO);
    EXPECT_EQ(
            logTexts(kSurfaceTag, ANDROID_LOG_ERROR),
            (std::vector<std::string>{
                    "unlockImageFromBuffer: Unlock buffer failed!",
                    withError("nativeProduceFrameWithYuv420: Error while producing frame", -EIO)}));
    EXPECT_EQ(host::callCount("window.cancelBuffer"), 1u);
    EXPECT_EQ(host::callCount("window.queueBuffer"), 0u);
    EXPECT_FALSE(imageUnlocked(image));  // the fault kept the image's lock
}

}  // namespace
}  // namespace nuvra::test
