// The image helpers below the operations, on records built here: the checks of gralloc 4 P010
// plane layouts, and the JPEG size of a null record.

#include <android/log.h>
#include <gtest/gtest.h>

#include <ui/HostPlaneLayouts.h>

#include "LibraryTestSupport.h"
#include "surface/ImageSupport.h"
#include "testsupport/JniTest.h"

namespace nuvra::test {
namespace {

using aidl::android::hardware::graphics::common::PlaneLayout;
using aidl::android::hardware::graphics::common::PlaneLayoutComponentType;
using android::GraphicBuffer;
using android::sp;

class ImageHelpersTest : public JniTest {};

TEST_F(ImageHelpersTest, JpegSizeOfANullRecordIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(Image_getJpegSize(nullptr, false), "Input buffer is nullptr!!!");
}

PlaneLayout plane(std::vector<std::tuple<PlaneLayoutComponentType, int, int>> components,
                  int64_t offset, int64_t increment, int64_t stride) {
    PlaneLayout p;
    for (auto [type, offsetInBits, sizeInBits] : components) {
        p.components.push_back(host::planeLayoutComponent(type, offsetInBits, sizeInBits));
    }
    p.offsetInBytes = offset;
    p.sampleIncrementInBits = increment;
    p.strideInBytes = stride;
    return p;
}

constexpr auto Y = PlaneLayoutComponentType::Y;
constexpr auto CB = PlaneLayoutComponentType::CB;
constexpr auto CR = PlaneLayoutComponentType::CR;

struct P010Case {
    const char* name;
    std::vector<PlaneLayout> layouts;
    android::status_t mapperStatus;
    android::status_t expected;
    const char* error;  // the refusal's line after "extractP010Gralloc4PlaneLayout: "
    int dumped;         // layouts dumped before the answer
};

TEST_F(ImageHelpersTest, P010PlaneLayoutsAreCheckedComponentByComponent) {
    const PlaneLayout luma = plane({{Y, 6, 10}}, 0, 16, 256);
    const PlaneLayout chroma = plane({{CB, 6, 10}, {CR, 22, 10}}, 8192, 32, 384);
    const P010Case cases[] = {
            {"luma and chroma", {luma, chroma}, 0, 0, nullptr, 2},
            {"Cr listed first",
             {chroma, plane({{CR, 22, 10}, {CB, 6, 10}}, 8192, 32, 384), luma},
             0,
             0,
             nullptr,
             3},
            {"no layouts", {}, 0, 0, nullptr, 0},
            {"mapper error", {luma}, -12, -12, "get plain layouts failed!(-12)", 0},
            {"8-bit samples",
             {plane({{Y, 0, 8}}, 0, 8, 256)},
             0,
             -22,
             "sizeInBits(8) of one of plane layout components is not 10",
             1},
            {"second component's size",
             {luma, plane({{CB, 6, 10}, {CR, 22, 12}}, 8192, 32, 384)},
             0,
             -22,
             "sizeInBits(12) of one of plane layout components is not 10",
             2},
            {"luma increment",
             {plane({{Y, 6, 10}}, 0, 8, 256)},
             0,
             -22,
             "sampleIncrementInBits(8) of y plane layout is not 16",
             1},
            {"luma offset",
             {plane({{Y, 0, 10}}, 0, 16, 256)},
             0,
             -22,
             "offsetInBits(0) of y component is not 6",
             1},
            {"chroma increment",
             {luma, plane({{CB, 6, 10}, {CR, 22, 10}}, 8192, 16, 384)},
             0,
             -22,
             "sampleIncrementInBits(16) of cbcr plane layout is not 32",
             2},
            {"Cb offset",
             {plane({{CB, 22, 10}, {CR, 6, 10}}, 8192, 32, 384)},
             0,
             -22,
             "offsetInBits(22) of cb component is not 6",
             1},
            {"Cr offset",
             {plane({{CR, 6, 10}, {CB, 22, 10}}, 8192, 32, 384)},
             0,
             -22,
             "offsetInBits(6) of cr component is not 22",
             1},
            {"RGB components",
             {plane({{PlaneLayoutComponentType::R, 0, 10},
                     {PlaneLayoutComponentType::G, 10, 10},
                     {PlaneLayoutComponentType::B, 20, 10}},
                    0, 32, 256)},
             0,
             -22,
             "unknown components(7168)",
             1},
            {"no components", {plane({}, 0, 16, 256)}, 0, -22, "unknown components(0)", 1},
            {"Cb alone", {plane({{CB, 6, 10}}, 0, 32, 256)}, 0, -22, "unknown components(2)", 1},
    };
    sp<GraphicBuffer> buffer = new GraphicBuffer(64, 32, HAL_PIXEL_FORMAT_YCBCR_P010, 1,
                                                 GRALLOC_USAGE_SW_READ_OFTEN, "test");
    ASSERT_EQ(buffer->initCheck(), 0);
    uint8_t base[1];  // only offset from, never read
    setLogLevel("V");
    for (const P010Case& c : cases) {
        SCOPED_TRACE(c.name);
        host::clearCapturedLogs();
        host::setPlaneLayoutOverride(c.mapperStatus, c.layouts);
        LockedBuffer out;
        ASSERT_EQ(extractP010Gralloc4PlaneLayout(buffer, base, 0x1234, &out), c.expected);
        std::vector<std::string> lines;
        for (int i = 0; i < c.dumped; ++i) {
            lines.push_back("2/NuvraSurfaceUtil: extractP010Gralloc4PlaneLayout: gralloc4 plane " +
                            c.layouts[i].toString());
        }
        if (c.error != nullptr) {
            lines.push_back(std::string("6/NuvraSurfaceUtil: extractP010Gralloc4PlaneLayout: ") +
                            c.error);
            EXPECT_EQ(out.flexFormat, 0);  // nothing written
            EXPECT_EQ(out.data, nullptr);
            EXPECT_EQ(out.chromaStep, 0u);
        } else {
            const bool planes = !c.layouts.empty();
            EXPECT_EQ(out.data, planes ? base : nullptr);
            EXPECT_EQ(out.dataCb, planes ? base + 8192 : nullptr);
            EXPECT_EQ(out.dataCr, planes ? base + 8194 : nullptr);
            EXPECT_EQ(out.stride, planes ? 256u : 0u);
            EXPECT_EQ(out.chromaStride, planes ? 384u : 0u);
            EXPECT_EQ(out.chromaStep, 4u);
            EXPECT_EQ(out.flexFormat, HAL_PIXEL_FORMAT_YCBCR_P010);
            EXPECT_EQ(out.format, 0x1234);
            EXPECT_EQ(out.width, 64u);
            EXPECT_EQ(out.height, 32u);
        }
        EXPECT_EQ(allLogLines(), lines);
    }
    // Without an override: what the host's gralloc 4 mapper says of its own P010 buffer.
    host::clearPlaneLayoutOverride();
    setLogLevel("D");
    host::GrallocLayout layout;
    ASSERT_TRUE(host::grallocLayoutOf(*buffer, &layout));
    LockedBuffer out;
    ASSERT_EQ(extractP010Gralloc4PlaneLayout(buffer, base, HAL_PIXEL_FORMAT_YCBCR_P010, &out), 0);
    EXPECT_EQ(out.dataCb, base + layout.planes[1].offset);
    EXPECT_EQ(out.chromaStride, layout.planes[1].strideBytes);
}

}  // namespace
}  // namespace nuvra::test
