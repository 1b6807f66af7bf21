// The concurrency the library allows, run under ThreadSanitizer (without the JVM): the first
// call of the YUV-order cache from two threads, OpenCL loads and unloads on two threads, and two
// conversions at once. The races the library accepts are listed with their reasons in
// tests/support/tsan.supp; anything else ThreadSanitizer finds fails the run.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hostproperties/HostProperties.h>
#include <hostvndksupport/SphalNamespace.h>

#include <thread>
#include <vector>

// The driver tests' support first: it chooses the OpenCL version of the headers.
#include "opencl_test_support.h"

#include "opencl/clWrapper.h"
#include "platform/PlatformUtil.h"
#include "qcom/FormatConverter.h"

namespace nuvra::test {
namespace {

constexpr int kCompressed = 0x7FA30C06;

template <typename Fn>
void onTwoThreads(Fn fn) {
    std::thread a(fn, 0), b(fn, 1);
    a.join();
    b.join();
}

TEST(ConcurrencyTest, FirstYuvOrderCallFromTwoThreadsAgrees) {
    host::setProperty("ro.board.platform", "kona");
    YuvOrder orders[2] = {};
    onTwoThreads([&](int i) { orders[i] = PlatformUtil::getCurrentYuvOrder(); });
    EXPECT_EQ(orders[0], YUV_ORDER_NV12);
    EXPECT_EQ(orders[1], YUV_ORDER_NV12);
}

TEST(GpuConcurrencyTest, LoadsUnloadsAndConversionsOnTwoThreads) {
    host::setSphalSearchPath({HOST_OPENCL_VENDOR_DIR});
    // One open of the test's own, so that an unload on one thread never unmaps the driver while
    // the other still calls through the table (the loader counts no opens itself).
    void* driver = dlopen(HOST_OPENCL_VENDOR_DIR "/libOpenCL.so", RTLD_NOW);
    ASSERT_NE(driver, nullptr);
    // PoCL sets its platform up on the first query; that happens here, once, so that the threads
    // below race only on what the library shares.
    wrapper::loadOpenCl();
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    ASSERT_EQ(wrapper::clGetPlatformIDs(1, &platform, nullptr), CL_SUCCESS);
    ASSERT_EQ(wrapper::clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr),
              CL_SUCCESS);
    wrapper::unloadOpenCl();

    int platforms[2] = {};
    onTwoThreads([&](int i) {
        for (int round = 0; round < 20; ++round) {
            wrapper::loadOpenCl();
            cl_uint count = 0;
            if (wrapper::clGetPlatformIDs(0, nullptr, &count) == CL_SUCCESS) platforms[i] += count;
            wrapper::unloadOpenCl();
        }
    });
    EXPECT_EQ(platforms[0], 20);
    EXPECT_EQ(platforms[1], 20);

    const hosttest::Nv12Picture pictures[2] = {hosttest::makePicture(64, 32, false, 1),
                                               hosttest::makePicture(48, 48, true, 2)};
    const android::sp<android::GraphicBuffer> buffers[2] = {
            hosttest::compressedBuffer(pictures[0]), hosttest::compressedBuffer(pictures[1])};
    std::vector<uint8_t> out[2];
    bool converted[2] = {};
    onTwoThreads([&](int i) {
        const hosttest::Nv12Picture& p = pictures[i];
        out[i].assign(size_t{p.width} * p.height * 3 / 2, 0);
        vantora::FormatConverter converter;
        converted[i] = converter.isInitialized() &&
                       converter.convert(buffers[i]->getNativeBuffer(), p.width, p.height,
                                         kCompressed, out[i].data());
    });
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        ASSERT_TRUE(converted[i]);
        hosttest::expectNv21Of(pictures[i], out[i]);
    }
    dlclose(driver);
}

}  // namespace
}  // namespace nuvra::test

// PoCL, LLVM and the ICD loader keep process-lifetime allocations (compiler state, the device's
// worker pools) that are not released before exit (the AddressSanitizer build's leak check).
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libpocl.so\nleak:libLLVM-15.so\nleak:libclang-cpp.so\nleak:libhwloc.so\n"
           "leak:libOpenCL.so.1\n";
}
