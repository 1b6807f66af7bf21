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

#include <algorithm>
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

constexpr int kNv21 = HAL_PIXEL_FORMAT_YCrCb_420_SP, kRgba = HAL_PIXEL_FORMAT_RGBA_8888;
constexpr int kFlex = HAL_PIXEL_FORMAT_YCbCr_420_888, kRgb565 = HAL_PIXEL_FORMAT_RGB_565;
constexpr int kYv12 = HAL_PIXEL_FORMAT_YV12, kBlob = HAL_PIXEL_FORMAT_BLOB;
constexpr int kVenusNv21 = 0x114, kVenusNv12 = 0x7FA30C04, kNv21M = 0x11D;

std::vector<uint8_t> randomBytes(size_t n, uint32_t seed) {
    std::vector<uint8_t> v(n);
    std::generate(v.begin(), v.end(), std::mt19937(seed));
    return v;
}

class FrameProducerTest : public JniTest {
protected:
    // A connected Surface whose buffers are `format`, width x height, allocated for CPU writes.
    void makeSurface(int format, uint32_t width, uint32_t height) {
        ts = makeTestSurface(env, {width, height, format});
        ASSERT_EQ(util()->nativeConnectSurface(env, ts.javaSurface), 0);
        ASSERT_EQ(native_window_set_usage(ts.surface.get(), GRALLOC_USAGE_SW_WRITE_OFTEN), 0);
        // What the producer may hold before anything was queued; a refused frame leaves it so.
        freeBuffers = dequeuableBuffers(ts);
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
    }
    int produce(std::vector<uint8_t>& input, int width, int height, int pixelFormat) {
        jobject buffer = env->NewDirectByteBuffer(input.data(), static_cast<jlong>(input.size()));
        return util()->nativeProduceFrame(env, ts.javaSurface, buffer, width, height, pixelFormat);
    }
    // The index of the library's first captured line `text` at `priority`; -1 when there is none.
    static int lineIndex(int priority, const std::string& text) {
        const std::vector<std::string> lines = allLogLines();
        const auto at = std::find(lines.begin(), lines.end(),
                                  std::to_string(priority) + "/" + kSurfaceTag + ": " + text);
        return at == lines.end() ? -1 : int(at - lines.begin());
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
    return c.inputFormat == kNv21 && c.fault == nullptr && !kKorb &&
           (c.bufferFormat == kNv21 || c.bufferFormat == kNv21M);
}

// The rows that have nothing to write: the buffer is unlocked without having been locked.
bool writesNothing(const Written& c) {
    const int b = c.bufferFormat;
    return (c.inputFormat == kRgba && b != kYv12 && b != kFlex && b != kNv21) ||
           (c.inputFormat == kFlex && b != kRgb565);
}

// What the buffer, laid out as `l`, holds after `in` was produced into it; fresh buffers are zero.
std::vector<uint8_t> expectedBuffer(const Written& c, host::GrallocLayout l,
                                    const std::vector<uint8_t>& in) {
    std::vector<uint8_t> out(l.size, 0);
    const size_t w = c.w, h = c.h, luma = w * h;
    if (writesNothing(c)) return out;
    if (c.inputFormat == kRgba) {
        // NV21 targets at pitch `width` with the chroma right after the luma, whatever the
        // buffer's stride; YV12 and YCbCr_420_888 where the gralloc puts their planes.
        if (c.bufferFormat == kNv21) {
            l.yOffset = 0;
            l.crOffset = luma;
            l.cbOffset = luma + 1;
            l.yStride = l.cStride = w;
            l.chromaStep = 2;
        }
        kernels::test::modelRgbaToYuv420(in.data(), w, h, &out[l.yOffset], &out[l.crOffset],
                                         &out[l.cbOffset], l.chromaStep, l.yStride, l.cStride);
    } else if (c.bufferFormat == kRgb565) {
        // Packed rows, whatever the buffer's stride.
        kernels::test::modelNv21ToRgb565(in.data(), in.size(), w, h, out.data());
    } else if (c.inputFormat == kBlob) {
        // The JPEG bytes, then the trailer at the end of the buffer's length: its width for a
        // BLOB buffer, (width + stride x (height - 1)) x 4 for the RGBA override. The trailer is
        // two little-endian words: the marker, then the JPEG size.
        memcpy(out.data(), in.data(), in.size());
        const size_t length = c.bufferFormat == kBlob ? w : (w + l.stride * (h - 1)) * 4;
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
        // NV21 into NV21 or YCbCr_420_888: the luma, then the chroma, as one run when the buffer
        // is packed and by rows at its stride otherwise. Through the plain lock the chroma follows
        // the luma rows; through lockYCbCr (YCbCr_420_888, and NV21 on K.ORB) it goes to cr, one
        // byte into an NV12-ordered plane, and after a failed plain lock to cb, one byte into the
        // NV21 plane. It stops at the plane's end (ceil(h / 2) rows at the chroma stride).
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
    const Written cases[] = {
            {"phone-nv21", kNv21, kRgba, 36, 10},
            {"packed-nv21", kYv12, kRgba, 64, 20},
            {"phone-nv21", kFlex, kRgba, 40, 6},
            {"phone-qcom", kFlex, kRgba, 40, 6},
            {"packed-qcom", kFlex, kRgba, 40, 7},
            // Nothing to write: as on a phone, GraphicBufferMapper logs the mapper's error for the
            // unlock and succeeds, so the buffer is queued unwritten.
            {nullptr, kRgba, kRgba, 8, 8},
            {nullptr, kRgb565, kRgba, 8, 8},
            {nullptr, kNv21, kFlex, 8, 8},
            {"packed-nv21", kNv21, kNv21, 30, 8},
            {"packed-nv21", kNv21M, kNv21, 30, 8},
            {"phone-nv21", kNv21, kNv21, 30, 8},
            {"phone-nv21", kNv21M, kNv21, 30, 8},
            {nullptr, kNv21, kNv21, 8, 5},
            // The lock fails and lockYCbCr takes over: 12288 bytes, exactly three pages, so the
            // chroma's last byte would lie past the buffer.
            {nullptr, kNv21, kNv21, 128, 64, 0, "buffer.lock"},
            {"phone-nv21", kFlex, kNv21, 32, 6},
            {"packed-qcom", kFlex, kNv21, 32, 6},
            {"packed-qcom", kFlex, kNv21, 32, 5},
            {"packed-qcom", kFlex, kNv21, 30, 1},
            // Row r takes chroma row r / 2 wherever the input holds it (a YCbCr_420_888 input is
            // sized as RGBA, and NV21 input may carry ceil(h / 2) chroma rows). An NV21 input of
            // exactly w * h * 3 / 2 bytes ends inside the last chroma row of an odd height: that
            // row takes the chroma row above it, and a single row, which then has no whole chroma
            // row, is converted as grey.
            {nullptr, kRgb565, kNv21, 34, 6},
            {nullptr, kRgb565, kFlex, 34, 6},
            {nullptr, kRgb565, kNv21, 34, 5, 34 * 5 + 3 * 34},
            {nullptr, kRgb565, kFlex, 34, 5},
            {nullptr, kRgb565, kFlex, 34, 1},
            {nullptr, kRgb565, kNv21, 34, 1, 2 * 34},
            {nullptr, kRgb565, kNv21, 34, 5},
            {nullptr, kRgb565, kNv21, 34, 1},
            {nullptr, kVenusNv21, kNv21, 64, 40, 0, nullptr, kQcomOnly},
            {nullptr, kVenusNv12, kNv21, 128, 6, 0, nullptr, kQcomOnly},
            {nullptr, kVenusNv12, kNv21, 40, 6, 0, nullptr, kQcomOnly},
            {"phone-nv21", kBlob, kBlob, 1008, 1, 1000},
            {"phone-nv21", kRgba, kBlob, 100, 10, 3000},  // RGBA rows padded to 128 pixels
    };
    auto wrote = [](const std::string& s) { return logged(kSurfaceTag, ANDROID_LOG_VERBOSE, s); };
    for (const Written& c : cases) {
        SCOPED_TRACE(::testing::Message() << "row " << &c - cases);
        if (!runsHere(c.vendors)) continue;
        resetHostPlatform();
        ASSERT_TRUE(c.profile == nullptr || host::selectDeviceProfile(c.profile));
        makeSurface(c.bufferFormat, c.w, c.h);
        size_t frameBytes = c.inputFormat == kNv21 ? c.w * c.h * 3 / 2 : c.w * c.h * 4;
        std::vector<uint8_t> input = randomBytes(c.inputBytes != 0 ? c.inputBytes : frameBytes, 1);
        if (c.fault != nullptr) host::injectFault(c.fault, -5);
        setLogLevel("V");
        ASSERT_EQ(produce(input, c.w, c.h, c.inputFormat), 0);
        BufferItem item;
        ASSERT_EQ(ts.consumer->acquireBuffer(&item, 0), android::OK);
        host::GrallocLayout l;
        ASSERT_TRUE(host::grallocLayoutOf(*item.mGraphicBuffer, &l));
        // The whole buffer, padding included.
        EXPECT_EQ(host::readBufferMemory(*item.mGraphicBuffer), expectedBuffer(c, l, input));
        EXPECT_TRUE(c.fault == nullptr || l.size == 12288u);  // the fallback row's three pages
        EXPECT_EQ(logTexts("Gralloc4", ANDROID_LOG_ERROR).size(), writesNothing(c) ? 1u : 0u);
        const int b = c.bufferFormat;
        EXPECT_EQ(wrote("produceFrame: stride is: " + std::to_string(l.stride)), b == kYv12);
        EXPECT_EQ(wrote("produceFrame: Using BLOB to RGBA format override."),
                  c.inputFormat == kBlob && b == kRgba);
        // Only the copy through lockYCbCr says that it goes by rows.
        EXPECT_EQ(wrote("produceFrame: Stride != Width"),
                  c.inputFormat == kNv21 && !throughPlainLock(c) && l.stride != uint32_t(c.w) &&
                          (b == kNv21 || b == kNv21M || b == kFlex));
    }
}

// A Surface whose 640x480 YV12 buffer reports a stride the gralloc would never give (648
// pixels), as a faulty gralloc could.
class MisalignedYv12Surface : public android::Surface {
public:
    explicit MisalignedYv12Surface(const sp<android::IGraphicBufferProducer>& producer)
        : Surface(producer, true),
          mBuffer(new GraphicBuffer(640, 480, kYv12, 1, GRALLOC_USAGE_SW_WRITE_OFTEN, "test")) {
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
                TestSurface queue = makeTestSurface(env, {640, 480, kYv12});
                sp<android::Surface> s = new MisalignedYv12Surface(queue.producer);
                jobject javaSurface = android::android_view_Surface_createFromSurface(env, s);
                std::vector<uint8_t> rgba(640 * 480 * 4);
                jobject pixels = env->NewDirectByteBuffer(rgba.data(), rgba.size());
                util()->nativeProduceFrame(env, javaSurface, pixels, 640, 480, kRgba);
            },
            "Stride is not 16 pixel aligned 648");
}

// ---- refusals and platform failures ----

TEST_F(FrameProducerTest, BadArgumentsAreRefusedBeforeTheDequeue) {
    makeSurface(kNv21, 8, 8);
    std::vector<uint8_t> pixels(8 * 8 * 4);
    setLogLevel("V");
    // The operation's line, then the dequeue line with the size it was given.
    auto expectSizeShown = [](const std::string& text) {
        std::vector<std::string> verbose = logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE);
        ASSERT_GE(verbose.size(), 2u);
        EXPECT_EQ(verbose[0], "nativeProduceFrame");
        EXPECT_NE(verbose[1].find(text), std::string::npos) << verbose[1];
    };
    const struct {
        int width, height;
        bool nv21Pointer;
        const char* line;
        const char* size;  // as the dequeue line shows it
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
                                   : produce(pixels, c.width, c.height, kRgba);
        EXPECT_EQ(status, -22);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR, c.line));
        if (c.size != nullptr) expectSizeShown(std::string("(fmt=11, size=") + c.size + ")");
    }
    // Null buffers throw (and return 0).
    EXPECT_EQ(util()->nativeProduceFrame(env, ts.javaSurface, nullptr, 3, 3, 1), 0);
    expectPendingException(env, "java.lang.NullPointerException", "pixelBuffer");
    jclass byteBuffer = env->FindClass("java/nio/ByteBuffer");
    jmethodID wrap = env->GetStaticMethodID(byteBuffer, "wrap", "([B)Ljava/nio/ByteBuffer;");
    jobject heap = env->CallStaticObjectMethod(byteBuffer, wrap, env->NewByteArray(16));
    ASSERT_FALSE(env->ExceptionCheck());  // -Xcheck:jni wants the call checked
    EXPECT_EQ(util()->nativeProduceFrame(env, ts.javaSurface, heap, 3, 3, 1), 0);
    expectPendingException(env, "java.lang.NullPointerException", "pixels");
    EXPECT_EQ(util()->nativeProduceFrameWithNV21(env, ts.javaSurface, 0, 3, 3), 0);
    expectPendingException(env, "java.lang.NullPointerException", "pixel");
    EXPECT_EQ(host::callCount("window.dequeueBuffer"), 0u);

    // 13 bytes for a 3x3 NV21 frame, as the signed product computes it (the 8x8 buffer then
    // refuses it).
    host::clearCapturedLogs();
    util()->nativeProduceFrameWithNV21(env, ts.javaSurface, reinterpret_cast<jlong>(pixels.data()),
                                       3, 3);
    expectSizeShown("3x3 (fmt=11, size=d)");
}

