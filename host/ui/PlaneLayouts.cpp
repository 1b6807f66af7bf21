// The host mapper's plane layouts per format, and the override tests install.

#include <hardware/gralloc_qcom.h>
#include <system/graphics.h>
#include <ui/HostPlaneLayouts.h>

#include <mutex>
#include <utility>

namespace host {
namespace {

using aidl::android::hardware::graphics::common::PlaneLayoutComponent;
using aidl::android::hardware::graphics::common::PlaneLayoutComponentType;
using android::ui::PlaneLayout;
using Type = PlaneLayoutComponentType;

constexpr const char* kStandardComponentTypeName =
        "android.hardware.graphics.common.PlaneLayoutComponentType";

// One component as (type, offset in bits, size in bits).
struct ComponentSpec {
    Type type;
    int64_t offsetInBits;
    int64_t sizeInBits;
};

PlaneLayout makePlane(const GrallocPlane& plane, std::initializer_list<ComponentSpec> components,
                      int64_t sampleIncrementInBits, int64_t widthInSamples,
                      int64_t heightInSamples, int64_t subsampling) {
    PlaneLayout layout;
    for (const ComponentSpec& c : components) {
        layout.components.push_back(planeLayoutComponent(c.type, c.offsetInBits, c.sizeInBits));
    }
    layout.offsetInBytes = static_cast<int64_t>(plane.offset);
    layout.sampleIncrementInBits = sampleIncrementInBits;
    layout.strideInBytes = plane.strideBytes;
    layout.widthInSamples = widthInSamples;
    layout.heightInSamples = heightInSamples;
    layout.totalSizeInBytes = int64_t{plane.strideBytes} * plane.rows;
    layout.horizontalSubsampling = subsampling;
    layout.verticalSubsampling = subsampling;
    return layout;
}

// Luma and interleaved chroma of a semi-planar layout with `bits`-bit components placed at
// `shift` in samples of `sampleBits` bits.
PlaneLayouts semiPlanar(const GrallocLayout& l, int64_t sampleBits, int64_t bits, int64_t shift) {
    const int64_t w = l.width;
    const int64_t h = l.height;
    const bool cbFirst = l.cbOffset < l.crOffset;
    const ComponentSpec first{cbFirst ? Type::CB : Type::CR, shift, bits};
    const ComponentSpec second{cbFirst ? Type::CR : Type::CB, sampleBits + shift, bits};
    return {makePlane(l.planes[0], {{Type::Y, shift, bits}}, sampleBits, w, h, 1),
            makePlane(l.planes[1], {first, second}, 2 * sampleBits, (w + 1) / 2, (h + 1) / 2, 2)};
}

PlaneLayouts singlePlane(const GrallocLayout& l, std::initializer_list<ComponentSpec> components,
                         int64_t sampleIncrementInBits) {
    return {makePlane(l.planes[0], components, sampleIncrementInBits, l.width, l.height, 1)};
}

std::mutex gOverrideMutex;
PlaneLayoutOverride gOverride;

}  // namespace

PlaneLayoutComponent planeLayoutComponent(PlaneLayoutComponentType type, int64_t offsetInBits,
                                          int64_t sizeInBits) {
    PlaneLayoutComponent component;
    component.type.name = kStandardComponentTypeName;
    component.type.value = static_cast<int64_t>(type);
    component.offsetInBits = offsetInBits;
    component.sizeInBits = sizeInBits;
    return component;
}

PlaneLayouts grallocPlaneLayouts(const GrallocLayout& l) {
    if (l.planes.empty()) return {};
    switch (l.format) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
            return singlePlane(
                    l, {{Type::R, 0, 8}, {Type::G, 8, 8}, {Type::B, 16, 8}, {Type::A, 24, 8}}, 32);
        case HAL_PIXEL_FORMAT_RGBX_8888:
            return singlePlane(l, {{Type::R, 0, 8}, {Type::G, 8, 8}, {Type::B, 16, 8}}, 32);
        case HAL_PIXEL_FORMAT_BGRA_8888:
            return singlePlane(
                    l, {{Type::B, 0, 8}, {Type::G, 8, 8}, {Type::R, 16, 8}, {Type::A, 24, 8}}, 32);
        case HAL_PIXEL_FORMAT_RGB_888:
            return singlePlane(l, {{Type::R, 0, 8}, {Type::G, 8, 8}, {Type::B, 16, 8}}, 24);
        case HAL_PIXEL_FORMAT_RGB_565:
            return singlePlane(l, {{Type::B, 0, 5}, {Type::G, 5, 6}, {Type::R, 11, 5}}, 16);
        case HAL_PIXEL_FORMAT_RGBA_FP16:
            return singlePlane(
                    l, {{Type::R, 0, 16}, {Type::G, 16, 16}, {Type::B, 32, 16}, {Type::A, 48, 16}},
                    64);
        case HAL_PIXEL_FORMAT_RGBA_1010102:
            return singlePlane(
                    l, {{Type::R, 0, 10}, {Type::G, 10, 10}, {Type::B, 20, 10}, {Type::A, 30, 2}},
                    32);
        case HAL_PIXEL_FORMAT_Y8:
            return singlePlane(l, {{Type::Y, 0, 8}}, 8);
        case HAL_PIXEL_FORMAT_Y16:
            return singlePlane(l, {{Type::Y, 0, 16}}, 16);
        case HAL_PIXEL_FORMAT_RAW16:
            return singlePlane(l, {{Type::RAW, 0, 16}}, 16);
        case HAL_PIXEL_FORMAT_RAW10:
            return singlePlane(l, {{Type::RAW, 0, 10}}, 0);
        case HAL_PIXEL_FORMAT_RAW12:
            return singlePlane(l, {{Type::RAW, 0, 12}}, 0);
        case HAL_PIXEL_FORMAT_RAW_OPAQUE:
            return singlePlane(l, {{Type::RAW, 0, 0}}, 0);
        case HAL_PIXEL_FORMAT_BLOB:
            return singlePlane(l, {}, 8);
        case HAL_PIXEL_FORMAT_YCBCR_P010:
            return semiPlanar(l, 16, 10, 6);
        case HAL_PIXEL_FORMAT_YCbCr_420_SP_16BIT:
            return semiPlanar(l, 16, 16, 0);
        case HAL_PIXEL_FORMAT_YV12: {
            const int64_t cw = (l.width + 1) / 2;
            const int64_t ch = l.height / 2;
            return {makePlane(l.planes[0], {{Type::Y, 0, 8}}, 8, l.width, l.height, 1),
                    makePlane(l.planes[1], {{Type::CR, 0, 8}}, 8, cw, ch, 2),
                    makePlane(l.planes[2], {{Type::CB, 0, 8}}, 8, cw, ch, 2)};
        }
        case HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC: {
            const int64_t w = l.width;
            const int64_t h = l.height;
            return {makePlane(l.planes[1], {{Type::Y, 0, 8}}, 0, w, h, 1),
                    makePlane(l.planes[3], {{Type::CB, 0, 8}, {Type::CR, 8, 8}}, 0, (w + 1) / 2,
                              (h + 1) / 2, 2)};
        }
        default:
            // The 8-bit semi-planar formats: NV21 and its vendor variants, flexible YUV, Venus.
            if (l.planes.size() == 2) return semiPlanar(l, 8, 8, 0);
            return {};
    }
}

void setPlaneLayoutOverride(PlaneLayoutOverride override) {
    std::lock_guard<std::mutex> guard(gOverrideMutex);
    gOverride = std::move(override);
}

void setPlaneLayoutOverride(android::status_t status, PlaneLayouts layouts) {
    setPlaneLayoutOverride([status, layouts](buffer_handle_t, PlaneLayouts* out) {
        *out = layouts;
        return status;
    });
}

void clearPlaneLayoutOverride() {
    setPlaneLayoutOverride(PlaneLayoutOverride());
}

// Used by GraphicBufferMapper: the override, if one is installed, applied to the host answer.
bool applyPlaneLayoutOverride(buffer_handle_t handle, PlaneLayouts* layouts,
                              android::status_t* status) {
    PlaneLayoutOverride override;
    {
        std::lock_guard<std::mutex> guard(gOverrideMutex);
        override = gOverride;
    }
    if (!override) return false;
    *status = override(handle, layouts);
    return true;
}

}  // namespace host
