/*
 * Turning Java Surfaces into native windows, and throwing Java exceptions.
 */
#pragma once

#include <gui/Surface.h>
#include <jni.h>
#include <system/window.h>
#include <utils/StrongPointer.h>

// The native window behind a Java Surface; null with a Java exception pending when there is none.
android::sp<ANativeWindow> getNativeWindow(JNIEnv* env, jobject surface);
// The native Surface behind a Java Surface; null with a Java exception pending when there is none.
android::sp<android::Surface> getSurface(JNIEnv* env, jobject surface);

// Throws `className` with a printf-style message (cut to 511 characters). 0 when thrown, else -1.
int jniThrowExceptionFmt(JNIEnv* env, const char* className, const char* fmt, ...)
        __attribute__((format(printf, 3, 4)));

// Throws `className` with the fixed message `message` (null when the string cannot be made).
int jniThrowExceptionWithMessage(JNIEnv* env, const char* className, const char* message);

// Throws java/lang/NullPointerException with `message`.
inline int jniThrowNullPointerException(JNIEnv* env, const char* message) {
    return jniThrowExceptionWithMessage(env, "java/lang/NullPointerException", message);
}

namespace android {
namespace jnihelp {

// A growable heap string for the summary of a discarded exception.
struct ExpandableString {
    size_t dataSize;  // length without the terminator
    char* data;       // malloc'ed, null while empty
};

// Constructs `className` through the constructor `ctorSig` with the variadic arguments (here
// always one jstring message) and throws it, first discarding and logging any pending exception.
// 0 when thrown, else -1 with whatever the failed JNI call left pending.
int ThrowException(JNIEnv* env, const char* className, const char* ctorSig, ...);

}  // namespace jnihelp
}  // namespace android
