// Read-only questions about a Surface's buffer queue: size, format, data space, consumer usage.

#include <string.h>
#include <system/window.h>

#include "OperationSupport.h"
#include "SurfaceNativeUtilImpl.h"

using android::sp;

int SurfaceNativeUtilImpl::nativeDetectSurfaceDimens(JNIEnv* env, jobject surface,
                                                     jintArray dimens) {
    static const char* const kName = "nativeDetectSurfaceDimens";
    NLOGV("nativeGetSurfaceDimens");
    if (dimens == nullptr) {
        NLOGE("%s: Null dimens argument passed to nativeDetectSurfaceDimens", kName);
        return android::BAD_VALUE;
    }
    if (env->GetArrayLength(dimens) < 2) {
        NLOGE("%s: Invalid length of dimens argument in nativeDetectSurfaceDimens", kName);
        return android::BAD_VALUE;
    }
    sp<ANativeWindow> anw = windowForOperation(env, surface, kName);
    if (anw == nullptr) return android::BAD_VALUE;

    jint size[2] = {0, 0};
    int err = anw->query(anw.get(), NATIVE_WINDOW_WIDTH, &size[0]);
    if (err != 0) {
        NLOGE("%s: Error while querying surface width %s (%d).", kName, strerror(-err), err);
        return err;
    }
    err = anw->query(anw.get(), NATIVE_WINDOW_HEIGHT, &size[1]);
    if (err != 0) {
        NLOGE("%s: Error while querying surface height %s (%d).", kName, strerror(-err), err);
        return err;
    }
    env->SetIntArrayRegion(dimens, 0, 2, size);
    return 0;
}

int SurfaceNativeUtilImpl::nativeDetectSurfaceType(JNIEnv* env, jobject surface) {
    static const char* const kName = "nativeDetectSurfaceType";
    NLOGV("nativeDetectSurfaceType");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kName);
    if (anw == nullptr) return android::BAD_VALUE;

    int format = 0;
    int err = anw->query(anw.get(), NATIVE_WINDOW_FORMAT, &format);
    if (err != 0) {
        NLOGE("%s: Error while querying surface pixel format %s (%d).", kName, strerror(-err), err);
        return err;
    }
    return format;
}

int SurfaceNativeUtilImpl::nativeDetectSurfaceDataspace(JNIEnv* env, jobject surface) {
    static const char* const kName = "nativeDetectSurfaceDataspace";
    NLOGV("nativeDetectSurfaceDataspace");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kName);
    if (anw == nullptr) return android::BAD_VALUE;

    int dataSpace = 0;
    int err = anw->query(anw.get(), NATIVE_WINDOW_DEFAULT_DATASPACE, &dataSpace);
    if (err != 0) {
        NLOGE("%s: Error while querying surface dataspace  %s (%d).", kName, strerror(-err), err);
        return err;
    }
    return dataSpace;
}

jlong SurfaceNativeUtilImpl::nativeDetectSurfaceUsageFlags(JNIEnv* env, jobject surface) {
    static const char* const kName = "nativeDetectSurfaceUsageFlags";
    NLOGV("nativeDetectSurfaceUsageFlags");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kName);
    if (anw == nullptr) return android::BAD_VALUE;

    uint64_t usage = 0;
    int err = anw->perform(anw.get(), NATIVE_WINDOW_GET_CONSUMER_USAGE64, &usage);
    if (err != 0) {
        NLOGE("%s: Error while getting consumer usage  %s (%d).", kName, strerror(-err), err);
        return err;
    }
    return static_cast<jlong>(usage);
}
