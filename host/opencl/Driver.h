// Internals shared by the driver's source files: the PoCL dispatch table, the checkpoint macros
// of the entry points, and the driver's own image objects.
#pragma once

#define CL_TARGET_OPENCL_VERSION 300
#define CL_USE_DEPRECATED_OPENCL_1_0_APIS
#define CL_USE_DEPRECATED_OPENCL_1_1_APIS
#define CL_USE_DEPRECATED_OPENCL_1_2_APIS
#define CL_USE_DEPRECATED_OPENCL_2_0_APIS
#include <CL/cl.h>
#include <CL/cl_ext_qcom.h>
#include <CL/cl_gl.h>
#include <CL/cl_icd.h>
#include <hostcontrol/FaultInjection.h>
#include <ui/HostGrallocImport.h>

#include <memory>

#define HOSTCL_EXPORT extern "C" __attribute__((visibility("default")))

// Each entry point first passes its checkpoint "opencl.<name>"; an armed fault is the result.
#define HOSTCL_CHECK_STATUS(name) \
    if (const cl_int fault_ = host::checkpoint("opencl." name); fault_ != 0) return fault_
#define HOSTCL_CHECK_OBJECT(name, errcode)                                     \
    if (const cl_int fault_ = host::checkpoint("opencl." name); fault_ != 0) { \
        if ((errcode) != nullptr) *(errcode) = fault_;                         \
        return nullptr;                                                        \
    }
#define HOSTCL_CHECK_POINTER(name) \
    if (host::checkpoint("opencl." name) != 0) return nullptr
#define HOSTCL_CHECK_VOID(name) \
    if (host::checkpoint("opencl." name) != 0) return

namespace hostcl {

// PoCL's entry points, taken from its platform's ICD dispatch table. PoCL is opened privately
// (RTLD_LOCAL) the first time; a process without PoCL aborts with a message.
const _cl_icd_dispatch& pocl();

// Stores `value` as a query answer: CL_INVALID_VALUE when `size` is too small for it.
cl_int answer(const void* value, size_t valueSize, size_t size, void* out, size_t* sizeRet);
template <typename T>
cl_int answer(const T& value, size_t size, void* out, size_t* sizeRet) {
    return answer(&value, sizeof(T), size, out, sizeRet);
}

// The gralloc memory an image is bound to: the driver's own import of the buffer, as a phone's
// driver imports the buffer's dma-buf.
using BufferMapping = host::GrallocImport;

// What the driver knows of an image of a Qualcomm format. The cl_mem handed out is a PoCL object:
// for compressed NV12 an RGBA image that the device decodes into before each kernel that reads
// it; for NV12 and its Y plane an R image over the luma plane; for the UV plane an R image of
// 16-bit texels (one Cb/Cr byte pair each) over the chroma plane.
struct QcomImage {
    cl_uint order = 0;
    size_t width = 0;
    size_t height = 0;
    size_t rowPitch = 0;
    std::shared_ptr<BufferMapping> mapping;
    cl_mem compressed = nullptr;  // compressed NV12: the PoCL buffer over the compressed bytes
    cl_mem parent = nullptr;      // plane images: the NV12 image, retained
    uint32_t decodeArgs[7] = {};  // compressed NV12: plane offsets and strides for the decoder
    size_t chromaOffset = 0;      // NV12: where the chroma plane starts in the buffer
};

// The Qualcomm image behind `mem`, copied out; false for any other memory object.
bool findQcomImage(cl_mem mem, QcomImage* out);

// The device code every program is built with (qcom_read_imagef_2x2, write_imagef over the
// packed UV plane, and the decoder kernel below).
extern const char kDevicePrelude[];
constexpr const char* kDecodeKernelName = "hostcl_decode_compressed_nv12";

}  // namespace hostcl
