// The GPU converter of UBWC-compressed NV12 frames to NV21, over the run-time OpenCL loader.

#include "FormatConverter.h"

#include <CL/cl_ext_qcom.h>
#include <hardware/gralloc.h>
#include <string.h>
#include <ui/GraphicBuffer.h>

#include <string>

#include "FormatConverterKernel.h"
#include "FormatConverterLog.h"
#include "GraphicBufferAllocator.h"

// The unit's property reader: the only static of qcom/FormatConverter built at load.
PropertyGet_Helper gFormatConverterPropertyHelper;

namespace vantora {

namespace {

constexpr int kCompressedNv12Format = 0x7FA30C06;

// The status of the unit's last OpenCL call, shared by every converter of the process: the calls
// that report their status through an argument point at it, the others store their result in it.
cl_int gLastStatus = CL_SUCCESS;

// OpenCL status names by negated status; codes -20 to -29 are not defined by OpenCL.
const char* const kStatusNames[71] = {
        "CL_SUCCESS",
        "CL_DEVICE_NOT_FOUND",
        "CL_DEVICE_NOT_AVAILABLE",
        "CL_COMPILER_NOT_AVAILABLE",
        "CL_MEM_OBJECT_ALLOCATION_FAILURE",
        "CL_OUT_OF_RESOURCES",
        "CL_OUT_OF_HOST_MEMORY",
        "CL_PROFILING_INFO_NOT_AVAILABLE",
        "CL_MEM_COPY_OVERLAP",
        "CL_IMAGE_FORMAT_MISMATCH",
        "CL_IMAGE_FORMAT_NOT_SUPPORTED",
        "CL_BUILD_PROGRAM_FAILURE",
        "CL_MAP_FAILURE",
        "CL_MISALIGNED_SUB_BUFFER_OFFSET",
        "CL_EXEC_STATUS_ERROR_FOR_EVENTS_IN_WAIT_LIST",
        "CL_COMPILE_PROGRAM_FAILURE",
        "CL_LINKER_NOT_AVAILABLE",
        "CL_LINK_PROGRAM_FAILURE",
        "CL_DEVICE_PARTITION_FAILED",
        "CL_KERNEL_ARG_INFO_NOT_AVAILABLE",
        "",
        "",
        "",
        "",
        "",
        "",
        "",
        "",
        "",
        "",
        "CL_INVALID_VALUE",
        "CL_INVALID_DEVICE_TYPE",
        "CL_INVALID_PLATFORM",
        "CL_INVALID_DEVICE",
        "CL_INVALID_CONTEXT",
        "CL_INVALID_QUEUE_PROPERTIES",
        "CL_INVALID_COMMAND_QUEUE",
        "CL_INVALID_HOST_PTR",
        "CL_INVALID_MEM_OBJECT",
        "CL_INVALID_IMAGE_FORMAT_DESCRIPTOR",
        "CL_INVALID_IMAGE_SIZE",
        "CL_INVALID_SAMPLER",
        "CL_INVALID_BINARY",
        "CL_INVALID_BUILD_OPTIONS",
        "CL_INVALID_PROGRAM",
        "CL_INVALID_PROGRAM_EXECUTABLE",
        "CL_INVALID_KERNEL_NAME",
        "CL_INVALID_KERNEL_DEFINITION",
        "CL_INVALID_KERNEL",
        "CL_INVALID_ARG_INDEX",
        "CL_INVALID_ARG_VALUE",
        "CL_INVALID_ARG_SIZE",
        "CL_INVALID_KERNEL_ARGS",
        "CL_INVALID_WORK_DIMENSION",
        "CL_INVALID_WORK_GROUP_SIZE",
        "CL_INVALID_WORK_ITEM_SIZE",
        "CL_INVALID_GLOBAL_OFFSET",
        "CL_INVALID_EVENT_WAIT_LIST",
        "CL_INVALID_EVENT",
        "CL_INVALID_OPERATION",
        "CL_INVALID_GL_OBJECT",
        "CL_INVALID_BUFFER_SIZE",
        "CL_INVALID_MIP_LEVEL",
        "CL_INVALID_GLOBAL_WORK_SIZE",
        "CL_INVALID_PROPERTY",
        "CL_INVALID_IMAGE_DESCRIPTOR",
        "CL_INVALID_COMPILER_OPTIONS",
        "CL_INVALID_LINKER_OPTIONS",
        "CL_INVALID_DEVICE_PARTITION_COUNT",
        "CL_INVALID_PIPE_SIZE",
        "CL_INVALID_DEVICE_QUEUE",
};
static_assert(CL_KERNEL_ARG_INFO_NOT_AVAILABLE == -19 && CL_INVALID_VALUE == -30 &&
                      CL_INVALID_DEVICE_QUEUE == -70,
              "the name table follows the Khronos status codes");

const char* statusName(cl_int status) {
    if (status > 0 || status < -70) return "Unspecified Error";
    return kStatusNames[-status];
}

// The error line of a failed OpenCL call. `line` is the call's place in this unit as the log
// has always reported it, kept fixed whatever line the code sits on.
void logClError(int line, const char* function) {
    FCLOG(ANDROID_LOG_ERROR, "%s[%d] : %s error, %s(%d)", __FILE__, line, function,
          statusName(gLastStatus), gLastStatus);
}

bool clFailed(int line, const char* function) {
    if (gLastStatus == CL_SUCCESS) return false;
    logClError(line, function);
    return true;
}

constexpr cl_mem_flags kHostPtrImageFlags =
        CL_MEM_EXT_HOST_PTR_QCOM | CL_MEM_USE_HOST_PTR | CL_MEM_READ_ONLY;

cl_image_desc imageDesc(size_t width, size_t height, cl_mem parent) {
    cl_image_desc desc;
    memset(&desc, 0, sizeof(desc));
    desc.image_type = CL_MEM_OBJECT_IMAGE2D;
    desc.image_width = width;
    desc.image_height = height;
    desc.mem_object = parent;
    return desc;
}

}  // namespace

FormatConverter::FormatConverter()
    : device(nullptr), context(nullptr), queue(nullptr), program(nullptr), initialized(false) {
    wrapper::loadOpenCl();

    cl_platform_id platform = nullptr;
    cl_uint numPlatforms = 0;
    gLastStatus = wrapper::clGetPlatformIDs(1, &platform, &numPlatforms);
    if (clFailed(78, "clGetPlatformIDs")) return;
    cl_uint numDevices = 0;
    gLastStatus = wrapper::clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, &numDevices);
    if (clFailed(81, "clGetDeviceIDs")) return;
    char extensions[1024];
    memset(extensions, 0, sizeof(extensions));
    gLastStatus = wrapper::clGetDeviceInfo(device, CL_DEVICE_EXTENSIONS, sizeof(extensions),
                                           extensions, nullptr);
    if (clFailed(86, "clGetDeviceInfo")) return;

