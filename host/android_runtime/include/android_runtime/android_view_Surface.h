/*
 * The native side of android.view.Surface (libandroid_runtime).
 *
 * A Java Surface holds a strong reference on a native android::Surface in its long field
 * mNativeObject, read under the object's mLock monitor. A Java Surface whose mNativeObject is 0
 * (released, or created empty) has no native window: the getters return null for it, without an
 * exception. Passing a null jobject to a getter is a caller error that aborts the process, as
 * CheckJNI does on a device.
 *
 * Fault points (see <hostcontrol/FaultInjection.h>):
 *   jni.android_view_Surface_getNativeWindow, jni.android_view_Surface_getSurface
 * When armed, the getter throws java.lang.IllegalStateException("injected fault") and returns
 * null, as when the runtime raises an exception inside the glue.
 */
#pragma once

#include <jni.h>
#include <system/window.h>
#include <utils/StrongPointer.h>

namespace android {

class Surface;
class IGraphicBufferProducer;

// The native window of a Java Surface, or null.
sp<ANativeWindow> android_view_Surface_getNativeWindow(JNIEnv* env, jobject surfaceObj);

// Whether `obj` is an android.view.Surface.
bool android_view_Surface_isInstanceOf(JNIEnv* env, jobject obj);

// The native Surface of a Java Surface, or null.
sp<Surface> android_view_Surface_getSurface(JNIEnv* env, jobject surfaceObj);

// A new Java Surface holding a strong reference on `surface`; null (exception cleared, error
// logged) when the object cannot be created.
jobject android_view_Surface_createFromSurface(JNIEnv* env, const sp<Surface>& surface);

// A new Java Surface over a new native Surface that feeds `bufferProducer`; null for a null
// producer (without touching the VM).
jobject android_view_Surface_createFromIGraphicBufferProducer(
        JNIEnv* env, const sp<IGraphicBufferProducer>& bufferProducer);

// Registers the native methods of android.view.Surface (AndroidRuntime::startReg calls it).
int register_android_view_Surface(JNIEnv* env);

}  // namespace android
