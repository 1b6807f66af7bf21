// Connecting (with the dequeue time-out), disconnecting and the private Surface, through the
// shipped library and the real JVM.

#include <android/log.h>
#include <android_runtime/android_view_Surface.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>

#include "LibraryTestSupport.h"
#include "SurfaceTestSupport.h"

namespace nuvra::test {
namespace {

using SurfaceConnectionTest = JniTest;

const std::vector<std::string> kConnectSteps = {"surface.connect", "window.perform.SET_USAGE64",
                                                "window.query.MIN_UNDEQUEUED_BUFFERS",
                                                "window.perform.SET_BUFFER_COUNT"};

TEST_F(SurfaceConnectionTest, ConnectsAsCameraProducerWithFourSpareBuffersAndADequeueTimeOut) {
    setLogLevel("V");
    TestSurfaceConfig config;
    config.maxAcquired = 2;
    TestSurface ts = makeTestSurface(env, config);
    host::resetFaultsAndCalls();
    EXPECT_EQ(util()->nativeConnectSurface(env, ts.javaSurface), 0);
    std::vector<std::string> calls = host::recordedCalls();
    calls.erase(calls.begin());  // the Java Surface lookup
    EXPECT_EQ(calls, kConnectSteps);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE),
              (std::vector<std::string>{"nativeConnectSurface",
                                        "connectSurface: Setting buffer count to 6"}));
    // CPU-write usage on the buffers, and the camera API holds the connection.
    std::optional<android::BufferItem> item = cycleOneFrame(ts);
    ASSERT_TRUE(item.has_value());
    // Six buffers of which the consumer keeps back two: four for the producer once a buffer
    // has been queued (before that, the queue lets the producer take every free slot).
    EXPECT_EQ(dequeuableBuffers(ts), 4);
    EXPECT_EQ(item->mGraphicBuffer->getUsage() & GRALLOC_USAGE_SW_WRITE_OFTEN,
              uint64_t{GRALLOC_USAGE_SW_WRITE_OFTEN});
    EXPECT_EQ(native_window_api_connect(ts.surface.get(), NATIVE_WINDOW_API_CPU), -22);

    // The dequeue time-out: with every slot queued and none acquired, the next dequeue times out
    // instead of blocking.
    EXPECT_EQ(util()->nativeSetDequeueTimeout(env, ts.javaSurface, 2000000), 0);
    ANativeWindow* anw = ts.surface.get();
    ANativeWindowBuffer* anb = nullptr;
    int err = 0;
    for (int n = 0; n < 70 && (err = native_window_dequeue_buffer_and_wait(anw, &anb)) == 0; ++n) {
        ASSERT_EQ(anw->queueBuffer(anw, anb, -1), 0);
    }
    EXPECT_EQ(err, -110);
    host::injectFault("surface.setDequeueTimeout", -19);
    EXPECT_EQ(util()->nativeSetDequeueTimeout(env, ts.javaSurface, 5), -19);
    EXPECT_TRUE(logged(kSurfaceTag, ANDROID_LOG_ERROR,
                       withError("nativeSetDequeueTimeout: Error while set dequeue timeout (5ns) "
                                 "on surface",
                                 -19)));
    EXPECT_EQ(native_window_api_disconnect(ts.surface.get(), NATIVE_WINDOW_API_CAMERA), 0);
}

TEST_F(SurfaceConnectionTest, EachFailingStepStopsTheSequenceWithBothLines) {
    const char* const lines[] = {
            "connectSurface: Unable to connect to surface, error",
            "connectSurface: Failed to set native window usage flag, error",
            "connectSurface: Failed to get native window min undequeued buffers, error",
            "connectSurface: Failed to set native window buffer count, error",
    };
    for (size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(kConnectSteps[i]);
        TestSurface ts = makeTestSurface(env);
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
        host::injectFault(kConnectSteps[i], -32);
        EXPECT_EQ(util()->nativeConnectSurface(env, ts.javaSurface), -32);
        expectPending(env, "");
        EXPECT_EQ(
                logTexts(kSurfaceTag, ANDROID_LOG_ERROR),
                (std::vector<std::string>{
                        withError(lines[i], -32),
                        withError("nativeConnectSurface: Error while configuring surface", -32)}));
        // The steps after the failing one were not attempted.
        EXPECT_EQ(host::recordedCalls().back(), kConnectSteps[i]);
        // A connection made before the failure is left in place.
        int reconnect = native_window_api_connect(ts.surface.get(), NATIVE_WINDOW_API_CAMERA);
        EXPECT_EQ(reconnect, i == 0 ? 0 : -22);
    }
}

