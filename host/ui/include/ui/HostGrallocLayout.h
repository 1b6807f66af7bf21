/*
 * The host gralloc's buffer layouts, for tests and tools.
 *
 * Every buffer is one shared-memory file (memfd) mapped into the process. Its native handle
 * carries that descriptor and ints describing the layout, so a buffer imported from a handle
 * (GraphicBuffer::CLONE_HANDLE / TAKE_HANDLE / WRAP_HANDLE) is laid out exactly like the
 * original. The layout is fixed when the buffer is allocated, by the device profile current at
 * that time (host::DeviceProfile::paddedLayouts; flexYuvIsNv12 for the chroma order of
 * YCbCr_420_888 and IMPLEMENTATION_DEFINED buffers).
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace android {
class GraphicBuffer;
}

namespace host {

struct GrallocPlane {
    size_t offset;         // bytes from the start of the buffer
    uint32_t strideBytes;  // bytes from the start of one row to the next
    uint32_t rows;         // rows allocated (scanlines), at least the rows that hold pixels
    uint32_t rowBytes;     // bytes of image data at the start of each row
    uint32_t pixelRows;    // rows that hold image data
};

struct GrallocLayout {
    int32_t format = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t layerCount = 0;
    // The buffer's stride as GraphicBuffer::getStride() reports it: in pixels, but in bytes
    // for RAW10 and RAW12.
    uint32_t stride = 0;
    bool padded = false;  // laid out as a phone's gralloc pads buffers
    size_t size = 0;      // bytes allocated (all layers)

    // The planes in memory order: luma then chroma for YUV (Cr then Cb for YV12), one plane for
    // everything else.
    std::vector<GrallocPlane> planes;

    // What lockYCbCr() reports, as offsets from the buffer start (valid when ycbcrLockable).
    bool ycbcrLockable = false;
    size_t yOffset = 0;
    size_t cbOffset = 0;
    size_t crOffset = 0;
    uint32_t yStride = 0;  // bytes
    uint32_t cStride = 0;  // bytes
    uint32_t chromaStep = 0;

    // Bytes per pixel and per row that lock() reports for single-plane formats; -1 where they
    // are not defined (both for multi-plane formats, bytes per pixel for RAW10/RAW12).
    int32_t lockBytesPerPixel = -1;
    int32_t lockBytesPerStride = -1;
};

// The layout a buffer of this description gets; false for a format the gralloc does not
// allocate or a size it refuses (zero or too large).
bool computeGrallocLayout(int32_t format, uint32_t width, uint32_t height, uint32_t layerCount,
                          bool paddedLayouts, bool flexYuvIsNv12, GrallocLayout* out);

// The layout of an allocated buffer; false when the buffer has no host gralloc handle.
bool grallocLayoutOf(const android::GraphicBuffer& buffer, GrallocLayout* out);

// Every format the gralloc allocates, and a readable name for one (its HAL constant name).
std::vector<int32_t> grallocFormats();
std::string grallocFormatName(int32_t format);

// The image data of a buffer without its padding: each plane's pixelRows rows of rowBytes
// bytes, plane after plane (so NV21 comes out as packed NV21, YV12 as Y, Cr, Cb). Reads and
// writes the shared memory directly: no lock, no fault point, no call recorded. Read returns an
// empty vector for a buffer without host gralloc memory; write returns false for such a buffer
// or a size other than the packed size.
std::vector<uint8_t> readBufferContents(const android::GraphicBuffer& buffer);
bool writeBufferContents(const android::GraphicBuffer& buffer, const void* data, size_t size);
size_t packedContentSize(const GrallocLayout& layout);

// Number of buffers currently mapped in this process; leak checks compare it before and after.
size_t grallocLiveBufferCount();

}  // namespace host
