/*
 * A buffer queue with a consumer and a Java Surface over its producer, as an app gets when it
 * creates an ImageReader and asks for its Surface.
 *
 *     TestSurface ts = makeTestSurface(env, {640, 480, HAL_PIXEL_FORMAT_YCrCb_420_SP});
 *     library->nativeConnectSurface(env, ts.javaSurface);
 *     ... produce into ts.javaSurface, then ts.consumer->acquireBuffer(&item, 0) ...
 *
 * The Java Surface is made by the platform's glue
 * (android_view_Surface_createFromIGraphicBufferProducer), so it holds a strong reference on
 * `surface`. The TestSurface releases the Java Surface (Surface.release()) and drops its global
 * reference when it goes.
 */
#pragma once

#include <gui/BufferItemConsumer.h>
#include <gui/IGraphicBufferConsumer.h>
#include <gui/IGraphicBufferProducer.h>
#include <gui/Surface.h>
#include <jni.h>
#include <system/graphics.h>

#include <cstdint>
#include <utility>

namespace nuvra::test {

struct TestSurfaceConfig {
    uint32_t width = 64;
    uint32_t height = 48;
    int32_t format = HAL_PIXEL_FORMAT_RGBA_8888;  // the queue's default buffer format
    android_dataspace dataspace = HAL_DATASPACE_UNKNOWN;
    uint64_t consumerUsage = GRALLOC_USAGE_SW_READ_OFTEN;
    int maxAcquired = 1;  // buffers the consumer may hold at once
};

struct TestSurface {
    TestSurface() = default;
    TestSurface(TestSurface&& other) noexcept { *this = std::move(other); }
    TestSurface& operator=(TestSurface&& other) noexcept;
    ~TestSurface() { reset(); }

    // Calls release() on the Java Surface now: its native window is then gone.
    void releaseJavaSurface();
    // Releases the Java Surface and drops everything (what the destructor does).
    void reset();

    jobject javaSurface = nullptr;          // global reference to the android.view.Surface
    android::sp<android::Surface> surface;  // the native Surface behind javaSurface
    android::sp<android::IGraphicBufferProducer> producer;
    android::sp<android::BufferItemConsumer> consumer;
};

// Creates the queue, its consumer and the Java Surface; fails the current test (and returns an
// empty TestSurface) when any step fails.
TestSurface makeTestSurface(JNIEnv* env, const TestSurfaceConfig& config = TestSurfaceConfig());

// Calls the Java method Surface.isValid().
bool isValidJavaSurface(JNIEnv* env, jobject javaSurface);

}  // namespace nuvra::test
