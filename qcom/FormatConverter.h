/*
 * The GPU converter of Qualcomm's UBWC-compressed NV12 frames (gralloc format 0x7FA30C06) to
 * plain NV21. A converter loads OpenCL and builds its context, queue and program when it is
 * constructed, and unloads OpenCL when it is destroyed; each conversion wraps the compressed
 * buffer and an intermediate NV21 gralloc buffer as images without copying, runs one kernel, and
 * copies the result out row by row.
 *
 * Needs the Qualcomm extensions "cl_qcom_other_image", "cl_qcom_compressed_image",
 * "cl_qcom_ext_host_ptr" and "cl_qcom_android_native_buffer_host_ptr". Not thread-safe: two
 * converters must not be alive at once on different threads.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <system/window.h>

#include "opencl/clWrapper.h"

namespace vantora {

class FormatConverter {
public:
    FormatConverter();
    virtual ~FormatConverter();
    FormatConverter(const FormatConverter&) = delete;
    FormatConverter& operator=(const FormatConverter&) = delete;

    bool isInitialized() const { return initialized; }
    // True for the compressed NV12 format 0x7FA30C06 only.
    bool isSupportedFormat(int format) const;
    // Decompresses `buffer` (width x height pixels) into `dst` as packed NV21: width * height
    // bytes of luma, then width * height / 2 bytes of Cr/Cb pairs. The caller checks
    // isInitialized() first.
    bool convert(ANativeWindowBuffer* buffer, size_t width, size_t height, int format,
                 uint8_t* dst) const;
    // The size a graphic buffer must have to hold an image of `format` and `desc` on this device.
    void calculateGraphicBufferDimension(const cl_image_format& format, const cl_image_desc& desc,
                                         size_t& width, size_t& height) const;

private:
    cl_device_id device;
    cl_context context;
    cl_command_queue queue;
    cl_program program;
    bool initialized;
};

}  // namespace vantora
