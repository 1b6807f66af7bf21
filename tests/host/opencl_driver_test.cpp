// The host OpenCL driver: its exports and reports, the compressed NV12 format, its images run
// through real kernels on PoCL. Its fault points are exercised by gpu_conversion_tests.

#include <dlfcn.h>
#include <hostcontrol/DeviceProfile.h>
#include <hostopencl/HostOpenCl.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>

#include "opencl_test_support.h"
#include "ui_test_support.h"

namespace hosttest {
namespace {

const std::string kVendorDriver = HOST_OPENCL_VENDOR_DIR "/libOpenCL.so";

// Per pixel of the global range: the image read at (x, y), then its 2x2 gather at (x, y) in the
// second half of `out`; and plane writes of a test pattern.
const char* kTestKernels = R"CLC(
__kernel void read_and_gather(__read_only image2d_t image, sampler_t sampler, __global uchar4* out) {
    int x = get_global_id(0), y = get_global_id(1);
    int i = y * get_global_size(0) + x, n = get_global_size(0) * get_global_size(1);
    out[i] = convert_uchar4_sat_rte(read_imagef(image, sampler, (int2)(x, y)) * 255.0f);
    float4 g = qcom_read_imagef_2x2(image, sampler, (float2)(x, y) + 0.5f, 0);
    out[n + i] = convert_uchar4_sat_rte(g * 255.0f);
}
__kernel void write_planes(__write_only image2d_t luma, __write_only image2d_t chroma) {
    int x = get_global_id(0), y = get_global_id(1);
    write_imagef(luma, (int2)(x, y), (float4)(((x * 7 + y * 13) & 255) / 255.0f));
    if (x % 2 == 0 && y % 2 == 0) {
        write_imagef(chroma, (int2)(x, y) / 2,
                     (float4)(((x + y) & 255) / 255.0f, ((x * 3 + 1) & 255) / 255.0f, 0.0f, 0.0f));
    }
}
)CLC";

// The vendor driver opened as the library opens it, its entry points, and a context on its one
// device with a queue and the tests' program; one for the process (PoCL compiles slowly).
struct ClSession {
    void* handle = dlopen(kVendorDriver.c_str(), RTLD_NOW | RTLD_GLOBAL);

