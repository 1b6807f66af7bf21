// The gralloc 4 mapper's plane layouts (GraphicBufferMapper::getPlaneLayouts) and the override.

#include <gtest/gtest.h>
#include <hardware/gralloc_qcom.h>
#include <hostcontrol/FaultInjection.h>
#include <ui/GraphicBuffer.h>
#include <ui/GraphicBufferMapper.h>
#include <ui/HostPlaneLayouts.h>

#include "ui_test_support.h"

namespace {

using aidl::android::hardware::graphics::common::PlaneLayoutComponent;
using aidl::android::hardware::graphics::common::PlaneLayoutComponentType;
using android::BAD_VALUE;
using android::GraphicBuffer;
using android::GraphicBufferMapper;
using android::OK;
using android::sp;
using android::ui::PlaneLayout;
using hosttest::ScopedProfile;

constexpr int64_t kY = static_cast<int64_t>(PlaneLayoutComponentType::Y);
constexpr int64_t kCb = static_cast<int64_t>(PlaneLayoutComponentType::CB);
constexpr int64_t kCr = static_cast<int64_t>(PlaneLayoutComponentType::CR);

class MapperTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::resetFaultsAndCalls();
        host::clearPlaneLayoutOverride();
    }
    void TearDown() override { host::clearPlaneLayoutOverride(); }

    static std::vector<PlaneLayout> layoutsOf(const sp<GraphicBuffer>& buffer,
                                              android::status_t expected = OK) {
        std::vector<PlaneLayout> layouts;
        EXPECT_EQ(GraphicBufferMapper::get().getPlaneLayouts(buffer->handle, &layouts), expected);
        return layouts;
    }
};

// The byte address a component's first sample has, by the layouts; null when no plane has it.
const uint8_t* componentAddress(const std::vector<PlaneLayout>& layouts, int64_t type,
                                const uint8_t* base, const PlaneLayout** plane) {
    for (const PlaneLayout& layout : layouts) {
        for (const PlaneLayoutComponent& c : layout.components) {
            if (c.type.value != type) continue;
            EXPECT_EQ(c.type.name, "android.hardware.graphics.common.PlaneLayoutComponentType");
            *plane = &layout;
            return base + layout.offsetInBytes + c.offsetInBits / 8;
        }
    }
    return nullptr;
}

// For every format and both kinds of layout, the mapper's planes describe the same memory as
// the buffer's locks: the YCbCr lock's plane addresses, strides and chroma step, or the plain
// lock's bytes per pixel and per row; and every plane lies inside the allocation.
TEST_F(MapperTest, LayoutsAgreeWithTheLocksForEveryFormatAndProfile) {
    for (const char* profile : {"packed-nv21", "phone-qcom", "phone-nv21", "packed-qcom"}) {
        ScopedProfile scoped(profile);
        ASSERT_TRUE(scoped.ok);
        for (int32_t format : host::grallocFormats()) {
            SCOPED_TRACE(std::string(profile) + " " + host::grallocFormatName(format));
            const uint32_t height = format == HAL_PIXEL_FORMAT_BLOB ? 1 : 30;
            sp<GraphicBuffer> buffer(
                    new GraphicBuffer(50, height, format, 1, GRALLOC_USAGE_SW_READ_OFTEN));
            ASSERT_EQ(buffer->initCheck(), OK);
            host::GrallocLayout gl;
            ASSERT_TRUE(host::grallocLayoutOf(*buffer, &gl));
            std::vector<PlaneLayout> layouts = layoutsOf(buffer);
            ASSERT_FALSE(layouts.empty());
            for (const PlaneLayout& l : layouts) {
                EXPECT_GE(l.offsetInBytes, 0);
                EXPECT_LE(static_cast<size_t>(l.offsetInBytes + l.totalSizeInBytes), gl.size);
                EXPECT_GE(l.totalSizeInBytes, l.strideInBytes * l.heightInSamples);
            }

            void* base = nullptr;
            int32_t bytesPerPixel = 0;
            int32_t bytesPerStride = 0;
            ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &base, &bytesPerPixel,
                                   &bytesPerStride),
                      OK);
            ASSERT_EQ(buffer->unlock(), OK);
            const auto* b = static_cast<const uint8_t*>(base);
            // A YCbCr lock that describes chroma is compared plane by plane; everything else
            // as one plane.
            android_ycbcr ycbcr{};
            const bool described = buffer->lockYCbCr(GRALLOC_USAGE_SW_READ_OFTEN, &ycbcr) == OK;
            if (described) {
                ASSERT_EQ(buffer->unlock(), OK);
            }
            if (described && ycbcr.cb != nullptr) {
                const PlaneLayout* yPlane = nullptr;
                const PlaneLayout* cbPlane = nullptr;
                const PlaneLayout* crPlane = nullptr;
                EXPECT_EQ(componentAddress(layouts, kY, b, &yPlane), ycbcr.y);
                EXPECT_EQ(componentAddress(layouts, kCb, b, &cbPlane), ycbcr.cb);
                EXPECT_EQ(componentAddress(layouts, kCr, b, &crPlane), ycbcr.cr);
                ASSERT_TRUE(yPlane && cbPlane && crPlane);
                EXPECT_EQ(yPlane->strideInBytes, static_cast<int64_t>(ycbcr.ystride));
                EXPECT_EQ(cbPlane->strideInBytes, static_cast<int64_t>(ycbcr.cstride));
                EXPECT_EQ(crPlane->strideInBytes, static_cast<int64_t>(ycbcr.cstride));
                EXPECT_EQ(cbPlane->sampleIncrementInBits / 8,
                          static_cast<int64_t>(ycbcr.chroma_step));
                EXPECT_EQ(cbPlane->horizontalSubsampling, 2);
                EXPECT_EQ(cbPlane->widthInSamples, 25);
                EXPECT_EQ(cbPlane->heightInSamples, 15);
            } else if (bytesPerStride > 0 && format != HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC) {
                ASSERT_EQ(layouts.size(), 1u);
                EXPECT_EQ(layouts[0].offsetInBytes, 0);
                EXPECT_EQ(layouts[0].strideInBytes, bytesPerStride);
                EXPECT_EQ(layouts[0].widthInSamples, 50);
                if (bytesPerPixel > 0 && layouts[0].sampleIncrementInBits != 0) {
                    EXPECT_EQ(layouts[0].sampleIncrementInBits, 8 * bytesPerPixel);
                }
            }
        }
    }
}

