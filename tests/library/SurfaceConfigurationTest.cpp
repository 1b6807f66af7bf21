// The Surface setters (format, dimensions, transform, scaling mode, timestamp, data space) and the
// four read-only queries, through the shipped library (each vendor build runs this file) and the
// real JVM.

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>

#include <functional>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"

namespace nuvra::test {
namespace {

constexpr uint64_t kConsumerUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_HW_TEXTURE;

class SurfaceConfigurationTest : public JniTest {
protected:
    void SetUp() override {
        JniTest::SetUp();
        ts = makeTestSurface(
                env, {64, 48, HAL_PIXEL_FORMAT_RGBA_8888, HAL_DATASPACE_V0_BT709, kConsumerUsage});
        ASSERT_EQ(util()->nativeConnectSurface(env, ts.javaSurface), 0);
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
    }
    android::BufferItem nextFrame() {
        std::optional<android::BufferItem> item = cycleOneFrame(ts);
        EXPECT_TRUE(item.has_value());
        return item.value_or(android::BufferItem());
    }
    static uint32_t fullTransform(const android::BufferItem& item) {
        return item.mTransform | (item.mTransformToDisplayInverse ? 8u : 0u);  // INVERSE_DISPLAY
    }
    int setFormat(int format, bool display) {
        return util()->nativeSetSurfaceFormat(env, ts.javaSurface, format, display);
    }

    jintArray intArray(std::vector<jint> values) {
        jintArray a = env->NewIntArray(static_cast<jsize>(values.size()));
        env->SetIntArrayRegion(a, 0, static_cast<jsize>(values.size()), values.data());
        return a;
    }
    std::vector<jint> contents(jintArray a) {
        std::vector<jint> v(env->GetArrayLength(a));
        env->GetIntArrayRegion(a, 0, static_cast<jsize>(v.size()), v.data());
        return v;
    }