    std::string extensionList(extensions, strnlen(extensions, sizeof(extensions)));
    // Each extension with what it is needed for, in the order they are looked for.
    static const struct {
        const char* name;
        const char* neededFor;
    } kNeeded[] = {
            {"cl_qcom_other_image", "NV12 image format"},
            {"cl_qcom_compressed_image", "compressed NV12 image format"},
            {"cl_qcom_ext_host_ptr", "ION-backed images"},
            {"cl_qcom_android_native_buffer_host_ptr", "ANB-backed images"},
    };
    for (const auto& needed : kNeeded) {
        if (extensionList.find(needed.name) == std::string::npos) {
            FCLOG(ANDROID_LOG_ERROR, "%s: Extension %s needed for %s is not supported.",
                  "FormatConverter", needed.name, needed.neededFor);
            return;
        }
    }

    context = wrapper::clCreateContext(nullptr, 1, &device, nullptr, nullptr, &gLastStatus);
    if (clFailed(111, "clCreateContext")) return;
    queue = wrapper::clCreateCommandQueue(context, device, 0, &gLastStatus);
    if (clFailed(113, "clCreateCommandQueue")) return;
    program = wrapper::clCreateProgramWithSource(context, 1, &kernelSource, nullptr, &gLastStatus);
    if (clFailed(115, "clCreateProgramWithSource")) return;
    gLastStatus = wrapper::clBuildProgram(program, 1, &device, "", nullptr, nullptr);
    if (clFailed(118, "clBuildProgram")) return;
    initialized = true;
}

FormatConverter::~FormatConverter() {
    if (program != nullptr) gLastStatus = wrapper::clReleaseProgram(program);
    if (queue != nullptr) gLastStatus = wrapper::clReleaseCommandQueue(queue);
    if (context != nullptr) gLastStatus = wrapper::clReleaseContext(context);
    if (device != nullptr) gLastStatus = wrapper::clReleaseDevice(device);
    wrapper::unloadOpenCl();
}

bool FormatConverter::isSupportedFormat(int format) const {
    return format == kCompressedNv12Format;
}

