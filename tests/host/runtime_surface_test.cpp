// The Surface JNI glue of libandroid_runtime through the real JVM.

#include <android_runtime/android_view_Surface.h>
#include <gui/BufferItem.h>
#include <hostcontrol/FaultInjection.h>
#include <testsupport/JniTest.h>
#include <testsupport/TestSurface.h>

namespace {

using android::BufferItem;
using android::OK;
using android::sp;
using android::Surface;
using android::wp;
using nuvra::test::JavaException;
using nuvra::test::JniTest;
using nuvra::test::makeTestSurface;
using nuvra::test::takePendingException;
using nuvra::test::TestSurface;

class SurfaceGlueTest : public JniTest {
protected:
    jobject newEmptyJavaSurface() {
        jclass clazz = env->FindClass("android/view/Surface");
        jmethodID ctor = env->GetMethodID(clazz, "<init>", "()V");
        jobject surface = env->NewObject(clazz, ctor);
        env->DeleteLocalRef(clazz);
        return surface;
    }

    void expectNoPendingException() {
        std::optional<JavaException> pending = takePendingException(env);
        EXPECT_FALSE(pending) << describe(*pending);
    }
};

TEST_F(SurfaceGlueTest, ALiveSurfaceYieldsItsNativeSurfaceAndWindowUntilReleased) {
    TestSurface ts = makeTestSurface(env);
    ASSERT_NE(ts.javaSurface, nullptr);

    sp<Surface> surface = android::android_view_Surface_getSurface(env, ts.javaSurface);
    expectNoPendingException();
    ASSERT_NE(surface, nullptr);
    EXPECT_EQ(surface->getIGraphicBufferProducer(), ts.producer);

    sp<ANativeWindow> window = android::android_view_Surface_getNativeWindow(env, ts.javaSurface);
    expectNoPendingException();
    EXPECT_EQ(window.get(), static_cast<ANativeWindow*>(surface.get()));

    EXPECT_TRUE(nuvra::test::isValidJavaSurface(env, ts.javaSurface));
    EXPECT_TRUE(android::android_view_Surface_isInstanceOf(env, ts.javaSurface));
    jstring notASurface = env->NewStringUTF("surface");
    EXPECT_FALSE(android::android_view_Surface_isInstanceOf(env, notASurface));

    // The Java object owns a strong reference until released.
    wp<Surface> weak = ts.surface;
    ts.surface.clear();
    surface.clear();
    window.clear();
    EXPECT_NE(weak.promote(), nullptr);
    ts.releaseJavaSurface();
    EXPECT_EQ(weak.promote(), nullptr);
    EXPECT_FALSE(nuvra::test::isValidJavaSurface(env, ts.javaSurface));
    ts.releaseJavaSurface();  // a second release does nothing
}

// A released Java Surface and one never attached both answer null, without an exception.
TEST_F(SurfaceGlueTest, ASurfaceWithoutNativeObjectYieldsNullWithoutException) {
    TestSurface ts = makeTestSurface(env);
    ts.releaseJavaSurface();
    for (jobject surface : {ts.javaSurface, newEmptyJavaSurface()}) {
        ASSERT_NE(surface, nullptr);
        EXPECT_EQ(android::android_view_Surface_getSurface(env, surface), nullptr);
        EXPECT_EQ(android::android_view_Surface_getNativeWindow(env, surface), nullptr);
        expectNoPendingException();
        EXPECT_FALSE(nuvra::test::isValidJavaSurface(env, surface));
    }
}

TEST_F(SurfaceGlueTest, ANullSurfaceObjectAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(android::android_view_Surface_getSurface(env, nullptr), "null Surface object");
    EXPECT_DEATH(android::android_view_Surface_getNativeWindow(env, nullptr),
                 "null Surface object");
}

TEST_F(SurfaceGlueTest, AnArmedFaultThrowsFromTheGlue) {
    TestSurface ts = makeTestSurface(env);
    host::clearRecordedCalls();

    host::injectFault("jni.android_view_Surface_getSurface", -1);
    EXPECT_EQ(android::android_view_Surface_getSurface(env, ts.javaSurface), nullptr);
    std::optional<JavaException> thrown = takePendingException(env);
    ASSERT_TRUE(thrown);
    EXPECT_EQ(describe(*thrown), "java.lang.IllegalStateException: injected fault");
    host::injectFault("jni.android_view_Surface_getNativeWindow", -1);
    EXPECT_EQ(android::android_view_Surface_getNativeWindow(env, ts.javaSurface), nullptr);
    thrown = takePendingException(env);
    ASSERT_TRUE(thrown);
    EXPECT_EQ(describe(*thrown), "java.lang.IllegalStateException: injected fault");
    // Each getter records its own point only, once per call.
    EXPECT_EQ(host::recordedCalls(),
              (std::vector<std::string>{"jni.android_view_Surface_getSurface",
                                        "jni.android_view_Surface_getNativeWindow"}));
    // The faults were armed once: the glue works again.
    EXPECT_NE(android::android_view_Surface_getNativeWindow(env, ts.javaSurface), nullptr);
    expectNoPendingException();
}

TEST_F(SurfaceGlueTest, ANullProducerYieldsNullWithoutTouchingTheVm) {
    // A null JNIEnv proves that the VM is not used at all.
    EXPECT_EQ(android::android_view_Surface_createFromIGraphicBufferProducer(nullptr, nullptr),
              nullptr);
    EXPECT_EQ(android::android_view_Surface_createFromIGraphicBufferProducer(env, nullptr),
              nullptr);
    expectNoPendingException();
}

TEST_F(SurfaceGlueTest, ASurfaceMadeFromAProducerFeedsTheSameQueue) {
    TestSurface ts = makeTestSurface(env);
    jobject second =
            android::android_view_Surface_createFromIGraphicBufferProducer(env, ts.producer);
    ASSERT_NE(second, nullptr);
    EXPECT_FALSE(env->IsSameObject(second, ts.javaSurface));
    sp<Surface> secondSurface = android::android_view_Surface_getSurface(env, second);
    ASSERT_NE(secondSurface, nullptr);
    EXPECT_NE(secondSurface, ts.surface);
    EXPECT_EQ(secondSurface->getIGraphicBufferProducer(), ts.producer);

    // A frame produced through the second Surface reaches the first one's consumer (what it
    // carries through a Surface is SurfaceTest's concern).
    ANativeWindow* window = secondSurface.get();
    ASSERT_EQ(native_window_api_connect(window, NATIVE_WINDOW_API_CPU), OK);
    ASSERT_EQ(native_window_set_buffers_timestamp(window, 123456789), OK);
    ANativeWindowBuffer* buffer = nullptr;
    ASSERT_EQ(native_window_dequeue_buffer_and_wait(window, &buffer), OK);
    ASSERT_EQ(window->queueBuffer(window, buffer, -1), OK);
    BufferItem item;
    ASSERT_EQ(ts.consumer->acquireBuffer(&item, 0), OK);
    EXPECT_EQ(item.mTimestamp, 123456789);
    EXPECT_EQ(ts.consumer->releaseBuffer(item), OK);
    EXPECT_EQ(native_window_api_disconnect(window, NATIVE_WINDOW_API_CPU), OK);

    // Releasing the second Java Surface leaves the first one working.
    jclass clazz = env->GetObjectClass(second);
    env->CallVoidMethod(second, env->GetMethodID(clazz, "release", "()V"));
    expectNoPendingException();
    secondSurface.clear();
    EXPECT_TRUE(nuvra::test::isValidJavaSurface(env, ts.javaSurface));
}

TEST_F(SurfaceGlueTest, AnUnreleasedJavaSurfaceDropsItsNativeSurfaceWhenCollected) {
    wp<Surface> weak;
    {
        TestSurface ts = makeTestSurface(env);
        weak = ts.surface;
        ts.surface.clear();
        // Forget the Java object without releasing it, as an app that leaks a Surface does.
        env->DeleteGlobalRef(ts.javaSurface);
        ts.javaSurface = nullptr;
    }
    jclass system = env->FindClass("java/lang/System");
    jmethodID gc = env->GetStaticMethodID(system, "gc", "()V");
    jmethodID runFinalization = env->GetStaticMethodID(system, "runFinalization", "()V");
    for (int attempt = 0; attempt < 20 && weak.promote() != nullptr; ++attempt) {
        env->CallStaticVoidMethod(system, gc);
        expectNoPendingException();
        env->CallStaticVoidMethod(system, runFinalization);
        expectNoPendingException();
    }
    EXPECT_EQ(weak.promote(), nullptr) << "the finalizer did not release the native Surface";
}

}  // namespace
