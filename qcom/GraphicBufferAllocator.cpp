// The intermediate NV21 (Venus) buffer of the GPU converter. Shares the converter unit's log tag
// and gate.

#include "GraphicBufferAllocator.h"

#include <hardware/gralloc.h>

#include "FormatConverterLog.h"

namespace vantora {

namespace {

constexpr int kVenusNv21Format = 276;  // HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS
constexpr uint32_t kUsage = GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN |
                            GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_HW_RENDER;

}  // namespace

bool GraphicBufferAllocator::allocateGraphicBuffer(android::sp<android::GraphicBuffer>& buffer,
                                                   cl_mem_android_native_buffer_host_ptr& hostPtr,
                                                   size_t width, size_t height) {
    buffer = new android::GraphicBuffer();
    // The status is not looked at: initCheck() and the handle decide.
    buffer->reallocate(static_cast<uint32_t>(width), static_cast<uint32_t>(height),
                       kVenusNv21Format, 1, kUsage);
    if (buffer->initCheck() != android::NO_ERROR || buffer->handle == nullptr) {
        FCLOG(ANDROID_LOG_ERROR, "%s: graphic buffer init fail", "allocateGraphicBuffer");
        return false;
    }
    hostPtr.ext_host_ptr.allocation_type = CL_MEM_ANDROID_NATIVE_BUFFER_HOST_PTR_QCOM;
    hostPtr.ext_host_ptr.host_cache_policy = CL_MEM_HOST_WRITEBACK_QCOM;
    hostPtr.anb_ptr = buffer->getNativeBuffer();
    return true;
}

}  // namespace vantora
