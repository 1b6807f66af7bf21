// Frames written into Surfaces of every supported buffer format, through the shipped library and
// the real JVM. Expected bytes are computed here, pixel by pixel, from the conversion formulas.

#include <android/log.h>
#include <android_runtime/android_view_Surface.h>
#include <gtest/gtest.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>
#include <ui/HostGrallocLayout.h>

#include <cmath>
#include <cstring>
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

int floorDiv256(int v) {
    return static_cast<int>(std::floor(v / 256.0));
}
uint8_t lumaOf(const uint8_t* p) {
    return floorDiv256(77 * p[0] + 150 * p[1] + 29 * p[2]);
}
uint8_t cbOf(const uint8_t* p) {
    return floorDiv256(-43 * p[0] - 85 * p[1] + 128 * p[2]) + 128;
}
uint8_t crOf(const uint8_t* p) {
    return floorDiv256(128 * p[0] - 107 * p[1] - 21 * p[2]) + 128;
}
uint16_t rgb565Of(int y, int v, int u) {
    auto clamp = [](int x) { return x < 0 ? 0 : (x > 255 ? 255 : x); };
    v -= 128;
    u -= 128;
    int r = clamp(y + floorDiv256(359 * v));
    int g = clamp(y - floorDiv256(88 * u + 183 * v));
    int b = clamp(y + floorDiv256(454 * u));
    return static_cast<uint16_t>((r >> 3) << 11 | (g >> 2) << 5 | (b >> 3));
}

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
        void* data = nullptr;
        EXPECT_EQ(gb->lock(GRALLOC_USAGE_SW_READ_OFTEN, &data), 0);
        const uint8_t* base = static_cast<const uint8_t*>(data);
        r.bytes.assign(base, base + r.layout.size);
        gb->unlock();
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

    TestSurface ts;
    int freeBuffers = 0;
};

// ---- RGBA input ----

TEST_F(FrameProducerTest, RgbaIntoNv21WritesPackedPlanesFromTopLeftChroma) {
    for (const char* profile : {"packed-nv21", "phone-nv21"}) {
        SCOPED_TRACE(profile);
        useProfile(profile);
        const int w = 36, h = 10;
        makeSurface(HAL_PIXEL_FORMAT_YCrCb_420_SP, w, h);
        std::vector<uint8_t> rgba = randomBytes(w * h * 4, 1);
        ASSERT_EQ(produce(rgba, w, h, HAL_PIXEL_FORMAT_RGBA_8888), 0);
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        // Rows at pitch `width`, chroma right after the luma, whatever the buffer's stride.
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const uint8_t* p = &rgba[(y * w + x) * 4];
                ASSERT_EQ(r->bytes[y * w + x], lumaOf(p)) << x << "," << y;
                if (x % 2 == 0 && y % 2 == 0) {
                    size_t c = w * h + (y / 2) * w + x;
                    ASSERT_EQ(r->bytes[c], crOf(p));
                    ASSERT_EQ(r->bytes[c + 1], cbOf(p));
                }
            }
        }
    }
}

TEST_F(FrameProducerTest, RgbaIntoYv12FillsTheGrallocsPlanes) {
    const int w = 64, h = 20;
    makeSurface(HAL_PIXEL_FORMAT_YV12, w, h);
    std::vector<uint8_t> rgba = randomBytes(w * h * 4, 2);
    setLogLevel("V");
    ASSERT_EQ(produce(rgba, w, h, HAL_PIXEL_FORMAT_RGBA_8888), 0);
    std::optional<Received> r = receive();
    ASSERT_TRUE(r);
    // The planes where the gralloc says they are: Y, then Cr, then Cb, chroma step 1.
    const host::GrallocLayout& l = r->layout;
    ASSERT_EQ(l.chromaStep, 1u);
    ASSERT_LT(l.crOffset, l.cbOffset);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const uint8_t* p = &rgba[(y * w + x) * 4];
            ASSERT_EQ(r->bytes[l.yOffset + y * l.yStride + x], lumaOf(p));
            if (x % 2 == 0 && y % 2 == 0) {
                ASSERT_EQ(r->bytes[l.crOffset + (y / 2) * l.cStride + x / 2], crOf(p));
                ASSERT_EQ(r->bytes[l.cbOffset + (y / 2) * l.cStride + x / 2], cbOf(p));
            }
        }
    }
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_VERBOSE,
                       "produceFrame: stride is: " + std::to_string(r->layout.stride)));
}

