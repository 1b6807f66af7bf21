// What the driver reports about its platform and device: one GPU (PoCL's device underneath),
// PoCL's extensions plus the four Qualcomm ones, and Qualcomm's device and image queries.

#include <hardware/gralloc_qcom.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostopencl/HostOpenCl.h>
#include <system/graphics.h>
#include <ui/HostGrallocLayout.h>

#include <cstring>
#include <string>

#include "Driver.h"

namespace {

constexpr const char* kQcomExtensions[][2] = {
        {"cl_qcom_other_image", host::kOpenClDropOtherImage},
        {"cl_qcom_compressed_image", host::kOpenClDropCompressedImage},
        {"cl_qcom_ext_host_ptr", host::kOpenClDropExtHostPtr},
        {"cl_qcom_android_native_buffer_host_ptr", host::kOpenClDropNativeBufferHostPtr},
};

// The one device answers for these type requests.
bool reportsType(cl_device_type type) {
    return type == CL_DEVICE_TYPE_ALL ||
           (type & (CL_DEVICE_TYPE_GPU | CL_DEVICE_TYPE_DEFAULT)) != 0;
}

cl_int deviceExtensions(cl_device_id device, std::string* out) {
    size_t size = 0;
    cl_int status = hostcl::pocl().clGetDeviceInfo(device, CL_DEVICE_EXTENSIONS, 0, nullptr, &size);
    if (status != CL_SUCCESS) return status;
    std::string list(size, '\0');
    status = hostcl::pocl().clGetDeviceInfo(device, CL_DEVICE_EXTENSIONS, size, list.data(),
                                            nullptr);
    if (status != CL_SUCCESS) return status;
    list.resize(strlen(list.c_str()));
    for (const auto& [name, dropPoint] : kQcomExtensions) {
        if (host::takeFault(dropPoint) == 0) list += std::string(" ") + name;
    }
    if (host::takeFault(host::kOpenClOverlongExtensions) != 0) {
        for (int i = 0; list.size() <= 1024; ++i) list += " cl_host_padding_" + std::to_string(i);
    }
    *out = list;
    return CL_SUCCESS;
}

// The gralloc format whose layout gives an image format's row pitch; 0 for none.
int32_t grallocFormatFor(const cl_image_format& format) {
    if (format.image_channel_data_type != CL_UNORM_INT8) return 0;
    switch (format.image_channel_order) {
        case CL_QCOM_COMPRESSED_NV12:
            return HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC;
        case CL_QCOM_NV12:
        case CL_QCOM_NV12_Y:
        case CL_QCOM_NV12_UV:
            return HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS;
        case CL_RGBA:
        case CL_BGRA:
            return HAL_PIXEL_FORMAT_RGBA_8888;
        case CL_R:
            return HAL_PIXEL_FORMAT_Y8;
        default:
            return 0;
    }
}

}  // namespace

HOSTCL_EXPORT cl_int CL_API_CALL clGetPlatformIDs(cl_uint num_entries, cl_platform_id* platforms,
                                                  cl_uint* num_platforms) {
    HOSTCL_CHECK_STATUS("clGetPlatformIDs");
    return hostcl::pocl().clGetPlatformIDs(num_entries, platforms, num_platforms);
}

HOSTCL_EXPORT cl_int CL_API_CALL clGetDeviceIDs(cl_platform_id platform, cl_device_type device_type,
                                                cl_uint num_entries, cl_device_id* devices,
                                                cl_uint* num_devices) {
    HOSTCL_CHECK_STATUS("clGetDeviceIDs");
    if ((num_entries == 0 && devices != nullptr) ||
        (devices == nullptr && num_devices == nullptr)) {
        return CL_INVALID_VALUE;
    }
    if (!reportsType(device_type) || host::takeFault(host::kOpenClNoGpu) != 0) {
        return CL_DEVICE_NOT_FOUND;
    }
    cl_device_id device = nullptr;
    const cl_int status =
            hostcl::pocl().clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 1, &device, nullptr);
    if (status != CL_SUCCESS) return status;
    if (devices != nullptr) devices[0] = device;
    if (num_devices != nullptr) *num_devices = 1;
    return CL_SUCCESS;
}

