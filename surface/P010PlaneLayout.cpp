// The luma and chroma planes of a P010 buffer, from its gralloc 4 plane layouts: 10-bit samples
// in the high bits of 16-bit words, luma then interleaved Cb,Cr.

#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponent.h>
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <system/graphics.h>
#include <ui/GraphicBufferMapper.h>

#include <vector>

#include "ImageSupport.h"
#include "SurfaceLog.h"

using aidl::android::hardware::graphics::common::PlaneLayout;
using aidl::android::hardware::graphics::common::PlaneLayoutComponent;
using aidl::android::hardware::graphics::common::PlaneLayoutComponentType;
using android::GraphicBuffer;
using android::sp;
using android::status_t;

namespace {

constexpr const char* kName = "extractP010Gralloc4PlaneLayout";

constexpr int64_t kY = static_cast<int64_t>(PlaneLayoutComponentType::Y);
constexpr int64_t kCb = static_cast<int64_t>(PlaneLayoutComponentType::CB);
constexpr int64_t kCr = static_cast<int64_t>(PlaneLayoutComponentType::CR);

}  // namespace

status_t extractP010Gralloc4PlaneLayout(sp<GraphicBuffer> buffer, void* pData, int format,
                                        LockedBuffer* out) {
    std::vector<PlaneLayout> layouts;
    status_t err = android::GraphicBufferMapper::get().getPlaneLayouts(buffer->handle, &layouts);
    if (err != 0) {
        NLOGE("%s: get plain layouts failed!(%d)", kName, err);
        return err;
    }

    uint8_t* luma = nullptr;
    uint8_t* cb = nullptr;
    uint8_t* cr = nullptr;
    uint32_t lumaStride = 0;
    uint32_t chromaStride = 0;
    for (const PlaneLayout& layout : layouts) {
        // The layout's text is built only when the line will be written.
        if (isLoggable(ANDROID_LOG_VERBOSE)) {
            __android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, "%s: gralloc4 plane %s", kName,
                                layout.toString().c_str());
        }
        int64_t types = 0;
        for (const PlaneLayoutComponent& component : layout.components) {
            if (component.sizeInBits != 10) {
                NLOGE("%s: sizeInBits(%ld) of one of plane layout components is not 10", kName,
                      static_cast<long>(component.sizeInBits));
                return android::BAD_VALUE;
            }
            types |= component.type.value;
        }
        if (types == kY) {
            if (layout.sampleIncrementInBits != 16) {
                NLOGE("%s: sampleIncrementInBits(%ld) of y plane layout is not 16", kName,
                      static_cast<long>(layout.sampleIncrementInBits));
                return android::BAD_VALUE;
            }
            if (layout.components[0].offsetInBits != 6) {
                NLOGE("%s: offsetInBits(%ld) of y component is not 6", kName,
                      static_cast<long>(layout.components[0].offsetInBits));
                return android::BAD_VALUE;
            }
            luma = static_cast<uint8_t*>(pData) + layout.offsetInBytes;
            lumaStride = static_cast<uint32_t>(layout.strideInBytes);
        } else if (types == (kCb | kCr)) {
            if (layout.sampleIncrementInBits != 32) {
                NLOGE("%s: sampleIncrementInBits(%ld) of cbcr plane layout is not 32", kName,
                      static_cast<long>(layout.sampleIncrementInBits));
                return android::BAD_VALUE;
            }
            for (const PlaneLayoutComponent& component : layout.components) {
                if (component.type.value == kCr && component.offsetInBits != 22) {
                    NLOGE("%s: offsetInBits(%ld) of cr component is not 22", kName,
                          static_cast<long>(component.offsetInBits));
                    return android::BAD_VALUE;
                }
                if (component.type.value == kCb && component.offsetInBits != 6) {
                    NLOGE("%s: offsetInBits(%ld) of cb component is not 6", kName,
                          static_cast<long>(component.offsetInBits));
                    return android::BAD_VALUE;
                }
            }
            cb = static_cast<uint8_t*>(pData) + layout.offsetInBytes;
            cr = cb + 2;
            chromaStride = static_cast<uint32_t>(layout.strideInBytes);
        } else {
            NLOGE("%s: unknown components(%ld)", kName, static_cast<long>(types));
            return android::BAD_VALUE;
        }
    }

    out->data = luma;
    out->width = buffer->getWidth();
    out->height = buffer->getHeight();
    out->format = format;
    out->flexFormat = HAL_PIXEL_FORMAT_YCBCR_P010;
    out->stride = lumaStride;
    out->dataCb = cb;
    out->dataCr = cr;
    out->chromaStride = chromaStride;
    out->chromaStep = 4;
    return 0;
}
