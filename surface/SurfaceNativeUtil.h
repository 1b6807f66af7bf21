/*
 * The interface that libnuvranativeutil hands to the application's JNI layer.
 *
 * The JNI layer obtains the one object with SurfaceNativeUtil_Get() and forwards each Java native
 * method to the operation of the same name, passing the calling thread's JNIEnv* first. The order
 * of the virtual operations is the dispatch table the JNI layer was built against (interface
 * version 8): it must never be changed, reordered or extended.
 */
#pragma once

#include <jni.h>

class SurfaceNativeUtil {
public:
    // Slots 0 and 1: the complete-object and the deleting destructor.
    virtual ~SurfaceNativeUtil() {}

    virtual int nativeDetectSurfaceDimens(JNIEnv* env, jobject surface, jintArray dimens) = 0;  // 2
    virtual int nativeProduceFrame(JNIEnv* env, jobject surface, jobject pixelBuffer, int width,
                                   int height, int pixelFormat) = 0;  // 3
    virtual int nativeProduceFrameWithNV21(JNIEnv* env, jobject surface, jlong pixel, int width,
                                           int height) = 0;  // 4
    virtual int nativeSetSurfaceFormat(JNIEnv* env, jobject surface, int pixelFormat,
                                       jboolean displaySurface) = 0;  // 5
    virtual int nativeSetSurfaceDimens(JNIEnv* env, jobject surface, int width, int height) = 0;
    virtual int nativeSetSurfaceOrientation(JNIEnv* env, jobject surface, int facing,
                                            int orientation) = 0;  // 7
    virtual int nativeGetJpegFooterSize(JNIEnv* env) = 0;          // 8
    virtual int nativeConvertFlexibleToNV21(JNIEnv* env, jobjectArray planes, jobject out,
                                            int width, int height, jintArray rowStrides,
                                            jintArray pixelStrides) = 0;           // 9
    virtual jobject nativeCreatePrivateSurface(JNIEnv* env, jobject surface) = 0;  // 10
    virtual int nativeSetScalingMode(JNIEnv* env, jobject surface, int mode) = 0;  // 11
    virtual jlong nativeGetNativeContext(JNIEnv* env, jobject image) = 0;          // 12
    virtual int nativeGetJpegSize(JNIEnv* env, jobject image) = 0;                 // 13
    virtual jobject nativeGetBufferfromImage(JNIEnv* env, jobject image) = 0;      // 14
    virtual int nativePutByteBufferFromImage(JNIEnv* env, jobject image,
                                             jobject byteBuffer) = 0;  // 15
    virtual int nativePutByteBufferFromSurface(JNIEnv* env, jobject surface,
                                               jobject byteBuffer) = 0;     // 16
    virtual int nativeConnectSurface(JNIEnv* env, jobject surface) = 0;     // 17
    virtual int nativeDisconnectSurface(JNIEnv* env, jobject surface) = 0;  // 18
    virtual int nativeProduceFrameWithYuv420(JNIEnv* env, jobject surface,
                                             jobject image) = 0;  // 19
    virtual int nativeProduceFrameWithNV21FromBuffer(JNIEnv* env, jobject surface, jobject buffer,
                                                     int width, int height, int stride,
                                                     int heightSlice) = 0;                  // 20
    virtual int nativeSetNextTimestamp(JNIEnv* env, jobject surface, jlong timestamp) = 0;  // 21
    virtual int nativeSetDequeueTimeout(JNIEnv* env, jobject surface, jlong timeout) = 0;   // 22
    virtual int nativeGetDataSpaceFromImage(JNIEnv* env, jobject image) = 0;                // 23
    virtual int nativeSetDataSpaceToSurface(JNIEnv* env, jobject surface, int dataSpace) = 0;
    virtual int nativeSetSurfaceMirror(JNIEnv* env, jobject surface, int facing, int orientation,
                                       int mirrorMode) = 0;                         // 25
    virtual int nativeDetectSurfaceType(JNIEnv* env, jobject surface) = 0;          // 26
    virtual int nativeDetectSurfaceDataspace(JNIEnv* env, jobject surface) = 0;     // 27
    virtual jlong nativeDetectSurfaceUsageFlags(JNIEnv* env, jobject surface) = 0;  // 28
    virtual int nativeProduceFrameToHardwareBuffer(JNIEnv* env, jobject image,
                                                   jobject hardwareBuffer) = 0;  // 29
};

// The version of the dispatch table above.
#define SURFACE_NATIVE_UTIL_VERSION 8

extern "C" {
// The library's one SurfaceNativeUtil; the same pointer for the life of the library. Never delete
// it.
SurfaceNativeUtil* SurfaceNativeUtil_Get();
// The interface version of the object, SURFACE_NATIVE_UTIL_VERSION.
int SurfaceNativeUtil_GetVersion();
}
