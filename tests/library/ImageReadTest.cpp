// Images acquired from a real android.media.ImageReader, read through the shipped library and the
// real JVM: wrapped, copied, their JPEG size, data space and address. Frames are queued to the
// reader's Surface here with every byte of the allocation random, so the expected bytes and sizes
// follow from the gralloc layout alone.

#include <android/log.h>
#include <android_runtime/android_view_Surface.h>
#include <gtest/gtest.h>
#include <gui/BufferItem.h>
#include <gui/Surface.h>
#include <hostcamera/CameraSource.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>
#include <system/window.h>
#include <ui/HostGrallocLayout.h>
#include <ui/HostPlaneLayouts.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"
#include "tests/kernels/KernelTestSupport.h"
#include "testsupport/JniTest.h"

namespace nuvra::test {
namespace {

using android::BufferItem;
using android::GraphicBuffer;
using android::sp;
using kernels::test::GuardedBuffer;

// android.graphics.ImageFormat values of the readers.
constexpr int kJavaJpeg = 0x100;
constexpr int kJavaPrivate = 0x22;

constexpr int kV = ANDROID_LOG_VERBOSE;

struct Frame {
    Frame(int format, uint32_t w, uint32_t h, int space = HAL_DATASPACE_UNKNOWN,
          std::vector<uint8_t> trailer = {})
        : halFormat(format),
          width(w),
          height(h),
          dataspace(static_cast<android_dataspace>(space)),
          jpegTrailer(std::move(trailer)) {}
    int halFormat;
    uint32_t width, height;  // BLOB: the buffer's size in bytes, height 1
    android_dataspace dataspace;
    std::vector<uint8_t> jpegTrailer;  // BLOB: the 8 bytes written at the end
};

// Fails the test with the Java exception that `what` left pending, and clears it.
void checkJava(JNIEnv* env, const char* what) {
    if (std::optional<JavaException> e = takePendingException(env)) {
        ADD_FAILURE() << what << " threw " << describe(*e);
    }
}

// One reader and the producer connected to its Surface.
struct Reader {
    JNIEnv* env = nullptr;
    jobject reader = nullptr;
    jobject surface = nullptr;
    sp<android::Surface> producer;
    ~Reader() {
        if (producer != nullptr)
            native_window_api_disconnect(producer.get(), NATIVE_WINDOW_API_CPU);
        if (reader != nullptr) {
            jclass cls = env->GetObjectClass(reader);
            env->CallVoidMethod(reader, env->GetMethodID(cls, "close", "()V"));
            checkJava(env, "ImageReader.close");
            env->DeleteGlobalRef(reader);
        }
        if (surface != nullptr) env->DeleteGlobalRef(surface);
    }
};

// An acquired image with what the test wrote into it.
struct Image {
    jobject image = nullptr;  // android.media.ImageReader$SurfaceImage
    BufferItem* item = nullptr;
    host::GrallocLayout layout;
    std::vector<uint8_t> bytes;     // the whole allocation as written
    const uint8_t* base = nullptr;  // where the reader's buffer is mapped
};

class ImageReadTest : public JniTest {
protected:
    // A reader for frames like `f`: NV21 goes to a flexible YUV reader, BLOB to a JPEG one.
    std::unique_ptr<Reader> openReader(const Frame& f, int maxImages = 2) {
        const int javaFormat = f.halFormat == HAL_PIXEL_FORMAT_YCrCb_420_SP ? 0x23
                               : f.halFormat == HAL_PIXEL_FORMAT_BLOB       ? kJavaJpeg
                                                                            : f.halFormat;
        const uint32_t width = f.width, height = f.height;
        auto r = std::make_unique<Reader>();
        r->env = env;
        jclass cls = env->FindClass("android/media/ImageReader");
        jmethodID newInstance =
                env->GetStaticMethodID(cls, "newInstance", "(IIII)Landroid/media/ImageReader;");
        jobject reader =
                env->CallStaticObjectMethod(cls, newInstance, static_cast<jint>(width),
                                            static_cast<jint>(height), javaFormat, maxImages);
        checkJava(env, "ImageReader.newInstance");
        if (reader == nullptr) return r;
        r->reader = env->NewGlobalRef(reader);
        jobject surface = env->CallObjectMethod(
                reader, env->GetMethodID(cls, "getSurface", "()Landroid/view/Surface;"));
        checkJava(env, "getSurface");
        r->surface = env->NewGlobalRef(surface);
        r->producer = android::android_view_Surface_getSurface(env, surface);
        EXPECT_EQ(native_window_api_connect(r->producer.get(), NATIVE_WINDOW_API_CPU), 0);
        return r;
    }

