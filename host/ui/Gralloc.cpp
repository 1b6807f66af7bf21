// The host gralloc: per-format layouts, shared-memory allocation and mapping.

#include "Gralloc.h"

#include <fcntl.h>
#include <hardware/gralloc_qcom.h>
#include <hostcontrol/DeviceProfile.h>
#include <log/log.h>
#include <sys/mman.h>
#include <system/graphics.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

#include <ui/HostGrallocGuard.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

#undef LOG_TAG
#define LOG_TAG "HostGralloc"

namespace host {
namespace {

// How a format's planes are arranged.
enum class Arrangement {
    kSinglePlane,  // one plane of bytesPerSample-byte pixels
    kBlob,         // bytes: width is the size, height is 1
    kRaw10,        // 4 pixels in 5 bytes; stride in bytes
    kRaw12,        // 2 pixels in 3 bytes; stride in bytes
    kSemiPlanar,   // luma plane, then one interleaved chroma plane of half height
    kYv12,         // luma plane, then a Cr plane and a Cb plane of half width and height
    kVenus,        // semi-planar with Qualcomm's video (Venus) alignment
    kUbwc,         // Qualcomm UBWC compressed NV12: metadata and tile planes
};

// Which chroma sample comes first in an interleaved chroma plane.
enum class ChromaOrder {
    kNone,
    kCbCr,     // NV12 order
    kCrCb,     // NV21 order
    kProfile,  // NV12 or NV21 by DeviceProfile::flexYuvIsNv12
};

// One row of the format table. Alignments are in pixels; 1 means none.
struct FormatInfo {
    int32_t format;
    const char* name;
    Arrangement arrangement;
    uint32_t bytesPerSample;       // of the luma / single plane
    uint32_t packedStrideAlign;    // stride alignment of the "packed" profiles
    uint32_t paddedStrideAlign;    // stride alignment of the "phone" profiles
    uint32_t paddedScanlineAlign;  // luma scanline alignment of the "phone" profiles
    ChromaOrder order;
    bool ycbcr;  // lockYCbCr describes its three planes (8-bit YUV)
};

// The one table every layout, lock and query of the gralloc is driven by. Phone padding
// follows what phone grallocs do: RGB strides to 64 pixels, NV21 luma stride to 64 with the
// chroma right after the luma rows (msm's YCrCb_420_SP), flexible YUV as the camera's ZSL
// NV21 (stride and scanlines to 64), YV12 stride to 64 (always a multiple of 16).
constexpr FormatInfo kFormats[] = {
        // clang-format off
    {HAL_PIXEL_FORMAT_RGBA_8888, "RGBA_8888", Arrangement::kSinglePlane, 4, 1, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_RGBX_8888, "RGBX_8888", Arrangement::kSinglePlane, 4, 1, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_RGB_888, "RGB_888", Arrangement::kSinglePlane, 3, 1, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_RGB_565, "RGB_565", Arrangement::kSinglePlane, 2, 1, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_BGRA_8888, "BGRA_8888", Arrangement::kSinglePlane, 4, 1, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_RGBA_FP16, "RGBA_FP16", Arrangement::kSinglePlane, 8, 1, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_RGBA_1010102, "RGBA_1010102", Arrangement::kSinglePlane, 4, 1, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_YCRCB_420_SP, "YCrCb_420_SP", Arrangement::kSemiPlanar, 1, 2, 64, 1, ChromaOrder::kCrCb, true},
    {PIXEL_FORMAT_YCrCb_420_SP_M, "YCrCb_420_SP_M", Arrangement::kSemiPlanar, 1, 2, 64, 1, ChromaOrder::kCrCb, true},
    {HAL_PIXEL_FORMAT_YCBCR_420_888, "YCbCr_420_888", Arrangement::kSemiPlanar, 1, 2, 64, 64, ChromaOrder::kProfile, true},
    {HAL_PIXEL_FORMAT_IMPLEMENTATION_DEFINED, "IMPLEMENTATION_DEFINED", Arrangement::kSemiPlanar, 1, 2, 64, 64, ChromaOrder::kProfile, true},
    {HAL_PIXEL_FORMAT_YV12, "YV12", Arrangement::kYv12, 1, 16, 64, 1, ChromaOrder::kCrCb, true},
    {HAL_PIXEL_FORMAT_Y8, "Y8", Arrangement::kSinglePlane, 1, 16, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_Y16, "Y16", Arrangement::kSinglePlane, 2, 16, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_RAW16, "RAW16", Arrangement::kSinglePlane, 2, 16, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_RAW_OPAQUE, "RAW_OPAQUE", Arrangement::kSinglePlane, 2, 1, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_RAW10, "RAW10", Arrangement::kRaw10, 0, 1, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_RAW12, "RAW12", Arrangement::kRaw12, 0, 1, 64, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_BLOB, "BLOB", Arrangement::kBlob, 1, 1, 1, 1, ChromaOrder::kNone, false},
    {HAL_PIXEL_FORMAT_YCBCR_P010, "YCBCR_P010", Arrangement::kSemiPlanar, 2, 2, 64, 16, ChromaOrder::kCbCr, false},
    {HAL_PIXEL_FORMAT_YCbCr_420_SP_16BIT, "YCbCr_420_SP_16BIT", Arrangement::kSemiPlanar, 2, 2, 64, 16, ChromaOrder::kCbCr, false},
    {HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS, "YCrCb_420_SP_VENUS", Arrangement::kVenus, 1, 128, 128, 32, ChromaOrder::kCrCb, true},
    {HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS, "YCbCr_420_SP_VENUS", Arrangement::kVenus, 1, 128, 128, 32, ChromaOrder::kCbCr, true},
    {HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC, "YCbCr_420_SP_VENUS_UBWC", Arrangement::kUbwc, 1, 128, 128, 32, ChromaOrder::kCbCr, false},
        // clang-format on
};

const FormatInfo* findFormat(int32_t format) {
    for (const FormatInfo& info : kFormats) {
        if (info.format == format) return &info;
    }
    return nullptr;
}

uint64_t alignUp(uint64_t value, uint64_t alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

uint64_t divUp(uint64_t value, uint64_t divisor) {
    return (value + divisor - 1) / divisor;
}

// Buffers larger than this are refused, so that every offset fits the handle's 32-bit ints.
constexpr uint64_t kMaxBufferSize = uint64_t{1} << 31;

constexpr int kHandleMagic = 0x68677261;  // "hgra"
constexpr int kMaxPlanes = 4;

// The ints of a host gralloc handle, after its one descriptor.
enum HandleInt {
    kIntMagic,
    kIntFormat,
    kIntWidth,
    kIntHeight,
    kIntLayerCount,
    kIntStride,
    kIntUsageLow,
    kIntUsageHigh,
    kIntSize,
    kIntFlags,
    kIntPlaneCount,
    kIntPlanes,  // offset, strideBytes, rows per plane
    kHandleInts = kIntPlanes + 3 * kMaxPlanes,
};

constexpr int kFlagPadded = 1;
constexpr int kFlagFlexNv12 = 2;
constexpr int kFlagGuarded = 4;  // placed against a guard page (see HostGrallocGuard.h)

std::atomic<size_t> gLiveMappings{0};

bool guardModeFromEnvironment() {
    const char* value = getenv("HOST_GRALLOC_GUARD");
    return value != nullptr && strcmp(value, "1") == 0;
}

std::atomic<bool>& guardMode() {
    static std::atomic<bool> mode{guardModeFromEnvironment()};
    return mode;
}

size_t pageSize() {
    static const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

// A guarded buffer starts this many bytes into its memfd, so that its end meets a page end.
size_t guardLead(size_t size, bool guarded) {
    return guarded ? alignUp(size, pageSize()) - size : 0;
}

// Fills the interleaved chroma description of a semi-planar layout whose chroma plane starts
// at `chroma`.
void setInterleavedChroma(GrallocLayout* out, bool cbFirst, size_t chroma, uint32_t sampleBytes,
                          uint32_t cStride) {
    out->ycbcrLockable = true;
    out->cbOffset = cbFirst ? chroma : chroma + sampleBytes;
    out->crOffset = cbFirst ? chroma + sampleBytes : chroma;
    out->cStride = cStride;
    out->chromaStep = 2 * sampleBytes;
}

void addPlane(GrallocLayout* layout, uint64_t offset, uint64_t strideBytes, uint64_t rows,
              uint64_t rowBytes, uint64_t pixelRows) {
    layout->planes.push_back({static_cast<size_t>(offset), static_cast<uint32_t>(strideBytes),
                              static_cast<uint32_t>(rows), static_cast<uint32_t>(rowBytes),
                              static_cast<uint32_t>(pixelRows)});
}

}  // namespace

bool computeGrallocLayout(int32_t format, uint32_t width, uint32_t height, uint32_t layerCount,
                          bool paddedLayouts, bool flexYuvIsNv12, GrallocLayout* out) {
    const FormatInfo* info = findFormat(format);
    if (info == nullptr || width == 0 || height == 0 || layerCount == 0) return false;

    GrallocLayout layout;
    layout.format = format;
    layout.width = width;
    layout.height = height;
    layout.layerCount = layerCount;
    layout.padded = paddedLayouts;

    const uint64_t w = width;
    const uint64_t h = height;
    const uint64_t strideAlign = paddedLayouts ? info->paddedStrideAlign : info->packedStrideAlign;
    const uint64_t scanlineAlign = paddedLayouts ? info->paddedScanlineAlign : 1;
    const bool cbFirst = info->order == ChromaOrder::kCbCr ||
                         (info->order == ChromaOrder::kProfile && flexYuvIsNv12);
    uint64_t layerSize = 0;

    switch (info->arrangement) {
        case Arrangement::kSinglePlane: {
            const uint64_t stride = alignUp(w, strideAlign);
            const uint64_t strideBytes = stride * info->bytesPerSample;
            layout.stride = static_cast<uint32_t>(stride);
            addPlane(&layout, 0, strideBytes, h, w * info->bytesPerSample, h);
            layerSize = strideBytes * h;
            layout.lockBytesPerPixel = static_cast<int32_t>(info->bytesPerSample);
            layout.lockBytesPerStride = static_cast<int32_t>(strideBytes);
            break;
        }
        case Arrangement::kBlob:
            // A BLOB buffer is a byte array of `width` bytes; gralloc refuses other heights.
            if (height != 1) return false;
            layout.stride = width;
            addPlane(&layout, 0, w, 1, w, 1);
            layerSize = w;
            layout.lockBytesPerPixel = 1;
            layout.lockBytesPerStride = static_cast<int32_t>(width);
            break;
        case Arrangement::kRaw10:
        case Arrangement::kRaw12: {
            const uint64_t rowBytes =
                    info->arrangement == Arrangement::kRaw10 ? divUp(w, 4) * 5 : divUp(w, 2) * 3;
            const uint64_t strideBytes = paddedLayouts ? alignUp(rowBytes, 64) : rowBytes;
            layout.stride = static_cast<uint32_t>(strideBytes);
            addPlane(&layout, 0, strideBytes, h, rowBytes, h);
            layerSize = strideBytes * h;
            layout.lockBytesPerStride = static_cast<int32_t>(strideBytes);
            break;
        }
        case Arrangement::kSemiPlanar: {
            const uint64_t sampleBytes = info->bytesPerSample;
            const uint64_t stride = alignUp(w, strideAlign);
            const uint64_t strideBytes = stride * sampleBytes;
            const uint64_t lumaRows = alignUp(h, scanlineAlign);
            const uint64_t chromaRows = scanlineAlign > 1 ? lumaRows / 2 : divUp(h, 2);
            const uint64_t chroma = strideBytes * lumaRows;
            layout.stride = static_cast<uint32_t>(stride);
            addPlane(&layout, 0, strideBytes, lumaRows, w * sampleBytes, h);
            addPlane(&layout, chroma, strideBytes, chromaRows, divUp(w, 2) * 2 * sampleBytes,
                     divUp(h, 2));
            layerSize = chroma + strideBytes * chromaRows;
            layout.yStride = static_cast<uint32_t>(strideBytes);
            setInterleavedChroma(&layout, cbFirst, chroma, static_cast<uint32_t>(sampleBytes),
                                 static_cast<uint32_t>(strideBytes));
            layout.ycbcrLockable = info->ycbcr;
            break;
        }
        case Arrangement::kYv12: {
            // Android's YV12: stride a multiple of 16, chroma stride align(stride / 2, 16), Cr
            // plane right after the luma, Cb plane right after Cr.
            const uint64_t stride = alignUp(w, strideAlign);
            const uint64_t cStride = alignUp(stride / 2, 16);
            const uint64_t lumaSize = stride * h;
            const uint64_t chromaSize = cStride * (h / 2);
            layout.stride = static_cast<uint32_t>(stride);
            addPlane(&layout, 0, stride, h, w, h);
            addPlane(&layout, lumaSize, cStride, h / 2, divUp(w, 2), h / 2);
            addPlane(&layout, lumaSize + chromaSize, cStride, h / 2, divUp(w, 2), h / 2);
            layerSize = lumaSize + 2 * chromaSize;
            layout.ycbcrLockable = true;
            layout.yStride = static_cast<uint32_t>(stride);
            layout.crOffset = lumaSize;
            layout.cbOffset = lumaSize + chromaSize;
            layout.cStride = static_cast<uint32_t>(cStride);
            layout.chromaStep = 1;
            break;
        }
        case Arrangement::kVenus: {
            // Venus: luma stride align(width, 128), luma scanlines align(height, 32), chroma
            // scanlines align(height / 2, 16), chroma at stride x luma scanlines; the whole
            // buffer rounded up to 4 KiB pages.
            const uint64_t stride = alignUp(w, 128);
            const uint64_t lumaRows = alignUp(h, 32);
            const uint64_t chromaRows = alignUp(divUp(h, 2), 16);
            const uint64_t chroma = stride * lumaRows;
            layout.stride = static_cast<uint32_t>(stride);
            addPlane(&layout, 0, stride, lumaRows, w, h);
            addPlane(&layout, chroma, stride, chromaRows, divUp(w, 2) * 2, divUp(h, 2));
            layerSize = alignUp(chroma + stride * chromaRows, 4096);
            layout.yStride = static_cast<uint32_t>(stride);
            setInterleavedChroma(&layout, cbFirst, chroma, 1, static_cast<uint32_t>(stride));
            break;
        }
        case Arrangement::kUbwc: {
            // Venus UBWC NV12: luma metadata, luma tiles, chroma metadata, chroma tiles, each
            // plane page-aligned. The content is compressed: lockYCbCr refuses it, and the
            // planes' data is their whole allocation.
            const uint64_t stride = alignUp(w, 128);
            const uint64_t lumaRows = alignUp(h, 32);
            const uint64_t chromaRows = alignUp(divUp(h, 2), 32);
            const uint64_t yMetaStride = alignUp(divUp(w, 32), 64);
            const uint64_t yMetaRows = alignUp(divUp(h, 8), 16);
            const uint64_t uvMetaStride = alignUp(divUp(divUp(w, 2), 16), 64);
            const uint64_t uvMetaRows = alignUp(divUp(divUp(h, 2), 8), 16);
            const uint64_t yMetaSize = alignUp(yMetaStride * yMetaRows, 4096);
            const uint64_t ySize = alignUp(stride * lumaRows, 4096);
            const uint64_t uvMetaSize = alignUp(uvMetaStride * uvMetaRows, 4096);
            const uint64_t uvSize = alignUp(stride * chromaRows, 4096);
            layout.stride = static_cast<uint32_t>(stride);
            addPlane(&layout, 0, yMetaStride, yMetaRows, yMetaStride, yMetaRows);
            addPlane(&layout, yMetaSize, stride, lumaRows, stride, lumaRows);
            addPlane(&layout, yMetaSize + ySize, uvMetaStride, uvMetaRows, uvMetaStride,
                     uvMetaRows);
            addPlane(&layout, yMetaSize + ySize + uvMetaSize, stride, chromaRows, stride,
                     chromaRows);
            layerSize = yMetaSize + ySize + uvMetaSize + uvSize;
            break;
        }
    }

    if (layerSize == 0 || layerSize > kMaxBufferSize / layerCount) return false;
    layout.size = static_cast<size_t>(layerSize * layerCount);
    *out = layout;
    return true;
}

bool grallocLayoutOf(const android::GraphicBuffer& buffer, GrallocLayout* out) {
    if (buffer.hostMapping() != nullptr) {
        *out = buffer.hostMapping()->layout();
        return true;
    }
    return buffer.handle != nullptr && grallocHandleLayout(buffer.handle, out);
}

std::vector<int32_t> grallocFormats() {
    std::vector<int32_t> formats;
    for (const FormatInfo& info : kFormats) formats.push_back(info.format);
    return formats;
}

std::string grallocFormatName(int32_t format) {
    const FormatInfo* info = findFormat(format);
    if (info != nullptr) return info->name;
    char text[16];
    snprintf(text, sizeof(text), "%#x", static_cast<unsigned>(format));
    return text;
}

size_t grallocLiveBufferCount() {
    return gLiveMappings.load();
}

size_t packedContentSize(const GrallocLayout& layout) {
    size_t size = 0;
    for (const GrallocPlane& plane : layout.planes) {
        size += static_cast<size_t>(plane.rowBytes) * plane.pixelRows;
    }
    return size;
}

YCbCrLock grallocYCbCrLock(const GrallocLayout& layout) {
    const FormatInfo* info = findFormat(layout.format);
    if (info == nullptr) return YCbCrLock::kRefused;
    switch (info->arrangement) {
        case Arrangement::kSemiPlanar:
        case Arrangement::kYv12:
        case Arrangement::kVenus:
            return info->bytesPerSample == 1 ? YCbCrLock::kPlanes : YCbCrLock::kRefused;
        case Arrangement::kUbwc:
            return YCbCrLock::kRefused;
        case Arrangement::kSinglePlane:
            if (layout.format == HAL_PIXEL_FORMAT_Y8) return YCbCrLock::kLumaOnly;
            if (layout.format == HAL_PIXEL_FORMAT_Y16) return YCbCrLock::kRefused;
            return YCbCrLock::kNoPlanes;
        case Arrangement::kBlob:
        case Arrangement::kRaw10:
        case Arrangement::kRaw12:
            return YCbCrLock::kNoPlanes;
    }
    return YCbCrLock::kRefused;
}

void setGrallocGuardMode(bool on) {
    guardMode().store(on);
}

bool grallocGuardMode() {
    return guardMode().load();
}

std::vector<uint8_t> readBufferMemory(const android::GraphicBuffer& buffer) {
    const GrallocMapping* mapping = buffer.hostMapping();
    if (mapping == nullptr) return {};
    return std::vector<uint8_t>(mapping->base(), mapping->base() + mapping->layout().size);
}

std::vector<uint8_t> readBufferContents(const android::GraphicBuffer& buffer) {
    const GrallocMapping* mapping = buffer.hostMapping();
    if (mapping == nullptr) return {};
    const GrallocLayout& layout = mapping->layout();
    std::vector<uint8_t> contents(packedContentSize(layout));
    uint8_t* out = contents.data();
    for (const GrallocPlane& plane : layout.planes) {
        const uint8_t* row = mapping->base() + plane.offset;
        for (uint32_t y = 0; y < plane.pixelRows; y++, row += plane.strideBytes) {
            memcpy(out, row, plane.rowBytes);
            out += plane.rowBytes;
        }
    }
    return contents;
}

bool writeBufferContents(const android::GraphicBuffer& buffer, const void* data, size_t size) {
    const GrallocMapping* mapping = buffer.hostMapping();
    if (mapping == nullptr || size != packedContentSize(mapping->layout())) return false;
    const uint8_t* in = static_cast<const uint8_t*>(data);
    for (const GrallocPlane& plane : mapping->layout().planes) {
        uint8_t* row = mapping->base() + plane.offset;
        for (uint32_t y = 0; y < plane.pixelRows; y++, row += plane.strideBytes) {
            memcpy(row, in, plane.rowBytes);
            in += plane.rowBytes;
        }
    }
    return true;
}

status_t grallocAllocate(int32_t format, uint32_t width, uint32_t height, uint32_t layerCount,
                         uint64_t usage, const char* requestorName, native_handle_t** outHandle,
                         uint32_t* outStride) {
    const DeviceProfile& profile = currentDeviceProfile();
    GrallocLayout layout;
    if (!computeGrallocLayout(format, width, height, layerCount, profile.paddedLayouts,
                              profile.flexYuvIsNv12, &layout)) {
        ALOGE("allocate: refused %ux%u format %#x layers %u for %s", width, height,
              static_cast<unsigned>(format), layerCount, requestorName);
        return android::BAD_VALUE;
    }

    std::string name = "gralloc-" + grallocFormatName(format);
    int fd = memfd_create(name.c_str(), MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) {
        int err = errno;
        ALOGE("allocate: memfd_create failed: %s", strerror(err));
        return -err;
    }
    const bool guarded = grallocGuardMode();
    if (ftruncate(fd, static_cast<off_t>(guardLead(layout.size, guarded) + layout.size)) != 0) {
        int err = errno;
        ALOGE("allocate: %zu bytes refused: %s", layout.size, strerror(err));
        close(fd);
        return err == ENOMEM || err == ENOSPC || err == EFBIG ? android::NO_MEMORY : -err;
    }
    // The size of a gralloc buffer never changes after allocation.
    fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL);

    native_handle_t* handle = native_handle_create(1, kHandleInts);
    if (handle == nullptr) {
        close(fd);
        return android::NO_MEMORY;
    }
    int* ints = handle->data + handle->numFds;
    handle->data[0] = fd;
    ints[kIntMagic] = kHandleMagic;
    ints[kIntFormat] = format;
    ints[kIntWidth] = static_cast<int>(width);
    ints[kIntHeight] = static_cast<int>(height);
    ints[kIntLayerCount] = static_cast<int>(layerCount);
    ints[kIntStride] = static_cast<int>(layout.stride);
    ints[kIntUsageLow] = static_cast<int>(static_cast<uint32_t>(usage));
    ints[kIntUsageHigh] = static_cast<int>(static_cast<uint32_t>(usage >> 32));
    ints[kIntSize] = static_cast<int>(layout.size);
    ints[kIntFlags] = (profile.paddedLayouts ? kFlagPadded : 0) |
                      (profile.flexYuvIsNv12 ? kFlagFlexNv12 : 0) | (guarded ? kFlagGuarded : 0);
    ints[kIntPlaneCount] = static_cast<int>(layout.planes.size());
    for (int i = 0; i < kMaxPlanes; i++) {
        const bool used = i < static_cast<int>(layout.planes.size());
        ints[kIntPlanes + 3 * i] = used ? static_cast<int>(layout.planes[i].offset) : 0;
        ints[kIntPlanes + 3 * i + 1] = used ? static_cast<int>(layout.planes[i].strideBytes) : 0;
        ints[kIntPlanes + 3 * i + 2] = used ? static_cast<int>(layout.planes[i].rows) : 0;
    }
    *outHandle = handle;
    *outStride = layout.stride;
    return android::NO_ERROR;
}

bool grallocHandleLayout(const native_handle_t* handle, GrallocLayout* out) {
    if (handle == nullptr || handle->version != sizeof(native_handle_t) || handle->numFds != 1 ||
        handle->numInts != kHandleInts) {
        return false;
    }
    const int* ints = handle->data + handle->numFds;
    if (ints[kIntMagic] != kHandleMagic) return false;
    GrallocLayout layout;
    if (ints[kIntWidth] <= 0 || ints[kIntHeight] <= 0 || ints[kIntLayerCount] <= 0 ||
        !computeGrallocLayout(ints[kIntFormat], static_cast<uint32_t>(ints[kIntWidth]),
                              static_cast<uint32_t>(ints[kIntHeight]),
                              static_cast<uint32_t>(ints[kIntLayerCount]),
                              (ints[kIntFlags] & kFlagPadded) != 0,
                              (ints[kIntFlags] & kFlagFlexNv12) != 0, &layout)) {
        return false;
    }
    // The recorded planes must be the ones the description gives.
    if (ints[kIntSize] != static_cast<int>(layout.size) ||
        ints[kIntStride] != static_cast<int>(layout.stride) ||
        ints[kIntPlaneCount] != static_cast<int>(layout.planes.size())) {
        return false;
    }
    for (size_t i = 0; i < layout.planes.size(); i++) {
        if (ints[kIntPlanes + 3 * i] != static_cast<int>(layout.planes[i].offset) ||
            ints[kIntPlanes + 3 * i + 1] != static_cast<int>(layout.planes[i].strideBytes) ||
            ints[kIntPlanes + 3 * i + 2] != static_cast<int>(layout.planes[i].rows)) {
            return false;
        }
    }
    *out = layout;
    return true;
}

status_t grallocImport(const native_handle_t* handle, uint32_t width, uint32_t height,
                       uint32_t layerCount, int32_t format, uint64_t usage, uint32_t stride,
                       native_handle_t** outHandle) {
    GrallocLayout layout;
    if (!grallocHandleLayout(handle, &layout)) {
        ALOGE("importBuffer: not a gralloc buffer handle");
        return android::BAD_VALUE;
    }
    const int* ints = handle->data + handle->numFds;
    const uint64_t handleUsage = static_cast<uint32_t>(ints[kIntUsageLow]) |
                                 (uint64_t{static_cast<uint32_t>(ints[kIntUsageHigh])} << 32);
    if (layout.width != width || layout.height != height || layout.layerCount != layerCount ||
        layout.format != format || layout.stride != stride || (usage & ~handleUsage) != 0) {
        ALOGE("importBuffer: %ux%u format %#x stride %u does not describe the buffer "
              "(%ux%u format %#x stride %u)",
              width, height, static_cast<unsigned>(format), stride, layout.width, layout.height,
              static_cast<unsigned>(layout.format), layout.stride);
        return android::BAD_VALUE;
    }
    native_handle_t* clone = native_handle_clone(handle);
    if (clone == nullptr) return android::NO_MEMORY;
    *outHandle = clone;
    return android::NO_ERROR;
}

void grallocFree(native_handle_t* handle) {
    if (handle == nullptr) return;
    native_handle_close(handle);
    native_handle_delete(handle);
}

GrallocMapping* GrallocMapping::map(const native_handle_t* handle) {
    GrallocLayout layout;
    if (!grallocHandleLayout(handle, &layout)) return nullptr;
    const bool guarded = (handle->data[handle->numFds + kIntFlags] & kFlagGuarded) != 0;
    const size_t lead = guardLead(layout.size, guarded);
    const size_t fileSize = lead + layout.size;
    // A guarded buffer's file ends on a page end, and one inaccessible page is reserved after it.
    const size_t regionSize = guarded ? fileSize + pageSize() : fileSize;
    void* region = nullptr;
    if (guarded) {
        region = mmap(nullptr, regionSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE,
                      -1, 0);
        if (region == MAP_FAILED) {
            ALOGE("map: reserving %zu bytes failed: %s", regionSize, strerror(errno));
            return nullptr;
        }
    }
    void* data = mmap(region, fileSize, PROT_READ | PROT_WRITE,
                      MAP_SHARED | (guarded ? MAP_FIXED : 0), handle->data[0], 0);
    if (data == MAP_FAILED) {
        ALOGE("map: mmap of %zu bytes failed: %s", fileSize, strerror(errno));
        if (guarded) munmap(region, regionSize);
        return nullptr;
    }
    gLiveMappings++;
    return new GrallocMapping(layout, static_cast<uint8_t*>(data) + lead, data, regionSize);
}

GrallocMapping::~GrallocMapping() {
    munmap(mRegion, mRegionSize);
    gLiveMappings--;
}

void GrallocMapping::lock() {
    std::lock_guard<std::mutex> guard(mMutex);
    mLockCount++;
}

bool GrallocMapping::unlock() {
    std::lock_guard<std::mutex> guard(mMutex);
    if (mLockCount == 0) return false;
    mLockCount--;
    return true;
}

int GrallocMapping::lockCount() const {
    std::lock_guard<std::mutex> guard(mMutex);
    return mLockCount;
}

}  // namespace host