    // The entry points, resolved by name as the library resolves them.
#define X(name)              \
    decltype(&::name) name = \
            reinterpret_cast<decltype(&::name)>(handle ? dlsym(handle, #name) : nullptr);
#include "opencl/clFunctions.def"
#undef X
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    cl_context context = nullptr;
    cl_command_queue queue = nullptr;
    cl_program program = nullptr;

    ClSession() {
        clGetPlatformIDs(1, &platform, nullptr);
        clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr);
        context = clCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
        queue = clCreateCommandQueue(context, device, 0, nullptr);
        program = clCreateProgramWithSource(context, 1, &kTestKernels, nullptr, nullptr);
        if (clBuildProgram(program, 1, &device, "", nullptr, nullptr) != CL_SUCCESS) {
            char log[8192] = {};
            clGetProgramBuildInfo(program, device, CL_PROGRAM_BUILD_LOG, sizeof(log), log, nullptr);
            ADD_FAILURE() << log;
        }
    }

    static ClSession& get() {
        static ClSession* session = new ClSession();
        return *session;
    }
};

cl_mem_android_native_buffer_host_ptr nativeBufferRecord(android::GraphicBuffer& buffer,
                                                         cl_uint policy) {
    return {{CL_MEM_ANDROID_NATIVE_BUFFER_HOST_PTR_QCOM, policy}, buffer.getNativeBuffer()};
}

// A 2D image of a Qualcomm format over a native buffer, or a plane image of `parent`.
cl_mem qcomImage(cl_uint order, size_t width, size_t height, void* record, cl_mem parent,
                 cl_int* status) {
    ClSession& s = ClSession::get();
    const cl_image_format format = {order, CL_UNORM_INT8};
    const cl_image_desc desc{CL_MEM_OBJECT_IMAGE2D, width, height, 0, 0, 0, 0, 0, 0, {parent}};
    return s.clCreateImage(
            s.context,
            parent ? CL_MEM_WRITE_ONLY
                   : CL_MEM_EXT_HOST_PTR_QCOM | CL_MEM_USE_HOST_PTR | CL_MEM_READ_ONLY,
            &format, &desc, parent ? nullptr : record, status);
}

// The functions that the library at `path` exports.
std::set<std::string> dynamicExports(const std::string& path) {
    std::set<std::string> names;
    FILE* nm = popen(("nm -D --defined-only " + path + " | awk '$2 == \"T\" { print $3 }'").c_str(),
                     "r");
    for (char name[256]; nm != nullptr && fscanf(nm, "%255s", name) == 1;) names.insert(name);
    if (nm != nullptr) pclose(nm);
    return names;
}

TEST(OpenClDriverExports, EachVariantExportsTheEntryPointsButItsOmittedOne) {
    std::ifstream list(HOST_OPENCL_SOURCE_DIR "/EntryPoints.txt");
    const std::set<std::string> all{std::istream_iterator<std::string>(list), {}};
    ASSERT_EQ(all.size(), 113u);
    const std::string kCases[][2] = {
            {kVendorDriver, ""},
            {HOST_OPENCL_SYSTEM_DIR "/libOpenCL_system.so", ""},
            {HOST_OPENCL_VARIANTS_DIR "/no-clGetPlatformIDs/libOpenCL.so", "clGetPlatformIDs"},
            {HOST_OPENCL_VARIANTS_DIR "/no-clGetDeviceImageInfoQCOM/libOpenCL.so",
             "clGetDeviceImageInfoQCOM"},
    };
    for (const auto& [path, omitted] : kCases) {
        std::set<std::string> expected = all;
        expected.erase(omitted);
        EXPECT_EQ(dynamicExports(path), expected) << path;
    }
}

// One GPU without GL sharing, the row pitches of the profile's gralloc layouts; loaded after the
// ICD loader in the global scope, the driver neither interposes on it nor on PoCL.
TEST(OpenClDriver, ReportsOneGpuAndTheGrallocRowPitchesBesideTheIcdLoader) {
    void* icd = dlopen("libOpenCL.so.1", RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(icd, nullptr);
    ClSession& s = ClSession::get();
    for (const char* name : {"clGetDeviceInfo", "clCreateImage", "clGetPlatformIDs"}) {
        Dl_info info{};
        ASSERT_NE(dladdr(dlsym(s.handle, name), &info), 0);
        EXPECT_STREQ(info.dli_fname, kVendorDriver.c_str()) << name;
    }
    // The loader still reaches PoCL's own device (a CPU), the driver reports its GPU.
    auto icdPlatforms =
            reinterpret_cast<decltype(&::clGetPlatformIDs)>(dlsym(icd, "clGetPlatformIDs"));
    auto icdDevices = reinterpret_cast<decltype(&::clGetDeviceIDs)>(dlsym(icd, "clGetDeviceIDs"));
    auto icdInfo = reinterpret_cast<decltype(&::clGetDeviceInfo)>(dlsym(icd, "clGetDeviceInfo"));
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    cl_device_type icdType = 0, driverType = 0;
    ASSERT_EQ(icdPlatforms(1, &platform, nullptr), CL_SUCCESS);
    ASSERT_EQ(icdDevices(platform, CL_DEVICE_TYPE_ALL, 1, &device, nullptr), CL_SUCCESS);
    ASSERT_EQ(icdInfo(device, CL_DEVICE_TYPE, sizeof(icdType), &icdType, nullptr), CL_SUCCESS);
    host::clearRecordedCalls();
    ASSERT_EQ(s.clGetDeviceInfo(s.device, CL_DEVICE_TYPE, sizeof(driverType), &driverType, nullptr),
              CL_SUCCESS);
    EXPECT_EQ(icdType, cl_device_type{CL_DEVICE_TYPE_CPU});
    EXPECT_EQ(driverType, cl_device_type{CL_DEVICE_TYPE_GPU});
    EXPECT_EQ(host::recordedCalls(), std::vector<std::string>{"opencl.clGetDeviceInfo"});
    // The loader stays open: its allocations would be reported as leaks of an unknown module.

    cl_uint platforms = 0, devices = 0;
    EXPECT_EQ(s.clGetPlatformIDs(0, nullptr, &platforms), CL_SUCCESS);
    EXPECT_EQ(platforms, 1u);
    EXPECT_EQ(s.clGetDeviceIDs(s.platform, CL_DEVICE_TYPE_ALL, 0, nullptr, &devices), CL_SUCCESS);
    EXPECT_EQ(devices, 1u);
    EXPECT_EQ(s.clGetDeviceIDs(s.platform, CL_DEVICE_TYPE_CPU, 1, &device, nullptr),
              CL_DEVICE_NOT_FOUND);
    size_t padding = 1;
    EXPECT_EQ(s.clGetDeviceInfo(s.device, CL_DEVICE_EXT_MEM_PADDING_IN_BYTES_QCOM, sizeof(padding),
                                &padding, nullptr),
              CL_SUCCESS);
    EXPECT_EQ(padding, 0u);
    // No GL sharing; the Qualcomm function is also offered as an extension function.
    cl_int status = CL_SUCCESS;
    EXPECT_EQ(s.clCreateFromGLBuffer(s.context, CL_MEM_READ_ONLY, 1, &status), nullptr);
    EXPECT_EQ(status, CL_INVALID_CONTEXT);
    EXPECT_EQ(s.clGetExtensionFunctionAddress("clGetDeviceImageInfoQCOM"),
              reinterpret_cast<void*>(s.clGetDeviceImageInfoQCOM));
    EXPECT_EQ(s.clGetExtensionFunctionAddress("clGetGLContextInfoKHR"), nullptr);

    const struct {
        const char* profile;
        cl_uint order;
        size_t width, height, rowPitch;
    } kCases[] = {
            {"packed-qcom", CL_QCOM_NV12, 1920, 1080, 1920},
            {"packed-qcom", CL_QCOM_NV12_UV, 1000, 3000, 1024},
            {"packed-qcom", CL_QCOM_COMPRESSED_NV12, 4032, 3024, 4096},
            {"packed-qcom", CL_RGBA, 100, 7, 400},
            {"phone-qcom", CL_RGBA, 100, 7, 512},
            {"phone-qcom", CL_R, 33, 2, 64},
    };
    size_t pitch = 0;
    for (const auto& c : kCases) {
        ScopedProfile profile(c.profile);
        const cl_image_format format = {c.order, CL_UNORM_INT8};
        EXPECT_EQ(s.clGetDeviceImageInfoQCOM(s.device, c.width, c.height, &format,
                                             CL_IMAGE_ROW_PITCH, sizeof(pitch), &pitch, nullptr),
                  CL_SUCCESS);
        EXPECT_EQ(pitch, c.rowPitch) << c.profile << " " << c.width;
    }
    const cl_image_format unsupported = {CL_RGBA, CL_FLOAT};
    EXPECT_EQ(s.clGetDeviceImageInfoQCOM(s.device, 16, 16, &unsupported, CL_IMAGE_ROW_PITCH,
                                         sizeof(pitch), &pitch, nullptr),
              CL_IMAGE_FORMAT_NOT_SUPPORTED);
}

TEST(CompressedNv12, RoundTripsLosslesslyAndStoresFlatTilesShort) {
    const uint32_t kSizes[][2] = {{1, 1},  {2, 2},    {3, 5},     {33, 17},
                                  {64, 8}, {127, 31}, {640, 480}, {1001, 67}};
    for (const auto& [width, height] : kSizes) {
        for (bool smooth : {false, true}) {
            SCOPED_TRACE(testing::Message() << width << "x" << height << (smooth ? " smooth" : ""));
            const Nv12Picture picture = makePicture(width, height, smooth, width);
            android::sp<android::GraphicBuffer> buffer = compressedBuffer(picture);
            host::GrallocLayout layout;
            ASSERT_TRUE(host::grallocLayoutOf(*buffer, &layout));
            void* base = nullptr;
            ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &base), android::NO_ERROR);
            EXPECT_EQ(host::decodeCompressedNv12(layout, static_cast<uint8_t*>(base)),
                      picture.bytes);
            // What a CPU lock sees is the compressed form, not the picture.
            EXPECT_NE(
                    memcmp(base, picture.bytes.data(), std::min<size_t>(64, picture.bytes.size())),
                    0);
            buffer->unlock();
            host::CompressedNv12Stats stats;
            host::encodeCompressedNv12(*buffer, picture.bytes.data(), picture.width, picture.uv(),
                                       picture.chromaWidth(), &stats);
            if (smooth && width >= 64) {
                EXPECT_EQ(stats.rawTiles, 0u);
                EXPECT_LT(stats.payloadBytes * 2,
                          stats.tiles * host::kCompressedTileSlot);  // k <= 3
            } else if (width >= 64) {
                EXPECT_GT(stats.rawTiles * 10, stats.tiles * 9);
            }
        }
    }
    const Nv12Picture picture = makePicture(8, 8, false, 1);
    android::sp<android::GraphicBuffer> nv12 = new android::GraphicBuffer(
            8, 8, HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS, 1, GRALLOC_USAGE_SW_WRITE_OFTEN, "test");
    EXPECT_FALSE(host::encodeCompressedNv12(*nv12, picture.bytes.data(), 8, picture.uv(), 8));
}

// Runs kernel `name` of the tests' program over width x height with `args`, to the end.
void runKernel(const char* name, std::initializer_list<const void*> args, size_t width,
               size_t height) {
    ClSession& s = ClSession::get();
    cl_kernel kernel = s.clCreateKernel(s.program, name, nullptr);
    cl_uint index = 0;
    for (const void* arg : args)
        EXPECT_EQ(s.clSetKernelArg(kernel, index++, sizeof(cl_mem), arg), CL_SUCCESS);
    const size_t global[2] = {width, height};
    EXPECT_EQ(s.clEnqueueNDRangeKernel(s.queue, kernel, 2, nullptr, global, nullptr, 0, nullptr,
                                       nullptr),
              CL_SUCCESS);
    EXPECT_EQ(s.clFinish(s.queue), CL_SUCCESS);
    s.clReleaseKernel(kernel);
}

// A read gives (Y, Cb, Cr, 1) of the pixel; the 2x2 gather the luma of the block at it in gather
// order, (x, y + 1), (x + 1, y + 1), (x + 1, y), (x, y), clamped to the edge as the sampler does.
TEST(OpenClDriverImages, CompressedImageReadsAndGathersYCbCrOnTheDevice) {
    const struct {
        uint32_t width, height;
        cl_uint policy;
    } kCases[] = {{1, 1, CL_MEM_HOST_UNCACHED_QCOM},
                  {7, 3, CL_MEM_HOST_WRITEBACK_QCOM},
                  {33, 18, CL_MEM_HOST_UNCACHED_QCOM},
                  {130, 67, CL_MEM_HOST_WRITEBACK_QCOM}};
    ClSession& s = ClSession::get();
    cl_sampler sampler = s.clCreateSampler(s.context, CL_FALSE, CL_ADDRESS_CLAMP_TO_EDGE,
                                           CL_FILTER_NEAREST, nullptr);
    for (const auto& c : kCases) {
        Nv12Picture picture = makePicture(c.width, c.height, c.width % 2 == 0, c.height);
        android::sp<android::GraphicBuffer> buffer = compressedBuffer(picture);
        auto record = nativeBufferRecord(*buffer, c.policy);
        cl_mem image =
                qcomImage(CL_QCOM_COMPRESSED_NV12, c.width, c.height, &record, nullptr, nullptr);
        ASSERT_NE(image, nullptr);
        // The image is bound to the buffer's memory: a new frame encoded into it is what the
        // next kernel reads.
        for (int frame = 0; frame < 2; ++frame) {
            if (frame == 1) {
                picture = makePicture(c.width, c.height, false, 99);
                host::encodeCompressedNv12(*buffer, picture.bytes.data(), picture.width,
                                           picture.uv(), picture.chromaWidth());
            }
            std::vector<cl_uchar4> pixels(size_t{c.width} * c.height * 2);
            const size_t bytes = pixels.size() * sizeof(cl_uchar4);
            cl_mem out = s.clCreateBuffer(s.context, CL_MEM_WRITE_ONLY, bytes, nullptr, nullptr);
            runKernel("read_and_gather", {&image, &sampler, &out}, c.width, c.height);
            EXPECT_EQ(s.clEnqueueReadBuffer(s.queue, out, CL_TRUE, 0, bytes, pixels.data(), 0,
                                            nullptr, nullptr),
                      CL_SUCCESS);
            s.clReleaseMemObject(out);
            auto luma = [&](uint32_t x, uint32_t y) {
                return picture.y(std::min(x, c.width - 1), std::min(y, c.height - 1));
            };
            size_t mismatches = 0;
            for (uint32_t y = 0; y < c.height; ++y) {
                for (uint32_t x = 0; x < c.width; ++x) {
                    const cl_uchar4& p = pixels[size_t{y} * c.width + x];
                    const cl_uchar4& g = pixels[pixels.size() / 2 + size_t{y} * c.width + x];
                    mismatches += p.s[0] != picture.y(x, y) || p.s[1] != picture.cb(x, y) ||
                                  p.s[2] != picture.cr(x, y) || p.s[3] != 255;
                    mismatches += g.s[0] != luma(x, y + 1) || g.s[1] != luma(x + 1, y + 1) ||
                                  g.s[2] != luma(x + 1, y) || g.s[3] != luma(x, y);
                }
            }
            EXPECT_EQ(mismatches, 0u) << c.width << "x" << c.height << " frame " << frame;
        }
        cl_image_format format{};
        EXPECT_EQ(s.clGetImageInfo(image, CL_IMAGE_FORMAT, sizeof(format), &format, nullptr),
                  CL_SUCCESS);
        EXPECT_EQ(format.image_channel_order, cl_uint{CL_QCOM_COMPRESSED_NV12});
        EXPECT_EQ(s.clReleaseMemObject(image), CL_SUCCESS);
    }
    s.clReleaseSampler(sampler);
}

TEST(OpenClDriverImages, PlaneWritesLandInTheVenusLayout) {
    ClSession& s = ClSession::get();
    const uint32_t width = 150, height = 37;  // stride 256, chroma after 64 luma rows
    android::sp<android::GraphicBuffer> buffer = new android::GraphicBuffer(
            width, height, HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS, 1, 0x333, "test");
    host::GrallocLayout layout;
    ASSERT_TRUE(host::grallocLayoutOf(*buffer, &layout));
    uint8_t* base = nullptr;
    ASSERT_EQ(buffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, reinterpret_cast<void**>(&base)),
              android::NO_ERROR);
    memset(base, 0xEE, layout.size);  // padding must keep this
    auto record = nativeBufferRecord(*buffer, CL_MEM_HOST_WRITEBACK_QCOM);
    cl_int status = CL_SUCCESS;
    cl_mem nv12 = qcomImage(CL_QCOM_NV12, width, height, &record, nullptr, &status);
    cl_mem yPlane = qcomImage(CL_QCOM_NV12_Y, width, height, nullptr, nv12, &status);
    cl_mem uvPlane = qcomImage(CL_QCOM_NV12_UV, width, height, nullptr, nv12, &status);
    ASSERT_TRUE(nv12 != nullptr && yPlane != nullptr && uvPlane != nullptr);
    runKernel("write_planes", {&yPlane, &uvPlane}, width, height);
    const size_t stride = 256, chroma = stride * 64;
    size_t wrong = 0;
    for (size_t i = 0; i < layout.size; ++i) {
        const size_t row = i < chroma ? i / stride : (i - chroma) / stride, col = i % stride;
        int expected = 0xEE;
        if (i < chroma && row < height && col < width) {
            expected = (col * 7 + row * 13) & 255;
        } else if (i >= chroma && row < (height + 1) / 2 && col < (width + 1) / 2 * 2) {
            expected = col % 2 == 0 ? (col + 2 * row) & 255 : (col / 2 * 2 * 3 + 1) & 255;
        }
        wrong += base[i] != expected;
    }
    EXPECT_EQ(wrong, 0u);
    // A mapping of the chroma plane is the buffer's own rows at its pitch: writes land there.
    const size_t origin[3] = {0, 0, 0}, region[3] = {width / 2, height / 2, 1};
    size_t rowPitch = 0;
    auto* mapped = static_cast<uint8_t*>(
            s.clEnqueueMapImage(s.queue, uvPlane, CL_TRUE, CL_MAP_READ | CL_MAP_WRITE, origin,
                                region, &rowPitch, nullptr, 0, nullptr, nullptr, &status));
    ASSERT_EQ(status, CL_SUCCESS);
    EXPECT_EQ(rowPitch, stride);
    mapped[stride + 1] ^= 0xFF;
    EXPECT_EQ(memcmp(mapped, base + chroma, stride * 2), 0);
    s.clEnqueueUnmapMemObject(s.queue, uvPlane, mapped, 0, nullptr, nullptr);
    s.clFinish(s.queue);
    buffer->unlock();
    for (cl_mem mem : {uvPlane, yPlane, nv12}) EXPECT_EQ(s.clReleaseMemObject(mem), CL_SUCCESS);
}