void FormatConverter::calculateGraphicBufferDimension(const cl_image_format& format,
                                                      const cl_image_desc& desc, size_t& width,
                                                      size_t& height) const {
    static const char* const kName = "calculateGraphicBufferDimension";
    width = 0;
    height = 0;
    if (!initialized) {
        FCLOG(ANDROID_LOG_ERROR, "%s: not initialized", kName);
    } else {
        size_t rowPitch = 0;
        gLastStatus = wrapper::clGetDeviceImageInfoQCOM(device, desc.image_width, desc.image_height,
                                                        &format, CL_IMAGE_ROW_PITCH,
                                                        sizeof(rowPitch), &rowPitch, nullptr);
        if (!clFailed(161, "clGetDeviceImageInfoQCOM")) {
            size_t padding = 0;
            gLastStatus = wrapper::clGetDeviceInfo(device, CL_DEVICE_EXT_MEM_PADDING_IN_BYTES_QCOM,
                                                   sizeof(padding), &padding, nullptr);
            if (!clFailed(165, "clGetDeviceInfo")) {
                // The padding is queried but not needed: the row pitch already covers it.
                size_t alignedHeight = (desc.image_height + 31) & ~static_cast<size_t>(31);
                width = rowPitch;
                height = alignedHeight + alignedHeight / 2;
            }
        }
    }
    FCLOG(ANDROID_LOG_INFO, "%s: [IN] = %zu x %zu [OUT] = %zu x %zu", kName, desc.image_width,
          desc.image_height, width, height);
}

