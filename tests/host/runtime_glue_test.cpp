// The JNI glue of libandroid_runtime through the real JVM: android.view.Surface and
// android.hardware.HardwareBuffer.

#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <android_runtime/android_view_Surface.h>
#include <hardware/gralloc_qcom.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostcontrol/FaultInjection.h>
#include <testsupport/JniTest.h>
#include <testsupport/TestSurface.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

namespace {

using namespace android;
using nuvra::test::JavaException;
using nuvra::test::JniTest;
using nuvra::test::makeTestSurface;
using nuvra::test::takePendingException;
using nuvra::test::TestSurface;

constexpr jlong kCpuUsage =
        AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN | AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN;

// Takes the pending exception, which must read `expected` ("" when none may be pending).
void expectPending(JNIEnv* env, const std::string& expected) {
    std::optional<JavaException> pending = takePendingException(env);
    EXPECT_EQ(pending ? describe(*pending) : "", expected);
}

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
        ASSERT_NE(clazz, nullptr);
        create =
                env->GetStaticMethodID(clazz, "create", "(IIIIJ)Landroid/hardware/HardwareBuffer;");
        ASSERT_NE(create, nullptr);
    }

    jobject newBuffer(jint width, jint height, jint format) {
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
    jmethodID create = nullptr;
};

// The Java object holds a buffer of the size, format, usage and stride that the gralloc gives
// the format on the profile, and its getters read that buffer (Java buffers of every NV21,
// flexible and Venus format on both profiles are YuvProducerTest's targets). close() drops the
// native buffer at once: the lookup then yields null, the getters throw, and a second close()
// does nothing. A reference taken before close() keeps the buffer alive.
TEST_F(HardwareBufferTest, CreatesOnTheProfileAndCloseDropsTheNativeBuffer) {
    ASSERT_TRUE(host::selectDeviceProfile("phone-qcom"));
    jobject buffer = newBuffer(1000, 750, HAL_PIXEL_FORMAT_YCBCR_P010);
    ASSERT_NE(buffer, nullptr);
    EXPECT_FALSE(call(buffer, "isClosed", "()Z"));
    AHardwareBuffer* native = android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, buffer);
    ASSERT_NE(native, nullptr);
    AHardwareBuffer_Desc desc{};
    AHardwareBuffer_describe(native, &desc);
    EXPECT_EQ(desc.width, 1000u);
    EXPECT_EQ(desc.height, 750u);
    EXPECT_EQ(desc.format, static_cast<uint32_t>(HAL_PIXEL_FORMAT_YCBCR_P010));
    EXPECT_EQ(desc.stride, 1024u);  // padded on this profile
    EXPECT_EQ(desc.usage, static_cast<uint64_t>(kCpuUsage));
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

// A Java object made around an existing buffer owns a reference of its own; an object never
// closed drops its reference once collected.
TEST_F(HardwareBufferTest, WrapsExistingBuffersAndReleasesThemWhenCollected) {
    AHardwareBuffer_Desc desc{
            32, 16, 1, AHARDWAREBUFFER_FORMAT_R8G8B8A8_UNORM, static_cast<uint64_t>(kCpuUsage),
            0,  0,  0};
    AHardwareBuffer* native = nullptr;
    ASSERT_EQ(AHardwareBuffer_allocate(&desc, &native), 0);
    wp<GraphicBuffer> weak = GraphicBuffer::fromAHardwareBuffer(native);
    jobject wrapped = android_hardware_HardwareBuffer_createFromAHardwareBuffer(env, native);
    ASSERT_NE(wrapped, nullptr);
    EXPECT_EQ(android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, wrapped), native);
    AHardwareBuffer_release(native);
    EXPECT_NE(weak.promote(), nullptr);

    env->DeleteLocalRef(wrapped);
    collectUntilDropped(env, weak);
    EXPECT_EQ(weak.promote(), nullptr);
}

class SurfaceGlueTest : public JniTest {
protected:
    jobject newEmptyJavaSurface() {
        jclass clazz = env->FindClass("android/view/Surface");
        jmethodID ctor = env->GetMethodID(clazz, "<init>", "()V");
        jobject surface = env->NewObject(clazz, ctor);
        env->DeleteLocalRef(clazz);
        return surface;
    }
};

