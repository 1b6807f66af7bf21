// The conversion arithmetic: worked examples, and sweeps over every input value checked against
// the independent floating-point model, for every variant this CPU runs.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "KernelTestSupport.h"

namespace nuvra::kernels::test {
namespace {

std::vector<KernelVariant> supportedVariants() {
    std::vector<KernelVariant> out;
    for (KernelVariant v : allVariants()) {
        if (variantSupported(v)) out.push_back(v);
    }
    return out;
}

// A width that takes every variant through its vector blocks and its scalar tail.
constexpr size_t kExampleWidth = 34;

TEST(RgbaToYuv420Examples, KnownColours) {
    struct Case {
        uint8_t r, g, b, y, cb, cr;
    };
    const Case cases[] = {
            {255, 255, 255, 255, 128, 128},
            {0, 0, 0, 0, 128, 128},
            {255, 0, 0, 76, 85, 255},
            {0, 0, 255, 28, 255, 107},
    };
    for (KernelVariant v : supportedVariants()) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(variantName(v)) + " rgb " + std::to_string(c.r) + "," +
                         std::to_string(c.g) + "," + std::to_string(c.b));
            std::vector<uint8_t> rgba(kExampleWidth * 2 * 4);
            for (size_t i = 0; i < rgba.size(); i += 4) {
                rgba[i] = c.r;
                rgba[i + 1] = c.g;
                rgba[i + 2] = c.b;
                rgba[i + 3] = static_cast<uint8_t>(i);  // alpha is ignored
            }
            std::vector<uint8_t> out(kExampleWidth * 3, 0);
            uint8_t* vu = out.data() + kExampleWidth * 2;
            rgbaToYuv420(v, rgba.data(), kExampleWidth, 2, out.data(), vu, vu + 1, 2, kExampleWidth,
                         kExampleWidth);
            for (size_t i = 0; i < kExampleWidth * 2; ++i) ASSERT_EQ(out[i], c.y) << "Y " << i;
            for (size_t i = 0; i < kExampleWidth; i += 2) {
                ASSERT_EQ(vu[i], c.cr) << "Cr " << i;
                ASSERT_EQ(vu[i + 1], c.cb) << "Cb " << i;
            }
        }
    }
}

TEST(RgbaToYuv420Examples, ChromaComesFromTopLeftPixelOfEachBlock) {
    // A 4x2 frame whose eight pixels all have different chroma.
    const uint8_t rgba[4 * 2 * 4] = {
            10, 200, 30,  0, 250, 20, 90,  0, 40,  60,  220, 0, 180, 180, 0,   0,
            0,  90,  120, 0, 77,  33, 199, 0, 130, 250, 10,  0, 66,  0,   255, 0,
    };
    for (KernelVariant v : supportedVariants()) {
        SCOPED_TRACE(variantName(v));
        uint8_t out[4 * 2 + 4];
        memset(out, 0, sizeof(out));
        rgbaToYuv420(v, rgba, 4, 2, out, out + 8, out + 9, 2, 4, 4);
        const uint8_t expected[4] = {static_cast<uint8_t>(modelCr(10, 200, 30)),
                                     static_cast<uint8_t>(modelCb(10, 200, 30)),
                                     static_cast<uint8_t>(modelCr(40, 60, 220)),
                                     static_cast<uint8_t>(modelCb(40, 60, 220))};
        EXPECT_EQ(0, memcmp(out + 8, expected, 4));
    }
}

TEST(Nv21ToRgb565Examples, KnownPixels) {
    struct Case {
        uint8_t y, v, u;
    };
    const Case cases[] = {
            {128, 128, 128},  // grey: R = G = B = 128, 0x8410
            {255, 255, 128},  // R = 255 + 178 clamps to 255
            {0, 128, 0},      // B = -227 clamps to 0
    };
    for (KernelVariant v : supportedVariants()) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(variantName(v)) + " yvu " + std::to_string(c.y) + "," +
                         std::to_string(c.v) + "," + std::to_string(c.u));
            std::vector<uint8_t> nv21(kExampleWidth * 3);
            memset(nv21.data(), c.y, kExampleWidth * 2);
            for (size_t i = 0; i < kExampleWidth; i += 2) {
                nv21[kExampleWidth * 2 + i] = c.v;
                nv21[kExampleWidth * 2 + i + 1] = c.u;
            }
            std::vector<uint8_t> out(kExampleWidth * 2 * 2, 0);
            nv21ToRgb565(v, nv21.data(), nv21.size(), kExampleWidth, 2, out.data());
            const uint16_t expected = modelRgb565(c.y, c.u, c.v);
            for (size_t i = 0; i < out.size(); i += 2) {
                ASSERT_EQ(out[i] | out[i + 1] << 8, expected) << "pixel " << i / 2;
            }
            if (c.y == 128) {
                EXPECT_EQ(out[0], 0x10);
                EXPECT_EQ(out[1], 0x84);
            } else if (c.v == 255) {
                EXPECT_EQ(out[1] >> 3, 0x1F);  // R saturated
            } else {
                EXPECT_EQ(out[0] & 0x1F, 0);  // B clamped to 0
            }
        }
    }
}

