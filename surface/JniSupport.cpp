// Java Surface lookup and Java exception throwing for the operations of SurfaceNativeUtilImpl.

#include "JniSupport.h"

#include <android/log.h>
#include <android_runtime/android_view_Surface.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "SurfaceLog.h"

using android::sp;

namespace android {
namespace jnihelp {
namespace {

constexpr const char* kJniHelpTag = "JNIHelp";
constexpr const char* kStringCtorSig = "(Ljava/lang/String;)V";

void ExpandableStringInitialize(ExpandableString* s) {
    s->dataSize = 0;
    s->data = nullptr;
}

void ExpandableStringRelease(ExpandableString* s) {
    free(s->data);
    ExpandableStringInitialize(s);
}

bool ExpandableStringAppend(ExpandableString* s, const char* text) {
    size_t textSize = strlen(text);
    char* grown = static_cast<char*>(realloc(s->data, s->dataSize + textSize + 1));
    if (grown == nullptr) return false;
    memcpy(grown + s->dataSize, text, textSize + 1);
    s->data = grown;
    s->dataSize += textSize;
    return true;
}

bool ExpandableStringAssign(ExpandableString* s, const char* text) {
    ExpandableStringRelease(s);
    return ExpandableStringAppend(s, text);
}

// Calls a String-returning method with no arguments; a Java exception it throws is cleared and
// reads as a null result.
jstring callStringMethod(JNIEnv* env, jobject object, const char* className,
                         const char* methodName) {
    jclass cls = env->FindClass(className);
    if (cls == nullptr) {
        env->ExceptionClear();
        return nullptr;
    }
    jmethodID method = env->GetMethodID(cls, methodName, "()Ljava/lang/String;");
    env->DeleteLocalRef(cls);
    if (method == nullptr) {
        env->ExceptionClear();
        return nullptr;
    }
    jstring result = static_cast<jstring>(env->CallObjectMethod(object, method));
    if (env->ExceptionCheck()) {
        env->ExceptionClear();
        if (result != nullptr) env->DeleteLocalRef(result);
        return nullptr;
    }
    return result;
}

// Appends the characters of a Java string; false when they cannot be obtained or copied.
bool appendJavaString(JNIEnv* env, ExpandableString* s, jstring text, bool assign) {
    const char* chars = env->GetStringUTFChars(text, nullptr);
    if (chars == nullptr) {
        env->ExceptionClear();
        return false;
    }
    bool ok = assign ? ExpandableStringAssign(s, chars) : ExpandableStringAppend(s, chars);
    env->ReleaseStringUTFChars(text, chars);
    return ok;
}

// "<class name>: <message>" of an exception, with the platform's fallbacks for each step.
void GetExceptionSummary(JNIEnv* env, jthrowable thrown, ExpandableString* summary) {
    jclass thrownClass = env->GetObjectClass(thrown);
    jstring className = callStringMethod(env, thrownClass, "java/lang/Class", "getName");
    env->DeleteLocalRef(thrownClass);
    if (className == nullptr) {
        ExpandableStringAssign(summary, "<error getting class name>");
        env->ExceptionClear();
        return;
    }
    bool named = appendJavaString(env, summary, className, /*assign=*/true);
    env->DeleteLocalRef(className);
    if (!named) {
        ExpandableStringAssign(summary, "<error getting class name UTF-8>");
        env->ExceptionClear();
        return;
    }

    jstring message = callStringMethod(env, thrown, "java/lang/Throwable", "getMessage");
    if (message == nullptr) return;  // the bare class name
    bool described = ExpandableStringAppend(summary, ": ") &&
                     appendJavaString(env, summary, message, /*assign=*/false);
    env->DeleteLocalRef(message);
    if (!described) {
        ExpandableStringAppend(summary, "<error getting message>");
        env->ExceptionClear();
    }
}

// Clears a pending exception, logging its summary first.
void DiscardPendingException(JNIEnv* env, const char* className) {
    jthrowable pending = env->ExceptionOccurred();
    env->ExceptionClear();
    if (pending == nullptr) return;

    ExpandableString summary;
    ExpandableStringInitialize(&summary);
    GetExceptionSummary(env, pending, &summary);
    const char* details = (summary.data != nullptr) ? summary.data : "Unknown";
    __android_log_print(ANDROID_LOG_WARN, kJniHelpTag,
                        "Discarding pending exception (%s) to throw %s", details, className);
    ExpandableStringRelease(&summary);
    env->DeleteLocalRef(pending);
}

}  // namespace

int ThrowException(JNIEnv* env, const char* className, const char* ctorSig, ...) {
    DiscardPendingException(env, className);

    jclass cls = env->FindClass(className);
    if (cls == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kJniHelpTag, "Unable to find exception class %s",
                            className);
        return -1;
    }

