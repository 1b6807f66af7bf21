// Operations of the dispatch table whose implementation comes in a later step of the library's
// construction. Each placeholder is neutral: it logs that it is not available yet and returns
// INVALID_OPERATION (or null) without touching its arguments. Remove each one as its operation
// lands.

#include <utils/Errors.h>

#include "SurfaceLog.h"
#include "SurfaceNativeUtilImpl.h"

#define NOT_AVAILABLE_YET(name) NLOGE("%s: not available in this build yet", name)

int SurfaceNativeUtilImpl::nativePutByteBufferFromSurface(JNIEnv*, jobject, jobject) {
    NOT_AVAILABLE_YET("nativePutByteBufferFromSurface");
    return android::INVALID_OPERATION;
}
