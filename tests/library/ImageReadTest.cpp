// Images acquired from a real android.media.ImageReader, read through the shipped library and the
// real JVM: wrapped, copied, their JPEG size, data space and address. Frames are queued to the
// reader's Surface here with every byte of the allocation random, so the expected bytes and sizes
// follow from the gralloc layout alone.

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostcamera/CameraSource.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>
#include <ui/HostPlaneLayouts.h>

#include <atomic>
#include <thread>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"
#include "tests/host/media_test_support.h"
#include "tests/kernels/KernelTestSupport.h"

namespace nuvra::test {
namespace {

using hosttest::AcquiredImage;
using kernels::test::GuardedBuffer;
using kernels::test::kCanary;

// android.graphics.ImageFormat values of the readers.
constexpr int kJavaJpeg = 0x100;
constexpr int kJavaPrivate = 0x22;

struct Frame {
    int halFormat;
    uint32_t width, height;  // BLOB: the buffer's size in bytes, height 1
    int dataspace = HAL_DATASPACE_UNKNOWN;
    std::vector<uint8_t> jpegTrailer = {};  // BLOB: the 8 bytes written at the end
};

class ImageReadTest : public hosttest::ImageReaderTest {
protected:
    // A new reader for frames like `f` (NV21 in a flexible YUV reader, BLOB in a JPEG one) and
    // one such frame acquired from it.
    AcquiredImage acquire(const Frame& f, int maxImages = 2) {
        const int javaFormat = f.halFormat == HAL_PIXEL_FORMAT_YCrCb_420_SP ? 0x23
                               : f.halFormat == HAL_PIXEL_FORMAT_BLOB       ? kJavaJpeg
                                                                            : f.halFormat;
        openReader(f.width, f.height, javaFormat, maxImages);
        return queueAndAcquire(f.halFormat, 1, static_cast<android_dataspace>(f.dataspace),
                               f.jpegTrailer);
    }
    // Whether the operation left the buffer locked; restores the unlocked state.
    static bool leftLocked(const AcquiredImage& i) { return wasLeftLocked(i.item->mGraphicBuffer); }
    jobject direct(void* p, jlong capacity) { return env->NewDirectByteBuffer(p, capacity); }
    // The image copied into a direct buffer of `capacity` bytes at `p`.
    int copy(jobject image, void* p, jlong capacity) {
        return util()->nativePutByteBufferFromImage(env, image, direct(p, capacity));
    }
};

// The library's lines since the last clear above `minPriority`, as "P/text"; the plane layouts'
// dumps (checked by ImageHelpersTest) are left out.
std::vector<std::string> surfaceLines(int minPriority = ANDROID_LOG_DEFAULT) {
    std::vector<std::string> lines;
    for (const host::LogLine& l : host::capturedLogs()) {
        if (l.tag == kSurfaceTag && l.priority > minPriority &&
            l.text.find("gralloc4 plane") == std::string::npos) {
            lines.push_back(std::to_string(l.priority) + "/" + l.text);
        }
    }
    return lines;
}

// The verbose lines of an operation `name` that locks an image, reads its JPEG size
// `jpegSizes` times or logs its `geometry`, and unlocks it.
std::vector<std::string> lockedReadLines(const std::string& name, bool p010,
                                         const std::string& geometry, int jpegSizes) {
    const std::string lock = "2/lockImageFromBuffer: ";
    std::vector<std::string> lines = {
            "2/" + name, lock + "Try to lock the BufferItem",
            lock + "Try to lock the GraphicBuffer",
            lock + (p010 ? "Successfully extract Gralloc4PlaneLayout for P010 image"
                         : "Successfully locked the image from the GraphicBuffer"),
            lock + "Successfully locked the image from the BufferItem"};
    for (int i = 0; i < jpegSizes; ++i) {
        lines.insert(lines.end(), {"2/Image_getJpegSize", "2/Image_getJpegSize: Jpeg size = 4321"});
    }
    if (!geometry.empty()) lines.push_back("2/" + name + ": " + geometry);
    lines.push_back("2/unlockImageFromBuffer");
    return lines;
}

// What the library must hand out for an image, computed from the gralloc layout.
struct Expected {
    uint32_t size;         // bytes wrapped or copied
    uint32_t minCapacity;  // what a supplied buffer must hold
    std::string geometry;  // the verbose line of the planar formats ("" for none), after "%s: "
};

Expected expectedFor(const Frame& f, const host::GrallocLayout& l, uint32_t jpegSize) {
    const uint32_t w = f.width, h = f.height;
    const std::string size = "size(width " + std::to_string(w) + " height " + std::to_string(h) +
                             "), buffer(stride ";
    switch (f.halFormat) {
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
        case HAL_PIXEL_FORMAT_YCbCr_420_888: {
            // Rows of luma up to the Cr samples, then the chroma rows.
            const uint32_t slice = static_cast<uint32_t>(l.crOffset / l.yStride);
            return {(slice + h / 2) * l.yStride, w * h * 3 / 2,
                    "format 35, " + size + std::to_string(l.yStride) + " heightSlice " +
                            std::to_string(slice) + ")"};
        }
        case HAL_PIXEL_FORMAT_RAW16:
        case HAL_PIXEL_FORMAT_Y16:
            return {l.stride * h * 2, w * h * 2, ""};
        case HAL_PIXEL_FORMAT_RAW10:
        case HAL_PIXEL_FORMAT_RAW12:
            return {l.planes[0].strideBytes * h, w * h, ""};
        case HAL_PIXEL_FORMAT_YCBCR_P010: {
            const host::GrallocPlane& chroma = l.planes[1];
            const uint32_t lumaStride = l.planes[0].strideBytes;
            return {static_cast<uint32_t>(chroma.offset) + h / 2 * chroma.strideBytes, w * h * 3,
                    "format 54, " + size + std::to_string(lumaStride) + " chromaStride " +
                            std::to_string(chroma.strideBytes) + " heightSlice " +
                            std::to_string(chroma.offset / lumaStride) + ")"};
        }
        default:  // BLOB
            return {jpegSize, jpegSize, ""};
    }
}

// The 16-bit id and padding, then the 32-bit JPEG size, little-endian as the host.
std::vector<uint8_t> jpegTrailer(uint16_t id, uint16_t padding, uint32_t size) {
    const uint32_t words[2] = {id | uint32_t{padding} << 16, size};
    return {reinterpret_cast<const uint8_t*>(words), reinterpret_cast<const uint8_t*>(words + 2)};
}

const Frame kFormats[] = {
        {HAL_PIXEL_FORMAT_YCrCb_420_SP, 64, 48},  // in a flexible YUV reader
        {HAL_PIXEL_FORMAT_YCbCr_420_888, 38, 22},
        {HAL_PIXEL_FORMAT_RAW16, 40, 30},
        {HAL_PIXEL_FORMAT_Y16, 36, 20, HAL_DATASPACE_DEPTH},
        {HAL_PIXEL_FORMAT_RAW10, 52, 16},
        {HAL_PIXEL_FORMAT_RAW12, 50, 18},
        {HAL_PIXEL_FORMAT_YCBCR_P010, 64, 36, HAL_DATASPACE_BT2020_HLG},
        {HAL_PIXEL_FORMAT_BLOB, 6000, 1, HAL_DATASPACE_V0_JFIF, jpegTrailer(0xFF, 0, 4321)},
};

// Each format is locked once by the lock its layout needs (YCbCr for YUV, the whole buffer and
// the gralloc 4 plane layouts for P010) and unlocked again, with the lines of each step.
TEST_F(ImageReadTest, EveryFormatIsWrappedAndCopiedWithTheLayoutsSize) {
    setLogLevel("V");
    jclass byteBuffer = env->FindClass("java/nio/ByteBuffer");
    jobject heap = env->CallStaticObjectMethod(
            byteBuffer, env->GetStaticMethodID(byteBuffer, "allocate", "(I)Ljava/nio/ByteBuffer;"),
            64);
    ASSERT_FALSE(env->ExceptionCheck());
    for (const char* profile : {"packed-nv21", "phone-qcom"}) {
        ASSERT_TRUE(host::selectDeviceProfile(profile));
        for (const Frame& f : kFormats) {
            SCOPED_TRACE(std::string(profile) + " " + host::grallocFormatName(f.halFormat));
            AcquiredImage img = acquire(f);
            ASSERT_NE(img.item, nullptr);
            const Expected e = expectedFor(f, img.layout, 4321);
            ASSERT_LE(e.size, img.bytes.size());
            const bool p010 = f.halFormat == HAL_PIXEL_FORMAT_YCBCR_P010;
            const bool blob = f.halFormat == HAL_PIXEL_FORMAT_BLOB;
            const bool yuv = f.halFormat == HAL_PIXEL_FORMAT_YCrCb_420_SP ||
                             f.halFormat == HAL_PIXEL_FORMAT_YCbCr_420_888;
            std::vector<std::string> calls = {yuv ? "buffer.lockAsyncYCbCr" : "buffer.lockAsync",
                                              "buffer.unlock"};
            if (p010) calls.insert(calls.begin() + 1, "mapper.getPlaneLayouts");

            // Wrapped: the mapping itself, exactly the image's bytes long.
            jobject wrapped = util()->nativeGetBufferfromImage(env, img.image);
            ASSERT_NE(wrapped, nullptr);
            EXPECT_EQ(env->GetDirectBufferAddress(wrapped), img.base);
            EXPECT_EQ(env->GetDirectBufferCapacity(wrapped), static_cast<jlong>(e.size));
            EXPECT_EQ(host::recordedCalls(), calls);
            EXPECT_EQ(surfaceLines(),
                      lockedReadLines("nativeGetBufferfromImage", p010, e.geometry, blob));

            // Copied into a buffer just large enough for the copy (padded rows, never less than
            // the minimum). A byte below the minimum, a heap buffer (capacity -1), or a byte short
            // of the padded copy is refused and leaves the image locked.
            const uint32_t fits = std::max(e.size, e.minCapacity);
            GuardedBuffer dst(fits);
            std::vector<std::pair<jlong, uint32_t>> refusals = {
                    {static_cast<jlong>(e.minCapacity) - 1, e.minCapacity}, {-1, e.minCapacity}};
            if (e.size > e.minCapacity) refusals.push_back({e.size - 1, e.size});
            for (const auto& [capacity, needed] : refusals) {
                host::clearCapturedLogs();
                jobject refused = capacity < 0 ? heap : direct(dst.data(), capacity);
                EXPECT_EQ(util()->nativePutByteBufferFromImage(env, img.image, refused), -22);
                EXPECT_TRUE(logged(
                        kSurfaceTag, ANDROID_LOG_WARN,
                        "nativePutByteBufferFromImage: Buffer size(" + std::to_string(capacity) +
                                ") is smaller than image size(" + std::to_string(needed) + ")"));
                EXPECT_TRUE(leftLocked(img));
            }
            EXPECT_EQ(dst.bytes(), std::vector<uint8_t>(dst.size(), kCanary));
            host::clearCapturedLogs();
            host::resetFaultsAndCalls();
            EXPECT_EQ(copy(img.image, dst.data(), fits), 0);
            EXPECT_EQ(host::recordedCalls(), calls);
            EXPECT_EQ(surfaceLines(),
                      lockedReadLines("nativePutByteBufferFromImage", p010, e.geometry, 2 * blob));
            std::vector<uint8_t> expected(img.bytes.begin(), img.bytes.begin() + e.size);
            expected.resize(dst.size(), kCanary);
            EXPECT_EQ(dst.bytes(), expected);

            // Address and data space; neither leaves the buffer locked.
            EXPECT_EQ(util()->nativeGetNativeContext(env, img.image),
                      reinterpret_cast<jlong>(img.base));
            EXPECT_EQ(util()->nativeGetDataSpaceFromImage(env, img.image), f.dataspace);
            EXPECT_FALSE(leftLocked(img));
            close(img.image);
        }
    }
}

// An image refused a copy stays locked until it is closed, and close() still hands its buffer
// back to the queue: with one image allowed, the queue's buffers serve frame after frame only so.
// A closed image gives neutral values with a warning, without touching any buffer.
TEST_F(ImageReadTest, ClosedImagesReleaseTheirBufferAndWarn) {
    const Frame raw{HAL_PIXEL_FORMAT_RAW16, 32, 16};
    AcquiredImage first = acquire(raw, 1), img = first;
    mProducer->setDequeueTimeout(0);
    std::vector<uint8_t> bytes(32 * 16 * 2);
    for (uint32_t seed = 2; seed <= 4; ++seed) {
        ASSERT_EQ(copy(img.image, bytes.data(), 8), -22);
        close(img.image);
        img = queueAndAcquire(raw.halFormat, seed);
        ASSERT_NE(img.item, nullptr);
        EXPECT_EQ(host::readBufferMemory(*img.item->mGraphicBuffer), img.bytes);
    }

    EXPECT_EQ(util()->nativeGetNativeContext(env, first.image), 0);
    EXPECT_EQ(util()->nativeGetJpegSize(env, first.image), 0);
    EXPECT_EQ(util()->nativeGetBufferfromImage(env, first.image), nullptr);
    EXPECT_EQ(copy(first.image, bytes.data(), bytes.size()), 0);
    EXPECT_EQ(util()->nativeGetDataSpaceFromImage(env, first.image), 0);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_WARN),
              (std::vector<std::string>{"Image already released!!!", "Image already released!!!",
                                        "nativeGetBufferfromImage: Image already released!!!",
                                        "nativePutByteBufferFromImage: Image already released!!!",
                                        "Image already released!!!"}));
    EXPECT_TRUE(host::recordedCalls().empty());
}

