// The in-process JVM (which VM runs, how it was started, threads, the -Xcheck:jni detector) and
// the JNI glue of libandroid_runtime through it: android.view.Surface and
// android.hardware.HardwareBuffer. An exception the glue leaves pending fails the test without a
// check of its own: -Xcheck:jni reports the next JNI call, and the fixture the test's end.

#include <android_runtime/AndroidRuntime.h>
#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <android_runtime/android_view_Surface.h>
#include <hardware/gralloc_qcom.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>
#include <hostjvm/Jvm.h>
#include <testsupport/JniTest.h>
#include <testsupport/TestSurface.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

#include <cstdio>
#include <thread>
#include <tuple>

namespace {

using namespace android;
using nuvra::test::expectPending;
using nuvra::test::JniTest;
using nuvra::test::makeTestSurface;
using nuvra::test::TestSurface;
using nuvra::test::toStdString;

std::string systemProperty(JNIEnv* env, const char* name) {
    jclass system = env->FindClass("java/lang/System");
    jmethodID getProperty =
            env->GetStaticMethodID(system, "getProperty", "(Ljava/lang/String;)Ljava/lang/String;");
    jstring key = env->NewStringUTF(name);
    auto value = static_cast<jstring>(env->CallStaticObjectMethod(system, getProperty, key));
    EXPECT_FALSE(env->ExceptionCheck());
    return toStdString(env, value).value_or("<null>");  // the test's local frame frees the refs
}

class JvmHarnessTest : public JniTest {};

// -Xcheck:jni among the VM's options shows in the self-check's report below, the platform's
// natives registered in the glue tests' calls (Surface.isValid(), the HardwareBuffer getters).
TEST_F(JvmHarnessTest, RunsOneOpenJdk17WithThePlatformJarAndAnEnvPerThread) {
    std::string version = systemProperty(env, "java.version");
    EXPECT_TRUE(version == "17" || version.rfind("17.", 0) == 0) << version;
    EXPECT_EQ(systemProperty(env, "java.class.path").rfind(host::platformJarPath(), 0), 0u);
    EXPECT_EQ(systemProperty(env, "java.library.path"), host::platformLibraryPath());

    // One VM for the process, an env per thread.
    JavaVM* vm = host::javaVm();
    ASSERT_NE(vm, nullptr);
    EXPECT_EQ(host::startJvm(), env);  // started already: the same thread's env
    EXPECT_EQ(android::AndroidRuntime::getJavaVM(), vm);
    EXPECT_EQ(android::AndroidRuntime::getJNIEnv(), env);

    std::thread([&] {
        EXPECT_EQ(android::AndroidRuntime::getJNIEnv(), nullptr);  // not attached yet
        JNIEnv* threadEnv = host::jniEnv();
        ASSERT_NE(threadEnv, nullptr);
        EXPECT_NE(threadEnv, env);
        EXPECT_EQ(host::jniEnv(), threadEnv);  // attached once
        // An attached native thread sees the application class path.
        jclass found = threadEnv->FindClass("android/view/Surface");
        EXPECT_NE(found, nullptr);
        threadEnv->DeleteLocalRef(found);
    }).join();
}

// Tests that must fail, disabled: the self-check below runs them in a child process.
TEST_F(JvmHarnessTest, DISABLED_FailsOnJvmReport) {
    jclass string = env->FindClass("java/lang/String");
    jmethodID length = env->GetMethodID(string, "length", "()I");
    jstring text = env->NewStringUTF("abc");
    env->CallIntMethod(text, length);
    env->DeleteLocalRef(env->GetObjectClass(text));  // unchecked exception: reported
}

TEST_F(JvmHarnessTest, DISABLED_FailsOnPendingException) {
    env->ThrowNew(env->FindClass("java/lang/IllegalStateException"), "left behind");
}

TEST_F(JvmHarnessTest, DISABLED_FailsOnPendingExceptionWithoutMessage) {
    env->ThrowNew(env->FindClass("java/lang/NullPointerException"), nullptr);
}

TEST(JvmHarnessSelfCheck, TheDetectorsFailTheTestsThatMisuseJni) {
    std::string command = "/proc/" + std::to_string(getpid()) +
                          "/exe --gtest_also_run_disabled_tests --gtest_color=no"
                          " --gtest_filter='JvmHarnessTest.DISABLED_FailsOn*' 2>&1";
    FILE* child = popen(command.c_str(), "r");
    ASSERT_NE(child, nullptr);
    std::string output;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof(buffer), child)) > 0;) output.append(buffer, n);
    int status = pclose(child);
    EXPECT_NE(status, 0) << output;
    for (const char* expected : {
                 "[  FAILED  ] JvmHarnessTest.DISABLED_FailsOnJvmReport",
                 "the JVM printed during the test",
                 "WARNING in native method: JNI call made without checking exceptions",
                 "[  FAILED  ] JvmHarnessTest.DISABLED_FailsOnPendingException",
                 "pending Java exception: java.lang.IllegalStateException: left behind",
                 // Taken with its class, and its message when it has one.
                 "pending Java exception: java.lang.NullPointerException\n",
         }) {
        EXPECT_NE(output.find(expected), std::string::npos) << expected << " in:\n" << output;
    }
}

