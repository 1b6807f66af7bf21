// Format, dimensions, transform, scaling mode, timestamp and data space setters, through the
// shipped library (each vendor build runs this file) and the real JVM.

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"

namespace nuvra::test {
namespace {

class SurfaceGeometryTest : public JniTest {
protected:
    void SetUp() override {
        JniTest::SetUp();
        TestSurfaceConfig config;
        config.consumerUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_HW_TEXTURE;
        config.dataspace = HAL_DATASPACE_V0_BT709;
        ts = makeTestSurface(env, config);
        ASSERT_EQ(util()->nativeConnectSurface(env, ts.javaSurface), 0);
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
    }
    void TearDown() override {
        ts.reset();
        JniTest::TearDown();
    }
    android::BufferItem nextFrame() {
        std::optional<android::BufferItem> item = cycleOneFrame(ts);
        EXPECT_TRUE(item.has_value());
        return item.value_or(android::BufferItem());
    }
    static uint32_t fullTransform(const android::BufferItem& item) {
        return item.mTransform |
               (item.mTransformToDisplayInverse ? uint32_t{NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY}
                                                : 0u);
    }

    TestSurface ts;
    const uint64_t kConsumerUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_HW_TEXTURE;
};

// NV21 without the display flag, and any other format with it, is set as it is and nothing else.
TEST_F(SurfaceGeometryTest, FormatsOtherThanDisplayNv21AreSetAlone) {
    EXPECT_EQ(util()->nativeSetSurfaceFormat(env, ts.javaSurface, HAL_PIXEL_FORMAT_YCrCb_420_SP,
                                             false),
              0);
    std::vector<std::string> calls = host::recordedCalls();
    EXPECT_EQ(std::vector<std::string>(calls.begin() + 1, calls.end()),
              std::vector<std::string>{"window.perform.SET_BUFFERS_FORMAT"});
    android::BufferItem item = nextFrame();
    EXPECT_EQ(item.mGraphicBuffer->getPixelFormat(), HAL_PIXEL_FORMAT_YCrCb_420_SP);
    EXPECT_EQ(item.mDataSpace, HAL_DATASPACE_V0_BT709);
    EXPECT_EQ(util()->nativeSetSurfaceFormat(env, ts.javaSurface, HAL_PIXEL_FORMAT_YV12, true), 0);
    EXPECT_EQ(nextFrame().mGraphicBuffer->getPixelFormat(), HAL_PIXEL_FORMAT_YV12);
}

// Qualcomm adds the camera-write usage; K.ORB and MT the JFIF data space and the CPU-write usage,
// and K.ORB wants its own NV21 for displays.
TEST_F(SurfaceGeometryTest, DisplaySurfaceGetsTheVendorsUsageAndDataSpace) {
    setLogLevel("V");
    EXPECT_EQ(util()->nativeSetSurfaceFormat(env, ts.javaSurface, HAL_PIXEL_FORMAT_YCrCb_420_SP,
                                             true),
              0);
    expectNoPendingException(env);
    android::BufferItem item = nextFrame();
    const uint64_t usage = item.mGraphicBuffer->getUsage();
    const uint64_t added = kQcom ? uint64_t{0x20000} : uint64_t{GRALLOC_USAGE_SW_WRITE_OFTEN};
    EXPECT_EQ(usage & (kConsumerUsage | added), kConsumerUsage | added);
    EXPECT_EQ(item.mGraphicBuffer->getPixelFormat(), kKorb ? 0x11D : HAL_PIXEL_FORMAT_YCrCb_420_SP);
    std::vector<std::string> expected = {"nativeSetSurfaceFormat"};
    if (kQcom) {
        EXPECT_EQ(item.mDataSpace, HAL_DATASPACE_V0_BT709);  // left alone
        expected.push_back("add usage GRALLOC_USAGE_HW_CAMERA_WRITE");
        EXPECT_EQ(host::callCount("window.query.DEFAULT_DATASPACE"), 0u);
        EXPECT_EQ(logTexts(kPlatformTag, ANDROID_LOG_VERBOSE).size(), 4u);  // asked 4 times
    } else {
        EXPECT_EQ(usage & 0x20000, 0u);
        EXPECT_EQ(item.mDataSpace, static_cast<android_dataspace>(0x8C20000));
        if (kKorb) {
            expected.push_back(
                    "nativeSetSurfaceFormat: override pixel format to 420_SP_M_FULL "
                    "for display surface.");
        }
        expected.push_back("nativeSetSurfaceFormat: NATIVE_WINDOW_DEFAULT_DATASPACE " +
                           std::to_string(HAL_DATASPACE_V0_BT709));
        // The consumer's usage: SW_READ_OFTEN | HW_TEXTURE.
        expected.push_back("add usage GRALLOC_USAGE_SW_WRITE_OFTEN, original 0x103");
    }
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE), expected);
}

