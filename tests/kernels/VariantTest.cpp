// Every variant (unsupported ones run the scalar rows) against the model and the scalar reference
// over many sizes, strides, chroma layouts and pixel contents, and the high-byte extraction on
// worked samples and against the scalar rows; and the bounds: buffers fenced by inaccessible pages
// on either side, canary bytes in every gap and margin.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "KernelTestSupport.h"
#include "surface/kernels/HighBytes.h"
#include "surface/kernels/RowFunctions.h"

namespace nuvra::kernels::test {
namespace {

// Widths around the vector block sizes (16 and 32 pixels) and odd ones, heights with and without
// a last row of their own, single rows and single columns.
std::vector<std::pair<size_t, size_t>> frameSizes() {
    std::vector<std::pair<size_t, size_t>> sizes = {{1, 40}, {1, 9}, {255, 7}, {256, 6}, {1001, 3}};
    const size_t widths[] = {1,  2,  3,  5,  8,  15, 16, 17, 31,  32,  33,
                             34, 47, 48, 63, 64, 65, 66, 97, 127, 128, 129};
    for (size_t w : widths) {
        for (size_t h = 1; h <= 5; ++h) sizes.emplace_back(w, h);
    }
    return sizes;
}

enum class Layout { NV21, NV12, Planar, Step3, Overlapping };

constexpr const char* kLayoutNames[] = {"NV21", "NV12", "Planar", "Step3", "Overlapping"};

// Where the planes of one frame lie within one output buffer: `lead` bytes after its start and
// `tail` bytes before its end (a canary margin, or 0 against a fence).
struct Geometry {
    size_t total = 0, yOff = 0, crOff = 0, cbOff = 0, step = 0, yStride = 0, cStride = 0;
};

constexpr size_t kMargin = 40;

Geometry geometry(Layout layout, size_t w, size_t h, size_t pad, size_t lead, size_t tail) {
    const size_t step = layout == Layout::Planar ? 1 : layout == Layout::Step3 ? 3 : 2;
    const size_t yStride = w + pad, cStride = step * ((w + 1) / 2) + pad;  // planar: per plane
    const size_t yEnd = lead + yStride * h, chroma = cStride * ((h + 1) / 2);
    Geometry g{yEnd + chroma, lead, yEnd, yEnd + 1, step, yStride, cStride};
    if (layout == Layout::NV12) std::swap(g.crOff, g.cbOff);
    if (layout == Layout::Planar) {
        g.cbOff = g.total;
        g.total += chroma;
    } else if (layout == Layout::Overlapping) {
        // The chroma starts in the middle of the Y plane.
        g.crOff = lead + yStride * h / 2;
        g.cbOff = g.crOff + 1;
        g.total = std::max(yEnd, g.crOff + chroma);
    }
    g.total += tail;
    return g;
}

class KernelVariantTest : public ::testing::TestWithParam<KernelVariant> {};

// The input and the planes' buffer lie against an inaccessible page, after the data and before
// it in turn, with a canary margin on the other side; canaries fill every stride gap.
TEST_P(KernelVariantTest, RgbaToYuv420MatchesModelAndScalarInsideFencedBuffers) {
    std::mt19937 rng(1234);
    std::vector<uint8_t> expected, scalar;
    bool after = false;
    for (const auto& [w, h] : frameSizes()) {
        for (Layout layout :
             {Layout::NV21, Layout::NV12, Layout::Planar, Layout::Step3, Layout::Overlapping}) {
            for (size_t pad : {size_t{0}, size_t{13}}) {
                for (Fill fill : {Fill::Random, Fill::Extremes, Fill::Black, Fill::White}) {
                    after = !after;
                    SCOPED_TRACE(testing::Message()
                                 << w << "x" << h << " " << kLayoutNames[int(layout)] << " pad "
                                 << pad << " fill " << int(fill) << (after ? " after" : " before"));
                    const auto fence =
                            after ? GuardedBuffer::Fence::After : GuardedBuffer::Fence::Before;
                    GuardedBuffer rgba(w * h * 4, fence);
                    fillBytes(rgba.data(), rgba.size(), fill, rng);
                    const Geometry g =
                            geometry(layout, w, h, pad, after ? kMargin : 0, after ? 0 : kMargin);
                    GuardedBuffer out(g.total, fence);
                    expected.assign(g.total, kCanary);
                    scalar.assign(g.total, kCanary);
                    uint8_t *o = out.data(), *e = expected.data(), *r = scalar.data();
                    rgbaToYuv420(GetParam(), rgba.data(), w, h, o + g.yOff, o + g.crOff,
                                 o + g.cbOff, g.step, g.yStride, g.cStride);
                    modelRgbaToYuv420(rgba.data(), w, h, e + g.yOff, e + g.crOff, e + g.cbOff,
                                      g.step, g.yStride, g.cStride);
                    rgbaToYuv420(KernelVariant::Scalar, rgba.data(), w, h, r + g.yOff, r + g.crOff,
                                 r + g.cbOff, g.step, g.yStride, g.cStride);
                    ASSERT_EQ(out.bytes(), expected);
                    ASSERT_EQ(out.bytes(), scalar);
                }
            }
        }
    }
}

// Sizes of nv21ToRgb565, including the ones outside the even-width walk.
std::vector<std::pair<int, int>> rgb565Sizes() {
    std::vector<std::pair<int, int>> sizes = {{0, 4}, {4, 0}, {-2, 4}, {4, -2}, {1, 1},
                                              {1, 2}, {2, 1}, {33, 1}, {2, 2}};
    for (int w : {3, 16, 17, 30, 31, 32, 33, 34, 63, 64, 65, 66, 100, 129}) {
        for (int h : {2, 3, 4, 5}) sizes.emplace_back(w, h);
    }
    sizes.emplace_back(641, 7);
    return sizes;
}

TEST_P(KernelVariantTest, Nv21ToRgb565MatchesModelInsideFencedBuffers) {
    std::mt19937 rng(7);
    for (const auto& [w, h] : rgb565Sizes()) {
        const size_t uw = w > 0 ? size_t(w) : 0, uh = h > 0 ? size_t(h) : 0;
        // ceil(h / 2) chroma rows, exactly w * h * 3 / 2 bytes (ending inside the last chroma
        // row of an odd height), h / 2 rows, and a frame cut inside its luma.
        const size_t inputSizes[] = {uw * uh + (uh + 1) / 2 * uw, uw * uh * 3 / 2,
                                     uw * uh + (uh / 2) * uw, uw * uh / 2};
        for (size_t inputSize : inputSizes) {
            for (auto fence : {GuardedBuffer::Fence::After, GuardedBuffer::Fence::Before}) {
                SCOPED_TRACE(testing::Message() << w << "x" << h << " from " << inputSize);
                GuardedBuffer in(inputSize, fence);
                fillBytes(in.data(), in.size(), Fill::Random, rng);
                GuardedBuffer out(uw * uh * 2, fence);
                nv21ToRgb565(GetParam(), in.data(), in.size(), w, h, out.data());
                std::vector<uint8_t> expected(out.size(), kCanary);
                modelNv21ToRgb565(in.data(), in.size(), w, h, expected.data());
                ASSERT_EQ(out.bytes(), expected);
                std::vector<uint8_t> scalar(out.size(), kCanary);
                nv21ToRgb565(KernelVariant::Scalar, in.data(), in.size(), w, h, scalar.data());
                ASSERT_EQ(out.bytes(), scalar);
            }
        }
    }
}

std::vector<uint8_t> modelSwap(const uint8_t* src, size_t bytes) {
    std::vector<uint8_t> out(src, src + bytes);
    for (size_t i = 0; i + 1 < bytes; i += 2) std::swap(out[i], out[i + 1]);
    return out;
}

// Every length 0-160 and longer ones, at every alignment of source and destination, in place,
// against a PROT_NONE page on either side, and past kStreamingSwapBytes, where runs take
// non-temporal stores wherever the destination can be aligned.
TEST_P(KernelVariantTest, CopySwapChromaPairsAnyLengthAlignmentAndFence) {
    std::mt19937 rng(5);
    std::vector<size_t> lengths;
    for (size_t n = 0; n <= 160; ++n) lengths.push_back(n);
    lengths.insert(lengths.end(), {255, 256, 1001, 4097, detail::kStreamingSwapBytes + 199});
    for (size_t bytes : lengths) {
        std::vector<uint8_t> src(bytes + 8);
        fillBytes(src.data(), src.size(), Fill::Random, rng);
        const size_t shifts = bytes > 4097 ? 2 : 4;
        for (size_t srcShift = 0; srcShift < shifts; ++srcShift) {
            const size_t dstShift = (srcShift * 3 + bytes) % 8;
            SCOPED_TRACE(testing::Message()
                         << bytes << " bytes, shifts " << srcShift << "/" << dstShift);
            const std::vector<uint8_t> swapped = modelSwap(src.data() + srcShift, bytes);
            std::vector<uint8_t> dst(bytes + 2 * kMargin, kCanary);
            copySwapChromaPairs(GetParam(), dst.data() + kMargin + dstShift, src.data() + srcShift,
                                bytes);
            std::vector<uint8_t> expected(dst.size(), kCanary);
            std::copy(swapped.begin(), swapped.end(), expected.begin() + kMargin + dstShift);
            ASSERT_EQ(dst, expected);

            std::vector<uint8_t> inPlace(src.begin() + srcShift, src.begin() + srcShift + bytes);
            copySwapChromaPairs(GetParam(), inPlace.data(), inPlace.data(), bytes);
            ASSERT_EQ(inPlace, swapped);
        }
        if (bytes % 16 > 2 && bytes % 16 != 15 && bytes < 4097) continue;  // a sample, fenced
        for (auto fence : {GuardedBuffer::Fence::After, GuardedBuffer::Fence::Before}) {
            GuardedBuffer in(bytes, fence), out(bytes, fence);
            memcpy(in.data(), src.data(), bytes);
            copySwapChromaPairs(GetParam(), out.data(), in.data(), bytes);
            ASSERT_EQ(out.bytes(), modelSwap(src.data(), bytes)) << bytes;
            copySwapChromaPairs(GetParam(), in.data(), in.data(), bytes);
            ASSERT_EQ(in.bytes(), modelSwap(src.data(), bytes)) << bytes << " in place";
        }
    }
}

TEST_P(KernelVariantTest, CopyPlaneSwapPairsByRowsOrWholePlane) {
    // Packed even rows (one run), packed odd rows (pairs must not cross rows), padded source or
    // destination (row by row), a single odd row.
    const struct {
        size_t rowBytes, rows, srcPitch, dstPitch;
    } cases[] = {{64, 5, 64, 64}, {15, 4, 15, 15}, {40, 3, 48, 40},
                 {40, 3, 40, 56}, {33, 6, 35, 37}, {7, 1, 7, 7}};
    std::mt19937 rng(3);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.rowBytes << " x " << c.rows << " pitches "
                                        << c.srcPitch << "/" << c.dstPitch);
        std::vector<uint8_t> src(c.srcPitch * c.rows);
        fillBytes(src.data(), src.size(), Fill::Random, rng);
        std::vector<uint8_t> dst(c.dstPitch * c.rows + kMargin, kCanary);
        std::vector<uint8_t> swappedDst = dst;
        copyPlane(dst.data(), c.dstPitch, src.data(), c.srcPitch, c.rowBytes, c.rows);
        copyPlaneSwapPairs(GetParam(), swappedDst.data(), c.dstPitch, src.data(), c.srcPitch,
                           c.rowBytes, c.rows);
        std::vector<uint8_t> expected(dst.size(), kCanary), swappedExpected = expected;
        for (size_t r = 0; r < c.rows; ++r) {
            const uint8_t* row = src.data() + r * c.srcPitch;
            std::copy(row, row + c.rowBytes, expected.begin() + r * c.dstPitch);
            const std::vector<uint8_t> swapped = modelSwap(row, c.rowBytes);
            std::copy(swapped.begin(), swapped.end(), swappedExpected.begin() + r * c.dstPitch);
        }
        ASSERT_EQ(dst, expected);
        ASSERT_EQ(swappedDst, swappedExpected);
    }
}