    // Queues one frame of random bytes to the reader and acquires it as a Java image.
    Image queueAndAcquire(Reader& r, const Frame& f, uint32_t seed = 1) {
        Image img;
        ANativeWindow* anw = r.producer.get();
        EXPECT_EQ(native_window_set_usage(anw, GRALLOC_USAGE_SW_WRITE_OFTEN), 0);
        EXPECT_EQ(native_window_set_buffers_format(anw, f.halFormat), 0);
        EXPECT_EQ(native_window_set_buffers_dimensions(anw, f.width, f.height), 0);
        EXPECT_EQ(native_window_set_buffers_data_space(anw, f.dataspace), 0);
        ANativeWindowBuffer* anb = nullptr;
        EXPECT_EQ(native_window_dequeue_buffer_and_wait(anw, &anb), 0);
        if (anb == nullptr) return img;
        sp<GraphicBuffer> gb = GraphicBuffer::from(anb);
        EXPECT_TRUE(host::grallocLayoutOf(*gb, &img.layout));
        void* p = nullptr;
        EXPECT_EQ(gb->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &p), 0);
        img.bytes.resize(img.layout.size);
        std::mt19937 rng(seed);
        for (uint8_t& b : img.bytes) b = static_cast<uint8_t>(rng());
        if (!f.jpegTrailer.empty()) {
            std::copy(f.jpegTrailer.begin(), f.jpegTrailer.end(), img.bytes.end() - 8);
        }
        memcpy(p, img.bytes.data(), img.bytes.size());
        EXPECT_EQ(gb->unlock(), 0);
        EXPECT_EQ(anw->queueBuffer(anw, anb, -1), 0);

        jclass cls = env->GetObjectClass(r.reader);
        jobject image = env->CallObjectMethod(
                r.reader, env->GetMethodID(cls, "acquireNextImage", "()Landroid/media/Image;"));
        checkJava(env, "acquireNextImage");
        EXPECT_NE(image, nullptr);
        if (image == nullptr) return img;
        img.image = image;
        img.item = itemOf(image);
        if (img.item != nullptr && f.halFormat != HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED) {
            // The test's own look at the mapping, balanced at once (a private reader's buffers
            // have no CPU-read usage).
            void* base = nullptr;
            EXPECT_EQ(img.item->mGraphicBuffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &base), 0);
            EXPECT_EQ(img.item->mGraphicBuffer->unlock(), 0);
            img.base = static_cast<const uint8_t*>(base);
        }
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
        return img;
    }

    BufferItem* itemOf(jobject image) {
        jclass cls = env->FindClass("android/media/ImageReader$SurfaceImage");
        return reinterpret_cast<BufferItem*>(
                env->GetLongField(image, env->GetFieldID(cls, "mNativeBuffer", "J")));
    }
    void close(jobject image) {
        jclass cls = env->FindClass("android/media/Image");
        env->CallVoidMethod(image, env->GetMethodID(cls, "close", "()V"));
        checkJava(env, "Image.close");
    }
    // Whether the operation left the buffer locked; restores the unlocked state.
    static bool leftLocked(const Image& img) { return wasLeftLocked(img.item->mGraphicBuffer); }
    jobject heapBuffer(jint capacity) {
        jclass cls = env->FindClass("java/nio/ByteBuffer");
        jobject buffer = env->CallStaticObjectMethod(
                cls, env->GetStaticMethodID(cls, "allocate", "(I)Ljava/nio/ByteBuffer;"), capacity);
        checkJava(env, "ByteBuffer.allocate");
        return buffer;
    }
    jobject directBuffer(void* p, size_t capacity) {
        return env->NewDirectByteBuffer(p, static_cast<jlong>(capacity));
    }