TEST_F(SurfaceGlueTest, ALiveSurfaceYieldsItsNativeSurfaceAndWindowUntilReleased) {
    TestSurface ts = makeTestSurface(env);
    ASSERT_NE(ts.javaSurface, nullptr);

    sp<Surface> surface = android_view_Surface_getSurface(env, ts.javaSurface);
    expectPending(env, "");
    ASSERT_NE(surface, nullptr);
    EXPECT_EQ(surface->getIGraphicBufferProducer(), ts.producer);

    sp<ANativeWindow> window = android_view_Surface_getNativeWindow(env, ts.javaSurface);
    expectPending(env, "");
    EXPECT_EQ(window.get(), static_cast<ANativeWindow*>(surface.get()));

    EXPECT_TRUE(nuvra::test::isValidJavaSurface(env, ts.javaSurface));
    EXPECT_TRUE(android_view_Surface_isInstanceOf(env, ts.javaSurface));
    jstring notASurface = env->NewStringUTF("surface");
    EXPECT_FALSE(android_view_Surface_isInstanceOf(env, notASurface));

    // The Java object owns a strong reference until released.
    wp<Surface> weak = ts.surface;
    ts.surface.clear();
    surface.clear();
    window.clear();
    EXPECT_NE(weak.promote(), nullptr);
    ts.releaseJavaSurface();
    EXPECT_EQ(weak.promote(), nullptr);
    ts.releaseJavaSurface();  // a second release does nothing

    // The released Java Surface and one never attached both answer null, without an exception.
    for (jobject empty : {ts.javaSurface, newEmptyJavaSurface()}) {
        ASSERT_NE(empty, nullptr);
        EXPECT_EQ(android_view_Surface_getSurface(env, empty), nullptr);
        EXPECT_EQ(android_view_Surface_getNativeWindow(env, empty), nullptr);
        expectPending(env, "");
        EXPECT_FALSE(nuvra::test::isValidJavaSurface(env, empty));
    }
}

TEST_F(SurfaceGlueTest, ANullSurfaceObjectAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(android_view_Surface_getSurface(env, nullptr), "null Surface object");
    EXPECT_DEATH(android_view_Surface_getNativeWindow(env, nullptr), "null Surface object");
}

TEST_F(SurfaceGlueTest, AnArmedFaultThrowsFromTheGlue) {
    TestSurface ts = makeTestSurface(env);
    host::clearRecordedCalls();
    host::injectFault("jni.android_view_Surface_getSurface", -1);
    host::injectFault("jni.android_view_Surface_getNativeWindow", -1);
    EXPECT_EQ(android_view_Surface_getSurface(env, ts.javaSurface), nullptr);
    expectPending(env, "java.lang.IllegalStateException: injected fault");
    EXPECT_EQ(android_view_Surface_getNativeWindow(env, ts.javaSurface), nullptr);
    expectPending(env, "java.lang.IllegalStateException: injected fault");
    // Each getter records its own point only, once per call.
    EXPECT_EQ(host::recordedCalls(),
              (std::vector<std::string>{"jni.android_view_Surface_getSurface",
                                        "jni.android_view_Surface_getNativeWindow"}));
    // The faults were armed once: the glue works again.
    EXPECT_NE(android_view_Surface_getNativeWindow(env, ts.javaSurface), nullptr);
    expectPending(env, "");
}

// A Surface over the same producer feeds the same queue; what frames carry through it is
// SurfaceTest's concern.
TEST_F(SurfaceGlueTest, ASurfaceMadeFromAProducerFeedsTheSameQueue) {
    // No producer, no Surface; the null JNIEnv proves that the VM is not used at all.
    EXPECT_EQ(android_view_Surface_createFromIGraphicBufferProducer(nullptr, nullptr), nullptr);
    EXPECT_EQ(android_view_Surface_createFromIGraphicBufferProducer(env, nullptr), nullptr);
    expectPending(env, "");

    TestSurface ts = makeTestSurface(env);
    jobject second = android_view_Surface_createFromIGraphicBufferProducer(env, ts.producer);
    ASSERT_NE(second, nullptr);
    EXPECT_FALSE(env->IsSameObject(second, ts.javaSurface));
    sp<Surface> secondSurface = android_view_Surface_getSurface(env, second);
    ASSERT_NE(secondSurface, nullptr);
    EXPECT_NE(secondSurface, ts.surface);
    EXPECT_EQ(secondSurface->getIGraphicBufferProducer(), ts.producer);

    // Releasing the second Java Surface leaves the first one working.
    jclass clazz = env->GetObjectClass(second);
    env->CallVoidMethod(second, env->GetMethodID(clazz, "release", "()V"));
    expectPending(env, "");
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
    collectUntilDropped(env, weak);
    EXPECT_EQ(weak.promote(), nullptr) << "the finalizer did not release the native Surface";
}

}  // namespace