TEST_F(FrameProducerTest, RgbaIntoYv12RefusesOddDimensions) {
    makeSurface(HAL_PIXEL_FORMAT_YV12, 34, 11);
    std::vector<uint8_t> rgba(34 * 11 * 4);
    EXPECT_EQ(produce(rgba, 34, 11, HAL_PIXEL_FORMAT_RGBA_8888), -22);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "produceFrame: Dimens 34 x 11 are not divisible by 2."));
    expectCancelled();
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

TEST_F(FrameProducerTest, RgbaIntoFlexibleYuvFollowsTheLockedLayout) {
    for (const char* profile : {"phone-nv21", "phone-qcom", "packed-qcom"}) {
        SCOPED_TRACE(profile);
        useProfile(profile);
        const int w = 40, h = 6;
        makeSurface(HAL_PIXEL_FORMAT_YCbCr_420_888, w, h);
        std::vector<uint8_t> rgba = randomBytes(w * h * 4, 3);
        ASSERT_EQ(produce(rgba, w, h, HAL_PIXEL_FORMAT_RGBA_8888), 0);
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        const host::GrallocLayout& l = r->layout;
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const uint8_t* p = &rgba[(y * w + x) * 4];
                ASSERT_EQ(r->bytes[l.yOffset + y * l.yStride + x], lumaOf(p));
                if (x % 2 == 0 && y % 2 == 0) {
                    size_t c = (y / 2) * l.cStride + (x / 2) * l.chromaStep;
                    ASSERT_EQ(r->bytes[l.crOffset + c], crOf(p));
                    ASSERT_EQ(r->bytes[l.cbOffset + c], cbOf(p));
                }
            }
        }
    }
}

TEST_F(FrameProducerTest, RgbaIntoAnotherRgbFormatWritesNothingAndTheUnlockDecides) {
    makeSurface(HAL_PIXEL_FORMAT_RGBA_8888, 8, 8);
    std::vector<uint8_t> rgba(8 * 8 * 4);
    EXPECT_EQ(produce(rgba, 8, 8, HAL_PIXEL_FORMAT_RGBA_8888), -22);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       withError("produceFrame: Failed to unlock buffer, error", -22)));
    EXPECT_EQ(host::callCount("buffer.lock"), 0u);
    expectCancelled();
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

TEST_F(FrameProducerTest, Nv21IntoFlexibleYuvGoesToTheCrPointer) {
    useProfile("phone-nv21");
    const int w = 32, h = 6;
    makeSurface(HAL_PIXEL_FORMAT_YCbCr_420_888, w, h);
    std::vector<uint8_t> nv21 = randomBytes(w * h * 3 / 2, 5);
    ASSERT_EQ(produce(nv21, w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP), 0);
    std::optional<Received> r = receive();
    ASSERT_TRUE(r);
    size_t stride = r->layout.stride;
    for (int y = 0; y < h; ++y) {
        ASSERT_EQ(memcmp(&r->bytes[r->layout.yOffset + y * stride], &nv21[y * w], w), 0);
    }
    for (int y = 0; y < h / 2; ++y) {
        ASSERT_EQ(memcmp(&r->bytes[r->layout.crOffset + y * stride], &nv21[w * h + y * w], w), 0);
    }
}

