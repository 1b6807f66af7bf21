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

class CameraMetadataTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::setLogEcho(false);
        host::clearCapturedLogs();
    }
};

TEST_F(CameraMetadataTest, EntriesKeepTheirTypeValuesAndInsertionIndex) {
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
    EXPECT_FALSE(metadata.isEmpty());
    EXPECT_EQ(metadata.entryCount(), 6u);

    const CameraMetadata& view = metadata;
    camera_metadata_ro_entry entry = view.find(ANDROID_SENSOR_ORIENTATION);
    EXPECT_EQ(entry.index, 0u);
    EXPECT_EQ(entry.type, TYPE_INT32);
    ASSERT_EQ(entry.count, 1u);
    EXPECT_EQ(entry.data.i32[0], 270);

    entry = view.find(ANDROID_LENS_FACING);
    EXPECT_EQ(entry.index, 1u);
    EXPECT_EQ(entry.type, TYPE_BYTE);
    ASSERT_EQ(entry.count, 1u);
    EXPECT_EQ(entry.data.u8[0], ANDROID_LENS_FACING_BACK);

    entry = view.find(ANDROID_SENSOR_EXPOSURE_TIME);
    ASSERT_EQ(entry.count, 2u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(entry.data.i64) % alignof(int64_t), 0u);
    EXPECT_EQ(entry.data.i64[0], -1);
    EXPECT_EQ(entry.data.i64[1], INT64_C(0x123456789abc));

    entry = view.find(ANDROID_JPEG_GPS_COORDINATES);
    ASSERT_EQ(entry.count, 3u);
    EXPECT_EQ(entry.data.d[2], 35.0);
    EXPECT_EQ(view.find(ANDROID_LENS_APERTURE).data.f[0], 1.8f);
    entry = view.find(ANDROID_SENSOR_BASE_GAIN_FACTOR);
    ASSERT_EQ(entry.count, 1u);
    EXPECT_EQ(entry.data.r[0].numerator, 3);
    EXPECT_EQ(entry.data.r[0].denominator, 7);
}

TEST_F(CameraMetadataTest, UpdateReplacesValuesInPlaceAndEraseRemoves) {
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

TEST_F(CameraMetadataTest, UpdatesOfTheWrongTypeOrAnUnknownTagAreRefused) {
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

    EXPECT_EQ(get_camera_metadata_tag_type(ANDROID_SENSOR_ORIENTATION), TYPE_INT32);
    EXPECT_EQ(get_camera_metadata_tag_type(ANDROID_LENS_FACING), TYPE_BYTE);
    EXPECT_EQ(get_camera_metadata_tag_type(0xDEAD0001u), -1);
}

TEST_F(CameraMetadataTest, CopiesAreIndependentAndEntriesCopyAcross) {
    CameraMetadata original;
    const int32_t orientation = 90;
    ASSERT_EQ(original.update(ANDROID_SENSOR_ORIENTATION, &orientation, 1), OK);

    CameraMetadata copy(original);
    const int32_t changed = 180;
    ASSERT_EQ(copy.update(ANDROID_SENSOR_ORIENTATION, &changed, 1), OK);
    EXPECT_EQ(original.find(ANDROID_SENSOR_ORIENTATION).data.i32[0], 90);

    CameraMetadata assigned;
    assigned = copy;
    EXPECT_EQ(assigned.find(ANDROID_SENSOR_ORIENTATION).data.i32[0], 180);

    CameraMetadata other;
    ASSERT_EQ(other.update(static_cast<const CameraMetadata&>(original).find(
                      ANDROID_SENSOR_ORIENTATION)),
              OK);
    EXPECT_EQ(other.find(ANDROID_SENSOR_ORIENTATION).data.i32[0], 90);

    CameraMetadata moved(std::move(assigned));
    EXPECT_EQ(moved.find(ANDROID_SENSOR_ORIENTATION).data.i32[0], 180);
}

}  // namespace
}  // namespace android
