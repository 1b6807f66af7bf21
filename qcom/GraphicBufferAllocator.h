/*
 * The intermediate gralloc buffer of the GPU converter: a Venus-aligned NV21 buffer that the CPU
 * can read and write and the GPU can use, with the host-pointer record through which OpenCL wraps
 * it without a copy.
 */
#pragma once

#include <stddef.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include "opencl/clWrapper.h"

namespace vantora {

class GraphicBufferAllocator {
public:
    // Allocates a width x height buffer into `buffer` (dropping what it held) and, on success,
    // describes it in `hostPtr`. On failure `hostPtr` is untouched and `buffer` keeps the new,
    // unusable buffer.
    static bool allocateGraphicBuffer(android::sp<android::GraphicBuffer>& buffer,
                                      cl_mem_android_native_buffer_host_ptr& hostPtr, size_t width,
                                      size_t height);
};

}  // namespace vantora
