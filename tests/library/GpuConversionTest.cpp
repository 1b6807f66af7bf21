// The library's GPU path on the host's Qualcomm-style OpenCL driver: the run-time loader
// (wrapper::loadOpenCl and its aborts), the graphic buffer allocator, and the format converter of
// compressed NV12 frames, compared byte for byte with a CPU computation of the kernel's contract.
// White-box: the units are compiled into this test.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hostcontrol/FaultInjection.h>
#include <hostcontrol/LogCapture.h>
#include <hostopencl/HostOpenCl.h>
#include <hostproperties/HostProperties.h>
#include <hostvndksupport/SphalNamespace.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

// The driver tests' support first: it chooses the OpenCL version of the headers.
#include "opencl_test_support.h"

#include "opencl/clWrapper.h"
#include "qcom/FormatConverter.h"
#include "qcom/GraphicBufferAllocator.h"

// The application's default linker namespace: on a device it does not see the vendor's or the
// system's OpenCL library by a bare name, and it finds "libOpenCL_system.so" among the system
// libraries. On Debian a bare "libOpenCL.so" would reach the ICD loader's development link, so
// this test's dlopen answers bare names as the app's namespace does and forwards everything else.
namespace {
bool gSystemLibraryVisible = false;
}  // namespace

extern "C" void* dlopen(const char* name, int flags) {
    using DlopenFn = void* (*)(const char*, int);
    static const DlopenFn real = reinterpret_cast<DlopenFn>(dlsym(RTLD_NEXT, "dlopen"));
    const bool system = name != nullptr && strcmp(name, "libOpenCL_system.so") == 0;
    if (name != nullptr && strcmp(name, "libOpenCL.so") == 0) return nullptr;
    if (system && !gSystemLibraryVisible) return nullptr;
    return real(system ? HOST_OPENCL_SYSTEM_DIR "/libOpenCL_system.so" : name, flags);
}

