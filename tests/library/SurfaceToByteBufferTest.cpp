// The last frame queued to a Surface copied into a Java byte buffer through the shipped library
// and the real JVM: semi-planar frames, 16-bit frames, the vendor branch, and compressed NV12
// frames decompressed on the host's OpenCL driver. Expected bytes follow from the gralloc layout.

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>
#include <hostvndksupport/SphalNamespace.h>
#include <ui/HostCompressedNv12.h>
#include <ui/HostGrallocLayout.h>

#include <cstdlib>
#include <random>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"
#include "tests/host/media_test_support.h"

namespace nuvra::test {
namespace {

constexpr const char* kName = "nativePutByteBufferFromSurface";
constexpr int kCompressed = 0x7FA30C06;

class SurfaceToByteBufferTest : public hosttest::ImageReaderTest {
protected:
    // Queues to a new Surface one frame of `format` holding random bytes.
    hosttest::BufferBytes queueFrame(int format, uint32_t w, uint32_t h) {
        ts = makeTestSurface(env, {w, h, format});
        EXPECT_EQ(native_window_api_connect(ts.surface.get(), NATIVE_WINDOW_API_CPU), 0);
        EXPECT_EQ(native_window_set_usage(ts.surface.get(), GRALLOC_USAGE_SW_WRITE_OFTEN), 0);
        hosttest::BufferBytes frame = produce(ts.surface, format, 0, format);
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
        return frame;
    }
    int copyOut(std::vector<uint8_t>& out, jlong capacity) {
        jobject dst = env->NewDirectByteBuffer(out.data(), capacity);
        return util()->nativePutByteBufferFromSurface(env, ts.javaSurface, dst);
    }

    TestSurface ts;
};

// The packed NV21 image of a semi-planar frame: luma rows, then h / 2 rows from the Cr plane.
// Read from the Cr address of an NV12-ordered plane, the run's last byte would lie past the plane:
// it is not copied, and `untouched` stays there.
std::vector<uint8_t> packedSemiPlanar(const hosttest::BufferBytes& f, size_t chromaOffset,
                                      bool swap, uint8_t untouched) {
    const host::GrallocLayout& l = f.layout;
    const size_t w = l.width, h = l.height;
    std::vector<uint8_t> out(w * h * 3 / 2, 0);
    for (size_t r = 0; r < h; ++r) memcpy(&out[r * w], &f.bytes[l.yOffset + r * l.yStride], w);
    for (size_t r = 0; r < h / 2; ++r) {
        for (size_t j = 0; j < w; ++j) {
            out[w * h + r * w + j] = f.bytes[chromaOffset + r * l.cStride + (swap ? j ^ 1 : j)];
        }
    }
    if (!swap && chromaOffset == l.cbOffset + 1 && h >= 2) out.back() = untouched;
    return out;
}

TEST_F(SurfaceToByteBufferTest, SemiPlanarFramesOnBothProfilesAndTheCapacityCheck) {
    setLogLevel("V");
    for (const char* profile : {"packed-nv21", "phone-qcom"}) {
        ASSERT_TRUE(host::selectDeviceProfile(profile));
        for (int format : {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_YCbCr_420_888}) {
            SCOPED_TRACE(std::string(profile) + " " + host::grallocFormatName(format));
            const uint32_t w = 64, h = 30;
            const hosttest::BufferBytes frame = queueFrame(format, w, h);
            const std::vector<uint8_t> expected =
                    packedSemiPlanar(frame, frame.layout.crOffset, false, 0xEE);
            std::vector<uint8_t> out(expected.size() + 1, 0xEE);
            // One byte short: refused, and the buffer stays locked.
            EXPECT_EQ(copyOut(out, static_cast<jlong>(expected.size() - 1)), android::BAD_VALUE);
            EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                               "Buffer size(" + std::to_string(expected.size() - 1) +
                                       ") is smaller than image size(" +
                                       std::to_string(expected.size()) + ")"));
            EXPECT_TRUE(wasLeftLocked(frame.buffer));
            // Exact: copied, unlocked.
            ASSERT_EQ(copyOut(out, static_cast<jlong>(expected.size())), 0);
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), out.begin()));
            EXPECT_EQ(out.back(), 0xEE);
            EXPECT_FALSE(wasLeftLocked(frame.buffer));
            EXPECT_TRUE(
                    logged(kSurfaceTag, ANDROID_LOG_VERBOSE, "nativePutByteBufferFromSurface X"));
        }
    }
}

