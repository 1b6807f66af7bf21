/*
 * The one implementation of SurfaceNativeUtil. It has no state of its own: everything lives in the
 * Java objects, Surfaces and buffers passed to each call.
 */
#pragma once

#include "SurfaceNativeUtil.h"

class SurfaceNativeUtilImpl : public SurfaceNativeUtil {
public:
    SurfaceNativeUtilImpl();
    ~SurfaceNativeUtilImpl() override;

    int nativeDetectSurfaceDimens(JNIEnv* env, jobject surface, jintArray dimens) override;
    int nativeProduceFrame(JNIEnv* env, jobject surface, jobject pixelBuffer, int width, int height,
                           int pixelFormat) override;
    int nativeProduceFrameWithNV21(JNIEnv* env, jobject surface, jlong pixel, int width,
                                   int height) override;
    int nativeSetSurfaceFormat(JNIEnv* env, jobject surface, int pixelFormat,
                               jboolean displaySurface) override;
    int nativeSetSurfaceDimens(JNIEnv* env, jobject surface, int width, int height) override;
    int nativeSetSurfaceOrientation(JNIEnv* env, jobject surface, int facing,
                                    int orientation) override;
    int nativeGetJpegFooterSize(JNIEnv* env) override;
    int nativeConvertFlexibleToNV21(JNIEnv* env, jobjectArray planes, jobject out, int width,
                                    int height, jintArray rowStrides,
                                    jintArray pixelStrides) override;
    jobject nativeCreatePrivateSurface(JNIEnv* env, jobject surface) override;
    int nativeSetScalingMode(JNIEnv* env, jobject surface, int mode) override;
    jlong nativeGetNativeContext(JNIEnv* env, jobject image) override;
    int nativeGetJpegSize(JNIEnv* env, jobject image) override;
    jobject nativeGetBufferfromImage(JNIEnv* env, jobject image) override;
    int nativePutByteBufferFromImage(JNIEnv* env, jobject image, jobject byteBuffer) override;
    int nativePutByteBufferFromSurface(JNIEnv* env, jobject surface, jobject byteBuffer) override;
    int nativeConnectSurface(JNIEnv* env, jobject surface) override;
    int nativeDisconnectSurface(JNIEnv* env, jobject surface) override;
    int nativeProduceFrameWithYuv420(JNIEnv* env, jobject surface, jobject image) override;
    int nativeProduceFrameWithNV21FromBuffer(JNIEnv* env, jobject surface, jobject buffer,
                                             int width, int height, int stride,
                                             int heightSlice) override;
    int nativeSetNextTimestamp(JNIEnv* env, jobject surface, jlong timestamp) override;
    int nativeSetDequeueTimeout(JNIEnv* env, jobject surface, jlong timeout) override;
    int nativeGetDataSpaceFromImage(JNIEnv* env, jobject image) override;
    int nativeSetDataSpaceToSurface(JNIEnv* env, jobject surface, int dataSpace) override;
    int nativeSetSurfaceMirror(JNIEnv* env, jobject surface, int facing, int orientation,
                               int mirrorMode) override;
    int nativeDetectSurfaceType(JNIEnv* env, jobject surface) override;
    int nativeDetectSurfaceDataspace(JNIEnv* env, jobject surface) override;
    jlong nativeDetectSurfaceUsageFlags(JNIEnv* env, jobject surface) override;
    int nativeProduceFrameToHardwareBuffer(JNIEnv* env, jobject image,
                                           jobject hardwareBuffer) override;

    // Not in the dispatch table: the shared body of nativeSetSurfaceOrientation and
    // nativeSetSurfaceMirror.
    int nativeSetSurfaceTransform(JNIEnv* env, jobject surface, int facing, int orientation,
                                  int mirrorMode);
};