namespace nuvra::test {
namespace {

using android::GraphicBuffer;
using android::sp;

constexpr const char* kClTag = "NuvraCLWrapper";
constexpr const char* kConvTag = "NuvraFormatConv";
constexpr int kCompressed = 0x7FA30C06;

std::vector<std::string> lines(const char* tag) {
    std::vector<std::string> out;
    for (const host::LogLine& l : host::capturedLogs()) {
        if (l.tag == tag) out.push_back(std::to_string(l.priority) + " " + l.text);
    }
    return out;
}

// The error line of a failed OpenCL call, without the source path in front.
std::string clError(int line, const char* call, const char* status, int code) {
    return "[" + std::to_string(line) + "] : " + call + " error, " + status + "(" +
           std::to_string(code) + ")";
}

// Whether the converter logged `line` at error level: as it is, or, for the error line of an
// OpenCL call (from clError), after the unit's source path.
bool loggedError(const std::string& line) {
    const std::vector<std::string> log = lines(kConvTag);
    return std::any_of(log.begin(), log.end(), [&](const std::string& l) {
        return line[0] == '[' ? l.rfind("6 ", 0) == 0 &&
                                        l.find("qcom/FormatConverter.cpp" + line) != l.npos
                              : l == "6 " + line;
    });
}

class GpuTest : public ::testing::Test {
protected:
    void SetUp() override {
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
        host::clearProperty("log.tag.VANTORA_CAMERA");
        host::setSphalSearchPath({HOST_OPENCL_VENDOR_DIR});
        gSystemLibraryVisible = false;
    }
    void TearDown() override {
        wrapper::unloadOpenCl();
        host::resetFaultsAndCalls();
    }
};

// Without the vendor library, the system one after the attempts in order. It converts as well, and
// nothing keeps it loaded once the converter is gone: the next converter loads it afresh.
TEST_F(GpuTest, LoaderOpensTheVendorLibraryOrFallsBackToTheSystemOneInOrder) {
    host::setProperty("log.tag.VANTORA_CAMERA", "I");
    wrapper::unloadOpenCl();  // without a load: nothing
    wrapper::loadOpenCl();
    EXPECT_EQ(lines(kClTag), std::vector<std::string>{"4 OpenCL loaded."});
    ASSERT_NE(wrapper::libopencl, nullptr);
    wrapper::unloadOpenCl();
    EXPECT_EQ(wrapper::libopencl, nullptr);
    wrapper::unloadOpenCl();  // twice: nothing
    // The pointers are left as they were.
    EXPECT_NE(wrapper::clGetPlatformIDs, nullptr);

    host::setSphalSearchPath({"/nonexistent-vendor"});
    gSystemLibraryVisible = true;
    const std::vector<std::string> attempts = {
            "5 Unable to load libOpenCL.so from sphal",
            "5 Unable to load libOpenCL.so from default",
            "5 Unable to load libOpenCL_system.so from sphal",
            "4 OpenCL loaded.",
    };
    const hosttest::Nv12Picture picture = hosttest::makePicture(64, 32, true, 7);
    for (int round = 0; round < 2; ++round) {
        // The warnings and the info line follow the gate.
        host::setProperty("log.tag.VANTORA_CAMERA", round == 0 ? "I" : "E");
        host::clearCapturedLogs();
        {
            vantora::FormatConverter converter;
            EXPECT_EQ(lines(kClTag), round == 0 ? attempts : std::vector<std::string>{});
            std::vector<uint8_t> dst(64 * 32 * 3 / 2);
            ASSERT_TRUE(converter.convert(hosttest::compressedBuffer(picture)->getNativeBuffer(),
                                          64, 32, kCompressed, dst.data()));
            hosttest::expectNv21Of(picture, dst);
        }
        EXPECT_EQ(dlopen(HOST_OPENCL_SYSTEM_DIR "/libOpenCL_system.so", RTLD_NOW | RTLD_NOLOAD),
                  nullptr)
                << "still loaded after round " << round;
    }
}

TEST_F(GpuTest, LoaderAbortsWithoutALibraryOrAnEntryPoint) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    host::setSphalSearchPath({"/nonexistent-vendor"});
    EXPECT_DEATH(wrapper::loadOpenCl(), "Unable to load OpenCL\\.");
    host::setSphalSearchPath({HOST_OPENCL_VARIANTS_DIR "/no-clGetPlatformIDs"});
    EXPECT_DEATH(wrapper::loadOpenCl(), "Fail to find symbol clGetPlatformIDs");
    host::setSphalSearchPath({HOST_OPENCL_VARIANTS_DIR "/no-clGetDeviceImageInfoQCOM"});
    EXPECT_DEATH(wrapper::loadOpenCl(), "Fail to find symbol clGetDeviceImageInfoQCOM");
}

TEST_F(GpuTest, AllocatorMakesAVenusNv21BufferAndItsRecord) {
    sp<GraphicBuffer> buffer = new GraphicBuffer(8, 8, HAL_PIXEL_FORMAT_RGBA_8888, 1, 3, "old");
    cl_mem_android_native_buffer_host_ptr record{};
    ASSERT_TRUE(vantora::GraphicBufferAllocator::allocateGraphicBuffer(buffer, record, 64, 30));
    EXPECT_EQ(buffer->getPixelFormat(), 0x114);
    EXPECT_EQ(buffer->getUsage(), 0x333u);
    EXPECT_EQ(record.ext_host_ptr.allocation_type, 0x40C6u);
    EXPECT_EQ(record.ext_host_ptr.host_cache_policy, 0x40A5u);
    EXPECT_EQ(record.anb_ptr, buffer->getNativeBuffer());

    // A zero size is refused: the record stays untouched, the pointer holds the unusable buffer.
    cl_mem_android_native_buffer_host_ptr untouched{};
    EXPECT_FALSE(vantora::GraphicBufferAllocator::allocateGraphicBuffer(buffer, untouched, 0, 30));
    EXPECT_EQ(untouched.anb_ptr, nullptr);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->handle, nullptr);  // a failed reallocation leaves no handle
    EXPECT_EQ(lines(kConvTag), std::vector<std::string>{"6 allocateGraphicBuffer: graphic buffer "
                                                        "init fail"});
}

