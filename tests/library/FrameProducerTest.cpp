// Frames written into Surfaces of every supported buffer format, through the shipped library and
// the real JVM. Expected bytes are computed here, pixel by pixel, from the conversion formulas.

#include <android/log.h>
#include <android_runtime/android_view_Surface.h>
#include <gtest/gtest.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>
#include <ui/HostGrallocGuard.h>
#include <ui/HostGrallocLayout.h>

#include <cstring>
#include <random>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"
#include "tests/kernels/KernelTestSupport.h"

namespace nuvra::test {
namespace {

using android::BufferItem;
using android::GraphicBuffer;
using android::sp;

constexpr int kVenusNv21 = 0x114;
constexpr int kVenusNv12 = 0x7FA30C04;
constexpr int kNv21M = 0x11D;

std::vector<uint8_t> randomBytes(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (uint8_t& b : v) b = static_cast<uint8_t>(rng());
    return v;
}

// What the consumer received: the queued buffer's bytes and layout.
struct Received {
    BufferItem item;
    host::GrallocLayout layout;
    std::vector<uint8_t> bytes;
};

class FrameProducerTest : public JniTest {
protected:
    // A connected Surface whose buffers are `format`, width x height.
    void makeSurface(int format, uint32_t width, uint32_t height) {
        TestSurfaceConfig config;
        config.format = format;
        config.width = width;
        config.height = height;
        ts = makeTestSurface(env, config);
        ASSERT_EQ(util()->nativeConnectSurface(env, ts.javaSurface), 0);
        // A CPU producer's buffers are allocated for CPU writes.
        ASSERT_EQ(native_window_set_usage(ts.surface.get(), GRALLOC_USAGE_SW_WRITE_OFTEN), 0);
        // What the producer may hold at once before anything was queued; a frame that is
        // refused must leave it so.
        freeBuffers = dequeuableBuffers(ts);
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
    }
    int produce(std::vector<uint8_t>& input, int width, int height, int pixelFormat) {
        jobject buffer = env->NewDirectByteBuffer(input.data(), static_cast<jlong>(input.size()));
        return util()->nativeProduceFrame(env, ts.javaSurface, buffer, width, height, pixelFormat);
    }
    std::optional<Received> receive() {
        Received r;
        if (ts.consumer->acquireBuffer(&r.item, 0) != android::OK) return std::nullopt;
        const sp<GraphicBuffer>& gb = r.item.mGraphicBuffer;
        EXPECT_TRUE(host::grallocLayoutOf(*gb, &r.layout));
        r.bytes = host::readBufferMemory(*gb);  // padding included
        ts.consumer->releaseBuffer(r.item);
        return r;
    }
    // The frame was refused: the buffer went back to the queue, nothing reached the consumer.
    void expectCancelled() {
        EXPECT_EQ(host::callCount("window.cancelBuffer"), 1u);
        EXPECT_EQ(host::callCount("window.queueBuffer"), 0u);
        BufferItem item;
        EXPECT_NE(ts.consumer->acquireBuffer(&item, 0), android::OK);
        EXPECT_EQ(dequeuableBuffers(ts), freeBuffers);
    }
    void useProfile(const char* name) { ASSERT_TRUE(host::selectDeviceProfile(name)); }
    // The index of the library's first captured line `text` at `priority`; -1 when there is none.
    static int lineIndex(int priority, const std::string& text) {
        std::vector<host::LogLine> lines = host::capturedLogs();
        for (size_t i = 0; i < lines.size(); ++i) {
            const host::LogLine& l = lines[i];
            if (l.tag == kSurfaceTag && l.priority == priority && l.text == text) return int(i);
        }
        return -1;
    }