TEST_F(FrameProducerTest, Nv21IntoRgb565ConvertsEveryPixel) {
    for (int pixelFormat : {static_cast<int>(HAL_PIXEL_FORMAT_YCrCb_420_SP),
                            static_cast<int>(HAL_PIXEL_FORMAT_YCbCr_420_888)}) {
        const int w = 34, h = 6;
        makeSurface(HAL_PIXEL_FORMAT_RGB_565, w, h);
        // The 0x23 input is sized as RGBA would be; only its NV21 part is read.
        std::vector<uint8_t> nv21 = randomBytes(w * h * 4, 6);
        nv21[0] = 255;
        nv21[w * h] = 255;  // V = 255: R clamps
        ASSERT_EQ(produce(nv21, w, h, pixelFormat), 0);
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                size_t c = w * h + (y / 2) * w + (x & ~1);
                uint16_t expected = rgb565Of(nv21[y * w + x], nv21[c], nv21[c + 1]);
                size_t o = (y * w + x) * 2;  // packed rows; the buffer's stride is not used
                ASSERT_EQ(r->bytes[o] | r->bytes[o + 1] << 8, expected) << x << "," << y;
            }
        }
    }
}

TEST_F(FrameProducerTest, VenusNv21PutsTheChromaAfterAlignedLumaRows) {
    const int w = 64, h = 20;
    makeSurface(kVenusNv21, w, h);
    std::vector<uint8_t> nv21 = randomBytes(w * h * 3 / 2, 7);
    int status = produce(nv21, w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP);
#if defined(NUVRA_TEST_VENDOR_QCOM)
    ASSERT_EQ(status, 0);
    std::optional<Received> r = receive();
    ASSERT_TRUE(r);
    EXPECT_EQ(memcmp(&r->bytes[0], &nv21[0], w * h), 0);
    EXPECT_EQ(memcmp(&r->bytes[32 * w], &nv21[w * h], w * h / 2), 0);
#else
    EXPECT_EQ(status, -38);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "produceFrame: Convert 420sp to venus is working with qcom only (0x114)"));
    expectCancelled();
#endif
}

TEST_F(FrameProducerTest, VenusNv12SwapsEveryChromaPair) {
    for (int w : {128, 40}) {  // luma stride equal to the width, then padded
        SCOPED_TRACE(w);
        const int h = 6;
        makeSurface(kVenusNv12, w, h);
        std::vector<uint8_t> nv21 = randomBytes(w * h * 3 / 2, 8);
        nv21[w * h] = 0x10;
        nv21[w * h + 1] = 0x20;
        int status = produce(nv21, w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP);
#if defined(NUVRA_TEST_VENDOR_QCOM)
        ASSERT_EQ(status, 0);
        std::optional<Received> r = receive();
        ASSERT_TRUE(r);
        const host::GrallocLayout& l = r->layout;
        EXPECT_EQ(r->bytes[l.cbOffset], 0x20);
        EXPECT_EQ(r->bytes[l.cbOffset + 1], 0x10);
        for (int y = 0; y < h; ++y) {
            ASSERT_EQ(memcmp(&r->bytes[l.yOffset + y * l.yStride], &nv21[y * w], w), 0);
        }
        // Whole-plane writes ignore the chroma stride; padded ones use it.
        size_t pitch = (l.yStride == static_cast<uint32_t>(w)) ? w : l.cStride;
        for (int y = 0; y < h / 2; ++y) {
            for (int x = 0; x < w; x += 2) {
                const uint8_t* src = &nv21[w * h + y * w + x];
                ASSERT_EQ(r->bytes[l.cbOffset + y * pitch + x], src[1]);
                ASSERT_EQ(r->bytes[l.cbOffset + y * pitch + x + 1], src[0]);
            }
        }
#else
        EXPECT_EQ(status, -38);
        expectCancelled();
#endif
    }
}

TEST_F(FrameProducerTest, Nv21IntoAnUnsupportedFormatIsRefused) {
    makeSurface(HAL_PIXEL_FORMAT_YV12, 16, 4);
    std::vector<uint8_t> nv21(16 * 4 * 3 / 2);
    EXPECT_EQ(produce(nv21, 16, 4, HAL_PIXEL_FORMAT_YCrCb_420_SP), -38);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "produceFrame: Convert 420sp to other format(32315659) is not supported "
                       "yet."));
    expectCancelled();
}

// ---- BLOB input ----