TEST_F(GpuTest, ConverterDecompressesIntoPackedNv21AndReleasesWhatItMadeOnFailure) {
    host::setProperty("log.tag.VANTORA_CAMERA", "V");
    vantora::FormatConverter converter;
    ASSERT_TRUE(converter.isInitialized());
    EXPECT_TRUE(converter.isSupportedFormat(kCompressed));
    EXPECT_FALSE(converter.isSupportedFormat(HAL_PIXEL_FORMAT_YCrCb_420_SP));
    // The intermediate buffer: the row pitch wide, 1.5 times the rows rounded up to 32 high.
    const cl_image_format nv12{CL_QCOM_NV12, CL_UNORM_INT8};
    for (auto [rows, expected] :
         {std::pair<size_t, size_t>{3000, 4512}, {1080, 1632}, {1088, 1632}}) {
        const cl_image_desc desc{CL_MEM_OBJECT_IMAGE2D, 1920, rows, 0, 0, 0, 0, 0, 0, {}};
        size_t width = 0, height = 0;
        converter.calculateGraphicBufferDimension(nv12, desc, width, height);
        EXPECT_EQ(height, expected);
        EXPECT_GE(width, 1920u);
    }
    // Random pictures up to 64x48, smooth ones (as a camera's) from 320x240.
    const uint32_t kSizes[][2] = {{64, 48}, {33, 17}, {2, 2}, {320, 240}, {4032, 3024}};
    for (const auto& [width, height] : kSizes) {
        SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
        hosttest::Nv12Picture picture = hosttest::makePicture(width, height, width >= 320, 5);
        sp<GraphicBuffer> buffer = hosttest::compressedBuffer(picture);
        std::vector<uint8_t> dst(size_t{width} * height * 3 / 2, 0xA5);
        host::clearCapturedLogs();
        ASSERT_TRUE(converter.convert(buffer->getNativeBuffer(), width, height, kCompressed,
                                      dst.data()));
        hosttest::expectNv21Of(picture, dst);
        EXPECT_EQ(lines(kConvTag).back(), "4 convert: processing done");
    }

    host::setProperty("log.tag.VANTORA_CAMERA", "I");
    hosttest::Nv12Picture picture = hosttest::makePicture(16, 16, false, 1);
    sp<GraphicBuffer> buffer = hosttest::compressedBuffer(picture);
    std::vector<uint8_t> dst(16 * 16 * 3 / 2);
    host::clearCapturedLogs();
    host::clearRecordedCalls();
    EXPECT_FALSE(converter.convert(buffer->getNativeBuffer(), 16, 16, 17, dst.data()));
    std::vector<std::string> log = lines(kConvTag);
    ASSERT_EQ(log.size(), 3u);
    EXPECT_EQ(log[0].rfind("4 convert: anb(", 0), 0u) << log[0];
    EXPECT_NE(log[0].find(" size(16x16) format(17/0x11) dst("), std::string::npos) << log[0];
    EXPECT_EQ(log[1], "6 operator(): unsupported format(17/0x11)");
    EXPECT_EQ(log[2], "4 convert: processing failed");
    EXPECT_EQ(host::callCount("opencl.clReleaseKernel"), 1u);
    EXPECT_EQ(host::callCount("opencl.clCreateImage"), 0u);

    // A failing call: its line (and status name), and every image made so far released.
    const struct {
        const char* point;
        int status;
        std::string line;
        size_t imagesReleased;
    } failures[] = {
            {"opencl.clCreateKernel", CL_INVALID_KERNEL_NAME,
             clError(190, "clCreateKernel", "CL_INVALID_KERNEL_NAME", -46), 0},
            {"opencl.clCreateImage", CL_INVALID_IMAGE_SIZE,
             clError(226, "clCreateImage", "CL_INVALID_IMAGE_SIZE", -40), 0},
            {"buffer.allocate", android::NO_MEMORY,
             "convert[260] : failed to allocate graphic buffer", 1},
            {"opencl.clCreateSampler", CL_OUT_OF_RESOURCES,
             clError(320, "clCreateSampler", "CL_OUT_OF_RESOURCES", -5), 4},
            {"opencl.clEnqueueNDRangeKernel", -25, clError(342, "clEnqueueNDRangeKernel", "", -25),
             4},
            {"opencl.clEnqueueMapImage", 7,
             clError(367, "clEnqueueMapImage", "Unspecified Error", 7), 4},
            {"buffer.lock", android::BAD_VALUE, "convert: fail to lock graphic buffer for y", 4},
    };
    for (const auto& f : failures) {
        SCOPED_TRACE(f.point);
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
        host::injectFault(f.point, f.status);
        EXPECT_FALSE(converter.convert(buffer->getNativeBuffer(), 16, 16, kCompressed, dst.data()));
        EXPECT_TRUE(loggedError(f.line));
        EXPECT_EQ(host::callCount("opencl.clReleaseMemObject"), f.imagesReleased);
        EXPECT_EQ(lines(kConvTag).back(), "4 convert: processing failed");
    }
}

