// Buffer queues behind Java Surfaces for tests.

#include <android_runtime/android_view_Surface.h>
#include <gtest/gtest.h>
#include <gui/BufferQueue.h>
#include <hostjvm/Jvm.h>
#include <testsupport/TestSurface.h>

#include <utility>

namespace nuvra::test {

using android::BufferItemConsumer;
using android::BufferQueue;
using android::OK;

TestSurface& TestSurface::operator=(TestSurface&& other) noexcept {
    if (this != &other) {
        reset();
        javaSurface = std::exchange(other.javaSurface, nullptr);
        surface = std::move(other.surface);
        producer = std::move(other.producer);
        consumer = std::move(other.consumer);
    }
    return *this;
}

void TestSurface::reset() {
    if (javaSurface != nullptr) {
        releaseJavaSurface();
        host::jniEnv()->DeleteGlobalRef(javaSurface);
        javaSurface = nullptr;
    }
    surface.clear();
    producer.clear();
    consumer.clear();
}

void TestSurface::releaseJavaSurface() {
    if (javaSurface == nullptr) return;
    JNIEnv* env = host::jniEnv();
    jclass clazz = env->GetObjectClass(javaSurface);
    env->CallVoidMethod(javaSurface, env->GetMethodID(clazz, "release", "()V"));
    if (env->ExceptionCheck()) {
        env->ExceptionDescribe();
        env->ExceptionClear();
        ADD_FAILURE() << "Surface.release() threw";
    }
    env->DeleteLocalRef(clazz);
}

TestSurface makeTestSurface(JNIEnv* env, const TestSurfaceConfig& config) {
    TestSurface ts;
    android::sp<android::IGraphicBufferConsumer> consumerEnd;
    BufferQueue::createBufferQueue(&ts.producer, &consumerEnd);
    ts.consumer = new BufferItemConsumer(consumerEnd, config.consumerUsage, config.maxAcquired);
    if (ts.consumer->setDefaultBufferSize(config.width, config.height) != OK ||
        ts.consumer->setDefaultBufferFormat(config.format) != OK ||
        ts.consumer->setDefaultBufferDataSpace(config.dataspace) != OK) {
        ADD_FAILURE() << "cannot configure the consumer of a " << config.width << "x"
                      << config.height << " queue of format " << config.format;
        return TestSurface();
    }
    jobject local =
            android::android_view_Surface_createFromIGraphicBufferProducer(env, ts.producer);
    if (local == nullptr) {
        ADD_FAILURE() << "android_view_Surface_createFromIGraphicBufferProducer returned null";
        return TestSurface();
    }
    ts.javaSurface = env->NewGlobalRef(local);
    env->DeleteLocalRef(local);
    ts.surface = android::android_view_Surface_getSurface(env, ts.javaSurface);
    return ts;
}

bool isValidJavaSurface(JNIEnv* env, jobject javaSurface) {
    jclass clazz = env->GetObjectClass(javaSurface);
    jmethodID isValid = env->GetMethodID(clazz, "isValid", "()Z");
    bool valid = env->CallBooleanMethod(javaSurface, isValid);
    if (env->ExceptionCheck()) {
        env->ExceptionClear();
        ADD_FAILURE() << "Surface.isValid() threw";
        valid = false;
    }
    env->DeleteLocalRef(clazz);
    return valid;
}

}  // namespace nuvra::test