TEST_F(FrameProducerTest, BlobGetsItsFooterOrIsRefusedWhenItCannotFit) {
    std::vector<uint8_t> jpeg = randomBytes(1000, 9);
    makeSurface(HAL_PIXEL_FORMAT_BLOB, 1007, 1);
    EXPECT_EQ(produce(jpeg, 1007, 1, HAL_PIXEL_FORMAT_BLOB), -22);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "produceFrame: Pixel buffer needs size 1008, cannot fit in gralloc buffer "
                       "of size 1007"));
    expectCancelled();

    makeSurface(HAL_PIXEL_FORMAT_BLOB, 1008, 1);
    ASSERT_EQ(produce(jpeg, 1008, 1, HAL_PIXEL_FORMAT_BLOB), 0);
    std::optional<Received> r = receive();
    ASSERT_TRUE(r);
    EXPECT_EQ(memcmp(r->bytes.data(), jpeg.data(), 1000), 0);
    const uint8_t footer[8] = {0xFF, 0x00, 0x00, 0x00, 0xE8, 0x03, 0x00, 0x00};
    EXPECT_EQ(memcmp(&r->bytes[1000], footer, 8), 0);
}

TEST_F(FrameProducerTest, BlobIntoRgbaUsesTheStridedLength) {
    useProfile("phone-nv21");
    makeSurface(HAL_PIXEL_FORMAT_RGBA_8888, 100, 10);
    std::vector<uint8_t> jpeg = randomBytes(3000, 10);
    setLogLevel("V");
    ASSERT_EQ(produce(jpeg, 100, 10, HAL_PIXEL_FORMAT_BLOB), 0);
    std::optional<Received> r = receive();
    ASSERT_TRUE(r);
    size_t length = (100 + r->layout.stride * 9) * 4;
    EXPECT_EQ(memcmp(r->bytes.data(), jpeg.data(), jpeg.size()), 0);
    const uint8_t footer[8] = {0xFF, 0x00, 0x00, 0x00, 0xB8, 0x0B, 0x00, 0x00};
    EXPECT_EQ(memcmp(&r->bytes[length - 8], footer, 8), 0);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_VERBOSE,
                       "produceFrame: Using BLOB to RGBA format override."));
}

// ---- refusals and platform failures ----

TEST_F(FrameProducerTest, BadArgumentsAreRefusedBeforeTheDequeue) {
    makeSurface(HAL_PIXEL_FORMAT_YCrCb_420_SP, 8, 8);
    std::vector<uint8_t> pixels(8 * 8 * 4);
    const struct {
        int width, height;
        const char* line;
    } cases[] = {{-2, 8, "produceFrame: width must be non-negative"},
                 {8, -2, "produceFrame: height must be non-negative"}};
    for (const auto& c : cases) {
        EXPECT_EQ(produce(pixels, c.width, c.height, HAL_PIXEL_FORMAT_RGBA_8888), -22);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR, c.line));
    }
    // A frame whose size product exceeds INT32_MAX reaches produceFrame as a negative size.
    EXPECT_EQ(util()->nativeProduceFrameWithNV21(env, ts.javaSurface, 1, 65536, 65536), -22);
    EXPECT_TRUE(
            logged(kSurfaceTag, ANDROID_LOG_ERROR, "produceFrame: bufSize must be non-negative"));
    EXPECT_EQ(host::callCount("window.dequeueBuffer"), 0u);
}

TEST_F(FrameProducerTest, WrongDimensionsOrFormatsAreCancelled) {
    makeSurface(HAL_PIXEL_FORMAT_YCrCb_420_SP, 8, 8);
    std::vector<uint8_t> pixels(16 * 8 * 4);
    EXPECT_EQ(produce(pixels, 16, 8, HAL_PIXEL_FORMAT_RGBA_8888), -22);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "produceFrame: Received gralloc buffer with bad dimensions 8x8, expecting "
                       "dimensions 16 x 8"));
    expectCancelled();

    host::resetFaultsAndCalls();
    EXPECT_EQ(produce(pixels, 8, 8, 0x36), -22);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "produceFrame: Invalid pixel format in produceFrame: 36"));
    expectCancelled();

    host::resetFaultsAndCalls();
    host::injectFault("window.query.FORMAT", -19);
    EXPECT_EQ(produce(pixels, 8, 8, HAL_PIXEL_FORMAT_RGBA_8888), -19);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       withError("produceFrame: Error while querying surface pixel format", -19)));
    expectCancelled();
}