    TestSurface ts;
    int freeBuffers = 0;
};

// ---- RGBA input ----

TEST_F(FrameProducerTest, RgbaIntoYuvBuffersFollowsEachTargetsPlanes) {
    // NV21 targets are written at pitch `width` with the chroma right after the luma, whatever
    // the buffer's stride; YV12 and YCbCr_420_888 where the gralloc puts their planes.
    const struct {
        const char* profile;
        int format;
        int w, h;
    } cases[] = {{"packed-nv21", HAL_PIXEL_FORMAT_YCrCb_420_SP, 36, 10},
                 {"phone-nv21", HAL_PIXEL_FORMAT_YCrCb_420_SP, 36, 10},
                 {"packed-nv21", HAL_PIXEL_FORMAT_YV12, 64, 20},
                 {"phone-nv21", HAL_PIXEL_FORMAT_YCbCr_420_888, 40, 6},
                 {"phone-qcom", HAL_PIXEL_FORMAT_YCbCr_420_888, 40, 6},
                 {"packed-qcom", HAL_PIXEL_FORMAT_YCbCr_420_888, 40, 7}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.profile << " format " << c.format);
        useProfile(c.profile);
        makeSurface(c.format, c.w, c.h);
        std::vector<uint8_t> rgba = randomBytes(c.w * c.h * 4, 1);
        setLogLevel("V");
        ASSERT_EQ(produce(rgba, c.w, c.h, HAL_PIXEL_FORMAT_RGBA_8888), 0);
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        host::GrallocLayout l = r->layout;
        if (c.format == HAL_PIXEL_FORMAT_YCrCb_420_SP) {
            l.yOffset = 0;
            l.crOffset = c.w * c.h;
            l.cbOffset = l.crOffset + 1;
            l.yStride = l.cStride = c.w;
            l.chromaStep = 2;
        }
        std::vector<uint8_t> expected(r->bytes.size(), 0);
        kernels::test::modelRgbaToYuv420(rgba.data(), c.w, c.h, &expected[l.yOffset],
                                         &expected[l.crOffset], &expected[l.cbOffset], l.chromaStep,
                                         l.yStride, l.cStride);
        EXPECT_EQ(r->bytes, expected);
        if (c.format == HAL_PIXEL_FORMAT_YV12) {
            EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_VERBOSE,
                               "produceFrame: stride is: " + std::to_string(l.stride)));
        }
        setLogLevel("");
    }
}

// A Surface whose buffer reports a YV12 stride the gralloc would never give (648 pixels), as a
// faulty gralloc could.
class MisalignedYv12Surface : public android::Surface {
public:
    MisalignedYv12Surface(const sp<android::IGraphicBufferProducer>& producer,
                          const sp<GraphicBuffer>& buffer)
        : Surface(producer, true), mBuffer(buffer) {
        mBuffer->stride = 648;
    }

protected:
    int dequeueBuffer(ANativeWindowBuffer** buffer, int* fenceFd) override {
        *buffer = mBuffer->getNativeBuffer();
        *fenceFd = -1;
        return 0;
    }

private:
    sp<GraphicBuffer> mBuffer;
};

TEST_F(FrameProducerTest, Yv12StrideThatIsNotSixteenPixelAlignedAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
            {
                TestSurfaceConfig config;
                config.format = HAL_PIXEL_FORMAT_YV12;
                config.width = 640;
                config.height = 480;
                TestSurface queue = makeTestSurface(env, config);
                sp<GraphicBuffer> buffer = new GraphicBuffer(
                        640, 480, HAL_PIXEL_FORMAT_YV12, 1,
                        GRALLOC_USAGE_SW_WRITE_OFTEN | GRALLOC_USAGE_SW_READ_OFTEN, "test");
                sp<android::Surface> s = new MisalignedYv12Surface(queue.producer, buffer);
                jobject javaSurface = android::android_view_Surface_createFromSurface(env, s);
                std::vector<uint8_t> rgba(640 * 480 * 4);
                jobject pixels = env->NewDirectByteBuffer(rgba.data(), rgba.size());
                util()->nativeProduceFrame(env, javaSurface, pixels, 640, 480,
                                           HAL_PIXEL_FORMAT_RGBA_8888);
            },
            "Stride is not 16 pixel aligned 648");
}

