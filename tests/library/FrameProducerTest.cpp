// Frames written into Surfaces of every supported buffer format, through the shipped library and
// the real JVM. Expected bytes are computed here from the buffer's layout and the conversion
// formulas as the kernel tests model them, pixel by pixel.

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

// ---- frames written ----

enum Vendors { kAllVendors, kQcomOnly, kOthersOnly };
bool runsHere(Vendors v) {
    return v == kAllVendors || (v == kQcomOnly) == kQcom;
}

// A frame produced into a buffer of `bufferFormat`, width x height, under `profile` (nullptr: the
// one the process started with). The input is random and, unless `inputBytes` says otherwise,
// exactly as long as the frame.
struct Written {
    const char* profile;
    int bufferFormat, inputFormat, w, h;
    size_t inputBytes = 0;
    const char* fault = nullptr;  // armed with -5 before the frame
    Vendors vendors = kAllVendors;
};

// NV21 into NV21 goes through the plain lock, except on K.ORB and when that lock fails.
bool throughPlainLock(const Written& c) {
    return c.inputFormat == HAL_PIXEL_FORMAT_YCrCb_420_SP && c.fault == nullptr && !kKorb &&
           (c.bufferFormat == HAL_PIXEL_FORMAT_YCrCb_420_SP || c.bufferFormat == kNv21M);
}

// The rows that have nothing to write: the buffer is unlocked without having been locked.
bool writesNothing(const Written& c) {
    return (c.inputFormat == HAL_PIXEL_FORMAT_RGBA_8888 &&
            c.bufferFormat != HAL_PIXEL_FORMAT_YV12 &&
            c.bufferFormat != HAL_PIXEL_FORMAT_YCbCr_420_888 &&
            c.bufferFormat != HAL_PIXEL_FORMAT_YCrCb_420_SP) ||
           (c.inputFormat == HAL_PIXEL_FORMAT_YCbCr_420_888 &&
            c.bufferFormat != HAL_PIXEL_FORMAT_RGB_565);
}

// What the buffer, laid out as `l`, holds after `in` was produced into it; fresh buffers are zero.
std::vector<uint8_t> expectedBuffer(const Written& c, host::GrallocLayout l,
                                    const std::vector<uint8_t>& in) {
    std::vector<uint8_t> out(l.size, 0);
    const size_t w = c.w, h = c.h, luma = w * h;
    if (writesNothing(c)) return out;
    if (c.inputFormat == HAL_PIXEL_FORMAT_RGBA_8888) {
        // NV21 targets at pitch `width` with the chroma right after the luma, whatever the
        // buffer's stride; YV12 and YCbCr_420_888 where the gralloc puts their planes.
        if (c.bufferFormat == HAL_PIXEL_FORMAT_YCrCb_420_SP) {
            l.yOffset = 0;
            l.crOffset = luma;
            l.cbOffset = luma + 1;
            l.yStride = l.cStride = w;
            l.chromaStep = 2;
        }
        kernels::test::modelRgbaToYuv420(in.data(), w, h, &out[l.yOffset], &out[l.crOffset],
                                         &out[l.cbOffset], l.chromaStep, l.yStride, l.cStride);
    } else if (c.bufferFormat == HAL_PIXEL_FORMAT_RGB_565) {
        // Packed rows, whatever the buffer's stride.
        kernels::test::modelNv21ToRgb565(in.data(), in.size(), w, h, out.data());
    } else if (c.inputFormat == HAL_PIXEL_FORMAT_BLOB) {
        // The JPEG bytes, then the trailer at the end of the buffer's length: its width for a
        // BLOB buffer, (width + stride x (height - 1)) x 4 for the RGBA override. The trailer is
        // two little-endian words: the marker, then the JPEG size.
        memcpy(out.data(), in.data(), in.size());
        const size_t length =
                c.bufferFormat == HAL_PIXEL_FORMAT_BLOB ? w : (w + l.stride * (h - 1)) * 4;
        const uint32_t trailer[2] = {0xFF, static_cast<uint32_t>(in.size())};
        memcpy(&out[length - 8], trailer, 8);
    } else if (c.bufferFormat == kVenusNv21) {
        // Luma at pitch `width`, the chroma unchanged after the luma rows rounded up to 32.
        memcpy(out.data(), in.data(), luma);
        memcpy(&out[(h + 31) / 32 * 32 * w], &in[luma], luma / 2);
    } else if (c.bufferFormat == kVenusNv12) {
        // Every chroma pair swapped, as one run when the luma stride is the width and at the
        // chroma stride otherwise.
        const size_t pitch = l.yStride == w ? w : l.cStride;
        for (size_t y = 0; y < h; ++y) {
            memcpy(&out[l.yOffset + y * l.yStride], &in[y * w], w);
            for (size_t x = 0; y < h / 2 && x < w; x += 2) {
                out[l.cbOffset + y * pitch + x] = in[luma + y * w + x + 1];
                out[l.cbOffset + y * pitch + x + 1] = in[luma + y * w + x];
            }
        }
    } else {
        // NV21 into NV21 or YCbCr_420_888: the luma, then the chroma run, whole when the buffer is
        // packed and by rows at the buffer's stride otherwise. Into NV21 through the plain lock,
        // the chroma follows the luma rows in one plane. Through lockYCbCr (YCbCr_420_888, and
        // NV21 on K.ORB, which never tries the plain lock) it goes to cr, which is one byte into
        // an NV12-ordered plane; when the plain lock fails it goes to cb, one byte into the NV21
        // plane. Every chroma byte that lands inside the plane (ceil(h / 2) rows at the chroma
        // stride) is written, nothing after.
        const bool plainLock = throughPlainLock(c);
        const bool fellBack = c.fault != nullptr && !kKorb;
        const size_t chroma = plainLock ? l.stride * h : fellBack ? l.cbOffset : l.crOffset;
        const size_t end =
                plainLock ? out.size() : std::min(l.cbOffset, l.crOffset) + (h + 1) / 2 * l.cStride;
        const bool packed = l.stride == w;
        for (size_t y = 0; y < (packed ? 1 : h); ++y) {
            memcpy(&out[l.yOffset + y * l.stride], &in[y * w], packed ? luma : w);
        }
        for (size_t y = 0; y < (packed ? 1 : h / 2); ++y) {
            const size_t at = chroma + y * l.stride;
            if (at < end) {
                memcpy(&out[at], &in[luma + y * w], std::min(packed ? luma / 2 : w, end - at));
            }
        }
    }
    return out;
}

