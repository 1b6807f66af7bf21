// Fuzzes the stride handling of the flexible YUV to NV21 conversion within valid buffers: the
// input picks the size, the layout, the signed row and pixel strides and where V lies against U;
// each plane is then allocated with exactly the bytes the gather rule reads (so AddressSanitizer
// reports any byte read outside them) and the output with exactly the NV21 bytes. Every variant
// that runs here must write what the scalar rule writes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "surface/kernels/FlexibleYuv.h"

namespace {

using nuvra::kernels::KernelVariant;

// Reads the fuzz input front to back; zeros once it runs out.
class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
    int16_t int16() { return static_cast<int16_t>(byte() | (byte() << 8)); }
    const uint8_t* rest(size_t* n) {
        *n = size_ - at_;
        return data_ + at_;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
};

// The smallest and largest offset from a plane pointer that the reads of `rows` rows of `cols`
// samples reach; lo > hi when nothing is read.
struct Span {
    ptrdiff_t lo = 1, hi = 0;
};

Span readSpan(ptrdiff_t rowStep, ptrdiff_t colStep, size_t rows, size_t cols) {
    if (rows == 0 || cols == 0) return {};
    const ptrdiff_t lastRow = static_cast<ptrdiff_t>(rows - 1) * rowStep;
    const ptrdiff_t lastCol = static_cast<ptrdiff_t>(cols - 1) * colStep;
    return {std::min<ptrdiff_t>(0, lastRow) + std::min<ptrdiff_t>(0, lastCol),
            std::max<ptrdiff_t>(0, lastRow) + std::max<ptrdiff_t>(0, lastCol)};
}

Span unite(Span a, Span b) {
    if (a.lo > a.hi) return b;
    if (b.lo > b.hi) return a;
    return {std::min(a.lo, b.lo), std::max(a.hi, b.hi)};
}

// A heap block of exactly the span's bytes, filled from the fuzz input.
struct Plane {
    Plane(Span span, const uint8_t* fill, size_t fillBytes)
        : lo(span.lo), bytes(span.hi >= span.lo ? static_cast<size_t>(span.hi - span.lo + 1) : 0) {
        block = static_cast<uint8_t*>(malloc(bytes == 0 ? 1 : bytes));
        for (size_t i = 0; i < bytes; ++i) block[i] = fillBytes ? fill[i % fillBytes] : uint8_t(i);
    }
    ~Plane() { free(block); }
    Plane(const Plane&) = delete;
    Plane& operator=(const Plane&) = delete;
    const uint8_t* origin() const { return block - lo; }
    ptrdiff_t lo;
    size_t bytes;
    uint8_t* block;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in(data, size);
    const int width = 1 + in.byte() % 160 + (in.byte() & 1) * 96;
    const int height = 1 + in.byte() % 12;
    const size_t w = static_cast<size_t>(width), h = static_cast<size_t>(height);
    const size_t pairs = w / 2, rows = h / 2;
    const int32_t yRowStride = in.int16() % 1024;
    int32_t uRowStride = in.int16() % 1024;
    int32_t uPixelStride = static_cast<int8_t>(in.byte()) % 6;
    int32_t vPixelStride = static_cast<int8_t>(in.byte()) % 6;
    ptrdiff_t vFromU = static_cast<int8_t>(in.byte());
    bool shared = true;
    // Steer half of the inputs to the layouts with vectorised rows (and their mirror image).
    switch (in.byte() % 8) {
        case 0:  // planar, separate planes
            uPixelStride = vPixelStride = 1;
            shared = false;
            break;
        case 1:  // planar, V placed anywhere around U
            uPixelStride = vPixelStride = 1;
            break;
        case 2:  // Cb, Cr pairs
        case 3:  // Cr, Cb pairs
            uPixelStride = vPixelStride = 2;
            vFromU = in.byte() % 2 == 0 ? 1 : -1;
            if (in.byte() % 2 == 0) uRowStride = static_cast<int32_t>(2 * pairs);
            break;
        case 4:
            shared = false;
            break;
        default:
            break;
    }

    size_t fillBytes = 0;
    const uint8_t* fill = in.rest(&fillBytes);
    const ptrdiff_t vRowStride =
            uRowStride + static_cast<ptrdiff_t>(pairs) * (vPixelStride - uPixelStride);
    Plane y(readSpan(yRowStride, 1, h, w), fill, fillBytes);
    const Span uSpan = readSpan(uRowStride, uPixelStride, rows, pairs);
    Span vSpan = readSpan(vRowStride, vPixelStride, rows, pairs);
    if (shared && vSpan.lo <= vSpan.hi) {
        vSpan.lo += vFromU;
        vSpan.hi += vFromU;
    }
    Plane u(shared ? unite(uSpan, vSpan) : uSpan, fill, fillBytes);
    Plane v(shared ? Span{} : vSpan, fill + fillBytes / 2, fillBytes - fillBytes / 2);
    const uint8_t* uOrigin = u.origin();
    const uint8_t* vOrigin = shared ? u.origin() + vFromU : v.origin();

    const size_t outBytes = w * h + rows * pairs * 2;
    std::vector<uint8_t> want(outBytes);
    nuvra::kernels::flexibleToNv21(KernelVariant::Scalar, want.data(), y.origin(), uOrigin, vOrigin,
                                   yRowStride, uRowStride, uPixelStride, vPixelStride, width,
                                   height);
    for (KernelVariant variant :
         {KernelVariant::SSE2, KernelVariant::SSSE3, KernelVariant::AVX2, KernelVariant::NEON}) {
        if (!nuvra::kernels::variantSupported(variant)) continue;
        std::vector<uint8_t> got(outBytes);
        nuvra::kernels::flexibleToNv21(variant, got.data(), y.origin(), uOrigin, vOrigin,
                                       yRowStride, uRowStride, uPixelStride, vPixelStride, width,
                                       height);
        if (got != want) abort();
    }
    return 0;
}
