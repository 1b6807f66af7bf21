// Programs and kernels: every program is built with the driver's device prelude, and a kernel
// that reads a compressed NV12 image has the image decoded on the device first.

#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "Driver.h"

namespace hostcl {
namespace {

std::mutex gKernelsLock;
// Per kernel, the compressed images set as its arguments, by argument index.
std::map<cl_kernel, std::map<cl_uint, cl_mem>>& compressedArgs() {
    static std::map<cl_kernel, std::map<cl_uint, cl_mem>> table;
    return table;
}

// Enqueues the decoder for one compressed image; its event goes into `events`.
cl_int enqueueDecode(cl_command_queue queue, cl_program program, cl_mem mem, const QcomImage& image,
                     cl_uint waitCount, const cl_event* waitList, std::vector<cl_event>* events) {
    cl_int status = CL_SUCCESS;
    cl_kernel decoder = pocl().clCreateKernel(program, kDecodeKernelName, &status);
    if (decoder == nullptr) return CL_INVALID_KERNEL_ARGS;
    status = pocl().clSetKernelArg(decoder, 0, sizeof(cl_mem), &image.compressed);
    if (status == CL_SUCCESS) status = pocl().clSetKernelArg(decoder, 1, sizeof(cl_mem), &mem);
    for (cl_uint i = 0; i < 7 && status == CL_SUCCESS; ++i) {
        status = pocl().clSetKernelArg(decoder, 2 + i, sizeof(cl_uint), &image.decodeArgs[i]);
    }
    const size_t global[2] = {image.width, image.height};
    cl_event done = nullptr;
    if (status == CL_SUCCESS) {
        status = pocl().clEnqueueNDRangeKernel(queue, decoder, 2, nullptr, global, nullptr,
                                               waitCount, waitList, &done);
    }
    if (done != nullptr) events->push_back(done);
    pocl().clReleaseKernel(decoder);
    return status;
}

}  // namespace
}  // namespace hostcl

using hostcl::pocl;

HOSTCL_EXPORT cl_program CL_API_CALL clCreateProgramWithSource(cl_context context, cl_uint count,
                                                               const char** strings,
                                                               const size_t* lengths,
                                                               cl_int* errcode_ret) {
    HOSTCL_CHECK_OBJECT("clCreateProgramWithSource", errcode_ret);
    if (count == 0 || strings == nullptr) {
        if (errcode_ret != nullptr) *errcode_ret = CL_INVALID_VALUE;
        return nullptr;
    }
    std::vector<const char*> allStrings = {hostcl::kDevicePrelude};
    std::vector<size_t> allLengths = {strlen(hostcl::kDevicePrelude)};
    for (cl_uint i = 0; i < count; ++i) {
        allStrings.push_back(strings[i]);
        allLengths.push_back(lengths != nullptr ? lengths[i] : 0);
    }
    return pocl().clCreateProgramWithSource(context, count + 1, allStrings.data(),
                                            allLengths.data(), errcode_ret);
}

HOSTCL_EXPORT cl_int CL_API_CALL clSetKernelArg(cl_kernel kernel, cl_uint arg_index,
                                                size_t arg_size, const void* arg_value) {
    HOSTCL_CHECK_STATUS("clSetKernelArg");
    const cl_int status = pocl().clSetKernelArg(kernel, arg_index, arg_size, arg_value);
    if (status != CL_SUCCESS) return status;
    hostcl::QcomImage image;
    const bool compressed = arg_size == sizeof(cl_mem) && arg_value != nullptr &&
                            hostcl::findQcomImage(*static_cast<const cl_mem*>(arg_value), &image) &&
                            image.order == CL_QCOM_COMPRESSED_NV12;
    std::lock_guard<std::mutex> lock(hostcl::gKernelsLock);
    if (compressed) {
        hostcl::compressedArgs()[kernel][arg_index] = *static_cast<const cl_mem*>(arg_value);
    } else if (auto it = hostcl::compressedArgs().find(kernel);
               it != hostcl::compressedArgs().end()) {
        it->second.erase(arg_index);
    }
    return status;
}

HOSTCL_EXPORT cl_int CL_API_CALL
clEnqueueNDRangeKernel(cl_command_queue command_queue, cl_kernel kernel, cl_uint work_dim,
                       const size_t* global_work_offset, const size_t* global_work_size,
                       const size_t* local_work_size, cl_uint num_events_in_wait_list,
                       const cl_event* event_wait_list, cl_event* event) {
    HOSTCL_CHECK_STATUS("clEnqueueNDRangeKernel");
    std::map<cl_uint, cl_mem> args;
    {
        std::lock_guard<std::mutex> lock(hostcl::gKernelsLock);
        auto it = hostcl::compressedArgs().find(kernel);
        if (it != hostcl::compressedArgs().end()) args = it->second;
    }
    std::vector<cl_event> waits(event_wait_list, event_wait_list + num_events_in_wait_list);
    cl_int status = CL_SUCCESS;
    if (!args.empty()) {
        cl_program program = nullptr;
        status = pocl().clGetKernelInfo(kernel, CL_KERNEL_PROGRAM, sizeof(program), &program,
                                        nullptr);
        std::vector<cl_event> decoded;
        for (const auto& [index, mem] : args) {
            hostcl::QcomImage image;
            if (status != CL_SUCCESS) break;
            if (!hostcl::findQcomImage(mem, &image)) continue;
            status = hostcl::enqueueDecode(command_queue, program, mem, image,
                                           num_events_in_wait_list, event_wait_list, &decoded);
        }
        waits.insert(waits.end(), decoded.begin(), decoded.end());
        if (status == CL_SUCCESS) {
            status = pocl().clEnqueueNDRangeKernel(
                    command_queue, kernel, work_dim, global_work_offset, global_work_size,
                    local_work_size, static_cast<cl_uint>(waits.size()),
                    waits.empty() ? nullptr : waits.data(), event);
        }
        for (cl_event e : decoded) pocl().clReleaseEvent(e);
        return status;
    }
    return pocl().clEnqueueNDRangeKernel(command_queue, kernel, work_dim, global_work_offset,
                                         global_work_size, local_work_size, num_events_in_wait_list,
                                         event_wait_list, event);
}

HOSTCL_EXPORT cl_int CL_API_CALL clReleaseKernel(cl_kernel kernel) {
    HOSTCL_CHECK_STATUS("clReleaseKernel");
    cl_uint count = 0;
    pocl().clGetKernelInfo(kernel, CL_KERNEL_REFERENCE_COUNT, sizeof(count), &count, nullptr);
    const cl_int status = pocl().clReleaseKernel(kernel);
    if (status == CL_SUCCESS && count == 1) {
        std::lock_guard<std::mutex> lock(hostcl::gKernelsLock);
        hostcl::compressedArgs().erase(kernel);
    }
    return status;
}