TEST_F(GpuTest, ConstructionStopsAtTheFirstMissingPiece) {
    const struct {
        const char* point;
        int status;
        std::string line;  // the one error line
    } cases[] = {
            {host::kOpenClDropOtherImage, 1,
             "FormatConverter: Extension cl_qcom_other_image needed for NV12 image format is not "
             "supported."},
            {host::kOpenClDropCompressedImage, 1,
             "FormatConverter: Extension cl_qcom_compressed_image needed for compressed NV12 "
             "image format is not supported."},
            {host::kOpenClDropExtHostPtr, 1,
             "FormatConverter: Extension cl_qcom_ext_host_ptr needed for ION-backed images is "
             "not supported."},
            {host::kOpenClDropNativeBufferHostPtr, 1,
             "FormatConverter: Extension cl_qcom_android_native_buffer_host_ptr needed for "
             "ANB-backed images is not supported."},
            {host::kOpenClOverlongExtensions, 1,
             clError(86, "clGetDeviceInfo", "CL_INVALID_VALUE", -30)},
            {host::kOpenClNoGpu, 1, clError(81, "clGetDeviceIDs", "CL_DEVICE_NOT_FOUND", -1)},
            {"opencl.clBuildProgram", CL_BUILD_PROGRAM_FAILURE,
             clError(118, "clBuildProgram", "CL_BUILD_PROGRAM_FAILURE", -11)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.point);
        host::resetFaultsAndCalls();
        host::clearCapturedLogs();
        host::injectFault(c.point, c.status);
        EXPECT_FALSE(vantora::FormatConverter().isInitialized());
        ASSERT_EQ(lines(kConvTag).size(), 1u);
        EXPECT_TRUE(loggedError(c.line)) << lines(kConvTag)[0];
        // The destructor released what was made (no device when none was found) and unloaded.
        EXPECT_EQ(host::callCount("opencl.clReleaseDevice"),
                  c.point == std::string(host::kOpenClNoGpu) ? 0u : 1u);
        EXPECT_EQ(wrapper::libopencl, nullptr);
    }
}

}  // namespace
}  // namespace nuvra::test

// PoCL, LLVM and the ICD loader keep process-lifetime allocations (compiler state, the device's
// worker pools) that are not released before exit.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libpocl.so\nleak:libLLVM-15.so\nleak:libclang-cpp.so\nleak:libhwloc.so\n"
           "leak:libOpenCL.so.1\n";
}
