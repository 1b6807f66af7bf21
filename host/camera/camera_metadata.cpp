// The tag type table of camera metadata and the sizes and names of its types.

#include <system/camera_metadata.h>

namespace {

struct TagInfo {
    uint32_t tag;
    const char* name;
    int type;
};

// Extend with the platform's name and type when a caller needs another tag.
constexpr TagInfo kTags[] = {
        {ANDROID_JPEG_GPS_COORDINATES, "android.jpeg.gpsCoordinates", TYPE_DOUBLE},
        {ANDROID_JPEG_ORIENTATION, "android.jpeg.orientation", TYPE_INT32},
        {ANDROID_JPEG_QUALITY, "android.jpeg.quality", TYPE_BYTE},
        {ANDROID_LENS_APERTURE, "android.lens.aperture", TYPE_FLOAT},
        {ANDROID_LENS_FOCAL_LENGTH, "android.lens.focalLength", TYPE_FLOAT},
        {ANDROID_LENS_FACING, "android.lens.facing", TYPE_BYTE},
        {ANDROID_SENSOR_EXPOSURE_TIME, "android.sensor.exposureTime", TYPE_INT64},
        {ANDROID_SENSOR_SENSITIVITY, "android.sensor.sensitivity", TYPE_INT32},
        {ANDROID_SENSOR_BASE_GAIN_FACTOR, "android.sensor.baseGainFactor", TYPE_RATIONAL},
        {ANDROID_SENSOR_ORIENTATION, "android.sensor.orientation", TYPE_INT32},
        {ANDROID_SENSOR_TIMESTAMP, "android.sensor.timestamp", TYPE_INT64},
        {ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE, "android.sensor.info.activeArraySize", TYPE_INT32},
        {ANDROID_SENSOR_INFO_PIXEL_ARRAY_SIZE, "android.sensor.info.pixelArraySize", TYPE_INT32},
};

const TagInfo* findTag(uint32_t tag) {
    for (const TagInfo& info : kTags) {
        if (info.tag == tag) return &info;
    }
    return nullptr;
}

}  // namespace

extern "C" {

const size_t camera_metadata_type_size[NUM_TYPES] = {
        sizeof(uint8_t), sizeof(int32_t), sizeof(float),
        sizeof(int64_t), sizeof(double),  sizeof(camera_metadata_rational_t),
};

const char* camera_metadata_type_names[NUM_TYPES] = {
        "byte", "int32", "float", "int64", "double", "rational",
};

int get_camera_metadata_tag_type(uint32_t tag) {
    const TagInfo* info = findTag(tag);
    return info != nullptr ? info->type : -1;
}

const char* get_camera_metadata_tag_name(uint32_t tag) {
    const TagInfo* info = findTag(tag);
    return info != nullptr ? info->name : nullptr;
}

}  // extern "C"
