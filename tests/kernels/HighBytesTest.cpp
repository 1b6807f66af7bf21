// The high-byte extraction: worked samples, and every variant against the scalar reference over
// every short length and some long ones, at odd and even source addresses, with the samples and
// the output fenced by inaccessible pages so that any read or write outside them faults.
#include <gtest/gtest.h>

#include <vector>

#include "KernelTestSupport.h"
#include "surface/kernels/HighBytes.h"

namespace nuvra::kernels::test {
namespace {

class HighBytesTest : public ::testing::TestWithParam<KernelVariant> {};

TEST_P(HighBytesTest, KeepsTheHighByteOfEachLittleEndianWord) {
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
TEST_P(HighBytesTest, MatchesScalarInsideFencedBuffers) {
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

INSTANTIATE_TEST_SUITE_P(AllVariants, HighBytesTest, ::testing::ValuesIn(allVariants()),
                         variantLabel);

}  // namespace
}  // namespace nuvra::kernels::test