// Every (R, G, B): frames of one R each, 512x512, where pixels (2B, 2G) to (2B + 1, 2G + 1) all
// hold (R, G, B). The even rows carry the chroma of every (G, B); the odd rows repeat the luma
// through the luma-only row path. The scalar reference is checked value by value against the
// model, every other variant byte for byte against the scalar output.
TEST(RgbaToYuv420Sweep, EveryRgbValue) {
    constexpr size_t kSide = 512;
    std::vector<uint8_t> rgba(kSide * kSide * 4);
    std::vector<uint8_t> reference(kSide * kSide * 3 / 2);
    std::vector<uint8_t> out(reference.size());
    const std::vector<KernelVariant> variants = supportedVariants();
    for (int r = 0; r < 256; ++r) {
        for (size_t row = 0; row < kSide; ++row) {
            for (size_t x = 0; x < kSide; ++x) {
                uint8_t* p = &rgba[(row * kSide + x) * 4];
                p[0] = static_cast<uint8_t>(r);
                p[1] = static_cast<uint8_t>(row / 2);
                p[2] = static_cast<uint8_t>(x / 2);
                p[3] = 0x5A;
            }
        }
        uint8_t* vu = reference.data() + kSide * kSide;
        rgbaToYuv420(KernelVariant::Scalar, rgba.data(), kSide, kSide, reference.data(), vu, vu + 1,
                     2, kSide, kSide);
        for (int g = 0; g < 256; ++g) {
            const uint8_t* yEven = &reference[2 * g * kSide];
            ASSERT_EQ(0, memcmp(yEven, yEven + kSide, kSide)) << "odd row, r " << r << " g " << g;
            for (int b = 0; b < 256; ++b) {
                const int y = modelY(r, g, b);
                ASSERT_EQ(yEven[2 * b], y) << r << "," << g << "," << b;
                ASSERT_EQ(yEven[2 * b + 1], y) << r << "," << g << "," << b;
                ASSERT_EQ(vu[g * kSide + 2 * b], modelCr(r, g, b)) << r << "," << g << "," << b;
                ASSERT_EQ(vu[g * kSide + 2 * b + 1], modelCb(r, g, b)) << r << "," << g << "," << b;
            }
        }
        for (KernelVariant v : variants) {
            uint8_t* outVu = out.data() + kSide * kSide;
            rgbaToYuv420(v, rgba.data(), kSide, kSide, out.data(), outVu, outVu + 1, 2, kSide,
                         kSide);
            ASSERT_EQ(0, memcmp(out.data(), reference.data(), out.size()))
                    << variantName(v) << " r " << r;
        }
    }
}

// Every (Y, U, V): frames of one V each, 512x128. Row r holds luma 2r and 2r + 1 in alternate
// pixels; every chroma row holds the pairs (V, U) for U = 0..255.
TEST(Nv21ToRgb565Sweep, EveryYuvValue) {
    constexpr size_t kWidth = 512;
    constexpr size_t kHeight = 128;
    std::vector<uint8_t> nv21(kWidth * kHeight * 3 / 2);
    std::vector<uint8_t> reference(kWidth * kHeight * 2);
    std::vector<uint8_t> out(reference.size());
    const std::vector<KernelVariant> variants = supportedVariants();
    for (size_t row = 0; row < kHeight; ++row) {
        for (size_t x = 0; x < kWidth; ++x)
            nv21[row * kWidth + x] = static_cast<uint8_t>(2 * row + x % 2);
    }
    for (int v = 0; v < 256; ++v) {
        for (size_t i = kWidth * kHeight; i < nv21.size(); i += 2) {
            nv21[i] = static_cast<uint8_t>(v);
            nv21[i + 1] = static_cast<uint8_t>(((i - kWidth * kHeight) / 2) % 256);
        }
        nv21ToRgb565(KernelVariant::Scalar, nv21.data(), nv21.size(), kWidth, kHeight,
                     reference.data());
        for (size_t row = 0; row < kHeight; ++row) {
            for (size_t x = 0; x < kWidth; ++x) {
                const int y = static_cast<int>(2 * row + x % 2);
                const int u = static_cast<int>(x / 2);
                const uint8_t* px = &reference[(row * kWidth + x) * 2];
                ASSERT_EQ(px[0] | px[1] << 8, modelRgb565(y, u, v)) << y << "," << u << "," << v;
            }
        }
        for (KernelVariant variant : variants) {
            nv21ToRgb565(variant, nv21.data(), nv21.size(), kWidth, kHeight, out.data());
            ASSERT_EQ(0, memcmp(out.data(), reference.data(), out.size()))
                    << variantName(variant) << " v " << v;
        }
    }
}

}  // namespace
}  // namespace nuvra::kernels::test
