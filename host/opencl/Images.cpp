// Images over Android native buffers (cl_qcom_android_native_buffer_host_ptr), the Qualcomm
// image formats (compressed NV12, NV12 and its plane images), and their queries and release.

#include <hardware/gralloc_qcom.h>
#include <nativebase/nativebase.h>

#include <mutex>
#include <unordered_map>

#include "Driver.h"

namespace hostcl {
namespace {

std::mutex gImagesLock;
// Destroyed when the driver is unloaded (the library loads and unloads it for each conversion).
std::unordered_map<cl_mem, QcomImage>& images() {
    static std::unordered_map<cl_mem, QcomImage> table;
    return table;
}

bool isQcomOrder(cl_uint order) {
    return order == CL_QCOM_COMPRESSED_NV12 || order == CL_QCOM_NV12 || order == CL_QCOM_NV12_Y ||
           order == CL_QCOM_NV12_UV;
}

bool isVenus(int32_t format) {
    return format == HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS ||
           format == HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS;
}

cl_mem fail(cl_int* errcode_ret, cl_int status) {
    if (errcode_ret != nullptr) *errcode_ret = status;
    return nullptr;
}

// Checks the host-pointer record and imports the native buffer behind it.
cl_int importNativeBuffer(cl_mem_flags flags, void* host_ptr, host::GrallocLayout* layout,
                          std::shared_ptr<BufferMapping>* mapping) {
    if ((flags & CL_MEM_USE_HOST_PTR) == 0 || host_ptr == nullptr) return CL_INVALID_HOST_PTR;
    const auto* record = static_cast<const cl_mem_android_native_buffer_host_ptr*>(host_ptr);
    if (record->ext_host_ptr.allocation_type != CL_MEM_ANDROID_NATIVE_BUFFER_HOST_PTR_QCOM) {
        return CL_INVALID_HOST_PTR;
    }
    if (record->ext_host_ptr.host_cache_policy != CL_MEM_HOST_UNCACHED_QCOM &&
        record->ext_host_ptr.host_cache_policy != CL_MEM_HOST_WRITEBACK_QCOM) {
        return CL_INVALID_VALUE;
    }
    const auto* anb = static_cast<const ANativeWindowBuffer*>(record->anb_ptr);
    std::unique_ptr<BufferMapping> imported =
            anb != nullptr ? BufferMapping::map(anb->handle) : nullptr;
    if (imported == nullptr) return CL_INVALID_HOST_PTR;
    *layout = imported->layout();
    *mapping = std::move(imported);
    return CL_SUCCESS;
}

// A PoCL image of `format`, width x height, over `plane` of the mapping (no copy).
cl_mem planeImage(cl_context context, cl_mem_flags access, cl_image_format format, size_t width,
                  size_t height, const BufferMapping& mapping, const host::GrallocPlane& plane,
                  cl_int* errcode_ret) {
    cl_image_desc desc{};
    desc.image_type = CL_MEM_OBJECT_IMAGE2D;
    desc.image_width = width;
    desc.image_height = height;
    desc.image_row_pitch = plane.strideBytes;
    return pocl().clCreateImage(context, access | CL_MEM_USE_HOST_PTR, &format, &desc,
                                mapping.base() + plane.offset, errcode_ret);
}

cl_mem createQcomImage(cl_context context, cl_mem_flags flags, const cl_image_format& format,
                       const cl_image_desc& desc, void* host_ptr, cl_int* errcode_ret) {
    if (format.image_channel_data_type != CL_UNORM_INT8) {
        return fail(errcode_ret, CL_IMAGE_FORMAT_NOT_SUPPORTED);
    }
    if (desc.image_type != CL_MEM_OBJECT_IMAGE2D) {
        return fail(errcode_ret, CL_INVALID_IMAGE_DESCRIPTOR);
    }
    const cl_uint order = format.image_channel_order;
    const cl_mem_flags access = flags & (CL_MEM_READ_WRITE | CL_MEM_READ_ONLY | CL_MEM_WRITE_ONLY);
    QcomImage image;
    image.order = order;
    image.width = desc.image_width;
    image.height = desc.image_height;
    host::GrallocLayout layout;
    cl_int status = CL_SUCCESS;
    if (order == CL_QCOM_NV12_Y || order == CL_QCOM_NV12_UV) {
        // A plane of an NV12 image: its memory is the parent's.
        QcomImage parent;
        if (desc.mem_object == nullptr || !findQcomImage(desc.mem_object, &parent) ||
            parent.order != CL_QCOM_NV12 || host_ptr != nullptr) {
            return fail(errcode_ret, CL_INVALID_MEM_OBJECT);
        }
        if (desc.image_width != parent.width || desc.image_height != parent.height) {
            return fail(errcode_ret, CL_INVALID_IMAGE_SIZE);
        }
        image.mapping = parent.mapping;
        image.parent = desc.mem_object;
        image.rowPitch = parent.rowPitch;
        const bool luma = order == CL_QCOM_NV12_Y;
        const host::GrallocPlane plane = {luma ? 0 : parent.chromaOffset,
                                          static_cast<uint32_t>(parent.rowPitch), 0, 0, 0};
        cl_mem mem =
                luma ? planeImage(context, access, {CL_R, CL_UNORM_INT8}, image.width, image.height,
                                  *image.mapping, plane, &status)
                     : planeImage(context, access, {CL_R, CL_UNSIGNED_INT16}, (image.width + 1) / 2,
                                  (image.height + 1) / 2, *image.mapping, plane, &status);
        if (mem == nullptr) return fail(errcode_ret, status);
        pocl().clRetainMemObject(desc.mem_object);
        std::lock_guard<std::mutex> lock(gImagesLock);
        images()[mem] = image;
        if (errcode_ret != nullptr) *errcode_ret = CL_SUCCESS;
        return mem;
    }

    if ((flags & CL_MEM_EXT_HOST_PTR_QCOM) == 0) return fail(errcode_ret, CL_INVALID_HOST_PTR);
    status = importNativeBuffer(flags, host_ptr, &layout, &image.mapping);
    if (status != CL_SUCCESS) return fail(errcode_ret, status);
    const bool compressed = order == CL_QCOM_COMPRESSED_NV12;
    if (compressed ? layout.format != HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC
                   : !isVenus(layout.format)) {
        return fail(errcode_ret, CL_INVALID_IMAGE_FORMAT_DESCRIPTOR);
    }
    if (image.width == 0 || image.height == 0 || image.width > layout.width ||
        image.height > layout.height) {
        return fail(errcode_ret, CL_INVALID_IMAGE_SIZE);
    }
    image.rowPitch = layout.stride;
    cl_mem mem = nullptr;
    if (compressed) {
        // The device decodes the compressed bytes (bound without a copy) into an RGBA image of
        // (Y, Cb, Cr, 1) before each kernel that reads it.
        const host::GrallocLayout& l = layout;
        image.decodeArgs[0] = static_cast<uint32_t>(l.planes[0].offset);
        image.decodeArgs[1] = l.planes[0].strideBytes;
        image.decodeArgs[2] = static_cast<uint32_t>(l.planes[1].offset);
        image.decodeArgs[3] = static_cast<uint32_t>(l.planes[2].offset);
        image.decodeArgs[4] = l.planes[2].strideBytes;
        image.decodeArgs[5] = static_cast<uint32_t>(l.planes[3].offset);
        image.decodeArgs[6] = l.planes[1].strideBytes;
        image.compressed = pocl().clCreateBuffer(context, CL_MEM_READ_ONLY | CL_MEM_USE_HOST_PTR,
                                                 layout.size, image.mapping->base(), &status);
        if (image.compressed == nullptr) return fail(errcode_ret, status);
        const cl_image_format rgba = {CL_RGBA, CL_UNORM_INT8};
        cl_image_desc rgbaDesc{};
        rgbaDesc.image_type = CL_MEM_OBJECT_IMAGE2D;
        rgbaDesc.image_width = image.width;
        rgbaDesc.image_height = image.height;
        mem = pocl().clCreateImage(context, CL_MEM_READ_WRITE, &rgba, &rgbaDesc, nullptr, &status);
        if (mem == nullptr) {
            pocl().clReleaseMemObject(image.compressed);
            return fail(errcode_ret, status);
        }
    } else {
        // NV12: the luma plane stands for the whole image.
        image.chromaOffset = layout.planes[1].offset;
        mem = planeImage(context, access, {CL_R, CL_UNORM_INT8}, image.width, image.height,
                         *image.mapping, layout.planes[0], &status);
        if (mem == nullptr) return fail(errcode_ret, status);
    }
    std::lock_guard<std::mutex> lock(gImagesLock);
    images()[mem] = image;
    if (errcode_ret != nullptr) *errcode_ret = CL_SUCCESS;
    return mem;
}

// Releases a memory object, and the driver's record of it with its last reference.
cl_int releaseMem(cl_mem mem) {
    QcomImage info;
    if (!findQcomImage(mem, &info)) return pocl().clReleaseMemObject(mem);
    cl_uint count = 0;
    pocl().clGetMemObjectInfo(mem, CL_MEM_REFERENCE_COUNT, sizeof(count), &count, nullptr);
    const cl_int status = pocl().clReleaseMemObject(mem);
    if (status == CL_SUCCESS && count == 1) {
        {
            std::lock_guard<std::mutex> lock(gImagesLock);
            images().erase(mem);
        }
        if (info.compressed != nullptr) pocl().clReleaseMemObject(info.compressed);
        if (info.parent != nullptr) releaseMem(info.parent);
    }
    return status;
}

}  // namespace

bool findQcomImage(cl_mem mem, QcomImage* out) {
    std::lock_guard<std::mutex> lock(gImagesLock);
    auto it = images().find(mem);
    if (it == images().end()) return false;
    *out = it->second;
    return true;
}

}  // namespace hostcl