TEST_F(SurfaceConnectionTest, DisconnectOutcomes) {
    setLogLevel("V");
    // No Surface: nothing to do.
    EXPECT_EQ(util()->nativeDisconnectSurface(env, nullptr), 0);
    EXPECT_EQ(logTexts(kSurfaceTag, ANDROID_LOG_VERBOSE),
              std::vector<std::string>{"nativeDisconnectSurface"});

    // Connected: disconnects, so a new connection is possible.
    TestSurface ts = makeTestSurface(env);
    ASSERT_EQ(util()->nativeConnectSurface(env, ts.javaSurface), 0);
    EXPECT_EQ(util()->nativeDisconnectSurface(env, ts.javaSurface), 0);
    EXPECT_EQ(native_window_api_connect(ts.surface.get(), NATIVE_WINDOW_API_CAMERA), 0);
    ASSERT_EQ(native_window_api_disconnect(ts.surface.get(), NATIVE_WINDOW_API_CAMERA), 0);

    // Not connected: the queue refuses, Java gets UnsupportedOperationException, nothing logged.
    host::clearCapturedLogs();
    int err = util()->nativeDisconnectSurface(env, ts.javaSurface);
    EXPECT_LT(err, 0);
    expectPendingException(env, "java.lang.UnsupportedOperationException",
                           "Error while disconnecting surface");
    EXPECT_TRUE(logTexts(kSurfaceTag, ANDROID_LOG_ERROR).empty());

    // The glue's exception stays pending and the queue counts as abandoned.
    host::clearCapturedLogs();
    host::injectFault("jni.android_view_Surface_getNativeWindow", -1);
    EXPECT_EQ(util()->nativeDisconnectSurface(env, ts.javaSurface), 0);
    expectPendingException(env, "java.lang.IllegalStateException", "injected fault");
    EXPECT_TRUE(
            logged(kSurfaceTag, ANDROID_LOG_VERBOSE, "Buffer queue has already been abandoned."));

    // Released Surface: IllegalArgumentException pending, 0 returned.
    ts.releaseJavaSurface();
    EXPECT_EQ(util()->nativeDisconnectSurface(env, ts.javaSurface), 0);
    expectPendingException(env, "java.lang.IllegalArgumentException",
                           "Surface had no valid native window.");
}

TEST_F(SurfaceConnectionTest, PrivateSurfaceFeedsTheSameConsumer) {
    TestSurface ts = makeTestSurface(env);
    jobject privateSurface = util()->nativeCreatePrivateSurface(env, ts.javaSurface);
    ASSERT_NE(privateSurface, nullptr);
    EXPECT_FALSE(env->IsSameObject(privateSurface, ts.javaSurface));

    ASSERT_EQ(util()->nativeConnectSurface(env, privateSurface), 0);
    // Its own Surface in front of the original's consumer; reset() releases the Java Surface.
    TestSurface viaPrivate;
    viaPrivate.javaSurface = env->NewGlobalRef(privateSurface);
    viaPrivate.surface = android::android_view_Surface_getSurface(env, privateSurface);
    viaPrivate.consumer = ts.consumer;
    ASSERT_NE(viaPrivate.surface, nullptr);
    EXPECT_NE(viaPrivate.surface, ts.surface);
    EXPECT_TRUE(cycleOneFrame(viaPrivate).has_value());
    native_window_api_disconnect(viaPrivate.surface.get(), NATIVE_WINDOW_API_CAMERA);
    viaPrivate.reset();

    EXPECT_EQ(util()->nativeCreatePrivateSurface(env, nullptr), nullptr);
    expectPendingException(env, "java.lang.NullPointerException", "surface");
    ts.releaseJavaSurface();
    EXPECT_EQ(util()->nativeCreatePrivateSurface(env, ts.javaSurface), nullptr);
    expectPendingException(env, "java.lang.IllegalArgumentException",
                           "Surface had no valid native Surface.");
}

}  // namespace
}  // namespace nuvra::test
