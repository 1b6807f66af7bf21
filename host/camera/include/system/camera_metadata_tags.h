/*
 * Camera metadata sections, tags and enumerated values, with the platform's numbering.
 *
 * A tag is (section << 16) + index. Only the tags that the host's metadata type table knows
 * (camera_metadata.cpp) are listed; others can be added in both places with the platform's
 * section, index and type.
 */
#pragma once

typedef enum camera_metadata_section {
    ANDROID_COLOR_CORRECTION,
    ANDROID_CONTROL,
    ANDROID_DEMOSAIC,
    ANDROID_EDGE,
    ANDROID_FLASH,
    ANDROID_FLASH_INFO,
    ANDROID_HOT_PIXEL,
    ANDROID_JPEG,
    ANDROID_LENS,
    ANDROID_LENS_INFO,
    ANDROID_NOISE_REDUCTION,
    ANDROID_QUIRKS,
    ANDROID_REQUEST,
    ANDROID_SCALER,
    ANDROID_SENSOR,
    ANDROID_SENSOR_INFO,
} camera_metadata_section_t;

typedef enum camera_metadata_section_start {
    ANDROID_JPEG_START = ANDROID_JPEG << 16,
    ANDROID_LENS_START = ANDROID_LENS << 16,
    ANDROID_SENSOR_START = ANDROID_SENSOR << 16,
    ANDROID_SENSOR_INFO_START = ANDROID_SENSOR_INFO << 16,
} camera_metadata_section_start_t;

typedef enum camera_metadata_tag {
    ANDROID_JPEG_GPS_COORDINATES = ANDROID_JPEG_START,  // double[3]
    ANDROID_JPEG_ORIENTATION = ANDROID_JPEG_START + 3,  // int32
    ANDROID_JPEG_QUALITY = ANDROID_JPEG_START + 4,      // byte

    ANDROID_LENS_APERTURE = ANDROID_LENS_START,          // float
    ANDROID_LENS_FOCAL_LENGTH = ANDROID_LENS_START + 2,  // float
    ANDROID_LENS_FACING = ANDROID_LENS_START + 5,        // enum (byte)

    ANDROID_SENSOR_EXPOSURE_TIME = ANDROID_SENSOR_START,          // int64
    ANDROID_SENSOR_SENSITIVITY = ANDROID_SENSOR_START + 2,        // int32
    ANDROID_SENSOR_BASE_GAIN_FACTOR = ANDROID_SENSOR_START + 11,  // rational
    ANDROID_SENSOR_ORIENTATION = ANDROID_SENSOR_START + 14,       // int32
    ANDROID_SENSOR_TIMESTAMP = ANDROID_SENSOR_START + 16,         // int64

    ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE = ANDROID_SENSOR_INFO_START,     // int32[4]
    ANDROID_SENSOR_INFO_PIXEL_ARRAY_SIZE = ANDROID_SENSOR_INFO_START + 6,  // int32[2]
} camera_metadata_tag_t;

// ANDROID_LENS_FACING
typedef enum camera_metadata_enum_android_lens_facing {
    ANDROID_LENS_FACING_FRONT,
    ANDROID_LENS_FACING_BACK,
    ANDROID_LENS_FACING_EXTERNAL,
} camera_metadata_enum_android_lens_facing_t;
