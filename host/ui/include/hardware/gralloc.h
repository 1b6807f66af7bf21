/*
 * Gralloc usage bits, by Android's names and values. On the host there is no gralloc HAL
 * module to open: buffers are allocated through android::GraphicBuffer, whose allocator is
 * libui's own (see <ui/HostGrallocLayout.h>).
 */
#pragma once

#include <cutils/native_handle.h>
#include <stdint.h>
#include <system/graphics.h>
#include <system/window.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    /* buffer is never read in software */
    GRALLOC_USAGE_SW_READ_NEVER = 0x00000000U,
    /* buffer is rarely read in software */
    GRALLOC_USAGE_SW_READ_RARELY = 0x00000002U,
    /* buffer is often read in software */
    GRALLOC_USAGE_SW_READ_OFTEN = 0x00000003U,
    /* mask for the software read values */
    GRALLOC_USAGE_SW_READ_MASK = 0x0000000FU,

    /* buffer is never written in software */
    GRALLOC_USAGE_SW_WRITE_NEVER = 0x00000000U,
    /* buffer is rarely written in software */
    GRALLOC_USAGE_SW_WRITE_RARELY = 0x00000020U,
    /* buffer is often written in software */
    GRALLOC_USAGE_SW_WRITE_OFTEN = 0x00000030U,
    /* mask for the software write values */
    GRALLOC_USAGE_SW_WRITE_MASK = 0x000000F0U,

    /* buffer will be used as an OpenGL ES texture */
    GRALLOC_USAGE_HW_TEXTURE = 0x00000100U,
    /* buffer will be used as an OpenGL ES render target */
    GRALLOC_USAGE_HW_RENDER = 0x00000200U,
    /* buffer will be used by the 2D hardware blitter */
    GRALLOC_USAGE_HW_2D = 0x00000400U,
    /* buffer will be used by the HWComposer HAL module */
    GRALLOC_USAGE_HW_COMPOSER = 0x00000800U,
    /* buffer will be used with the framebuffer device */
    GRALLOC_USAGE_HW_FB = 0x00001000U,
    /* buffer should be displayed full-screen on an external display when possible */
    GRALLOC_USAGE_EXTERNAL_DISP = 0x00002000U,
    /* Must have a hardware-protected path to external display sink for this buffer. */
    GRALLOC_USAGE_PROTECTED = 0x00004000U,
    /* buffer may be used as a cursor */
    GRALLOC_USAGE_CURSOR = 0x00008000U,
    /* buffer will be used with the HW video encoder */
    GRALLOC_USAGE_HW_VIDEO_ENCODER = 0x00010000U,
    /* buffer will be written by the HW camera pipeline */
    GRALLOC_USAGE_HW_CAMERA_WRITE = 0x00020000U,
    /* buffer will be read by the HW camera pipeline */
    GRALLOC_USAGE_HW_CAMERA_READ = 0x00040000U,
    /* buffer will be used as part of zero-shutter-lag queue */
    GRALLOC_USAGE_HW_CAMERA_ZSL = 0x00060000U,
    /* mask for the camera access values */
    GRALLOC_USAGE_HW_CAMERA_MASK = 0x00060000U,
    /* mask for the software usage bit-mask */
    GRALLOC_USAGE_HW_MASK = 0x00071F00U,
    /* buffer will be used as a RenderScript Allocation */
    GRALLOC_USAGE_RENDERSCRIPT = 0x00100000U,
    /* Set by the consumer to indicate to the producer that they may attach a buffer that they
     * did not detach from the BufferQueue. */
    GRALLOC_USAGE_FOREIGN_BUFFERS = 0x00200000U,
    /* buffer will be used with a HW JPEG encoder */
    GRALLOC_USAGE_HW_IMAGE_ENCODER = 0x08000000U,
    /* Mask of all flags which could be passed to a gralloc module for buffer allocation. */
    GRALLOC_USAGE_ALLOC_MASK = ~(GRALLOC_USAGE_FOREIGN_BUFFERS),

    /* implementation-specific private usage flags */
    GRALLOC_USAGE_PRIVATE_0 = 0x10000000U,
    GRALLOC_USAGE_PRIVATE_1 = 0x20000000U,
    GRALLOC_USAGE_PRIVATE_2 = 0x40000000U,
    GRALLOC_USAGE_PRIVATE_3 = 0x80000000U,
    GRALLOC_USAGE_PRIVATE_MASK = 0xF0000000U,
};

#ifdef __cplusplus
}
#endif
