/*
 * android::CameraUtils of libcamera_client: the buffer transform a camera stream needs.
 *
 * Fault point (see <hostcontrol/FaultInjection.h>): camera.getRotationTransform. When armed,
 * getRotationTransform returns the armed status and leaves *transform untouched.
 */
#pragma once

#include <camera/CameraMetadata.h>
#include <utils/Errors.h>

#include <cstdint>

namespace android {

class CameraUtils {
public:
    // Mirror modes of an output stream.
    enum {
        MIRROR_MODE_AUTO = 0,  // mirror front-facing cameras horizontally
        MIRROR_MODE_NONE = 1,
        MIRROR_MODE_H = 2,
        MIRROR_MODE_V = 3,
    };

    // Derives the NATIVE_WINDOW_TRANSFORM_* flags for a stream from the camera's static
    // metadata (ANDROID_SENSOR_ORIENTATION and ANDROID_LENS_FACING) and the mirror mode, with
    // NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY added when enableTransformInverseDisplay is set.
    // Sets *transform to 0 first; INVALID_OPERATION when an entry is missing or the orientation
    // is not 0, 90, 180 or 270; BAD_VALUE for a null transform.
    static status_t getRotationTransform(const CameraMetadata& staticInfo, int mirrorMode,
                                         bool enableTransformInverseDisplay, int32_t* transform);
};

}  // namespace android