HOSTCL_EXPORT cl_int CL_API_CALL clGetDeviceInfo(cl_device_id device, cl_device_info param_name,
                                                 size_t param_value_size, void* param_value,
                                                 size_t* param_value_size_ret) {
    HOSTCL_CHECK_STATUS("clGetDeviceInfo");
    switch (param_name) {
        case CL_DEVICE_TYPE:
            return hostcl::answer(cl_device_type{CL_DEVICE_TYPE_GPU}, param_value_size, param_value,
                                  param_value_size_ret);
        case CL_DEVICE_EXTENSIONS: {
            std::string list;
            const cl_int status = deviceExtensions(device, &list);
            if (status != CL_SUCCESS) return status;
            return hostcl::answer(list.c_str(), list.size() + 1, param_value_size, param_value,
                                  param_value_size_ret);
        }
        case CL_DEVICE_EXT_MEM_PADDING_IN_BYTES_QCOM:
            // The driver never reads or writes past an image's own rows.
            return hostcl::answer(size_t{0}, param_value_size, param_value, param_value_size_ret);
        case CL_DEVICE_PAGE_SIZE_QCOM:
            return hostcl::answer(size_t{4096}, param_value_size, param_value,
                                  param_value_size_ret);
        default:
            return hostcl::pocl().clGetDeviceInfo(device, param_name, param_value_size, param_value,
                                                  param_value_size_ret);
    }
}

HOSTCL_EXPORT cl_context CL_API_CALL
clCreateContextFromType(const cl_context_properties* properties, cl_device_type device_type,
                        void(CL_CALLBACK* pfn_notify)(const char*, const void*, size_t, void*),
                        void* user_data, cl_int* errcode_ret) {
    HOSTCL_CHECK_OBJECT("clCreateContextFromType", errcode_ret);
    if (!reportsType(device_type)) {
        if (errcode_ret != nullptr) *errcode_ret = CL_DEVICE_NOT_FOUND;
        return nullptr;
    }
    return hostcl::pocl().clCreateContextFromType(properties, CL_DEVICE_TYPE_ALL, pfn_notify,
                                                  user_data, errcode_ret);
}

HOSTCL_EXPORT cl_int CL_API_CALL
clGetDeviceImageInfoQCOM(cl_device_id device, size_t image_width, size_t image_height,
                         const cl_image_format* image_format, cl_image_pitch_info_qcom param_name,
                         size_t param_value_size, void* param_value, size_t* param_value_size_ret) {
    HOSTCL_CHECK_STATUS("clGetDeviceImageInfoQCOM");
    if (device == nullptr) return CL_INVALID_DEVICE;
    if (image_format == nullptr) return CL_INVALID_IMAGE_FORMAT_DESCRIPTOR;
    if (param_name != CL_IMAGE_ROW_PITCH) return CL_INVALID_VALUE;
    const int32_t format = grallocFormatFor(*image_format);
    if (format == 0) return CL_IMAGE_FORMAT_NOT_SUPPORTED;
    const host::DeviceProfile& profile = host::currentDeviceProfile();
    host::GrallocLayout layout;
    if (image_width > UINT32_MAX || image_height > UINT32_MAX ||
        !host::computeGrallocLayout(format, static_cast<uint32_t>(image_width),
                                    static_cast<uint32_t>(image_height), 1, profile.paddedLayouts,
                                    profile.flexYuvIsNv12, &layout)) {
        return CL_INVALID_IMAGE_SIZE;
    }
    // Venus and UBWC strides are in bytes of luma; the others' first plane is the image.
    const size_t rowPitch = format == HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS ||
                                            format == HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC
                                    ? layout.stride
                                    : layout.planes[0].strideBytes;
    return hostcl::answer(rowPitch, param_value_size, param_value, param_value_size_ret);
}

HOSTCL_EXPORT void* CL_API_CALL clGetExtensionFunctionAddress(const char* func_name) {
    HOSTCL_CHECK_POINTER("clGetExtensionFunctionAddress");
    // The one extension function; GL sharing is not offered.
    if (func_name != nullptr && strcmp(func_name, "clGetDeviceImageInfoQCOM") == 0) {
        return reinterpret_cast<void*>(&clGetDeviceImageInfoQCOM);
    }
    return nullptr;
}

HOSTCL_EXPORT void* CL_API_CALL clGetExtensionFunctionAddressForPlatform(cl_platform_id platform,
                                                                         const char* func_name) {
    HOSTCL_CHECK_POINTER("clGetExtensionFunctionAddressForPlatform");
    if (func_name != nullptr && strcmp(func_name, "clGetDeviceImageInfoQCOM") == 0) {
        return reinterpret_cast<void*>(&clGetDeviceImageInfoQCOM);
    }
    return nullptr;
}