// A window request that fails (or refuses the value) ends the setter with the request's status
// and its line; the requests after it in the setter are not made.
TEST_F(SurfaceGeometryTest, SetterFailuresReturnTheWindowsCodeWithTheirLine) {
    using Call = int (*)(JNIEnv*, jobject);
    Call setFormat = [](JNIEnv* e, jobject s) {
        return util()->nativeSetSurfaceFormat(e, s, 1, true);
    };
    Call setDimens = [](JNIEnv* e, jobject s) {
        return util()->nativeSetSurfaceDimens(e, s, 10, 10);
    };
    const struct {
        Call call;
        const char* fault;  // armed with `status`; null when the value itself is refused
        int status;
        const char* line;
        const char* end;
        const char* notCalled;
    } cases[] = {
        {setFormat, "window.perform.SET_BUFFERS_FORMAT", -22,
         "nativeSetSurfaceFormat: Error while setting surface format", ".",
         "window.perform.SET_USAGE64"},
        {setFormat, "window.perform.SET_USAGE64", -38,
         "nativeSetSurfaceFormat: Failed to set native window usage flag, error", ".", nullptr},
#if !defined(NUVRA_TEST_VENDOR_QCOM)
        {setFormat, "window.perform.SET_BUFFERS_DATASPACE", -19,
         "nativeSetSurfaceFormat: Failed to set native window data_space, error", ".", nullptr},
#endif
        {setDimens, "window.perform.SET_BUFFERS_DIMENSIONS", -22,
         "nativeSetSurfaceDimens: Error while setting surface dimens", ".",
         "window.perform.SET_BUFFERS_USER_DIMENSIONS"},
        {setDimens, "window.perform.SET_BUFFERS_USER_DIMENSIONS", -22,
         "nativeSetSurfaceDimens: Error while setting surface user dimens", ".", nullptr},
        {[](JNIEnv* e, jobject s) { return util()->nativeSetSurfaceOrientation(e, s, 1, 45); },
         nullptr, -38, "nativeSetSurfaceTransform: Invalid rotation transform", "",
         "window.perform.SET_BUFFERS_TRANSFORM"},
        {[](JNIEnv* e, jobject s) { return util()->nativeSetSurfaceMirror(e, s, 1, 0, 1); },
         "window.perform.SET_BUFFERS_TRANSFORM", -19,
         "nativeSetSurfaceTransform: Unable to configure surface transform, error", "", nullptr},
        {[](JNIEnv* e, jobject s) { return util()->nativeSetScalingMode(e, s, 7); }, nullptr, -22,
         "nativeSetScalingMode: Unable to set surface scaling mode, error", "", nullptr},
        {[](JNIEnv* e, jobject s) { return util()->nativeSetNextTimestamp(e, s, 1); },
         "window.perform.SET_BUFFERS_TIMESTAMP", -19,
         "nativeSetNextTimestamp: Unable to set surface timestamp, error", "", nullptr},
        {[](JNIEnv* e, jobject s) { return util()->nativeSetDataSpaceToSurface(e, s, 0x8C20000); },
         "window.perform.SET_BUFFERS_DATASPACE", -19,
         "nativeSetDataSpaceToSurface: Error while setting dataspace(146931712/0x8c20000) to "
         "surface",
         ".", nullptr},
    };
    ASSERT_EQ(util()->nativeSetSurfaceOrientation(env, ts.javaSurface, 1, 180), 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        host::resetFaultsAndCalls();
        if (c.fault != nullptr) host::injectFault(c.fault, c.status);
        EXPECT_EQ(c.call(env, ts.javaSurface), c.status);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR, withError(c.line, c.status, c.end)));
        if (c.notCalled != nullptr) {
            EXPECT_EQ(host::callCount(c.notCalled), 0u);
        }
    }
    // The refused orientation left the transform set before it: back at 180 is ROT_180 (3).
    EXPECT_EQ(fullTransform(nextFrame()), 3u | 8u);
}

