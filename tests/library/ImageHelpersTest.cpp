// The image helpers below the operations, on records built here: the checks of gralloc 4 P010
// plane layouts, and the JPEG size of a null record.

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

// A plane of (type, offset in bits, size in bits) components; offset and stride matter only to
// the layouts that are accepted.
PlaneLayout plane(std::vector<std::tuple<PlaneLayoutComponentType, int, int>> components,
                  int64_t increment, int64_t offset = 0, int64_t stride = 256) {
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
constexpr auto R = PlaneLayoutComponentType::R, G = PlaneLayoutComponentType::G,
               B = PlaneLayoutComponentType::B;

// Each layout is dumped at verbose level before it is checked: a refusal ends the dumps.
TEST_F(ImageHelpersTest, P010PlaneLayoutsAreCheckedComponentByComponent) {
    const PlaneLayout luma = plane({{Y, 6, 10}}, 16);
    const PlaneLayout chroma = plane({{CB, 6, 10}, {CR, 22, 10}}, 32, 8192, 384);
    const struct {
        std::vector<PlaneLayout> layouts;
        const char* error;  // the refusal's line after "extractP010Gralloc4PlaneLayout: "
        int dumped = -1;    // layouts dumped before the answer; -1: all of them
        android::status_t mapperStatus = 0;
    } cases[] = {
            {{luma, chroma}, nullptr},
            {{chroma, plane({{CR, 22, 10}, {CB, 6, 10}}, 32, 8192, 384), luma}, nullptr},
            {{}, nullptr},
            {{luma}, "get plain layouts failed!(-12)", 0, -12},
            {{plane({{Y, 0, 8}}, 8)}, "sizeInBits(8) of one of plane layout components is not 10"},
            {{luma, plane({{CB, 6, 10}, {CR, 22, 12}}, 32)},
             "sizeInBits(12) of one of plane layout components is not 10"},
            {{plane({{Y, 6, 10}}, 8), chroma},
             "sampleIncrementInBits(8) of y plane layout is not 16",
             1},
            {{plane({{Y, 0, 10}}, 16)}, "offsetInBits(0) of y component is not 6"},
            {{luma, plane({{CB, 6, 10}, {CR, 22, 10}}, 16)},
             "sampleIncrementInBits(16) of cbcr plane layout is not 32"},
            {{plane({{CB, 22, 10}, {CR, 6, 10}}, 32)}, "offsetInBits(22) of cb component is not 6"},
            {{plane({{CR, 6, 10}, {CB, 22, 10}}, 32)}, "offsetInBits(6) of cr component is not 22"},
            {{plane({{R, 0, 10}, {G, 10, 10}, {B, 20, 10}}, 32)}, "unknown components(7168)"},
            {{plane({}, 16)}, "unknown components(0)"},
            {{plane({{CB, 6, 10}}, 32)}, "unknown components(2)"},
    };
    sp<GraphicBuffer> buffer = new GraphicBuffer(64, 32, HAL_PIXEL_FORMAT_YCBCR_P010, 1,
                                                 GRALLOC_USAGE_SW_READ_OFTEN, "test");
    ASSERT_EQ(buffer->initCheck(), 0);
    uint8_t base[8196];  // the planes are offsets into it; never read
    setLogLevel("V");
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases);
        host::clearCapturedLogs();
        host::setPlaneLayoutOverride(c.mapperStatus, c.layouts);
        LockedBuffer out;
        const android::status_t expected = c.mapperStatus ? c.mapperStatus : c.error ? -22 : 0;
        ASSERT_EQ(extractP010Gralloc4PlaneLayout(buffer, base, 0x1234, &out), expected);
        std::vector<std::string> lines;
        const size_t dumped = c.dumped < 0 ? c.layouts.size() : c.dumped;
        for (size_t i = 0; i < dumped; ++i) {
            lines.push_back("2/NuvraSurfaceUtil: extractP010Gralloc4PlaneLayout: gralloc4 plane " +
                            c.layouts[i].toString());
        }
        if (c.error != nullptr) {
            lines.push_back(std::string("6/NuvraSurfaceUtil: extractP010Gralloc4PlaneLayout: ") +
                            c.error);
            // Nothing written.
            EXPECT_EQ(std::tie(out.flexFormat, out.data, out.chromaStep),
                      std::make_tuple(0, nullptr, 0u));
        } else {
            // No layouts, no planes.
            using Planes = std::tuple<uint8_t*, uint8_t*, uint8_t*, uint32_t, uint32_t>;
            EXPECT_EQ(Planes(out.data, out.dataCb, out.dataCr, out.stride, out.chromaStride),
                      c.layouts.empty() ? Planes()
                                        : Planes(base, base + 8192, base + 8194, 256, 384));
            EXPECT_EQ(std::tie(out.chromaStep, out.flexFormat, out.format, out.width, out.height),
                      std::make_tuple(4u, HAL_PIXEL_FORMAT_YCBCR_P010, 0x1234, 64u, 32u));
        }
        EXPECT_EQ(allLogLines(), lines);
    }
}

}  // namespace
}  // namespace nuvra::test