// Images the operations refuse or can lock only in part: the address handed out, the wrap's
// lines from debug up, the copy, and that every lock that succeeded was undone.
TEST_F(ImageReadTest, RefusedAndPartlyLockedImages) {
    const std::string lock = "6/lockImageFromBuffer: ";
    const std::string wrap = "6/nativeGetBufferfromImage: ";
    const std::string failed = wrap + "nativeGetBufferfromImage is failed";
    const struct {
        Frame frame;
        const char* fault;  // armed with -5 before each call
        std::vector<std::string> wrapLines;
    } cases[] = {
            {{kJavaPrivate, 32, 16},
             nullptr,
             {lock + "Opaque format buffer is not lockable!",
              lock + "Lock graphic buffer failed!(-22)", wrap + "No support format 0", failed}},
            {{HAL_PIXEL_FORMAT_RGBA_8888, 16, 16}, nullptr, {wrap + "No support format 1", failed}},
            {{HAL_PIXEL_FORMAT_Y8, 16, 16},
             nullptr,
             {wrap + "No support format 538982489", failed}},
            {{HAL_PIXEL_FORMAT_RAW16, 16, 16},
             "buffer.lockAsync",
             {lock + "Lock buffer failed with lockAsync!(-5, format 32)",
              lock + "Lock graphic buffer failed!(-5)", wrap + "No support format 0", failed}},
            // Locked whole instead, without chroma: wrapped and copied as the luma plane alone,
            // not as the rows up to address 0.
            {{HAL_PIXEL_FORMAT_YCrCb_420_SP, 16, 16},
             "buffer.lockAsyncYCbCr",
             {"5/lockImageFromBuffer: Lock buffer failed with lockAsyncYCbCr!(-5, format 17)"}},
            // The plane layouts refused: luma only.
            {{HAL_PIXEL_FORMAT_YCBCR_P010, 16, 16},
             nullptr,
             {"6/extractP010Gralloc4PlaneLayout: sizeInBits(8) of one of plane layout components "
              "is not 10",
              "5/lockImageFromBuffer: Extract Gralloc4PlaneLayout for P010 image failed, only "
              "luma info is available",
              "3/nativeGetBufferfromImage: format 54, size(width 16 height 16), buffer(stride 32 "
              "heightSlice 16)"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(host::grallocFormatName(c.frame.halFormat));
        AcquiredImage img = acquire(c.frame);
        ASSERT_NE(img.item, nullptr);
        const bool p010 = c.frame.halFormat == HAL_PIXEL_FORMAT_YCBCR_P010;
        if (p010) {
            host::PlaneLayouts eightBit(1);
            eightBit[0].components = {host::planeLayoutComponent(
                    aidl::android::hardware::graphics::common::PlaneLayoutComponentType::Y, 0, 8)};
            host::setPlaneLayoutOverride(android::OK, eightBit);
        }
        auto arm = [&] {
            if (c.fault != nullptr) host::injectFault(c.fault, -5);
            host::clearCapturedLogs();
        };
        arm();
        // A failed lock logs its error first.
        EXPECT_EQ(util()->nativeGetNativeContext(env, img.image),
                  c.wrapLines[0].rfind(lock, 0) == 0 ? 0 : reinterpret_cast<jlong>(img.base));
        EXPECT_FALSE(leftLocked(img));
        arm();
        jobject wrapped = util()->nativeGetBufferfromImage(env, img.image);
        EXPECT_FALSE(leftLocked(img));
        EXPECT_EQ(surfaceLines(ANDROID_LOG_VERBOSE), c.wrapLines);
        // The luma plane (P010: three times its bytes, the stride counting 16-bit samples), or
        // nothing: a refused copy returns 0 too, with the wrap's lines but for the last.
        const bool refused = c.wrapLines.back() == failed;
        const uint32_t size = refused ? 0 : img.layout.stride * c.frame.height * (p010 ? 3 : 1);
        EXPECT_EQ(wrapped == nullptr ? -1 : env->GetDirectBufferCapacity(wrapped),
                  refused ? -1 : jlong{size});
        const uint32_t capacity = std::max(size, c.frame.width * c.frame.height * 3 / 2);
        GuardedBuffer dst(capacity);
        arm();
        EXPECT_EQ(copy(img.image, dst.data(), capacity), 0);
        std::vector<uint8_t> expected(img.bytes.begin(), img.bytes.begin() + size);
        expected.resize(capacity, kCanary);
        EXPECT_EQ(dst.bytes(), expected);
        if (refused) {
            std::vector<std::string> lines(c.wrapLines.begin(), c.wrapLines.end() - 1);
            lines.back() = "6/nativePutByteBufferFromImage: " + lines.back().substr(wrap.size());
            EXPECT_EQ(surfaceLines(ANDROID_LOG_VERBOSE), lines);
        }
        EXPECT_FALSE(leftLocked(img));
        close(img.image);
    }
}

TEST_F(ImageReadTest, JpegSizeFallsBackToTheBufferSizeWithoutAnExactTrailer) {
    openReader(3000, 1, kJavaJpeg);
    const std::pair<std::vector<uint8_t>, int> cases[] = {
            {jpegTrailer(0xFF, 1, 1234), 3000},
            {jpegTrailer(0xFF, 0, 0), 3000},
            {jpegTrailer(0xFF, 0, 5000), 5000}};  // the one exact trailer
    const std::string fallback =
            "Image_getJpegSize: No JPEG header detected, defaulting to size=width=3000";
    for (const auto& [trailer, expected] : cases) {
        AcquiredImage img =
                queueAndAcquire(HAL_PIXEL_FORMAT_BLOB, 1, HAL_DATASPACE_V0_JFIF, trailer);
        EXPECT_EQ(util()->nativeGetJpegSize(env, img.image), expected);
        EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_WARN),
                  std::vector<std::string>(expected == 3000, fallback));
        EXPECT_FALSE(leftLocked(img));
        close(img.image);
    }
    EXPECT_EQ(util()->nativeGetJpegFooterSize(env), 8);
}

