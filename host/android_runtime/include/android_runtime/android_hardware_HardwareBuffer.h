/*
 * The native side of android.hardware.HardwareBuffer (libandroid_runtime).
 *
 * A Java HardwareBuffer holds, in its long field mNativeObject, a wrapper that owns one strong
 * reference on the GraphicBuffer (an AHardwareBuffer is a GraphicBuffer). close() sets the field
 * to 0 and drops that reference.
 */
#pragma once

#include <android/hardware_buffer.h>
#include <jni.h>

namespace android {

// The AHardwareBuffer of a Java HardwareBuffer without taking a reference: null for a closed
// buffer and for an object that is not an android.hardware.HardwareBuffer.
AHardwareBuffer* android_hardware_HardwareBuffer_getNativeHardwareBuffer(JNIEnv* env,
                                                                         jobject hardwareBufferObj);

// A new Java HardwareBuffer that holds its own reference on `hardwareBuffer`; null (exception
// cleared, error logged) when the object cannot be created.
jobject android_hardware_HardwareBuffer_createFromAHardwareBuffer(JNIEnv* env,
                                                                  AHardwareBuffer* hardwareBuffer);

// Registers the native methods of android.hardware.HardwareBuffer (AndroidRuntime::startReg).
int register_android_hardware_HardwareBuffer(JNIEnv* env);

}  // namespace android
