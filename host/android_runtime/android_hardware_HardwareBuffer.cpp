// The native side of android.hardware.HardwareBuffer.

#define LOG_TAG "HardwareBuffer"

#include <android_runtime/AndroidRuntime.h>
#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <log/log.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

#include <string>

namespace android {
namespace {

const char* const kClassPathName = "android/hardware/HardwareBuffer";

struct HardwareBufferClassInfo {
    jclass clazz;
    jfieldID mNativeObject;
    jmethodID ctor;
};
HardwareBufferClassInfo gHardwareBufferClassInfo;

// What mNativeObject points at: the Java object's strong reference on the buffer.
class GraphicBufferWrapper {
public:
    explicit GraphicBufferWrapper(const sp<GraphicBuffer>& buffer) : buffer(buffer) {}
    sp<GraphicBuffer> buffer;
};

GraphicBuffer* GraphicBufferWrapper_to_GraphicBuffer(jlong nativeObject) {
    if (nativeObject == 0) return nullptr;
    return reinterpret_cast<GraphicBufferWrapper*>(nativeObject)->buffer.get();
}

jlong android_hardware_HardwareBuffer_create(JNIEnv* /*env*/, jclass /*clazz*/, jint width,
                                             jint height, jint format, jint layers, jlong usage) {
    sp<GraphicBuffer> buffer(new GraphicBuffer(
            static_cast<uint32_t>(width), static_cast<uint32_t>(height), format,
            static_cast<uint32_t>(layers), static_cast<uint64_t>(usage),
            std::string("HardwareBuffer pid [") + std::to_string(getpid()) + "]"));
    status_t error = buffer->initCheck();
    if (error < 0) {
        ALOGW("createGraphicBuffer() failed in HardwareBuffer.create()");
        return 0;
    }
    return reinterpret_cast<jlong>(new GraphicBufferWrapper(buffer));
}

void android_hardware_HardwareBuffer_destroy(JNIEnv* /*env*/, jclass /*clazz*/,
                                             jlong nativeObject) {
    delete reinterpret_cast<GraphicBufferWrapper*>(nativeObject);
}

jint android_hardware_HardwareBuffer_getWidth(JNIEnv*, jclass, jlong nativeObject) {
    return static_cast<jint>(GraphicBufferWrapper_to_GraphicBuffer(nativeObject)->getWidth());
}

jint android_hardware_HardwareBuffer_getHeight(JNIEnv*, jclass, jlong nativeObject) {
    return static_cast<jint>(GraphicBufferWrapper_to_GraphicBuffer(nativeObject)->getHeight());
}

jint android_hardware_HardwareBuffer_getFormat(JNIEnv*, jclass, jlong nativeObject) {
    return GraphicBufferWrapper_to_GraphicBuffer(nativeObject)->getPixelFormat();
}

jint android_hardware_HardwareBuffer_getLayers(JNIEnv*, jclass, jlong nativeObject) {
    return static_cast<jint>(GraphicBufferWrapper_to_GraphicBuffer(nativeObject)->getLayerCount());
}

jlong android_hardware_HardwareBuffer_getUsage(JNIEnv*, jclass, jlong nativeObject) {
    return static_cast<jlong>(GraphicBufferWrapper_to_GraphicBuffer(nativeObject)->getUsage());
}

jlong android_hardware_HardwareBuffer_getId(JNIEnv*, jclass, jlong nativeObject) {
    return static_cast<jlong>(GraphicBufferWrapper_to_GraphicBuffer(nativeObject)->getId());
}

#define NATIVE(name, signature, function) \
    { const_cast<char*>(name), const_cast<char*>(signature), reinterpret_cast<void*>(function) }

const JNINativeMethod gMethods[] = {
        NATIVE("nCreateHardwareBuffer", "(IIIIJ)J", android_hardware_HardwareBuffer_create),
        NATIVE("nDestroy", "(J)V", android_hardware_HardwareBuffer_destroy),
        NATIVE("nGetWidth", "(J)I", android_hardware_HardwareBuffer_getWidth),
        NATIVE("nGetHeight", "(J)I", android_hardware_HardwareBuffer_getHeight),
        NATIVE("nGetFormat", "(J)I", android_hardware_HardwareBuffer_getFormat),
        NATIVE("nGetLayers", "(J)I", android_hardware_HardwareBuffer_getLayers),
        NATIVE("nGetUsage", "(J)J", android_hardware_HardwareBuffer_getUsage),
        NATIVE("nGetId", "(J)J", android_hardware_HardwareBuffer_getId),
};

#undef NATIVE

}  // namespace

AHardwareBuffer* android_hardware_HardwareBuffer_getNativeHardwareBuffer(
        JNIEnv* env, jobject hardwareBufferObj) {
    if (env->IsInstanceOf(hardwareBufferObj, gHardwareBufferClassInfo.clazz)) {
        GraphicBuffer* buffer = GraphicBufferWrapper_to_GraphicBuffer(
                env->GetLongField(hardwareBufferObj, gHardwareBufferClassInfo.mNativeObject));
        return buffer == nullptr ? nullptr : buffer->toAHardwareBuffer();
    }
    return nullptr;
}

jobject android_hardware_HardwareBuffer_createFromAHardwareBuffer(JNIEnv* env,
                                                                  AHardwareBuffer* hardwareBuffer) {
    auto* wrapper = new GraphicBufferWrapper(GraphicBuffer::fromAHardwareBuffer(hardwareBuffer));
    jobject obj = env->NewObject(gHardwareBufferClassInfo.clazz, gHardwareBufferClassInfo.ctor,
                                 reinterpret_cast<jlong>(wrapper));
    if (obj == nullptr) {
        delete wrapper;
        if (env->ExceptionCheck()) {
            ALOGE("Could not create instance of HardwareBuffer from AHardwareBuffer.");
            env->ExceptionDescribe();
            env->ExceptionClear();
        }
        return nullptr;
    }
    return obj;
}

int register_android_hardware_HardwareBuffer(JNIEnv* env) {
    int err = AndroidRuntime::registerNativeMethods(env, kClassPathName, gMethods,
                                                    sizeof(gMethods) / sizeof(gMethods[0]));
    if (err < 0) return err;
    jclass clazz = env->FindClass(kClassPathName);
    if (clazz == nullptr) return -1;
    gHardwareBufferClassInfo.clazz = static_cast<jclass>(env->NewGlobalRef(clazz));
    env->DeleteLocalRef(clazz);
    gHardwareBufferClassInfo.mNativeObject =
            env->GetFieldID(gHardwareBufferClassInfo.clazz, "mNativeObject", "J");
    gHardwareBufferClassInfo.ctor =
            env->GetMethodID(gHardwareBufferClassInfo.clazz, "<init>", "(J)V");
    if (gHardwareBufferClassInfo.mNativeObject == nullptr ||
        gHardwareBufferClassInfo.ctor == nullptr) {
        env->ExceptionDescribe();
        env->ExceptionClear();
        ALOGE("android.hardware.HardwareBuffer lacks mNativeObject or HardwareBuffer(long)");
        return -1;
    }
    return 0;
}

}  // namespace android