// A camera queues its frames with acquire fences that signal later. With the reader leaving the
// fence to whoever reads the image, the library's lock waits for it.
TEST_F(ImageReadTest, LocksWaitForTheCamerasAcquireFence) {
    host::setProperty("host.imagereader.fence_wait", "lock");
    jobject reader = newReader(64, 48, 0x23, 2);
    std::unique_ptr<host::CameraSource> camera = host::CameraSource::connect(
            env, surfaceOf(reader),
            {HAL_PIXEL_FORMAT_YCrCb_420_SP, 64, 48, HAL_DATASPACE_UNKNOWN, 300000});
    ASSERT_NE(camera, nullptr);
    ASSERT_EQ(camera->queueFrame(host::makeTestCard(64, 48), 1000), android::OK);
    const auto queued = std::chrono::steady_clock::now();
    jobject image = acquireNext(reader);
    std::vector<uint8_t> bytes(64 * 48 * 3 / 2);
    ASSERT_EQ(copy(image, bytes.data(), bytes.size()), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - queued, std::chrono::milliseconds(250));
    EXPECT_EQ(bytes, host::readBufferContents(*camera->lastBuffer()));
    camera.reset();
    close(reader);
}

// ---- The one-time lookup of the image's field ----

// A JNIEnv whose FindClass and GetFieldID calls are counted (and can be made to fail) before they
// reach the thread's real JNIEnv. Only the functions that the lookup uses are forwarded.
thread_local JNIEnv* tRealEnv = nullptr;
std::atomic<int> gFindClassCalls{0};
std::atomic<bool> gFailFindClass{false};
std::atomic<bool> gFailGetFieldID{false};

