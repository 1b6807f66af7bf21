// The JNI side of ImageReader tests: readers, images and their BufferItems.
#pragma once

#include <android_runtime/android_view_Surface.h>
#include <gui/BufferItem.h>
#include <gui/Surface.h>
#include <testsupport/JniTest.h>
#include <ui/GraphicBuffer.h>
#include <ui/HostGrallocLayout.h>

#include <vector>

namespace hosttest {

using android::BufferItem;
using android::GraphicBuffer;
using android::OK;
using android::sp;
using android::Surface;

class ImageReaderTest : public nuvra::test::JniTest {
protected:
    void SetUp() override {
        nuvra::test::JniTest::SetUp();
        readerClass = env->FindClass("android/media/ImageReader");
        imageClass = env->FindClass("android/media/ImageReader$SurfaceImage");
        ASSERT_TRUE(readerClass && imageClass);
        nativeBuffer = env->GetFieldID(imageClass, "mNativeBuffer", "J");
        ASSERT_NE(nativeBuffer, nullptr);
    }

    jobject newReader(jint width, jint height, jint format, jint maxImages) {
        jmethodID newInstance = env->GetStaticMethodID(readerClass, "newInstance",
                                                       "(IIII)Landroid/media/ImageReader;");
        jobject reader = env->CallStaticObjectMethod(readerClass, newInstance, width, height,
                                                     format, maxImages);
        env->ExceptionCheck();  // a throw stays pending for the test to take
        return reader;
    }

    jobject callObject(jobject object, const char* name, const char* signature) {
        jclass clazz = env->GetObjectClass(object);
        jobject result = env->CallObjectMethod(object, env->GetMethodID(clazz, name, signature));
        env->ExceptionCheck();
        env->DeleteLocalRef(clazz);
        return result;
    }

    jint callInt(jobject object, const char* name) {
        jclass clazz = env->GetObjectClass(object);
        jint result = env->CallIntMethod(object, env->GetMethodID(clazz, name, "()I"));
        env->ExceptionCheck();
        env->DeleteLocalRef(clazz);
        return result;
    }

    void close(jobject object) {
        jclass clazz = env->GetObjectClass(object);
        env->CallVoidMethod(object, env->GetMethodID(clazz, "close", "()V"));
        EXPECT_FALSE(env->ExceptionCheck());
        env->DeleteLocalRef(clazz);
    }

    jobject acquireNext(jobject reader) {
        return callObject(reader, "acquireNextImage", "()Landroid/media/Image;");
    }

    BufferItem* itemOf(jobject image) {
        return reinterpret_cast<BufferItem*>(env->GetLongField(image, nativeBuffer));
    }

    // A producer Surface on the reader's queue, connected as the camera service connects one
    // (not controlled by the app, so queued frames wait for the reader instead of replacing
    // each other).
    sp<Surface> producerOf(jobject reader) {
        jobject javaSurface = callObject(reader, "getSurface", "()Landroid/view/Surface;");
        sp<Surface> appSurface = android::android_view_Surface_getSurface(env, javaSurface);
        if (appSurface == nullptr) {
            ADD_FAILURE() << "the reader has no Surface";
            return nullptr;
        }
        sp<Surface> surface(new Surface(appSurface->getIGraphicBufferProducer(), false));
        EXPECT_EQ(native_window_api_connect(surface.get(), NATIVE_WINDOW_API_CPU), OK);
        EXPECT_EQ(native_window_set_usage(surface.get(), GRALLOC_USAGE_SW_WRITE_OFTEN), OK);
        return surface;
    }

    // Queues one frame of `format` whose bytes are all `value`.
    void produce(const sp<Surface>& surface, int32_t format, uint8_t value, int64_t timestamp) {
        ANativeWindow* window = surface.get();
        ASSERT_EQ(native_window_set_buffers_format(window, format), OK);
        ASSERT_EQ(native_window_set_buffers_timestamp(window, timestamp), OK);
        ANativeWindowBuffer* anwb = nullptr;
        ASSERT_EQ(native_window_dequeue_buffer_and_wait(window, &anwb), OK);
        sp<GraphicBuffer> buffer = GraphicBuffer::from(anwb);
        std::vector<uint8_t> contents(host::readBufferContents(*buffer).size(), value);
        ASSERT_TRUE(host::writeBufferContents(*buffer, contents.data(), contents.size()));
        ASSERT_EQ(window->queueBuffer(window, anwb, -1), OK);
    }

    jclass readerClass = nullptr;
    jclass imageClass = nullptr;
    jfieldID nativeBuffer = nullptr;
};

}  // namespace hosttest