    void useProfile(const char* name) { ASSERT_TRUE(host::selectDeviceProfile(name)); }
};

// What the library must hand out for an image, computed from the gralloc layout.
struct Expected {
    uint32_t size;         // bytes wrapped or copied
    uint32_t minCapacity;  // what a supplied buffer must hold
    std::string geometry;  // the V/D line of the planar formats ("" for none), after "%s: "
    int geometryPriority = kV;
};

Expected expectedFor(const Frame& f, const host::GrallocLayout& l, uint32_t jpegSize) {
    const uint32_t w = f.width, h = f.height;
    switch (f.halFormat) {
        case HAL_PIXEL_FORMAT_YCrCb_420_SP:
        case HAL_PIXEL_FORMAT_YCbCr_420_888: {
            // Rows of luma up to the Cr samples, then the chroma rows.
            const uint32_t slice = static_cast<uint32_t>(l.crOffset / l.yStride);
            return {(slice + h / 2) * l.yStride, w * h * 3 / 2,
                    "format 35, size(width " + std::to_string(w) + " height " + std::to_string(h) +
                            "), buffer(stride " + std::to_string(l.yStride) + " heightSlice " +
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
                    "format 54, size(width " + std::to_string(w) + " height " + std::to_string(h) +
                            "), buffer(stride " + std::to_string(lumaStride) + " chromaStride " +
                            std::to_string(chroma.strideBytes) + " heightSlice " +
                            std::to_string(chroma.offset / lumaStride) + ")"};
        }
        default:  // BLOB
            return {jpegSize, jpegSize, ""};
    }
}

std::vector<uint8_t> jpegTrailer(uint16_t id, uint16_t padding, uint32_t size) {
    return {static_cast<uint8_t>(id),         static_cast<uint8_t>(id >> 8),
            static_cast<uint8_t>(padding),    static_cast<uint8_t>(padding >> 8),
            static_cast<uint8_t>(size),       static_cast<uint8_t>(size >> 8),
            static_cast<uint8_t>(size >> 16), static_cast<uint8_t>(size >> 24)};
}

struct FormatCase {
    const char* name;
    Frame frame;
};

const FormatCase kFormats[] = {
        {"NV21 in a flexible reader", {HAL_PIXEL_FORMAT_YCrCb_420_SP, 64, 48}},
        {"YCbCr_420_888 odd", {HAL_PIXEL_FORMAT_YCbCr_420_888, 38, 22}},
        {"RAW16", {HAL_PIXEL_FORMAT_RAW16, 40, 30}},
        {"Y16", {HAL_PIXEL_FORMAT_Y16, 36, 20, HAL_DATASPACE_DEPTH}},
        {"RAW10", {HAL_PIXEL_FORMAT_RAW10, 52, 16}},
        {"RAW12", {HAL_PIXEL_FORMAT_RAW12, 50, 18}},
        {"P010", {HAL_PIXEL_FORMAT_YCBCR_P010, 64, 36, HAL_DATASPACE_BT2020_HLG}},
        {"JPEG",
         {HAL_PIXEL_FORMAT_BLOB, 6000, 1, HAL_DATASPACE_V0_JFIF, jpegTrailer(0xFF, 0, 4321)}},
};

