// Packing a three-plane YUV 4:2:0 image (Y, U, V, each with its own row and pixel stride) into one
// NV21 buffer: width x height luma bytes, then height / 2 rows of V,U pairs. Layouts that are NV21
// already are copied in bulk; anything else is gathered sample by sample.

#include <string.h>
#include <utils/Errors.h>

#include "SurfaceLog.h"
#include "SurfaceNativeUtilImpl.h"
#include "kernels/FlexibleYuv.h"

namespace {

constexpr const char* kConvertName = "convertFromFlexibleYuv";

void convertFromFlexibleYuv(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst,
                            int width, int height, const jint* rowStrides,
                            const jint* pixelStrides) {
    NLOGV("%s: Enter", kConvertName);
    const size_t lumaSize = static_cast<size_t>(static_cast<int64_t>(width) * height);
    if (v == y + static_cast<ptrdiff_t>(height * width) && rowStrides[0] == width && u == v + 1 &&
        pixelStrides[1] == 2) {
        NLOGV("It's already NV21 with stride == width");
        // Signed 32-bit size, as the callers' Java side counts it.
        int32_t bytes = static_cast<int32_t>(static_cast<uint32_t>(width) *
                                             static_cast<uint32_t>(height) * 3u) /
                        2;
        memcpy(dst, y, static_cast<size_t>(bytes));
    } else {
        if (height > 0 && width > 0) {
            nuvra::kernels::copyRowsPacked(dst, y, rowStrides[0], static_cast<size_t>(width),
                                           static_cast<size_t>(height));
        }
        uint8_t* chroma = dst + lumaSize;
        if (u == v + 1 && pixelStrides[1] == 2) {
            // V,U pairs already; the chroma rows are taken to be width bytes apart.
            NLOGV("%s: Fast NV21->NV21", kConvertName);
            if (height >= 2) {
                memcpy(chroma, v, static_cast<size_t>(height / 2) * static_cast<size_t>(width));
            }
        } else {
            // Any strides: the V,U pairs sample by sample, V walking with U's row geometry.
            NLOGV("%s: Generic->NV21", kConvertName);
            nuvra::kernels::gatherFlexibleChroma(chroma, u, v, rowStrides[1], pixelStrides[1],
                                                 pixelStrides[2], width, height);
        }
    }
    NLOGV("%s: Exit", kConvertName);
}

}  // namespace

int SurfaceNativeUtilImpl::nativeConvertFlexibleToNV21(JNIEnv* env, jobjectArray planes,
                                                       jobject out, int width, int height,
                                                       jintArray rowStrides,
                                                       jintArray pixelStrides) {
    constexpr const char* kName = "nativeConvertFlexibleToNV21";
    NLOGV("nativeConvertFlexibleToNV21");
    if (env->GetArrayLength(planes) != 3 || env->GetArrayLength(rowStrides) != 3 ||
        env->GetArrayLength(pixelStrides) != 3) {
        NLOGE("%s: YUV_422_888 should have 3 planes.", kName);
        return android::BAD_VALUE;
    }
    jobject yPlane = env->GetObjectArrayElement(planes, 0);
    jobject uPlane = env->GetObjectArrayElement(planes, 1);
    jobject vPlane = env->GetObjectArrayElement(planes, 2);
    auto* y = static_cast<const uint8_t*>(env->GetDirectBufferAddress(yPlane));
    auto* u = static_cast<const uint8_t*>(env->GetDirectBufferAddress(uPlane));
    auto* v = static_cast<const uint8_t*>(env->GetDirectBufferAddress(vPlane));
    auto* dst = static_cast<uint8_t*>(env->GetDirectBufferAddress(out));
    jint* rows = env->GetIntArrayElements(rowStrides, nullptr);
    jint* pixels = env->GetIntArrayElements(pixelStrides, nullptr);
    convertFromFlexibleYuv(y, u, v, dst, width, height, rows, pixels);
    env->ReleaseIntArrayElements(rowStrides, rows, JNI_ABORT);
    env->ReleaseIntArrayElements(pixelStrides, pixels, JNI_ABORT);
    env->DeleteLocalRef(yPlane);
    env->DeleteLocalRef(uPlane);
    env->DeleteLocalRef(vPlane);
    return 0;
}
