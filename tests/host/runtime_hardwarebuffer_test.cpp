// android.hardware.HardwareBuffer and its native glue through the real JVM.

#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <hardware/gralloc_qcom.h>
#include <hostcontrol/DeviceProfile.h>
#include <testsupport/JniTest.h>
#include <ui/GraphicBuffer.h>

namespace {

using android::GraphicBuffer;
using android::sp;
using android::wp;
using nuvra::test::JavaException;
using nuvra::test::JniTest;
using nuvra::test::takePendingException;

constexpr jlong kCpuUsage =
        AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN | AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN;

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

    jobject newBuffer(jint width, jint height, jint format, jlong usage = kCpuUsage) {
        jobject buffer =
                env->CallStaticObjectMethod(clazz, create, width, height, format, 1, usage);
        env->ExceptionCheck();  // a throw stays pending for the test to take
        return buffer;
    }

    void call(jobject buffer, const char* name, const char* signature) {
        jmethodID method = env->GetMethodID(clazz, name, signature);
        if (signature[2] == 'Z') {
            lastBoolean = env->CallBooleanMethod(buffer, method);
        } else if (signature[2] == 'I') {
            lastInt = env->CallIntMethod(buffer, method);
        } else {
            env->CallVoidMethod(buffer, method);
        }
        env->ExceptionCheck();
    }

    bool isClosed(jobject buffer) {
        call(buffer, "isClosed", "()Z");
        return lastBoolean == JNI_TRUE;
    }

    jclass clazz = nullptr;
    jmethodID create = nullptr;
    jboolean lastBoolean = JNI_FALSE;
    jint lastInt = 0;
};

// Every format the producers write, on a packed and a phone profile: the buffer the Java object
// holds has the size, format and (padded) stride the gralloc gives that format, and the Java
// getters read the same buffer.
TEST_F(HardwareBufferTest, CreatesBuffersOfEveryTargetFormatWithTheProfilesStrides) {
    struct Case {
        const char* profile;
        jint format;
        uint32_t stride;
    };
    const Case cases[] = {
            {"packed-nv21", HAL_PIXEL_FORMAT_YCrCb_420_SP, 1000},
            {"packed-nv21", HAL_PIXEL_FORMAT_YCbCr_420_888, 1000},
            {"packed-nv21", PIXEL_FORMAT_YCrCb_420_SP_M, 1000},
            {"packed-nv21", HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS, 1024},
            {"packed-nv21", HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS, 1024},
            {"packed-nv21", HAL_PIXEL_FORMAT_RGBA_8888, 1000},
            {"phone-qcom", HAL_PIXEL_FORMAT_YCrCb_420_SP, 1024},
            {"phone-qcom", HAL_PIXEL_FORMAT_YCbCr_420_888, 1024},
            {"phone-qcom", PIXEL_FORMAT_YCrCb_420_SP_M, 1024},
            {"phone-qcom", HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS, 1024},
            {"phone-qcom", HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS, 1024},
            {"phone-qcom", HAL_PIXEL_FORMAT_YCBCR_P010, 1024},
            {"phone-nv21", HAL_PIXEL_FORMAT_RGBA_8888, 1024},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.profile) + " format " + std::to_string(c.format));
        ASSERT_TRUE(host::selectDeviceProfile(c.profile));
        jobject buffer = newBuffer(1000, 750, c.format);
        ASSERT_NE(buffer, nullptr);
        AHardwareBuffer* native =
                android::android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, buffer);
        ASSERT_NE(native, nullptr);
        AHardwareBuffer_Desc desc{};
        AHardwareBuffer_describe(native, &desc);
        EXPECT_EQ(desc.width, 1000u);
        EXPECT_EQ(desc.height, 750u);
        EXPECT_EQ(desc.format, static_cast<uint32_t>(c.format));
        EXPECT_EQ(desc.stride, c.stride);
        EXPECT_EQ(desc.usage, static_cast<uint64_t>(kCpuUsage));
        call(buffer, "getFormat", "()I");
        EXPECT_EQ(lastInt, c.format);
        call(buffer, "getWidth", "()I");
        EXPECT_EQ(lastInt, 1000);
        // The buffer is CPU-writable as a producer writes it.
        sp<GraphicBuffer> graphicBuffer = GraphicBuffer::fromAHardwareBuffer(native);
        void* pixels = nullptr;
        ASSERT_EQ(graphicBuffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &pixels), android::OK);
        EXPECT_NE(pixels, nullptr);
        EXPECT_EQ(graphicBuffer->unlock(), android::OK);
        call(buffer, "close", "()V");
        env->DeleteLocalRef(buffer);
    }
}