// A refusal or failure after the dequeue returns its status with its line, then the operation's,
// and cancels the buffer; nothing is locked before a lock fault, and a lock that returned is
// unlocked once (the failing unlock included). Some rows write a progress line right after
// lockYCbCr returns, before the failure's line. One byte short of the frame is refused before
// anything is written (the exact size is accepted in FramesAreWrittenAsEachTargetHoldsThem); the
// NV21 rows into YCbCr_420_888 and the Venus formats check the direct buffer's capacity as the NV21
// row does, rather than read past its end.
TEST_F(FrameProducerTest, RefusalsAfterTheDequeueCancelTheBuffer) {
    const int warn = ANDROID_LOG_WARN, error = ANDROID_LOG_ERROR;
    const std::string lockError = std::string("Error ") + strerror(12) + " (-12) while";
    const std::string ycbcrError = withError("Failed to lock ycbcr buffer, error", -12);
    auto tooSmall = [](int bytes) {
        return "PixelBuffer size " + std::to_string(bytes) + " too small for given dimensions";
    };
    const struct {
        int bufferFormat, inputFormat, w, h;
        std::string fault;  // armed with `status`
        int status;
        std::string line;
        size_t inputBytes = 0;  // 0: w x h x 4
        Vendors vendors = kAllVendors;
        int level = ANDROID_LOG_ERROR;
        std::string progress = "";
        int bufferWidth = 0;  // when not w
    } cases[] = {
            {kNv21, kRgba, 16, 8, "", -22,
             "Received gralloc buffer with bad dimensions 8x8, expecting dimensions 16 x 8", 0,
             kAllVendors, error, "", 8},
            {kNv21, 0x36, 8, 8, "", -22, "Invalid pixel format in produceFrame: 36"},
            {kNv21, kRgba, 8, 8, "window.query.FORMAT", -19,
             withError("Error while querying surface pixel format", -19)},
            {kYv12, kRgba, 34, 11, "", -22, "Dimens 34 x 11 are not divisible by 2."},
            {kYv12, kNv21, 16, 4, "", -38,
             "Convert 420sp to other format(32315659) is not supported yet."},
            {kVenusNv21, kNv21, 64, 20, "", -38,
             "Convert 420sp to venus is working with qcom only (0x114)", 1920, kOthersOnly},
            {kVenusNv12, kNv21, 128, 6, "", -38,
             "Convert 420sp to venus is working with qcom only (0x7fa30c04)", 1152, kOthersOnly},
            {kBlob, kBlob, 1007, 1, "", -22,
             "Pixel buffer needs size 1008, cannot fit in gralloc buffer of size 1007", 1000},
            {kNv21, kRgba, 8, 4, "", -22, tooSmall(127), 127},
            {kNv21, kNv21, 8, 5, "", -22, tooSmall(59), 59},
            {kRgb565, kNv21, 8, 4, "", -22, tooSmall(47), 47, kAllVendors, warn},
            {kRgb565, kFlex, 8, 4, "", -22, tooSmall(127), 127, kAllVendors, warn},
            {kFlex, kNv21, 8, 4, "", -22, tooSmall(47), 47},
            {kVenusNv21, kNv21, 8, 4, "", -22, tooSmall(47), 47, kQcomOnly},
            {kVenusNv12, kNv21, 8, 4, "", -22, tooSmall(47), 47, kQcomOnly},
            {kNv21, kRgba, 16, 4, "buffer.lock", -12, lockError + " locking buffer for write."},
            {kYv12, kRgba, 16, 4, "buffer.lock", -12,
             lockError + " locking gralloc buffer for write."},
            {kFlex, kRgba, 16, 4, "buffer.lockYCbCr", -12, ycbcrError},
            {kRgb565, kNv21, 16, 4, "buffer.lock", -12,
             withError("Failed to lock buffer, error", -12)},
            {kFlex, kNv21, 16, 4, "buffer.lockYCbCr", -12, ycbcrError, 0, kAllVendors, error,
             "produceFrame: y = (nil), cr = (nil), error(-12)"},
            {kVenusNv12, kNv21, 16, 4, "buffer.lockYCbCr", -12, ycbcrError, 0, kQcomOnly, error,
             "produceFrame: y = (nil), cb = (nil) error(-12), yStride(0), cStride(0)"},
            {kNv21, kRgba, 16, 4, "buffer.lock.nullAddress", -22,
             "nullptr after locking buffer for write."},
            {kNv21, kRgba, 16, 4, "buffer.unlock", -5,
             withError("Failed to unlock buffer, error", -5)},
            {kNv21, kRgba, 16, 4, "window.queueBuffer", -19,
             withError("Failed to queue buffer, error", -19)},
    };
    const std::string produceLine = "nativeProduceFrame: Error while producing frame";
    setLogLevel("V");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        if (!runsHere(c.vendors)) continue;
        makeSurface(c.bufferFormat, c.bufferWidth != 0 ? c.bufferWidth : c.w, c.h);
        if (!c.fault.empty()) host::injectFault(c.fault, c.status);
        std::vector<uint8_t> pixels =
                randomBytes(c.inputBytes != 0 ? c.inputBytes : c.w * c.h * 4, 3);
        EXPECT_EQ(produce(pixels, c.w, c.h, c.inputFormat), c.status);
        const bool locked = c.fault.rfind("buffer.", 0) == 0 || c.fault == "window.queueBuffer";
        const bool lockFailed = c.fault == "buffer.lock" || c.fault == "buffer.lockYCbCr";
        EXPECT_EQ(host::callCount("buffer.lock") + host::callCount("buffer.lockYCbCr"),
                  locked ? 1u : 0u);
        EXPECT_EQ(host::callCount("buffer.unlock"), locked && !lockFailed ? 1u : 0u);
        // The progress line, the failure's, the operation's: all there, in this order.
        std::vector<int> order = {lineIndex(ANDROID_LOG_VERBOSE, c.progress),
                                  lineIndex(c.level, "produceFrame: " + c.line),
                                  lineIndex(error, withError(produceLine, c.status))};
        if (c.progress.empty()) order.erase(order.begin());
        EXPECT_TRUE(order[0] >= 0 && std::is_sorted(order.begin(), order.end()))
                << testing::PrintToString(order);
        // Nothing reached the consumer, and the producer may hold as many buffers as before.
        EXPECT_EQ(host::callCount("window.cancelBuffer"), 1u);
        BufferItem item;
        EXPECT_NE(ts.consumer->acquireBuffer(&item, 0), android::OK);
        EXPECT_EQ(dequeuableBuffers(ts), freeBuffers);
    }
}

}  // namespace
}  // namespace nuvra::test
