// Decoding a compressed NV12 frame plus the format converter's kernel on the host OpenCL driver
// (PoCL underneath), split into its steps, beside the CPU reference decode of the same frame.
// Run: build/bin/host_opencl_bench [repetitions]

#define CL_TARGET_OPENCL_VERSION 300
#define CL_USE_DEPRECATED_OPENCL_1_2_APIS
#include <CL/cl.h>
#include <CL/cl_ext_qcom.h>
#include <dlfcn.h>
#include <hardware/gralloc_qcom.h>
#include <stdlib.h>
#include <ui/GraphicBuffer.h>
#include <ui/HostCompressedNv12.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "qcom/FormatConverterKernel.h"

namespace {

// The driver's entry points the benchmark calls.
struct Cl {
    void* handle;
    explicit Cl(void* driver) : handle(driver) {}
#define BENCH_CL_ENTRY(name) \
    decltype(&::name) name = reinterpret_cast<decltype(&::name)>(dlsym(handle, #name))
    BENCH_CL_ENTRY(clGetPlatformIDs);
    BENCH_CL_ENTRY(clGetDeviceIDs);
    BENCH_CL_ENTRY(clCreateContext);
    BENCH_CL_ENTRY(clReleaseContext);
    BENCH_CL_ENTRY(clCreateCommandQueue);
    BENCH_CL_ENTRY(clReleaseCommandQueue);
    BENCH_CL_ENTRY(clCreateProgramWithSource);
    BENCH_CL_ENTRY(clBuildProgram);
    BENCH_CL_ENTRY(clReleaseProgram);
    BENCH_CL_ENTRY(clCreateKernel);
    BENCH_CL_ENTRY(clReleaseKernel);
    BENCH_CL_ENTRY(clSetKernelArg);
    BENCH_CL_ENTRY(clEnqueueNDRangeKernel);
    BENCH_CL_ENTRY(clFinish);
    BENCH_CL_ENTRY(clCreateImage);
    BENCH_CL_ENTRY(clReleaseMemObject);
    BENCH_CL_ENTRY(clCreateSampler);
    BENCH_CL_ENTRY(clReleaseSampler);
#undef BENCH_CL_ENTRY
};

double millis(const std::function<void()>& step) {
    const auto start = std::chrono::steady_clock::now();
    step();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count();
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

cl_mem image(const Cl& cl, cl_context context, cl_uint order, size_t w, size_t h, void* record,
             cl_mem parent) {
    const cl_image_format format = {order, CL_UNORM_INT8};
    cl_image_desc desc{};
    desc.image_type = CL_MEM_OBJECT_IMAGE2D;
    desc.image_width = w;
    desc.image_height = h;
    desc.mem_object = parent;
    const cl_mem_flags flags =
            parent ? CL_MEM_WRITE_ONLY
                   : CL_MEM_EXT_HOST_PTR_QCOM | CL_MEM_USE_HOST_PTR | CL_MEM_READ_ONLY;
    cl_int status = CL_SUCCESS;
    cl_mem mem =
            cl.clCreateImage(context, flags, &format, &desc, parent ? nullptr : record, &status);
    if (mem == nullptr) {
        fprintf(stderr, "clCreateImage(%#x): %d\n", order, status);
        exit(1);
    }
    return mem;
}

cl_mem_android_native_buffer_host_ptr record(android::GraphicBuffer& buffer, cl_uint policy) {
    cl_mem_android_native_buffer_host_ptr r{};
    r.ext_host_ptr.allocation_type = CL_MEM_ANDROID_NATIVE_BUFFER_HOST_PTR_QCOM;
    r.ext_host_ptr.host_cache_policy = policy;
    r.anb_ptr = buffer.getNativeBuffer();
    return r;
}

void benchFrame(const Cl& cl, uint32_t w, uint32_t h, int repetitions) {
    // A camera-like frame: gentle ramps with a little noise.
    std::vector<uint8_t> nv12(size_t{w} * h + size_t{(w + 1) / 2 * 2} * ((h + 1) / 2));
    for (size_t i = 0; i < nv12.size(); ++i)
        nv12[i] = uint8_t(64 + (i % w) / 32 + (i / w) / 32 % 64 + rand() % 2);
    android::sp<android::GraphicBuffer> input = new android::GraphicBuffer(
            w, h, HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC, 1, 0x333, "bench");
    host::CompressedNv12Stats stats;
    host::encodeCompressedNv12(*input, nv12.data(), w, nv12.data() + size_t{w} * h, (w + 1) / 2 * 2,
                               &stats);
    host::GrallocLayout layout;
    host::grallocLayoutOf(*input, &layout);
    void* base = nullptr;
    input->lock(GRALLOC_USAGE_SW_READ_OFTEN, &base);
    std::vector<double> cpu;
    for (int i = 0; i < repetitions; ++i) {
        cpu.push_back(
                millis([&] { host::decodeCompressedNv12(layout, static_cast<uint8_t*>(base)); }));
    }
    input->unlock();

    cl_platform_id platform;
    cl_device_id device;
    cl_context context = nullptr;
    cl_command_queue queue = nullptr;
    cl_program program = nullptr;
    cl.clGetPlatformIDs(1, &platform, nullptr);
    cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr);
    const double setup = millis([&] {
        context = cl.clCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
        queue = cl.clCreateCommandQueue(context, device, 0, nullptr);
    });
    const double build = millis([&] {
        program =
                cl.clCreateProgramWithSource(context, 1, &vantora::kernelSource, nullptr, nullptr);
        cl.clBuildProgram(program, 1, &device, "", nullptr, nullptr);
    });
    std::vector<double> images, kernels;
    for (int i = 0; i < repetitions; ++i) {
        android::sp<android::GraphicBuffer> output = new android::GraphicBuffer(
                w, h, HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS, 1, 0x333, "bench");
        auto in = record(*input, CL_MEM_HOST_UNCACHED_QCOM);
        auto out = record(*output, CL_MEM_HOST_WRITEBACK_QCOM);
        cl_mem mems[4];
        images.push_back(millis([&] {
            mems[0] = image(cl, context, CL_QCOM_COMPRESSED_NV12, w, h, &in, nullptr);
            mems[1] = image(cl, context, CL_QCOM_NV12, w, h, &out, nullptr);
            mems[2] = image(cl, context, CL_QCOM_NV12_Y, w, h, nullptr, mems[1]);
            mems[3] = image(cl, context, CL_QCOM_NV12_UV, w, h, nullptr, mems[1]);
        }));
        cl_kernel kernel = cl.clCreateKernel(program, "compressed_nv12_to_nv21", nullptr);
        cl_sampler sampler = cl.clCreateSampler(context, CL_FALSE, CL_ADDRESS_CLAMP_TO_EDGE,
                                                CL_FILTER_NEAREST, nullptr);
        cl.clSetKernelArg(kernel, 0, 8, &mems[0]);
        cl.clSetKernelArg(kernel, 1, 8, &mems[2]);
        cl.clSetKernelArg(kernel, 2, 8, &mems[3]);
        cl.clSetKernelArg(kernel, 3, 8, &sampler);
        const size_t global[2] = {w / 2, h / 2};
        kernels.push_back(millis([&] {
            cl.clEnqueueNDRangeKernel(queue, kernel, 2, nullptr, global, nullptr, 0, nullptr,
                                      nullptr);
            cl.clFinish(queue);
        }));
        for (cl_mem m : {mems[0], mems[3], mems[2], mems[1]}) cl.clReleaseMemObject(m);
        cl.clReleaseSampler(sampler);
        cl.clReleaseKernel(kernel);
    }
    cl.clReleaseProgram(program);
    cl.clReleaseCommandQueue(queue);
    cl.clReleaseContext(context);
    printf("%ux%u  compressed to %.0f%%  context+queue %.1f ms  program build %.0f ms  "
           "images %.2f ms  decode+kernel first %.0f ms, then %.1f ms  | CPU reference decode %.1f "
           "ms\n",
           w, h, 100.0 * stats.payloadBytes / (double(stats.tiles) * host::kCompressedTileSlot),
           setup, build, median(images), kernels[0],
           median(std::vector<double>(kernels.begin() + 1, kernels.end())), median(cpu));
}

}  // namespace

int main(int argc, char** argv) {
    const int repetitions = std::max(2, argc > 1 ? atoi(argv[1]) : 5);
    // A fresh PoCL program cache, so the first build of each frame size is cold and the
    // second warm.
    char cacheDir[] = "/tmp/host-opencl-bench-XXXXXX";
    if (mkdtemp(cacheDir) == nullptr) return 1;
    setenv("POCL_CACHE_DIR", cacheDir, 1);
    void* driver = dlopen(HOST_OPENCL_VENDOR_DIR "/libOpenCL.so", RTLD_NOW | RTLD_GLOBAL);
    if (driver == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    const Cl cl(driver);
    for (const char* pass : {"cold cache", "warm cache"}) {
        printf("-- %s\n", pass);
        benchFrame(cl, 1920, 1080, repetitions);
        benchFrame(cl, 4032, 3024, repetitions);
    }
    std::string cleanup = std::string("rm -rf ") + cacheDir;
    return system(cleanup.c_str()) == 0 ? 0 : 1;
}