// close() drops the native buffer at once: the lookup then yields null, the getters throw, and
// a second close() does nothing. A reference taken before close() keeps the buffer alive.
TEST_F(HardwareBufferTest, CloseDropsTheNativeBuffer) {
    jobject buffer = newBuffer(64, 48, HAL_PIXEL_FORMAT_YCrCb_420_SP);
    ASSERT_NE(buffer, nullptr);
    EXPECT_FALSE(isClosed(buffer));
    AHardwareBuffer* native =
            android::android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, buffer);
    ASSERT_NE(native, nullptr);
    wp<GraphicBuffer> weak = GraphicBuffer::fromAHardwareBuffer(native);
    AHardwareBuffer_acquire(native);

    call(buffer, "close", "()V");
    EXPECT_TRUE(isClosed(buffer));
    EXPECT_EQ(android::android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, buffer),
              nullptr);
    EXPECT_NE(weak.promote(), nullptr);
    AHardwareBuffer_release(native);
    EXPECT_EQ(weak.promote(), nullptr);

    call(buffer, "close", "()V");
    call(buffer, "getWidth", "()I");
    std::optional<JavaException> thrown = takePendingException(env);
    ASSERT_TRUE(thrown);
    EXPECT_EQ(describe(*thrown),
              "java.lang.IllegalStateException: This HardwareBuffer has been closed and its "
              "width cannot be obtained.");

    jstring notABuffer = env->NewStringUTF("buffer");
    EXPECT_EQ(android::android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, notABuffer),
              nullptr);
}

TEST_F(HardwareBufferTest, CreateRefusesWhatTheAllocatorCannotMake) {
    struct Case {
        jint width, height, format;
        const char* message;
    };
    const Case cases[] = {
            {0, 48, HAL_PIXEL_FORMAT_RGBA_8888, "Invalid width 0"},
            {64, -1, HAL_PIXEL_FORMAT_RGBA_8888, "Invalid height -1"},
            {64, 2, HAL_PIXEL_FORMAT_BLOB, "Height must be 1 when using the BLOB format"},
            {64, 48, 0x7777,
             "Unable to create a HardwareBuffer of size 64x48 in format 30583 with layers 1 and "
             "usage 51"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(newBuffer(c.width, c.height, c.format), nullptr);
        std::optional<JavaException> thrown = takePendingException(env);
        ASSERT_TRUE(thrown);
        EXPECT_EQ(describe(*thrown),
                  std::string("java.lang.IllegalArgumentException: ") + c.message);
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
    jobject wrapped =
            android::android_hardware_HardwareBuffer_createFromAHardwareBuffer(env, native);
    ASSERT_NE(wrapped, nullptr);
    EXPECT_EQ(android::android_hardware_HardwareBuffer_getNativeHardwareBuffer(env, wrapped),
              native);
    AHardwareBuffer_release(native);
    EXPECT_NE(weak.promote(), nullptr);

    env->DeleteLocalRef(wrapped);
    jclass system = env->FindClass("java/lang/System");
    jmethodID gc = env->GetStaticMethodID(system, "gc", "()V");
    for (int attempt = 0; attempt < 50 && weak.promote() != nullptr; ++attempt) {
        env->CallStaticVoidMethod(system, gc);
        ASSERT_FALSE(env->ExceptionCheck());
        usleep(20000);
    }
    EXPECT_EQ(weak.promote(), nullptr);
}

}  // namespace