    int status = -1;
    jmethodID ctor = env->GetMethodID(cls, "<init>", ctorSig);
    if (ctor == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kJniHelpTag,
                            "Failed to find constructor for '%s' '%s'", className, kStringCtorSig);
    } else {
        va_list args;
        va_start(args, ctorSig);
        jobject exception = env->NewObjectV(cls, ctor, args);
        va_end(args);
        if (exception == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, kJniHelpTag, "Failed to construct '%s'",
                                className);
        } else if (env->Throw(static_cast<jthrowable>(exception)) != JNI_OK) {
            __android_log_print(ANDROID_LOG_ERROR, kJniHelpTag, "Failed to throw '%s'", className);
        } else {
            status = 0;
        }
        // The exception object's own local reference is left to the caller's frame.
    }
    env->DeleteLocalRef(cls);
    return status;
}

}  // namespace jnihelp
}  // namespace android

namespace {

// Throws `className` with `message` already made into a Java string, or with a null message
// when the string could not be made.
int throwWithJavaMessage(JNIEnv* env, const char* className, jstring message) {
    if (message == nullptr) {
        env->ExceptionClear();
        return android::jnihelp::ThrowException(env, className, "(Ljava/lang/String;)V",
                                                static_cast<jstring>(nullptr));
    }
    int status = android::jnihelp::ThrowException(env, className, "(Ljava/lang/String;)V", message);
    env->DeleteLocalRef(message);
    return status;
}

// The lookup shared by getNativeWindow and getSurface: the platform glue's answer for a
// non-null Java Surface, or a Java exception and null.
template <typename T>
sp<T> nativeObjectOfSurface(JNIEnv* env, jobject surface, sp<T> (*glue)(JNIEnv*, jobject),
                            const char* missingMessage) {
    if (surface == nullptr) {
        jniThrowNullPointerException(env, "surface");
        return nullptr;
    }
    sp<T> object = glue(env, surface);
    if (env->ExceptionCheck()) return nullptr;  // the glue's exception stays for Java
    if (object == nullptr) {
        jniThrowExceptionFmt(env, "java/lang/IllegalArgumentException", "%s", missingMessage);
        return nullptr;
    }
    return object;
}

}  // namespace

int jniThrowExceptionWithMessage(JNIEnv* env, const char* className, const char* message) {
    return throwWithJavaMessage(env, className, env->NewStringUTF(message));
}

int jniThrowExceptionFmt(JNIEnv* env, const char* className, const char* fmt, ...) {
    char buffer[512];
    va_list args;
    va_start(args, fmt);
    vsnprintf(buffer, sizeof(buffer), fmt, args);
    va_end(args);
    return throwWithJavaMessage(env, className, env->NewStringUTF(buffer));
}

sp<ANativeWindow> getNativeWindow(JNIEnv* env, jobject surface) {
    return nativeObjectOfSurface<ANativeWindow>(env, surface,
                                                android::android_view_Surface_getNativeWindow,
                                                "Surface had no valid native window.");
}

sp<android::Surface> getSurface(JNIEnv* env, jobject surface) {
    return nativeObjectOfSurface<android::Surface>(env, surface,
                                                   android::android_view_Surface_getSurface,
                                                   "Surface had no valid native Surface.");
}
