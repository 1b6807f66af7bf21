// Helpers of the host OpenCL driver's tests: the driver loaded as the library loads it, its
// entry points, and one context with the tests' program, built once per process (PoCL compiles
// slowly).
#pragma once

#define CL_TARGET_OPENCL_VERSION 300
#define CL_USE_DEPRECATED_OPENCL_1_1_APIS
#define CL_USE_DEPRECATED_OPENCL_1_2_APIS
#include <CL/cl.h>
#include <CL/cl_ext_qcom.h>
#include <CL/cl_gl.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hardware/gralloc_qcom.h>
#include <ui/GraphicBuffer.h>
#include <ui/HostCompressedNv12.h>

#include <random>
#include <string>
#include <vector>

namespace hosttest {

// The entry points the tests call, resolved from one driver library opened as the library opens
// it.
struct ClDriver {
    void* handle;
    explicit ClDriver(const std::string& path)
        : handle(dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL)) {}

    template <typename F>
    F resolve(const char* name) const {
        return handle != nullptr ? reinterpret_cast<F>(dlsym(handle, name)) : nullptr;
    }
#define HOSTTEST_CL_ENTRY(name) decltype(&::name) name = resolve<decltype(&::name)>(#name)
    HOSTTEST_CL_ENTRY(clGetPlatformIDs);
    HOSTTEST_CL_ENTRY(clGetDeviceIDs);
    HOSTTEST_CL_ENTRY(clGetDeviceInfo);
    HOSTTEST_CL_ENTRY(clCreateContext);
    HOSTTEST_CL_ENTRY(clReleaseContext);
    HOSTTEST_CL_ENTRY(clCreateCommandQueue);
    HOSTTEST_CL_ENTRY(clReleaseCommandQueue);
    HOSTTEST_CL_ENTRY(clCreateProgramWithSource);
    HOSTTEST_CL_ENTRY(clBuildProgram);
    HOSTTEST_CL_ENTRY(clReleaseProgram);
    HOSTTEST_CL_ENTRY(clCreateKernel);
    HOSTTEST_CL_ENTRY(clReleaseKernel);
    HOSTTEST_CL_ENTRY(clSetKernelArg);
    HOSTTEST_CL_ENTRY(clEnqueueNDRangeKernel);
    HOSTTEST_CL_ENTRY(clFinish);
    HOSTTEST_CL_ENTRY(clCreateImage);
    HOSTTEST_CL_ENTRY(clReleaseMemObject);
    HOSTTEST_CL_ENTRY(clGetImageInfo);
    HOSTTEST_CL_ENTRY(clCreateBuffer);
    HOSTTEST_CL_ENTRY(clEnqueueReadBuffer);
    HOSTTEST_CL_ENTRY(clEnqueueMapImage);
    HOSTTEST_CL_ENTRY(clEnqueueUnmapMemObject);
    HOSTTEST_CL_ENTRY(clCreateSampler);
    HOSTTEST_CL_ENTRY(clReleaseSampler);
    HOSTTEST_CL_ENTRY(clGetDeviceImageInfoQCOM);
    HOSTTEST_CL_ENTRY(clGetExtensionFunctionAddress);
    HOSTTEST_CL_ENTRY(clCreateFromGLBuffer);
    HOSTTEST_CL_ENTRY(clGetGLContextInfoKHR);
    HOSTTEST_CL_ENTRY(clGetProgramBuildInfo);
#undef HOSTTEST_CL_ENTRY
};

inline const std::string kVendorDriver = HOST_OPENCL_VENDOR_DIR "/libOpenCL.so";

// A driver loaded as the library loads it, a context on its one device, a queue, and a program
// built from `sources`. get() is the one shared by the tests of the process (with the tests'
// kernels and the library's), built once since PoCL compiles slowly.
struct ClSession {
    ClDriver cl;
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    cl_context context = nullptr;
    cl_command_queue queue = nullptr;
    cl_program program = nullptr;

