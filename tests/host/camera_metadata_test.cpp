// android::CameraMetadata: typed entries, in-place updates, refused types, copies.

#include <camera/CameraMetadata.h>
#include <gtest/gtest.h>
#include <hostcontrol/LogCapture.h>

#include <cstring>

namespace android {
namespace {

bool logged(const std::string& tag, const std::string& fragment) {
    for (const host::LogLine& line : host::capturedLogs()) {
        if (line.tag == tag && line.text.find(fragment) != std::string::npos) return true;
    }
    return false;
}

TEST(CameraMetadataTest, EntriesKeepTheirTypeValuesAndInsertionIndex) {
    CameraMetadata metadata;
    EXPECT_TRUE(metadata.isEmpty());
    const int32_t orientation = 270;
    const uint8_t facing = ANDROID_LENS_FACING_BACK;
    const int64_t exposure[] = {-1, INT64_C(0x123456789abc)};
    const double gps[] = {48.85, 2.35, 35.0};
    const float aperture = 1.8f;
    const camera_metadata_rational_t gain = {3, 7};
    ASSERT_EQ(metadata.update(ANDROID_SENSOR_ORIENTATION, &orientation, 1), OK);
    ASSERT_EQ(metadata.update(ANDROID_LENS_FACING, &facing, 1), OK);
    ASSERT_EQ(metadata.update(ANDROID_SENSOR_EXPOSURE_TIME, exposure, 2), OK);
    ASSERT_EQ(metadata.update(ANDROID_JPEG_GPS_COORDINATES, gps, 3), OK);
    ASSERT_EQ(metadata.update(ANDROID_LENS_APERTURE, &aperture, 1), OK);
    ASSERT_EQ(metadata.update(ANDROID_SENSOR_BASE_GAIN_FACTOR, &gain, 1), OK);
    EXPECT_EQ(metadata.entryCount(), 6u);

    const struct {
        uint32_t tag;
        uint8_t type;
        size_t count;
        const void* values;
        size_t bytes;
    } entries[] = {
            {ANDROID_SENSOR_ORIENTATION, TYPE_INT32, 1, &orientation, sizeof(orientation)},
            {ANDROID_LENS_FACING, TYPE_BYTE, 1, &facing, sizeof(facing)},
            {ANDROID_SENSOR_EXPOSURE_TIME, TYPE_INT64, 2, exposure, sizeof(exposure)},
            {ANDROID_JPEG_GPS_COORDINATES, TYPE_DOUBLE, 3, gps, sizeof(gps)},
            {ANDROID_LENS_APERTURE, TYPE_FLOAT, 1, &aperture, sizeof(aperture)},
            {ANDROID_SENSOR_BASE_GAIN_FACTOR, TYPE_RATIONAL, 1, &gain, sizeof(gain)},
    };
    for (size_t i = 0; i < 6; ++i) {
        camera_metadata_ro_entry entry =
                static_cast<const CameraMetadata&>(metadata).find(entries[i].tag);
        EXPECT_EQ(entry.index, i);
        EXPECT_EQ(entry.type, entries[i].type);
        ASSERT_EQ(entry.count, entries[i].count);
        EXPECT_EQ(memcmp(entry.data.u8, entries[i].values, entries[i].bytes), 0) << i;
        // Values are read through the typed members: they must be aligned for their type.
        EXPECT_EQ(reinterpret_cast<uintptr_t>(entry.data.u8) % alignof(int64_t), 0u);
    }
}

TEST(CameraMetadataTest, UpdateReplacesValuesInPlaceAndEraseRemoves) {
    CameraMetadata metadata;
    const int32_t first[] = {0, 0, 4000, 3000};
    const int32_t second[] = {8, 8};
    const uint8_t facing = ANDROID_LENS_FACING_FRONT;
    ASSERT_EQ(metadata.update(ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE, first, 4), OK);
    ASSERT_EQ(metadata.update(ANDROID_LENS_FACING, &facing, 1), OK);
    ASSERT_EQ(metadata.update(ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE, second, 2), OK);

    EXPECT_EQ(metadata.entryCount(), 2u);
    camera_metadata_entry entry = metadata.find(ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE);
    EXPECT_EQ(entry.index, 0u);
    ASSERT_EQ(entry.count, 2u);
    EXPECT_EQ(entry.data.i32[0], 8);
    EXPECT_EQ(entry.data.i32[1], 8);

    // The writable entry writes through to the stored values.
    entry.data.i32[1] = 9;
    EXPECT_EQ(metadata.find(ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE).data.i32[1], 9);

    EXPECT_EQ(metadata.erase(ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE), OK);
    EXPECT_FALSE(metadata.exists(ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE));
    EXPECT_EQ(metadata.find(ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE).count, 0u);
    EXPECT_EQ(metadata.find(ANDROID_LENS_FACING).index, 0u);
    EXPECT_EQ(metadata.erase(ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE), OK);  // gone already

    // An entry may hold no values; it still exists.
    ASSERT_EQ(metadata.update(ANDROID_JPEG_ORIENTATION, static_cast<const int32_t*>(nullptr), 0),
              OK);
    EXPECT_TRUE(metadata.exists(ANDROID_JPEG_ORIENTATION));
    EXPECT_EQ(metadata.find(ANDROID_JPEG_ORIENTATION).count, 0u);

    metadata.clear();
    EXPECT_TRUE(metadata.isEmpty());
}

TEST(CameraMetadataTest, UpdatesOfTheWrongTypeOrAnUnknownTagAreRefused) {
    host::setLogEcho(false);
    host::clearCapturedLogs();
    CameraMetadata metadata;
    const uint8_t byteValue = 90;
    const int32_t intValue = 1;
    const int64_t longValue = 1;

    EXPECT_EQ(metadata.update(ANDROID_SENSOR_ORIENTATION, &byteValue, 1), INVALID_OPERATION);
    EXPECT_TRUE(logged("Camera2-Metadata", "android.sensor.orientation"));
    EXPECT_EQ(metadata.update(ANDROID_LENS_FACING, &intValue, 1), INVALID_OPERATION);
    EXPECT_EQ(metadata.update(ANDROID_SENSOR_TIMESTAMP, &intValue, 1), INVALID_OPERATION);
    EXPECT_EQ(metadata.update(ANDROID_SENSOR_SENSITIVITY, &longValue, 1), INVALID_OPERATION);
    EXPECT_TRUE(metadata.isEmpty());

    host::clearCapturedLogs();
    EXPECT_EQ(metadata.update(0xDEAD0001u, &intValue, 1), INVALID_OPERATION);
    EXPECT_TRUE(logged("Camera2-Metadata", "Unknown tag"));
    EXPECT_TRUE(metadata.isEmpty());

    // A refused update leaves an existing entry as it was.
    const int32_t orientation = 180;
    ASSERT_EQ(metadata.update(ANDROID_SENSOR_ORIENTATION, &orientation, 1), OK);
    EXPECT_EQ(metadata.update(ANDROID_SENSOR_ORIENTATION, &byteValue, 1), INVALID_OPERATION);
    EXPECT_EQ(metadata.find(ANDROID_SENSOR_ORIENTATION).data.i32[0], 180);
}

TEST(CameraMetadataTest, CopiesAreIndependentAndEntriesCopyAcross) {
    CameraMetadata original;
    const int32_t orientation = 90;
    ASSERT_EQ(original.update(ANDROID_SENSOR_ORIENTATION, &orientation, 1), OK);

    CameraMetadata copy(original);
    const int32_t changed = 180;
    ASSERT_EQ(copy.update(ANDROID_SENSOR_ORIENTATION, &changed, 1), OK);
    EXPECT_EQ(original.find(ANDROID_SENSOR_ORIENTATION).data.i32[0], 90);

    CameraMetadata other;
    ASSERT_EQ(other.update(static_cast<const CameraMetadata&>(original).find(
                      ANDROID_SENSOR_ORIENTATION)),
              OK);
    EXPECT_EQ(other.find(ANDROID_SENSOR_ORIENTATION).data.i32[0], 90);
}

}  // namespace
}  // namespace android
