// The four read-only Surface queries, through the shipped library and the real JVM.

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>

#include <functional>
#include <string>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"

namespace nuvra::test {
namespace {

class SurfaceQueriesTest : public JniTest {
protected:
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
};

// The array is checked before the Surface is looked up: no exception with a null Surface.
TEST_F(SurfaceQueriesTest, DimensArgumentIsCheckedBeforeTheSurface) {
    EXPECT_EQ(util()->nativeDetectSurfaceDimens(env, nullptr, intArray({5})), -22);
    EXPECT_EQ(util()->nativeDetectSurfaceDimens(env, nullptr, nullptr), -22);
    expectNoPendingException(env);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_ERROR),
              (std::vector<std::string>{
                      "nativeDetectSurfaceDimens: Invalid length of dimens argument in "
                      "nativeDetectSurfaceDimens",
                      "nativeDetectSurfaceDimens: Null dimens argument passed to "
                      "nativeDetectSurfaceDimens"}));
}

// The dimensions fill the first two elements of the array.
TEST_F(SurfaceQueriesTest, ValuesOfTheConsumerAreReturned) {
    setLogLevel("V");
    TestSurfaceConfig config;
    config.width = 320;
    config.height = 240;
    config.format = HAL_PIXEL_FORMAT_YCrCb_420_SP;
    config.dataspace = HAL_DATASPACE_V0_JFIF;
    config.consumerUsage = GRALLOC_USAGE_SW_READ_OFTEN | (uint64_t{1} << 40);
    TestSurface ts = makeTestSurface(env, config);
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
    uint64_t usage = util()->nativeDetectSurfaceUsageFlags(env, ts.javaSurface);
    EXPECT_EQ(usage & config.consumerUsage, config.consumerUsage);
    expectNoPendingException(env);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE),
              (std::vector<std::string>{"nativeGetSurfaceDimens", "nativeDetectSurfaceType",
                                        "nativeDetectSurfaceDataspace",
                                        "nativeDetectSurfaceUsageFlags"}));
}

// A failing window request ends the query with its status (the sign kept, also when widened to
// 64 bits) and its line, without an exception; the requests after it are not made.
TEST_F(SurfaceQueriesTest, PlatformErrorsAreReturnedWithTheirLine) {
    TestSurface ts = makeTestSurface(env);
    jintArray dimens = intArray({1, 2});
    const struct {
        const char* fault;
        std::function<jlong()> call;
        const char* line;  // before " <strerror> (<err>)."
    } cases[] = {
            {"window.query.WIDTH",
             [&] { return util()->nativeDetectSurfaceDimens(env, ts.javaSurface, dimens); },
             "nativeDetectSurfaceDimens: Error while querying surface width"},
            {"window.query.HEIGHT",
             [&] { return util()->nativeDetectSurfaceDimens(env, ts.javaSurface, dimens); },
             "nativeDetectSurfaceDimens: Error while querying surface height"},
            {"window.query.FORMAT",
             [&] { return util()->nativeDetectSurfaceType(env, ts.javaSurface); },
             "nativeDetectSurfaceType: Error while querying surface pixel format"},
            {"window.query.DEFAULT_DATASPACE",
             [&] { return util()->nativeDetectSurfaceDataspace(env, ts.javaSurface); },
             "nativeDetectSurfaceDataspace: Error while querying surface dataspace "},
            {"window.perform.GET_CONSUMER_USAGE64",
             [&] { return util()->nativeDetectSurfaceUsageFlags(env, ts.javaSurface); },
             "nativeDetectSurfaceUsageFlags: Error while getting consumer usage "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        host::resetFaultsAndCalls();
        host::injectFault(c.fault, -19);
        EXPECT_EQ(c.call(), -19);
        expectNoPendingException(env);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR, withError(c.line, -19)));
        EXPECT_EQ(host::recordedCalls().back(), c.fault);
    }
    EXPECT_EQ(contents(dimens), (std::vector<jint>{1, 2}));
}

}  // namespace
}  // namespace nuvra::test
