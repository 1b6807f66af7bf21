/*
 * android::AndroidRuntime of libandroid_runtime, as far as native code outside the runtime
 * uses it: registration of native methods and access to the process's VM.
 *
 * On the host the VM is the JVM that libhostjvm starts (host::startJvm), which calls startReg()
 * once the VM runs.
 */
#pragma once

#include <jni.h>

namespace android {

class AndroidRuntime {
public:
    // Registers `numMethods` native methods of `className`; < 0 (with the exception cleared and
    // an error logged) when the class or a method is missing.
    static int registerNativeMethods(JNIEnv* env, const char* className,
                                     const JNINativeMethod* gMethods, int numMethods);

    // The process's VM, or null when none runs.
    static JavaVM* getJavaVM();
    // The calling thread's JNIEnv, or null when the thread is not attached to the VM.
    static JNIEnv* getJNIEnv();

    // Registers the native methods of the platform's Java classes; < 0 on failure.
    static int startReg(JNIEnv* env);
};

}  // namespace android