// P010 as a gralloc 4 mapper describes it: 10-bit samples in the high bits of 16-bit words,
// chroma Cb first, on the host's real offsets and strides.
TEST_F(MapperTest, P010HasTenBitComponentsAtTheirOffsets) {
    struct Case {
        const char* profile;
        uint32_t width, height;
        int64_t strideBytes, lumaRows;
    };
    const Case cases[] = {
            {"packed-nv21", 64, 48, 128, 48},
            {"packed-qcom", 33, 17, 68, 17},
            {"phone-nv21", 1000, 750, 2048, 752},
            {"phone-qcom", 33, 17, 128, 32},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.profile);
        ScopedProfile scoped(c.profile);
        sp<GraphicBuffer> buffer(new GraphicBuffer(c.width, c.height, HAL_PIXEL_FORMAT_YCBCR_P010,
                                                   1, GRALLOC_USAGE_SW_READ_OFTEN));
        ASSERT_EQ(buffer->initCheck(), OK);
        std::vector<PlaneLayout> layouts = layoutsOf(buffer);
        ASSERT_EQ(layouts.size(), 2u);
        const PlaneLayout& y = layouts[0];
        const PlaneLayout& uv = layouts[1];
        ASSERT_EQ(y.components.size(), 1u);
        EXPECT_EQ(y.components[0], host::planeLayoutComponent(PlaneLayoutComponentType::Y, 6, 10));
        EXPECT_EQ(y.sampleIncrementInBits, 16);
        EXPECT_EQ(y.offsetInBytes, 0);
        EXPECT_EQ(y.strideInBytes, c.strideBytes);
        ASSERT_EQ(uv.components.size(), 2u);
        EXPECT_EQ(uv.components[0],
                  host::planeLayoutComponent(PlaneLayoutComponentType::CB, 6, 10));
        EXPECT_EQ(uv.components[1],
                  host::planeLayoutComponent(PlaneLayoutComponentType::CR, 22, 10));
        EXPECT_EQ(uv.sampleIncrementInBits, 32);
        EXPECT_EQ(uv.offsetInBytes, c.strideBytes * c.lumaRows);
        EXPECT_EQ(uv.strideInBytes, c.strideBytes);
        EXPECT_EQ(uv.heightInSamples, (c.height + 1) / 2);
    }
}