TEST_F(ImageReadTest, EveryFormatIsWrappedAndCopiedWithTheLayoutsSize) {
    setLogLevel("V");
    for (const char* profile : {"packed-nv21", "phone-qcom"}) {
        useProfile(profile);
        for (const FormatCase& c : kFormats) {
            SCOPED_TRACE(std::string(profile) + ", " + c.name);
            std::unique_ptr<Reader> r = openReader(c.frame);
            Image img = queueAndAcquire(*r, c.frame);
            ASSERT_NE(img.item, nullptr);
            const Expected e = expectedFor(c.frame, img.layout, 4321);
            ASSERT_LE(e.size, img.bytes.size());
            const std::vector<uint8_t> image(img.bytes.begin(), img.bytes.begin() + e.size);
            const std::string geometryLine = e.geometry.empty() ? "" : ": " + e.geometry;

            // Wrapped: the mapping itself, exactly the image's bytes long.
            jobject wrapped = util()->nativeGetBufferfromImage(env, img.image);
            ASSERT_NE(wrapped, nullptr);
            EXPECT_EQ(env->GetDirectBufferAddress(wrapped), img.base);
            EXPECT_EQ(env->GetDirectBufferCapacity(wrapped), static_cast<jlong>(e.size));
            EXPECT_FALSE(leftLocked(img));
            if (!e.geometry.empty()) {
                EXPECT_TRUE(logged(kSurfaceTag, e.geometryPriority,
                                   "nativeGetBufferfromImage" + geometryLine));
            }

            // Copied into a buffer that declares the minimum capacity but has room for the
            // copy, which counts padded rows; a byte less, or a buffer that is not direct
            // (capacity -1), is refused and leaves the image locked.
            GuardedBuffer dst(std::max(e.size, e.minCapacity), GuardedBuffer::Fence::After);
            for (jlong capacity : {static_cast<jlong>(e.minCapacity) - 1, jlong{-1}}) {
                host::clearCapturedLogs();
                jobject refused =
                        capacity < 0 ? heapBuffer(64) : directBuffer(dst.data(), capacity);
                EXPECT_EQ(util()->nativePutByteBufferFromImage(env, img.image, refused), -22);
                EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_WARN,
                                   "nativePutByteBufferFromImage: Buffer size(" +
                                           std::to_string(capacity) +
                                           ") is smaller than image size(" +
                                           std::to_string(e.minCapacity) + ")"));
                EXPECT_TRUE(leftLocked(img));
            }
            EXPECT_TRUE(std::all_of(dst.data(), dst.data() + dst.size(),
                                    [](uint8_t b) { return b == kernels::test::kCanary; }));
            host::clearCapturedLogs();
            EXPECT_EQ(util()->nativePutByteBufferFromImage(env, img.image,
                                                           directBuffer(dst.data(), e.minCapacity)),
                      0);
            EXPECT_FALSE(leftLocked(img));
            EXPECT_TRUE(std::equal(image.begin(), image.end(), dst.data()));
            EXPECT_TRUE(std::all_of(dst.data() + e.size, dst.data() + dst.size(),
                                    [](uint8_t b) { return b == kernels::test::kCanary; }));
            if (!e.geometry.empty()) {
                EXPECT_TRUE(logged(kSurfaceTag, e.geometryPriority,
                                   "nativePutByteBufferFromImage" + geometryLine));
            }

            // Address, data space and JPEG size; none leaves the buffer locked.
            EXPECT_EQ(util()->nativeGetNativeContext(env, img.image),
                      reinterpret_cast<jlong>(img.base));
            EXPECT_EQ(util()->nativeGetDataSpaceFromImage(env, img.image), c.frame.dataspace);
            if (c.frame.halFormat == HAL_PIXEL_FORMAT_BLOB) {
                EXPECT_EQ(util()->nativeGetJpegSize(env, img.image), 4321);
            }
            EXPECT_FALSE(leftLocked(img));
            close(img.image);
        }
    }
}