constexpr jlong kCpuUsage =
        AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN | AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN;

// Runs the collector and the finalizers until `weak` no longer promotes, or gives up.
template <typename T>
void collectUntilDropped(JNIEnv* env, const wp<T>& weak) {
    jclass system = env->FindClass("java/lang/System");
    jmethodID gc = env->GetStaticMethodID(system, "gc", "()V");
    jmethodID runFinalization = env->GetStaticMethodID(system, "runFinalization", "()V");
    for (int attempt = 0; attempt < 50 && weak.promote() != nullptr; ++attempt) {
        env->CallStaticVoidMethod(system, gc);
        expectPending(env, "");
        env->CallStaticVoidMethod(system, runFinalization);
        expectPending(env, "");
        usleep(20000);
    }
}

class HardwareBufferTest : public JniTest {
protected:
    void SetUp() override {
        JniTest::SetUp();
        clazz = env->FindClass("android/hardware/HardwareBuffer");
    }

    jobject newBuffer(jint width, jint height, jint format) {
        jmethodID create =
                env->GetStaticMethodID(clazz, "create", "(IIIIJ)Landroid/hardware/HardwareBuffer;");
        jobject buffer =
                env->CallStaticObjectMethod(clazz, create, width, height, format, 1, kCpuUsage);
        env->ExceptionCheck();  // a throw stays pending for the test to take
        return buffer;
    }

    // Calls a method without arguments; a boolean or int result comes back as a jint.
    jint call(jobject buffer, const char* name, const char* signature) {
        jmethodID method = env->GetMethodID(clazz, name, signature);
        jint result = 0;
        if (signature[2] == 'Z') result = env->CallBooleanMethod(buffer, method);
        if (signature[2] == 'I') result = env->CallIntMethod(buffer, method);
        if (signature[2] == 'V') env->CallVoidMethod(buffer, method);
        env->ExceptionCheck();
        return result;
    }

    jclass clazz = nullptr;
};

