// The JNI side of ImageReader tests: readers, images and their BufferItems, and frames of random
// bytes queued to a reader and acquired.
#pragma once

#include <android_runtime/android_view_Surface.h>
#include <gui/BufferItem.h>
#include <gui/Surface.h>
#include <hostcontrol/FaultInjection.h>
#include <hostcontrol/LogCapture.h>
#include <testsupport/JniTest.h>
#include <ui/GraphicBuffer.h>
#include <ui/HostGrallocGuard.h>
#include <ui/HostGrallocLayout.h>

#include <cstring>
#include <random>
#include <vector>

namespace hosttest {

using android::BufferItem;
using android::GraphicBuffer;
using android::OK;
using android::sp;
using android::Surface;

// A queued buffer, its gralloc layout and the bytes of its whole allocation.
struct BufferBytes {
    sp<GraphicBuffer> buffer;
    host::GrallocLayout layout;
    std::vector<uint8_t> bytes;
};

// An image acquired from the fixture's reader, with the frame queued for it.
struct AcquiredImage : BufferBytes {
    jobject image = nullptr;  // android.media.ImageReader$SurfaceImage
    BufferItem* item = nullptr;
    const uint8_t* base = nullptr;  // where the buffer is mapped; null for opaque buffers
};

class ImageReaderTest : public nuvra::test::JniTest {
protected:
    void SetUp() override {
        nuvra::test::JniTest::SetUp();
        readerClass = env->FindClass("android/media/ImageReader");
        jclass imageClass = env->FindClass("android/media/ImageReader$SurfaceImage");
        ASSERT_TRUE(readerClass && imageClass);
        nativeBuffer = env->GetFieldID(imageClass, "mNativeBuffer", "J");
    }
    void TearDown() override {
        closeReader();
        nuvra::test::JniTest::TearDown();
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

    jobject surfaceOf(jobject reader) {
        return callObject(reader, "getSurface", "()Landroid/view/Surface;");
    }

    // A producer Surface on the reader's queue, connected as the camera service connects one
    // (not controlled by the app, so queued frames wait for the reader instead of replacing
    // each other).
    sp<Surface> producerOf(jobject reader) {
        sp<Surface> appSurface = android::android_view_Surface_getSurface(env, surfaceOf(reader));
        EXPECT_NE(appSurface, nullptr) << "the reader has no Surface";
        if (appSurface == nullptr) return nullptr;
        sp<Surface> surface(new Surface(appSurface->getIGraphicBufferProducer(), false));
        EXPECT_EQ(native_window_api_connect(surface.get(), NATIVE_WINDOW_API_CPU), OK);
        EXPECT_EQ(native_window_set_usage(surface.get(), GRALLOC_USAGE_SW_WRITE_OFTEN), OK);
        return surface;
    }

    // Queues one frame of `format` at the Surface's size whose whole allocation is random bytes
    // from `seed`, the last ones replaced by `trailer`; returns it as queued.
    BufferBytes produce(const sp<Surface>& surface, int32_t format, int64_t timestamp,
                        uint32_t seed = 1, android_dataspace dataspace = HAL_DATASPACE_UNKNOWN,
                        const std::vector<uint8_t>& trailer = {}) {
        ANativeWindow* window = surface.get();
        BufferBytes frame;
        EXPECT_EQ(native_window_set_buffers_format(window, format), OK);
        EXPECT_EQ(native_window_set_buffers_timestamp(window, timestamp), OK);
        EXPECT_EQ(native_window_set_buffers_data_space(window, dataspace), OK);
        ANativeWindowBuffer* anwb = nullptr;
        EXPECT_EQ(native_window_dequeue_buffer_and_wait(window, &anwb), OK);
        if (anwb == nullptr) return frame;
        sp<GraphicBuffer> buffer = frame.buffer = GraphicBuffer::from(anwb);
        EXPECT_TRUE(host::grallocLayoutOf(*buffer, &frame.layout));
        frame.bytes.resize(frame.layout.size);
        std::mt19937 rng(seed);
        for (uint8_t& b : frame.bytes) b = static_cast<uint8_t>(rng());
        std::copy(trailer.begin(), trailer.end(), frame.bytes.end() - trailer.size());
        void* p = nullptr;
        EXPECT_EQ(buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &p), OK);
        if (p != nullptr) memcpy(p, frame.bytes.data(), frame.bytes.size());
        EXPECT_EQ(buffer->unlock(), OK);
        EXPECT_EQ(window->queueBuffer(window, anwb, -1), OK);
        return frame;
    }

    // Opens the fixture's reader (closing the one before) with a producer on its Surface.
    void openReader(jint width, jint height, jint format, jint maxImages = 2) {
        closeReader();
        mReader = newReader(width, height, format, maxImages);
        ASSERT_NE(mReader, nullptr);
        mProducer = producerOf(mReader);
    }
    void closeReader() {
        if (mReader != nullptr) close(mReader);
        mReader = nullptr;
        mProducer.clear();
    }

    // Queues a frame of random bytes to the fixture's reader and acquires it, then clears the
    // call record and the captured logs.
    AcquiredImage queueAndAcquire(int32_t format, uint32_t seed = 1,
                                  android_dataspace dataspace = HAL_DATASPACE_UNKNOWN,
                                  const std::vector<uint8_t>& trailer = {}) {
        AcquiredImage img;
        if (mProducer == nullptr) return img;
        static_cast<BufferBytes&>(img) = produce(mProducer, format, 0, seed, dataspace, trailer);
        img.image = acquireNext(mReader);
        EXPECT_NE(img.image, nullptr);
        if (img.image != nullptr) img.item = itemOf(img.image);
        if (img.item != nullptr && format != HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED) {
            // The test's own look at the mapping, balanced at once (a private reader's buffers
            // have no CPU-read usage).
            void* base = nullptr;
            EXPECT_EQ(img.item->mGraphicBuffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &base), OK);
            EXPECT_EQ(img.item->mGraphicBuffer->unlock(), OK);
            img.base = static_cast<const uint8_t*>(base);
        }
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
        return img;
    }

    jclass readerClass = nullptr;
    jfieldID nativeBuffer = nullptr;
    jobject mReader = nullptr;  // the reader openReader opened
    sp<Surface> mProducer;
};

}  // namespace hosttest