    ClSession(const std::string& driver, std::vector<const char*> sources) : cl(driver) {
        cl.clGetPlatformIDs(1, &platform, nullptr);
        cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr);
        context = cl.clCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
        queue = cl.clCreateCommandQueue(context, device, 0, nullptr);
        program = cl.clCreateProgramWithSource(context, cl_uint(sources.size()), sources.data(),
                                               nullptr, nullptr);
        if (cl.clBuildProgram(program, 1, &device, "", nullptr, nullptr) != CL_SUCCESS) {
            char log[8192] = {};
            cl.clGetProgramBuildInfo(program, device, CL_PROGRAM_BUILD_LOG, sizeof(log), log,
                                     nullptr);
            ADD_FAILURE() << log;
        }
    }
    // Releases everything and closes the driver, as the library's converter does.
    ~ClSession() {
        cl.clReleaseProgram(program);
        cl.clReleaseCommandQueue(queue);
        cl.clReleaseContext(context);
        dlclose(cl.handle);
    }

    static ClSession& get();
};

// A picture: packed NV12 (width x height luma, then (height+1)/2 rows of (width+1)/2 Cb, Cr
// pairs), random or smooth.
struct Nv12Picture {
    uint32_t width, height;
    std::vector<uint8_t> bytes;
    uint32_t chromaWidth() const { return (width + 1) / 2 * 2; }
    const uint8_t* uv() const { return bytes.data() + size_t{width} * height; }
    uint8_t y(uint32_t x, uint32_t row) const { return bytes[size_t{row} * width + x]; }
    uint8_t cb(uint32_t x, uint32_t row) const {
        return uv()[size_t{row / 2} * chromaWidth() + x / 2 * 2];
    }
    uint8_t cr(uint32_t x, uint32_t row) const {
        return uv()[size_t{row / 2} * chromaWidth() + x / 2 * 2 + 1];
    }
};

inline Nv12Picture makePicture(uint32_t width, uint32_t height, bool smooth, uint32_t seed) {
    Nv12Picture p{width, height, {}};
    const size_t size = size_t{width} * height + size_t{p.chromaWidth()} * ((height + 1) / 2);
    std::mt19937 rng(seed);
    p.bytes.resize(size);
    for (size_t i = 0; i < size; ++i) {
        // Smooth: gentle ramps with a little noise, as much of a camera picture is.
        const size_t row =
                i < size_t{width} * height ? i / width : (i - width * height) / p.chromaWidth();
        const size_t col =
                i < size_t{width} * height ? i % width : (i - width * height) % p.chromaWidth();
        const size_t t = (row / 4 + col / 8) % 400;  // a gentle ramp folded back at 200
        p.bytes[i] = smooth ? uint8_t(20 + (t < 200 ? t : 399 - t) + rng() % 2) : uint8_t(rng());
    }
    return p;
}

// A compressed NV12 buffer holding `picture`.
inline android::sp<android::GraphicBuffer> compressedBuffer(const Nv12Picture& picture) {
    android::sp<android::GraphicBuffer> buffer = new android::GraphicBuffer(
            picture.width, picture.height, HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC, 1,
            GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN | GRALLOC_USAGE_HW_TEXTURE,
            "test");
    EXPECT_EQ(buffer->initCheck(), android::NO_ERROR);
    EXPECT_TRUE(host::encodeCompressedNv12(*buffer, picture.bytes.data(), picture.width,
                                           picture.uv(), picture.chromaWidth()));
    return buffer;
}

inline cl_mem_android_native_buffer_host_ptr nativeBufferRecord(android::GraphicBuffer& buffer,
                                                                cl_uint policy) {
    cl_mem_android_native_buffer_host_ptr record{};
    record.ext_host_ptr.allocation_type = CL_MEM_ANDROID_NATIVE_BUFFER_HOST_PTR_QCOM;
    record.ext_host_ptr.host_cache_policy = policy;
    record.anb_ptr = buffer.getNativeBuffer();
    return record;
}

constexpr cl_mem_flags kNativeBufferFlags =
        CL_MEM_EXT_HOST_PTR_QCOM | CL_MEM_USE_HOST_PTR | CL_MEM_READ_ONLY;

// A 2D image of a Qualcomm format over a native buffer, or a plane image of `parent`.
inline cl_mem qcomImage(cl_uint order, size_t width, size_t height, void* record, cl_mem parent,
                        cl_int* status, ClSession& s = ClSession::get()) {
    const cl_image_format format = {order, CL_UNORM_INT8};
    cl_image_desc desc{};
    desc.image_type = CL_MEM_OBJECT_IMAGE2D;
    desc.image_width = width;
    desc.image_height = height;
    desc.mem_object = parent;
    return s.cl.clCreateImage(s.context, parent ? CL_MEM_WRITE_ONLY : kNativeBufferFlags, &format,
                              &desc, parent ? nullptr : record, status);
}

}  // namespace hosttest