    TestSurface ts;
};

// NV21 without the display flag, and any other format with it, is set as it is and nothing else.
TEST_F(SurfaceConfigurationTest, FormatsOtherThanDisplayNv21AreSetAlone) {
    EXPECT_EQ(setFormat(HAL_PIXEL_FORMAT_YCrCb_420_SP, false), 0);
    std::vector<std::string> calls = host::recordedCalls();
    EXPECT_EQ(std::vector<std::string>(calls.begin() + 1, calls.end()),
              std::vector<std::string>{"window.perform.SET_BUFFERS_FORMAT"});
    android::BufferItem item = nextFrame();
    EXPECT_EQ(item.mGraphicBuffer->getPixelFormat(), HAL_PIXEL_FORMAT_YCrCb_420_SP);
    EXPECT_EQ(item.mDataSpace, HAL_DATASPACE_V0_BT709);
    EXPECT_EQ(setFormat(HAL_PIXEL_FORMAT_YV12, true), 0);
    EXPECT_EQ(nextFrame().mGraphicBuffer->getPixelFormat(), HAL_PIXEL_FORMAT_YV12);
}

// Qualcomm adds the camera-write usage; K.ORB and MT the JFIF data space and the CPU-write usage,
// and K.ORB wants its own NV21 for displays.
TEST_F(SurfaceConfigurationTest, DisplaySurfaceGetsTheVendorsUsageAndDataSpace) {
    setLogLevel("V");
    EXPECT_EQ(setFormat(HAL_PIXEL_FORMAT_YCrCb_420_SP, true), 0);
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

// A window request that fails (or refuses the value) ends the setter or query with its status
// (the sign kept, also when widened to 64 bits) and its line, without an exception; the requests
// after it are not made.
TEST_F(SurfaceConfigurationTest, WindowRequestFailuresReturnTheirCodeWithTheirLine) {
    using S = SurfaceNativeUtil;
    jintArray dimens = intArray({1, 2});
    auto call = [&](auto method, auto... args) -> std::function<jlong()> {
        return [=] { return static_cast<jlong>((util()->*method)(env, ts.javaSurface, args...)); };
    };
    const struct {
        std::function<jlong()> call;
        const char* request;  // the last one made: armed with `status` unless the value is refused
        int status;
        const char* line;
        const char* end = ".";
        bool armed = true;
    } cases[] = {
        {call(&S::nativeSetSurfaceFormat, 1, true), "window.perform.SET_BUFFERS_FORMAT", -22,
         "nativeSetSurfaceFormat: Error while setting surface format"},
        {call(&S::nativeSetSurfaceFormat, 1, true), "window.perform.SET_USAGE64", -38,
         "nativeSetSurfaceFormat: Failed to set native window usage flag, error"},
#if !defined(NUVRA_TEST_VENDOR_QCOM)
        {call(&S::nativeSetSurfaceFormat, 1, true), "window.perform.SET_BUFFERS_DATASPACE", -19,
         "nativeSetSurfaceFormat: Failed to set native window data_space, error"},
#endif
        {call(&S::nativeSetSurfaceDimens, 10, 10), "window.perform.SET_BUFFERS_DIMENSIONS", -22,
         "nativeSetSurfaceDimens: Error while setting surface dimens"},
        {call(&S::nativeSetSurfaceDimens, 10, 10), "window.perform.SET_BUFFERS_USER_DIMENSIONS",
         -22, "nativeSetSurfaceDimens: Error while setting surface user dimens"},
        {call(&S::nativeSetSurfaceOrientation, 1, 45), "camera.getRotationTransform", -38,
         "nativeSetSurfaceTransform: Invalid rotation transform", "", false},
        {call(&S::nativeSetSurfaceMirror, 1, 0, 1), "window.perform.SET_BUFFERS_TRANSFORM", -19,
         "nativeSetSurfaceTransform: Unable to configure surface transform, error", ""},
        {call(&S::nativeSetScalingMode, 7), "window.perform.SET_SCALING_MODE", -22,
         "nativeSetScalingMode: Unable to set surface scaling mode, error", "", false},
        {call(&S::nativeSetNextTimestamp, jlong{1}), "window.perform.SET_BUFFERS_TIMESTAMP", -19,
         "nativeSetNextTimestamp: Unable to set surface timestamp, error", ""},
        {call(&S::nativeSetDataSpaceToSurface, 0x8C20000), "window.perform.SET_BUFFERS_DATASPACE",
         -19,
         "nativeSetDataSpaceToSurface: Error while setting dataspace(146931712/0x8c20000) to "
         "surface"},
        {call(&S::nativeDetectSurfaceDimens, dimens), "window.query.WIDTH", -19,
         "nativeDetectSurfaceDimens: Error while querying surface width"},
        {call(&S::nativeDetectSurfaceDimens, dimens), "window.query.HEIGHT", -19,
         "nativeDetectSurfaceDimens: Error while querying surface height"},
        {call(&S::nativeDetectSurfaceType), "window.query.FORMAT", -19,
         "nativeDetectSurfaceType: Error while querying surface pixel format"},
        {call(&S::nativeDetectSurfaceDataspace), "window.query.DEFAULT_DATASPACE", -19,
         "nativeDetectSurfaceDataspace: Error while querying surface dataspace "},
        {call(&S::nativeDetectSurfaceUsageFlags), "window.perform.GET_CONSUMER_USAGE64", -19,
         "nativeDetectSurfaceUsageFlags: Error while getting consumer usage "},
    };
    ASSERT_EQ(util()->nativeSetSurfaceOrientation(env, ts.javaSurface, 1, 180), 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        host::resetFaultsAndCalls();
        if (c.armed) host::injectFault(c.request, c.status);
        EXPECT_EQ(c.call(), c.status);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR, withError(c.line, c.status, c.end)));
        EXPECT_EQ(host::recordedCalls().back(), c.request);
    }
    EXPECT_EQ(contents(dimens), (std::vector<jint>{1, 2}));
    // The refused orientation left the transform set before it: back at 180 is ROT_180 (3).
    EXPECT_EQ(fullTransform(nextFrame()), 3u | 8u);
}

// The platform's transform for the facing, orientation and mirror mode (every combination is
// checked against CameraUtils in the host's camera tests), with the inverse-display bit (8) that
// the library always asks for. The orientation setter is the mirror setter with mode 0 (auto).
TEST_F(SurfaceConfigurationTest, TransformsOfFacingOrientationAndMirrorMode) {
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

TEST_F(SurfaceConfigurationTest, DimensionsScalingTimestampAndDataSpaceReachTheQueuedBuffer) {
    const int crop = NATIVE_WINDOW_SCALING_MODE_SCALE_CROP;
    EXPECT_EQ(util()->nativeSetSurfaceDimens(env, ts.javaSurface, 96, 40), 0);
    EXPECT_EQ(util()->nativeSetScalingMode(env, ts.javaSurface, crop), 0);
    EXPECT_EQ(util()->nativeSetNextTimestamp(env, ts.javaSurface, -5), 0);
    EXPECT_EQ(util()->nativeSetDataSpaceToSurface(env, ts.javaSurface, 0x8C20000), 0);
    android::BufferItem item = nextFrame();
    EXPECT_EQ(item.mGraphicBuffer->getWidth(), 96u);
    EXPECT_EQ(item.mGraphicBuffer->getHeight(), 40u);
    EXPECT_EQ(item.mScalingMode, static_cast<uint32_t>(crop));
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

// The dimensions fill the first two elements of the array. The array is checked before the
// Surface is looked up: no exception with a null Surface.
TEST_F(SurfaceConfigurationTest, QueriesReturnTheConsumersValuesAndRefuseBadArrays) {
    setLogLevel("V");
    const uint64_t usage = GRALLOC_USAGE_SW_READ_OFTEN | (uint64_t{1} << 40);
    TestSurface ts = makeTestSurface(
            env, {320, 240, HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_DATASPACE_V0_JFIF, usage});
    jintArray dimens = intArray({-1, -1, 77});
    host::resetFaultsAndCalls();
    EXPECT_EQ(util()->nativeDetectSurfaceDimens(env, ts.javaSurface, dimens), 0);
    EXPECT_EQ(contents(dimens), (std::vector<jint>{320, 240, 77}));
    EXPECT_EQ(host::recordedCalls(),
              (std::vector<std::string>{"jni.android_view_Surface_getNativeWindow",
                                        "window.query.WIDTH", "window.query.HEIGHT"}));
    EXPECT_EQ(util()->nativeDetectSurfaceType(env, ts.javaSurface), HAL_PIXEL_FORMAT_YCrCb_420_SP);
    EXPECT_EQ(util()->nativeDetectSurfaceDataspace(env, ts.javaSurface), HAL_DATASPACE_V0_JFIF);
    // Bits above 31 come back intact.
    EXPECT_EQ(util()->nativeDetectSurfaceUsageFlags(env, ts.javaSurface) & usage, usage);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE),
              (std::vector<std::string>{"nativeGetSurfaceDimens", "nativeDetectSurfaceType",
                                        "nativeDetectSurfaceDataspace",
                                        "nativeDetectSurfaceUsageFlags"}));

    EXPECT_EQ(util()->nativeDetectSurfaceDimens(env, nullptr, intArray({5})), -22);
    EXPECT_EQ(util()->nativeDetectSurfaceDimens(env, nullptr, nullptr), -22);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_ERROR),
              (std::vector<std::string>{
                      "nativeDetectSurfaceDimens: Invalid length of dimens argument in "
                      "nativeDetectSurfaceDimens",
                      "nativeDetectSurfaceDimens: Null dimens argument passed to "
                      "nativeDetectSurfaceDimens"}));
}

}  // namespace
}  // namespace nuvra::test
