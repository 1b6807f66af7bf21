#include "DemoImages.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

uint8_t clampByte(double v) {
    return static_cast<uint8_t>(std::clamp(std::lround(v), 0L, 255L));
}

}  // namespace

RgbaImage drawTestCard(int width, int height) {
    static const uint8_t kBars[8][3] = {{235, 235, 235}, {235, 235, 16}, {16, 235, 235},
                                        {16, 235, 16},   {235, 16, 235}, {235, 16, 16},
                                        {16, 16, 235},   {16, 16, 16}};
    RgbaImage image{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height * 4)};
    double cx = width / 2.0, cy = height / 2.0, radius = std::min(width, height) / 3.0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t* p = &image.pixels[(static_cast<size_t>(y) * width + x) * 4];
            if (y < height * 2 / 3) {
                const uint8_t* bar = kBars[x * 8 / width];
                p[0] = bar[0], p[1] = bar[1], p[2] = bar[2];
            } else {
                uint8_t g = static_cast<uint8_t>(x * 255 / std::max(1, width - 1));
                p[0] = p[1] = p[2] = g;
            }
            double d = std::hypot(x - cx, y - cy);
            if (std::fabs(d - radius) < 2.0) p[0] = p[1] = p[2] = 255;
            p[3] = 255;
        }
    }
    return image;
}

bool readPng(const std::string& path, RgbaImage* image) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) return false;
    png.format = PNG_FORMAT_RGBA;
    // Even dimensions, as 4:2:0 buffers want them.
    image->width = static_cast<int>(png.width);
    image->height = static_cast<int>(png.height);
    std::vector<uint8_t> full(PNG_IMAGE_SIZE(png));
    if (!png_image_finish_read(&png, nullptr, full.data(), 0, nullptr)) return false;
    int w = image->width & ~1, h = image->height & ~1;
    image->pixels.resize(static_cast<size_t>(w) * h * 4);
    for (int y = 0; y < h; ++y) {
        std::copy_n(&full[static_cast<size_t>(y) * image->width * 4], w * 4,
                    &image->pixels[static_cast<size_t>(y) * w * 4]);
    }
    image->width = w;
    image->height = h;
    return w > 0 && h > 0;
}

bool writePng(const std::string& path, const RgbaImage& image) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.width);
    png.height = static_cast<png_uint_32>(image.height);
    png.format = PNG_FORMAT_RGBA;
    return png_image_write_to_file(&png, path.c_str(), 0, image.pixels.data(), 0, nullptr) != 0;
}

std::vector<uint8_t> toNv21(const RgbaImage& image) {
    size_t w = image.width, h = image.height;
    std::vector<uint8_t> nv21(w * h * 3 / 2);
    for (size_t y = 0; y < h; ++y) {
        for (size_t x = 0; x < w; ++x) {
            const uint8_t* p = &image.pixels[(y * w + x) * 4];
            nv21[y * w + x] = clampByte(0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2]);
            if (x % 2 == 0 && y % 2 == 0) {
                uint8_t* c = &nv21[w * h + (y / 2) * w + x];
                c[0] = clampByte(0.5 * p[0] - 0.4187 * p[1] - 0.0813 * p[2] + 128);
                c[1] = clampByte(-0.1687 * p[0] - 0.3313 * p[1] + 0.5 * p[2] + 128);
            }
        }
    }
    return nv21;
}

RgbaImage fromYuv(int width, int height, const uint8_t* y, size_t yStride, const uint8_t* cb,
                  const uint8_t* cr, size_t cStride, size_t chromaStep) {
    RgbaImage image{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height * 4)};
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < width; ++x) {
            double luma = y[r * yStride + x];
            size_t c = (r / 2) * cStride + (x / 2) * chromaStep;
            double u = cb[c] - 128.0, v = cr[c] - 128.0;
            uint8_t* p = &image.pixels[(static_cast<size_t>(r) * width + x) * 4];
            p[0] = clampByte(luma + 1.402 * v);
            p[1] = clampByte(luma - 0.344136 * u - 0.714136 * v);
            p[2] = clampByte(luma + 1.772 * u);
            p[3] = 255;
        }
    }
    return image;
}

RgbaImage fromRgb565(int width, int height, const uint8_t* data, size_t strideBytes) {
    RgbaImage image{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height * 4)};
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < width; ++x) {
            const uint8_t* s = &data[r * strideBytes + x * 2];
            unsigned v = s[0] | s[1] << 8;
            uint8_t* p = &image.pixels[(static_cast<size_t>(r) * width + x) * 4];
            p[0] = static_cast<uint8_t>(((v >> 11) & 31) * 255 / 31);
            p[1] = static_cast<uint8_t>(((v >> 5) & 63) * 255 / 63);
            p[2] = static_cast<uint8_t>((v & 31) * 255 / 31);
            p[3] = 255;
        }
    }
    return image;
}