TEST_F(ImageReadTest, NV21WrapWritesItsLinesInOrder) {
    setLogLevel("V");
    const Frame nv21(HAL_PIXEL_FORMAT_YCrCb_420_SP, 64, 48);
    std::unique_ptr<Reader> r = openReader(nv21);
    Image img = queueAndAcquire(*r, nv21);
    ASSERT_NE(util()->nativeGetBufferfromImage(env, img.image), nullptr);
    const std::string lock = "2/NuvraSurfaceUtil: lockImageFromBuffer: ";
    EXPECT_EQ(allLogLines(),
              (std::vector<std::string>{
                      "2/NuvraSurfaceUtil: nativeGetBufferfromImage",
                      lock + "Try to lock the BufferItem",
                      lock + "Try to lock the GraphicBuffer",
                      lock + "Successfully locked the image from the GraphicBuffer",
                      lock + "Successfully locked the image from the BufferItem",
                      "2/NuvraSurfaceUtil: nativeGetBufferfromImage: format 35, size(width 64 "
                      "height 48), buffer(stride 64 heightSlice 48)",
                      "2/NuvraSurfaceUtil: unlockImageFromBuffer",
              }));
    // One YCbCr lock, no whole-buffer lock, one unlock.
    EXPECT_EQ(host::recordedCalls(),
              (std::vector<std::string>{"buffer.lockAsyncYCbCr", "buffer.unlock"}));
    close(img.image);
}

// Closing an image hands its buffer back to the queue, also after a refused copy left it
// locked: with one image allowed, the next frame can be acquired only then.
TEST_F(ImageReadTest, CloseReleasesTheBufferToTheQueue) {
    const Frame raw(HAL_PIXEL_FORMAT_RAW16, 32, 16);
    std::unique_ptr<Reader> r = openReader(raw, 1);
    Image first = queueAndAcquire(*r, raw);
    std::vector<uint8_t> small(8);
    ASSERT_EQ(util()->nativePutByteBufferFromImage(env, first.image,
                                                   directBuffer(small.data(), small.size())),
              -22);
    close(first.image);
    Image second = queueAndAcquire(*r, raw, 2);
    ASSERT_NE(second.item, nullptr);
    std::vector<uint8_t> all(32 * 16 * 2 * 4);
    jobject dst = directBuffer(all.data(), all.size());
    EXPECT_EQ(util()->nativePutByteBufferFromImage(env, second.image, dst), 0);
    EXPECT_TRUE(std::equal(all.begin(), all.begin() + second.layout.stride * 16 * 2,
                           second.bytes.begin()));
    close(second.image);
}

TEST_F(ImageReadTest, ReleasedImagesWarnAndGiveNeutralValues) {
    const Frame raw(HAL_PIXEL_FORMAT_RAW16, 16, 8);
    std::unique_ptr<Reader> r = openReader(raw);
    Image img = queueAndAcquire(*r, raw);
    close(img.image);
    host::clearCapturedLogs();
    std::vector<uint8_t> bytes(16 * 8 * 2);
    EXPECT_EQ(util()->nativeGetNativeContext(env, img.image), 0);
    EXPECT_EQ(util()->nativeGetJpegSize(env, img.image), 0);
    EXPECT_EQ(util()->nativeGetBufferfromImage(env, img.image), nullptr);
    EXPECT_EQ(util()->nativePutByteBufferFromImage(env, img.image,
                                                   directBuffer(bytes.data(), bytes.size())),
              0);
    EXPECT_EQ(util()->nativeGetDataSpaceFromImage(env, img.image), 0);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_WARN),
              (std::vector<std::string>{"Image already released!!!", "Image already released!!!",
                                        "nativeGetBufferfromImage: Image already released!!!",
                                        "nativePutByteBufferFromImage: Image already released!!!",
                                        "Image already released!!!"}));
    EXPECT_TRUE(host::recordedCalls().empty());
}

// Images the operations refuse or can lock only in part: the address handed out, the wrap's
// lines from warning up, and that every lock that succeeded was undone.
struct RefusalCase {
    const char* name;
    Frame frame;
    const char* fault;                   // armed with -5 before each call
    std::vector<std::string> wrapLines;  // empty: the wrap is not called
};

