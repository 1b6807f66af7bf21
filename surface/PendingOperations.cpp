// Operations of the dispatch table whose implementation comes in a later step of the library's
// construction. Each placeholder is neutral: it logs that it is not available yet and returns
// INVALID_OPERATION (or null) without touching its arguments. Remove each one as its operation
// lands.

#include <utils/Errors.h>

#include "SurfaceLog.h"
#include "SurfaceNativeUtilImpl.h"

#define NOT_AVAILABLE_YET(name) NLOGE("%s: not available in this build yet", name)

int SurfaceNativeUtilImpl::nativeGetJpegFooterSize(JNIEnv*) {
    NOT_AVAILABLE_YET("nativeGetJpegFooterSize");
    return android::INVALID_OPERATION;
}

jlong SurfaceNativeUtilImpl::nativeGetNativeContext(JNIEnv*, jobject) {
    NOT_AVAILABLE_YET("nativeGetNativeContext");
    return 0;
}

int SurfaceNativeUtilImpl::nativeGetJpegSize(JNIEnv*, jobject) {
    NOT_AVAILABLE_YET("nativeGetJpegSize");
    return android::INVALID_OPERATION;
}

jobject SurfaceNativeUtilImpl::nativeGetBufferfromImage(JNIEnv*, jobject) {
    NOT_AVAILABLE_YET("nativeGetBufferfromImage");
    return nullptr;
}

int SurfaceNativeUtilImpl::nativePutByteBufferFromImage(JNIEnv*, jobject, jobject) {
    NOT_AVAILABLE_YET("nativePutByteBufferFromImage");
    return android::INVALID_OPERATION;
}

int SurfaceNativeUtilImpl::nativePutByteBufferFromSurface(JNIEnv*, jobject, jobject) {
    NOT_AVAILABLE_YET("nativePutByteBufferFromSurface");
    return android::INVALID_OPERATION;
}

int SurfaceNativeUtilImpl::nativeProduceFrameWithYuv420(JNIEnv*, jobject, jobject) {
    NOT_AVAILABLE_YET("nativeProduceFrameWithYuv420");
    return android::INVALID_OPERATION;
}

int SurfaceNativeUtilImpl::nativeProduceFrameWithNV21FromBuffer(JNIEnv*, jobject, jobject, int, int,
                                                                int, int) {
    NOT_AVAILABLE_YET("nativeProduceFrameWithNV21FromBuffer");
    return android::INVALID_OPERATION;
}

int SurfaceNativeUtilImpl::nativeGetDataSpaceFromImage(JNIEnv*, jobject) {
    NOT_AVAILABLE_YET("nativeGetDataSpaceFromImage");
    return android::INVALID_OPERATION;
}

int SurfaceNativeUtilImpl::nativeProduceFrameToHardwareBuffer(JNIEnv*, jobject, jobject) {
    NOT_AVAILABLE_YET("nativeProduceFrameToHardwareBuffer");
    return android::INVALID_OPERATION;
}