// The rows with nothing to write go straight to the unlock of a buffer that was never locked:
// as on a phone, GraphicBufferMapper logs the mapper's error and succeeds, so the buffer is
// queued unwritten.
TEST_F(FrameProducerTest, RowsWithNothingToWriteQueueTheBufferUnwritten) {
    const struct {
        int bufferFormat, inputFormat;
    } cases[] = {{HAL_PIXEL_FORMAT_RGBA_8888, HAL_PIXEL_FORMAT_RGBA_8888},
                 {HAL_PIXEL_FORMAT_RGB_565, HAL_PIXEL_FORMAT_RGBA_8888},
                 {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_YCbCr_420_888}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.inputFormat << " into " << c.bufferFormat);
        makeSurface(c.bufferFormat, 8, 8);
        std::vector<uint8_t> pixels = randomBytes(8 * 8 * 4, 2);
        EXPECT_EQ(produce(pixels, 8, 8, c.inputFormat), 0);
        EXPECT_EQ(host::callCount("buffer.lock") + host::callCount("buffer.lockYCbCr"), 0u);
        EXPECT_EQ(logTexts("Gralloc4", ANDROID_LOG_ERROR).size(), 1u);  // the mapper's error
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        EXPECT_EQ(r->bytes, std::vector<uint8_t>(r->bytes.size(), 0));
    }
}

// ---- NV21 input ----

TEST_F(FrameProducerTest, Nv21IntoNv21CopiesPlanesWholeOrByRows) {
    for (const char* profile : {"packed-nv21", "phone-nv21"}) {
        for (int format : {static_cast<int>(HAL_PIXEL_FORMAT_YCrCb_420_SP), kNv21M}) {
            SCOPED_TRACE(::testing::Message() << profile << " format " << format);
            useProfile(profile);
            const int w = 30, h = 8;
            makeSurface(format, w, h);
            std::vector<uint8_t> nv21 = randomBytes(w * h * 3 / 2, 4);
            setLogLevel("V");
            ASSERT_EQ(produce(nv21, w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP), 0);
            std::optional<Received> r = receive();
            ASSERT_TRUE(r);
            size_t stride = r->layout.stride;
#if defined(NUVRA_TEST_VENDOR_KORB)
            // Luma at y, chroma at the locked chroma start, rows at the buffer's stride.
            size_t chromaStart = r->layout.crOffset;
#else
            // The chroma follows the luma rows in one plane at the buffer's stride.
            size_t chromaStart = stride * h;
#endif
            for (int y = 0; y < h; ++y) {
                ASSERT_EQ(memcmp(&r->bytes[y * stride], &nv21[y * w], w), 0) << y;
            }
            for (int y = 0; y < h / 2; ++y) {
                ASSERT_EQ(memcmp(&r->bytes[chromaStart + y * stride], &nv21[w * h + y * w], w), 0);
            }
#if defined(NUVRA_TEST_VENDOR_KORB)
            EXPECT_EQ(logged(kSurfaceTag, ANDROID_LOG_VERBOSE, "produceFrame: Stride != Width"),
                      stride != static_cast<size_t>(w));
#endif
            setLogLevel("");
        }
    }
}

// Luma to y and the chroma run to cr, which is one byte into an NV12-ordered plane: every byte
// that lands inside the plane (ceil(h / 2) rows at the chroma stride) is written, nothing after.
TEST_F(FrameProducerTest, Nv21IntoFlexibleYuvWritesTheChromaRunUpToThePlanesEnd) {
    const struct {
        const char* profile;
        int w, h;
    } cases[] = {{"phone-nv21", 32, 6},
                 {"packed-qcom", 32, 6},
                 {"packed-qcom", 32, 5},
                 {"packed-qcom", 30, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.profile << " " << c.w << "x" << c.h);
        useProfile(c.profile);
        makeSurface(HAL_PIXEL_FORMAT_YCbCr_420_888, c.w, c.h);
        std::vector<uint8_t> nv21 = randomBytes(c.w * c.h * 3 / 2, 5);
        ASSERT_EQ(produce(nv21, c.w, c.h, HAL_PIXEL_FORMAT_YCrCb_420_SP), 0);
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        const host::GrallocLayout& l = r->layout;
        std::vector<uint8_t> expected(l.size, 0);
        const size_t planeEnd = std::min(l.cbOffset, l.crOffset) + (c.h + 1) / 2 * l.cStride;
        const size_t luma = c.w * c.h;
        if (l.yStride == static_cast<uint32_t>(c.w)) {
            memcpy(&expected[l.yOffset], nv21.data(), luma);
            for (size_t k = 0; k < luma / 2 && l.crOffset + k < planeEnd; ++k) {
                expected[l.crOffset + k] = nv21[luma + k];
            }
        } else {
            for (int y = 0; y < c.h; ++y) {
                memcpy(&expected[l.yOffset + y * l.yStride], &nv21[y * c.w], c.w);
            }
            for (int y = 0; y < c.h / 2; ++y) {
                memcpy(&expected[l.crOffset + y * l.cStride], &nv21[luma + y * c.w], c.w);
            }
        }
        EXPECT_EQ(r->bytes, expected);
    }
}