TEST_P(KernelVariantTest, HighBytesKeepTheHighByteOfEachLittleEndianWord) {
    // Words 0x1234, 0xABCD, 0x00FF, 0xFF00, 0x8001 (luma) and 0x7F80, 0x0102 (chroma).
    const uint8_t luma[] = {0x34, 0x12, 0xCD, 0xAB, 0xFF, 0x00, 0x00, 0xFF, 0x01, 0x80};
    const uint8_t chroma[] = {0x80, 0x7F, 0x02, 0x01};
    const uint8_t lumaHigh[] = {0x12, 0xAB, 0x00, 0xFF, 0x80}, chromaHigh[] = {0x7F, 0x01};
    // Frames of n pixels: n luma samples, then n / 2 chroma (none for a single pixel).
    for (size_t pixels : {5, 4, 3, 1, 0}) {
        SCOPED_TRACE(pixels);
        std::vector<uint8_t> expected(lumaHigh, lumaHigh + pixels);
        expected.insert(expected.end(), chromaHigh, chromaHigh + pixels / 2);
        std::vector<uint8_t> out(expected.size() + 1, kCanary);
        extractHighByteFrame(GetParam(), out.data(), luma, chroma, pixels);
        EXPECT_EQ(out.back(), kCanary);
        out.pop_back();
        EXPECT_EQ(out, expected);
    }
}

