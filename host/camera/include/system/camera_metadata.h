/*
 * The C side of camera metadata: entry types, the entry records that lookups return and the
 * tag type table. The host keeps entries in android::CameraMetadata itself rather than in a
 * packed camera_metadata_t buffer, so only the parts that CameraMetadata's users see are here.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <system/camera_metadata_tags.h>

#ifdef __cplusplus
extern "C" {
#endif

// Types of entries, as the platform numbers them.
enum {
    TYPE_BYTE = 0,      // uint8_t
    TYPE_INT32 = 1,     // int32_t
    TYPE_FLOAT = 2,     // float
    TYPE_INT64 = 3,     // int64_t
    TYPE_DOUBLE = 4,    // double
    TYPE_RATIONAL = 5,  // camera_metadata_rational_t
    NUM_TYPES
};

typedef struct camera_metadata_rational {
    int32_t numerator;
    int32_t denominator;
} camera_metadata_rational_t;

typedef struct camera_metadata_entry {
    size_t index;
    uint32_t tag;
    uint8_t type;
    size_t count;
    union {
        uint8_t* u8;
        int32_t* i32;
        float* f;
        int64_t* i64;
        double* d;
        camera_metadata_rational_t* r;
    } data;
} camera_metadata_entry_t;

typedef struct camera_metadata_ro_entry {
    size_t index;
    uint32_t tag;
    uint8_t type;
    size_t count;
    union {
        const uint8_t* u8;
        const int32_t* i32;
        const float* f;
        const int64_t* i64;
        const double* d;
        const camera_metadata_rational_t* r;
    } data;
} camera_metadata_ro_entry_t;

// Size in bytes of one value of each type.
extern const size_t camera_metadata_type_size[NUM_TYPES];

// The type of `tag`, or -1 for a tag the table does not know.
int get_camera_metadata_tag_type(uint32_t tag);
// "section.name" of a known tag ("android.lens.facing"), or null.
const char* get_camera_metadata_tag_name(uint32_t tag);

extern const char* camera_metadata_type_names[NUM_TYPES];

#ifdef __cplusplus
}
#endif