TEST_F(ImageReadTest, RefusedAndPartlyLockedImages) {
    const std::string lock = "6/lockImageFromBuffer: ";
    const std::string wrap = "6/nativeGetBufferfromImage: ";
    const std::string failed = wrap + "nativeGetBufferfromImage is failed";
    const RefusalCase cases[] = {
            {"opaque buffer",
             Frame(kJavaPrivate, 32, 16),
             nullptr,
             {lock + "Opaque format buffer is not lockable!",
              lock + "Lock graphic buffer failed!(-22)", wrap + "No support format 0", failed}},
            {"RGBA",
             Frame(HAL_PIXEL_FORMAT_RGBA_8888, 16, 16),
             nullptr,
             {wrap + "No support format 1", failed}},
            {"Y8",
             Frame(HAL_PIXEL_FORMAT_Y8, 16, 16),
             nullptr,
             {wrap + "No support format 538982489", failed}},
            {"whole-buffer lock fails",
             Frame(HAL_PIXEL_FORMAT_RAW16, 16, 16),
             "buffer.lockAsync",
             {lock + "Lock buffer failed with lockAsync!(-5, format 32)",
              lock + "Lock graphic buffer failed!(-5)", wrap + "No support format 0", failed}},
            // Locked whole instead, without chroma: the flexible size would count the rows up to
            // address 0, so only the address is asked for.
            {"YCbCr lock fails",
             Frame(HAL_PIXEL_FORMAT_YCrCb_420_SP, 16, 16),
             "buffer.lockAsyncYCbCr",
             {}},
            {"P010 layouts refused: luma only",
             Frame(HAL_PIXEL_FORMAT_YCBCR_P010, 16, 16),
             nullptr,
             {"6/extractP010Gralloc4PlaneLayout: sizeInBits(8) of one of plane layout components "
              "is not 10",
              "5/lockImageFromBuffer: Extract Gralloc4PlaneLayout for P010 image failed, only "
              "luma info is available",
              "3/nativeGetBufferfromImage: format 54, size(width 16 height 16), buffer(stride 32 "
              "heightSlice 16)"}},
    };
    for (const RefusalCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<Reader> r = openReader(c.frame);
        Image img = queueAndAcquire(*r, c.frame);
        ASSERT_NE(img.item, nullptr);
        const bool p010 = c.frame.halFormat == HAL_PIXEL_FORMAT_YCBCR_P010;
        if (p010) {
            host::PlaneLayouts eightBit(1);
            eightBit[0].components = {host::planeLayoutComponent(
                    aidl::android::hardware::graphics::common::PlaneLayoutComponentType::Y, 0, 8)};
            host::setPlaneLayoutOverride(android::OK, eightBit);
        }
        const bool lockFails = c.frame.halFormat == kJavaPrivate ||
                               (c.fault != nullptr && std::string(c.fault) == "buffer.lockAsync");
        if (c.fault != nullptr) host::injectFault(c.fault, -5);
        EXPECT_EQ(util()->nativeGetNativeContext(env, img.image),
                  lockFails ? 0 : reinterpret_cast<jlong>(img.base));
        EXPECT_FALSE(leftLocked(img));
        if (c.wrapLines.empty()) {
            EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_WARN,
                               "lockImageFromBuffer: Lock buffer failed with "
                               "lockAsyncYCbCr!(-5, format 17)"));
            EXPECT_EQ(host::callCount("buffer.lockAsync"), 1u);
            close(img.image);
            continue;
        }

        if (c.fault != nullptr) host::injectFault(c.fault, -5);
        host::clearCapturedLogs();
        jobject wrapped = util()->nativeGetBufferfromImage(env, img.image);
        EXPECT_EQ(wrapped != nullptr, p010);
        EXPECT_FALSE(leftLocked(img));
        std::vector<std::string> lines;
        for (const host::LogLine& l : host::capturedLogs()) {
            if (l.tag == kSurfaceTag && l.priority > kV)
                lines.push_back(std::to_string(l.priority) + "/" + l.text);
        }
        EXPECT_EQ(lines, c.wrapLines);

        if (p010) {
            // Luma only: three times the luma plane's bytes, stride counted in 16-bit samples.
            const size_t size = 3 * img.layout.stride * c.frame.height;
            GuardedBuffer dst(size, GuardedBuffer::Fence::After);
            EXPECT_EQ(util()->nativePutByteBufferFromImage(env, img.image,
                                                           directBuffer(dst.data(), size)),
                      0);
            EXPECT_EQ(dst.bytes(),
                      std::vector<uint8_t>(img.bytes.begin(), img.bytes.begin() + size));
        }
        close(img.image);
    }
}

