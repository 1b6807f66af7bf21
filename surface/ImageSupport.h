/*
 * Helpers shared by the operations that read an image acquired from an ImageReader: the Java
 * image's buffer item, locking its graphic buffer for CPU reading into a LockedBuffer and
 * unlocking it, the P010 plane layouts and the JPEG size of a BLOB buffer.
 *
 * A consumer runs: Image_getLockedBuffer; when null, warn "Image already released!!!" and give
 * up; else lockImageFromBuffer(item, GRALLOC_USAGE_SW_READ_OFTEN, item->mFence->dup(), &locked)
 * into a default LockedBuffer, use it, unlockImageFromBuffer(item).
 */
#pragma once

#include <gui/BufferItem.h>
#include <gui/CpuConsumer.h>
#include <jni.h>
#include <ui/GraphicBuffer.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

using LockedBuffer = android::CpuConsumer::LockedBuffer;

// The BufferItem* held by the image's "mNativeBuffer" field; null once the image was released.
// The field is looked up once per process, under gLock.
android::BufferItem* Image_getLockedBuffer(JNIEnv* env, jobject image);

// Locks the item's graphic buffer for reading and describes it in `out`. Takes ownership of
// `fenceFd` (handed to the platform lock, which closes it) once the buffer passed its checks.
android::status_t lockImageFromBuffer(android::BufferItem* item, uint32_t usage, int fenceFd,
                                      LockedBuffer* out);

android::status_t unlockImageFromBuffer(android::BufferItem* item);

// Formats that the platform locks as one plane (RGB, RAW, BLOB, P010, Y8, Y16): their own format
// is their flexible format, and no YCbCr lock is tried.
bool isSinglePlaneFormat(int format);

// Reads the gralloc 4 plane layouts of a P010 buffer locked at `pData` and, when they describe
// P010, fills `out` with its luma and chroma planes. Nothing is written on failure.
android::status_t extractP010Gralloc4PlaneLayout(android::sp<android::GraphicBuffer> buffer,
                                                 void* pData, int format, LockedBuffer* out);

// The length of the JPEG picture in a locked BLOB buffer, from the camera's trailer in its last
// 8 bytes; the whole width when there is no trailer. `usingRGBAOverride` is not used.
uint32_t Image_getJpegSize(LockedBuffer* buffer, bool usingRGBAOverride);