bool FormatConverter::convert(ANativeWindowBuffer* buffer, size_t width, size_t height, int format,
                              uint8_t* dst) const {
    static const char* const kName = "convert";
    FCLOG(ANDROID_LOG_INFO, "%s: anb(%p) size(%zux%zu) format(%d/0x%x) dst(%p)", kName, buffer,
          width, height, format, static_cast<unsigned>(format), dst);
    bool result = false;
    cl_kernel kernel = nullptr;
    cl_mem input = nullptr;
    cl_mem output = nullptr;
    cl_mem yImage = nullptr;
    cl_mem uvImage = nullptr;
    cl_sampler sampler = nullptr;
    android::sp<android::GraphicBuffer> graphicBuffer;

    // Each step returns false to abandon the conversion; the clean-up below runs on every path.
    auto run = [&]() -> bool {
        kernel = wrapper::clCreateKernel(program, "compressed_nv12_to_nv21", &gLastStatus);
        if (clFailed(190, "clCreateKernel")) return false;
        if (format != kCompressedNv12Format) {
            FCLOG(ANDROID_LOG_ERROR, "%s: unsupported format(%d/0x%x)", "operator()", format,
                  static_cast<unsigned>(format));
            return false;
        }

        const cl_image_format inputFormat{CL_QCOM_COMPRESSED_NV12, CL_UNORM_INT8};
        const cl_image_desc inputDesc = imageDesc(width, height, nullptr);
        cl_mem_android_native_buffer_host_ptr inputHostPtr;
        memset(&inputHostPtr, 0, sizeof(inputHostPtr));
        inputHostPtr.ext_host_ptr.allocation_type = CL_MEM_ANDROID_NATIVE_BUFFER_HOST_PTR_QCOM;
        inputHostPtr.ext_host_ptr.host_cache_policy = CL_MEM_HOST_UNCACHED_QCOM;
        inputHostPtr.anb_ptr = buffer;
        input = wrapper::clCreateImage(context, kHostPtrImageFlags, &inputFormat, &inputDesc,
                                       &inputHostPtr, &gLastStatus);
        if (clFailed(226, "clCreateImage")) return false;
        FCLOG(ANDROID_LOG_DEBUG, "%s: create input image", kName);

        cl_mem_android_native_buffer_host_ptr outputHostPtr;
        memset(&outputHostPtr, 0, sizeof(outputHostPtr));
        if (!GraphicBufferAllocator::allocateGraphicBuffer(graphicBuffer, outputHostPtr, width,
                                                           height)) {
            FCLOG(ANDROID_LOG_ERROR, "%s[%d] : failed to allocate graphic buffer", kName, 260);
            return false;
        }
        const cl_image_format outputFormat{CL_QCOM_NV12, CL_UNORM_INT8};
        const cl_image_desc outputDesc = imageDesc(width, height, nullptr);
        output = wrapper::clCreateImage(context, kHostPtrImageFlags, &outputFormat, &outputDesc,
                                        &outputHostPtr, &gLastStatus);
        if (clFailed(272, "clCreateImage")) return false;

        const cl_image_format yFormat{CL_QCOM_NV12_Y, CL_UNORM_INT8};
        const cl_image_desc yDesc = imageDesc(width, height, output);
        yImage = wrapper::clCreateImage(context, CL_MEM_WRITE_ONLY, &yFormat, &yDesc, nullptr,
                                        &gLastStatus);
        if (clFailed(293, "clCreateImage")) return false;
        const cl_image_format uvFormat{CL_QCOM_NV12_UV, CL_UNORM_INT8};
        const cl_image_desc uvDesc = imageDesc(width, height, output);
        uvImage = wrapper::clCreateImage(context, CL_MEM_WRITE_ONLY, &uvFormat, &uvDesc, nullptr,
                                         &gLastStatus);
        if (clFailed(315, "clCreateImage")) return false;
        FCLOG(ANDROID_LOG_DEBUG, "%s: create output images", kName);

        sampler = wrapper::clCreateSampler(context, CL_FALSE, CL_ADDRESS_CLAMP_TO_EDGE,
                                           CL_FILTER_NEAREST, &gLastStatus);
        if (clFailed(320, "clCreateSampler")) return false;

        const struct {
            const void* value;
            int line;
        } args[] = {{&input, 322}, {&yImage, 323}, {&uvImage, 324}, {&sampler, 325}};
        for (cl_uint i = 0; i < 4; ++i) {
            gLastStatus = wrapper::clSetKernelArg(kernel, i, 8, args[i].value);
            if (clFailed(args[i].line, "clSetKernelArg")) return false;
        }
        FCLOG(ANDROID_LOG_DEBUG, "%s: set kernel args", kName);

        const size_t globalSize[2] = {width / 2, height / 2};
        gLastStatus = wrapper::clEnqueueNDRangeKernel(queue, kernel, 2, nullptr, globalSize,
                                                      nullptr, 0, nullptr, nullptr);
        if (clFailed(342, "clEnqueueNDRangeKernel")) return false;
        gLastStatus = wrapper::clFinish(queue);
        FCLOG(ANDROID_LOG_DEBUG, "%s: kernel done", kName);

        // The planes are copied out through their mappings, dropping the row padding; the
        // graphic buffer is held locked for reading meanwhile.
        struct PlaneCopy {
            cl_mem image;
            size_t regionWidth, regionHeight;
            uint8_t* out;
            size_t rows;
            int mapLine, unmapLine;
            const char* planeName;
        };
        const PlaneCopy planes[2] = {
                {yImage, width, height, dst, height, 367, 383, "y"},
                {uvImage, width / 2, height / 2, dst + height * width, height / 2, 401, 416, "uv"},
        };
        for (const PlaneCopy& plane : planes) {
            const size_t origin[3] = {0, 0, 0};
            const size_t region[3] = {plane.regionWidth, plane.regionHeight, 1};
            size_t rowPitch = 0;
            auto* mapped = static_cast<uint8_t*>(wrapper::clEnqueueMapImage(
                    queue, plane.image, CL_TRUE, CL_MAP_READ, origin, region, &rowPitch, nullptr, 0,
                    nullptr, nullptr, &gLastStatus));
            if (clFailed(plane.mapLine, "clEnqueueMapImage")) return false;
            FCLOG(ANDROID_LOG_INFO, "dst(%p), image_ptr(%p), row_pitch(%zu)", plane.out, mapped,
                  rowPitch);
            void* locked = nullptr;
            if (graphicBuffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &locked) != android::NO_ERROR) {
                FCLOG(ANDROID_LOG_ERROR, "%s: fail to lock graphic buffer for %s", kName,
                      plane.planeName);
                return false;  // the image stays mapped until it is released
            }
            for (size_t r = 0; r < plane.rows; ++r) {
                memcpy(plane.out + r * width, mapped + r * rowPitch, width);
            }
            graphicBuffer->unlock();
            gLastStatus = wrapper::clEnqueueUnmapMemObject(queue, plane.image, mapped, 0, nullptr,
                                                           nullptr);
            if (clFailed(plane.unmapLine, "clEnqueueUnmapMemObject")) return false;
        }
        gLastStatus = wrapper::clFinish(queue);
        FCLOG(ANDROID_LOG_DEBUG, "%s: copy out done", kName);
        return true;
    };
    result = run();

    if (input != nullptr) gLastStatus = wrapper::clReleaseMemObject(input);
    if (uvImage != nullptr) gLastStatus = wrapper::clReleaseMemObject(uvImage);
    if (yImage != nullptr) gLastStatus = wrapper::clReleaseMemObject(yImage);
    if (output != nullptr) gLastStatus = wrapper::clReleaseMemObject(output);
    if (sampler != nullptr) gLastStatus = wrapper::clReleaseSampler(sampler);
    if (kernel != nullptr) gLastStatus = wrapper::clReleaseKernel(kernel);
    FCLOG(ANDROID_LOG_INFO, "%s: processing %s", kName, result ? "done" : "failed");
    graphicBuffer.clear();
    return result;
}

}  // namespace vantora