using hostcl::pocl;

HOSTCL_EXPORT cl_mem CL_API_CALL clCreateImage(cl_context context, cl_mem_flags flags,
                                               const cl_image_format* image_format,
                                               const cl_image_desc* image_desc, void* host_ptr,
                                               cl_int* errcode_ret) {
    HOSTCL_CHECK_OBJECT("clCreateImage", errcode_ret);
    if (image_format != nullptr && image_desc != nullptr &&
        hostcl::isQcomOrder(image_format->image_channel_order)) {
        return hostcl::createQcomImage(context, flags, *image_format, *image_desc, host_ptr,
                                       errcode_ret);
    }
    if ((flags & CL_MEM_EXT_HOST_PTR_QCOM) != 0) {
        // Other formats over a native buffer are not offered.
        return hostcl::fail(errcode_ret, CL_IMAGE_FORMAT_NOT_SUPPORTED);
    }
    return pocl().clCreateImage(context, flags, image_format, image_desc, host_ptr, errcode_ret);
}

HOSTCL_EXPORT cl_int CL_API_CALL clGetImageInfo(cl_mem image, cl_image_info param_name,
                                                size_t param_value_size, void* param_value,
                                                size_t* param_value_size_ret) {
    HOSTCL_CHECK_STATUS("clGetImageInfo");
    hostcl::QcomImage info;
    if (hostcl::findQcomImage(image, &info)) {
        switch (param_name) {
            case CL_IMAGE_FORMAT:
                return hostcl::answer(cl_image_format{info.order, CL_UNORM_INT8}, param_value_size,
                                      param_value, param_value_size_ret);
            case CL_IMAGE_ELEMENT_SIZE:
                return hostcl::answer(size_t{info.order == CL_QCOM_NV12_UV ? 2u : 1u},
                                      param_value_size, param_value, param_value_size_ret);
            case CL_IMAGE_ROW_PITCH:
                return hostcl::answer(info.rowPitch, param_value_size, param_value,
                                      param_value_size_ret);
            case CL_IMAGE_WIDTH:
                return hostcl::answer(info.width, param_value_size, param_value,
                                      param_value_size_ret);
            case CL_IMAGE_HEIGHT:
                return hostcl::answer(info.height, param_value_size, param_value,
                                      param_value_size_ret);
            default:
                break;
        }
    }
    return pocl().clGetImageInfo(image, param_name, param_value_size, param_value,
                                 param_value_size_ret);
}

HOSTCL_EXPORT cl_int CL_API_CALL clReleaseMemObject(cl_mem memobj) {
    HOSTCL_CHECK_STATUS("clReleaseMemObject");
    return hostcl::releaseMem(memobj);
}
