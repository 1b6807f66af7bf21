// The scalar reference rows: the conversion arithmetic spelled out pixel by pixel. Every SIMD row
// must write exactly what these write.
#include "surface/kernels/RowFunctions.h"

namespace nuvra::kernels::detail {

void RgbaToYRow_C(const uint8_t* rgba, uint8_t* y, size_t width) {
    for (size_t x = 0; x < width; ++x) {
        const uint8_t* p = rgba + 4 * x;
        y[x] = rgbToY(p[0], p[1], p[2]);
    }
}

void RgbaToYuvRow_C(const uint8_t* rgba, uint8_t* y, uint8_t* cr, uint8_t* cb, size_t step,
                    size_t width) {
    for (size_t x = 0; x < width; ++x) {
        const uint8_t* p = rgba + 4 * x;
        y[x] = rgbToY(p[0], p[1], p[2]);
        if ((x & 1) == 0) {
            const size_t at = (x / 2) * step;
            cb[at] = rgbToCb(p[0], p[1], p[2]);
            cr[at] = rgbToCr(p[0], p[1], p[2]);
        }
    }
}

void Nv21ToRgb565Row_C(const uint8_t* y, const uint8_t* vu, uint8_t* rgb565, size_t width) {
    nv21PairsToRgb565(y, vu, rgb565, width / 2);
}

void SwapPairsRow_C(uint8_t* dst, const uint8_t* src, size_t pairs) {
    for (size_t k = 0; k < pairs; ++k) {
        const uint8_t first = src[2 * k];
        dst[2 * k] = src[2 * k + 1];
        dst[2 * k + 1] = first;
    }
}

namespace {

void rgbaToYuvVU_C(const uint8_t* rgba, uint8_t* y, uint8_t* vu, size_t width) {
    RgbaToYuvRow_C(rgba, y, vu, vu + 1, 2, width);
}

void rgbaToYuvUV_C(const uint8_t* rgba, uint8_t* y, uint8_t* uv, size_t width) {
    RgbaToYuvRow_C(rgba, y, uv + 1, uv, 2, width);
}

void rgbaToYuvPlanar_C(const uint8_t* rgba, uint8_t* y, uint8_t* cr, uint8_t* cb, size_t width) {
    RgbaToYuvRow_C(rgba, y, cr, cb, 1, width);
}

}  // namespace

const RowFunctions kRowFunctions_C = {
        RgbaToYRow_C,      rgbaToYuvVU_C,     rgbaToYuvUV_C,
        rgbaToYuvPlanar_C, Nv21ToRgb565Row_C, SwapPairsRow_C,
};

}  // namespace nuvra::kernels::detail
