// The flexible YUV to NV21 conversion: the gather rule on hand-worked layouts (which bytes land
// where, the V plane walking with U's row geometry, signed strides), and every variant against the
// scalar rule on random sizes, strides, pixel strides and plane placements, with every plane and
// the output fenced by inaccessible pages so that any read or write outside them faults.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "KernelTestSupport.h"
#include "surface/kernels/FlexibleYuv.h"

namespace nuvra::kernels::test {
namespace {

class FlexibleGatherTest : public ::testing::TestWithParam<KernelVariant> {};

// A source of 64 bytes whose value is their index: the expected output lists which source byte
// goes to each output byte.
struct RuleCase {
    const char* name;
    int width, height;
    int uAt, vAt;
    int32_t uRowStride, uPixelStride, vPixelStride;
    std::vector<uint8_t> expected;
};

TEST_P(FlexibleGatherTest, GathersByTheRule) {
    const RuleCase cases[] = {
            // U rows at 0 and 4 (2 bytes of padding), V plane separate at 32.
            {"planar", 4, 4, 0, 32, 4, 1, 1, {32, 0, 33, 1, 36, 4, 37, 5}},
            // U,V pairs with 2 bytes of padding after each row of 4.
            {"cb_first", 4, 4, 0, 1, 6, 2, 2, {1, 0, 3, 2, 7, 6, 9, 8}},
            {"cr_first", 4, 4, 1, 0, 6, 2, 2, {0, 1, 2, 3, 6, 7, 8, 9}},
            // V steps 2 along a row but returns by U's geometry: row 1 of V starts
            // 2 * 2 + (4 - 2 * 1) = 6 bytes after row 0, not at its own row stride.
            {"v_walks_with_u_rows", 4, 4, 0, 32, 4, 1, 2, {32, 0, 34, 1, 38, 4, 40, 5}},
            // Bottom-up planes: the rows are read from 20 downwards.
            {"negative_row_stride", 4, 4, 20, 40, -8, 1, 1, {40, 20, 41, 21, 32, 12, 33, 13}},
            // Mirrored rows: each read walks left.
            {"negative_pixel_stride", 4, 4, 3, 35, 8, -1, -1, {35, 3, 34, 2, 43, 11, 42, 10}},
            {"pixel_stride_zero", 6, 2, 5, 9, 0, 0, 3, {9, 5, 12, 5, 15, 5}},
            // Odd sizes drop the last column and row; width or height 1 gathers nothing.
            {"odd_5x3", 5, 3, 0, 16, 3, 1, 1, {16, 0, 17, 1}},
            {"width_1", 1, 8, 0, 16, 1, 1, 1, {}},
            {"height_1", 8, 1, 0, 16, 4, 1, 1, {}},
    };
    uint8_t source[64];
    for (int i = 0; i < 64; ++i) source[i] = static_cast<uint8_t>(i);
    for (const RuleCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<uint8_t> out(c.expected.size() + 1, kCanary);
        gatherFlexibleChroma(GetParam(), out.data(), source + c.uAt, source + c.vAt, c.uRowStride,
                             c.uPixelStride, c.vPixelStride, c.width, c.height);
        EXPECT_EQ(out.back(), kCanary);
        out.pop_back();
        EXPECT_EQ(out, c.expected);
    }
}

// The luma of the whole conversion: rows of width bytes packed, read with the signed luma stride,
// then the chroma right after them.
TEST_P(FlexibleGatherTest, PacksLumaRowsBeforeTheChroma) {
    uint8_t source[64];
    for (int i = 0; i < 64; ++i) source[i] = static_cast<uint8_t>(i);
    struct {
        int32_t yRowStride;
        int yAt;
        std::vector<uint8_t> expected;
    } cases[] = {
            {5, 0, {0, 1, 2, 5, 6, 7, 10, 11, 12, 40, 32}},
            {-4, 8, {8, 9, 10, 4, 5, 6, 0, 1, 2, 40, 32}},
            {3, 0, {0, 1, 2, 3, 4, 5, 6, 7, 8, 40, 32}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.yRowStride);
        std::vector<uint8_t> out(c.expected.size() + 1, kCanary);
        flexibleToNv21(GetParam(), out.data(), source + c.yAt, source + 32, source + 40,
                       c.yRowStride, 2, 1, 1, 3, 3);
        EXPECT_EQ(out.back(), kCanary);
        out.pop_back();
        EXPECT_EQ(out, c.expected);
    }
}

// The random layouts: the ones with vectorised rows, the other interleaved order, and anything.
enum class Layout { Planar, CbFirst, CrFirst, Any };

struct Span {
    ptrdiff_t lo = 0, hi = -1;  // empty when hi < lo
};

// The byte offsets from a plane's pointer that `rows` rows of `cols` reads touch.
Span readSpan(ptrdiff_t rowStep, ptrdiff_t colStep, size_t rows, size_t cols) {
    if (rows == 0 || cols == 0) return {};
    const ptrdiff_t lastRow = static_cast<ptrdiff_t>(rows - 1) * rowStep;
    const ptrdiff_t lastCol = static_cast<ptrdiff_t>(cols - 1) * colStep;
    return {std::min<ptrdiff_t>(0, lastRow) + std::min<ptrdiff_t>(0, lastCol),
            std::max<ptrdiff_t>(0, lastRow) + std::max<ptrdiff_t>(0, lastCol)};
}

// A buffer holding exactly `span` (random bytes), fenced on a random side; origin() is offset 0.
struct FencedPlane {
    FencedPlane(Span span, std::mt19937& rng)
        : lo(span.lo),
          buffer(static_cast<size_t>(span.hi - span.lo + 1),
                 rng() & 1 ? GuardedBuffer::Fence::After : GuardedBuffer::Fence::Before) {
        fillBytes(buffer.data(), buffer.size(), Fill::Random, rng);
    }
    const uint8_t* origin() const { return buffer.data() - lo; }
    ptrdiff_t lo;
    GuardedBuffer buffer;
};

struct Frame {
    int width, height;
    Layout layout;
    int32_t yRowStride, uRowStride, uPixelStride, vPixelStride;
    ptrdiff_t vFromU;  // V's place relative to U when they share a buffer
    bool shared;
};

Frame randomFrame(std::mt19937& rng) {
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    // A single column, a single row, long rows past every vector block, or anything (7 in 10).
    const int kSizes[4][4] = {{1, 1, 1, 40}, {1, 300, 1, 1}, {100, 700, 2, 7}, {2, 140, 2, 9}};
    const int* size = kSizes[std::min(pick(0, 9), 3)];
    Frame f{};
    f.width = pick(size[0], size[1]);
    f.height = pick(size[2], size[3]);
    const int pairs = f.width / 2;
    const int sign = pick(0, 3) == 0 ? -1 : 1;
    f.yRowStride = sign * (f.width + (pick(0, 2) == 0 ? 0 : pick(-f.width, 19)));
    f.layout = static_cast<Layout>(pick(0, 3));
    switch (f.layout) {
        case Layout::Planar:
            f.uPixelStride = f.vPixelStride = 1;
            f.uRowStride = sign * (pairs + (pick(0, 2) == 0 ? 0 : pick(-pairs, 19)));
            // Separate planes, or one buffer with V anywhere around U (overlapping it too).
            f.shared = pick(0, 2) == 0;
            f.vFromU = pick(-3 * pairs - 9, 3 * pairs + 9);
            break;
        case Layout::CbFirst:
        case Layout::CrFirst:
            f.uPixelStride = f.vPixelStride = 2;
            f.uRowStride = sign * (2 * pairs + (pick(0, 2) == 0 ? 0 : pick(-2 * pairs, 19)));
            f.shared = true;
            f.vFromU = f.layout == Layout::CbFirst ? 1 : -1;
            break;
        case Layout::Any:
            f.uPixelStride = pick(-3, 4);
            f.vPixelStride = pick(-3, 4);
            f.uRowStride = pick(-4 * pairs - 9, 4 * pairs + 9);
            f.shared = pick(0, 1) == 0;
            f.vFromU = pick(-5, 5);
            break;
    }
    return f;
}

// Runs the conversion of `f` with `variant` on fenced planes and a fenced output holding exactly
// the NV21 bytes, and returns those bytes. The planes' contents come from `seed`.
std::vector<uint8_t> convertFenced(KernelVariant variant, const Frame& f, uint32_t seed) {
    std::mt19937 rng(seed);
    const size_t w = static_cast<size_t>(f.width), h = static_cast<size_t>(f.height);
    const size_t pairs = w / 2, rows = h / 2;
    const ptrdiff_t vRowStride =
            f.uRowStride + static_cast<ptrdiff_t>(pairs) * (f.vPixelStride - f.uPixelStride);
    const Span ySpan = readSpan(f.yRowStride, 1, h, w);
    const Span uSpan = readSpan(f.uRowStride, f.uPixelStride, rows, pairs);
    Span vSpan = readSpan(vRowStride, f.vPixelStride, rows, pairs);

    FencedPlane y(ySpan, rng);
    std::unique_ptr<FencedPlane> uPlane, vPlane;
    const uint8_t *u = y.origin(), *v = y.origin();  // never read when the spans are empty
    if (f.shared) {
        vSpan.lo += f.vFromU;
        vSpan.hi += f.vFromU;
        // Both spans are empty or neither is: they have the same rows and pairs.
        uPlane = std::make_unique<FencedPlane>(
                Span{std::min(uSpan.lo, vSpan.lo), std::max(uSpan.hi, vSpan.hi)}, rng);
        u = uPlane->origin();
        v = u + f.vFromU;
    } else if (uSpan.hi >= uSpan.lo) {
        uPlane = std::make_unique<FencedPlane>(uSpan, rng);
        vPlane = std::make_unique<FencedPlane>(vSpan, rng);
        u = uPlane->origin();
        v = vPlane->origin();
    }
    GuardedBuffer out(w * h + rows * pairs * 2,
                      rng() & 1 ? GuardedBuffer::Fence::After : GuardedBuffer::Fence::Before);
    flexibleToNv21(variant, out.data(), y.origin(), u, v, f.yRowStride, f.uRowStride,
                   f.uPixelStride, f.vPixelStride, f.width, f.height);
    return out.bytes();
}

TEST_P(FlexibleGatherTest, MatchesScalarRuleInsideFencedPlanes) {
    std::mt19937 rng(8080);
    for (int i = 0; i < 1500; ++i) {
        const Frame f = randomFrame(rng);
        SCOPED_TRACE(testing::Message() << f.width << "x" << f.height << " layout " << int(f.layout)
                                        << " y " << f.yRowStride << " u " << f.uRowStride << "/"
                                        << f.uPixelStride << " v " << f.vPixelStride << " at "
                                        << f.vFromU << (f.shared ? " shared" : " separate"));
        const uint32_t seed = static_cast<uint32_t>(rng());
        ASSERT_EQ(convertFenced(GetParam(), f, seed),
                  convertFenced(KernelVariant::Scalar, f, seed));
    }
}

INSTANTIATE_TEST_SUITE_P(AllVariants, FlexibleGatherTest, ::testing::ValuesIn(allVariants()),
                         variantLabel);

}  // namespace
}  // namespace nuvra::kernels::test