#if !defined(NUVRA_TEST_VENDOR_KORB)
// A buffer that refuses the plain lock is locked again through lockYCbCr and the chroma goes to
// cb, one byte into the NV21 plane: its last byte would lie past a packed buffer of whole pages.
TEST_F(FrameProducerTest, Nv21LockFallbackStopsTheChromaAtThePlanesEnd) {
    const int w = 128, h = 64;  // 12288 bytes: exactly three pages
    makeSurface(HAL_PIXEL_FORMAT_YCrCb_420_SP, w, h);
    std::vector<uint8_t> nv21 = randomBytes(w * h * 3 / 2, 12);
    host::injectFault("buffer.lock", -5);
    ASSERT_EQ(produce(nv21, w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP), 0);
    std::optional<Received> r = receive();
    ASSERT_TRUE(r);
    ASSERT_EQ(r->layout.size, 12288u);
    std::vector<uint8_t> expected(r->layout.size, 0);
    memcpy(expected.data(), nv21.data(), w * h);
    memcpy(&expected[r->layout.cbOffset], &nv21[w * h], w * h / 2 - 1);
    EXPECT_EQ(r->bytes, expected);
}
#endif

// Row r takes chroma row r / 2 wherever the input holds it (a 0x23 input is sized as RGBA, and
// NV21 input may carry ceil(h / 2) chroma rows). An NV21 input of exactly w * h * 3 / 2 bytes ends
// inside the last chroma row of an odd height: that row takes the chroma row above it, and a
// single row, which then has no whole chroma row, is converted as grey.
TEST_F(FrameProducerTest, Nv21IntoRgb565FollowsThePixelWalkWhereTheInputHoldsIt) {
    const int w = 34;
    const struct {
        int h, inputFormat, inputBytes;
    } cases[] = {{6, HAL_PIXEL_FORMAT_YCrCb_420_SP, w * 6 * 3 / 2},
                 {6, HAL_PIXEL_FORMAT_YCbCr_420_888, w * 6 * 4},
                 {5, HAL_PIXEL_FORMAT_YCrCb_420_SP, w * 5 + 3 * w},
                 {5, HAL_PIXEL_FORMAT_YCbCr_420_888, w * 5 * 4},
                 {1, HAL_PIXEL_FORMAT_YCbCr_420_888, w * 4},
                 {1, HAL_PIXEL_FORMAT_YCrCb_420_SP, 2 * w},
                 {5, HAL_PIXEL_FORMAT_YCrCb_420_SP, w * 5 * 3 / 2},
                 {1, HAL_PIXEL_FORMAT_YCrCb_420_SP, w * 3 / 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << w << "x" << c.h << " format " << c.inputFormat
                                          << " from " << c.inputBytes << " bytes");
        makeSurface(HAL_PIXEL_FORMAT_RGB_565, w, c.h);
        std::vector<uint8_t> nv21 = randomBytes(c.inputBytes, 6);
        ASSERT_EQ(produce(nv21, w, c.h, c.inputFormat), 0);
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        std::vector<uint8_t> expected(r->bytes.size(), 0);  // packed rows, whatever the stride
        kernels::test::modelNv21ToRgb565(nv21.data(), nv21.size(), w, c.h, expected.data());
        EXPECT_EQ(r->bytes, expected);
    }
}

