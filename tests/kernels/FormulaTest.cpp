// The conversion arithmetic: worked examples, and sweeps over every input value checked against
// the independent floating-point model, for every variant this CPU runs.
#include <gtest/gtest.h>

#include <vector>

#include "KernelTestSupport.h"

namespace nuvra::kernels::test {
namespace {

// Y, Cb, Cr of (R, G, B) worked by hand from the coefficients. The colour is the top-left pixel
// of a 2x2 frame whose other pixels hold its inverse, so the chroma must come from that pixel.
TEST(RgbaToYuv420Examples, KnownColoursTakeTheChromaOfTheTopLeftPixel) {
    const uint8_t cases[][6] = {{255, 255, 255, 255, 128, 128},
                                {0, 0, 0, 0, 128, 128},
                                {255, 0, 0, 76, 85, 255},
                                {0, 0, 255, 28, 255, 107}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << int(c[0]) << "," << int(c[1]) << "," << int(c[2]));
        uint8_t rgba[16];
        for (int i = 0; i < 16; ++i) rgba[i] = i % 4 == 3 ? 0x5A : i < 4 ? c[i] : 255 - c[i % 4];
        uint8_t out[6] = {};
        rgbaToYuv420(rgba, 2, 2, out, out + 4, out + 5, 2, 2, 2);
        EXPECT_EQ(out[0], c[3]);
        EXPECT_EQ(out[4], c[5]);  // Cr
        EXPECT_EQ(out[5], c[4]);  // Cb
    }
}

TEST(Nv21ToRgb565Examples, KnownPixels) {
    const struct {
        uint8_t y, v, u;
        uint16_t rgb565;
    } cases[] = {
            {128, 128, 128, 0x8410},  // grey: R = G = B = 128
            {255, 255, 128, 0xFD3F},  // R = 255 + 178 clamps to 255, G = 255 - 90, B = 255
            {0, 128, 0, 0x0160},      // G = 0 + 44, B = -227 clamps to 0
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.rgb565);
        const uint8_t nv21[6] = {c.y, c.y, c.y, c.y, c.v, c.u};
        uint8_t out[8] = {};
        nv21ToRgb565(nv21, sizeof(nv21), 2, 2, out);
        for (int i = 0; i < 8; i += 2) EXPECT_EQ(out[i] | out[i + 1] << 8, c.rgb565) << i;
    }
}

// Every (R, G, B): frames of one R each, 512x512, where pixels (2B, 2G) to (2B + 1, 2G + 1) all
// hold (R, G, B). The even rows carry the chroma of every (G, B); the odd rows repeat the luma
// through the luma-only row path. Every variant is compared byte for byte with the model.
TEST(RgbaToYuv420Sweep, EveryRgbValue) {
    constexpr size_t kSide = 512;
    std::vector<uint8_t> rgba(kSide * kSide * 4);
    std::vector<uint8_t> model(kSide * kSide * 3 / 2), out(model.size());
    uint8_t *modelVu = model.data() + kSide * kSide, *outVu = out.data() + kSide * kSide;
    for (int r = 0; r < 256; ++r) {
        for (size_t i = 0; i < kSide * kSide; ++i) {
            const uint8_t pixel[4] = {uint8_t(r), uint8_t(i / kSide / 2), uint8_t(i % kSide / 2),
                                      0x5A};
            memcpy(&rgba[i * 4], pixel, 4);
        }
        modelRgbaToYuv420(rgba.data(), kSide, kSide, model.data(), modelVu, modelVu + 1, 2, kSide,
                          kSide);
        for (KernelVariant v : allVariants()) {
            if (!variantSupported(v)) continue;
            rgbaToYuv420(v, rgba.data(), kSide, kSide, out.data(), outVu, outVu + 1, 2, kSide,
                         kSide);
            ASSERT_EQ(out, model) << variantName(v) << " r " << r;
        }
    }
}

// Every (Y, U, V): frames of one V each, 512x128. Row r holds luma 2r and 2r + 1 in alternate
// pixels; every chroma row holds the pairs (V, U) for U = 0..255.
TEST(Nv21ToRgb565Sweep, EveryYuvValue) {
    constexpr size_t kWidth = 512;
    constexpr size_t kHeight = 128;
    std::vector<uint8_t> nv21(kWidth * kHeight * 3 / 2);
    std::vector<uint8_t> model(kWidth * kHeight * 2), out(model.size());
    for (size_t i = 0; i < kWidth * kHeight; ++i) nv21[i] = uint8_t(2 * (i / kWidth) + i % 2);
    for (int v = 0; v < 256; ++v) {
        for (size_t i = kWidth * kHeight; i < nv21.size(); i += 2) {
            nv21[i] = static_cast<uint8_t>(v);
            nv21[i + 1] = static_cast<uint8_t>(((i - kWidth * kHeight) / 2) % 256);
        }
        modelNv21ToRgb565(nv21.data(), nv21.size(), kWidth, kHeight, model.data());
        for (KernelVariant variant : allVariants()) {
            if (!variantSupported(variant)) continue;
            nv21ToRgb565(variant, nv21.data(), nv21.size(), kWidth, kHeight, out.data());
            ASSERT_EQ(out, model) << variantName(variant) << " v " << v;
        }
    }
}

}  // namespace
}  // namespace nuvra::kernels::test
