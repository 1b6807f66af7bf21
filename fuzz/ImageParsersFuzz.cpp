// Fuzzes the byte-level parsers of the image operations with the library's own code:
//  - the JPEG trailer search over a BLOB buffer of exactly the input's bytes (AddressSanitizer
//    reports any read outside them); the size found must be the trailer's when its id word is
//    exactly 0x000000FF and its size is not 0, the buffer's width otherwise;
//  - the checks of gralloc 4 P010 plane layouts, with layouts built from the input and handed
//    out by the host mapper's override for a real P010 buffer; a refusal must leave the record
//    untouched, an acceptance must describe chroma 2 bytes apart with step 4. The verbose dump of
//    every layout runs too.
#include <aidl/android/hardware/graphics/common/PlaneLayout.h>
#include <aidl/android/hardware/graphics/common/PlaneLayoutComponentType.h>
#include <hostcontrol/LogCapture.h>
#include <hostproperties/HostProperties.h>
#include <system/graphics.h>
#include <ui/HostPlaneLayouts.h>
#include <utils/Mutex.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "surface/ImageSupport.h"
#include "surface/PropertyGet_Helper.h"

// The statics that the library's main unit defines beside the code fuzzed here.
PropertyGet_Helper gSurfaceUtilPropertyHelper;
android::Mutex gLock;

namespace {

using aidl::android::hardware::graphics::common::PlaneLayout;
using aidl::android::hardware::graphics::common::PlaneLayoutComponentType;

class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
    int64_t small() { return static_cast<int8_t>(byte()); }
    const uint8_t* rest(size_t* n) {
        *n = size_ - at_;
        return data_ + at_;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
};

uint32_t le32(const uint8_t* p) {
    return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
}

void fuzzJpegTrailer(Input& in) {
    size_t n = 0;
    const uint8_t* bytes = in.rest(&n);
    if (n < 8) return;  // callers hand only BLOB buffers, which hold the trailer at least
    uint8_t* blob = static_cast<uint8_t*>(malloc(n));
    memcpy(blob, bytes, n);
    LockedBuffer locked;
    locked.data = blob;
    locked.width = static_cast<uint32_t>(n);
    locked.height = 1;
    const uint32_t size = Image_getJpegSize(&locked, false);
    const uint8_t* trailer = blob + n - 8;
    const bool present = le32(trailer) == 0xFF && le32(trailer + 4) != 0;
    if (size != (present ? le32(trailer + 4) : static_cast<uint32_t>(n))) abort();
    free(blob);
}

// Values near the accepted ones, and any other now and then.
int64_t fieldValue(Input& in, std::initializer_list<int64_t> likely) {
    const uint8_t pick = in.byte();
    if (pick < likely.size() * 48) return likely.begin()[pick % likely.size()];
    return in.small();
}

void fuzzPlaneLayouts(Input& in, const android::sp<android::GraphicBuffer>& buffer) {
    static uint8_t mapping[1 << 16];
    const int layoutCount = in.byte() % 5;
    host::PlaneLayouts layouts(layoutCount);
    for (PlaneLayout& layout : layouts) {
        const int components = in.byte() % 4;
        for (int c = 0; c < components; ++c) {
            const int64_t type = fieldValue(in, {1, 2, 4, 1 << 10, 1 << 11, 1 << 12, 1 << 13});
            layout.components.push_back(host::planeLayoutComponent(
                    static_cast<PlaneLayoutComponentType>(type), fieldValue(in, {6, 22, 0}),
                    fieldValue(in, {10, 8, 16})));
        }
        layout.offsetInBytes = in.byte() * 64;
        layout.sampleIncrementInBits = fieldValue(in, {16, 32, 8});
        layout.strideInBytes = in.byte() * 16;
    }
    const android::status_t mapperStatus = in.byte() < 240 ? android::OK : android::NO_MEMORY;
    host::setPlaneLayoutOverride(mapperStatus, layouts);

    LockedBuffer out;
    const android::status_t err =
            extractP010Gralloc4PlaneLayout(buffer, mapping, HAL_PIXEL_FORMAT_YCBCR_P010, &out);
    if (err == android::OK) {
        if (out.flexFormat != HAL_PIXEL_FORMAT_YCBCR_P010 || out.chromaStep != 4) abort();
        if ((out.dataCb == nullptr) != (out.dataCr == nullptr)) abort();
        if (out.dataCb != nullptr && out.dataCr != out.dataCb + 2) abort();
    } else if (out.flexFormat != 0 || out.data != nullptr || out.chromaStep != 0) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    host::setLogEcho(false);
    host::setProperty("log.tag.VANTORA_CAMERA", "V");  // the layout dumps run as well
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static android::sp<android::GraphicBuffer> buffer = new android::GraphicBuffer(
            64, 32, HAL_PIXEL_FORMAT_YCBCR_P010, 1, GRALLOC_USAGE_SW_READ_OFTEN, "fuzz");
    Input in(data, size);
    if (in.byte() & 1) {
        fuzzJpegTrailer(in);
    } else {
        fuzzPlaneLayouts(in, buffer);
    }
    host::clearCapturedLogs();
    return 0;
}