// Venus NV21: luma at pitch `width`, the chroma unchanged after the luma rows rounded up to 32.
// Venus NV12: every chroma pair swapped, as one run when the luma stride is the width and at the
// chroma stride otherwise. Nothing else of the buffer is written. Qualcomm only.
TEST_F(FrameProducerTest, VenusTargetsPlaceAndOrderTheChroma) {
    const struct {
        int format, w, h;
    } cases[] = {{kVenusNv21, 64, 20}, {kVenusNv12, 128, 6}, {kVenusNv12, 40, 6}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.format << " " << c.w << "x" << c.h);
        makeSurface(c.format, c.w, c.h);
        std::vector<uint8_t> nv21 = randomBytes(c.w * c.h * 3 / 2, 7);
        int status = produce(nv21, c.w, c.h, HAL_PIXEL_FORMAT_YCrCb_420_SP);
#if defined(NUVRA_TEST_VENDOR_QCOM)
        const size_t luma = c.w * c.h;
        ASSERT_EQ(status, 0);
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        const host::GrallocLayout& l = r->layout;
        std::vector<uint8_t> expected(l.size, 0);
        if (c.format == kVenusNv21) {
            memcpy(expected.data(), nv21.data(), luma);
            memcpy(&expected[(c.h + 31) / 32 * 32 * c.w], &nv21[luma], luma / 2);
        } else {
            const size_t pitch = l.yStride == static_cast<uint32_t>(c.w) ? c.w : l.cStride;
            for (int y = 0; y < c.h; ++y) {
                memcpy(&expected[l.yOffset + y * l.yStride], &nv21[y * c.w], c.w);
                for (int x = 0; y < c.h / 2 && x < c.w; x += 2) {
                    expected[l.cbOffset + y * pitch + x] = nv21[luma + y * c.w + x + 1];
                    expected[l.cbOffset + y * pitch + x + 1] = nv21[luma + y * c.w + x];
                }
            }
        }
        EXPECT_EQ(r->bytes, expected);
#else
        EXPECT_EQ(status, -38);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                           "produceFrame: Convert 420sp to venus is working with qcom only (" +
                                   std::string(c.format == kVenusNv21 ? "0x114" : "0x7fa30c04") +
                                   ")"));
        expectCancelled();
#endif
    }
}

// ---- BLOB input ----

// The JPEG bytes, then the trailer at the end of the buffer's length: its width for a BLOB buffer,
// (width + stride x (height - 1)) x 4 for the RGBA override. Refused when they cannot both fit.
TEST_F(FrameProducerTest, BlobGetsItsTrailerOrIsRefusedWhenItCannotFit) {
    const struct {
        int format, w, h, jpegSize;
        bool fits;
    } cases[] = {{HAL_PIXEL_FORMAT_BLOB, 1007, 1, 1000, false},
                 {HAL_PIXEL_FORMAT_BLOB, 1008, 1, 1000, true},
                 {HAL_PIXEL_FORMAT_RGBA_8888, 100, 10, 3000, true}};
    useProfile("phone-nv21");  // RGBA rows padded to 128 pixels
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.format << " " << c.w << "x" << c.h);
        makeSurface(c.format, c.w, c.h);
        std::vector<uint8_t> jpeg = randomBytes(c.jpegSize, 9);
        setLogLevel("V");
        int status = produce(jpeg, c.w, c.h, HAL_PIXEL_FORMAT_BLOB);
        setLogLevel("");
        if (!c.fits) {
            EXPECT_EQ(status, -22);
            EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                               "produceFrame: Pixel buffer needs size 1008, cannot fit in gralloc "
                               "buffer of size 1007"));
            expectCancelled();
            continue;
        }
        ASSERT_EQ(status, 0);
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        const bool override = c.format == HAL_PIXEL_FORMAT_RGBA_8888;
        EXPECT_EQ(override, logged(kSurfaceTag, ANDROID_LOG_VERBOSE,
                                   "produceFrame: Using BLOB to RGBA format override."));
        size_t length = override ? (c.w + r->layout.stride * (c.h - 1)) * 4 : c.w;
        EXPECT_EQ(memcmp(r->bytes.data(), jpeg.data(), jpeg.size()), 0);
        // The trailer as two little-endian words: the marker, then the JPEG size.
        uint32_t trailer[2];
        memcpy(trailer, &r->bytes[length - 8], 8);
        EXPECT_EQ(trailer[0], 0xFFu);
        EXPECT_EQ(trailer[1], static_cast<uint32_t>(c.jpegSize));
    }
}

