/*
 * Vendor pixel formats that camera buffers on phones come in, with the numbers their vendors'
 * gralloc implementations give them. The host gralloc allocates and lays out each of them
 * (see <ui/HostGrallocLayout.h>).
 *
 * Qualcomm (the numbers of Qualcomm's gralloc_priv.h):
 *   HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS  0x114       NV21 (Cr before Cb) with Venus alignment:
 *       luma stride align(width, 128), luma scanlines align(height, 32), chroma scanlines
 *       align(height / 2, 16), chroma plane at stride x luma scanlines.
 *   HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS  0x7FA30C04  the same layout in NV12 order (Cb first).
 *   HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC 0x7FA30C06  NV12 compressed with Qualcomm's
 *       universal bandwidth compression: metadata and compressed tiles, not CPU-readable pixels.
 * Other vendors:
 *   PIXEL_FORMAT_YCrCb_420_SP_M  0x11D  a vendor NV21 variant, laid out as plain NV21.
 *   HAL_PIXEL_FORMAT_YCbCr_420_SP_16BIT 0x127  semi-planar 4:2:0 with 16-bit samples (the
 *       sample value in the high bits), Cb before Cr.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum {
    HAL_PIXEL_FORMAT_YCrCb_420_SP_VENUS = 0x114,
    HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS = 0x7FA30C04,
    HAL_PIXEL_FORMAT_YCbCr_420_SP_VENUS_UBWC = 0x7FA30C06,
    PIXEL_FORMAT_YCrCb_420_SP_M = 0x11D,
    HAL_PIXEL_FORMAT_YCbCr_420_SP_16BIT = 0x127,
};

#ifdef __cplusplus
}
#endif