TEST_F(FrameProducerTest, SizeChecksAtTheirBoundaries) {
    // RGBA rows (level 6): one byte short is refused, the exact size accepted.
    makeSurface(HAL_PIXEL_FORMAT_YCrCb_420_SP, 8, 4);
    std::vector<uint8_t> rgba(8 * 4 * 4 - 1);
    EXPECT_EQ(produce(rgba, 8, 4, HAL_PIXEL_FORMAT_RGBA_8888), -22);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "produceFrame: PixelBuffer size 127 too small for given dimensions"));
    expectCancelled();
    rgba.resize(8 * 4 * 4);
    EXPECT_EQ(produce(rgba, 8, 4, HAL_PIXEL_FORMAT_RGBA_8888), 0);

    // RGB565 rows (level 5).
    makeSurface(HAL_PIXEL_FORMAT_RGB_565, 8, 4);
    std::vector<uint8_t> nv21(8 * 4 * 3 / 2 - 1);
    EXPECT_EQ(produce(nv21, 8, 4, HAL_PIXEL_FORMAT_YCrCb_420_SP), -22);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_WARN,
                       "produceFrame: PixelBuffer size 47 too small for given dimensions"));
    expectCancelled();
    nv21.resize(48);
    EXPECT_EQ(produce(nv21, 8, 4, HAL_PIXEL_FORMAT_YCrCb_420_SP), 0);
}

TEST_F(FrameProducerTest, LockFailuresUseTheirRowsMessages) {
    const struct {
        int bufferFormat;
        int inputFormat;
        const char* point;
        const char* prefix;
    } cases[] = {
            {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_RGBA_8888, "buffer.lock",
             "produceFrame: Error"},
            {HAL_PIXEL_FORMAT_YV12, HAL_PIXEL_FORMAT_RGBA_8888, "buffer.lock",
             "produceFrame: Error"},
            {HAL_PIXEL_FORMAT_YCbCr_420_888, HAL_PIXEL_FORMAT_RGBA_8888, "buffer.lockYCbCr",
             "produceFrame: Failed to lock ycbcr buffer, error"},
            {HAL_PIXEL_FORMAT_RGB_565, HAL_PIXEL_FORMAT_YCrCb_420_SP, "buffer.lock",
             "produceFrame: Failed to lock buffer, error"},
    };
    const std::string suffixes[] = {" while locking buffer for write.",
                                    " while locking gralloc buffer for write.", "", ""};
    for (size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        makeSurface(cases[i].bufferFormat, 16, 4);
        std::vector<uint8_t> pixels(16 * 4 * 4);
        host::injectFault(cases[i].point, -12);
        EXPECT_EQ(produce(pixels, 16, 4, cases[i].inputFormat), -12);
        std::string expected = suffixes[i].empty() ? withError(cases[i].prefix, -12)
                                                   : std::string(cases[i].prefix) + " " +
                                                             strerror(12) + " (-12)" + suffixes[i];
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR, expected)) << expected;
        expectCancelled();
    }
}

TEST_F(FrameProducerTest, NullAddressAfterLockIsUnlockedAndCancelled) {
    makeSurface(HAL_PIXEL_FORMAT_YCrCb_420_SP, 16, 4);
    std::vector<uint8_t> rgba(16 * 4 * 4);
    host::injectFault("buffer.lock.nullAddress", -1);
    EXPECT_EQ(produce(rgba, 16, 4, HAL_PIXEL_FORMAT_RGBA_8888), -22);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "produceFrame: nullptr after locking buffer for write."));
    EXPECT_EQ(host::callCount("buffer.unlock"), 1u);
    expectCancelled();
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

TEST_F(FrameProducerTest, JavaArgumentsOfTheTwoOperations) {
    setLogLevel("V");
    makeSurface(HAL_PIXEL_FORMAT_YCrCb_420_SP, 3, 3);
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

    // A 3x3 NV21 frame is 13 bytes long, as the signed product computes it.
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

}  // namespace
}  // namespace nuvra::test
