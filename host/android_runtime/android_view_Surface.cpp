// The native side of android.view.Surface: Java Surfaces to native Surfaces and back.

#define LOG_TAG "Surface"

#include <android_runtime/AndroidRuntime.h>
#include <android_runtime/android_view_Surface.h>
#include <gui/IGraphicBufferProducer.h>
#include <gui/Surface.h>
#include <hostcontrol/FaultInjection.h>
#include <log/log.h>

namespace android {
namespace {

const char* const kSurfaceClassPathName = "android/view/Surface";

struct SurfaceClassInfo {
    jclass clazz;
    jfieldID mNativeObject;
    jfieldID mLock;
    jmethodID ctor;
};
SurfaceClassInfo gSurfaceClassInfo;

// The owner id of the strong references that Java Surfaces hold.
const void* const sRefBaseOwner = &sRefBaseOwner;

// Reads mNativeObject under mLock. Shared by both getters so that each records only its own
// fault point.
sp<Surface> readSurface(JNIEnv* env, jobject surfaceObj, const char* caller) {
    // Dereferencing a null jobject is what CheckJNI aborts for on a device.
    LOG_ALWAYS_FATAL_IF(surfaceObj == nullptr, "%s: null Surface object", caller);
    sp<Surface> sur;
    jobject lock = env->GetObjectField(surfaceObj, gSurfaceClassInfo.mLock);
    if (env->MonitorEnter(lock) == JNI_OK) {
        sur = reinterpret_cast<Surface*>(
                env->GetLongField(surfaceObj, gSurfaceClassInfo.mNativeObject));
        env->MonitorExit(lock);
    }
    env->DeleteLocalRef(lock);
    return sur;
}

bool throwInjectedFault(JNIEnv* env, const char* point) {
    if (host::checkpoint(point) == 0) return false;
    jclass exceptionClass = env->FindClass("java/lang/IllegalStateException");
    if (exceptionClass != nullptr) {
        env->ThrowNew(exceptionClass, "injected fault");
        env->DeleteLocalRef(exceptionClass);
    }
    return true;
}

void nativeRelease(JNIEnv* /*env*/, jclass /*clazz*/, jlong nativeObject) {
    sp<Surface> sur(reinterpret_cast<Surface*>(nativeObject));
    sur->decStrong(sRefBaseOwner);
}

jboolean nativeIsValid(JNIEnv* /*env*/, jclass /*clazz*/, jlong nativeObject) {
    sp<Surface> sur(reinterpret_cast<Surface*>(nativeObject));
    return Surface::isValid(sur) ? JNI_TRUE : JNI_FALSE;
}

// JDK's JNINativeMethod takes mutable strings; the VM does not write to them.
const JNINativeMethod gSurfaceMethods[] = {
        {const_cast<char*>("nativeRelease"), const_cast<char*>("(J)V"),
         reinterpret_cast<void*>(nativeRelease)},
        {const_cast<char*>("nativeIsValid"), const_cast<char*>("(J)Z"),
         reinterpret_cast<void*>(nativeIsValid)},
};

}  // namespace

sp<ANativeWindow> android_view_Surface_getNativeWindow(JNIEnv* env, jobject surfaceObj) {
    if (throwInjectedFault(env, "jni.android_view_Surface_getNativeWindow")) return nullptr;
    return readSurface(env, surfaceObj, __FUNCTION__);
}

bool android_view_Surface_isInstanceOf(JNIEnv* env, jobject obj) {
    return env->IsInstanceOf(obj, gSurfaceClassInfo.clazz);
}

sp<Surface> android_view_Surface_getSurface(JNIEnv* env, jobject surfaceObj) {
    if (throwInjectedFault(env, "jni.android_view_Surface_getSurface")) return nullptr;
    return readSurface(env, surfaceObj, __FUNCTION__);
}

jobject android_view_Surface_createFromSurface(JNIEnv* env, const sp<Surface>& surface) {
    jobject surfaceObj = env->NewObject(gSurfaceClassInfo.clazz, gSurfaceClassInfo.ctor,
                                        reinterpret_cast<jlong>(surface.get()));
    if (surfaceObj == nullptr) {
        if (env->ExceptionCheck()) {
            ALOGE("Could not create instance of Surface from IGraphicBufferProducer.");
            env->ExceptionDescribe();
            env->ExceptionClear();
        }
        return nullptr;
    }
    surface->incStrong(sRefBaseOwner);
    return surfaceObj;
}

jobject android_view_Surface_createFromIGraphicBufferProducer(
        JNIEnv* env, const sp<IGraphicBufferProducer>& bufferProducer) {
    if (bufferProducer == nullptr) return nullptr;
    sp<Surface> surface(new Surface(bufferProducer, true));
    return android_view_Surface_createFromSurface(env, surface);
}

int register_android_view_Surface(JNIEnv* env) {
    int err = AndroidRuntime::registerNativeMethods(
            env, kSurfaceClassPathName, gSurfaceMethods,
            sizeof(gSurfaceMethods) / sizeof(gSurfaceMethods[0]));
    if (err < 0) return err;
    jclass clazz = env->FindClass(kSurfaceClassPathName);
    if (clazz == nullptr) return -1;
    gSurfaceClassInfo.clazz = static_cast<jclass>(env->NewGlobalRef(clazz));
    env->DeleteLocalRef(clazz);
    gSurfaceClassInfo.mNativeObject =
            env->GetFieldID(gSurfaceClassInfo.clazz, "mNativeObject", "J");
    gSurfaceClassInfo.mLock =
            env->GetFieldID(gSurfaceClassInfo.clazz, "mLock", "Ljava/lang/Object;");
    gSurfaceClassInfo.ctor = env->GetMethodID(gSurfaceClassInfo.clazz, "<init>", "(J)V");
    if (gSurfaceClassInfo.mNativeObject == nullptr || gSurfaceClassInfo.mLock == nullptr ||
        gSurfaceClassInfo.ctor == nullptr) {
        env->ExceptionDescribe();
        env->ExceptionClear();
        ALOGE("android.view.Surface lacks mNativeObject, mLock or Surface(long)");
        return -1;
    }
    return 0;
}

}  // namespace android
