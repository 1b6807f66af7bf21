/*
 * The plane writer shared by the producers of camera frames: it writes a YUV 4:2:0 frame given
 * as plane pointers (chroma read as NV21 pairs from the Cr pointer, luma and chroma at one row
 * pitch) into a locked graphic buffer of an NV21, flexible YUV or Venus format. The Surface
 * producer and the hardware-buffer producer differ only in the buffer they hand in and in a few
 * texts of their log lines.
 */
#pragma once

#include <gui/CpuConsumer.h>
#include <stddef.h>
#include <stdint.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

struct Yuv420Source {
    const uint8_t* y;
    const uint8_t* cb;  // only logged: the chroma is read from cr
    const uint8_t* cr;
    int width;
    int height;
    int stride;  // row pitch of luma and chroma, in bytes
    // Bytes that can be read from `cr` without leaving the source's chroma plane; SIZE_MAX when
    // the caller cannot tell (a Java buffer has been checked by then, or is taken as given).
    size_t crReadable;
};

struct PlaneWriterTexts {
    const char* name;  // the %s of every line
    // Which line announces the plain lock: "Lock buffer from %p for write" with the window
    // (a Surface's buffer) or "Lock buffer (%p) for write" with the buffer (a hardware buffer).
    bool hardwareBufferTarget;
    const void* lockSubject;  // the window or the target buffer
};

// The producers' checks of a source after their target's: no luma plane, or a negative width or
// height, is logged at error level with `name` and refused (true).
bool yuv420SourceRefused(const char* name, const Yuv420Source& src);

// Locks `buf` (format `bufFmt`) for writing and writes `src` into it. 0: written, and the buffer
// is left locked for the caller to unlock. Otherwise the buffer is not locked any more and the
// status says why: the lock's own error, BAD_VALUE for a lock without addresses, INVALID_OPERATION
// for a format that is not written here.
int writeYuv420Planes(const android::sp<android::GraphicBuffer>& buf, int bufFmt,
                      const Yuv420Source& src, const PlaneWriterTexts& texts);

// The bytes that can be read from `from` without leaving the chroma plane of a YCbCr lock of a
// width x height buffer (ceil(height / 2) rows at the chroma stride): 0 for a null `from`,
// SIZE_MAX when the lock gave no Cb or Cr plane to place it by.
size_t chromaBytesReadable(const uint8_t* cb, const uint8_t* cr, size_t chromaStride,
                           size_t chromaStep, size_t width, size_t height, const uint8_t* from);

// The bytes that can be read from a locked image's dataCr without leaving its chroma plane as the
// lock describes it (ceil(height / 2) rows at the chroma stride): the source bound of an image
// copied by writeYuv420Planes. 0 without a Cr plane, SIZE_MAX when the lock gave no Cb plane to
// place it by.
size_t chromaBytesReadableFromCr(const android::CpuConsumer::LockedBuffer& locked);
