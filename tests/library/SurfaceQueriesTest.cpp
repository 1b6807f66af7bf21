// The four read-only Surface queries, through the shipped library and the real JVM.

#include <android/log.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>
#include <string.h>
#include <testsupport/JniTest.h>
#include <testsupport/TestSurface.h>

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

TEST_F(SurfaceQueriesTest, DimensFillTheFirstTwoElements) {
    setLogLevel("V");
    TestSurfaceConfig config;
    config.width = 320;
    config.height = 240;
    TestSurface ts = makeTestSurface(env, config);
    jintArray dimens = intArray({-1, -1, 77});
    host::resetFaultsAndCalls();
    EXPECT_EQ(util()->nativeDetectSurfaceDimens(env, ts.javaSurface, dimens), 0);
    expectNoPendingException(env);
    EXPECT_EQ(contents(dimens), (std::vector<jint>{320, 240, 77}));
    EXPECT_EQ(host::recordedCalls(),
              (std::vector<std::string>{"jni.android_view_Surface_getNativeWindow",
                                        "window.query.WIDTH", "window.query.HEIGHT"}));
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE),
              std::vector<std::string>{"nativeGetSurfaceDimens"});
}

TEST_F(SurfaceQueriesTest, DimensArgumentIsCheckedBeforeTheSurface) {
    // A one-element array is refused even with a null Surface, and nothing is thrown.
    EXPECT_EQ(util()->nativeDetectSurfaceDimens(env, nullptr, intArray({5})), -22);
    expectNoPendingException(env);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "nativeDetectSurfaceDimens: Invalid length of dimens argument in "
                       "nativeDetectSurfaceDimens"));
    TestSurface ts = makeTestSurface(env);
    host::resetFaultsAndCalls();
    EXPECT_EQ(util()->nativeDetectSurfaceDimens(env, ts.javaSurface, nullptr), -22);
    expectNoPendingException(env);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       "nativeDetectSurfaceDimens: Null dimens argument passed to "
                       "nativeDetectSurfaceDimens"));
    EXPECT_TRUE(host::recordedCalls().empty());
}

TEST_F(SurfaceQueriesTest, FailedWidthQueryStopsBeforeTheHeight) {
    TestSurface ts = makeTestSurface(env);
    jintArray dimens = intArray({1, 2});
    host::resetFaultsAndCalls();
    host::injectFault("window.query.WIDTH", -19);
    EXPECT_EQ(util()->nativeDetectSurfaceDimens(env, ts.javaSurface, dimens), -19);
    EXPECT_EQ(host::callCount("window.query.HEIGHT"), 0u);
    EXPECT_EQ(contents(dimens), (std::vector<jint>{1, 2}));
    EXPECT_TRUE(logged(
            kSurfaceTag, ANDROID_LOG_ERROR,
            withError("nativeDetectSurfaceDimens: Error while querying surface width", -19)));

    host::injectFault("window.query.HEIGHT", -110);
    EXPECT_EQ(util()->nativeDetectSurfaceDimens(env, ts.javaSurface, dimens), -110);
    EXPECT_EQ(contents(dimens), (std::vector<jint>{1, 2}));
    EXPECT_TRUE(logged(
            kSurfaceTag, ANDROID_LOG_ERROR,
            withError("nativeDetectSurfaceDimens: Error while querying surface height", -110)));
    expectNoPendingException(env);
}

// The three single-value queries share their frame; each is checked the same way.
struct ValueQuery {
    const char* name;
    std::function<jlong(JNIEnv*, jobject)> call;
    const char* faultPoint;
    const char* errorPrefix;  // the error line before " <strerror> (<err>)."
};

std::vector<ValueQuery> valueQueries() {
    return {
            {"nativeDetectSurfaceType",
             [](JNIEnv* e, jobject s) { return jlong{util()->nativeDetectSurfaceType(e, s)}; },
             "window.query.FORMAT",
             "nativeDetectSurfaceType: Error while querying surface pixel format"},
            {"nativeDetectSurfaceDataspace",
             [](JNIEnv* e, jobject s) { return jlong{util()->nativeDetectSurfaceDataspace(e, s)}; },
             "window.query.DEFAULT_DATASPACE",
             "nativeDetectSurfaceDataspace: Error while querying surface dataspace "},
            {"nativeDetectSurfaceUsageFlags",
             [](JNIEnv* e, jobject s) { return util()->nativeDetectSurfaceUsageFlags(e, s); },
             "window.perform.GET_CONSUMER_USAGE64",
             "nativeDetectSurfaceUsageFlags: Error while getting consumer usage "},
    };
}

TEST_F(SurfaceQueriesTest, ValuesOfTheConsumerAreReturned) {
    TestSurfaceConfig config;
    config.format = HAL_PIXEL_FORMAT_YCrCb_420_SP;
    config.dataspace = HAL_DATASPACE_V0_JFIF;
    config.consumerUsage = GRALLOC_USAGE_SW_READ_OFTEN | (uint64_t{1} << 40);
    TestSurface ts = makeTestSurface(env, config);
    std::vector<ValueQuery> queries = valueQueries();
    EXPECT_EQ(queries[0].call(env, ts.javaSurface), HAL_PIXEL_FORMAT_YCrCb_420_SP);
    EXPECT_EQ(queries[1].call(env, ts.javaSurface), HAL_DATASPACE_V0_JFIF);
    // Bits above 31 come back intact.
    EXPECT_EQ(static_cast<uint64_t>(queries[2].call(env, ts.javaSurface)) & config.consumerUsage,
              config.consumerUsage);
    expectNoPendingException(env);
}

TEST_F(SurfaceQueriesTest, EachQueryReportsAMissingWindowAndPlatformErrors) {
    setLogLevel("V");
    for (const ValueQuery& q : valueQueries()) {
        SCOPED_TRACE(q.name);
        host::clearCapturedLogs();
        EXPECT_EQ(q.call(env, nullptr), -22);
        expectPendingException(env, "java.lang.NullPointerException", "surface");
        EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE), std::vector<std::string>{q.name});
        EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_ERROR),
                  std::vector<std::string>{std::string(q.name) +
                                           ": Could not retrieve native window from surface."});

        TestSurface ts = makeTestSurface(env);
        host::resetFaultsAndCalls();
        host::injectFault(q.faultPoint, -19);
        EXPECT_EQ(q.call(env, ts.javaSurface), -19);  // sign kept, also when widened to 64 bits
        expectNoPendingException(env);
        EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR, withError(q.errorPrefix, -19)));

        ts.releaseJavaSurface();
        EXPECT_EQ(q.call(env, ts.javaSurface), -22);
        expectPendingException(env, "java.lang.IllegalArgumentException",
                               "Surface had no valid native window.");
    }
}

}  // namespace
}  // namespace nuvra::test