TEST_F(ImageReadTest, JpegSizeFallsBackToTheBufferSizeWithoutAnExactTrailer) {
    std::unique_ptr<Reader> r = openReader(Frame(HAL_PIXEL_FORMAT_BLOB, 3000, 1));
    struct {
        std::vector<uint8_t> trailer;
        int expected;
    } cases[] = {
            {jpegTrailer(0xFF, 0, 1234), 1234},
            {jpegTrailer(0xFF, 1, 1234), 3000},
            {jpegTrailer(0xFF, 0, 0), 3000},
            {jpegTrailer(0xFF, 0, 5000), 5000},
    };
    for (const auto& c : cases) {
        Image img = queueAndAcquire(
                *r, {HAL_PIXEL_FORMAT_BLOB, 3000, 1, HAL_DATASPACE_V0_JFIF, c.trailer});
        EXPECT_EQ(util()->nativeGetJpegSize(env, img.image), c.expected);
        EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_WARN).size(), c.expected == 3000 ? 1u : 0u);
        EXPECT_FALSE(leftLocked(img));
        close(img.image);
    }
    EXPECT_EQ(util()->nativeGetJpegFooterSize(env), 8);
}

// A camera queues its frames with acquire fences that signal later. With the reader leaving the
// fence to whoever reads the image, the library's lock waits for it.
TEST_F(ImageReadTest, LocksWaitForTheCamerasAcquireFence) {
    host::setProperty("host.imagereader.fence_wait", "lock");
    const Frame nv21(HAL_PIXEL_FORMAT_YCrCb_420_SP, 64, 48);
    std::unique_ptr<Reader> r = openReader(nv21);
    native_window_api_disconnect(r->producer.get(), NATIVE_WINDOW_API_CPU);
    r->producer.clear();
    host::CameraSourceConfig config;
    config.format = nv21.halFormat;
    config.width = nv21.width;
    config.height = nv21.height;
    config.fenceDelayUs = 300000;
    std::unique_ptr<host::CameraSource> camera =
            host::CameraSource::connect(env, r->surface, config);
    ASSERT_NE(camera, nullptr);
    ASSERT_EQ(camera->queueFrame(host::makeTestCard(64, 48), 1000), android::OK);
    const auto queued = std::chrono::steady_clock::now();
    jclass cls = env->GetObjectClass(r->reader);
    jobject image = env->CallObjectMethod(
            r->reader, env->GetMethodID(cls, "acquireNextImage", "()Landroid/media/Image;"));
    checkJava(env, "acquireNextImage");
    std::vector<uint8_t> copy(64 * 48 * 3 / 2);
    ASSERT_EQ(util()->nativePutByteBufferFromImage(env, image,
                                                   directBuffer(copy.data(), copy.size())),
              0);
    EXPECT_GE(std::chrono::steady_clock::now() - queued, std::chrono::milliseconds(250));
    EXPECT_EQ(copy, host::readBufferContents(*camera->lastBuffer()));
    close(image);
}

// ---- The one-time lookup of the image's field ----

