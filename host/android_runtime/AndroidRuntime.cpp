// Native method registration of libandroid_runtime and access to the process's VM.

#define LOG_TAG "AndroidRuntime"

#include <android_runtime/AndroidRuntime.h>
#include <android_runtime/android_hardware_HardwareBuffer.h>
#include <android_runtime/android_view_Surface.h>
#include <log/log.h>

namespace android {
namespace {

struct RegJNIRec {
    int (*mProc)(JNIEnv*);
    const char* mName;
};

// One entry per Java class of libandroid_runtime with native methods.
const RegJNIRec gRegJNI[] = {
        {register_android_view_Surface, "android.view.Surface"},
        {register_android_hardware_HardwareBuffer, "android.hardware.HardwareBuffer"},
};

}  // namespace

int AndroidRuntime::registerNativeMethods(JNIEnv* env, const char* className,
                                          const JNINativeMethod* gMethods, int numMethods) {
    jclass clazz = env->FindClass(className);
    if (clazz == nullptr) {
        env->ExceptionClear();
        ALOGE("Native registration unable to find class '%s'", className);
        return -1;
    }
    jint result = env->RegisterNatives(clazz, gMethods, numMethods);
    env->DeleteLocalRef(clazz);
    if (result < 0) {
        env->ExceptionClear();
        ALOGE("RegisterNatives failed for '%s'", className);
        return -1;
    }
    return 0;
}

JavaVM* AndroidRuntime::getJavaVM() {
    JavaVM* vm = nullptr;
    jsize count = 0;
    if (JNI_GetCreatedJavaVMs(&vm, 1, &count) != JNI_OK || count == 0) return nullptr;
    return vm;
}

JNIEnv* AndroidRuntime::getJNIEnv() {
    JavaVM* vm = getJavaVM();
    JNIEnv* env = nullptr;
    if (vm == nullptr || vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_4) != JNI_OK) {
        return nullptr;
    }
    return env;
}

int AndroidRuntime::startReg(JNIEnv* env) {
    for (const RegJNIRec& rec : gRegJNI) {
        if (rec.mProc(env) < 0) {
            ALOGE("Registration of the native methods of %s failed", rec.mName);
            return -1;
        }
    }
    return 0;
}

}  // namespace android