// Every input into every buffer format it can be written to: what the buffer holds, and the lines
// that tell how it was written.
TEST_F(FrameProducerTest, FramesAreWrittenAsEachTargetHoldsThem) {
    const int nv21 = HAL_PIXEL_FORMAT_YCrCb_420_SP, rgba = HAL_PIXEL_FORMAT_RGBA_8888;
    const int flex = HAL_PIXEL_FORMAT_YCbCr_420_888, rgb565 = HAL_PIXEL_FORMAT_RGB_565;
    const int yv12 = HAL_PIXEL_FORMAT_YV12, blob = HAL_PIXEL_FORMAT_BLOB;
    const Written cases[] = {
            {"packed-nv21", nv21, rgba, 36, 10},
            {"phone-nv21", nv21, rgba, 36, 10},
            {"packed-nv21", yv12, rgba, 64, 20},
            {"phone-nv21", flex, rgba, 40, 6},
            {"phone-qcom", flex, rgba, 40, 6},
            {"packed-qcom", flex, rgba, 40, 7},
            // Nothing to write: as on a phone, GraphicBufferMapper logs the mapper's error for the
            // unlock and succeeds, so the buffer is queued unwritten.
            {nullptr, rgba, rgba, 8, 8},
            {nullptr, rgb565, rgba, 8, 8},
            {nullptr, nv21, flex, 8, 8},
            {"packed-nv21", nv21, nv21, 30, 8},
            {"packed-nv21", kNv21M, nv21, 30, 8},
            {"phone-nv21", nv21, nv21, 30, 8},
            {"phone-nv21", kNv21M, nv21, 30, 8},
            {nullptr, nv21, nv21, 8, 5},
            // The lock fails and lockYCbCr takes over: 12288 bytes, exactly three pages, so the
            // chroma's last byte would lie past the buffer.
            {nullptr, nv21, nv21, 128, 64, 0, "buffer.lock"},
            {"phone-nv21", flex, nv21, 32, 6},
            {"packed-qcom", flex, nv21, 32, 6},
            {"packed-qcom", flex, nv21, 32, 5},
            {"packed-qcom", flex, nv21, 30, 1},
            // Row r takes chroma row r / 2 wherever the input holds it (a YCbCr_420_888 input is
            // sized as RGBA, and NV21 input may carry ceil(h / 2) chroma rows). An NV21 input of
            // exactly w * h * 3 / 2 bytes ends inside the last chroma row of an odd height: that
            // row takes the chroma row above it, and a single row, which then has no whole chroma
            // row, is converted as grey.
            {nullptr, rgb565, nv21, 34, 6},
            {nullptr, rgb565, flex, 34, 6},
            {nullptr, rgb565, nv21, 34, 5, 34 * 5 + 3 * 34},
            {nullptr, rgb565, flex, 34, 5},
            {nullptr, rgb565, flex, 34, 1},
            {nullptr, rgb565, nv21, 34, 1, 2 * 34},
            {nullptr, rgb565, nv21, 34, 5},
            {nullptr, rgb565, nv21, 34, 1},
            {nullptr, kVenusNv21, nv21, 64, 20, 0, nullptr, kQcomOnly},
            {nullptr, kVenusNv12, nv21, 128, 6, 0, nullptr, kQcomOnly},
            {nullptr, kVenusNv12, nv21, 40, 6, 0, nullptr, kQcomOnly},
            {"phone-nv21", blob, blob, 1008, 1, 1000},
            {"phone-nv21", rgba, blob, 100, 10, 3000},  // RGBA rows padded to 128 pixels
    };
    for (const Written& c : cases) {
        SCOPED_TRACE(::testing::Message()
                     << (c.profile ? c.profile : "") << ": " << c.inputFormat << " into "
                     << c.bufferFormat << ", " << c.w << "x" << c.h);
        if (!runsHere(c.vendors)) continue;
        resetHostPlatform();
        if (c.profile != nullptr) useProfile(c.profile);
        makeSurface(c.bufferFormat, c.w, c.h);
        size_t frameBytes = c.inputFormat == nv21 ? c.w * c.h * 3 / 2 : c.w * c.h * 4;
        std::vector<uint8_t> input = randomBytes(c.inputBytes != 0 ? c.inputBytes : frameBytes, 1);
        if (c.fault != nullptr) host::injectFault(c.fault, -5);
        setLogLevel("V");
        ASSERT_EQ(produce(input, c.w, c.h, c.inputFormat), 0);
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        EXPECT_EQ(r->bytes, expectedBuffer(c, r->layout, input));
        if (c.fault != nullptr) {
            EXPECT_EQ(r->layout.size, 12288u);  // the fallback row's three pages
        }
        EXPECT_EQ(logTexts("Gralloc4", ANDROID_LOG_ERROR).size(), writesNothing(c) ? 1u : 0u);
        auto wrote = [](const std::string& line) {
            return logged(kSurfaceTag, ANDROID_LOG_VERBOSE, line);
        };
        EXPECT_EQ(wrote("produceFrame: stride is: " + std::to_string(r->layout.stride)),
                  c.bufferFormat == yv12);
        EXPECT_EQ(wrote("produceFrame: Using BLOB to RGBA format override."),
                  c.inputFormat == blob && c.bufferFormat == rgba);
        // Only the copy through lockYCbCr says that it goes by rows.
        EXPECT_EQ(wrote("produceFrame: Stride != Width"),
                  c.inputFormat == nv21 && !throughPlainLock(c) &&
                          (c.bufferFormat == nv21 || c.bufferFormat == kNv21M ||
                           c.bufferFormat == flex) &&
                          r->layout.stride != static_cast<uint32_t>(c.w));
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

// A refusal after the dequeue returns its status with its line, having locked nothing but the
// buffer a lock fault was armed on, and cancels the buffer. Some rows write a progress line right
// after lockYCbCr returns, before the failure's line. Only a lock that succeeded without an address
// is undone by an unlock. One byte short of the frame is refused before anything is written (the
// exact size is accepted in FramesAreWrittenAsEachTargetHoldsThem); the NV21 rows into
// YCbCr_420_888 and the Venus formats check the direct buffer's capacity as the NV21 row does,
// rather than read past its end.
TEST_F(FrameProducerTest, RefusalsAfterTheDequeueCancelTheBuffer) {
    const int nv21 = HAL_PIXEL_FORMAT_YCrCb_420_SP, rgba = HAL_PIXEL_FORMAT_RGBA_8888;
    const int flex = HAL_PIXEL_FORMAT_YCbCr_420_888, rgb565 = HAL_PIXEL_FORMAT_RGB_565;
    const int yv12 = HAL_PIXEL_FORMAT_YV12, blob = HAL_PIXEL_FORMAT_BLOB;
    const int warn = ANDROID_LOG_WARN, error = ANDROID_LOG_ERROR;
    const std::string lockError =
            std::string("produceFrame: Error ") + strerror(12) + " (-12) while";
    const std::string ycbcrError =
            withError("produceFrame: Failed to lock ycbcr buffer, error", -12);
    auto tooSmall = [](int bytes) {
        return "produceFrame: PixelBuffer size " + std::to_string(bytes) +
               " too small for given dimensions";
    };
    const struct {
        int bufferFormat, inputFormat, w, h;
        const char* fault;  // armed with `status`
        int status;
        std::string line;
        size_t inputBytes = 0;  // 0: w x h x 4
        int level = ANDROID_LOG_ERROR;
        std::string progress = "";
        Vendors vendors = kAllVendors;
        int bufferWidth = 0;  // when not w
    } cases[] = {
            {nv21, rgba, 16, 8, nullptr, -22,
             "produceFrame: Received gralloc buffer with bad dimensions 8x8, expecting "
             "dimensions 16 x 8",
             0, error, "", kAllVendors, 8},
            {nv21, 0x36, 8, 8, nullptr, -22,
             "produceFrame: Invalid pixel format in produceFrame: 36"},
            {nv21, rgba, 8, 8, "window.query.FORMAT", -19,
             withError("produceFrame: Error while querying surface pixel format", -19)},
            {yv12, rgba, 34, 11, nullptr, -22,
             "produceFrame: Dimens 34 x 11 are not divisible by 2."},
            {yv12, nv21, 16, 4, nullptr, -38,
             "produceFrame: Convert 420sp to other format(32315659) is not supported yet."},
            {kVenusNv21, nv21, 64, 20, nullptr, -38,
             "produceFrame: Convert 420sp to venus is working with qcom only (0x114)", 1920, error,
             "", kOthersOnly},
            {kVenusNv12, nv21, 128, 6, nullptr, -38,
             "produceFrame: Convert 420sp to venus is working with qcom only (0x7fa30c04)", 1152,
             error, "", kOthersOnly},
            {blob, blob, 1007, 1, nullptr, -22,
             "produceFrame: Pixel buffer needs size 1008, cannot fit in gralloc buffer of size "
             "1007",
             1000},
            {nv21, rgba, 8, 4, nullptr, -22, tooSmall(127), 127},
            {nv21, nv21, 8, 5, nullptr, -22, tooSmall(59), 59},
            {rgb565, nv21, 8, 4, nullptr, -22, tooSmall(47), 47, warn},
            {rgb565, flex, 8, 4, nullptr, -22, tooSmall(127), 127, warn},
            {flex, nv21, 8, 4, nullptr, -22, tooSmall(47), 47},
            {kVenusNv21, nv21, 8, 4, nullptr, -22, tooSmall(47), 47, error, "", kQcomOnly},
            {kVenusNv12, nv21, 8, 4, nullptr, -22, tooSmall(47), 47, error, "", kQcomOnly},
            {nv21, rgba, 16, 4, "buffer.lock", -12, lockError + " locking buffer for write."},
            {yv12, rgba, 16, 4, "buffer.lock", -12,
             lockError + " locking gralloc buffer for write."},
            {flex, rgba, 16, 4, "buffer.lockYCbCr", -12, ycbcrError},
            {rgb565, nv21, 16, 4, "buffer.lock", -12,
             withError("produceFrame: Failed to lock buffer, error", -12)},
            {flex, nv21, 16, 4, "buffer.lockYCbCr", -12, ycbcrError, 0, error,
             "produceFrame: y = (nil), cr = (nil), error(-12)"},
            {kVenusNv12, nv21, 16, 4, "buffer.lockYCbCr", -12, ycbcrError, 0, error,
             "produceFrame: y = (nil), cb = (nil) error(-12), yStride(0), cStride(0)", kQcomOnly},
            {nv21, rgba, 16, 4, "buffer.lock.nullAddress", -22,
             "produceFrame: nullptr after locking buffer for write."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        if (!runsHere(c.vendors)) continue;
        makeSurface(c.bufferFormat, c.bufferWidth != 0 ? c.bufferWidth : c.w, c.h);
        if (c.fault != nullptr) host::injectFault(c.fault, c.status);
        std::vector<uint8_t> pixels =
                randomBytes(c.inputBytes != 0 ? c.inputBytes : c.w * c.h * 4, 3);
        setLogLevel("V");
        EXPECT_EQ(produce(pixels, c.w, c.h, c.inputFormat), c.status);
        setLogLevel("");
        const std::string fault = c.fault != nullptr ? c.fault : "";
        EXPECT_EQ(host::callCount("buffer.lock") + host::callCount("buffer.lockYCbCr"),
                  fault.rfind("buffer.lock", 0) == 0 ? 1u : 0u);
        EXPECT_EQ(host::callCount("buffer.unlock"), fault == "buffer.lock.nullAddress" ? 1u : 0u);
        int failure = lineIndex(c.level, c.line);
        EXPECT_GE(failure, 0);
        if (!c.progress.empty()) {
            int progress = lineIndex(ANDROID_LOG_VERBOSE, c.progress);
            EXPECT_GE(progress, 0);
            EXPECT_LT(progress, failure);
        }
        expectCancelled();
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