// The buffer as the profile's gralloc makes it, read by the getters (every NV21, flexible and
// Venus format on both profiles: YuvProducerTest's targets). close() drops the native buffer at
// once (a reference taken before keeps it): the lookup yields null, the getters throw, a second
// close() does nothing.
TEST_F(HardwareBufferTest, CreatesOnTheProfileAndCloseDropsTheNativeBuffer) {
    ASSERT_TRUE(host::selectDeviceProfile("phone-qcom"));
    jobject buffer = newBuffer(1000, 750, HAL_PIXEL_FORMAT_YCBCR_P010);
    ASSERT_NE(buffer, nullptr);
    EXPECT_FALSE(call(buffer, "isClosed", "()Z"));
    AHardwareBuffer* native = android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, buffer);
    ASSERT_NE(native, nullptr);
    AHardwareBuffer_Desc desc{};
    AHardwareBuffer_describe(native, &desc);
    // The stride padded on this profile.
    EXPECT_EQ(std::make_tuple(desc.width, desc.height, desc.format, desc.stride, desc.usage),
              std::make_tuple(1000u, 750u, uint32_t{HAL_PIXEL_FORMAT_YCBCR_P010}, 1024u,
                              uint64_t{kCpuUsage}));
    EXPECT_EQ(call(buffer, "getFormat", "()I"), HAL_PIXEL_FORMAT_YCBCR_P010);
    EXPECT_EQ(call(buffer, "getWidth", "()I"), 1000);

    wp<GraphicBuffer> weak = GraphicBuffer::fromAHardwareBuffer(native);
    AHardwareBuffer_acquire(native);
    call(buffer, "close", "()V");
    EXPECT_TRUE(call(buffer, "isClosed", "()Z"));
    EXPECT_EQ(android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, buffer), nullptr);
    EXPECT_NE(weak.promote(), nullptr);
    AHardwareBuffer_release(native);
    EXPECT_EQ(weak.promote(), nullptr);

    call(buffer, "close", "()V");
    call(buffer, "getWidth", "()I");
    expectPending(env,
                  "java.lang.IllegalStateException: This HardwareBuffer has been closed and its "
                  "width cannot be obtained.");
    jstring notABuffer = env->NewStringUTF("buffer");
    EXPECT_EQ(android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, notABuffer), nullptr);
}

TEST_F(HardwareBufferTest, CreateRefusesWhatTheAllocatorCannotMake) {
    const struct {
        jint width, height, format;
        const char* message;
    } cases[] = {
            {0, 48, HAL_PIXEL_FORMAT_RGBA_8888, "Invalid width 0"},
            {64, -1, HAL_PIXEL_FORMAT_RGBA_8888, "Invalid height -1"},
            {64, 2, HAL_PIXEL_FORMAT_BLOB, "Height must be 1 when using the BLOB format"},
            {64, 48, 0x7777,
             "Unable to create a HardwareBuffer of size 64x48 in format 30583 with layers 1 and "
             "usage 51"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(newBuffer(c.width, c.height, c.format), nullptr);
        expectPending(env, std::string("java.lang.IllegalArgumentException: ") + c.message);
    }
}

// A Java HardwareBuffer made around an existing buffer owns a reference of its own; it and a
// Java Surface that an app leaks, never closed or released, drop their native object once
// collected.
TEST_F(HardwareBufferTest, ObjectsNeverClosedDropTheirNativeObjectWhenCollected) {
    AHardwareBuffer_Desc desc{32, 16, 1, AHARDWAREBUFFER_FORMAT_R8G8B8A8_UNORM, uint64_t{kCpuUsage},
                              0,  0,  0};
    AHardwareBuffer* native = nullptr;
    ASSERT_EQ(AHardwareBuffer_allocate(&desc, &native), 0);
    wp<GraphicBuffer> weakBuffer = GraphicBuffer::fromAHardwareBuffer(native);
    jobject wrapped = android_hardware_HardwareBuffer_createFromAHardwareBuffer(env, native);
    ASSERT_NE(wrapped, nullptr);
    EXPECT_EQ(android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, wrapped), native);
    AHardwareBuffer_release(native);
    EXPECT_NE(weakBuffer.promote(), nullptr);
    env->DeleteLocalRef(wrapped);

    wp<Surface> weakSurface;
    {
        TestSurface ts = makeTestSurface(env);
        weakSurface = ts.surface;
        ts.surface.clear();
        env->DeleteGlobalRef(ts.javaSurface);  // forgotten without Surface.release()
        ts.javaSurface = nullptr;
    }
    collectUntilDropped(env, weakBuffer);
    collectUntilDropped(env, weakSurface);
    EXPECT_EQ(weakBuffer.promote(), nullptr);
    EXPECT_EQ(weakSurface.promote(), nullptr);
}

class SurfaceGlueTest : public JniTest {};

