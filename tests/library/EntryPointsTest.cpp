// The exported entry points and the order of the dispatch table, through the shipped library.

#include <android/log.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <type_traits>

#include <gui/BufferItem.h>

#include "LibraryTestSupport.h"
#include "testsupport/JniTest.h"

namespace nuvra::test {
namespace {

using S = SurfaceNativeUtil;

class EntryPointsTest : public JniTest {
protected:
    // Calls slot `index` of the object's table with the parameters that `method` declares and
    // checks that its operation wrote each of `lines` ("<priority> <text>"). An operation that
    // could not retrieve its Surface returns BAD_VALUE with the lookup's exception pending.
    template <typename R, typename... P, typename... A>
    void checkSlot(int index, R (S::*method)(JNIEnv*, P...), const std::vector<std::string>& lines,
                   A... args) {
        SCOPED_TRACE(::testing::Message() << "slot " << index);
        host::clearCapturedLogs();
        S* object = util();
        void** table = *reinterpret_cast<void***>(object);
        [[maybe_unused]] R result = reinterpret_cast<R (*)(S*, JNIEnv*, P...)>(table[index])(
                object, env, static_cast<P>(args)...);
        std::optional<JavaException> thrown = takePendingException(env);
        bool lookupFailed = false;
        for (const std::string& line : lines) {
            EXPECT_TRUE(logged(kSurfaceTag, line[0] - '0', line.substr(2))) << line;
            lookupFailed |= line.find("Could not retrieve") != std::string::npos;
        }
        if (!lookupFailed) return;
        if constexpr (std::is_integral_v<R>) {
            EXPECT_EQ(result, -22);
        }
        ASSERT_TRUE(thrown.has_value());
        EXPECT_EQ(describe(*thrown), "java.lang.NullPointerException: surface");
    }
};

TEST_F(EntryPointsTest, OneObjectAndVersion8) {
    ASSERT_NE(SurfaceNativeUtil_Get(), nullptr);
    EXPECT_EQ(SurfaceNativeUtil_Get(), SurfaceNativeUtil_Get());
    EXPECT_EQ(SurfaceNativeUtil_GetVersion(), 8);
}

// The two entry points and the OpenCL function table (wrapper::<name>, as mangled).
TEST_F(EntryPointsTest, OnlyTheEntryPointsAndTheOpenClTableAreExported) {
    std::string command = "nm -D --defined-only '" NUVRA_LIBRARY_PATH "'";
    FILE* nm = popen(command.c_str(), "r");
    ASSERT_NE(nm, nullptr);
    std::set<std::string> symbols;
    char line[512];
    while (fgets(line, sizeof(line), nm) != nullptr) {
        char type = 0;
        char name[400] = {};
        if (sscanf(line, "%*s %c %399s", &type, name) == 2) symbols.insert(name);
    }
    ASSERT_EQ(pclose(nm), 0);
    std::set<std::string> expected{"SurfaceNativeUtil_Get", "SurfaceNativeUtil_GetVersion"};
#define X(name) expected.insert("_ZN7wrapper" + std::to_string(sizeof(#name) - 1) + #name "E");
#include "opencl/clFunctions.def"
#undef X
    EXPECT_EQ(expected.size(), 115u);
    EXPECT_EQ(symbols, expected);
}

// Each slot is called with null objects and recognised by a line only its operation writes. The
// image operations get an image over a small BLOB buffer and a buffer to copy it into.
TEST_F(EntryPointsTest, EachSlotReachesTheOperationOfTheTable) {
    setLogLevel("V");
    android::BufferItem item;
    item.mGraphicBuffer = new android::GraphicBuffer(64, 1, HAL_PIXEL_FORMAT_BLOB, 1,
                                                     GRALLOC_USAGE_SW_READ_OFTEN, "test");
    item.mFence = android::Fence::NO_FENCE;
    jclass imageClass = env->FindClass("android/media/ImageReader$SurfaceImage");
    jobject image = env->AllocObject(imageClass);
    env->SetLongField(image, env->GetFieldID(imageClass, "mNativeBuffer", "J"),
                      reinterpret_cast<jlong>(&item));
    uint8_t copy[64];
    jobject bytes = env->NewDirectByteBuffer(copy, sizeof(copy));
    const std::string nw = ": Could not retrieve native window from surface.";  // no window
    checkSlot(2, &S::nativeDetectSurfaceDimens,
              {"6 nativeDetectSurfaceDimens: Null dimens argument passed to "
               "nativeDetectSurfaceDimens"},
              nullptr, nullptr);
    checkSlot(3, &S::nativeProduceFrame, {"6 nativeProduceFrame" + nw}, nullptr, nullptr, 1, 1, 1);
    checkSlot(4, &S::nativeProduceFrameWithNV21, {"6 nativeProduceFrameWithNV21" + nw}, nullptr, 0,
              1, 1);
    checkSlot(5, &S::nativeSetSurfaceFormat, {"6 nativeSetSurfaceFormat" + nw}, nullptr, 1, 0);
    checkSlot(6, &S::nativeSetSurfaceDimens, {"6 nativeSetSurfaceDimens" + nw}, nullptr, 1, 1);
    checkSlot(7, &S::nativeSetSurfaceOrientation,
              {"2 nativeSetSurfaceOrientation", "6 nativeSetSurfaceTransform" + nw}, nullptr, 1, 1);
    checkSlot(8, &S::nativeGetJpegFooterSize, {"2 nativeGetJpegFooterSize"});
    checkSlot(9, &S::nativeConvertFlexibleToNV21,
              {"6 nativeConvertFlexibleToNV21: YUV_422_888 should have 3 planes."},
              env->NewObjectArray(0, env->FindClass("java/lang/Object"), nullptr), nullptr, 1, 1,
              env->NewIntArray(0), env->NewIntArray(0));
    checkSlot(10, &S::nativeCreatePrivateSurface, {"2 nativeCreatePrivateSurface"}, nullptr);
    checkSlot(11, &S::nativeSetScalingMode, {"6 nativeSetScalingMode" + nw}, nullptr, 1);
    checkSlot(12, &S::nativeGetNativeContext, {"2 getNativeContext"}, image);
    checkSlot(13, &S::nativeGetJpegSize, {"2 Image_getJpegSize"}, image);
    checkSlot(14, &S::nativeGetBufferfromImage, {"2 nativeGetBufferfromImage"}, image);
    checkSlot(15, &S::nativePutByteBufferFromImage, {"2 nativePutByteBufferFromImage"}, image,
              bytes);
    checkSlot(16, &S::nativePutByteBufferFromSurface,
              {"6 nativePutByteBufferFromSurface: Surface is nullptr"}, nullptr, nullptr);
    checkSlot(17, &S::nativeConnectSurface, {"6 nativeConnectSurface: Could not retrieve surface."},
              nullptr);
    checkSlot(18, &S::nativeDisconnectSurface, {"2 nativeDisconnectSurface"}, nullptr);
    checkSlot(19, &S::nativeProduceFrameWithYuv420, {"6 nativeProduceFrameWithYuv420" + nw},
              nullptr, nullptr);
    checkSlot(20, &S::nativeProduceFrameWithNV21FromBuffer,
              {"6 nativeProduceFrameWithNV21FromBuffer" + nw}, nullptr, nullptr, 1, 1, 1, 1);
    checkSlot(21, &S::nativeSetNextTimestamp, {"6 nativeSetNextTimestamp" + nw}, nullptr, 1);
    checkSlot(22, &S::nativeSetDequeueTimeout,
              {"6 nativeSetDequeueTimeout: Could not retrieve surface."}, nullptr, 1);
    checkSlot(23, &S::nativeGetDataSpaceFromImage, {"2 nativeGetDataSpaceFromImage"}, image);
    checkSlot(24, &S::nativeSetDataSpaceToSurface, {"6 nativeSetDataSpaceToSurface" + nw}, nullptr,
              1);
    checkSlot(25, &S::nativeSetSurfaceMirror,
              {"2 nativeSetSurfaceMirror", "6 nativeSetSurfaceTransform" + nw}, nullptr, 1, 1, 1);
    checkSlot(26, &S::nativeDetectSurfaceType, {"6 nativeDetectSurfaceType" + nw}, nullptr);
    checkSlot(27, &S::nativeDetectSurfaceDataspace, {"6 nativeDetectSurfaceDataspace" + nw},
              nullptr);
    checkSlot(28, &S::nativeDetectSurfaceUsageFlags, {"6 nativeDetectSurfaceUsageFlags" + nw},
              nullptr);
    checkSlot(29, &S::nativeProduceFrameToHardwareBuffer,
              {"5 nativeProduceFrameToHardwareBuffer: HardwareBuffer already released!!!"}, nullptr,
              nullptr);
}

}  // namespace
}  // namespace nuvra::test
