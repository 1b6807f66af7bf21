// android::CameraUtils::getRotationTransform: the platform's mapping from sensor orientation,
// lens facing and mirror mode to a buffer transform.

#define LOG_TAG "CameraUtils"

#include <camera/CameraUtils.h>
#include <hostcontrol/FaultInjection.h>
#include <log/log.h>
#include <system/camera_metadata.h>
#include <system/window.h>

namespace android {

status_t CameraUtils::getRotationTransform(const CameraMetadata& staticInfo, int mirrorMode,
                                           bool enableTransformInverseDisplay, int32_t* transform) {
    if (int32_t fault = host::checkpoint("camera.getRotationTransform")) return fault;
    ALOGV("%s", __FUNCTION__);

    if (transform == nullptr) {
        ALOGW("%s: null transform", __FUNCTION__);
        return BAD_VALUE;
    }
    *transform = 0;

    camera_metadata_ro_entry_t entry = staticInfo.find(ANDROID_SENSOR_ORIENTATION);
    if (entry.count == 0) {
        ALOGE("%s: Can't find android.sensor.orientation in static metadata!", __FUNCTION__);
        return INVALID_OPERATION;
    }
    camera_metadata_ro_entry_t entryFacing = staticInfo.find(ANDROID_LENS_FACING);
    if (entryFacing.count == 0) {
        ALOGE("%s: Can't find android.lens.facing in static metadata!", __FUNCTION__);
        return INVALID_OPERATION;
    }

    int32_t& flags = *transform;
    int32_t mirror = 0;
    if (mirrorMode == MIRROR_MODE_AUTO && entryFacing.data.u8[0] == ANDROID_LENS_FACING_FRONT) {
        mirror = NATIVE_WINDOW_TRANSFORM_FLIP_H;
    } else if (mirrorMode == MIRROR_MODE_H) {
        mirror = NATIVE_WINDOW_TRANSFORM_FLIP_H;
    } else if (mirrorMode == MIRROR_MODE_V) {
        mirror = NATIVE_WINDOW_TRANSFORM_FLIP_V;
    }

    int orientation = entry.data.i32[0];
    if (mirror == 0) {
        switch (orientation) {
            case 0:
                flags = 0;
                break;
            case 90:
                flags = NATIVE_WINDOW_TRANSFORM_ROT_90;
                break;
            case 180:
                flags = NATIVE_WINDOW_TRANSFORM_ROT_180;
                break;
            case 270:
                flags = NATIVE_WINDOW_TRANSFORM_ROT_270;
                break;
            default:
                ALOGE("%s: Invalid HAL android.sensor.orientation value: %d", __FUNCTION__,
                      orientation);
                return INVALID_OPERATION;
        }
    } else {
        // Flips apply before rotations. Some of these flags are compositions of others, so
        // they are combined with XOR rather than OR.
        switch (orientation) {
            case 0:
                flags = mirror;
                break;
            case 90:
                flags = mirror ^ NATIVE_WINDOW_TRANSFORM_ROT_270;
                break;
            case 180:
                flags = mirror ^ NATIVE_WINDOW_TRANSFORM_ROT_180;
                break;
            case 270:
                flags = mirror ^ NATIVE_WINDOW_TRANSFORM_ROT_90;
                break;
            default:
                ALOGE("%s: Invalid HAL android.sensor.orientation value: %d", __FUNCTION__,
                      orientation);
                return INVALID_OPERATION;
        }
    }

    // Makes the compositor undo the display's own rotation, so the stream keeps the sensor's
    // orientation whichever way the device is held.
    if (enableTransformInverseDisplay) flags |= NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY;

    ALOGV("%s: final transform = 0x%x", __FUNCTION__, flags);
    return OK;
}

}  // namespace android
