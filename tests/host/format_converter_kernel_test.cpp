// The library's kernel text run through the host driver the way the format converter runs it:
// compressed frame in, NV21 out, compared byte for byte with the same contract on the CPU.

#include "opencl_test_support.h"
#include "qcom/FormatConverterKernel.h"

namespace hosttest {
namespace {

// Converts `buffer` (compressed NV12) with the library's kernel as the converter does: images over
// the native buffers, plane images of the Venus NV21 output, one work item per 2x2 block, then
// the planes mapped and copied out row by row. Returns false at the first failing call.
bool convertOnDevice(ClSession& s, android::GraphicBuffer& buffer, size_t width, size_t height,
                     uint8_t* dst) {
    ClDriver& cl = s.cl;
    cl_int status = CL_SUCCESS;
    cl_kernel kernel = cl.clCreateKernel(s.program, "compressed_nv12_to_nv21", &status);
    auto inputRecord = nativeBufferRecord(buffer, CL_MEM_HOST_UNCACHED_QCOM);
    cl_mem input =
            qcomImage(CL_QCOM_COMPRESSED_NV12, width, height, &inputRecord, nullptr, &status, s);
    android::sp<android::GraphicBuffer> output =
            new android::GraphicBuffer(uint32_t(width), uint32_t(height),
                                       HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS, 1, 0x333, "nv21");
    auto outputRecord = nativeBufferRecord(*output, CL_MEM_HOST_WRITEBACK_QCOM);
    cl_mem nv12 = qcomImage(CL_QCOM_NV12, width, height, &outputRecord, nullptr, &status, s);
    cl_mem yPlane = qcomImage(CL_QCOM_NV12_Y, width, height, nullptr, nv12, &status, s);
    cl_mem uvPlane = qcomImage(CL_QCOM_NV12_UV, width, height, nullptr, nv12, &status, s);
    cl_sampler sampler = cl.clCreateSampler(s.context, CL_FALSE, CL_ADDRESS_CLAMP_TO_EDGE,
                                            CL_FILTER_NEAREST, &status);
    bool ok = kernel && input && nv12 && yPlane && uvPlane && sampler;
    const cl_mem args[] = {input, yPlane, uvPlane};
    for (cl_uint i = 0; i < 3 && ok; ++i)
        ok = cl.clSetKernelArg(kernel, i, 8, &args[i]) == CL_SUCCESS;
    ok = ok && cl.clSetKernelArg(kernel, 3, 8, &sampler) == CL_SUCCESS;
    const size_t global[2] = {width / 2, height / 2};
    ok = ok && cl.clEnqueueNDRangeKernel(s.queue, kernel, 2, nullptr, global, nullptr, 0, nullptr,
                                         nullptr) == CL_SUCCESS;
    ok = ok && cl.clFinish(s.queue) == CL_SUCCESS;
    const struct {
        cl_mem plane;
        size_t regionWidth, rows;
        uint8_t* to;
    } kPlanes[] = {{yPlane, width, height, dst},
                   {uvPlane, width / 2, height / 2, dst + width * height}};
    for (const auto& p : kPlanes) {
        const size_t origin[3] = {0, 0, 0}, region[3] = {p.regionWidth, p.rows, 1};
        size_t rowPitch = 0;
        auto* mapped = ok ? static_cast<uint8_t*>(cl.clEnqueueMapImage(
                                    s.queue, p.plane, CL_TRUE, CL_MAP_READ, origin, region,
                                    &rowPitch, nullptr, 0, nullptr, nullptr, &status))
                          : nullptr;
        ok = mapped != nullptr;
        for (size_t r = 0; ok && r < p.rows; ++r)
            memcpy(p.to + r * width, mapped + r * rowPitch, width);
        if (ok)
            ok = cl.clEnqueueUnmapMemObject(s.queue, p.plane, mapped, 0, nullptr, nullptr) ==
                 CL_SUCCESS;
    }
    cl.clFinish(s.queue);
    for (cl_mem mem : {input, uvPlane, yPlane, nv12}) {
        if (mem) cl.clReleaseMemObject(mem);
    }
    if (sampler) cl.clReleaseSampler(sampler);
    if (kernel) cl.clReleaseKernel(kernel);
    return ok;
}

TEST(FormatConverterKernel, Nv21OutputMatchesTheCpuComputation) {
    const struct {
        uint32_t width, height;
        bool smooth;
    } kCases[] = {{2, 2, false},   {6, 4, true},      {33, 17, false},
                  {130, 66, true}, {640, 480, false}, {1920, 1080, true}};
    for (const auto& c : kCases) {
        const Nv12Picture picture = makePicture(c.width, c.height, c.smooth, c.width + c.height);
        android::sp<android::GraphicBuffer> buffer = compressedBuffer(picture);
        const size_t w = c.width, h = c.height;
        std::vector<uint8_t> dst(w * h * 3 / 2, 0xA5);
        ASSERT_TRUE(convertOnDevice(ClSession::get(), *buffer, w, h, dst.data())) << w << "x" << h;

        // The kernel covers whole 2x2 blocks: an odd last column or row of luma stays unwritten.
        size_t wrong = 0;
        for (size_t y = 0; y < h / 2 * 2; ++y) {
            for (size_t x = 0; x < w / 2 * 2; ++x) wrong += dst[y * w + x] != picture.y(x, y);
        }
        const uint8_t* chroma = dst.data() + w * h;
        for (size_t y = 0; y < h / 2; ++y) {
            for (size_t x = 0; x < w / 2; ++x) {
                wrong += chroma[y * w + 2 * x] != picture.cr(2 * x, 2 * y);
                wrong += chroma[y * w + 2 * x + 1] != picture.cb(2 * x, 2 * y);
            }
        }
        EXPECT_EQ(wrong, 0u) << w << "x" << h;
    }
}

TEST(FormatConverterKernel, DriverLoadedAndUnloadedForEachConversion) {
    // As the library does: load, build, convert, release, unload; twice. The system copy is used
    // so that this test's opens and closes are the only ones (the vendor copy stays loaded).
    const Nv12Picture picture = makePicture(64, 32, true, 7);
    android::sp<android::GraphicBuffer> buffer = compressedBuffer(picture);
    for (int round = 0; round < 2; ++round) {
        std::vector<uint8_t> dst(64 * 32 * 3 / 2);
        {
            ClSession session(HOST_OPENCL_SYSTEM_DIR "/libOpenCL_system.so",
                              {vantora::kernelSource});
            ASSERT_TRUE(convertOnDevice(session, *buffer, 64, 32, dst.data()));
        }
        EXPECT_TRUE(std::equal(dst.begin(), dst.begin() + 64 * 32, picture.bytes.begin()));
        EXPECT_EQ(dlopen(HOST_OPENCL_SYSTEM_DIR "/libOpenCL_system.so", RTLD_NOW | RTLD_NOLOAD),
                  nullptr)
                << "still loaded after round " << round;
    }
}

}  // namespace
}  // namespace hosttest