// The platform's transform for the facing, orientation and mirror mode (every combination is
// checked against CameraUtils in the host's camera tests), with the inverse-display bit (8) that
// the library always asks for. The orientation setter is the mirror setter with mode 0 (auto).
TEST_F(SurfaceGeometryTest, TransformsOfFacingOrientationAndMirrorMode) {
    const struct {
        int facing, orientation, mode;
        uint32_t transform;
    } cases[] = {
            {1, 90, 0, 4 | 8},    // back: ROT_90
            {0, 90, 0, 6 | 8},    // front, mirrored by mode auto: FLIP_H ^ ROT_270
            {256, 90, 0, 6 | 8},  // only the low byte of the facing is kept: front
            {1, 270, 2, 5 | 8},   // FLIP_H ^ ROT_90
            {2, 180, 3, 1 | 8},   // FLIP_V ^ ROT_180
            {0, 0, 1, 8},         // mode none
    };
    setLogLevel("V");
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.facing << " " << c.orientation << " " << c.mode);
        ASSERT_EQ(util()->nativeSetSurfaceMirror(env, ts.javaSurface, c.facing, c.orientation,
                                                 c.mode),
                  0);
        EXPECT_EQ(fullTransform(nextFrame()), c.transform);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_VERBOSE,
                           "nativeSetSurfaceTransform: Setting buffer transform to " +
                                   std::to_string(c.transform)));
        if (c.mode != 0) continue;
        ASSERT_EQ(util()->nativeSetSurfaceOrientation(env, ts.javaSurface, c.facing, c.orientation),
                  0);
        EXPECT_EQ(fullTransform(nextFrame()), c.transform);
    }
}

TEST_F(SurfaceGeometryTest, DimensionsScalingTimestampAndDataSpaceReachTheQueuedBuffer) {
    EXPECT_EQ(util()->nativeSetSurfaceDimens(env, ts.javaSurface, 96, 40), 0);
    EXPECT_EQ(util()->nativeSetScalingMode(env, ts.javaSurface,
                                           NATIVE_WINDOW_SCALING_MODE_SCALE_CROP),
              0);
    EXPECT_EQ(util()->nativeSetNextTimestamp(env, ts.javaSurface, -5), 0);
    EXPECT_EQ(util()->nativeSetDataSpaceToSurface(env, ts.javaSurface, 0x8C20000), 0);
    android::BufferItem item = nextFrame();
    EXPECT_EQ(item.mGraphicBuffer->getWidth(), 96u);
    EXPECT_EQ(item.mGraphicBuffer->getHeight(), 40u);
    EXPECT_EQ(item.mScalingMode, static_cast<uint32_t>(NATIVE_WINDOW_SCALING_MODE_SCALE_CROP));
    EXPECT_EQ(item.mTimestamp, -5);  // passed on unchanged
    EXPECT_EQ(item.mDataSpace, static_cast<android_dataspace>(0x8C20000));

    EXPECT_EQ(util()->nativeSetDataSpaceToSurface(env, ts.javaSurface, -1), 0);
    // The dimensions set before the user dimensions failed stay.
    host::injectFault("window.perform.SET_BUFFERS_USER_DIMENSIONS", -22);
    EXPECT_EQ(util()->nativeSetSurfaceDimens(env, ts.javaSurface, 10, 10), -22);
    item = nextFrame();
    EXPECT_EQ(static_cast<int>(item.mDataSpace), -1);
    EXPECT_EQ(item.mGraphicBuffer->getWidth(), 10u);
}

}  // namespace
}  // namespace nuvra::test