TEST(OpenClDriverImages, RefusesRecordsAndBuffersThatDoNotFit) {
    ClSession& s = ClSession::get();
    android::sp<android::GraphicBuffer> venus = new android::GraphicBuffer(
            16, 16, HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS, 1, 0x333, "test");
    const Nv12Picture picture = makePicture(16, 16, true, 3);
    android::sp<android::GraphicBuffer> compressed = compressedBuffer(picture);
    const cl_uint anb = CL_MEM_ANDROID_NATIVE_BUFFER_HOST_PTR_QCOM,
                  uncached = CL_MEM_HOST_UNCACHED_QCOM;
    const struct {
        const char* what;
        cl_uint order;
        android::GraphicBuffer* buffer;
        cl_uint allocation, policy;
        size_t width;
        cl_int status;
    } kCases[] = {
            {"NV12 over a compressed buffer", CL_QCOM_NV12, compressed.get(), anb, uncached, 16,
             CL_INVALID_IMAGE_FORMAT_DESCRIPTOR},
            {"compressed over a Venus buffer", CL_QCOM_COMPRESSED_NV12, venus.get(), anb, uncached,
             16, CL_INVALID_IMAGE_FORMAT_DESCRIPTOR},
            {"ION record", CL_QCOM_NV12, venus.get(), CL_MEM_ION_HOST_PTR_QCOM, uncached, 16,
             CL_INVALID_HOST_PTR},
            {"write-combining policy", CL_QCOM_NV12, venus.get(), anb,
             CL_MEM_HOST_WRITE_COMBINING_QCOM, 16, CL_INVALID_VALUE},
            {"wider than the buffer", CL_QCOM_COMPRESSED_NV12, compressed.get(), anb, uncached, 17,
             CL_INVALID_IMAGE_SIZE},
    };
    cl_int status = CL_SUCCESS;
    for (const auto& c : kCases) {
        auto record = nativeBufferRecord(*c.buffer, c.policy);
        record.ext_host_ptr.allocation_type = c.allocation;
        EXPECT_EQ(qcomImage(c.order, c.width, 16, &record, nullptr, &status), nullptr) << c.what;
        EXPECT_EQ(status, c.status) << c.what;
    }
    // A plane image needs an NV12 parent.
    auto record = nativeBufferRecord(*compressed, CL_MEM_HOST_UNCACHED_QCOM);
    cl_mem image = qcomImage(CL_QCOM_COMPRESSED_NV12, 16, 16, &record, nullptr, &status);
    EXPECT_EQ(qcomImage(CL_QCOM_NV12_Y, 16, 16, nullptr, image, &status), nullptr);
    EXPECT_EQ(status, CL_INVALID_MEM_OBJECT);
    s.clReleaseMemObject(image);
}

}  // namespace
}  // namespace hosttest

// PoCL, LLVM and the ICD loader keep process-lifetime allocations (compiler state, the device's
// worker pools, the loader's vendor list) that are not released before exit.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libpocl.so\nleak:libLLVM-15.so\nleak:libclang-cpp.so\nleak:libhwloc.so\n"
           "leak:libOpenCL.so.1\n";
}
