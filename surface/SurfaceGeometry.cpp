// Configuration of a Surface's buffers: pixel format (with the vendor's usage and data-space
// additions for display surfaces), dimensions, rotation and mirror, scaling mode, the next
// timestamp and the data space.

#include <camera/CameraMetadata.h>
#include <camera/CameraUtils.h>
#include <string.h>
#include <system/graphics.h>
#include <system/window.h>

#include "OperationSupport.h"
#include "SurfaceNativeUtilImpl.h"
#include "platform/PlatformUtil.h"

using android::sp;

namespace {

// The vendor NV21 format that K.ORB displays want instead of plain NV21.
constexpr int PIXEL_FORMAT_YCrCb_420_SP_M = 0x11D;
// BT.601 625-line primaries, SMPTE 170M transfer, full range.
constexpr int32_t kJfifDataSpace = HAL_DATASPACE_V0_JFIF;
constexpr uint64_t kCameraWriteUsage = 0x20000;  // GRALLOC_USAGE_HW_CAMERA_WRITE

constexpr uint32_t ANDROID_SENSOR_ORIENTATION_TAG = 0xE000E;
constexpr uint32_t ANDROID_LENS_FACING_TAG = 0x80005;

// The consumer's usage bits as the 32-bit query reports them (0 when the query fails).
uint32_t consumerUsageBits(ANativeWindow* anw) {
    int usage = 0;
    anw->query(anw, NATIVE_WINDOW_CONSUMER_USAGE_BITS, &usage);
    return static_cast<uint32_t>(usage);
}

// Sets the consumer's usage widened without sign, plus `extra`.
int setUsageAddingTo(ANativeWindow* anw, uint32_t consumerUsage, uint64_t extra, const char* name) {
    int err = native_window_set_usage(anw, static_cast<uint64_t>(consumerUsage) | extra);
    if (err != 0) {
        NLOGE("%s: Failed to set native window usage flag, error %s (%d).", name, strerror(-err),
              err);
    }
    return err;
}

// The display-surface additions after the format is set: camera-write usage on Qualcomm; the
// JFIF data space and CPU-write usage on K.ORB and MT.
int configureDisplaySurface(ANativeWindow* anw, const char* name) {
    if (PlatformUtil::getCurrentVendor() == VENDOR_QCOM) {
        uint32_t usage = consumerUsageBits(anw);
        NLOGV("add usage GRALLOC_USAGE_HW_CAMERA_WRITE");
        int err = setUsageAddingTo(anw, usage, kCameraWriteUsage, name);
        if (err != 0) return err;
    }

    // The vendor is asked anew for each test, as for every step of this sequence.
    if (PlatformUtil::getCurrentVendor() != VENDOR_K_ORB &&
        PlatformUtil::getCurrentVendor() != VENDOR_MT) {
        return 0;
    }

    int defaultDataSpace = 0;
    anw->query(anw, NATIVE_WINDOW_DEFAULT_DATASPACE, &defaultDataSpace);
    NLOGV("%s: NATIVE_WINDOW_DEFAULT_DATASPACE %d", name, defaultDataSpace);
    int err = native_window_set_buffers_data_space(
            anw, static_cast<android_dataspace_t>(kJfifDataSpace));
    if (err != 0) {
        NLOGE("%s: Failed to set native window data_space, error %s (%d).", name, strerror(-err),
              err);
        return err;
    }

    uint32_t usage = consumerUsageBits(anw);
    NLOGV("add usage GRALLOC_USAGE_SW_WRITE_OFTEN, original 0x%x", usage);
    return setUsageAddingTo(anw, usage, GRALLOC_USAGE_SW_WRITE_OFTEN, name);
}

}  // namespace

int SurfaceNativeUtilImpl::nativeSetSurfaceFormat(JNIEnv* env, jobject surface, int pixelFormat,
                                                  jboolean displaySurface) {
    static const char* const kName = "nativeSetSurfaceFormat";
    NLOGV("nativeSetSurfaceFormat");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kName);
    if (anw == nullptr) return android::BAD_VALUE;

    if (displaySurface) {
        PlatformVendor vendor = PlatformUtil::getCurrentVendor();
        if (pixelFormat == HAL_PIXEL_FORMAT_YCrCb_420_SP && vendor == VENDOR_K_ORB) {
            NLOGV("%s: override pixel format to 420_SP_M_FULL for display surface.", kName);
            pixelFormat = PIXEL_FORMAT_YCrCb_420_SP_M;
        }
    }
    int err = native_window_set_buffers_format(anw.get(), pixelFormat);
    if (err != 0) {
        NLOGE("%s: Error while setting surface format %s (%d).", kName, strerror(-err), err);
        return err;
    }
    if (!displaySurface) return 0;
    return configureDisplaySurface(anw.get(), kName);
}

