// libcamera_client: android::CameraMetadata (typed entries, in-place updates, copies, refused
// types) and CameraUtils::getRotationTransform for every lens facing, sensor orientation and
// mirror mode.

#include <android/log.h>
#include <camera/CameraMetadata.h>
#include <camera/CameraUtils.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>
#include <hostcontrol/LogCapture.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace android {
namespace {

// Whether an error line of `tag` containing `fragment` was captured.
bool loggedError(const std::string& tag, const std::string& fragment) {
    const std::vector<host::LogLine> logs = host::capturedLogs();
    return std::any_of(logs.begin(), logs.end(), [&](const host::LogLine& l) {
        return l.tag == tag && l.priority == ANDROID_LOG_ERROR &&
               l.text.find(fragment) != std::string::npos;
    });
}

TEST(CameraMetadataTest, EntriesKeepTheirTypeValuesAndInsertionIndex) {
    CameraMetadata metadata;
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

TEST(CameraMetadataTest, UpdateReplacesInPlaceEraseRemovesAndCopiesAreIndependent) {
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
    EXPECT_EQ(std::vector<int32_t>(entry.data.i32, entry.data.i32 + entry.count),
              (std::vector<int32_t>{8, 8}));

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

    // A copy changes on its own; an entry of one copies into another.
    CameraMetadata copy(metadata), other;
    const uint8_t back = ANDROID_LENS_FACING_BACK;
    ASSERT_EQ(copy.update(ANDROID_LENS_FACING, &back, 1), OK);
    EXPECT_EQ(metadata.find(ANDROID_LENS_FACING).data.u8[0], ANDROID_LENS_FACING_FRONT);
    ASSERT_EQ(other.update(static_cast<const CameraMetadata&>(copy).find(ANDROID_LENS_FACING)), OK);
    EXPECT_EQ(other.find(ANDROID_LENS_FACING).data.u8[0], ANDROID_LENS_FACING_BACK);

    metadata.clear();
    EXPECT_TRUE(metadata.isEmpty());
    EXPECT_EQ(copy.entryCount(), 2u);
}

TEST(CameraMetadataTest, UpdatesOfTheWrongTypeOrAnUnknownTagAreRefused) {
    host::setLogEcho(false);
    host::clearCapturedLogs();
    CameraMetadata metadata;
    const uint8_t byteValue = 90;
    const int32_t intValue = 1;
    const int64_t longValue = 1;

    EXPECT_EQ(metadata.update(ANDROID_SENSOR_ORIENTATION, &byteValue, 1), INVALID_OPERATION);
    EXPECT_TRUE(loggedError("Camera2-Metadata", "android.sensor.orientation"));
    EXPECT_EQ(metadata.update(ANDROID_LENS_FACING, &intValue, 1), INVALID_OPERATION);
    EXPECT_EQ(metadata.update(ANDROID_SENSOR_TIMESTAMP, &intValue, 1), INVALID_OPERATION);
    EXPECT_EQ(metadata.update(ANDROID_SENSOR_SENSITIVITY, &longValue, 1), INVALID_OPERATION);
    EXPECT_TRUE(metadata.isEmpty());

    host::clearCapturedLogs();
    EXPECT_EQ(metadata.update(0xDEAD0001u, &intValue, 1), INVALID_OPERATION);
    EXPECT_TRUE(loggedError("Camera2-Metadata", "Unknown tag"));
    EXPECT_TRUE(metadata.isEmpty());

    // A refused update leaves an existing entry as it was.
    const int32_t orientation = 180;
    ASSERT_EQ(metadata.update(ANDROID_SENSOR_ORIENTATION, &orientation, 1), OK);
    EXPECT_EQ(metadata.update(ANDROID_SENSOR_ORIENTATION, &byteValue, 1), INVALID_OPERATION);
    EXPECT_EQ(metadata.find(ANDROID_SENSOR_ORIENTATION).data.i32[0], 180);
}

// Buffer transform bits, and lens facings.
constexpr int32_t kFlipH = 1, kFlipV = 2, kRot90 = 4, kRot180 = 3, kRot270 = 7;
constexpr int32_t kInverseDisplay = 8;
constexpr int kFront = 0, kBack = 1, kExternal = 2;

CameraMetadata staticInfo(int facing, int32_t orientation) {
    CameraMetadata metadata;
    const uint8_t facingByte = static_cast<uint8_t>(facing);
    EXPECT_EQ(metadata.update(ANDROID_SENSOR_ORIENTATION, &orientation, 1), OK);
    EXPECT_EQ(metadata.update(ANDROID_LENS_FACING, &facingByte, 1), OK);
    return metadata;
}

// The transform that puts the sensor's image upright: a flip (when mirrored) followed by the
// rotation. Flipping then rotating by 90 equals rotating by 270 then flipping, hence the
// mirrored rows pair 90 with ROT_270 and 270 with ROT_90. As plain bits, FLIP_H^ROT_270 is
// FLIP_V|ROT_90 (6), FLIP_H^ROT_180 is FLIP_V (2), FLIP_H^ROT_90 is FLIP_H|ROT_90 (5).
//   orientation:                      0       90               180              270
constexpr int32_t kUnmirrored[4] = {0, kRot90, kRot180, kRot270};
constexpr int32_t kFlippedH[4] = {kFlipH, kFlipH ^ kRot270, kFlipH ^ kRot180, kFlipH ^ kRot90};
constexpr int32_t kFlippedV[4] = {kFlipV, kFlipV ^ kRot270, kFlipV ^ kRot180, kFlipV ^ kRot90};

// A mirror mode that the platform does not know (9) mirrors nothing. (Transforms in plain numbers:
// SurfaceConfigurationTest.TransformsOfFacingOrientationAndMirrorMode in the library's tests.)
TEST(CameraRotationTransformTest, EveryFacingOrientationMirrorModeAndInverseDisplay) {
    for (int facing : {kFront, kBack, kExternal}) {
        for (int mode : std::initializer_list<int>{
                     CameraUtils::MIRROR_MODE_AUTO, CameraUtils::MIRROR_MODE_NONE,
                     CameraUtils::MIRROR_MODE_H, CameraUtils::MIRROR_MODE_V, 9}) {
            const bool flipH = mode == CameraUtils::MIRROR_MODE_H ||
                               (mode == CameraUtils::MIRROR_MODE_AUTO && facing == kFront);
            const int32_t* row = flipH                                ? kFlippedH
                                 : mode == CameraUtils::MIRROR_MODE_V ? kFlippedV
                                                                      : kUnmirrored;
            for (int index = 0; index < 4; ++index) {
                for (bool inverseDisplay : {false, true}) {
                    int32_t transform = -1;
                    ASSERT_EQ(CameraUtils::getRotationTransform(staticInfo(facing, index * 90),
                                                                mode, inverseDisplay, &transform),
                              OK);
                    EXPECT_EQ(transform, row[index] | (inverseDisplay ? kInverseDisplay : 0))
                            << facing << " " << index * 90 << " " << mode << " " << inverseDisplay;
                }
            }
        }
    }
}

class CameraRotationFailureTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::setLogEcho(false);
        host::resetFaultsAndCalls();
    }