// A JNIEnv whose FindClass and GetFieldID calls are counted (and can be made to fail) before they
// reach the thread's real JNIEnv. Only the functions that the lookup uses are forwarded.
struct CountingEnv {
    const JNINativeInterface_* functions;
    JNIEnv* real;
};
std::atomic<int> gFindClassCalls{0};
std::atomic<bool> gFailFindClass{false};
std::atomic<bool> gFailGetFieldID{false};

JNIEnv* realEnv(JNIEnv* env) {
    return reinterpret_cast<CountingEnv*>(env)->real;
}
jclass countedFindClass(JNIEnv* env, const char* name) {
    gFindClassCalls++;
    // Long enough for a second caller to arrive while the first is inside the lookup.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return gFailFindClass ? nullptr : realEnv(env)->FindClass(name);
}
jfieldID forwardedGetFieldID(JNIEnv* env, jclass cls, const char* name, const char* sig) {
    return gFailGetFieldID ? nullptr : realEnv(env)->GetFieldID(cls, name, sig);
}
jlong forwardedGetLongField(JNIEnv* env, jobject obj, jfieldID field) {
    return realEnv(env)->GetLongField(obj, field);
}

JNINativeInterface_ countingTable(JNIEnv* real) {
    JNINativeInterface_ table = *real->functions;
    table.FindClass = countedFindClass;
    table.GetFieldID = forwardedGetFieldID;
    table.GetLongField = forwardedGetLongField;
    return table;
}

// The data space of `image` read through a counting JNIEnv on this thread.
int dataSpaceThroughCountingEnv(JavaVM* vm, jobject image) {
    JNIEnv* real = nullptr;
    vm->AttachCurrentThread(reinterpret_cast<void**>(&real), nullptr);
    JNINativeInterface_ table = countingTable(real);
    CountingEnv counting{&table, real};
    int dataSpace =
            util()->nativeGetDataSpaceFromImage(reinterpret_cast<JNIEnv*>(&counting), image);
    return dataSpace;
}

// Each case needs a process whose lookup has not run yet: it runs in a fresh child.
TEST_F(ImageReadTest, FirstLookupRunsOnceAcrossThreadsAndAbortsWithoutTheField) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto withImage = [this](auto body) {
        const Frame raw(HAL_PIXEL_FORMAT_RAW16, 16, 8, HAL_DATASPACE_DEPTH);
        std::unique_ptr<Reader> r = openReader(raw);
        Image img = queueAndAcquire(*r, raw);
        jobject image = env->NewGlobalRef(img.image);
        JavaVM* vm = nullptr;
        env->GetJavaVM(&vm);
        body(vm, image);
    };
    EXPECT_EXIT(withImage([](JavaVM* vm, jobject image) {
                    int results[2] = {};
                    std::thread a([&] {
                        results[0] = dataSpaceThroughCountingEnv(vm, image);
                        vm->DetachCurrentThread();
                    });
                    std::thread b([&] {
                        results[1] = dataSpaceThroughCountingEnv(vm, image);
                        vm->DetachCurrentThread();
                    });
                    a.join();
                    b.join();
                    bool ok = gFindClassCalls == 1 && results[0] == HAL_DATASPACE_DEPTH &&
                              results[1] == HAL_DATASPACE_DEPTH;
                    _exit(ok ? 0 : 1);
                }),
                ::testing::ExitedWithCode(0), "");
    EXPECT_DEATH(withImage([](JavaVM* vm, jobject image) {
                     gFailFindClass = true;
                     dataSpaceThroughCountingEnv(vm, image);
                 }),
                 "can't find android/graphics/ImageReader\\$SurfaceImage");
    EXPECT_DEATH(withImage([](JavaVM* vm, jobject image) {
                     gFailGetFieldID = true;
                     dataSpaceThroughCountingEnv(vm, image);
                 }),
                 "can't find android/graphics/ImageReader.mNativeBuffer");
}

}  // namespace
}  // namespace nuvra::test
