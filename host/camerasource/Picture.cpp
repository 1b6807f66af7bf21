// RGB pictures: the test card, scaling, and the camera's RGB to YCbCr conversion.

#include <hostcamera/CameraFrames.h>

#include <algorithm>

namespace host {

RgbPicture makeTestCard(uint32_t width, uint32_t height) {
    static const uint8_t kBars[8][3] = {
            {255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0},
            {255, 0, 255},   {255, 0, 0},   {0, 0, 255},   {0, 0, 0},
    };
    RgbPicture card;
    card.width = width;
    card.height = height;
    card.rgb.resize(size_t{width} * height * 3);
    const uint32_t barRows = height - height / 3;
    for (uint32_t y = 0; y < height; y++) {
        for (uint32_t x = 0; x < width; x++) {
            uint8_t* p = &card.rgb[(size_t{y} * width + x) * 3];
            if (y < barRows) {
                const uint8_t* bar = kBars[uint64_t{x} * 8 / width];
                std::copy(bar, bar + 3, p);
            } else {
                const auto grey =
                        static_cast<uint8_t>(width > 1 ? uint64_t{x} * 255 / (width - 1) : 0);
                std::fill(p, p + 3, grey);
            }
        }
    }
    return card;
}

RgbPicture scalePicture(const RgbPicture& picture, uint32_t width, uint32_t height) {
    if (picture.width == width && picture.height == height) return picture;
    RgbPicture scaled;
    scaled.width = width;
    scaled.height = height;
    scaled.rgb.resize(size_t{width} * height * 3);
    if (picture.width == 0 || picture.height == 0) return scaled;
    for (uint32_t y = 0; y < height; y++) {
        const auto sy = static_cast<uint32_t>(uint64_t{y} * picture.height / height);
        for (uint32_t x = 0; x < width; x++) {
            const auto sx = static_cast<uint32_t>(uint64_t{x} * picture.width / width);
            const uint8_t* from = picture.pixel(sx, sy);
            std::copy(from, from + 3, &scaled.rgb[(size_t{y} * width + x) * 3]);
        }
    }
    return scaled;
}

void rgbToYcbcr(uint8_t r, uint8_t g, uint8_t b, uint8_t* y, uint8_t* cb, uint8_t* cr) {
    // JFIF's full-range BT.601 matrix in 16-bit fixed point, rounded.
    const int32_t ry = 19595 * r + 38470 * g + 7471 * b + 32768;
    const int32_t rcb = -11059 * r - 21709 * g + 32768 * b + (128 << 16) + 32768;
    const int32_t rcr = 32768 * r - 27439 * g - 5329 * b + (128 << 16) + 32768;
    *y = static_cast<uint8_t>(std::clamp(ry >> 16, 0, 255));
    *cb = static_cast<uint8_t>(std::clamp(rcb >> 16, 0, 255));
    *cr = static_cast<uint8_t>(std::clamp(rcr >> 16, 0, 255));
}

}  // namespace host
