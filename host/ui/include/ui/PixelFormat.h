/*
 * Pixel formats as the UI classes name them. PixelFormat values are the HAL_PIXEL_FORMAT_*
 * numbers of <system/graphics.h> plus a few negative pseudo formats.
 */
#pragma once

#include <stdint.h>
#include <system/graphics.h>
#include <utils/Errors.h>

namespace android {

enum {
    //
    // these constants need to match those
    // in graphics/PixelFormat.java & pixelflinger/format.h
    //
    PIXEL_FORMAT_UNKNOWN = 0,
    PIXEL_FORMAT_NONE = 0,

    // logical pixel formats used by the SurfaceFlinger -----------------------
    PIXEL_FORMAT_CUSTOM = -4,
    // Custom pixel-format described by a PixelFormatInfo structure

    PIXEL_FORMAT_TRANSLUCENT = -3,
    // System chooses a format that supports translucency (many alpha bits)

    PIXEL_FORMAT_TRANSPARENT = -2,
    // System chooses a format that supports transparency
    // (at least 1 alpha bit)

    PIXEL_FORMAT_OPAQUE = -1,
    // System chooses an opaque format (no alpha bits required)

    // real pixel formats supported for rendering -----------------------------

    PIXEL_FORMAT_RGBA_8888 = HAL_PIXEL_FORMAT_RGBA_8888,        // 4x8-bit RGBA
    PIXEL_FORMAT_RGBX_8888 = HAL_PIXEL_FORMAT_RGBX_8888,        // 4x8-bit RGB0
    PIXEL_FORMAT_RGB_888 = HAL_PIXEL_FORMAT_RGB_888,            // 3x8-bit RGB
    PIXEL_FORMAT_RGB_565 = HAL_PIXEL_FORMAT_RGB_565,            // 16-bit RGB
    PIXEL_FORMAT_BGRA_8888 = HAL_PIXEL_FORMAT_BGRA_8888,        // 4x8-bit BGRA
    PIXEL_FORMAT_RGBA_5551 = 6,                                 // 16-bit ARGB
    PIXEL_FORMAT_RGBA_4444 = 7,                                 // 16-bit ARGB
    PIXEL_FORMAT_RGBA_FP16 = HAL_PIXEL_FORMAT_RGBA_FP16,        // 64-bit RGBA
    PIXEL_FORMAT_RGBA_1010102 = HAL_PIXEL_FORMAT_RGBA_1010102,  // 32-bit RGBA
    PIXEL_FORMAT_R_8 = 0x38,
};

typedef int32_t PixelFormat;

// Bytes per pixel of an RGB format; 0 for formats that are not single-plane RGB.
uint32_t bytesPerPixel(PixelFormat format);

}  // namespace android