    // The call refuses `metadata`, zeroing the transform, with `line` at error level.
    static void expectRefused(const CameraMetadata& metadata, int mirrorMode,
                              const std::string& line) {
        SCOPED_TRACE(line);
        host::clearCapturedLogs();
        int32_t transform = 99;
        EXPECT_EQ(CameraUtils::getRotationTransform(metadata, mirrorMode, true, &transform),
                  INVALID_OPERATION);
        EXPECT_EQ(transform, 0);
        EXPECT_TRUE(loggedError("CameraUtils", line));
    }
};

// Orientations other than right angles, in the unmirrored and the mirrored branch; missing
// entries, an entry without values counting as missing; no transform to write.
TEST_F(CameraRotationFailureTest, OddOrientationsAndMissingEntriesAreRejected) {
    for (int mirrorMode : {CameraUtils::MIRROR_MODE_NONE, CameraUtils::MIRROR_MODE_H}) {
        for (int32_t orientation : {45, -90, 360, 1}) {
            expectRefused(
                    staticInfo(kBack, orientation), mirrorMode,
                    "Invalid HAL android.sensor.orientation value: " + std::to_string(orientation));
        }
    }
    CameraMetadata noFacing = staticInfo(kBack, 90), noOrientation = staticInfo(kBack, 90),
                   emptyOrientation = staticInfo(kBack, 90);
    noFacing.erase(ANDROID_LENS_FACING);
    noOrientation.erase(ANDROID_SENSOR_ORIENTATION);
    ASSERT_EQ(emptyOrientation.update(ANDROID_SENSOR_ORIENTATION,
                                      static_cast<const int32_t*>(nullptr), 0),
              OK);
    expectRefused(noFacing, 0, "Can't find android.lens.facing");
    expectRefused(noOrientation, 0, "Can't find android.sensor.orientation");
    expectRefused(emptyOrientation, 0, "Can't find android.sensor.orientation");
    EXPECT_EQ(CameraUtils::getRotationTransform(staticInfo(kBack, 90), 0, true, nullptr),
              BAD_VALUE);
}

TEST_F(CameraRotationFailureTest, AnArmedFaultIsReturnedWithoutTouchingTheTransform) {
    host::injectFault("camera.getRotationTransform", -32);
    int32_t transform = 77;
    EXPECT_EQ(CameraUtils::getRotationTransform(staticInfo(kBack, 90), 0, true, &transform), -32);
    EXPECT_EQ(transform, 77);
    // Armed once: the next call works again.
    EXPECT_EQ(CameraUtils::getRotationTransform(staticInfo(kBack, 90), 0, true, &transform), OK);
    EXPECT_EQ(transform, kRot90 | kInverseDisplay);
    EXPECT_EQ(host::callCount("camera.getRotationTransform"), 2u);
}

}  // namespace
}  // namespace android