// ---- refusals and platform failures ----

TEST_F(FrameProducerTest, BadArgumentsAreRefusedBeforeTheDequeue) {
    makeSurface(HAL_PIXEL_FORMAT_YCrCb_420_SP, 8, 8);
    std::vector<uint8_t> pixels(8 * 8 * 4);
    setLogLevel("V");
    const struct {
        int width, height;
        bool nv21Pointer;
        const char* line;
        const char* size;  // as the first produceFrame line shows it
    } cases[] = {{-2, 8, false, "produceFrame: width must be non-negative", nullptr},
                 {8, -2, false, "produceFrame: height must be non-negative", nullptr},
                 // (w x h x 3) / 2 in signed 32 bits: negative as it stands, or wrapped to a
                 // value that is not the size and passed on as -1.
                 {32768, 32768, true, "produceFrame: bufSize must be non-negative", "e0000000"},
                 {65536, 65536, true, "produceFrame: bufSize must be non-negative", "ffffffff"},
                 {46341, 46341, true, "produceFrame: bufSize must be non-negative", "c0001b26"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height);
        host::clearCapturedLogs();
        int status = c.nv21Pointer ? util()->nativeProduceFrameWithNV21(env, ts.javaSurface, 1,
                                                                        c.width, c.height)
                                   : produce(pixels, c.width, c.height, HAL_PIXEL_FORMAT_RGBA_8888);
        EXPECT_EQ(status, -22);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR, c.line));
        if (c.size != nullptr) {
            std::vector<std::string> verbose = logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE);
            ASSERT_GE(verbose.size(), 2u);
            EXPECT_NE(verbose[1].find(std::string("(fmt=11, size=") + c.size + ")"),
                      std::string::npos)
                    << verbose[1];
        }
    }
    // Null buffers throw (and return 0).
    EXPECT_EQ(util()->nativeProduceFrame(env, ts.javaSurface, nullptr, 3, 3, 1), 0);
    expectPendingException(env, "java.lang.NullPointerException", "pixelBuffer");
    jbyteArray heap = env->NewByteArray(16);
    jclass byteBuffer = env->FindClass("java/nio/ByteBuffer");
    jobject wrapped = env->CallStaticObjectMethod(
            byteBuffer, env->GetStaticMethodID(byteBuffer, "wrap", "([B)Ljava/nio/ByteBuffer;"),
            heap);
    ASSERT_FALSE(env->ExceptionCheck());
    EXPECT_EQ(util()->nativeProduceFrame(env, ts.javaSurface, wrapped, 3, 3, 1), 0);
    expectPendingException(env, "java.lang.NullPointerException", "pixels");
    EXPECT_EQ(util()->nativeProduceFrameWithNV21(env, ts.javaSurface, 0, 3, 3), 0);
    expectPendingException(env, "java.lang.NullPointerException", "pixel");
    EXPECT_EQ(host::callCount("window.dequeueBuffer"), 0u);

    // A 3x3 NV21 frame is 13 bytes long, as the signed product computes it (the 8x8 buffer is
    // then refused).
    std::vector<uint8_t> nv21 = randomBytes(13, 11);
    host::clearCapturedLogs();
    util()->nativeProduceFrameWithNV21(env, ts.javaSurface,
                                       static_cast<jlong>(reinterpret_cast<uintptr_t>(nv21.data())),
                                       3, 3);
    std::vector<std::string> verbose = logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE);
    ASSERT_GE(verbose.size(), 2u);
    EXPECT_EQ(verbose[0], "nativeProduceFrame");
    EXPECT_NE(verbose[1].find("3x3 (fmt=11, size=d)"), std::string::npos) << verbose[1];
}