// Every length 0-300 and some long ones (past the streaming threshold too), fenced after the data
// (the samples then start at every even offset from a vector boundary) and before it; the whole
// frame too, with its two planes and the output fenced.
TEST_P(KernelVariantTest, HighBytesMatchScalarInsideFencedBuffers) {
    std::mt19937 rng(1616);
    std::vector<size_t> counts;
    for (size_t n = 0; n <= 300; ++n) counts.push_back(n);
    counts.insert(counts.end(), {1023, 65537, (size_t{4} << 20) + 37});
    for (size_t count : counts) {
        for (auto fence : {GuardedBuffer::Fence::After, GuardedBuffer::Fence::Before}) {
            SCOPED_TRACE(testing::Message() << count << " samples, fence " << int(fence));
            GuardedBuffer samples(2 * count, fence);
            fillBytes(samples.data(), samples.size(), Fill::Random, rng);
            GuardedBuffer out(count, fence), ref(count, fence);
            extractHighBytes(GetParam(), out.data(), samples.data(), count);
            extractHighBytes(KernelVariant::Scalar, ref.data(), samples.data(), count);
            ASSERT_EQ(out.bytes(), ref.bytes());

            GuardedBuffer chroma(2 * (count / 2), fence);
            fillBytes(chroma.data(), chroma.size(), Fill::Random, rng);
            GuardedBuffer frame(count + count / 2, fence), frameRef(count + count / 2, fence);
            extractHighByteFrame(GetParam(), frame.data(), samples.data(), chroma.data(), count);
            extractHighByteFrame(KernelVariant::Scalar, frameRef.data(), samples.data(),
                                 chroma.data(), count);
            ASSERT_EQ(frame.bytes(), frameRef.bytes());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllVariants, KernelVariantTest, ::testing::ValuesIn(allVariants()),
                         variantLabel);

TEST(KernelDispatch, PicksTheWidestSupportedVariant) {
    // allVariants() lists x86-64's from the narrowest; NEON is arm64's only.
    KernelVariant widest = KernelVariant::Scalar;
    for (KernelVariant v : allVariants()) {
        if (variantSupported(v)) widest = v;
    }
    EXPECT_EQ(bestVariant(), widest);
#if defined(__x86_64__)
    EXPECT_TRUE(variantSupported(KernelVariant::SSE2));
    EXPECT_FALSE(variantSupported(KernelVariant::NEON));
#elif defined(__aarch64__)
    EXPECT_EQ(bestVariant(), KernelVariant::NEON);
    EXPECT_FALSE(variantSupported(KernelVariant::SSE2));
#endif
}

}  // namespace
}  // namespace nuvra::kernels::test
