/*
 * Steps shared by the operations of SurfaceNativeUtilImpl.
 */
#pragma once

#include <system/window.h>
#include <utils/StrongPointer.h>

#include "JniSupport.h"
#include "SurfaceLog.h"

// The native window of a Java Surface for `operation`. When there is none, the Java exception
// is already pending and the operation's error line is written here.
inline android::sp<ANativeWindow> windowForOperation(JNIEnv* env, jobject surface,
                                                     const char* operation) {
    android::sp<ANativeWindow> anw = getNativeWindow(env, surface);
    if (anw == nullptr) NLOGE("%s: Could not retrieve native window from surface.", operation);
    return anw;
}
