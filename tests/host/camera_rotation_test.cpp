// CameraUtils::getRotationTransform for every lens facing, sensor orientation and mirror mode.

#include <camera/CameraUtils.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>
#include <hostcontrol/LogCapture.h>

#include <string>

namespace android {
namespace {

// Buffer transform bits.
constexpr int32_t kFlipH = 1;
constexpr int32_t kFlipV = 2;
constexpr int32_t kRot90 = 4;
constexpr int32_t kRot180 = 3;
constexpr int32_t kRot270 = 7;
constexpr int32_t kInverseDisplay = 8;

constexpr int kFront = 0;
constexpr int kBack = 1;
constexpr int kExternal = 2;

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

TEST(CameraRotationTransformTest, EveryFacingOrientationMirrorModeAndInverseDisplay) {
    for (int facing : {kFront, kBack, kExternal}) {
        for (int mode : {CameraUtils::MIRROR_MODE_AUTO, CameraUtils::MIRROR_MODE_NONE,
                         CameraUtils::MIRROR_MODE_H, CameraUtils::MIRROR_MODE_V}) {
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
                            << "facing " << facing << ", orientation " << index * 90
                            << ", mirror mode " << mode << ", inverse display " << inverseDisplay;
                }
            }
        }
    }
}

// A mirrored front camera at 270 degrees, in plain numbers (the table above is derived), and a
// mirror mode the platform does not know, which mirrors nothing.
TEST(CameraRotationTransformTest, SpotValues) {
    int32_t transform = 0;
    ASSERT_EQ(CameraUtils::getRotationTransform(staticInfo(kFront, 270),
                                                CameraUtils::MIRROR_MODE_AUTO, true, &transform),
              OK);
    EXPECT_EQ(transform, 5 | 8);  // FLIP_H|ROT_90, inverse display
    ASSERT_EQ(CameraUtils::getRotationTransform(staticInfo(kFront, 180), 9, false, &transform), OK);
    EXPECT_EQ(transform, 3);
}

class CameraRotationFailureTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::setLogEcho(false);
        host::clearCapturedLogs();
        host::resetFaultsAndCalls();
    }
    void TearDown() override { host::resetFaultsAndCalls(); }

    static bool loggedError(const std::string& fragment) {
        for (const host::LogLine& line : host::capturedLogs()) {
            if (line.priority == 6 && line.tag == "CameraUtils" &&
                line.text.find(fragment) != std::string::npos) {
                return true;
            }
        }
        return false;
    }
};

TEST_F(CameraRotationFailureTest, OrientationsOtherThanRightAnglesAreRejected) {
    for (int mirrorMode : {CameraUtils::MIRROR_MODE_NONE, CameraUtils::MIRROR_MODE_H}) {
        for (int32_t orientation : {45, -90, 360, 1}) {
            int32_t transform = 99;
            EXPECT_EQ(CameraUtils::getRotationTransform(staticInfo(kBack, orientation), mirrorMode,
                                                        true, &transform),
                      INVALID_OPERATION)
                    << orientation;
            EXPECT_EQ(transform, 0) << orientation;
        }
    }
    EXPECT_TRUE(loggedError("Invalid HAL android.sensor.orientation value: 45"));
}

// Each missing entry is refused with its log line; an entry without values counts as missing.
TEST_F(CameraRotationFailureTest, MissingEntriesAreRejected) {
    CameraMetadata onlyOrientation = staticInfo(kBack, 90);
    onlyOrientation.erase(ANDROID_LENS_FACING);
    CameraMetadata onlyFacing = staticInfo(kBack, 90);
    onlyFacing.erase(ANDROID_SENSOR_ORIENTATION);
    CameraMetadata emptyOrientation = staticInfo(kBack, 90);
    ASSERT_EQ(emptyOrientation.update(ANDROID_SENSOR_ORIENTATION,
                                      static_cast<const int32_t*>(nullptr), 0),
              OK);
    const std::pair<const CameraMetadata*, const char*> cases[] = {
            {&onlyFacing, "Can't find android.sensor.orientation"},
            {&onlyOrientation, "Can't find android.lens.facing"},
            {&emptyOrientation, "Can't find android.sensor.orientation"},
    };
    for (const auto& [metadata, line] : cases) {
        host::clearCapturedLogs();
        int32_t transform = 99;
        EXPECT_EQ(CameraUtils::getRotationTransform(*metadata, 0, true, &transform),
                  INVALID_OPERATION)
                << line;
        EXPECT_EQ(transform, 0);
        EXPECT_TRUE(loggedError(line));
    }
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
