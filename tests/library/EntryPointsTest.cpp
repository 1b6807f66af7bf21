// The exported entry points and the order of the dispatch table, through the shipped library.

#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <set>
#include <string>

#include <gui/BufferItem.h>

#include "LibraryTestSupport.h"
#include "testsupport/JniTest.h"

namespace nuvra::test {
namespace {

class EntryPointsTest : public JniTest {};

TEST_F(EntryPointsTest, OneObjectAndVersion8) {
    SurfaceNativeUtil* first = SurfaceNativeUtil_Get();
    ASSERT_NE(first, nullptr);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(SurfaceNativeUtil_Get(), first);
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

// Calls slot `index` of the object's dispatch table as a function of type Fn.
template <typename Fn, typename... Args>
auto callSlot(int index, Args... args) {
    SurfaceNativeUtil* object = SurfaceNativeUtil_Get();
    void** table = *reinterpret_cast<void***>(object);
    return reinterpret_cast<Fn>(table[index])(object, args...);
}

using ObjFn = int (*)(SurfaceNativeUtil*, JNIEnv*, jobject);
using ObjIntFn = int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, int);
using ObjObjFn = int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, jobject);

// Each slot is called with null objects and recognised by a line only its operation writes.
TEST_F(EntryPointsTest, EachSlotReachesTheOperationOfTheTable) {
    setLogLevel("V");
    struct Slot {
        int index;
        std::function<void()> call;
        std::string line;  // "P text"
    };
    JNIEnv* e = env;
    // The image operations get an image over a small BLOB buffer and a buffer to copy it into.
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
    const Slot slots[] = {
            {2,
             [&] {
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, jintArray)>(2, e, nullptr,
                                                                                    nullptr);
             },
             "6 nativeDetectSurfaceDimens: Null dimens argument passed to "
             "nativeDetectSurfaceDimens"},
            {3,
             [&] {
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, jobject, int, int, int)>(
                         3, e, nullptr, nullptr, 1, 1, 1);
             },
             "6 nativeProduceFrame: Could not retrieve native window from surface."},
            {4,
             [&] {
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, jlong, int, int)>(
                         4, e, nullptr, jlong{0}, 1, 1);
             },
             "6 nativeProduceFrameWithNV21: Could not retrieve native window from surface."},
            {5,
             [&] {
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, int, jboolean)>(
                         5, e, nullptr, 1, jboolean{0});
             },
             "6 nativeSetSurfaceFormat: Could not retrieve native window from surface."},
            {6,
             [&] {
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, int, int)>(6, e, nullptr, 1,
                                                                                   1);
             },
             "6 nativeSetSurfaceDimens: Could not retrieve native window from surface."},
            {7,
             [&] {
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, int, int)>(7, e, nullptr, 1,
                                                                                   1);
             },
             "2 nativeSetSurfaceOrientation"},
            {8, [&] { callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*)>(8, e); },
             "2 nativeGetJpegFooterSize"},
            {9,
             [&] {
                 jobjectArray planes =
                         e->NewObjectArray(0, e->FindClass("java/lang/Object"), nullptr);
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobjectArray, jobject, int, int,
                                  jintArray, jintArray)>(9, e, planes, nullptr, 1, 1,
                                                         e->NewIntArray(0), e->NewIntArray(0));
             },
             "6 nativeConvertFlexibleToNV21: YUV_422_888 should have 3 planes."},
            {10,
             [&] { callSlot<jobject (*)(SurfaceNativeUtil*, JNIEnv*, jobject)>(10, e, nullptr); },
             "2 nativeCreatePrivateSurface"},
            {11, [&] { callSlot<ObjIntFn>(11, e, nullptr, 1); },
             "6 nativeSetScalingMode: Could not retrieve native window from surface."},
            {12, [&] { callSlot<jlong (*)(SurfaceNativeUtil*, JNIEnv*, jobject)>(12, e, image); },
             "2 getNativeContext"},
            {13, [&] { callSlot<ObjFn>(13, e, image); }, "2 Image_getJpegSize"},
            {14, [&] { callSlot<jobject (*)(SurfaceNativeUtil*, JNIEnv*, jobject)>(14, e, image); },
             "2 nativeGetBufferfromImage"},
            {15, [&] { callSlot<ObjObjFn>(15, e, image, bytes); },
             "2 nativePutByteBufferFromImage"},
            {16, [&] { callSlot<ObjObjFn>(16, e, nullptr, nullptr); },
             "6 nativePutByteBufferFromSurface: Surface is nullptr"},
            {17, [&] { callSlot<ObjFn>(17, e, nullptr); },
             "6 nativeConnectSurface: Could not retrieve surface."},
            {18, [&] { callSlot<ObjFn>(18, e, nullptr); }, "2 nativeDisconnectSurface"},
            {19, [&] { callSlot<ObjObjFn>(19, e, nullptr, nullptr); },
             "6 nativeProduceFrameWithYuv420: Could not retrieve native window from surface."},
            {20,
             [&] {
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, jobject, int, int, int,
                                  int)>(20, e, nullptr, nullptr, 1, 1, 1, 1);
             },
             "6 nativeProduceFrameWithNV21FromBuffer: Could not retrieve native window from "
             "surface."},
            {21,
             [&] {
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, jlong)>(21, e, nullptr,
                                                                                jlong{1});
             },
             "6 nativeSetNextTimestamp: Could not retrieve native window from surface."},
            {22,
             [&] {
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, jlong)>(22, e, nullptr,
                                                                                jlong{1});
             },
             "6 nativeSetDequeueTimeout: Could not retrieve surface."},
            {23, [&] { callSlot<ObjFn>(23, e, image); }, "2 nativeGetDataSpaceFromImage"},
            {24, [&] { callSlot<ObjIntFn>(24, e, nullptr, 1); },
             "6 nativeSetDataSpaceToSurface: Could not retrieve native window from surface."},
            {25,
             [&] {
                 callSlot<int (*)(SurfaceNativeUtil*, JNIEnv*, jobject, int, int, int)>(
                         25, e, nullptr, 1, 1, 1);
             },
             "2 nativeSetSurfaceMirror"},
            {26, [&] { callSlot<ObjFn>(26, e, nullptr); },
             "6 nativeDetectSurfaceType: Could not retrieve native window from surface."},
            {27, [&] { callSlot<ObjFn>(27, e, nullptr); },
             "6 nativeDetectSurfaceDataspace: Could not retrieve native window from surface."},
            {28, [&] { callSlot<jlong (*)(SurfaceNativeUtil*, JNIEnv*, jobject)>(28, e, nullptr); },
             "6 nativeDetectSurfaceUsageFlags: Could not retrieve native window from surface."},
            {29, [&] { callSlot<ObjObjFn>(29, e, nullptr, nullptr); },
             "5 nativeProduceFrameToHardwareBuffer: HardwareBuffer already released!!!"},
    };
    for (const Slot& slot : slots) {
        host::clearCapturedLogs();
        slot.call();
        env->ExceptionClear();
        std::vector<std::string> lines;
        for (const host::LogLine& l : host::capturedLogs()) {
            if (l.tag == kSurfaceTag) lines.push_back(std::to_string(l.priority) + " " + l.text);
        }
        EXPECT_NE(std::find(lines.begin(), lines.end(), slot.line), lines.end())
                << "slot " << slot.index << " did not write \"" << slot.line << "\"";
    }
}

}  // namespace
}  // namespace nuvra::test