TEST_F(MapperTest, ToStringIsTheGeneratedPrinterText) {
    PlaneLayout layout;
    layout.components = {host::planeLayoutComponent(PlaneLayoutComponentType::CB, 6, 10),
                         host::planeLayoutComponent(PlaneLayoutComponentType::CR, 22, 10)};
    layout.offsetInBytes = 7680;
    layout.sampleIncrementInBits = 32;
    layout.strideInBytes = 128;
    layout.widthInSamples = 32;
    layout.heightInSamples = -24;
    layout.totalSizeInBytes = 3072;
    layout.horizontalSubsampling = 2;
    layout.verticalSubsampling = 2;
    EXPECT_EQ(layout.toString(),
              "PlaneLayout{components: [PlaneLayoutComponent{type: ExtendableType{name: "
              "android.hardware.graphics.common.PlaneLayoutComponentType, value: 2}, "
              "offsetInBits: 6, sizeInBits: 10}, PlaneLayoutComponent{type: ExtendableType{name: "
              "android.hardware.graphics.common.PlaneLayoutComponentType, value: 4}, "
              "offsetInBits: 22, sizeInBits: 10}], offsetInBytes: 7680, sampleIncrementInBits: "
              "32, strideInBytes: 128, widthInSamples: 32, heightInSamples: -24, "
              "totalSizeInBytes: 3072, horizontalSubsampling: 2, verticalSubsampling: 2}");
    EXPECT_EQ(PlaneLayout().toString(),
              "PlaneLayout{components: [], offsetInBytes: 0, sampleIncrementInBits: 0, "
              "strideInBytes: 0, widthInSamples: 0, heightInSamples: 0, totalSizeInBytes: 0, "
              "horizontalSubsampling: 0, verticalSubsampling: 0}");
    EXPECT_EQ(toString(PlaneLayoutComponentType::RAW), "RAW");
    EXPECT_EQ(toString(static_cast<PlaneLayoutComponentType>(3)), "3");
}

// Overrides see the host's answer and replace it; errors come from the override, the fault
// point, or a handle the gralloc does not know; clearing restores the host's answer.
TEST_F(MapperTest, OverridesAndErrorsReplaceTheAnswer) {
    sp<GraphicBuffer> buffer(
            new GraphicBuffer(64, 48, HAL_PIXEL_FORMAT_YCBCR_P010, 1, GRALLOC_USAGE_SW_READ_OFTEN));
    const std::vector<PlaneLayout> own = layoutsOf(buffer);

    buffer_handle_t seen = nullptr;
    host::setPlaneLayoutOverride([&](buffer_handle_t handle, host::PlaneLayouts* layouts) {
        seen = handle;
        EXPECT_EQ(*layouts, own);
        std::swap((*layouts)[1].components[0], (*layouts)[1].components[1]);
        return OK;
    });
    std::vector<PlaneLayout> swapped = layoutsOf(buffer);
    EXPECT_EQ(seen, buffer->handle);
    ASSERT_EQ(swapped.size(), 2u);
    EXPECT_EQ(swapped[1].components[0].type.value, kCr);

    host::setPlaneLayoutOverride(OK, {});
    EXPECT_TRUE(layoutsOf(buffer).empty());

    std::vector<PlaneLayout> untouched = own;
    host::setPlaneLayoutOverride(android::NO_MEMORY, {PlaneLayout()});
    EXPECT_EQ(GraphicBufferMapper::get().getPlaneLayouts(buffer->handle, &untouched),
              android::NO_MEMORY);
    EXPECT_EQ(untouched, own);

    host::clearPlaneLayoutOverride();
    EXPECT_EQ(layoutsOf(buffer), own);

    host::clearRecordedCalls();
    host::injectFault("mapper.getPlaneLayouts", -EIO);
    EXPECT_EQ(GraphicBufferMapper::get().getPlaneLayouts(buffer->handle, &untouched), -EIO);
    EXPECT_EQ(host::callCount("mapper.getPlaneLayouts"), 1u);

    native_handle_t* foreign = native_handle_create(0, 1);
    EXPECT_EQ(GraphicBufferMapper::get().getPlaneLayouts(foreign, &untouched), BAD_VALUE);
    EXPECT_EQ(GraphicBufferMapper::get().getPlaneLayouts(nullptr, &untouched), BAD_VALUE);
    native_handle_delete(foreign);
    EXPECT_EQ(&GraphicBufferMapper::get(), &GraphicBufferMapper::getInstance());
}

}  // namespace