jclass countedFindClass(JNIEnv*, const char* name) {
    gFindClassCalls++;
    // Long enough for a second caller to arrive while the first is inside the lookup.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return gFailFindClass ? nullptr : tRealEnv->FindClass(name);
}
jfieldID forwardedGetFieldID(JNIEnv*, jclass cls, const char* name, const char* sig) {
    return gFailGetFieldID ? nullptr : tRealEnv->GetFieldID(cls, name, sig);
}
jlong forwardedGetLongField(JNIEnv*, jobject obj, jfieldID field) {
    return tRealEnv->GetLongField(obj, field);
}

// The data space of `image` read through a counting JNIEnv on this thread.
int dataSpaceThroughCountingEnv(JavaVM* vm, jobject image) {
    vm->AttachCurrentThread(reinterpret_cast<void**>(&tRealEnv), nullptr);
    JNINativeInterface_ table = *tRealEnv->functions;
    table.FindClass = countedFindClass;
    table.GetFieldID = forwardedGetFieldID;
    table.GetLongField = forwardedGetLongField;
    JNIEnv counting{&table};
    return util()->nativeGetDataSpaceFromImage(&counting, image);
}

// Each case needs a process whose lookup has not run yet: it runs in a fresh child.
TEST_F(ImageReadTest, FirstLookupRunsOnceAcrossThreadsAndAbortsWithoutTheField) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto withImage = [this](auto body) {
        AcquiredImage img = acquire({HAL_PIXEL_FORMAT_RAW16, 16, 8, HAL_DATASPACE_DEPTH});
        JavaVM* vm = nullptr;
        env->GetJavaVM(&vm);
        body(vm, env->NewGlobalRef(img.image));
    };
    EXPECT_EXIT(withImage([](JavaVM* vm, jobject image) {
                    int results[2] = {};
                    auto read = [&](int i) {
                        results[i] = dataSpaceThroughCountingEnv(vm, image);
                        vm->DetachCurrentThread();
                    };
                    std::thread a(read, 0), b(read, 1);
                    a.join();
                    b.join();
                    _exit(gFindClassCalls != 1 || results[0] != HAL_DATASPACE_DEPTH ||
                          results[1] != HAL_DATASPACE_DEPTH);
                }),
                ::testing::ExitedWithCode(0), "");
    const std::pair<std::atomic<bool>*, const char*> failures[] = {
            {&gFailFindClass, "can't find android/graphics/ImageReader\\$SurfaceImage"},
            {&gFailGetFieldID, "can't find android/graphics/ImageReader.mNativeBuffer"}};
    for (auto [flag, message] : failures) {
        EXPECT_DEATH(withImage([flag = flag](JavaVM* vm, jobject image) {
                         *flag = true;
                         dataSpaceThroughCountingEnv(vm, image);
                     }),
                     message);
    }
}

}  // namespace
}  // namespace nuvra::test