int SurfaceNativeUtilImpl::nativeSetSurfaceDimens(JNIEnv* env, jobject surface, int width,
                                                  int height) {
    static const char* const kName = "nativeSetSurfaceDimens";
    NLOGV("nativeSetSurfaceDimens");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kName);
    if (anw == nullptr) return android::BAD_VALUE;

    int err = native_window_set_buffers_dimensions(anw.get(), width, height);
    if (err != 0) {
        NLOGE("%s: Error while setting surface dimens %s (%d).", kName, strerror(-err), err);
        return err;
    }
    err = native_window_set_buffers_user_dimensions(anw.get(), width, height);
    if (err != 0) {
        NLOGE("%s: Error while setting surface user dimens %s (%d).", kName, strerror(-err), err);
        return err;
    }
    return 0;
}

int SurfaceNativeUtilImpl::nativeSetSurfaceTransform(JNIEnv* env, jobject surface, int facing,
                                                     int orientation, int mirrorMode) {
    static const char* const kName = "nativeSetSurfaceTransform";
    sp<ANativeWindow> anw = windowForOperation(env, surface, kName);
    if (anw == nullptr) return android::BAD_VALUE;

    android::CameraMetadata metadata;
    int32_t sensorOrientation = orientation;
    uint8_t lensFacing = static_cast<uint8_t>(facing);  // only the low byte is kept
    metadata.update(ANDROID_SENSOR_ORIENTATION_TAG, &sensorOrientation, 1);
    metadata.update(ANDROID_LENS_FACING_TAG, &lensFacing, 1);

    int32_t transform = 0;
    int err = android::CameraUtils::getRotationTransform(metadata, mirrorMode, true, &transform);
    if (err != 0) {
        NLOGE("%s: Invalid rotation transform %s (%d)", kName, strerror(-err), err);
        return err;
    }
    NLOGV("%s: Setting buffer transform to %d", kName, transform);
    err = native_window_set_buffers_transform(anw.get(), transform);
    if (err != 0) {
        NLOGE("%s: Unable to configure surface transform, error %s (%d)", kName, strerror(-err),
              err);
        return err;
    }
    return 0;
}

int SurfaceNativeUtilImpl::nativeSetSurfaceOrientation(JNIEnv* env, jobject surface, int facing,
                                                       int orientation) {
    NLOGV("nativeSetSurfaceOrientation");
    return nativeSetSurfaceTransform(env, surface, facing, orientation, 0);
}

int SurfaceNativeUtilImpl::nativeSetSurfaceMirror(JNIEnv* env, jobject surface, int facing,
                                                  int orientation, int mirrorMode) {
    NLOGV("nativeSetSurfaceMirror");
    return nativeSetSurfaceTransform(env, surface, facing, orientation, mirrorMode);
}

int SurfaceNativeUtilImpl::nativeSetScalingMode(JNIEnv* env, jobject surface, int mode) {
    static const char* const kName = "nativeSetScalingMode";
    NLOGV("nativeSetScalingMode");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kName);
    if (anw == nullptr) return android::BAD_VALUE;

    int err = native_window_set_scaling_mode(anw.get(), mode);
    if (err != 0) {
        NLOGE("%s: Unable to set surface scaling mode, error %s (%d)", kName, strerror(-err), err);
    }
    return err;
}

int SurfaceNativeUtilImpl::nativeSetNextTimestamp(JNIEnv* env, jobject surface, jlong timestamp) {
    static const char* const kName = "nativeSetNextTimestamp";
    NLOGV("nativeSetNextTimestamp");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kName);
    if (anw == nullptr) return android::BAD_VALUE;

    int err = native_window_set_buffers_timestamp(anw.get(), static_cast<int64_t>(timestamp));
    if (err != 0) {
        NLOGE("%s: Unable to set surface timestamp, error %s (%d)", kName, strerror(-err), err);
    }
    return err;
}

int SurfaceNativeUtilImpl::nativeSetDataSpaceToSurface(JNIEnv* env, jobject surface,
                                                       int dataSpace) {
    static const char* const kName = "nativeSetDataSpaceToSurface";
    NLOGV("nativeSetDataSpaceToSurface");
    sp<ANativeWindow> anw = windowForOperation(env, surface, kName);
    if (anw == nullptr) return android::BAD_VALUE;

    int err = native_window_set_buffers_data_space(anw.get(),
                                                   static_cast<android_dataspace_t>(dataSpace));
    if (err != 0) {
        NLOGE("%s: Error while setting dataspace(%d/0x%x) to surface %s (%d).", kName, dataSpace,
              static_cast<unsigned>(dataSpace), strerror(-err), err);
    }
    return err;
}