// A refusal after the dequeue returns its status with its line and cancels the buffer. Some rows
// write a progress line right after lockYCbCr returns, before the failure's line. Only a lock
// that succeeded without an address is undone by an unlock.
TEST_F(FrameProducerTest, RefusalsAfterTheDequeueCancelTheBuffer) {
    const std::string lockError =
            std::string("produceFrame: Error ") + strerror(12) + " (-12) while";
    const std::string ycbcrError =
            withError("produceFrame: Failed to lock ycbcr buffer, error", -12);
    const struct {
        int bufferFormat, inputFormat, w, h;
        const char* fault;  // armed with `status`
        int status;
        std::string line, progress = "";
        bool qcomOnly = false;
        int bufferWidth = 0;  // when not w
    } cases[] = {
            {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_RGBA_8888, 16, 8, nullptr, -22,
             "produceFrame: Received gralloc buffer with bad dimensions 8x8, expecting "
             "dimensions 16 x 8",
             "", false, 8},
            {HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x36, 8, 8, nullptr, -22,
             "produceFrame: Invalid pixel format in produceFrame: 36"},
            {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_RGBA_8888, 8, 8, "window.query.FORMAT",
             -19, withError("produceFrame: Error while querying surface pixel format", -19)},
            {HAL_PIXEL_FORMAT_YV12, HAL_PIXEL_FORMAT_RGBA_8888, 34, 11, nullptr, -22,
             "produceFrame: Dimens 34 x 11 are not divisible by 2."},
            {HAL_PIXEL_FORMAT_YV12, HAL_PIXEL_FORMAT_YCrCb_420_SP, 16, 4, nullptr, -38,
             "produceFrame: Convert 420sp to other format(32315659) is not supported yet."},
            {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_RGBA_8888, 16, 4, "buffer.lock", -12,
             lockError + " locking buffer for write."},
            {HAL_PIXEL_FORMAT_YV12, HAL_PIXEL_FORMAT_RGBA_8888, 16, 4, "buffer.lock", -12,
             lockError + " locking gralloc buffer for write."},
            {HAL_PIXEL_FORMAT_YCbCr_420_888, HAL_PIXEL_FORMAT_RGBA_8888, 16, 4, "buffer.lockYCbCr",
             -12, ycbcrError},
            {HAL_PIXEL_FORMAT_RGB_565, HAL_PIXEL_FORMAT_YCrCb_420_SP, 16, 4, "buffer.lock", -12,
             withError("produceFrame: Failed to lock buffer, error", -12)},
            {HAL_PIXEL_FORMAT_YCbCr_420_888, HAL_PIXEL_FORMAT_YCrCb_420_SP, 16, 4,
             "buffer.lockYCbCr", -12, ycbcrError,
             "produceFrame: y = (nil), cr = (nil), error(-12)"},
            {kVenusNv12, HAL_PIXEL_FORMAT_YCrCb_420_SP, 16, 4, "buffer.lockYCbCr", -12, ycbcrError,
             "produceFrame: y = (nil), cb = (nil) error(-12), yStride(0), cStride(0)", true},
            {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_RGBA_8888, 16, 4,
             "buffer.lock.nullAddress", -22,
             "produceFrame: nullptr after locking buffer for write."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
#if !defined(NUVRA_TEST_VENDOR_QCOM)
        if (c.qcomOnly) continue;
#endif
        makeSurface(c.bufferFormat, c.bufferWidth != 0 ? c.bufferWidth : c.w, c.h);
        if (c.fault != nullptr) host::injectFault(c.fault, c.status);
        std::vector<uint8_t> pixels(c.w * c.h * 4);
        setLogLevel("V");
        EXPECT_EQ(produce(pixels, c.w, c.h, c.inputFormat), c.status);
        setLogLevel("");
        const bool nullAddress = c.fault != nullptr && strstr(c.fault, "nullAddress") != nullptr;
        EXPECT_EQ(host::callCount("buffer.unlock"), nullAddress ? 1u : 0u);
        int failure = lineIndex(ANDROID_LOG_ERROR, c.line);
        EXPECT_GE(failure, 0);
        if (!c.progress.empty()) {
            int progress = lineIndex(ANDROID_LOG_VERBOSE, c.progress);
            EXPECT_GE(progress, 0);
            EXPECT_LT(progress, failure);
        }
        expectCancelled();
    }
}

// One byte short of the frame is refused before anything is written, the exact size accepted.
// The NV21 rows into YCbCr_420_888 and the Venus formats check the direct buffer's capacity as
// the NV21 row does, rather than read past its end.
TEST_F(FrameProducerTest, SizeChecksAtTheirBoundaries) {
    const struct {
        int bufferFormat, inputFormat, w, h, level;
        size_t needed;
        bool qcomOnly;
    } cases[] = {
            {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_RGBA_8888, 8, 4, 6, 128, false},
            {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_YCrCb_420_SP, 8, 5, 6, 60, false},
            {HAL_PIXEL_FORMAT_RGB_565, HAL_PIXEL_FORMAT_YCrCb_420_SP, 8, 4, 5, 48, false},
            {HAL_PIXEL_FORMAT_RGB_565, HAL_PIXEL_FORMAT_YCbCr_420_888, 8, 4, 5, 128, false},
            {HAL_PIXEL_FORMAT_YCbCr_420_888, HAL_PIXEL_FORMAT_YCrCb_420_SP, 8, 4, 6, 48, false},
            {kVenusNv21, HAL_PIXEL_FORMAT_YCrCb_420_SP, 8, 4, 6, 48, true},
            {kVenusNv12, HAL_PIXEL_FORMAT_YCrCb_420_SP, 8, 4, 6, 48, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.inputFormat << " into " << c.bufferFormat);
#if !defined(NUVRA_TEST_VENDOR_QCOM)
        if (c.qcomOnly) continue;
#endif
        makeSurface(c.bufferFormat, c.w, c.h);
        std::vector<uint8_t> pixels = randomBytes(c.needed - 1, 3);
        EXPECT_EQ(produce(pixels, c.w, c.h, c.inputFormat), -22);
        EXPECT_TRUE(logged(kSurfaceTag, c.level,
                           "produceFrame: PixelBuffer size " + std::to_string(c.needed - 1) +
                                   " too small for given dimensions"));
        EXPECT_EQ(host::callCount("buffer.lock") + host::callCount("buffer.lockYCbCr"), 0u);
        expectCancelled();
        pixels.push_back(0);
        EXPECT_EQ(produce(pixels, c.w, c.h, c.inputFormat), 0);
    }
}

TEST_F(FrameProducerTest, UnlockAndQueueFailuresCancelTheBuffer) {
    makeSurface(HAL_PIXEL_FORMAT_YCrCb_420_SP, 16, 4);
    std::vector<uint8_t> rgba(16 * 4 * 4);
    host::injectFault("buffer.unlock", -5);
    EXPECT_EQ(produce(rgba, 16, 4, HAL_PIXEL_FORMAT_RGBA_8888), -5);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       withError("produceFrame: Failed to unlock buffer, error", -5)));
    // The buffer is still locked by the failed unlock; a real unlock lets it go.
    host::resetFaultsAndCalls();
    host::injectFault("window.queueBuffer", -19);
    EXPECT_EQ(produce(rgba, 16, 4, HAL_PIXEL_FORMAT_RGBA_8888), -19);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       withError("produceFrame: Failed to queue buffer, error", -19)));
    EXPECT_EQ(host::callCount("window.cancelBuffer"), 1u);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       withError("nativeProduceFrame: Error while producing frame", -19)));
}

}  // namespace
}  // namespace nuvra::test
