/*
 * Qualcomm's OpenCL image extensions beyond what the Khronos headers carry: the channel orders of
 * cl_qcom_other_image (planar NV12) and cl_qcom_compressed_image (compressed NV12). The host
 * pointer extensions (cl_qcom_ext_host_ptr, cl_qcom_android_native_buffer_host_ptr) and
 * clGetDeviceImageInfoQCOM are in <CL/cl_ext.h>.
 */
#pragma once

#include <CL/cl_ext.h>

// cl_qcom_other_image: NV12 over a Venus-aligned buffer, and its two planes as images of their
// own (created with the NV12 image as parent memory object).
#define CL_QCOM_NV12 0x4133
#define CL_QCOM_NV12_Y 0x4134
#define CL_QCOM_NV12_UV 0x4135

// cl_qcom_compressed_image: UBWC-compressed NV12.
#define CL_QCOM_COMPRESSED_NV12 0x10C4