// A live Java Surface yields its native Surface and window (each getter with a fault point of its
// own) and owns a strong reference on the Surface until released. A second one on the same
// producer is a Surface of its own; releasing it leaves the first one working.
TEST_F(SurfaceGlueTest, ALiveSurfaceYieldsItsNativeSurfaceAndWindowUntilReleased) {
    // No producer, no Surface; the null JNIEnv proves that the VM is not used at all.
    EXPECT_EQ(android_view_Surface_createFromIGraphicBufferProducer(nullptr, nullptr), nullptr);
    EXPECT_EQ(android_view_Surface_createFromIGraphicBufferProducer(env, nullptr), nullptr);
    TestSurface ts = makeTestSurface(env);
    ASSERT_NE(ts.javaSurface, nullptr);
    sp<Surface> surface = android_view_Surface_getSurface(env, ts.javaSurface);
    ASSERT_NE(surface, nullptr);
    EXPECT_EQ(surface->getIGraphicBufferProducer(), ts.producer);
    sp<ANativeWindow> window = android_view_Surface_getNativeWindow(env, ts.javaSurface);
    EXPECT_EQ(window.get(), static_cast<ANativeWindow*>(surface.get()));
    EXPECT_TRUE(nuvra::test::isValidJavaSurface(env, ts.javaSurface));
    EXPECT_TRUE(android_view_Surface_isInstanceOf(env, ts.javaSurface));
    jstring notASurface = env->NewStringUTF("surface");
    EXPECT_FALSE(android_view_Surface_isInstanceOf(env, notASurface));

    host::clearRecordedCalls();
    host::injectFault("jni.android_view_Surface_getSurface", -1);
    host::injectFault("jni.android_view_Surface_getNativeWindow", -1);
    EXPECT_EQ(android_view_Surface_getSurface(env, ts.javaSurface), nullptr);
    expectPending(env, "java.lang.IllegalStateException: injected fault");
    EXPECT_EQ(android_view_Surface_getNativeWindow(env, ts.javaSurface), nullptr);
    expectPending(env, "java.lang.IllegalStateException: injected fault");
    // Each getter records its own point only, once per call; the faults were armed once.
    EXPECT_EQ(host::recordedCalls(),
              (std::vector<std::string>{"jni.android_view_Surface_getSurface",
                                        "jni.android_view_Surface_getNativeWindow"}));
    EXPECT_NE(android_view_Surface_getNativeWindow(env, ts.javaSurface), nullptr);

    jobject second = android_view_Surface_createFromIGraphicBufferProducer(env, ts.producer);
    ASSERT_NE(second, nullptr);
    sp<Surface> secondSurface = android_view_Surface_getSurface(env, second);
    ASSERT_NE(secondSurface, nullptr);
    EXPECT_NE(secondSurface, ts.surface);
    EXPECT_EQ(secondSurface->getIGraphicBufferProducer(), ts.producer);
    jclass clazz = env->GetObjectClass(second);
    env->CallVoidMethod(second, env->GetMethodID(clazz, "release", "()V"));
    expectPending(env, "");
    secondSurface.clear();
    EXPECT_TRUE(nuvra::test::isValidJavaSurface(env, ts.javaSurface));

    // The Java object owns a strong reference until released.
    wp<Surface> weak = ts.surface;
    ts.surface.clear();
    surface.clear();
    window.clear();
    EXPECT_NE(weak.promote(), nullptr);
    ts.releaseJavaSurface();
    EXPECT_EQ(weak.promote(), nullptr);
    ts.releaseJavaSurface();  // a second release does nothing

    // The released Java Surface answers null without an exception, as one never attached does
    // (which JniSupportTest.SurfaceLookupsThrowWhenThereIsNoNativeObject sees through the library).
    EXPECT_EQ(android_view_Surface_getSurface(env, ts.javaSurface), nullptr);
    EXPECT_EQ(android_view_Surface_getNativeWindow(env, ts.javaSurface), nullptr);
    EXPECT_FALSE(nuvra::test::isValidJavaSurface(env, ts.javaSurface));
}

TEST_F(SurfaceGlueTest, ANullSurfaceObjectAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(android_view_Surface_getSurface(env, nullptr), "null Surface object");
    EXPECT_DEATH(android_view_Surface_getNativeWindow(env, nullptr), "null Surface object");
}

}  // namespace
