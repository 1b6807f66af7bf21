/*
 * The host's vendor OpenCL driver (libOpenCL.so): a Qualcomm-style driver over PoCL.
 *
 * Every entry point records "opencl.<name>" (e.g. opencl.clBuildProgram) in the call record and
 * fails with the armed status when a fault is armed there (an object-returning call reports it
 * through its errcode_ret and returns null). These points change what the device reports; they
 * are consulted (and used up) without being recorded:
 */
#pragma once

namespace host {

// CL_DEVICE_EXTENSIONS leaves out one of the four Qualcomm extensions.
constexpr const char* kOpenClDropOtherImage = "opencl.extensions.drop.cl_qcom_other_image";
constexpr const char* kOpenClDropCompressedImage =
        "opencl.extensions.drop.cl_qcom_compressed_image";
constexpr const char* kOpenClDropExtHostPtr = "opencl.extensions.drop.cl_qcom_ext_host_ptr";
constexpr const char* kOpenClDropNativeBufferHostPtr =
        "opencl.extensions.drop.cl_qcom_android_native_buffer_host_ptr";
// CL_DEVICE_EXTENSIONS is longer than 1024 bytes.
constexpr const char* kOpenClOverlongExtensions = "opencl.extensions.overlong";
// clGetDeviceIDs finds no GPU device (CL_DEVICE_NOT_FOUND).
constexpr const char* kOpenClNoGpu = "opencl.device.noGpu";

}  // namespace host