TEST_F(SurfaceToByteBufferTest, SixteenBitFramesAndTheVendorBranch) {
    const uint32_t w = 32, h = 8;
    // RAW16: width x height x 2 bytes from the plane.
    hosttest::BufferBytes frame = queueFrame(HAL_PIXEL_FORMAT_RAW16, w, h);
    std::vector<uint8_t> out(w * h * 2);
    ASSERT_EQ(copyOut(out, static_cast<jlong>(out.size())), 0);
    EXPECT_TRUE(std::equal(out.begin(), out.end(), frame.bytes.begin()));

    // 0x127: the high byte of every 16-bit sample, luma then chroma.
    frame = queueFrame(0x127, w, h);
    std::vector<uint8_t> high(w * h * 3 / 2);
    ASSERT_EQ(copyOut(high, static_cast<jlong>(high.size())), 0);
    const uint8_t* p0 = frame.bytes.data() + frame.layout.planes[0].offset;
    size_t mismatches = 0;
    for (size_t j = 0; j < w * h; ++j) mismatches += high[j] != p0[2 * j + 1];
    EXPECT_EQ(mismatches, 0u);

    // IMPLEMENTATION_DEFINED whose YCbCr lock fails is locked whole: the vendor branch. On a
    // Qualcomm board with NV12 order the Cb-first chroma is turned into V, U; K.ORB and MT copy
    // the chroma that follows the luma as it is.
    ASSERT_TRUE(host::selectDeviceProfile(kQcom ? "packed-qcom" : "packed-nv21"));
    setLogLevel("V");
    frame = queueFrame(HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED, w, h);
    std::vector<uint8_t> copy(w * h * 3 / 2, 0xEE);
    host::injectFault("buffer.lockAsyncYCbCr", android::BAD_VALUE);
    ASSERT_EQ(copyOut(copy, static_cast<jlong>(copy.size())), 0);
    auto said = [](const std::string& text) {
        return logged(kSurfaceTag, ANDROID_LOG_VERBOSE, std::string(kName) + ": " + text);
    };
    EXPECT_TRUE(said("lockAsync"));
    if (kQcom) {
        // The board's order is read once per process: whichever it was, the chroma comes from
        // right after the luma, swapped pairwise for NV12.
        EXPECT_TRUE(said("QCOM"));
        // The run on an NV12-ordered board (a process started as one; see CMakeLists.txt) must
        // take the swapping branch.
        if (getenv("NUVRA_TEST_NV12_BOARD") != nullptr) {
            EXPECT_TRUE(said("SURFACE FORMAT NV12"));
        }
        EXPECT_EQ(copy, packedSemiPlanar(frame, size_t{w} * h, said("SURFACE FORMAT NV12"), 0xEE));
    } else {
        EXPECT_TRUE(said("yStride == Width"));
        EXPECT_EQ(copy, packedSemiPlanar(frame, frame.layout.crOffset, false, 0xEE));
    }
}

TEST_F(SurfaceToByteBufferTest, CompressedFramesDecompressOnTheGpuOnQualcommOnly) {
    const std::vector<std::string> saved = host::sphalSearchPath();
    host::setSphalSearchPath({HOST_OPENCL_VENDOR_DIR});
    setLogLevel("I");
    const uint32_t w = 66, h = 34;
    std::vector<uint8_t> nv12(w * h * 3 / 2);
    std::generate(nv12.begin(), nv12.end(), std::mt19937(3));
    const hosttest::BufferBytes frame = queueFrame(kCompressed, w, h);
    ASSERT_TRUE(host::encodeCompressedNv12(*frame.buffer, nv12.data(), w, nv12.data() + w * h, w));
    std::vector<uint8_t> out(w * h * 3 / 2, 0);
    EXPECT_EQ(copyOut(out, static_cast<jlong>(out.size())), 0);
    EXPECT_FALSE(wasLeftLocked(frame.buffer));
    if (kQcom) {
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_INFO, "UBWC -> YUV: converted"));
        std::vector<uint8_t> nv21 = nv12;  // Cb, Cr turned into Cr, Cb
        for (size_t i = w * h; i < nv21.size(); i += 2) std::swap(nv21[i], nv21[i + 1]);
        EXPECT_EQ(out, nv21);
    } else {
        EXPECT_TRUE(logTexts(kSurfaceTag, ANDROID_LOG_INFO).empty());
        EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint8_t b) { return b == 0; }));
    }
    host::setSphalSearchPath(saved);
}

TEST_F(SurfaceToByteBufferTest, NothingQueuedOrNoSurface) {
    ts = makeTestSurface(env);
    std::vector<uint8_t> out(16);
    host::clearCapturedLogs();
    EXPECT_EQ(copyOut(out, 16), android::INVALID_OPERATION);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "nativePutByteBufferFromSurface: getLastQueuedBuffer failed"));
    EXPECT_EQ(util()->nativePutByteBufferFromSurface(env, nullptr, nullptr),
              android::INVALID_OPERATION);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "nativePutByteBufferFromSurface: Surface is nullptr"));
    env->ExceptionClear();
}

}  // namespace
}  // namespace nuvra::test
